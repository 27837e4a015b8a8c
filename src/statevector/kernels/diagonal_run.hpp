#pragma once

#include "statevector/packs/pack.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <vector>

namespace velacamplix::kernels {

using namespace packs;  // what loops and formulas are written in

// Several diag(d0, d1) on single qubits, one after another, in one walk over an array: every amplitude is multiplied
// by its factors in the order in which they were added, as by that many single gates, but stays in registers
// meanwhile. Real and imaginary parts are held apart, which saves a shuffle per factor.
template <class T>
class diagonal_run {
public:
    // For arrays of 2^nbqbits amplitudes; at least fewest_qubits.
    explicit diagonal_run(unsigned long nbqbits) : nbqbits_(nbqbits) {}

    // A target inside the array, by its position.
    void add_inside(unsigned position, thrust::complex<T> d0, thrust::complex<T> d1);
    // A target outside: the whole array has d1 where `base` has this bit, else d0.
    void add_outside(unsigned long bit, thrust::complex<T> d0, thrust::complex<T> d1);

    void run(thrust::complex<T>* array, unsigned long base) const;

    unsigned long outside() const;  // all bits of targets outside

    // Four pairs of packs are worked on at a time.
    static constexpr unsigned pairs_at_once = 4;
    static constexpr unsigned amplitudes_per_pair = 2 * lanes<wide_pack<T>>;
    static constexpr unsigned fewest_qubits = lane_bits<wide_pack<T>> + 3;

private:
    using V = wide_pack<T>;

    struct factors {
        V re, im;
    };
    struct entry {
        unsigned long outside = 0;  // bit of the base that chooses, or 0
        unsigned shift = 63;        // bit of the pair's number that chooses
        factors of[2];              // lane by lane
    };

    unsigned long nbqbits_;
    std::vector<entry> entries_;
};

}  // namespace velacamplix::kernels
