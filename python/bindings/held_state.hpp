#pragma once

#include "file_mapping.hpp"
#include "interpreter_lock.hpp"
#include "kept_array.hpp"
#include "turn.hpp"

#include <velacamplix/velacamplix.hpp>

#include <pybind11/complex.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace velacamplix::python {

namespace py = pybind11;

// A state vector as Python holds it. The library's object serves one thread at a time and its array may be shared
// with NumPy, so this class adds the two things that make both safe:
//
// - `with_state` runs work without the interpreter lock and in the object's own turn. Other Python threads go on, and
//   two threads on one object take turns. A turn is only ever waited for after the interpreter lock was let go, so the
//   two cannot wait for each other.
// - NumPy views keep the object alive and are counted; while one exists the array cannot be released.
//
// Its array goes to the next state of that size when the object goes; then no view is left.
//
// The array may lie in a file, for reading alone. Then work that reads throws FileGone where the file is gone in the
// end, and work that would write is refused: all that writes passes through `to_change`.
template <class T>
class HeldState : public std::enable_shared_from_this<HeldState<T>> {
public:
    using State = pbamplix::cpu::PybindAmplixStateVectorCPU<T>;

    explicit HeldState(unsigned int nqubits) : HeldState(nqubits, from_kept(nqubits)) {}
    HeldState(const HeldState&) = delete;
    HeldState& operator=(const HeldState&) = delete;
    ~HeldState() {
        if (state_.amplitudes.get_deleter() != &pbamplix::aligned_array_delete<thrust::complex<T>>) return;
        if (void* const array = state_.amplitudes.release()) kept_array::keep(array, bytes_of(state_.nqubits));
    }

    HeldState(unsigned int nqubits, std::unique_ptr<FileMapping> mapping) : state_(0u), mapping_(std::move(mapping)) {
        state_.nqubits = nqubits;
        state_.size = 1ul << nqubits;
        // The mapping is its owner.
        state_.amplitudes = pbamplix::amplitude_array<T>(static_cast<thrust::complex<T>*>(mapping_->start()),
                                                         [](thrust::complex<T>*) {});
    }

    template <class Work>
    decltype(auto) with_state(Work&& work) {
        const Unlocked unlocked;
        const std::lock_guard<Turn> turn(turn_);
        return whole([&]() -> decltype(auto) { return std::forward<Work>(work)(there()); });
    }

    template <class Work>
    decltype(auto) to_change(Work&& work) {
        const Unlocked unlocked;
        const std::lock_guard<Turn> turn(turn_);
        require_memory();
        return std::forward<Work>(work)(there());
    }

    // As `to_change`, of work that takes a microsecond on few amplitudes: there it keeps the interpreter lock, since
    // giving it up and asking for it again would take as long. Where the turn is another's it waits without, as always.
    template <class Work>
    void to_change_at_once(Work&& work) {
        constexpr unsigned long few = 1024;
        if (turn_.try_lock()) {
            const std::lock_guard<Turn> turn(turn_, std::adopt_lock);
            require_memory();
            if (state_.size <= few) return work(there());
        }
        to_change(std::forward<Work>(work));
    }

    // Makes the state basis state k as soon as somebody looks. A run that comes first begins there by itself, and
    // spares the sweep that writes it.
    void begin(unsigned long basis_state) {
        const Unlocked unlocked;
        const std::lock_guard<Turn> turn(turn_);
        require_memory();
        if (basis_state >= there_as_it_is().size) throw std::invalid_argument("the state has no such basis state");
        start_ = basis_state;
    }

    // work(state, k): k is the basis state that the amplitudes stand for if nobody has written them. It returns whether
    // it has written all of them; if not, they stand for k again.
    template <class Work>
    bool with_start(Work&& work) {
        const Unlocked unlocked;
        const std::lock_guard<Turn> turn(turn_);
        require_memory();
        const bool is_done = std::forward<Work>(work)(there_as_it_is(), start_);
        if (is_done) start_.reset();
        return is_done;
    }

    // The same with another object's turn, or this object's own: work(state, other's state). Turns are taken in the
    // order of their addresses, so that no two calls wait for each other.
    template <class Other, class Work>
    decltype(auto) with_both(HeldState<Other>& other, Work&& work) {
        const Unlocked unlocked;
        const auto [first, last] = std::minmax({&turn_, &other.turn_}, std::less<>());
        const std::lock_guard<Turn> turn(*first);
        std::unique_lock<Turn> other_turn(*last, std::defer_lock);
        if (first != last) other_turn.lock();
        return whole([&]() -> decltype(auto) {
            return other.whole([&]() -> decltype(auto) { return std::forward<Work>(work)(there(), other.there()); });
        });
    }

    // The state for as long as the lock is held: for work on several at a time, without the interpreter lock.
    std::pair<State*, std::unique_lock<Turn>> hold() {
        std::unique_lock<Turn> turn(turn_);
        require_memory();
        return {&there(), std::move(turn)};
    }

    // False when a view forbids it. Releasing twice is allowed.
    bool release() {
        const Unlocked unlocked;
        const std::lock_guard<Turn> turn(turn_);
        if (views_ != 0) return false;
        state_.release_memory();
        mapping_.reset();
        start_.reset();
        return true;
    }

    // After reading a view of a state in a file: throws FileGone where it was not there.
    void require_whole() {
        with_state([](State&) {});
    }

