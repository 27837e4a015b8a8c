"""No test sees the figures of others, whichever ran before it in its process."""

import pytest


@pytest.fixture(autouse=True)
def no_figures():
    pyplot = pytest.importorskip("matplotlib.pyplot")
    pyplot.close("all")
    yield
    pyplot.close("all")
