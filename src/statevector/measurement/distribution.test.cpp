#include "reference/probabilities.hpp"
#include "support/compare.hpp"
#include "support/measured_state.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"

#include <cstring>
#include <limits>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(distribution);

namespace {

// get_distribution into a buffer between two fences.
template <class T>
std::vector<T> distribution_of(StateVector<T>& v, const Qubits& qubits, T threshold = 0) {
    const T fence = T(-12345);
    const unsigned long outcomes = 1ul << qubits.size();
    std::vector<T> buffer(outcomes + 16, fence);
    v.get_distribution(buffer.data() + 8, threshold, qubits);
    for (unsigned int i = 0; i < 8; ++i) {
        EXPECT_EQ(buffer[i], fence) << "a write before the buffer, qubits " << describe(qubits);
        EXPECT_EQ(buffer[outcomes + 8 + i], fence) << "a write behind the buffer, qubits " << describe(qubits);
    }
    return {buffer.begin() + 8, buffer.end() - 8};
}

template <class T>
testing::AssertionResult agrees(MeasuredState<T>& measured, T threshold, const Qubits& qubits,
                                const std::vector<int>& threads) {
    const auto expected = reference::distribution(measured.view(), threshold, qubits);
    for (int count : threads) {
        measured.vector().set_num_threads(count);
        if (auto same = same_bits(expected, distribution_of<T>(measured.vector(), qubits, threshold)); !same) {
            return same << "\nthreshold " << threshold << ", " << measured.describe(qubits, count);
        }
    }
    return testing::AssertionSuccess();
}

}  // namespace

TYPED_TEST(distribution, agrees_bit_for_bit_for_any_list_and_threshold) {
    std::mt19937 engine(9);
    for (const Values values : {Values::ordinary, Values::unusual}) {
        for (unsigned int n = 0; n <= 10; ++n) {
            MeasuredState<TypeParam> measured(random_state<TypeParam>(n, values));
            for (unsigned int k = 0; k <= n; ++k) {
                for (const TypeParam threshold : {TypeParam(0), TypeParam(0.5), TypeParam(-0.7)}) {
                    ASSERT_TRUE(agrees(measured, threshold, random_qubits(k, n, engine), thread_counts));
                }
            }
        }
    }
}

TYPED_TEST(distribution, over_every_ordered_pair_agrees_bit_for_bit) {
    for (unsigned int n : {2u, 7u, 12u}) {
        MeasuredState<TypeParam> measured(random_state<TypeParam>(n, Values::ordinary));
        for (unsigned int a = 0; a < n; ++a) {
            for (unsigned int b = 0; b < n; ++b) {
                if (a == b) continue;
                ASSERT_TRUE(agrees(measured, TypeParam(0), {a, b}, {1, 3}));
            }
        }
    }
}

TYPED_TEST(distribution, of_large_states_agrees_bit_for_bit_for_every_thread_count) {
    for (unsigned int n : {17u, 18u, 19u}) {
        MeasuredState<TypeParam> measured(random_state<TypeParam>(n, Values::ordinary));
        for (const Qubits& qubits :
             std::vector<Qubits>{{}, {0}, {n - 1}, {1, n - 2}, {n - 1, 0, 5}, {7, 3, n - 3, 2}}) {
            ASSERT_TRUE(agrees(measured, TypeParam(0), qubits, thread_counts));
        }
    }
}

TYPED_TEST(distribution, over_all_qubits_of_a_large_state_is_each_squared_magnitude) {
    std::mt19937 engine(10);
    const unsigned int n = 17;
    const auto state = random_state<TypeParam>(n, Values::unusual);
    const Qubits qubits = random_qubits(n, n, engine);
    std::vector<TypeParam> expected(state.size());
    for (unsigned long i = 0; i < state.size(); ++i) {
        unsigned long position = 0;
        for (unsigned int q : qubits) position = position << 1 | ((i >> q) & 1);
        const TypeParam p = reference::squared_magnitude(state[i]);
        expected[position] = p > 0 ? p : TypeParam(0);
    }
    LoadedVector<TypeParam> v(state);
    for (int threads : thread_counts) {
        v.set_num_threads(threads);
        EXPECT_TRUE(same_bits(expected, distribution_of<TypeParam>(v, qubits))) << threads << " thread(s)";
    }
}

