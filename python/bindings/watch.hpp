#pragma once

#include "interpreter_lock.hpp"

#include <velacamplix/velacamplix.hpp>

#include <pybind11/pybind11.h>

#include <chrono>
#include <utility>

namespace velacamplix::python {

namespace py = pybind11;

// What happens while the core is at work without the interpreter lock: signals are looked after and Python's function
// is told, each at most once per interval, because taking the lock may mean to wait for other Python threads. The first
// exception ends the work. `signals` is for Python's main thread.
class Watch {
public:
    Watch(py::object function, double interval, bool signals)
        : function_(std::move(function)),
          interval_(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(interval))),
          next_(Clock::now() + interval_),
          thread_(PyThreadState_Get()),
          signals_(signals) {}

    bool is_needed() const { return signals_ || !function_.is_none(); }

    // False when an exception ends the work, which error() then tells.
    bool goes_on(unsigned long done, unsigned long all) {
        const bool is_last = done == all && !function_.is_none();
        if (!is_last && Clock::now() < next_) return true;
        const Locked locked(thread_);
        try {
            if (signals_ && PyErr_CheckSignals() != 0) throw py::error_already_set();
            // The function may let go of the lock and not get it back.
            if (!function_.is_none()) or_wait_for_the_end([&] { function_(done, all); });
        } catch (py::error_already_set& raised) {
            error_ = raised.value();
            if (raised.trace()) PyException_SetTraceback(error_.ptr(), raised.trace().ptr());
            return false;
        }
        next_ = Clock::now() + interval_;
        return true;
    }
    const py::object& error() const { return error_; }

    // Returns work(hook), or raises what ended it. The hook is empty if nobody listens.
    template <class Work>
    auto over(Work&& work) {
        pbamplix::work_hook hook;
        if (is_needed()) {
            hook = [this](unsigned long done, unsigned long all) {
                if (!goes_on(done, all)) throw Ended();
            };
        }
        try {
            return work(hook);
        } catch (const Ended&) {
            PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error_.ptr())), error_.ptr());
            throw py::error_already_set();
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    // Passes through the library, which must not hold Python's objects while it has no lock.
    struct Ended {};

    py::object function_;
    py::object error_ = py::none();
    Clock::duration interval_;
    Clock::time_point next_;
    PyThreadState* thread_;
    bool signals_;
};

}  // namespace velacamplix::python
