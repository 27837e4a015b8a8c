#include "reference/loading.hpp"
#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

namespace {

PRECISION_SUITE(LoadingMembers);

TYPED_TEST(LoadingMembers, state_preparation_works_on_the_objects_array_with_its_threads) {
    for (const int threads : support::thread_counts) {
        auto expected = support::random_state<TypeParam>(6, support::Values::ordinary);
        support::LoadedVector<TypeParam> v(expected, threads);
        const auto data = support::random_coefficients<double>(8);
        reference::state_preparation(expected, data, {4, 0, 5});
        auto given = support::as_thrust(data);
        v.apply_state_preparation(given.data(), {4, 0, 5});
        EXPECT_TRUE(support::same_bits(expected, v.amplitudes.get())) << threads << " threads";
    }
}

TYPED_TEST(LoadingMembers, qram_works_on_the_objects_array_with_its_threads) {
    for (const int threads : support::thread_counts) {
        auto expected = support::random_state<TypeParam>(6, support::Values::ordinary);
        support::LoadedVector<TypeParam> v(expected, threads);
        const auto data = support::random_coefficients<double>(16);
        reference::qram(expected, data, {4, 0, 5, 2}, 1);
        v.apply_qram(support::as_thrust(data).data(), {4, 0, 5, 2}, 1);
        EXPECT_TRUE(support::same_bits(expected, v.amplitudes.get())) << threads << " threads";
    }
}

TYPED_TEST(LoadingMembers, binary_qram_works_on_the_objects_array_with_its_threads) {
    for (const int threads : support::thread_counts) {
        auto expected = support::random_state<TypeParam>(6, support::Values::any_bits);
        support::LoadedVector<TypeParam> v(expected, threads);
        const std::vector<unsigned long> data = {3, 0, 2, 1};
        reference::binary_qram(expected, data, {4, 0, 5, 2}, 2);
        v.apply_binary_qram(data.data(), {4, 0, 5, 2}, 2);
        EXPECT_TRUE(support::same_bits(expected, v.amplitudes.get())) << threads << " threads";
    }
}

TYPED_TEST(LoadingMembers, the_phase_oracle_counts_qubits_from_the_outside_and_qram_does_not) {
    using complex = thrust::complex<TypeParam>;
    support::StateVector<TypeParam> v(3);
    v.reset_to_str("+++");
    v.apply_phase_oracle({1}, {0});
    for (unsigned long i = 0; i < 8; ++i) EXPECT_EQ(v.amplitudes[i].real() < 0, (i & 4) != 0) << i;

    v.reset();
    const unsigned long one = 1;
    v.apply_binary_qram(&one, {0}, 0);
    EXPECT_EQ(v.amplitudes[1], complex(1, 0));
    EXPECT_EQ(v.amplitudes[0], complex(0, 0));
}

TYPED_TEST(LoadingMembers, the_phase_oracle_works_on_the_objects_array_with_its_threads) {
    for (const int threads : support::thread_counts) {
        auto expected = support::random_state<TypeParam>(6, support::Values::any_bits);
        support::LoadedVector<TypeParam> v(expected, threads);
        reference::phase_oracle(expected, {5, 2, 0}, {4, 0, 5});
        v.apply_phase_oracle({5, 2, 0}, {4, 0, 5});
        EXPECT_TRUE(support::same_bits(expected, v.amplitudes.get())) << threads << " threads";
    }
}

}  // namespace
