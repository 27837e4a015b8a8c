#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/kernels/diagonal.hpp"
#include "statevector/kernels/diagonal_run.hpp"
#include "statevector/kernels/kernel_call.hpp"

#include <variant>
#include <vector>

namespace velacamplix::replay {

// Which index bits a buffer holds: position i of the buffer's own index is bit bits[i] of the whole state's.
struct locality {
    std::vector<unsigned> bits;  // increasing

    explicit locality(unsigned long mask);
    unsigned long mask() const { return held; }
    // Whether these are the lowest bits, as of a state that fits the buffer: positions are then the bits themselves.
    bool is_lowest() const { return held == index::low_bits(bits.size()); }
    // The buffer's position mask of those index bits under `global` that it holds.
    unsigned long inside(unsigned long global) const;
    unsigned position_of(unsigned bit) const;

private:
    unsigned long held;
};

// A parity gate with targets outside the buffer: one call where an even number of their bits in the base are 1, the
// other where it is odd.
template <class T>
struct call_by_parity {
    unsigned long bits;
    std::vector<kernels::kernel_call<T>> calls;  // even, odd
};

// Factors for bits outside the buffer, together one factor of the whole buffer.
template <class T>
struct outside_factors {
    struct pair {
        unsigned long bit;
        thrust::complex<T> zero, one;
    };
    std::vector<pair> pairs;
    kernels::kernel_call<T> scaling;  // multiplies by 1, in whose place the factor is put
};

// One gate, or a part or a run of them, prepared for buffers of one locality. A buffer is told apart from the others by
// its base: the state index of its first amplitude, with zeros at the local bits.
template <class T>
struct step {
    unsigned long required = 0;  // acts on buffers whose base has these bits: controls outside
    std::variant<kernels::kernel_call<T>, call_by_parity<T>, outside_factors<T>, kernels::diagonal_run<T>,
                 kernels::diagonal_window<T>>
        work;

    bool acts_on(unsigned long base) const { return (base & required) == required; }
    void run(thrust::complex<T>* buffer, unsigned long base) const;
    // The bits of the base that decide whether it acts, and how.
    unsigned long choosing_bits() const;
};

// The steps of gates that act one after another in buffers which hold all their mixing targets.
template <class T>
std::vector<step<T>> steps_of(const std::vector<const gates::operation<T>*>& operations, const locality& where);

}  // namespace velacamplix::replay
