#include "reference/diagonal.hpp"
#include "support/captured_output.hpp"
#include "support/kernel_check.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/kernels.hpp>

#include <new>
#include <numeric>

using namespace pbamplix::cpu;
using namespace support;
using reference::Qubits;

PRECISION_SUITE(diagonal_kernel);

namespace {

template <class T>
void run(thrust::complex<T>* state, const Qubits& targets, unsigned int n, int threads, const Qubits& controls,
         const std::vector<thrust::complex<T>>& diag) {
    if (controls.empty()) {
        _DiagGate<true>::apply<T>(state, targets, n, threads, diag);
    } else {
        _DiagGate<true>::apply_controlled<T>(state, targets, n, threads, controls, diag);
    }
}

template <class T>
testing::AssertionResult agrees(GuardedArray<T>& array, const reference::State<T>& start, const Qubits& targets,
                                const Qubits& controls, const std::vector<int>& threads) {
    const unsigned int n = reference::qubit_count(start.size());
    const auto diag = random_coefficients<T>(1ul << targets.size(), n);
    auto expected = start;
    reference::apply_diagonal(expected, targets, controls, diag);
    return kernel_agrees(array, start, expected, targets, controls, threads, [&](thrust::complex<T>* state, int count) {
        run(state, targets, n, count, controls, as_thrust(diag));
    });
}

}  // namespace

TYPED_TEST(diagonal_kernel, of_one_target_agrees_bit_for_bit_on_1_to_12_qubits) {
    for (unsigned int n = 1; n <= 12; ++n) {
        const auto start = random_state<TypeParam>(n, Values::unusual);
        GuardedArray<TypeParam> array(start);
        for (unsigned int target = 0; target < n; ++target) {
            for (const Qubits& controls : control_sets({target}, n)) {
                ASSERT_TRUE(agrees(array, start, {target}, controls, thread_counts));
            }
        }
    }
}

TYPED_TEST(diagonal_kernel, of_two_targets_agrees_bit_for_bit_on_every_ordered_pair) {
    for (unsigned int n = 2; n <= 9; ++n) {
        const auto start = random_state<TypeParam>(n, Values::unusual);
        GuardedArray<TypeParam> array(start);
        for (const Qubits& targets : ordered_pairs(n)) {
            for (const Qubits& controls : control_sets(targets, n)) {
                ASSERT_TRUE(agrees(array, start, targets, controls, thread_counts));
            }
        }
    }
}

TYPED_TEST(diagonal_kernel, of_0_to_8_targets_in_any_order_agrees_bit_for_bit) {
    std::mt19937 engine(2);
    for (unsigned int n = 1; n <= 12; ++n) {
        const auto start = random_state<TypeParam>(n, Values::unusual);
        GuardedArray<TypeParam> array(start);
        for (unsigned int k = 0; k <= std::min(n, 8u); ++k) {
            for (int trial = 0; trial < 4; ++trial) {
                Qubits targets = random_qubits(n, n, engine);
                const Qubits controls(targets.begin() + k, targets.begin() + k + (n - k) / 2);
                targets.resize(k);
                ASSERT_TRUE(agrees(array, start, targets, {}, thread_counts));
                ASSERT_TRUE(agrees(array, start, targets, controls, thread_counts));
            }
        }
    }
}

TYPED_TEST(diagonal_kernel, agrees_bit_for_bit_when_threads_share_the_array) {
    for (const auto& [n, targets] : std::vector<std::pair<unsigned int, Qubits>>{
             {16, {15}}, {16, {0}}, {16, {14, 1}}, {17, {3, 16, 0, 9}}, {18, {17, 0, 16, 1, 9, 2, 8, 11}}}) {
        const auto start = random_state<TypeParam>(n, Values::unusual);
        GuardedArray<TypeParam> array(start);
        for (const Qubits& controls : telling_controls(targets, n)) {
            ASSERT_TRUE(agrees(array, start, targets, controls, {2, 3, 7}));
        }
    }
}

TYPED_TEST(diagonal_kernel, under_a_control_takes_more_than_256_entries) {
    const Qubits targets = {11, 0, 5, 1, 9, 3, 7, 2, 10, 4};
    const auto start = random_state<TypeParam>(12, Values::unusual);
    GuardedArray<TypeParam> array(start);
    EXPECT_TRUE(agrees(array, start, targets, {6}, thread_counts));
    EXPECT_TRUE(agrees(array, start, targets, {8, 6}, thread_counts));
}

TYPED_TEST(diagonal_kernel, of_exactly_256_entries_runs_without_controls) {
    const auto start = random_state<TypeParam>(9, Values::ordinary);
    GuardedArray<TypeParam> array(start);
    EXPECT_TRUE(agrees(array, start, {8, 1, 6, 3, 4, 5, 2, 7}, {}, thread_counts));
}

TYPED_TEST(diagonal_kernel, accepts_an_array_off_the_64_byte_boundary) {
    for (unsigned int n : {1u, 4u, 7u}) {
        const auto start = random_state<TypeParam>(n, Values::unusual);
        for (unsigned long shift : {1ul, 2ul, 3ul}) {
            GuardedArray<TypeParam> array(start, shift);
            for (unsigned int target = 0; target < n; ++target) {
                ASSERT_TRUE(agrees(array, start, {target}, {}, {1, 3}));
            }
        }
    }
}

