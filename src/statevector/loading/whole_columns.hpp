#pragma once

#include "statevector/loading/norms.hpp"
#include "statevector/loading/preparation.hpp"

#include <cmath>

namespace velacamplix::loading {

// Prepares groups whose targets all stand above the index bits inside a pack: packs hold the same entry of several
// groups, and norms are summed pack by pack.
template <class V>
class whole_columns {
    using T = packs::scalar_of<V>;

public:
    explicit whole_columns(const preparation<T>& request)
        : request_(request),
          strips_(request.groups, request.entries, 32ul << 10, 8),
          local_offset_({request.qubits.rbegin(), request.qubits.rend()}),
          entry_offset_(request.sorted),
          local_place_(local_places()) {}

    void run(int nthreads) const {
        constexpr unsigned long second_cache_bytes = 512ul << 10;
        if (strips_.length() * request_.group_size * sizeof(V) <= second_cache_bytes) {
            storage::parallel_shares(strips_.count(), request_.bytes, nthreads,
                                     [&](unsigned long begin, unsigned long end) {
                                         strip where;
                                         std::array<V, most_columns> roots;
                                         for (unsigned long s = begin; s < end; ++s) {
                                             strips_.fill(s, where);
                                             find_roots(where, roots.data());
                                             write(where, roots.data(), 0, request_.entries);
                                         }
                                     });
            return;
        }
        // Few large groups: all norms first, then the threads share the entries.
        std::vector<V> roots(strips_.count() * strips_.length());
        const unsigned long bytes = request_.bytes / 2;
        storage::parallel_shares(strips_.count(), bytes, nthreads, [&](unsigned long begin, unsigned long end) {
            strip where;
            for (unsigned long s = begin; s < end; ++s) {
                strips_.fill(s, where);
                find_roots(where, roots.data() + s * strips_.length());
            }
        });
        storage::parallel_shares(request_.entries, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
            strip where;
            for (unsigned long s = 0; s < strips_.count(); ++s) {
                strips_.fill(s, where);
                write(where, roots.data() + s * strips_.length(), begin, end);
            }
        });
    }

private:
    // For every bit of an entry's number, its bit of the local index.
    std::vector<unsigned int> local_places() const {
        const auto& listed = request_.qubits;
        std::vector<unsigned int> places;
        for (const unsigned int q : request_.sorted) {
            const auto behind = listed.end() - std::find(listed.begin(), listed.end(), q);
            places.push_back(static_cast<unsigned int>(behind - 1));
        }
        return places;
    }

    static void take_roots(unsigned long columns, V* sums) {
        for (unsigned long c = 0; c < columns; ++c) {
            for (unsigned s = 0; s < packs::scalars<V>; s += 2) sums[c][s] = sums[c][s + 1] = std::sqrt(sums[c][s]);
        }
    }

    // The roots of the groups' norms, each summed in local order.
    void find_roots(const strip& where, V* roots) const {
        constexpr unsigned long far_apart = 32ul << 10;
        if (request_.entries * sizeof(V) > far_apart && find_roots_of_nearly_empty(where, roots)) return;
        if (add_norms<false>(where, roots)) add_norms<true>(where, roots);
        take_roots(where.columns, roots);
    }

    // Without the scaling of tiny amplitudes it says whether there are any.
    template <bool scaling>
    bool add_norms(const strip& where, V* sums) const {
        V small{};
        for (unsigned long c = 0; c < where.columns; ++c) sums[c] = V{};
        for (unsigned long j = 0; j < request_.group_size; ++j) {
            const thrust::complex<T>* from = request_.state + local_offset_(j);
            for (unsigned long c = 0; c < where.columns; ++c) {
                const V a = packs::load<V>(from + where.bases[c]);
                sums[c] += scaling ? packs::squared_magnitudes_in_both_parts(a) : norms_of_ordinary(a, small);
            }
        }
        return !is_zero(small);
    }

    // The same for groups of zeros but for a few packs, as a register has that was never used: zeros change no sum,
    // so the groups are read as they lie in memory, however far apart neighbours in local order are. False where a
    // group holds more than a few.
    bool find_roots_of_nearly_empty(const strip& where, V* roots) const {
        if (request_.entries != request_.group_size) return false;  // a qubit listed twice
        constexpr unsigned long few = 64;
        struct pack_in_sum {
            unsigned long place;
            V norms;
        };
        std::array<pack_in_sum, few> found;
        for (unsigned long c = 0; c < where.columns; ++c) {
            unsigned long count = 0;
            for (unsigned long e = 0; e < request_.entries; ++e) {
                const V a = packs::load<V>(request_.state + (where.bases[c] | entry_offset_(e)));
                if (is_zero(a)) continue;
                if (count == few) return false;
                found[count++] = {local_place_(e), packs::squared_magnitudes_in_both_parts(a)};
            }
            std::sort(found.data(), found.data() + count,
                      [](const pack_in_sum& a, const pack_in_sum& b) { return a.place < b.place; });
            roots[c] = V{};
            for (unsigned long f = 0; f < count; ++f) roots[c] += found[f].norms;
        }
        take_roots(where.columns, roots);
        return true;
    }

    void write(const strip& where, const V* roots, unsigned long begin, unsigned long end) const {
        for (unsigned long e = begin; e < end; ++e) {
            thrust::complex<T>* to = request_.state + entry_offset_(e);
            const thrust::complex<T> value = request_.value(e);
            const V values =
                make_pack<V>([&](std::size_t, std::size_t part) { return part == 0 ? value.real() : value.imag(); });
            for (unsigned long c = 0; c < where.columns; ++c) packs::store<V>(to + where.bases[c], values * roots[c]);
        }
    }

    const preparation<T>& request_;
    strips<V> strips_;
    placement local_offset_;
    placement entry_offset_;
    placement local_place_;
};

}  // namespace velacamplix::loading
