#pragma once

#include "statevector/observables/product_sums.hpp"
#include "statevector/packs/parts.hpp"
#include "statevector/packs/widened.hpp"

#include <velacamplix/amplitude.hpp>

#include <array>
#include <utility>

// The numbers a Pauli string sums on a pure state: for every pair of indices i and i ^ flip, once, the real or the
// imaginary part of conj(a[i ^ flip]) * a[i]. They are formed in the precision they are summed in, T, from amplitudes
// of that precision or a lower one.

namespace velacamplix::observables {

// An element of a pack takes the place `flipped` away from its own.
template <unsigned flipped>
struct flipped_elements {
    static constexpr int at(std::size_t s) { return static_cast<int>(s ^ flipped); }
};
// Where the amplitudes of a product are: all of them, or pieces of a state, each of which has the rows of the indices
// that agree with its own beyond `rows`.
template <class Stored>
struct paired_amplitudes {
    const thrust::complex<Stored>* ket;
    const thrust::complex<Stored>* bra;
    unsigned long rows;  // mask
};

// Writes whole rows of numbers, the first from row number `first` of the sequence. `flipped` is what the flip does
// to the elements of one pack: exchange of neighbouring amplitudes, and of the two parts for an imaginary part.
template <class T, class Stored, unsigned flipped>
void fill_rows(const paired_amplitudes<Stored>& state, const product_sequence& s, unsigned long first,
               unsigned long rows, T* out) {
    using V = scalar_pack<T>;
    constexpr unsigned long width = packs::scalars<V>;
    constexpr auto every = std::make_index_sequence<width>{};
    const unsigned long row_flip = s.flip >> row_bits<T>;
    // Inside a row, `width` amplitudes (two packs of them) make one pack of numbers.
    const unsigned long outer_flip = s.flip & (row_length<T> - 1) & ~(width - 1);
    const unsigned long half_flip = s.flip & (width / 2);
    const unsigned long above = s.above >> row_bits<T>;

    for (unsigned long row = first; row < first + rows; ++row, out += row_length<T>) {
        const unsigned long index_row = row + (row & above);
        const thrust::complex<Stored>* ket = state.ket + ((index_row & state.rows) << row_bits<T>);
        const thrust::complex<Stored>* bra = state.bra + (((index_row ^ row_flip) & state.rows) << row_bits<T>);
        for (unsigned long c = 0; c < row_length<T>; c += width) {
            const thrust::complex<Stored>* left = ket + c;
            const thrust::complex<Stored>* right = bra + (c ^ outer_flip);
            const V low = packs::load_widened<V>(right + half_flip);
            const V high = packs::load_widened<V>(right + (half_flip ^ (width / 2)));
            const V p = packs::load_widened<V>(left) * packs::shuffle(low, low, flipped_elements<flipped>{}, every);
            const V q = packs::load_widened<V>(left + width / 2) *
                        packs::shuffle(high, high, flipped_elements<flipped>{}, every);
            const V even = packs::real_parts(p, q);
            const V odd = packs::imaginary_parts(p, q);
            // re = br*ar + bi*ai from unexchanged parts, im = br*ai - bi*ar from exchanged ones.
            packs::store_scalars<V>(out + c, flipped & 1 ? odd - even : even + odd);
        }
    }
}

// Fills one slab of a sequence; arrays smaller than a row go amplitude by amplitude.
template <class T, class Stored = T>
class pair_products {
public:
    explicit pair_products(const thrust::complex<Stored>* state) : state_{state, state, ~0ul} {}
    // Of two pieces of 2^piece_qubits amplitudes, a row at least.
    pair_products(const thrust::complex<Stored>* ket, const thrust::complex<Stored>* bra, unsigned int piece_qubits)
        : state_{ket, bra, (1ul << (piece_qubits - row_bits<T>)) - 1} {}

    void operator()(const product_sequence& s, unsigned long number, T* out) const {
        const unsigned long length = filled_length<T>(s);
        if (length < row_length<T>) {
            for (unsigned long j = 0; j < length; ++j) {
                const auto ket = packs::widened<T>(packs::read_amplitude(state_.ket + j));
                const auto bra = packs::widened<T>(packs::read_amplitude(state_.bra + (j ^ s.flip)));
                out[j] = s.imaginary ? bra.real() * ket.imag() - bra.imag() * ket.real()
                                     : bra.real() * ket.real() + bra.imag() * ket.imag();
            }
            return;
        }
        static constexpr auto loops = make_loops(std::make_index_sequence<width>{});
        const unsigned long flipped = 2 * (s.flip & (width / 2 - 1)) | (s.imaginary ? 1 : 0);
        const unsigned long rows = length >> row_bits<T>;
        loops[flipped](state_, s, number * rows, rows, out);
    }

private:
    static constexpr unsigned long width = packs::scalars<scalar_pack<T>>;
    using loop = void (*)(const paired_amplitudes<Stored>&, const product_sequence&, unsigned long, unsigned long, T*);

    template <std::size_t... flipped>
    static constexpr std::array<loop, width> make_loops(std::index_sequence<flipped...>) {
        return {&fill_rows<T, Stored, static_cast<unsigned>(flipped)>...};
    }

    paired_amplitudes<Stored> state_;
};

// The sequence of a flip over `size` amplitudes, without masks. Pairs are told apart by the flip's highest bit: the
// numbers are those of the indices where it is 0. A flip of the lowest bits alone, inside a row, takes every index,
// each pair twice.
template <class T>
product_sequence pair_sequence(unsigned long flip, bool imaginary, unsigned long size) {
    if (flip < row_length<T>) return {flip, imaginary, size, 0, 0, 0};
    return {flip, imaginary, size / 2, ~((std::bit_floor(flip)) - 1), 0, 0};
}

// A mask over indices, seen from the numbers of the sequence.
inline unsigned long mask_over_numbers(const product_sequence& s, unsigned long mask) {
    if (s.above == 0) return mask;
    const unsigned long left_out = s.above & -s.above;
    return (mask & (left_out - 1)) | ((mask >> 1) & ~(left_out - 1));
}

}  // namespace velacamplix::observables
