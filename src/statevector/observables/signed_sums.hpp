#pragma once

#include "statevector/packs/pack.hpp"

#include <bit>

// Sums of real numbers under the sign patterns of Pauli strings: the sum of (-1)^|j & mask| * x_j over one slab.
//
// The order of the additions is a fixed tree, the same for every mask, every instruction set and however many masks
// are asked for. A slab is cut into rows; rows are added eight at a time (neighbours, then pairs, then fours) until
// one is left, and that row is folded in halves. One mask alone walks the tree with its signs. Many masks share it: a
// step done as a butterfly (a Walsh-Hadamard transform over three index bits) yields the eight sums of every sign
// choice at once, each with the very additions that a single mask would have made.

namespace velacamplix::observables {

// Scalars in a row. Not the width of a pack: the tree must not depend on the instruction set.
template <class T>
inline constexpr unsigned long row_length = 64 / sizeof(T);
template <class T>
inline constexpr unsigned row_bits = static_cast<unsigned>(std::countr_zero(row_length<T>));

inline constexpr unsigned most_steps = 3;
inline constexpr unsigned long most_rows = 512;  // 8^most_steps; a slab takes 32 KiB

template <class T>
inline constexpr unsigned long slab_length = row_length<T>* most_rows;
template <class T>
inline constexpr unsigned slab_bits = row_bits<T> + 3 * most_steps;

// Steps that reduce `rows` rows to one. The rows up to 8^steps must be filled with zeros.
inline unsigned steps_for(unsigned long rows) {
    return rows <= 1 ? 0 : (static_cast<unsigned>(std::bit_width(rows - 1)) + 2) / 3;
}

template <class T>
struct slab {
    alignas(64) T rows[slab_length<T>];
    alignas(64) T partial[row_length<T> * (64 + 8 + 1)];  // sums after one, two and three steps
};

template <class T>
using scalar_pack = packs::wide_pack<T>;

// Adds rows eight at a time. Sum s takes the rows that begin at from + (8 s + k) * distance, k < 8; bit b of `signs`
// subtracts where bit b of k is set.
template <class T>
void add_eights(const T* from, unsigned long distance, unsigned long sums, unsigned signs, T* to) {
    using V = scalar_pack<T>;
    using bits = packs::bits_of<V>;
    constexpr unsigned long width = packs::scalars<V>;
    const auto sign = [signs](unsigned bit) { return (bits)packs::broadcast<V>((signs >> bit) & 1 ? T(-0.0) : T(0)); };
    const bits sign0 = sign(0), sign1 = sign(1), sign2 = sign(2);
    const auto signed_sum = [](V x, V y, bits s) { return x + (V)((bits)y ^ s); };

    for (unsigned long s = 0; s < sums; ++s, from += 8 * distance, to += row_length<T>) {
        for (unsigned long c = 0; c < row_length<T>; c += width) {
            V x[8];
            for (unsigned k = 0; k < 8; ++k) x[k] = packs::load_scalars<V>(from + k * distance + c);
            for (unsigned k = 0; k < 8; k += 2) x[k] = signed_sum(x[k], x[k + 1], sign0);
            for (unsigned k = 0; k < 8; k += 4) x[k] = signed_sum(x[k], x[k + 2], sign1);
            packs::store_scalars<V>(to + c, signed_sum(x[0], x[4], sign2));
        }
    }
}

// The same step for all eight sign choices, in place: the sum under `signs` stands where the row with k = signs was.
// Step 0 joins neighbouring rows, step 1 rows eight apart, step 2 rows sixty-four apart.
template <class T>
void transform(T* rows, unsigned steps, unsigned step) {
    using V = scalar_pack<T>;
    constexpr unsigned long width = packs::scalars<V>;
    const unsigned long length = row_length<T> << (3 * steps);
    const unsigned long distance = row_length<T> << (3 * step);
    for (unsigned long block = 0; block < length; block += 8 * distance) {
        for (unsigned long c = block; c < block + distance; c += width) {
            V x[8];
            for (unsigned k = 0; k < 8; ++k) x[k] = packs::load_scalars<V>(rows + c + k * distance);
            for (unsigned bit = 1; bit < 8; bit *= 2) {
                for (unsigned k = 0; k < 8; ++k) {
                    if (k & bit) continue;
                    const V sum = x[k] + x[k | bit];
                    x[k | bit] = x[k] - x[k | bit];
                    x[k] = sum;
                }
            }
            for (unsigned k = 0; k < 8; ++k) packs::store_scalars<V>(rows + c + k * distance, x[k]);
        }
    }
}

// +1 or -1. From a table: signs are as good as random, and a branch would be mispredicted half the time.
template <class T>
[[gnu::always_inline]] inline T sign_of_parity(unsigned long number) {
    static constexpr T signs[] = {T(1), T(-1)};
    return signs[__builtin_parityl(number)];
}

template <class T>
[[gnu::always_inline]] inline T signed_row_sum(const T* row, unsigned long mask) {
    T x[row_length<T>];
    __builtin_memcpy(x, row, sizeof(x));
    for (unsigned long half = row_length<T> / 2; half != 0; half /= 2) {
        const T sign = sign_of_parity<T>(mask & half);
        for (unsigned long j = 0; j < half; ++j) x[j] = x[j] + sign * x[j + half];
    }
    return x[0];
}

// The sum of a slab of 8^steps rows under one mask, after the first `transformed` steps have been done for all.
template <class T>
T signed_sum(slab<T>& numbers, unsigned steps, unsigned transformed, unsigned long mask) {
    const unsigned long row_mask = mask >> row_bits<T>;
    const T* from = numbers.rows + ((row_mask & ((1ul << (3 * transformed)) - 1)) << row_bits<T>);
    unsigned long distance = row_length<T> << (3 * transformed);
    T* to = numbers.partial;
    for (unsigned step = transformed; step < steps; ++step) {
        const unsigned long sums = 1ul << (3 * (steps - 1 - step));
        add_eights(from, distance, sums, static_cast<unsigned>(row_mask >> (3 * step)) & 7, to);
        from = to;
        distance = row_length<T>;
        to += sums << row_bits<T>;
    }
    return signed_row_sum(from, mask);
}

// How many steps to do for all masks at once, when `masks` of them are asked for. A shared step costs three additions
// per row and divides the rows that each mask still has to add by eight.
inline unsigned worthwhile_transforms(unsigned steps, unsigned long masks) {
    unsigned done = 0;
    for (unsigned long least = 4; done < steps && masks >= least; least *= 8) ++done;
    return done;
}

}  // namespace velacamplix::observables
