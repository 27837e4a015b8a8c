#include "reference/loading.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <velacamplix/loading.hpp>

#include <bit>

namespace {

using reference::Qubits;
using reference::State;
using Marked = std::vector<unsigned long>;

PRECISION_SUITE(PhaseOracle);

template <class T>
void expect_the_literal_result(const State<T>& start, const Marked& marked, const Qubits& qubits, int threads) {
    const auto n = static_cast<unsigned int>(std::countr_zero(start.size()));
    auto expected = start;
    reference::phase_oracle(expected, marked, qubits);
    support::GuardedArray<T> got(start);
    pbamplix::cpu::_phase_oracle(got.data(), marked, qubits, start.size(), n, threads);
    EXPECT_TRUE(support::same_bits(expected, got.data()))
        << support::describe(n, qubits, {}, threads) << ", " << marked.size() << " marked";
    EXPECT_TRUE(got.fences_stand());
}

template <class T>
void expect_negated(const State<T>& start, const Marked& marked, const Qubits& qubits, unsigned long mask,
                    unsigned long ones) {
    const auto n = static_cast<unsigned int>(std::countr_zero(start.size()));
    auto expected = start;
    for (unsigned long i = 0; i < start.size(); ++i) {
        if ((i & mask) == ones) expected[i] = {-start[i].re, -start[i].im};
    }
    support::GuardedArray<T> got(start);
    pbamplix::cpu::_phase_oracle(got.data(), marked, qubits, start.size(), n, 1);
    EXPECT_TRUE(support::same_bits(expected, got.data()));
}

TYPED_TEST(PhaseOracle, no_qubits_and_the_key_0_negate_every_amplitude) {
    for (unsigned int n = 0; n <= 5; ++n) {
        expect_negated(support::random_state<TypeParam>(n, support::Values::ordinary), {0}, {}, 0, 0);
    }
}

TYPED_TEST(PhaseOracle, nothing_marked_changes_nothing) {
    const auto start = support::random_state<TypeParam>(5, support::Values::any_bits);
    for (const Qubits& qubits : {Qubits{}, Qubits{0}, Qubits{4, 1}}) {
        support::GuardedArray<TypeParam> got(start);
        pbamplix::cpu::_phase_oracle(got.data(), {}, qubits, start.size(), 5, 1);
        EXPECT_TRUE(support::same_bits(start, got.data()));
    }
}

TYPED_TEST(PhaseOracle, qubit_0_is_the_highest_bit_of_the_index) {
    for (unsigned int n = 1; n <= 6; ++n) {
        const unsigned long highest = 1ul << (n - 1);
        expect_negated(support::random_state<TypeParam>(n, support::Values::ordinary), {1}, {0}, highest, highest);
    }
}

TYPED_TEST(PhaseOracle, the_first_listed_qubit_is_the_most_significant_bit_of_a_key) {
    // Key 2 = binary 10: qubit 1 (index bit 1 of 3) reads 1, qubit 2 (index bit 0) reads 0.
    expect_negated(support::random_state<TypeParam>(3, support::Values::ordinary), {2}, {1, 2}, 0b011, 0b010);
}

TYPED_TEST(PhaseOracle, signs_flip_on_zeros_infinities_and_nans_of_any_payload) {
    for (const int threads : support::thread_counts) {
        expect_the_literal_result(support::random_state<TypeParam>(8, support::Values::any_bits), {3, 5}, {1, 7, 2},
                                  threads);
    }
}

TYPED_TEST(PhaseOracle, a_value_marked_twice_is_negated_once) {
    expect_negated(support::random_state<TypeParam>(3, support::Values::ordinary), {1, 1, 1}, {2}, 1, 1);
}

TYPED_TEST(PhaseOracle, values_that_no_key_reaches_mark_nothing) {
    expect_the_literal_result(support::random_state<TypeParam>(4, support::Values::any_bits), {4, 9, ~0ul}, {0, 3}, 1);
    expect_the_literal_result(support::random_state<TypeParam>(4, support::Values::any_bits), {1, 2}, {}, 1);
}

TYPED_TEST(PhaseOracle, a_qubit_outside_the_state_reads_zero) {
    expect_the_literal_result(support::random_state<TypeParam>(3, support::Values::any_bits), {1, 2}, {7, 1}, 1);
}

TYPED_TEST(PhaseOracle, a_qubit_listed_twice_must_agree_with_itself) {
    for (const int threads : support::thread_counts) {
        expect_the_literal_result(support::random_state<TypeParam>(5, support::Values::any_bits), {0, 1, 3, 6, 7},
                                  {2, 4, 2}, threads);
        expect_the_literal_result(support::random_state<TypeParam>(2, support::Values::any_bits), {31, 0, 21},
                                  {1, 1, 0, 1, 0}, threads);
    }
}

TYPED_TEST(PhaseOracle, random_marks_on_random_lists_give_the_literal_bits) {
    std::mt19937 engine(1);
    for (unsigned int n = 1; n <= 9; ++n) {
        for (unsigned int m = 0; m <= n; ++m) {
            const auto qubits = support::random_qubits(m, n, engine);
            for (const unsigned long count : {1ul, 2ul, 1ul << m}) {
                Marked marked(count);
                for (auto& value : marked) value = engine() % ((1ul << m) + 1);
                for (const int threads : support::thread_counts) {
                    expect_the_literal_result(support::random_state<TypeParam>(n, support::Values::any_bits, m), marked,
                                              qubits, threads);
                }
            }
        }
    }
}

TYPED_TEST(PhaseOracle, many_marks_on_states_of_several_blocks_give_the_literal_bits) {
    std::mt19937 engine(2);
    const unsigned int n = 15;
    const auto start = support::random_state<TypeParam>(n, support::Values::ordinary);
    for (const unsigned int m : {3u, 6u, 15u}) {
        const auto qubits = support::random_qubits(m, n, engine);
        Marked marked(m == 15 ? 200 : 1ul << (m - 1));
        for (auto& value : marked) value = engine() % (1ul << m);
        for (const int threads : support::thread_counts) expect_the_literal_result(start, marked, qubits, threads);
    }
}

}  // namespace