TYPED_TEST(distribution, of_density_matrices_agrees_bit_for_bit) {
    std::mt19937 engine(11);
    for (unsigned int n = 0; n <= 14; ++n) {
        MeasuredState<TypeParam> measured(random_state<TypeParam>(n, Values::unusual), true);
        for (unsigned int k = 0; k <= n / 2; ++k) {
            const Qubits qubits = random_qubits(k, n / 2, engine);
            ASSERT_TRUE(agrees(measured, TypeParam(0), qubits, thread_counts));
            ASSERT_TRUE(agrees(measured, TypeParam(0.4), qubits, thread_counts));
        }
    }
}

TYPED_TEST(distribution, has_the_first_listed_qubit_as_most_significant_bit) {
    // Position 2, binary 10, of {0, 2}: qubit 0 reads 1 and qubit 2 reads 0.
    StateVector<TypeParam> v(3);
    for (unsigned long i = 0; i < 8; ++i) v.amplitudes[i] = TypeParam(i);
    const std::vector<TypeParam> expected = {0 + 4, 16 + 36, 1 + 9, 25 + 49};
    EXPECT_EQ(distribution_of<TypeParam>(v, {0, 2}), expected);
    const std::vector<TypeParam> exchanged = {0 + 4, 1 + 9, 16 + 36, 25 + 49};
    EXPECT_EQ(distribution_of<TypeParam>(v, {2, 0}), exchanged);
}

TYPED_TEST(distribution, writes_a_probability_equal_to_the_squared_threshold_as_0) {
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{TypeParam(0.5), 0}, {TypeParam(0.75), 0}});
    EXPECT_EQ(distribution_of<TypeParam>(v, {0}, TypeParam(0.5)), (std::vector<TypeParam>{0, TypeParam(0.5625)}));
    const TypeParam below = std::nextafter(TypeParam(0.5), TypeParam(0));
    EXPECT_EQ(distribution_of<TypeParam>(v, {0}, below), (std::vector<TypeParam>{TypeParam(0.25), TypeParam(0.5625)}));
}

TYPED_TEST(distribution, with_a_negative_threshold_compares_its_square) {
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{TypeParam(0.5), 0}, {TypeParam(0.75), 0}});
    EXPECT_EQ(distribution_of<TypeParam>(v, {0}, TypeParam(-0.5)), (std::vector<TypeParam>{0, TypeParam(0.5625)}));
}

TYPED_TEST(distribution, of_an_empty_list_writes_the_total_alone) {
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{TypeParam(0.5), 0}, {0, TypeParam(0.75)}});
    EXPECT_EQ(distribution_of<TypeParam>(v, {}), (std::vector<TypeParam>{TypeParam(0.8125)}));
    EXPECT_EQ(distribution_of<TypeParam>(v, {}, 1), (std::vector<TypeParam>{0}));
}

TYPED_TEST(distribution, of_a_density_matrix_sums_negative_real_parts_and_writes_negative_sums_as_0) {
    reference::State<TypeParam> rho(16, {9, 9});
    const TypeParam diagonal[] = {TypeParam(-0.25), TypeParam(0.5), TypeParam(-0.5), TypeParam(0.25)};
    for (unsigned int k = 0; k < 4; ++k) rho[5 * k] = {diagonal[k], 7};
    LoadedVector<TypeParam> v(rho);
    v.is_density_matrix = true;
    EXPECT_EQ(distribution_of<TypeParam>(v, {1}), (std::vector<TypeParam>{TypeParam(0.25), 0}));
    EXPECT_EQ(distribution_of<TypeParam>(v, {0}), (std::vector<TypeParam>{0, TypeParam(0.75)}));
}

