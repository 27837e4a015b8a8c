"""Places where little is left for functions that call themselves."""

import threading
from concurrent.futures import Future


def from_a_deep_stack(work, frames=300):
    """What `work` returns, called from a function that is called by a function, and so on."""
    return work() if not frames else from_a_deep_stack(work, frames - 1)


def in_a_thread_of_a_small_stack(work):
    """What `work` returns, called in a thread with the stack of a small embedded system."""
    done = Future()

    def carry_out():
        try:
            done.set_result(work())
        except BaseException as error:
            done.set_exception(error)

    before = threading.stack_size(128 * 1024)
    try:
        threading.Thread(target=carry_out).start()
    finally:
        threading.stack_size(before)
    return done.result()


WHERE = [from_a_deep_stack, in_a_thread_of_a_small_stack]
