"""Exceptions by type and words."""

import pytest


def refused(error, *words):
    """The exception is exactly of this type and its message holds every word."""

    class Check:
        def __enter__(self):
            self.raises = pytest.raises(error)
            self.info = self.raises.__enter__()

        def __exit__(self, *exception):
            caught = self.raises.__exit__(*exception)
            if caught:
                assert self.info.type is error
                for word in words:
                    assert word in str(self.info.value), (word, str(self.info.value))
            return caught

    return Check()
