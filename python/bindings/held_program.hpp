#pragma once

#include <velacamplix/program.hpp>

#include <mutex>
#include <stdexcept>
#include <utility>

namespace velacamplix::python {

// A program as Python holds it. One run at a time: the second caller is refused rather than kept waiting, because it
// may be a function that the first run called.
template <class T>
struct HeldProgram {
    explicit HeldProgram(unsigned int nqubits) : list(nqubits) {}
    explicit HeldProgram(pbamplix::cpu::program<T>&& made) : list(std::move(made)) {}

    pbamplix::cpu::program<T> list;
    std::mutex mutex;

    std::unique_lock<std::mutex> taken() {
        std::unique_lock<std::mutex> turn(mutex, std::try_to_lock);
        if (!turn.owns_lock()) throw std::runtime_error("this program is running already");
        return turn;
    }
};

}  // namespace velacamplix::python
