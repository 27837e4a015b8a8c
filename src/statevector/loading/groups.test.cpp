#include "statevector/loading/groups.hpp"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace velacamplix::loading;
namespace index = velacamplix::index;
using pack = velacamplix::packs::wide_pack<double>;
using single = velacamplix::packs::single_pack<double>;

TEST(Placement, every_number_lands_on_its_bits) {
    for (const std::vector<unsigned int>& positions :
         {std::vector<unsigned int>{}, {3}, {5, 2}, {0, 7, 4}, {6, 1, 2, 9}, {10, 0, 3, 8, 5}}) {
        const placement place(positions);
        for (unsigned long value = 0; value < 1ul << positions.size(); ++value) {
            EXPECT_EQ(place(value), index::place_first_lowest(value, positions));
        }
    }
}

TEST(Placement, a_position_named_twice_takes_either_bit) {
    const placement place({2, 2, 0});
    EXPECT_EQ(place(0b001), 4ul);
    EXPECT_EQ(place(0b010), 4ul);
    EXPECT_EQ(place(0b011), 4ul);
    EXPECT_EQ(place(0b110), 5ul);
}

TEST(GroupRange, every_qubit_of_the_list_halves_the_groups_a_repeated_one_too) {
    EXPECT_EQ(groups_over({}, 5).count, 32ul);
    EXPECT_EQ(groups_over({1, 3}, 5).count, 8ul);
    EXPECT_EQ(groups_over({1, 3}, 5).free, 0b10101ul);
    EXPECT_EQ(groups_over({1, 1}, 5).count, 8ul);
    EXPECT_EQ(groups_over({1, 1}, 5).free, 0b11101ul);
    // More entries than qubits: each group there is, once.
    EXPECT_EQ(groups_over({0, 0, 0}, 2).count, 2ul);
}

template <class V>
void expect_every_group_once(const std::vector<unsigned int>& targets, unsigned int n) {
    constexpr unsigned long inside = inner_bits<V>::inside;
    const group_range groups = groups_over(targets, n);
    const inner_bits<V> inner(groups.free);
    const strips<V> cut(groups, (1ul << targets.size()) >> inner.target_count(), 32ul << 10, 8);
    std::set<unsigned long> seen;
    strip where;
    for (unsigned long s = 0; s < cut.count(); ++s) {
        cut.fill(s, where);
        EXPECT_EQ(where.columns, cut.length());
        EXPECT_LE(where.columns, most_columns);
        for (unsigned long c = 0; c < where.columns; ++c) {
            EXPECT_EQ(where.bases[c] & inside, 0ul);
            EXPECT_EQ(where.bases[c] & ~groups.free, 0ul);
            seen.insert(where.bases[c]);
        }
    }
    EXPECT_EQ(seen.size() << inner.free_count(), groups.count);
}

TEST(Strips, hold_every_group_exactly_once) {
    for (const std::vector<unsigned int>& targets :
         {std::vector<unsigned int>{}, {0}, {2, 5}, {7, 0, 3}, {4, 5, 6, 7, 8, 9}, {9, 8, 7, 6, 5, 4, 3, 2, 1, 0}}) {
        for (unsigned int n = 10; n <= 15; n += 5) {
            expect_every_group_once<single>(targets, n);
            expect_every_group_once<pack>(targets, n);
        }
    }
}

TEST(InnerBits, are_targets_or_free) {
    const inner_bits<pack> inner(~1ul);
    EXPECT_EQ(inner.free | inner.targets, inner_bits<pack>::inside);
    EXPECT_EQ(inner.targets, 1ul & inner_bits<pack>::inside);
    EXPECT_EQ(inner.free_count() + inner.target_count(), velacamplix::packs::lane_bits<pack>);
    EXPECT_EQ(inner_bits<single>(~1ul).targets, 0ul);
}

TEST(Packs, do_not_fit_arrays_smaller_than_one_and_repeated_targets) {
    constexpr unsigned int bits = velacamplix::packs::lane_bits<pack>;
    EXPECT_TRUE(fit_packs<pack>({0}, bits + 1));
    EXPECT_TRUE(fit_packs<pack>({}, bits));
    EXPECT_FALSE(fit_packs<pack>({0, 0}, 10));
    EXPECT_EQ(fit_packs<pack>({}, 0), bits == 0);
}

}  // namespace
