#include "statevector/gradients/derivative_sums.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/packs/parts.hpp"
#include "statevector/packs/widened.hpp"

#include <array>
#include <utility>

namespace velacamplix::gradients {
namespace {

using V = packs::wide_pack<double>;
constexpr unsigned long width = packs::scalars<V>;

// Arrays are cut into rows of 8 entries, and every entry of a row has sums of its own. Not the width of a pack: the
// order of additions must not depend on the instruction set.
constexpr unsigned row_bits = 3;
constexpr unsigned long row_length = 1ul << row_bits;

bool is_odd(unsigned long bits) { return __builtin_parityl(bits) != 0; }

// An element of a pack takes the place `flipped` away from its own.
template <unsigned flipped>
struct flipped_elements {
    static constexpr int at(std::size_t s) { return static_cast<int>(s ^ flipped); }
};

// The sum of (-1)^|r & signs| * row(r, k) for every k < count, over all rows r that hold the bits of `fixed` and any of
// `free`. The bits of `signs` are free. Two rows are taken at a time, each with a sum of its own; `many_signs` says
// that more bits than the one that tells them apart change the sign.
template <std::size_t count, bool many_signs, class Row>
[[gnu::always_inline]] inline std::array<V, count> add_row_pairs(unsigned long free, unsigned long fixed,
                                                                 unsigned long signs, Row row) {
    using bits = packs::bits_of<V>;
    std::array<V, count> first{}, second{};
    const unsigned long paired = signs != 0 ? signs & -signs : free & -free;
    const unsigned long other_signs = signs & ~paired;
    for (const unsigned long r : index::free_indices(free & ~paired)) {
        const auto sign = bits{} + static_cast<long>(static_cast<unsigned long>(is_odd(r & other_signs)) << 63);
        const auto add = [&](std::array<V, count> & sum, unsigned long at) __attribute__((always_inline)) {
            for (std::size_t k = 0; k < count; ++k) {
                const V numbers = row(at, k);
                sum[k] += many_signs ? (V)((bits)numbers ^ sign) : numbers;
            }
        };
        add(first, r | fixed);
        if (paired == 0) break;  // one row alone
        add(second, r | paired | fixed);
    }
    for (std::size_t k = 0; k < count; ++k) first[k] = signs != 0 ? first[k] - second[k] : first[k] + second[k];
    return first;
}

template <std::size_t count, class Row>
[[gnu::always_inline]] inline std::array<V, count> add_rows(unsigned long free, unsigned long fixed,
                                                            unsigned long signs, Row row) {
    return (signs & (signs - 1)) == 0 ? add_row_pairs<count, false>(free, fixed, signs, row)
                                      : add_row_pairs<count, true>(free, fixed, signs, row);
}

// Folds a row in halves.
double sum_of_row(const double* row) {
    return ((row[0] + row[4]) + (row[2] + row[6])) + ((row[1] + row[5]) + (row[3] + row[7]));
}

// The sum of the entries of a row whose place has the low bits of `controls`, with the signs of `phase`.
double sum_of_row(const double* row, unsigned long phase, unsigned long controls) {
    phase &= row_length - 1;
    controls &= row_length - 1;
    if ((phase | controls) == 0) return sum_of_row(row);
    double chosen[row_length];
    for (unsigned long a = 0; a < row_length; ++a) {
        chosen[a] = (a & controls) != controls ? 0.0 : is_odd(a & phase) ? -row[a] : row[a];
    }
    return sum_of_row(chosen);
}

// Im(i^y_count w) takes a part of w, and perhaps its negative.
bool takes_imaginary_part(const pauli_sum& sum) { return (sum.y_count & 1) == 0; }
double sign_of(const pauli_sum& sum) { return (sum.y_count & 2) != 0 ? -1.0 : 1.0; }

template <class T, unsigned flipped>
void add_amplitude_rows(const thrust::complex<T>* lambda, const thrust::complex<T>* psi, unsigned bits,
                        const pauli_sum& sum, double* parts) {
    constexpr std::size_t packs_in_row = 2 * row_length / width;
    constexpr unsigned long lanes = packs::lanes<V>;
    const unsigned long row_flip = sum.flip >> row_bits;
    const unsigned long pack_flip = (sum.flip & (row_length - 1)) / lanes;
    const unsigned long fixed = sum.controls >> row_bits;
    const auto added = add_rows<packs_in_row>(
        index::low_bits(bits - row_bits) & ~fixed, fixed,
        sum.phase >> row_bits, [=](unsigned long r, std::size_t k) __attribute__((always_inline)) {
            const V left = packs::load_widened<V>(lambda + (r << row_bits) + k * lanes);
            const V right = packs::load_widened<V>(psi + ((r ^ row_flip) << row_bits) + (k ^ pack_flip) * lanes);
            return left * packs::shuffle(right, right, flipped_elements<flipped>{}, std::make_index_sequence<width>{});
        });
    for (std::size_t k = 0; k < packs_in_row; ++k) packs::store_scalars(parts + k * width, added[k]);
}

template <class T, std::size_t... flipped>
void add_amplitude_rows(const thrust::complex<T>* lambda, const thrust::complex<T>* psi, unsigned bits,
                        const pauli_sum& sum, double* parts, std::index_sequence<flipped...>) {
    using loop = void (*)(const thrust::complex<T>*, const thrust::complex<T>*, unsigned, const pauli_sum&, double*);
    static constexpr loop loops[] = {&add_amplitude_rows<T, static_cast<unsigned>(flipped)>...};
    const unsigned long in_pack = 2 * (sum.flip & (packs::lanes<V> - 1)) | (takes_imaginary_part(sum) ? 1 : 0);
    loops[in_pack](lambda, psi, bits, sum, parts);
}

}  // namespace

template <class T>
double sum_of_flip(const thrust::complex<T>* lambda, const thrust::complex<T>* psi, unsigned bits,
                   const pauli_sum& sum) {
    const bool imaginary = takes_imaginary_part(sum);
    // Signs go by the index that P comes from, j = i ^ flip.
    const bool turned = is_odd(sum.flip & sum.phase);
    double total = 0;
    if (bits < row_bits) {
        for (unsigned long i = 0; i < (1ul << bits); ++i) {
            if ((i & sum.controls) != sum.controls) continue;
            const auto l = packs::widened<double>(packs::read_amplitude(lambda + i));
            const auto p = packs::widened<double>(packs::read_amplitude(psi + (i ^ sum.flip)));
            const double part =
                imaginary ? l.real() * p.imag() - l.imag() * p.real() : l.real() * p.real() + l.imag() * p.imag();
            total += is_odd(i & sum.phase) ? -part : part;
        }
    } else {
        double parts[2 * row_length], row[row_length];
        add_amplitude_rows(lambda, psi, bits, sum, parts, std::make_index_sequence<width>{});
        for (unsigned long a = 0; a < row_length; ++a) {
            row[a] = imaginary ? parts[2 * a] - parts[2 * a + 1] : parts[2 * a] + parts[2 * a + 1];
        }
        total = sum_of_row(row, sum.phase, sum.controls);
    }
    return (turned ? -sign_of(sum) : sign_of(sum)) * total;
}

template <class T>
void fill_products(const thrust::complex<T>* lambda, const thrust::complex<T>* psi, unsigned bits, double* products) {
    constexpr unsigned long lanes = packs::lanes<V>;
    const unsigned long size = 1ul << bits;
    if (size < 2 * lanes) {
        for (unsigned long i = 0; i < size; ++i) {
            const auto l = packs::widened<double>(packs::read_amplitude(lambda + i));
            const auto p = packs::widened<double>(packs::read_amplitude(psi + i));
            products[i] = l.real() * p.imag() - l.imag() * p.real();
        }
        return;
    }
    for (unsigned long i = 0; i < size; i += 2 * lanes) {
        const V x = packs::load_widened<V>(lambda + i) * packs::swap_parts(packs::load_widened<V>(psi + i));
        const V y =
            packs::load_widened<V>(lambda + i + lanes) * packs::swap_parts(packs::load_widened<V>(psi + i + lanes));
        packs::store_scalars(products + i, packs::real_parts(x, y) - packs::imaginary_parts(x, y));
    }
}

double sum_of_products(const double* products, unsigned bits, const pauli_sum& sum) {
    if (bits < row_bits) {
        double total = 0;
        for (unsigned long i = 0; i < (1ul << bits); ++i) {
            if ((i & sum.controls) == sum.controls) total += is_odd(i & sum.phase) ? -products[i] : products[i];
        }
        return total;
    }
    constexpr std::size_t packs_in_row = row_length / width;
    const unsigned long fixed = sum.controls >> row_bits;
    const auto added = add_rows<packs_in_row>(
        index::low_bits(bits - row_bits) & ~fixed, fixed,
        sum.phase >> row_bits, [=](unsigned long r, std::size_t k) __attribute__((always_inline)) {
            return packs::load_scalars<V>(products + (r << row_bits) + k * width);
        });
    double row[row_length];
    for (std::size_t k = 0; k < packs_in_row; ++k) packs::store_scalars(row + k * width, added[k]);
    return sum_of_row(row, sum.phase, sum.controls);
}

void fold_products(double* products, unsigned bits, double* totals) {
    constexpr std::size_t packs_in_row = row_length / width;
    for (unsigned p = bits; p-- > 0;) {
        const unsigned long half = 1ul << p;
        if (half < row_length) {
            double difference = 0;
            for (unsigned long i = 0; i < half; ++i) {
                difference += products[i] - products[i + half];
                products[i] += products[i + half];
            }
            totals[p] = difference;
            continue;
        }
        std::array<V, packs_in_row> differences{};
        for (unsigned long i = 0; i < half; i += row_length) {
            for (std::size_t k = 0; k < packs_in_row; ++k) {
                double* const at = products + i + k * width;
                const V low = packs::load_scalars<V>(at), high = packs::load_scalars<V>(at + half);
                differences[k] += low - high;
                packs::store_scalars(at, low + high);
            }
        }
        double row[row_length];
        for (std::size_t k = 0; k < packs_in_row; ++k) packs::store_scalars(row + k * width, differences[k]);
        totals[p] = sum_of_row(row);
    }
    totals[bits] = products[0];
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                 \
    template double sum_of_flip(const thrust::complex<T>*, const thrust::complex<T>*, unsigned, const pauli_sum&); \
    template void fill_products(const thrust::complex<T>*, const thrust::complex<T>*, unsigned, double*);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::gradients
