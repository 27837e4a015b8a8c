#include "statevector/gradients/turn.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/packs/precision.hpp"
#include "statevector/packs/widened.hpp"

#include <array>
#include <bit>
#include <utility>

namespace velacamplix::gradients {
namespace {

// Arrays are cut into rows of 8 amplitudes, and every part of an amplitude in a row has a sum of its own. Not the width
// of a pack: the order of additions must not depend on the instruction set.
constexpr unsigned long row_length = 1ul << least_turned_bits;
constexpr unsigned long row_parts = 2 * row_length;

using D = packs::wide_pack<double>;

template <class T>
using V = packs::wide_pack<T>;
template <class T>
constexpr std::size_t packs_in_row = row_parts / packs::scalars<V<T>>;

struct row_sums {
    std::array<D, row_parts / packs::scalars<D>> parts{};

    // The products of one pack of a row.
    template <class T>
    [[gnu::always_inline]] void add(std::size_t pack, V<T> products) {
        if constexpr (std::is_same_v<T, double>) {
            parts[pack] += products;
        } else {
            add_half<T, 0>(2 * pack, products, std::make_index_sequence<packs::scalars<D>>{});
            add_half<T, 1>(2 * pack + 1, products, std::make_index_sequence<packs::scalars<D>>{});
        }
    }

private:
    template <class T, std::size_t half, std::size_t... s>
    [[gnu::always_inline]] void add_half(std::size_t at, V<T> products, std::index_sequence<s...>) {
        static_assert(packs::scalars<V<T>> == 2 * sizeof...(s));
        parts[at] += packs::widened_pack<D>(
            __builtin_shufflevector(products, products, static_cast<int>(half * sizeof...(s) + s)...));
    }
};

// In each amplitude the other one of its pair, with its parts exchanged for a turn about X.
template <unsigned flipped>
struct partner {
    static constexpr int at(std::size_t s) { return static_cast<int>(s ^ flipped); }
};
template <unsigned flipped, class P>
[[gnu::always_inline]] inline P partner_of(P pack) {
    return packs::shuffle(pack, pack, partner<flipped>{}, std::make_index_sequence<packs::scalars<P>>{});
}

// What a turn multiplies the partners by: of each part in a row, below where the bit is 0.
template <class T>
std::array<T, row_parts> factors_of(const turn<T>& by, bool below, unsigned long bit_in_row) {
    std::array<T, row_parts> factors;
    for (unsigned long s = 0; s < row_parts; ++s) {
        const bool negative = by.about_x ? s % 2 == 0 : bit_in_row != 0 ? (s / 2 & bit_in_row) == 0 : below;
        factors[s] = negative ? -by.sine : by.sine;
    }
    return factors;
}

template <class T>
[[gnu::always_inline]] inline V<T> factors_at(const std::array<T, row_parts>& factors, std::size_t pack) {
    return packs::load_scalars<V<T>>(factors.data() + pack * packs::scalars<V<T>>);
}

// A bit that tells rows apart.
template <class T, bool about_x>
void turn_rows(thrust::complex<T>* lambda, thrust::complex<T>* psi, unsigned bits, const turn<T>& by, bool turns_psi,
               row_sums& sums) {
    using P = V<T>;
    constexpr unsigned long lanes = packs::lanes<P>;
    constexpr unsigned flipped = about_x ? 1 : 0;
    const P cosine = packs::broadcast<P>(by.cosine);
    const P low_factors = factors_at(factors_of(by, true, 0), 0),
            high_factors = factors_at(factors_of(by, false, 0), 0);
    const unsigned long row_bit = by.bit >> least_turned_bits;
    for (const unsigned long r : index::free_indices(index::low_bits(bits - least_turned_bits) & ~row_bit)) {
        for (std::size_t k = 0; k < packs_in_row<T>; ++k) {
            const unsigned long low = (r << least_turned_bits) + k * lanes, high = low + by.bit;
            const P l0 = packs::load<P>(lambda + low), l1 = packs::load<P>(lambda + high);
            const P p0 = packs::load<P>(psi + low), p1 = packs::load<P>(psi + high);
            const P q0 = partner_of<flipped>(p0), q1 = partner_of<flipped>(p1);
            sums.add<T>(k, about_x ? l1 * q0 + l0 * q1 : l1 * q0 - l0 * q1);
            packs::store<P>(lambda + low, l0 * cosine + partner_of<flipped>(l1) * low_factors);
            packs::store<P>(lambda + high, l1 * cosine + partner_of<flipped>(l0) * high_factors);
            if (!turns_psi) continue;
            packs::store<P>(psi + low, p0 * cosine + q1 * low_factors);
            packs::store<P>(psi + high, p1 * cosine + q0 * high_factors);
        }
    }
}

// A bit inside the rows: its pairs lie in packs of one row, `pack_flip` apart, at places that differ by `flipped`.
template <class T, unsigned flipped>
void turn_in_rows(thrust::complex<T>* lambda, thrust::complex<T>* psi, unsigned bits, const turn<T>& by, bool turns_psi,
                  row_sums& sums) {
    using P = V<T>;
    constexpr unsigned long lanes = packs::lanes<P>;
    constexpr std::size_t count = packs_in_row<T>;
    const P cosine = packs::broadcast<P>(by.cosine);
    const std::size_t pack_flip = by.bit / lanes;
    const std::array<T, row_parts> factors = factors_of(by, false, by.bit);
    for (unsigned long first = 0; first < 1ul << bits; first += row_length) {
        std::array<P, count> l, p;
        for (std::size_t k = 0; k < count; ++k) {
            l[k] = packs::load<P>(lambda + first + k * lanes);
            p[k] = packs::load<P>(psi + first + k * lanes);
        }
        for (std::size_t k = 0; k < count; ++k) {
            const P q = partner_of<flipped>(p[k ^ pack_flip]), of_sums = factors_at(factors, k);
            sums.add<T>(k, l[k] * q);
            packs::store<P>(lambda + first + k * lanes,
                            l[k] * cosine + partner_of<flipped>(l[k ^ pack_flip]) * of_sums);
            if (turns_psi) packs::store<P>(psi + first + k * lanes, p[k] * cosine + q * of_sums);
        }
    }
}

template <class T, std::size_t... flipped>
void turn_in_rows(thrust::complex<T>* lambda, thrust::complex<T>* psi, unsigned bits, const turn<T>& by, bool turns_psi,
                  row_sums& sums, std::index_sequence<flipped...>) {
    using loop = void (*)(thrust::complex<T>*, thrust::complex<T>*, unsigned, const turn<T>&, bool, row_sums&);
    static constexpr loop loops[] = {&turn_in_rows<T, static_cast<unsigned>(flipped)>...};
    loops[2 * (by.bit & (packs::lanes<V<T>> - 1)) | (by.about_x ? 1 : 0)](lambda, psi, bits, by, turns_psi, sums);
}

}  // namespace

template <class T>
double sum_and_turn(thrust::complex<T>* lambda, thrust::complex<T>* psi, unsigned bits, const turn<T>& by,
                    bool turns_psi) {
    row_sums sums;
    const bool in_row = by.bit < row_length;
    if (in_row) {
        turn_in_rows(lambda, psi, bits, by, turns_psi, sums, std::make_index_sequence<packs::scalars<V<T>>>{});
    } else if (by.about_x) {
        turn_rows<T, true>(lambda, psi, bits, by, turns_psi, sums);
    } else {
        turn_rows<T, false>(lambda, psi, bits, by, turns_psi, sums);
    }
    double parts[row_parts], row[row_length];
    for (std::size_t k = 0; k < sums.parts.size(); ++k) {
        packs::store_scalars(parts + k * packs::scalars<D>, sums.parts[k]);
    }
    for (unsigned long a = 0; a < row_length; ++a) {
        // Im <lambda|X|psi> takes lambda's real times psi's imaginary parts and the reverse, <lambda|Y|psi> the others.
        const double sum = by.about_x ? parts[2 * a] - parts[2 * a + 1] : parts[2 * a] + parts[2 * a + 1];
        row[a] = in_row && !by.about_x && (a & by.bit) == 0 ? -sum : sum;
    }
    return ((row[0] + row[4]) + (row[2] + row[6])) + ((row[1] + row[5]) + (row[3] + row[7]));
}

#define VELACAMPLIX_INSTANTIATE(T) \
    template double sum_and_turn(thrust::complex<T>*, thrust::complex<T>*, unsigned, const turn<T>&, bool);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::gradients
