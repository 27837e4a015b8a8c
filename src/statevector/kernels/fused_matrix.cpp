#include "statevector/kernels/fused_matrix.hpp"

#include "statevector/kernels/targets.hpp"
#include "statevector/packs/fused.hpp"

#include <algorithm>
#include <array>

namespace velacamplix::kernels {
namespace {

template <class V>
struct fused_table : coefficient_table<scalar_of<V>> {
    std::vector<thrust::complex<scalar_of<V>>> scalars;  // where entries_are_scalars
    std::vector<V> packs;                                // else; entries stand by two, re and (-im, +im, ...)
    std::array<unsigned long, 1ul << most_fused_targets> offsets{};  // of the packs of a group
};

// Where no target stands inside the pack all lanes have the same entry, and a multiplication may spread it itself. With
// 128 bits that takes an instruction of its own, so there entries are spread once for all.
template <class V, unsigned inner>
inline constexpr bool entries_are_scalars = inner == 0 && sizeof(V) > 16;

// The registers that sums may take, beside what a column needs, and the groups that share them: with 128 bits and
// products that need a register of their own there is none for a second group.
constexpr unsigned sums_at_once = widest_bytes == 64 ? 16 : 8;
template <class V>
constexpr unsigned groups_at_once = sizeof(V) > 16 ? 2 : 1;

template <class V>
[[gnu::always_inline]] inline V turned(V v) {
    return negate_real(swap_parts(v));
}

// Every lane reads the lane that has the bits `column` in the places `inner`; `other_part` exchanges parts, too.
template <unsigned inner, unsigned column, bool other_part>
struct spread_lanes {
    static constexpr int at(std::size_t s) {
        return static_cast<int>(2 * ((s / 2 & ~std::size_t{inner}) | column) + (s % 2 ^ (other_part ? 1 : 0)));
    }
};

// Every lane reads the lane that differs by `flipped`.
template <unsigned flipped, bool other_part>
struct flip_lanes {
    static constexpr int at(std::size_t s) {
        return static_cast<int>(2 * (s / 2 ^ flipped) + (s % 2 ^ (other_part ? 1 : 0)));
    }
};

template <class Pattern, class V>
[[gnu::always_inline]] inline V shuffled(V v) {
    return shuffle(v, v, Pattern{}, std::make_index_sequence<scalars<V>>{});
}

constexpr unsigned deposit_small(unsigned value, unsigned mask) {
    unsigned result = 0;
    for (unsigned bit = 1; mask != 0; bit <<= 1, mask &= mask - 1) {
        if ((value & bit) != 0) result |= mask & -mask;
    }
    return result;
}

template <unsigned... i, class Body>
[[gnu::always_inline]] inline void for_each(std::integer_sequence<unsigned, i...>, Body body) {
    (body(std::integral_constant<unsigned, i>{}), ...);
}

// A pack of a sum and one more product. The first product of a sum is rounded by itself.
template <bool first, class V>
[[gnu::always_inline]] inline V added(V product_of, V with, V sum) {
    if constexpr (first) return product_of * with;
    return fused_multiply_add(product_of, with, sum);
}

// The loop over groups of 2^outer packs. `inner` are the places inside the pack that targets stand at.
template <class V, unsigned outer, unsigned inner>
void run_fused(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
               unsigned long end) {
    using amplitude = thrust::complex<scalar_of<V>>;
    constexpr unsigned packs_in_group = 1u << outer;
    constexpr unsigned columns_in_pack = 1u << static_cast<unsigned>(std::popcount(inner));
    constexpr unsigned rows = std::min(packs_in_group, sums_at_once);
    constexpr unsigned at_once = std::min(sums_at_once / rows, groups_at_once<V>);
    const auto& table = static_cast<const fused_table<V>&>(*call.table);
    const amplitude* const scalar = table.scalars.data();
    const V* const pack = table.packs.data();
    std::array<unsigned long, packs_in_group> offset;
    std::copy_n(table.offsets.begin(), packs_in_group, offset.begin());
    walk<V, at_once>(
        call, state, begin, end,
        [&](const amplitude* at) {
            for (const unsigned long o : offset) __builtin_prefetch(at + o, 1);
        },
        [&]<std::size_t groups>(const std::array<amplitude*, groups>& at) __attribute__((always_inline)) {
            V old[rows == packs_in_group ? 1 : packs_in_group][groups];
            if constexpr (rows != packs_in_group) {
                for (unsigned j = 0; j < packs_in_group; ++j) {
                    for (unsigned g = 0; g < groups; ++g) old[j][g] = load<V>(at[g] + offset[j]);
                }
            }
#pragma GCC unroll 1
            for (unsigned from = 0; from < packs_in_group; from += rows) {
                V sum[rows][groups];
                for_each(
                    std::make_integer_sequence<unsigned, packs_in_group>{}, [&](auto j) __attribute__((always_inline)) {
                        V x[groups];
                        for (unsigned g = 0; g < groups; ++g) {
                            if constexpr (rows == packs_in_group) {
                                x[g] = load<V>(at[g] + offset[j]);
                            } else {
                                x[g] = old[j][g];
                            }
                        }
                        for_each(
                            std::make_integer_sequence<unsigned, columns_in_pack>{}, [&](auto c) __attribute__((
                                                                                         always_inline)) {
                                constexpr bool first = j == 0 && c == 0;
                                constexpr unsigned lane = deposit_small(c, inner);
                                V one[groups], other[groups];
                                for (unsigned g = 0; g < groups; ++g) {
                                    if constexpr (entries_are_scalars<V, inner>) {
                                        one[g] = x[g];
                                        other[g] = turned(x[g]);
                                    } else {
                                        one[g] = shuffled<spread_lanes<inner, lane, false>>(x[g]);
                                        other[g] = shuffled<spread_lanes<inner, lane, true>>(x[g]);
                                    }
                                }
                                const unsigned long column =
                                    (j * columns_in_pack + c) * static_cast<unsigned long>(packs_in_group) + from;
#pragma GCC unroll 16
                                for (unsigned row = 0; row < rows; ++row) {
                                    V re, im;
                                    if constexpr (entries_are_scalars<V, inner>) {
                                        re = broadcast<V>(scalar[column + row].real());
                                        im = broadcast<V>(scalar[column + row].imag());
                                    } else {
                                        re = pack[2 * (column + row)];
                                        im = pack[2 * (column + row) + 1];
                                    }
                                    for (unsigned g = 0; g < groups; ++g) {
                                        sum[row][g] = added<first>(re, one[g], sum[row][g]);
                                        sum[row][g] = fused_multiply_add(im, other[g], sum[row][g]);
                                    }
                                }
                            });
                    });
#pragma GCC unroll 16
                for (unsigned row = 0; row < rows; ++row) {
                    for (unsigned g = 0; g < groups; ++g) store(at[g] + offset[from + row], sum[row][g]);
                }
            }
        });
}

// The loop for a matrix on two targets of which row r mixes r with r ^ flip alone. Entries stand row by row, the
// diagonal's first.
template <class V, unsigned outer, unsigned inner, unsigned flip>
void run_fused_pairs(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
                     unsigned long end) {
    using amplitude = thrust::complex<scalar_of<V>>;
    constexpr unsigned packs_in_group = 1u << outer;
    constexpr unsigned columns_in_pack = 1u << static_cast<unsigned>(std::popcount(inner));
    constexpr unsigned flipped_pack = flip / columns_in_pack;
    constexpr unsigned flipped_lanes = deposit_small(flip % columns_in_pack, inner);
    const auto& table = static_cast<const fused_table<V>&>(*call.table);
    const amplitude* const scalar = table.scalars.data();
    const V* const pack = table.packs.data();
    std::array<unsigned long, packs_in_group> offset;
    std::copy_n(table.offsets.begin(), packs_in_group, offset.begin());
    const auto row = [=](V own, V other, unsigned long r) __attribute__((always_inline)) {
        if constexpr (entries_are_scalars<V, inner>) {
            const amplitude d = scalar[2 * r], o = scalar[2 * r + 1];
            V sum = own * broadcast<V>(d.real());
            sum = fused_multiply_add(broadcast<V>(d.imag()), turned(own), sum);
            sum = fused_multiply_add(broadcast<V>(o.real()), other, sum);
            return fused_multiply_add(broadcast<V>(o.imag()), turned(other), sum);
        } else {
            V sum = own * pack[4 * r];
            sum = fused_multiply_add(pack[4 * r + 1], swap_parts(own), sum);
            sum = fused_multiply_add(pack[4 * r + 2], shuffled<flip_lanes<flipped_lanes, false>>(other), sum);
            return fused_multiply_add(pack[4 * r + 3], shuffled<flip_lanes<flipped_lanes, true>>(other), sum);
        }
    };
    walk<V, 2>(
        call, state, begin, end,
        [&](const amplitude* at) {
            for (const unsigned long o : offset) __builtin_prefetch(at + o, 1);
        },
        [&]<std::size_t groups>(const std::array<amplitude*, groups>& at) __attribute__((always_inline)) {
#pragma GCC unroll 4
            for (unsigned r = 0; r < packs_in_group; ++r) {
                if ((r ^ flipped_pack) < r) continue;  // done with its partner
                for (unsigned g = 0; g < groups; ++g) {
                    const V a = load<V>(at[g] + offset[r]), b = load<V>(at[g] + offset[r ^ flipped_pack]);
                    store(at[g] + offset[r], row(a, b, r));
                    if constexpr (flipped_pack != 0)
                        store(at[g] + offset[r ^ flipped_pack], row(b, a, r ^ flipped_pack));
                }
            }
        });
}

template <class T>
using loop_of = typename kernel_call<T>::loop;

// Which of two targets' bits tell a row from the only other one it is mixed with; 0 where there is no such bits.
template <class T>
unsigned flip_of(const std::vector<thrust::complex<T>>& matrix) {
    for (unsigned flip = 1; flip < 4; ++flip) {
        bool fits = true;
        for (unsigned i = 0; i < 16; ++i) {
            const unsigned distance = i / 4 ^ i % 4;
            fits = fits && (distance == 0 || distance == flip || matrix[i] == thrust::complex<T>(0, 0));
        }
        if (fits) return flip;
    }
    return 0;
}

template <class V, unsigned outer, unsigned inner>
loop_of<scalar_of<V>> choose_fused_pairs(unsigned flip) {
    return flip == 1   ? run_fused_pairs<V, outer, inner, 1>
           : flip == 2 ? run_fused_pairs<V, outer, inner, 2>
                       : run_fused_pairs<V, outer, inner, 3>;
}

template <class V, unsigned inner = 0>
loop_of<scalar_of<V>> choose_fused_loop(unsigned outer, unsigned wanted_inner, unsigned flip) {
    if constexpr (inner < lanes<V>) {
        if (inner != wanted_inner) return choose_fused_loop<V, inner + 1>(outer, wanted_inner, flip);
        constexpr auto places = static_cast<unsigned>(std::popcount(inner));
        if constexpr (places <= 2) {
            if (flip != 0) return choose_fused_pairs<V, 2 - places, inner>(flip);
        }
        if (outer == 0) return run_fused<V, 0, inner>;
        if (outer == 1) return run_fused<V, 1, inner>;
        if constexpr (places <= 2) {
            if (outer == 2) return run_fused<V, 2, inner>;
        }
        if constexpr (places <= 1) {
            if (outer == 3) return run_fused<V, 3, inner>;
        }
        if constexpr (places == 0) {
            if (outer == 4) return run_fused<V, 4, inner>;
        }
    }
    return nullptr;
}

// `targets` are sorted upward, `entry(row, column)` is in the local indices that follow: first target = lowest bit.
template <class V, class Entry>
void select_fused(kernel_call<scalar_of<V>>& call, unsigned long nbqbits, const std::vector<unsigned long>& targets,
                  unsigned flip, Entry entry) {
    using T = scalar_of<V>;
    auto table = std::make_shared<fused_table<V>>();
    constexpr unsigned long inside = lanes<V> - 1;
    unsigned long mask = 0;
    for (const unsigned long target : targets) mask |= target;
    const auto inner = static_cast<unsigned>(mask & inside);
    const unsigned long outer_mask = mask & ~inside;
    const auto places = static_cast<unsigned>(std::popcount(inner));
    const auto outer = static_cast<unsigned>(targets.size()) - places;
    const unsigned packs_in_group = 1u << outer, columns_in_pack = 1u << places;
    for (unsigned long j = 0; j < packs_in_group; ++j) table->offsets[j] = index::deposit(j, outer_mask);
    const auto row_in = [=](unsigned pack, unsigned lane) {
        return pack * columns_in_pack + static_cast<unsigned>(index::extract(lane, inner));
    };
    // Of the rows of a pack, the entries in the columns that differ from or are `column(row)`.
    const auto add = [&](unsigned pack, auto column) {
        if (inner == 0 && entries_are_scalars<V, 0>) {
            table->scalars.push_back(entry(pack, column(pack)));
            return;
        }
        V re, im;
        for (unsigned lane = 0; lane < lanes<V>; ++lane) {
            const unsigned row = row_in(pack, lane);
            const thrust::complex<T> m = entry(row, column(row));
            re[2 * lane] = re[2 * lane + 1] = m.real();
            im[2 * lane] = -m.imag();
            im[2 * lane + 1] = m.imag();
        }
        table->packs.push_back(re);
        table->packs.push_back(im);
    };
    if (flip != 0) {
        for (unsigned pack = 0; pack < packs_in_group; ++pack) {
            add(pack, [](unsigned row) { return row; });
            add(pack, [=](unsigned row) { return row ^ flip; });
        }
    } else {
        for (unsigned column = 0; column < packs_in_group * columns_in_pack; ++column) {
            for (unsigned pack = 0; pack < packs_in_group; ++pack) {
                add(pack, [=](unsigned) { return column; });
            }
        }
    }
    select_groups<V>(call, nbqbits, {}, outer_mask, packs_in_group);
    if (is_larger_than_l2<T>(nbqbits)) call.prefetch = (8ul << 10) / sizeof(thrust::complex<T>);
    call.run = choose_fused_loop<V>(outer, inner, flip);
    call.table = std::move(table);
}

}  // namespace

template <class T>
kernel_call<T> fused_matrix_call(unsigned long nbqbits, const std::vector<unsigned long>& targets,
                                 const std::vector<thrust::complex<T>>& matrix) {
    using wide = wide_pack<T>;
    using narrow = single_pack<T>;
    std::vector<unsigned long> sorted = targets;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t k = targets.size();
    // Where a local index of sorted targets stands in the matrix.
    std::vector<unsigned long> listed(1ul << k);
    for (unsigned long local = 0; local < listed.size(); ++local) {
        for (std::size_t i = 0; i < k; ++i) {
            const auto place =
                static_cast<std::size_t>(std::find(targets.begin(), targets.end(), sorted[i]) - targets.begin());
            if ((local >> i) & 1) listed[local] |= 1ul << (k - 1 - place);
        }
    }
    const auto entry = [&](unsigned row, unsigned column) { return matrix[(listed[row] << k) + listed[column]]; };
    unsigned flip = 0;
    if (k == 2) {
        std::vector<thrust::complex<T>> in_order;
        for (unsigned i = 0; i < 16; ++i) in_order.push_back(entry(i / 4, i % 4));
        flip = flip_of(in_order);
    }
    kernel_call<T> call;
    if (nbqbits >= lane_bits<wide>) {
        select_fused<wide>(call, nbqbits, sorted, flip, entry);
    } else {
        select_fused<narrow>(call, nbqbits, sorted, flip, entry);
    }
    return call;
}

template kernel_call<float> fused_matrix_call(unsigned long, const std::vector<unsigned long>&,
                                              const std::vector<thrust::complex<float>>&);
template kernel_call<double> fused_matrix_call(unsigned long, const std::vector<unsigned long>&,
                                               const std::vector<thrust::complex<double>>&);

}  // namespace velacamplix::kernels
