#pragma once

#include "statevector/packs/pack.hpp"
#include "statevector/storage/parallel.hpp"

#include <velacamplix/amplitude.hpp>

#include <array>
#include <memory>

namespace velacamplix::kernels {

using namespace packs;  // what loops and formulas are written in

// Coefficients too many to stand in the call itself: sorted diagonals, dense matrices.
template <class T>
struct coefficient_table {
    virtual ~coefficient_table() = default;
};

// One gate, prepared for an array of a given size: which loop runs, which groups it visits and with what numbers.
// The array itself is not part of it: the same call serves a whole state and, chunk after chunk, a cache-resident
// buffer. Preparing allocates nothing unless a table is needed.
//
// Units of work are numbered 0 ... units - 1 and independent of each other. Unit u has the base index
// deposit(u, ~fixed) | ones; it covers one pack (or one amplitude) at base | every combination of the target bits.
template <class T>
struct kernel_call {
    using loop = void (*)(const kernel_call&, thrust::complex<T>* state, unsigned long begin, unsigned long end);

    loop run = nullptr;  // null: the gate touches nothing
    unsigned long units = 0;
    unsigned long bytes = 0;       // read and written by all units together
    unsigned long fixed = 0;       // index bits that are equal in all bases, the bits inside a pack among them
    unsigned long ones = 0;        // which of the fixed bits are 1
    unsigned long lane_fixed = 0;  // conditions on the index bits inside a pack
    unsigned long lane_ones = 0;
    std::array<unsigned long, 2> target_bit{};  // high local bit first
    unsigned long prefetch = 0;                 // amplitudes to fetch ahead, 0 where the hardware does it well
    std::array<thrust::complex<T>, 4> coefficients{};
    std::shared_ptr<const coefficient_table<T>> table;
};

// Runs a call over a whole array, split over threads where that pays.
template <class T>
void run_parallel(const kernel_call<T>& call, thrust::complex<T>* state, int nthreads) {
    if (call.run == nullptr) return;
    storage::parallel_shares(call.units, call.bytes, nthreads,
                             [&](unsigned long begin, unsigned long end) { call.run(call, state, begin, end); });
}

// Runs a call on the calling thread.
template <class T>
void run_serial(const kernel_call<T>& call, thrust::complex<T>* state) {
    if (call.run != nullptr) call.run(call, state, 0, call.units);
}

}  // namespace velacamplix::kernels
