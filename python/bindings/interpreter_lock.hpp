#pragma once

#include <pybind11/pybind11.h>

#include <cxxabi.h>
#include <unistd.h>

namespace velacamplix::python {

// A thread that asks for the interpreter lock while the interpreter ends does not get it. Python ends it by unwinding
// its stack (since 3.14 it lets it wait for ever), and a destructor on the way would end the whole process, or drop
// references without the lock. So such a thread waits here for ever: the process is about to go.
template <class Call>
auto or_wait_for_the_end(Call&& call) {
    try {
        return call();
    } catch (abi::__forced_unwind&) {
        for (;;) pause();
    }
}

// Lets other Python threads go on for as long as it lives.
class Unlocked {
public:
    Unlocked() : thread_(PyEval_SaveThread()) {}
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;
    ~Unlocked() {
        or_wait_for_the_end([this] { PyEval_RestoreThread(thread_); });
    }

private:
    PyThreadState* thread_;
};

// Takes the lock again for a while in the course of an `Unlocked`, in the same thread. `thread` is what
// PyThreadState_Get() told before: after the interpreter has ended nobody can be asked.
class Locked {
public:
    explicit Locked(PyThreadState* thread) {
        or_wait_for_the_end([thread] { PyEval_RestoreThread(thread); });
    }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    ~Locked() { PyEval_SaveThread(); }
};

}  // namespace velacamplix::python