    // The 2^n amplitudes in index order (qubit q is bit q), without a copy. Slices of the result share its base
    // object, so the count falls only when the last of them is gone. In a file they are for reading.
    py::array_t<std::complex<T>> view() {
        auto owner = std::make_unique<View>(this->shared_from_this());
        auto [amplitudes, size] =
            with_state([](State& state) { return std::pair(state.amplitudes.get(), state.size); });
        // The name tells the Python half that an array of this base is a state's own.
        const py::capsule base(owner.get(), "velacamplix amplitudes",
                               [](void* view) { delete static_cast<View*>(view); });
        owner.release();
        py::array_t<std::complex<T>> array(static_cast<py::ssize_t>(size),
                                           reinterpret_cast<std::complex<T>*>(amplitudes), base);
        if (mapping_ != nullptr) array.attr("setflags")(py::arg("write") = false);
        return array;
    }

private:
    template <class Other>
    friend class HeldState;

    static std::size_t bytes_of(unsigned int nqubits) { return sizeof(thrust::complex<T>) << nqubits; }

    // Empty where no array of that size is kept.
    static pbamplix::amplitude_array<T> from_kept(unsigned int nqubits) {
        void* const array = nqubits < most_kept_qubits ? kept_array::take(bytes_of(nqubits)) : nullptr;
        return {static_cast<thrust::complex<T>*>(array), &pbamplix::aligned_array_delete<thrust::complex<T>>};
    }

    // The library allocates as it is made: where there is an array already, one amplitude.
    HeldState(unsigned int nqubits, pbamplix::amplitude_array<T> kept) : state_(kept == nullptr ? nqubits : 0) {
        if (kept == nullptr) return;
        state_.nqubits = nqubits;
        state_.size = 1ul << nqubits;
        state_.amplitudes = std::move(kept);
    }

    static constexpr unsigned int most_kept_qubits = 58;  // a number of bytes has 64 bits

    // What the work returns, if the file it has read was there.
    template <class Work>
    decltype(auto) whole(Work&& work) {
        if (mapping_ != nullptr) mapping_->begin();
        if constexpr (std::is_void_v<std::invoke_result_t<Work>>) {
            work();
            if (mapping_ != nullptr) mapping_->require_whole();
        } else {
            decltype(auto) result = work();
            if (mapping_ != nullptr) mapping_->require_whole();
            return result;
        }
    }

    void require_memory() const {
        if (mapping_ != nullptr) throw std::runtime_error("this state lies in a file, for reading alone");
    }

    State& there() {
        State& state = there_as_it_is();
        if (start_) {
            state.reset();
            std::swap(state.amplitudes[0], state.amplitudes[*start_]);
            start_.reset();
        }
        return state;
    }

    State& there_as_it_is() {
        // Another thread may have released the array since Python looked.
        if (state_.amplitudes == nullptr) throw std::runtime_error("this state vector has been released");
        return state_;
    }

    // Counts as one of `views_` until NumPy drops its last array.
    struct View {
        explicit View(std::shared_ptr<HeldState> owner) : held(std::move(owner)) { ++held->views_; }
        View(const View&) = delete;
        View& operator=(const View&) = delete;
        ~View() { --held->views_; }
        std::shared_ptr<HeldState> held;
    };

    State state_;
    std::unique_ptr<FileMapping> mapping_;  // of a state in a file
    std::optional<unsigned long> start_;
    Turn turn_;
    std::atomic<std::size_t> views_{0};
};

// Python has checked all arguments. But to read an argument is to call its methods, and those may set up the very
// object anew that the others were checked against. So what decides which memory is touched is checked once more where
// nothing can come between: in the turn, against the array that is there.

template <class State>
[[noreturn]] void refuse_changed(const State& state, const std::string& got) {
    throw std::runtime_error("this state vector has " + std::to_string(state.nqubits) + " qubits, got " + got +
                             ": the object was changed while a call was reading its arguments");
}

// The bits of distinct qubits that the state has and that are not among `others`.
template <class State, class Qubits = std::initializer_list<unsigned int>>
unsigned long bits_within(const State& state, const Qubits& qubits, unsigned long others = 0) {
    unsigned long bits = others;
    for (const unsigned int qubit : qubits) {
        if (qubit >= 64 || 1ul << qubit >= state.size) refuse_changed(state, "qubit " + std::to_string(qubit));
        if (bits >> qubit & 1) {
            throw std::runtime_error("a call names qubit " + std::to_string(qubit) +
                                     " twice: its arguments were changed while it was reading them");
        }
        bits |= 1ul << qubit;
    }
    return bits;
}

// An array's memory while the interpreter lock is let go. NumPy resizes no array that something refers to weakly, so it
// stays where it is.
template <class T>
class Pinned {
public:
    explicit Pinned(const py::array_t<T, py::array::c_style>& array)
        : data_(array.data()), size_(static_cast<unsigned long>(array.size())), owner_(pin(array)) {
        if (reinterpret_cast<std::uintptr_t>(data_) % alignof(T) != 0) {
            throw std::invalid_argument("the array's entries lie at odd addresses");
        }
    }

    const T* data() const { return data_; }
    unsigned long size() const { return size_; }

private:
    static py::weakref pin(py::array array) {
        while (py::isinstance<py::array>(array.base())) array = py::reinterpret_borrow<py::array>(array.base());
        return py::weakref(array);
    }

    const T* data_;
    unsigned long size_;
    py::weakref owner_;
};

// One that is filled; NumPy refuses where it may not be written.
template <class T>
class PinnedToFill : public Pinned<T> {
public:
    explicit PinnedToFill(py::array_t<T, py::array::c_style>& array)
        : Pinned<T>(array), target_(array.mutable_data()) {}

    T* target() const { return target_; }

private:
    T* target_;
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
