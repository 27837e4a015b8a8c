#pragma once

#include "statevector/loading/norms.hpp"
#include "statevector/loading/preparation.hpp"

#include <cmath>

namespace velacamplix::loading {

// Prepares groups with targets among the index bits inside a pack, as long as a strip of them fits the cache: norms
// are formed pack by pack as the amplitudes lie in memory, summed group by group in local order, and the amplitudes
// are written as they lie. Each lane of a pack belongs to one group and takes one entry of the data.
template <class V>
class mixed_columns {
    using T = packs::scalar_of<V>;
    static constexpr unsigned long lanes = packs::lanes<V>;
    static constexpr unsigned long most_amplitudes = 1ul << 12;  // of a strip

public:
    explicit mixed_columns(const preparation<T>& request)
        : request_(request),
          inner_(request.groups.free),
          column_packs_(request.entries >> inner_.target_count()),
          strips_(request.groups, column_packs_, most_amplitudes / 2 * sizeof(thrust::complex<T>), 1),
          strip_groups_(strips_.length() << inner_.free_count()),
          entry_offset_(request.sorted),
          norm_place_(norm_places()) {
        for (unsigned long lane = 0; lane < lanes; ++lane) {
            lane_group_[lane] = index::extract(lane, inner_.free);
            lane_entry_[lane] = index::extract(lane, inner_.targets);
        }
    }

    static bool fit(const preparation<T>& request) {
        return (request.entries >> inner_bits<V>(request.groups.free).target_count()) * lanes <= most_amplitudes;
    }

    void run(int nthreads) const {
        storage::parallel_shares(strips_.count(), request_.bytes, nthreads,
                                 [&](unsigned long begin, unsigned long end) {
                                     workspace w;
                                     for (unsigned long s = begin; s < end; ++s) {
                                         strips_.fill(s, w.where);
                                         form_norms(w);
                                         sum_norms(w);
                                         write(w);
                                     }
                                 });
    }

private:
    struct workspace {
        strip where;
        alignas(64) T norms[most_amplitudes];       // by outer target value, column and lane
        alignas(64) T roots[most_columns * lanes];  // by column and inner free value
        V lane_roots[most_columns];                 // of each lane's group, in both parts
    };

    unsigned long outer_entry(unsigned long pack) const { return pack << inner_.target_count(); }

    // For every bit of a local index, least significant first, its bit of a position in `norms`: lanes lowest, then
    // columns, then the targets outside a pack.
    std::vector<unsigned int> norm_places() const {
        const auto above_columns = static_cast<unsigned int>(std::countr_zero(strips_.length())) + packs::lane_bits<V>;
        std::vector<unsigned int> places;
        for (auto q = request_.qubits.rbegin(); q != request_.qubits.rend(); ++q) {
            const auto rank = std::lower_bound(request_.sorted.begin(), request_.sorted.end(), *q);
            const auto outer_rank = static_cast<unsigned int>(rank - request_.sorted.begin()) - inner_.target_count();
            places.push_back(*q < packs::lane_bits<V> ? *q : above_columns + outer_rank);
        }
        return places;
    }

    // The norms of one entry's pack in every column, in memory order. Without the scaling of tiny amplitudes it says
    // whether there are any.
    template <bool scaling>
    bool form_norms(const strip& where, const thrust::complex<T>* from, T* to) const {
        V small{};
        const auto norms_at = [&](unsigned long base) {
            const V a = packs::load<V>(from + base);
            return scaling ? packs::squared_magnitudes_in_both_parts(a) : norms_of_ordinary(a, small);
        };
        unsigned long c = 0;
        for (; c + 2 <= where.columns; c += 2, to += 2 * lanes) {
            const V low = norms_at(where.bases[c]);
            const V norms = packs::real_parts(low, norms_at(where.bases[c + 1]));
            __builtin_memcpy(to, &norms, sizeof(norms));
        }
        if (c < where.columns) {
            const V norms = norms_at(where.bases[c]);
            for (unsigned long lane = 0; lane < lanes; ++lane) to[lane] = norms[2 * lane];
        }
        return !is_zero(small);
    }

    void form_norms(workspace& w) const {
        for (unsigned long pack = 0; pack < column_packs_; ++pack) {
            const thrust::complex<T>* from = request_.state + entry_offset_(outer_entry(pack));
            T* to = w.norms + pack * w.where.columns * lanes;
            if (form_norms<false>(w.where, from, to)) form_norms<true>(w.where, from, to);
        }
    }

    void sum_norms(workspace& w) const {
        const unsigned long per_column = 1ul << inner_.free_count();
        for (unsigned long g = 0; g < strip_groups_; ++g) w.roots[g] = T(0);
        for (unsigned long j = 0; j < request_.group_size; ++j) {
            for (unsigned long f = 0; f < per_column; ++f) {
                const T* norms = w.norms + norm_place_(j) + index::deposit(f, inner_.free);
                T* sums = w.roots + f;
#pragma GCC unroll 8
                for (unsigned long c = 0; c < w.where.columns; ++c) sums[c * per_column] += norms[c * lanes];
            }
        }
        for (unsigned long g = 0; g < strip_groups_; ++g) w.roots[g] = std::sqrt(w.roots[g]);
        for (unsigned long c = 0; c < w.where.columns; ++c) {
            const T* of_column = w.roots + (c << inner_.free_count());
            w.lane_roots[c] = make_pack<V>([&](std::size_t lane, std::size_t) { return of_column[lane_group_[lane]]; });
        }
    }

    void write(const workspace& w) const {
        for (unsigned long pack = 0; pack < column_packs_; ++pack) {
            const unsigned long entry = outer_entry(pack);
            const V values = make_pack<V>([&](std::size_t lane, std::size_t part) {
                const thrust::complex<T> value = request_.value(entry | lane_entry_[lane]);
                return part == 0 ? value.real() : value.imag();
            });
            thrust::complex<T>* to = request_.state + entry_offset_(entry);
            for (unsigned long c = 0; c < w.where.columns; ++c) {
                packs::store<V>(to + w.where.bases[c], values * w.lane_roots[c]);
            }
        }
    }

    const preparation<T>& request_;
    inner_bits<V> inner_;
    unsigned long column_packs_;
    strips<V> strips_;
    unsigned long strip_groups_;
    placement entry_offset_;
    placement norm_place_;
    std::array<unsigned long, lanes> lane_group_;  // which of its column's groups a lane belongs to
    std::array<unsigned long, lanes> lane_entry_;  // what it adds to the number of its entry
};

}  // namespace velacamplix::loading
