"""Work that nobody can stop does not keep its caller."""

import os
import signal
import threading

import pytest

from velacamplix.programs.background import in_background


def test_what_the_work_returns_or_raises_reaches_the_caller():
    assert in_background(lambda: [threading.current_thread() is threading.main_thread()]) == [False]
    with pytest.raises(ZeroDivisionError):
        in_background(lambda: 1 / 0)


def test_another_thread_works_itself():
    found = []

    def ask():
        found.append(in_background(threading.current_thread))

    thread = threading.Thread(target=ask)
    thread.start()
    thread.join()
    assert found == [thread]


def test_ctrl_c_frees_the_caller_and_the_work_goes_on_to_its_end():
    may_end, ended = threading.Event(), threading.Event()

    def work():
        os.kill(os.getpid(), signal.SIGINT)
        assert may_end.wait(60)
        ended.set()

    with pytest.raises(KeyboardInterrupt):
        in_background(work)
    assert not ended.is_set()
    may_end.set()
    assert ended.wait(60)