TYPED_TEST(diagonal_kernel, has_its_first_target_as_high_bit) {
    // Targets {2, 0}: the index with qubit 2 = 1 and qubit 0 = 0 takes entry 2.
    const std::vector<thrust::complex<TypeParam>> diag = {{10, 0}, {11, 0}, {12, 0}, {13, 0}};
    GuardedArray<TypeParam> array(reference::State<TypeParam>(8, {1, 0}));
    _DiagGate<true>::apply<TypeParam>(array.data(), {2, 0}, 3, 1, diag);
    const TypeParam expected[] = {10, 11, 10, 11, 12, 13, 12, 13};
    for (unsigned int i = 0; i < 8; ++i) EXPECT_EQ(array.data()[i].real(), expected[i]) << "index " << i;
}

TYPED_TEST(diagonal_kernel, multiplies_in_full_also_by_one) {
    // Nothing is skipped: infinity times the zero imaginary part of 1 is not a number.
    const TypeParam infinity = std::numeric_limits<TypeParam>::infinity();
    GuardedArray<TypeParam> array(reference::State<TypeParam>{{infinity, 0}, {1, 0}});
    _DiagGate<true>::apply<TypeParam>(array.data(), {0}, 1, 1, {{1, 0}, {1, 0}});
    EXPECT_EQ(array.data()[0].real(), infinity);
    EXPECT_TRUE(std::isnan(array.data()[0].imag()));
}

TYPED_TEST(diagonal_kernel, coinciding_qubits_write_nothing_outside_the_array) {
    for (unsigned int n = 1; n <= 8; ++n) {
        GuardedArray<TypeParam> array(random_state<TypeParam>(n, Values::ordinary));
        for (unsigned int q = 0; q < n; ++q) {
            for (const Qubits& targets : {Qubits{q}, Qubits{q, q}, Qubits{q, (q + 1) % n, q}}) {
                const auto diag = as_thrust(random_coefficients<TypeParam>(1ul << targets.size()));
                for (const Qubits& controls : {Qubits{}, Qubits{q}, Qubits{q, q}}) {
                    run(array.data(), targets, n, 2, controls, diag);
                    ASSERT_TRUE(array.fences_stand()) << describe(n, targets, controls, 2);
                }
            }
        }
    }
}

TYPED_TEST(diagonal_kernel, under_a_control_asks_the_memory_guard_for_its_sorted_copy) {
    const unsigned long needed = 4 * sizeof(thrust::complex<TypeParam>);
    const auto start = random_state<TypeParam>(4, Values::ordinary);
    const auto diag = as_thrust(random_coefficients<TypeParam>(4));
    GuardedArray<TypeParam> array(start);
    ScriptedMemory memory(needed);
    EXPECT_NO_THROW(_DiagGate<true>::apply_controlled<TypeParam>(array.data(), {0, 1}, 4, 1, {2}, diag));
    EXPECT_EQ(memory.queries(), 1);

    array.load(start);
    memory.set_free_units(needed - 1);
    CapturedOutput output;
    EXPECT_THROW(_DiagGate<true>::apply_controlled<TypeParam>(array.data(), {0, 1}, 4, 1, {2}, diag), std::bad_alloc);
    EXPECT_EQ(output.out(), "Not enough memory for allocating array \xE2\x80\x94 memory swap is not allowed.\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_TRUE(same_bits(start, array.data()));
}

TYPED_TEST(diagonal_kernel, without_controls_asks_no_memory_guard) {
    GuardedArray<TypeParam> array(random_state<TypeParam>(4, Values::ordinary));
    ScriptedMemory memory(0);
    EXPECT_NO_THROW(_DiagGate<true>::apply<TypeParam>(array.data(), {0}, 4, 1, {{1, 0}, {0, 1}}));
    EXPECT_EQ(memory.queries(), 0);
}

TYPED_TEST(diagonal_kernel, fill_sorted_diag_agrees_for_every_order_of_up_to_5_targets) {
    for (unsigned int k = 0; k <= 5; ++k) {
        const auto diag = random_coefficients<TypeParam>(1ul << k, k);
        Qubits order(k);
        std::iota(order.begin(), order.end(), 0u);
        do {
            Qubits targets;
            for (unsigned int q : order) targets.push_back(3 * q + q % 2);  // with gaps
            const unsigned long mask = reference::mask_of(targets);
            std::vector<thrust::complex<TypeParam>> out(diag.size());
            fill_sorted_diag(out.data(), targets, as_thrust(diag), mask);
            ASSERT_TRUE(same_bits(reference::sorted_diagonal(targets, diag, mask), out.data())) << describe(targets);
        } while (std::next_permutation(order.begin(), order.end()));
    }
}

TYPED_TEST(diagonal_kernel, fill_sorted_diag_in_increasing_order_reverses_positions) {
    const std::vector<thrust::complex<TypeParam>> diag = {{0, 0}, {1, 0}, {2, 0}, {3, 0},
                                                          {4, 0}, {5, 0}, {6, 0}, {7, 0}};
    std::vector<thrust::complex<TypeParam>> out(8);
    fill_sorted_diag(out.data(), {1, 4, 6}, diag, 0b1010010ul);
    const TypeParam expected[] = {0, 4, 2, 6, 1, 5, 3, 7};
    for (unsigned int p = 0; p < 8; ++p) EXPECT_EQ(out[p].real(), expected[p]) << "position " << p;
}
