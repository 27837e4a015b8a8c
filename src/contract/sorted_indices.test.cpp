#include "reference/indices.hpp"
#include "support/compare.hpp"

#include <velacamplix/amplitude.hpp>
#include <velacamplix/index.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

using pbamplix::cpu::contains_no_first_qubits;
using pbamplix::cpu::get_sorted_indices;
using reference::Qubits;
using Indices = std::vector<unsigned int>;

TEST(get_sorted_indices, of_qubits_0_and_2_makes_the_first_listed_the_high_bit) {
    EXPECT_EQ(get_sorted_indices({0, 2}, 0b101), (Indices{0, 2, 1, 3}));
    EXPECT_EQ(get_sorted_indices({2, 0}, 0b101), (Indices{0, 1, 2, 3}));
}

TEST(get_sorted_indices, of_no_qubits_is_one_entry_0) { EXPECT_EQ(get_sorted_indices({}, 0), (Indices{0})); }

TEST(get_sorted_indices, of_a_qubit_listed_twice_cancels_in_the_mask) {
    // All four positions gather to 0; the last local index stays.
    EXPECT_EQ(get_sorted_indices({3, 3}, 0), (Indices{3, 0, 0, 0}));
}

TEST(get_sorted_indices, agrees_with_the_reference_for_every_order_of_up_to_6_qubits) {
    for (unsigned int k = 0; k <= 6; ++k) {
        Qubits order(k);
        std::iota(order.begin(), order.end(), 0u);
        do {
            Qubits qubits;
            for (unsigned int q : order) qubits.push_back(5 * q + q % 3);  // with gaps
            const unsigned long mask = reference::mask_of(qubits);
            ASSERT_EQ(get_sorted_indices(qubits, mask), reference::sorted_indices(qubits, mask))
                << support::describe(qubits);
        } while (std::next_permutation(order.begin(), order.end()));
    }
}

TEST(contains_no_first_qubits, tells_whether_both_lists_leave_qubits_0_and_1_alone) {
    EXPECT_TRUE((contains_no_first_qubits<float>({2, 5}, {})));
    EXPECT_TRUE((contains_no_first_qubits<double>({2, 5}, {})));
    EXPECT_FALSE((contains_no_first_qubits<float>({3}, {1})));
    EXPECT_FALSE((contains_no_first_qubits<double>({3}, {1})));
    EXPECT_FALSE((contains_no_first_qubits<double>({0}, {})));
    EXPECT_FALSE((contains_no_first_qubits<double>({}, {0, 7})));
    EXPECT_FALSE((contains_no_first_qubits<double>({9, 1}, {4})));
    EXPECT_TRUE((contains_no_first_qubits<double>({2}, {3, 63})));
}

TEST(contains_no_first_qubits, of_two_empty_lists_is_true) {
    EXPECT_TRUE((contains_no_first_qubits<float>({}, {})));
    EXPECT_TRUE((contains_no_first_qubits<double>({}, {})));
}