TYPED_TEST(distribution, scales_tiny_amplitudes_before_it_squares_them) {
    const TypeParam root = std::sqrt(std::numeric_limits<TypeParam>::min());
    auto state = random_state<TypeParam>(8, Values::ordinary);
    for (auto& a : state) a = {a.re * 2 * root, a.im * 2 * root};
    MeasuredState<TypeParam> measured(state);
    for (const Qubits& qubits : std::vector<Qubits>{{}, {7}, {0, 5}, {6, 3, 1, 7, 0}}) {
        ASSERT_TRUE(agrees(measured, TypeParam(0), qubits, {1, 3}));
    }
}

TYPED_TEST(distribution, writes_a_nan_as_0) {
    const TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{nan, 0}, {1, 0}});
    EXPECT_EQ(distribution_of<TypeParam>(v, {0}), (std::vector<TypeParam>{0, 1}));
}

TYPED_TEST(distribution, equals_one_probability_per_outcome) {
    const Qubits qubits = {5, 0, 16, 9};
    LoadedVector<TypeParam> v(random_state<TypeParam>(18, Values::ordinary), 3);
    const auto all = distribution_of<TypeParam>(v, qubits);
    for (unsigned long outcome = 0; outcome < 16; ++outcome) {
        // The first listed qubit is the highest bit of a position, the lowest of an outcome.
        const unsigned long position =
            (outcome & 1) << 3 | (outcome & 2) << 1 | (outcome & 4) >> 1 | (outcome & 8) >> 3;
        EXPECT_TRUE(same_bits(all[position], v.probability(outcome, qubits))) << "outcome " << outcome;
    }
}

TYPED_TEST(distribution, of_a_dyadic_state_is_the_sequential_sums_to_the_bit_for_every_thread_count) {
    // Every addition is exact, so that its order leaves no trace.
    const unsigned int n = 19;
    const Qubits qubits = {18, 0, 7};
    const auto state = dyadic_state<TypeParam>(n, 3);
    std::vector<TypeParam> sums(8);
    for (unsigned long i = 0; i < state.size(); ++i) {
        const unsigned long position = (i >> 18 & 1) << 2 | (i & 1) << 1 | (i >> 7 & 1);
        sums[position] = sums[position] + (state[i].re * state[i].re + state[i].im * state[i].im);
    }
    LoadedVector<TypeParam> v(state);
    for (int threads : thread_counts) {
        v.set_num_threads(threads);
        EXPECT_TRUE(same_bits(sums, distribution_of<TypeParam>(v, qubits))) << threads << " thread(s)";
    }
}

TYPED_TEST(distribution, of_the_density_matrix_of_a_pure_state_is_that_of_the_state) {
    // The diagonal holds the squared magnitudes themselves, so that the sums have the same bits.
    std::mt19937 engine(12);
    for (unsigned int m = 1; m <= 7; ++m) {
        const auto psi = random_state<TypeParam>(m, Values::ordinary);
        LoadedVector<TypeParam> pure(psi), mixed(density_of(psi));
        mixed.is_density_matrix = true;
        for (unsigned int k = 0; k <= m; ++k) {
            const Qubits qubits = random_qubits(k, m, engine);
            EXPECT_TRUE(same_bits(distribution_of<TypeParam>(pure, qubits), distribution_of<TypeParam>(mixed, qubits)));
        }
    }
}

TYPED_TEST(distribution, does_not_change_the_state) {
    const auto state = random_state<TypeParam>(7, Values::any_bits);
    LoadedVector<TypeParam> v(state);
    distribution_of<TypeParam>(v, {3, 0, 6});
    EXPECT_TRUE(same_bits(state, v.amplitudes.get()));
}

TYPED_TEST(distribution, over_coinciding_qubits_stays_inside_its_buffer) {
    const auto state = random_state<TypeParam>(9, Values::ordinary);
    LoadedVector<TypeParam> v(state, 2);
    for (const Qubits& qubits : std::vector<Qubits>{{0, 0}, {8, 8}, {3, 5, 3}, {1, 1, 1, 1}}) {
        distribution_of<TypeParam>(v, qubits);
        v.probability(1, qubits);
        EXPECT_TRUE(same_bits(state, v.amplitudes.get()));
    }
}
