#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/kernels/diagonal.hpp"
#include "statevector/kernels/diagonal_run.hpp"
#include "statevector/kernels/kernel_call.hpp"
#include "statevector/replay/plan.hpp"

#include <memory>
#include <vector>

namespace velacamplix::replay {

// Which index bits a buffer holds: position i of the buffer's own index is bit bits[i] of the whole state's.
struct locality {
    std::vector<unsigned> bits;  // increasing

    explicit locality(unsigned long mask);
    unsigned long mask() const;
    // The buffer's position mask of those index bits under `global` that it holds.
    unsigned long inside(unsigned long global) const;
    unsigned position_of(unsigned bit) const;
};

// The factors that a diagonal has for a bit outside the buffer.
template <class T>
struct outside_factors {
    unsigned long bit;
    thrust::complex<T> zero, one;
};

// A gate prepared for buffers of one locality. A buffer is told apart from the others by its base: the state index of
// its first amplitude, with zeros at the local bits.
template <class T>
struct step {
    unsigned long required = 0;      // the gate acts on buffers whose base has these bits, its controls outside
    unsigned long variant_mask = 0;  // the target of an RZ outside the buffer: it chooses among the calls
    std::vector<kernels::kernel_call<T>> calls;
    std::vector<outside_factors<T>> outside;  // for a product: together they are one factor of the whole buffer
    kernels::kernel_call<T> scaling;          // multiplies by it
    // Instead of the above: several gates at once; a diagonal with targets outside.
    std::shared_ptr<const kernels::diagonal_run<T>> run_of_diagonals;
    std::shared_ptr<const kernels::diagonal_window<T>> window;

    bool acts_on(unsigned long base) const { return (base & required) == required; }
    void run(thrust::complex<T>* buffer, unsigned long base) const;
};

template <class T>
footprint footprint_of(const gates::operation<T>& op);

// Whether an operation may join its neighbours in a diagonal_run.
template <class T>
bool joins_runs(const gates::operation<T>& op);

// `count` such operations from `from` on, as one step.
template <class T>
step<T> resolve_run(const gates::operation<T>* const* from, unsigned long count, const locality& where);

// All mixing targets of the operation must be local.
template <class T>
step<T> resolve(const gates::operation<T>& op, const locality& where);

}  // namespace velacamplix::replay
