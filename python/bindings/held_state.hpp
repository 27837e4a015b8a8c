#pragma once

#include "interpreter_lock.hpp"
#include "turn.hpp"

#include <velacamplix/velacamplix.hpp>

#include <pybind11/complex.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <atomic>
#include <complex>
#include <cstddef>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace velacamplix::python {

namespace py = pybind11;

// A state vector as Python holds it. The library's object serves one thread at a time and its array may be shared
// with NumPy, so this class adds the two things that make both safe:
//
// - `with_state` runs work without the interpreter lock and in the object's own turn. Other Python threads go on, and
//   two threads on one object take turns. A turn is only ever taken after the interpreter lock was let go, so the two
//   cannot wait for each other.
// - NumPy views keep the object alive and are counted; while one exists the array cannot be released.
template <class T>
class HeldState : public std::enable_shared_from_this<HeldState<T>> {
public:
    using State = pbamplix::cpu::PybindAmplixStateVectorCPU<T>;

    explicit HeldState(unsigned int nqubits) : state_(nqubits) {}

    template <class Work>
    decltype(auto) with_state(Work&& work) {
        const Unlocked unlocked;
        const std::lock_guard<Turn> turn(turn_);
        // Another thread may have released the array since Python looked.
        if (state_.amplitudes == nullptr) throw std::runtime_error("this state vector has been released");
        return std::forward<Work>(work)(state_);
    }

    // False when a view forbids it. Releasing twice is allowed.
    bool release() {
        const Unlocked unlocked;
        const std::lock_guard<Turn> turn(turn_);
        if (views_ != 0) return false;
        state_.release_memory();
        return true;
    }

    // The 2^n amplitudes in index order (qubit q is bit q), without a copy. Slices of the result share its base
    // object, so the count falls only when the last of them is gone.
    py::array_t<std::complex<T>> view() {
        auto [amplitudes, size] = with_state([this](State& state) {
            ++views_;
            return std::pair(state.amplitudes.get(), state.size);
        });
        auto owner = std::make_unique<View>(this->shared_from_this());
        const py::capsule base(owner.get(), [](void* view) { delete static_cast<View*>(view); });
        owner.release();
        return py::array_t<std::complex<T>>(static_cast<py::ssize_t>(size),
                                            reinterpret_cast<std::complex<T>*>(amplitudes), base);
    }

private:
    // Takes over one count of `views_` and gives it back when NumPy drops its last array.
    struct View {
        explicit View(std::shared_ptr<HeldState> owner) : held(std::move(owner)) {}
        View(const View&) = delete;
        View& operator=(const View&) = delete;
        ~View() { --held->views_; }
        std::shared_ptr<HeldState> held;
    };

    State state_;
    Turn turn_;
    std::atomic<std::size_t> views_{0};
};

// What Python reads from a state it reads in double precision, whatever the state's own. Of a double state this is, bit
// for bit, the plain view.
template <class T>
pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<T>>> precise(
    const pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state) {
    return {{state.amplitudes.get(), state.nqubits, state.size}};
}

// What shots are drawn from: of a single state, whose total is never quite 1, always as shares of it.
template <class T>
auto drawn_from(const pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state) {
    if constexpr (std::is_same_v<T, double>) {
        return pbamplix::SVSequence<thrust::complex<T>>(precise(state));
    } else {
        return precise(state);
    }
}

}  // namespace velacamplix::python
