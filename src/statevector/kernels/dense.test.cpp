#include "reference/dense.hpp"
#include "support/captured_output.hpp"
#include "support/kernel_check.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/kernels.hpp>

#include <cmath>
#include <new>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(dense_kernel);

namespace {

template <class T>
using C = thrust::complex<T>;

template <class T>
testing::AssertionResult agrees(GuardedArray<T>& array, const reference::State<T>& start, const Qubits& targets,
                                const Qubits& controls, const std::vector<int>& threads) {
    const unsigned int n = reference::qubit_count(start.size());
    const unsigned long dim = 1ul << targets.size();
    const auto m = random_coefficients<T>(dim * dim, targets[0]);
    auto expected = start;
    reference::apply_dense(expected, targets, controls, m);
    return kernel_agrees(array, start, expected, targets, controls, threads, [&](C<T>* state, int count) {
        if (controls.empty()) {
            pbamplix::cpu::apply_nbqbit_gate<C<T>, false, true>(state, targets, as_thrust(m), n, count);
        } else {
            pbamplix::cpu::apply_nbqbit_gate<C<T>, false, true>(state, targets, controls, as_thrust(m), n, count);
        }
    });
}

template <class T>
std::vector<C<T>> identity(unsigned long dim) {
    std::vector<C<T>> matrix(dim * dim);
    for (unsigned long i = 0; i < dim; ++i) matrix[i * (dim + 1)] = C<T>(1, 0);
    return matrix;
}

constexpr const char* guard_text = "Not enough memory for allocating array \u2014 memory swap is not allowed.\n";

}  // namespace

TYPED_TEST(dense_kernel, agrees_bit_for_bit_on_1_to_9_qubits) {
    std::mt19937 engine(7);
    for (unsigned int n = 1; n <= 9; ++n) {
        const auto start = random_state<TypeParam>(n, Values::unusual);
        GuardedArray<TypeParam> array(start);
        for (unsigned int k = 1; k <= std::min(n, 6u); ++k) {
            for (int repeat = 0; repeat < 6; ++repeat) {
                const Qubits targets = random_qubits(k, n, engine);
                ASSERT_TRUE(agrees(array, start, targets, {}, thread_counts));
                for (const Qubits& controls : control_sets(targets, n)) {
                    ASSERT_TRUE(agrees(array, start, targets, controls, {1, 3}));
                }
            }
        }
    }
}

TYPED_TEST(dense_kernel, agrees_bit_for_bit_on_every_ordered_pair_of_6_qubits) {
    const auto start = random_state<TypeParam>(6, Values::unusual);
    GuardedArray<TypeParam> array(start);
    for (const Qubits& targets : ordered_pairs(6)) ASSERT_TRUE(agrees(array, start, targets, {}, {1, 2}));
}

TYPED_TEST(dense_kernel, agrees_bit_for_bit_when_threads_share_the_array) {
    const auto start = random_state<TypeParam>(16, Values::unusual);
    GuardedArray<TypeParam> array(start);
    for (const Qubits& targets : {Qubits{0, 15}, {14, 1, 7}, {3, 2, 1, 0}, {15, 14, 13, 12, 11}}) {
        ASSERT_TRUE(agrees(array, start, targets, {}, {2, 3, 7}));
        ASSERT_TRUE(agrees(array, start, targets, {10}, {2}));
    }
}

TYPED_TEST(dense_kernel, of_more_qubits_than_fit_the_stack_agrees) {
    const auto start = random_state<TypeParam>(11, Values::unusual);
    GuardedArray<TypeParam> array(start);
    ASSERT_TRUE(agrees(array, start, {9, 0, 4, 7, 2, 10, 5}, {}, {1, 2}));
}

TYPED_TEST(dense_kernel, worker_over_a_prepared_enumeration_agrees) {
    const Qubits targets = {4, 0, 2};
    const Qubits controls = {5};
    const auto start = random_state<TypeParam>(7, Values::unusual);
    const auto m = random_coefficients<TypeParam>(64);
    auto expected = start;
    reference::apply_dense(expected, targets, controls, m);
    GuardedArray<TypeParam> array(start);
    pbamplix::cpu::_apply_nqbit_gate<C<TypeParam>, true, true, false>(
        array.data(), vela::core::iterator::StateIterator(targets, controls, 7), 8, as_thrust(m), 2);
    EXPECT_TRUE(same_bits(expected, array.data()));
    EXPECT_TRUE(array.fences_stand());
}

