#include "reference/indices.hpp"
#include "support/compare.hpp"
#include "support/random_state.hpp"

#include <velacamplix/index.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <set>

using reference::Qubits;
using support::describe;
using vela::core::iterator::StateIterator;

static_assert(
    std::is_constructible_v<StateIterator, std::vector<unsigned int>, std::vector<unsigned int>, unsigned long>);
static_assert(std::is_same_v<decltype(StateIterator::free_mask), unsigned long>);
static_assert(std::is_same_v<decltype(StateIterator::control_mask), unsigned long>);
static_assert(std::is_same_v<decltype(StateIterator::count), unsigned long>);
static_assert(std::is_same_v<decltype(StateIterator::local_size), unsigned long>);
static_assert(std::is_same_v<decltype(StateIterator::offsets), std::vector<unsigned long>>);
static_assert(offsetof(StateIterator, free_mask) < offsetof(StateIterator, control_mask) &&
              offsetof(StateIterator, control_mask) < offsetof(StateIterator, count) &&
              offsetof(StateIterator, count) < offsetof(StateIterator, local_size) &&
              offsetof(StateIterator, local_size) < offsetof(StateIterator, offsets));

TEST(state_iterator, of_one_target_leaves_all_other_bits_free) {
    for (unsigned int n = 1; n <= 12; ++n) {
        for (unsigned int q = 0; q < n; ++q) {
            const StateIterator it({q}, {}, n);
            EXPECT_EQ(it.free_mask, ((1ul << n) - 1) & ~(1ul << q));
            EXPECT_EQ(it.control_mask, 0ul);
            EXPECT_EQ(it.count, 1ul << (n - 1));
            EXPECT_EQ(it.local_size, 2ul);
            EXPECT_EQ(it.offsets, (std::vector<unsigned long>{0, 1ul << q}));
        }
    }
}

TEST(state_iterator, of_two_targets_and_a_control_has_the_first_target_as_high_local_bit) {
    const unsigned int n = 7;
    for (unsigned int a = 0; a < n; ++a) {
        for (unsigned int b = 0; b < n; ++b) {
            for (unsigned int c = 0; c < n; ++c) {
                if (a == b || a == c || b == c) continue;
                const StateIterator it({a, b}, {c}, n);
                EXPECT_EQ(it.offsets, (std::vector<unsigned long>{0, 1ul << b, 1ul << a, (1ul << a) | (1ul << b)}));
                EXPECT_EQ(it.count, 1ul << (n - 3));
                EXPECT_EQ(it.local_size, 4ul);
                // Every base has bit c set, since the control is not free and stands in the control mask.
                EXPECT_EQ(it.control_mask, 1ul << c);
                EXPECT_EQ(it.free_mask, ((1ul << n) - 1) & ~((1ul << a) | (1ul << b) | (1ul << c)));
            }
        }
    }
}

TEST(state_iterator, drops_a_control_beyond_the_qubits_from_the_mask_but_not_from_the_count) {
    const StateIterator it({1}, {5, 0}, 4);
    EXPECT_EQ(it.control_mask, 0b0001ul);
    EXPECT_EQ(it.free_mask, 0b1100ul);
    EXPECT_EQ(it.count, 2ul);  // 2^(4 - 1 - 2)
    const StateIterator at_the_edge({}, {4}, 4);
    EXPECT_EQ(at_the_edge.control_mask, 0ul);
    EXPECT_EQ(at_the_edge.free_mask, 0b1111ul);
    EXPECT_EQ(at_the_edge.count, 8ul);
}

TEST(state_iterator, of_no_targets_addresses_single_amplitudes) {
    const StateIterator it({}, {2}, 5);
    EXPECT_EQ(it.offsets, (std::vector<unsigned long>{0}));
    EXPECT_EQ(it.local_size, 1ul);
    EXPECT_EQ(it.count, 16ul);
    EXPECT_EQ(it.free_mask, 0b11011ul);
    EXPECT_EQ(it.control_mask, 0b00100ul);
}

TEST(state_iterator, count_shifts_modulo_64) {
    EXPECT_EQ(StateIterator({0}, {0}, 1).count, 1ul << 63);
    EXPECT_EQ(StateIterator({}, {}, 0).count, 1ul);
    EXPECT_EQ(StateIterator({}, {}, 64).count, 1ul);
}

TEST(state_iterator, agrees_with_the_reference_for_any_targets_and_controls) {
    std::mt19937 engine(3);
    for (unsigned int n = 1; n <= 20; ++n) {
        for (int trial = 0; trial < 40; ++trial) {
            Qubits targets = support::random_qubits(n, n, engine);
            const unsigned int k = static_cast<unsigned int>(engine() % (std::min(n, 6u) + 1));
            const unsigned int m = static_cast<unsigned int>(engine() % (n - k + 1));
            const Qubits controls(targets.begin() + k, targets.begin() + k + m);
            targets.resize(k);
            const StateIterator it(targets, controls, n);
            const reference::Groups expected = reference::groups_of(targets, controls, n);
            const std::string what = describe(n, targets, controls, 1);
            ASSERT_EQ(it.free_mask, expected.free_mask) << what;
            ASSERT_EQ(it.control_mask, expected.control_mask) << what;
            ASSERT_EQ(it.count, expected.count) << what;
            ASSERT_EQ(it.local_size, expected.local_size) << what;
            ASSERT_EQ(it.offsets, expected.offsets) << what;
        }
    }
}

TEST(state_iterator, groups_cover_every_index_with_all_controls_set_exactly_once) {
    const StateIterator it({4, 1}, {2, 6}, 8);
    std::set<unsigned long> visited;
    for (unsigned long g = 0; g < it.count; ++g) {
        const unsigned long base = reference::deposit(g, it.free_mask) | it.control_mask;
        for (unsigned long offset : it.offsets) EXPECT_TRUE(visited.insert(base | offset).second);
    }
    std::set<unsigned long> expected;
    for (unsigned long i = 0; i < 256; ++i) {
        if (((i >> 2) & 1) && ((i >> 6) & 1)) expected.insert(i);
    }
    EXPECT_EQ(visited, expected);
}
