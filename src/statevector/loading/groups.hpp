#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/kernels/pack.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <array>
#include <vector>

// Groups as data loading walks them. A group is one configuration of the qubits outside a list; its amplitudes stand
// at base | offset. Groups are independent, so neighbours are worked side by side, offset after offset: a strip of
// groups, in packs where the lowest qubits are free.

namespace velacamplix::loading {

// Places the bits of a number on index bits. Built from the bits' positions, least significant first; two tables of
// 2^(k/2) entries serve for 2^k numbers. A position named twice takes the OR of its bits.
class placement {
public:
    explicit placement(const std::vector<unsigned int>& positions)
        : split_(static_cast<unsigned>(positions.size() / 2)),
          low_(table(positions, 0, split_)),
          high_(table(positions, split_, positions.size())) {}

    unsigned long operator()(unsigned long value) const {
        return low_[value & index::low_bits(split_)] | high_[value >> split_];
    }

private:
    static std::vector<unsigned long> table(const std::vector<unsigned int>& positions, std::size_t first,
                                            std::size_t last) {
        std::vector<unsigned long> entries(1ul << (last - first));
        for (std::size_t t = first; t < last; ++t) {
            for (unsigned long v = 0; v < entries.size(); ++v) {
                if ((v >> (t - first)) & 1) entries[v] |= index::bit(positions[t]);
            }
        }
        return entries;
    }

    unsigned split_;
    std::vector<unsigned long> low_;
    std::vector<unsigned long> high_;
};

// The groups over a list of targets in an array of 2^n amplitudes.
struct group_range {
    unsigned long free;   // index bits outside the list
    unsigned long count;  // number of groups
};

// Every entry of the list halves the number of groups, a repeated one too; no group is visited twice.
inline group_range groups_over(const std::vector<unsigned int>& targets, unsigned int n) {
    const unsigned long free = index::low_bits(n) & ~index::mask_of(targets);
    const unsigned long distinct = 1ul << (std::popcount(free) & 63);
    return {free, std::min(distinct, 1ul << ((n - targets.size()) & 63))};
}

inline bool all_distinct(const std::vector<unsigned int>& targets) {
    return static_cast<std::size_t>(std::popcount(index::mask_of(targets))) == targets.size();
}

// True where packs V hold whole groups: their inner index bits are free, and the groups fill them.
template <class V>
bool fit_packs(const group_range& groups) {
    constexpr unsigned long inside = kernels::lanes<V> - 1;
    return (groups.free & inside) == inside && groups.count >= kernels::lanes<V>;
}

template <unsigned width>
struct alternating {
    static constexpr int at(std::size_t s) { return static_cast<int>(s % 2 == 0 ? s : width + s); }
};

// The same complex number in every amplitude of a pack.
template <class V>
V repeat(thrust::complex<kernels::scalar_of<V>> value) {
    return kernels::shuffle(kernels::broadcast<V>(value.real()), kernels::broadcast<V>(value.imag()),
                            alternating<kernels::scalars<V>>{}, std::make_index_sequence<kernels::scalars<V>>{});
}

// A strip of at most `most` packs of groups, by the index of each pack's first amplitude.
inline constexpr unsigned long most_strip_packs = 256;

struct strip {
    unsigned long packs;
    std::array<unsigned long, most_strip_packs> bases;
};

// How groups are cut into strips of packs V: so long that a strip's amplitudes still fit the cache when they are
// visited a second time, and no shorter than a few cache lines unless threads would be left without work.
template <class V>
class strips {
public:
    strips(const group_range& groups, unsigned long group_size)
        : outer_free_(groups.free & ~(kernels::lanes<V> - 1)), packs_(groups.count / kernels::lanes<V>) {
        constexpr unsigned long cached_bytes = 256ul << 10;
        constexpr unsigned long shares = 64;
        const unsigned long pack_bytes = sizeof(V) * std::min(group_size, cached_bytes);
        length_ = std::clamp(cached_bytes / pack_bytes, 8ul, most_strip_packs);
        if (packs_ * pack_bytes >= storage::worthwhile_bytes) length_ = std::min(length_, packs_ / shares);
        length_ = std::clamp(length_, 1ul, packs_);
    }

    unsigned long count() const { return packs_ / length_; }
    unsigned long length() const { return length_; }

    void fill(unsigned long number, strip& out) const {
        out.packs = length_;
        unsigned long base = index::deposit(number * length_, outer_free_);
        for (unsigned long p = 0; p < length_; ++p) {
            out.bases[p] = base;
            base = ((base | ~outer_free_) + 1) & outer_free_;  // carry skips the fixed bits
        }
    }

private:
    unsigned long outer_free_;
    unsigned long packs_;
    unsigned long length_;
};

}  // namespace velacamplix::loading