TYPED_TEST(dense_kernel, identity_on_one_qubit_keeps_nonzero_bits_and_makes_minus_zero_plus_zero) {
    auto start = random_state<TypeParam>(4, Values::ordinary);
    start[5] = {TypeParam(-0.0), TypeParam(0.25)};
    GuardedArray<TypeParam> array(start);
    pbamplix::cpu::apply_nbqbit_gate<C<TypeParam>, false, true>(array.data(), {2}, identity<TypeParam>(2), 4, 1);
    auto expected = start;
    expected[5].re = 0;
    EXPECT_TRUE(std::signbit(start[5].re));
    EXPECT_TRUE(same_bits(expected, array.data()));
}

TYPED_TEST(dense_kernel, leaves_a_basis_state_whose_control_is_0) {
    reference::State<TypeParam> start(8);
    start[3] = {1, 0};
    GuardedArray<TypeParam> array(start);
    pbamplix::cpu::apply_nbqbit_gate<C<TypeParam>, false, true>(array.data(), {0, 1}, {2},
                                                                as_thrust(random_coefficients<TypeParam>(16)), 3, 1);
    EXPECT_TRUE(same_bits(start, array.data()));
}

TYPED_TEST(dense_kernel, with_more_threads_than_groups_agrees) {
    const auto start = random_state<TypeParam>(3, Values::unusual);
    GuardedArray<TypeParam> array(start);
    ASSERT_TRUE(agrees(array, start, {2, 0}, {}, {7}));
    ASSERT_TRUE(agrees(array, start, {2, 0, 1}, {}, {7}));
}

TYPED_TEST(dense_kernel, on_exchanged_targets_equals_the_matrix_with_exchanged_local_bits) {
    const auto start = random_state<TypeParam>(5, Values::ordinary);
    // Small integers: every order of summation gives the same bits.
    std::vector<C<TypeParam>> m(16), exchanged(16);
    for (unsigned long i = 0; i < 16; ++i) m[i] = C<TypeParam>(TypeParam(int(i % 5) - 2), TypeParam(int(i % 3) - 1));
    const unsigned long swapped[4] = {0, 2, 1, 3};
    for (unsigned long r = 0; r < 4; ++r) {
        for (unsigned long c = 0; c < 4; ++c) exchanged[swapped[r] * 4 + swapped[c]] = m[r * 4 + c];
    }
    reference::State<TypeParam> dyadic(start.size());
    for (unsigned long i = 0; i < start.size(); ++i) {
        dyadic[i] = {TypeParam(int(i) - 7) / 8, TypeParam(3 - int(i)) / 16};
    }
    GuardedArray<TypeParam> one(dyadic), other(dyadic);
    pbamplix::cpu::apply_nbqbit_gate<C<TypeParam>, false, true>(one.data(), {1, 4}, m, 5, 1);
    pbamplix::cpu::apply_nbqbit_gate<C<TypeParam>, false, true>(other.data(), {4, 1}, exchanged, 5, 1);
    EXPECT_EQ(std::memcmp(one.data(), other.data(), 32 * sizeof(C<TypeParam>)), 0);
}

TYPED_TEST(dense_kernel, refuses_when_a_matrix_per_thread_exceeds_free_memory_and_leaves_the_state) {
    const auto start = random_state<TypeParam>(4, Values::any_bits);
    const auto m = as_thrust(random_coefficients<TypeParam>(64));
    const unsigned long bytes = 64 * sizeof(C<TypeParam>);
    GuardedArray<TypeParam> array(start);
    const auto run = [&](int threads) {
        pbamplix::cpu::apply_nbqbit_gate<C<TypeParam>, false, true>(array.data(), {0, 1, 2}, m, 4, threads);
    };
    {
        ScriptedMemory memory(3 * bytes - 1);
        CapturedOutput output;
        EXPECT_THROW(run(3), std::bad_alloc);
        EXPECT_EQ(output.out(), guard_text);
        EXPECT_TRUE(same_bits(start, array.data()));
    }
    ScriptedMemory memory(3 * bytes);
    CapturedOutput output;
    EXPECT_NO_THROW(run(3));
    EXPECT_EQ(output.out(), "");
}

TYPED_TEST(dense_kernel, coinciding_qubits_stay_inside_the_array) {
    const auto start = random_state<TypeParam>(4, Values::ordinary);
    GuardedArray<TypeParam> array(start);
    const auto m = as_thrust(random_coefficients<TypeParam>(64));
    for (const auto& [targets, controls] :
         std::vector<std::pair<Qubits, Qubits>>{{{1, 1, 2}, {}}, {{3, 0, 1}, {3}}, {{2, 2, 2}, {2}}}) {
        pbamplix::cpu::apply_nbqbit_gate<C<TypeParam>, false, true>(array.data(), targets, controls, m, 4, 2);
        EXPECT_TRUE(array.fences_stand());
    }
}
