#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/packs/pack.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <array>
#include <vector>

// Groups as data loading walks them. A group is one configuration of the qubits outside a list of targets; its
// amplitudes stand at base | offset. Groups are independent, so neighbours are worked side by side, offset after
// offset: a strip of groups, in packs of whatever lies together in memory.

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

// How the index bits inside a pack V divide into targets and free bits.
template <class V>
struct inner_bits {
    static constexpr unsigned long inside = packs::lanes<V> - 1;

    explicit inner_bits(unsigned long free_bits) : free(free_bits & inside), targets(inside & ~free_bits) {}

    unsigned free_count() const { return static_cast<unsigned>(std::popcount(free)); }
    unsigned target_count() const { return static_cast<unsigned>(std::popcount(targets)); }

    unsigned long free;
    unsigned long targets;
};

// True where an array of 2^n amplitudes can be walked in packs V. Coinciding targets leave groups out, one by one.
template <class V>
bool fit_packs(const std::vector<unsigned int>& targets, unsigned int n) {
    return n >= packs::lane_bits<V> && index::all_distinct(targets);
}

template <class V, class Number, std::size_t... s>
[[gnu::always_inline]] inline V make_pack(Number number, std::index_sequence<s...>) {
    return V{number(s / 2, s % 2)...};
}

// A pack of number(lane, 0), number(lane, 1), ...: real and imaginary part of every lane.
template <class V, class Number>
[[gnu::always_inline]] inline V make_pack(Number number) {
    return make_pack<V>(number, std::make_index_sequence<packs::scalars<V>>{});
}

// A strip of at most `most` columns. A column is the packs, one for every value of the targets outside a pack, that
// start at base | offset; several groups where inner bits are free.
inline constexpr unsigned long most_columns = 256;

struct strip {
    unsigned long columns;
    std::array<unsigned long, most_columns> bases;
};

// How groups are cut into strips: of so many columns that `cached_bytes` hold them, and no fewer than a few cache
// lines unless threads would be left without work.
template <class V>
class strips {
public:
    strips(const group_range& groups, unsigned long column_packs, unsigned long cached_bytes, unsigned long least)
        : outer_free_(groups.free & ~inner_bits<V>::inside),
          columns_(groups.count >> inner_bits<V>(groups.free).free_count()) {
        constexpr unsigned long most_threads = 64;
        const unsigned long column_bytes = sizeof(V) * std::min(column_packs, cached_bytes);
        length_ = std::clamp(std::bit_floor(cached_bytes / column_bytes), least, most_columns);
        if (columns_ * column_bytes >= storage::worthwhile_bytes) length_ = std::min(length_, columns_ / most_threads);
        length_ = std::clamp(length_, 1ul, columns_);
    }

    unsigned long count() const { return columns_ / length_; }
    unsigned long length() const { return length_; }

    void fill(unsigned long number, strip& out) const {
        out.columns = length_;
        unsigned long base = index::deposit(number * length_, outer_free_);
        for (unsigned long c = 0; c < length_; ++c) {
            out.bases[c] = base;
            base = index::next(base, outer_free_);
        }
    }

private:
    unsigned long outer_free_;
    unsigned long columns_;
    unsigned long length_;
};

}  // namespace velacamplix::loading
