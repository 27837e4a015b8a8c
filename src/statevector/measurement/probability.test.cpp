#include "reference/probabilities.hpp"
#include "support/compare.hpp"
#include "support/measured_state.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"

#include <limits>

using namespace support;
using pbamplix::cpu::cumulative_probability;
using reference::Qubits;

PRECISION_SUITE(probability);

namespace {

unsigned long placed(unsigned long value, const Qubits& qubits) {
    unsigned long fixed = 0;
    for (unsigned long j = 0; j < qubits.size(); ++j) fixed |= ((value >> j) & 1) << qubits[j];
    return fixed;
}

// Both entrances, the free function and the member, for every thread count.
template <class T>
testing::AssertionResult agrees(MeasuredState<T>& measured, unsigned long outcome, const Qubits& qubits,
                                const std::vector<int>& threads) {
    const T expected = reference::probability(measured.view(), outcome, qubits);
    for (int count : threads) {
        const T summed = measured.read(
            [&](auto seq) { return cumulative_probability(seq, placed(outcome, qubits), qubits, count); });
        if (auto same = same_bits(expected, summed); !same) {
            return same << "\ncumulative_probability, " << measured.describe(qubits, count);
        }
        measured.vector().set_num_threads(count);
        if (auto same = same_bits(expected, measured.vector().probability(outcome, qubits)); !same) {
            return same << "\nprobability of " << outcome << ", " << measured.describe(qubits, count);
        }
    }
    return testing::AssertionSuccess();
}

}  // namespace

TYPED_TEST(probability, agrees_bit_for_bit_for_every_outcome_of_any_list) {
    std::mt19937 engine(6);
    for (const Values values : {Values::ordinary, Values::unusual}) {
        for (unsigned int n = 0; n <= 12; ++n) {
            MeasuredState<TypeParam> measured(random_state<TypeParam>(n, values));
            for (unsigned int k = 0; k <= n; ++k) {
                const Qubits qubits = random_qubits(k, n, engine);
                for (int trial = 0; trial < 6; ++trial) {
                    ASSERT_TRUE(agrees(measured, engine() % (1ul << k), qubits, thread_counts));
                }
            }
        }
    }
}

TYPED_TEST(probability, of_large_states_agrees_bit_for_bit_for_every_thread_count) {
    std::mt19937 engine(7);
    for (unsigned int n : {17u, 18u, 19u}) {
        MeasuredState<TypeParam> measured(random_state<TypeParam>(n, Values::ordinary));
        for (const Qubits& qubits : std::vector<Qubits>{{}, {0}, {n - 1}, {n / 2}, {1, n - 2}, {n - 1, 0, 5}}) {
            ASSERT_TRUE(agrees(measured, engine() % (1ul << qubits.size()), qubits, thread_counts));
        }
    }
}

TYPED_TEST(probability, of_density_matrices_agrees_bit_for_bit) {
    std::mt19937 engine(8);
    for (unsigned int n = 0; n <= 13; ++n) {
        const unsigned int m = n / 2;
        MeasuredState<TypeParam> measured(random_state<TypeParam>(n, Values::unusual), true);
        for (unsigned int k = 0; k <= m; ++k) {
            const Qubits qubits = random_qubits(k, m, engine);
            for (int trial = 0; trial < 4; ++trial) {
                ASSERT_TRUE(agrees(measured, engine() % (1ul << k), qubits, thread_counts));
            }
        }
    }
}

TYPED_TEST(probability, has_the_first_listed_qubit_as_least_significant_bit) {
    // Outcome 1 of {0, 2}: qubit 0 reads 1, qubit 2 reads 0, qubit 1 is free: indices 1 and 3.
    StateVector<TypeParam> v(3);
    for (unsigned long i = 0; i < 8; ++i) v.amplitudes[i] = TypeParam(i);
    EXPECT_EQ(v.probability(1, Qubits{0, 2}), TypeParam(1 + 9));
    EXPECT_EQ(v.probability(2, Qubits{0, 2}), TypeParam(16 + 36));
    EXPECT_EQ(v.probability(1, Qubits{2, 0}), TypeParam(16 + 36));
}

TYPED_TEST(probability, without_a_list_is_that_of_one_basis_state) {
    const auto state = random_state<TypeParam>(5, Values::unusual);
    LoadedVector<TypeParam> v(state);
    for (unsigned long i = 0; i < 32; ++i) {
        // Added to a sum of 0.
        EXPECT_TRUE(same_bits(TypeParam(0) + reference::squared_magnitude(state[i]), v.probability(i)))
            << "index " << i;
    }
    StateVector<TypeParam> none(0);
    none.reset();
    EXPECT_EQ(none.probability(0), TypeParam(1));
}

TYPED_TEST(probability, of_an_empty_list_is_the_total) {
    const auto state = random_state<TypeParam>(6, Values::ordinary);
    LoadedVector<TypeParam> v(state);
    EXPECT_TRUE(same_bits(reference::probability(reference::state_view(state), 0, {}), v.probability(0, Qubits{})));
}

TYPED_TEST(probability, of_a_density_matrix_sums_negative_real_parts_as_they_stand) {
    // rho = diag(-0.25, 0.5, 0.5, 0.25), with imaginary parts that must not count.
    reference::State<TypeParam> rho(16, {9, 9});
    const TypeParam diagonal[] = {TypeParam(-0.25), TypeParam(0.5), TypeParam(0.5), TypeParam(0.25)};
    for (unsigned int k = 0; k < 4; ++k) rho[5 * k] = {diagonal[k], 7};
    LoadedVector<TypeParam> v(rho);
    v.is_density_matrix = true;
    EXPECT_EQ(v.probability(0, Qubits{1}), TypeParam(0.25));
    EXPECT_EQ(v.probability(0, Qubits{0}), TypeParam(0.25));
    EXPECT_EQ(v.probability(0, Qubits{0, 1}), TypeParam(-0.25));
    EXPECT_EQ(v.probability(0, Qubits{}), TypeParam(1));
}

TYPED_TEST(probability, without_a_list_of_a_density_matrix_covers_the_qubits_of_the_view) {
    const auto rho = random_state<TypeParam>(6, Values::ordinary);
    LoadedVector<TypeParam> v(rho);
    v.is_density_matrix = true;
    for (unsigned long k = 0; k < 8; ++k) {
        EXPECT_TRUE(same_bits(TypeParam(0) + rho[k * 9].re, v.probability(k))) << "basis state " << k;
    }
}

TYPED_TEST(probability, scales_tiny_amplitudes_before_it_squares_them) {
    // Squared as they are, these would fall below the smallest number or lose their last bits.
    const TypeParam root = std::sqrt(std::numeric_limits<TypeParam>::min());
    for (const TypeParam part : {root, root / 2, std::nextafter(root, TypeParam(0)), root / 3, root / 1000,
                                 std::numeric_limits<TypeParam>::min(), TypeParam(0)}) {
        for (const TypeParam other : {TypeParam(0), -part, root, TypeParam(1)}) {
            const reference::State<TypeParam> state = {{part, other}, {other, -part}};
            LoadedVector<TypeParam> v(state);
            EXPECT_TRUE(same_bits(reference::squared_magnitude(state[0]), v.probability(0))) << part << " " << other;
            EXPECT_TRUE(same_bits(reference::squared_magnitude(state[1]), v.probability(1))) << other << " " << -part;
        }
    }
}

TYPED_TEST(probability, scales_tiny_amplitudes_also_where_many_are_read_together) {
    const TypeParam root = std::sqrt(std::numeric_limits<TypeParam>::min());
    auto state = random_state<TypeParam>(8, Values::ordinary);
    for (unsigned long i = 0; i < state.size(); ++i) {
        if (i % 3 != 0) state[i].re *= 2 * root;
        if (i % 5 != 0) state[i].im *= 2 * root;
    }
    MeasuredState<TypeParam> measured(state);
    for (const Qubits& qubits : std::vector<Qubits>{{}, {7}, {0, 5}, {0, 1, 2, 3, 4, 5, 6, 7}}) {
        for (unsigned long outcome = 0; outcome < (1ul << qubits.size()); ++outcome) {
            ASSERT_TRUE(agrees(measured, outcome, qubits, {1}));
        }
    }
}

TYPED_TEST(probability, of_a_dyadic_state_is_the_sequential_sum_to_the_bit_for_every_thread_count) {
    // Every addition is exact, so that its order leaves no trace.
    const unsigned int n = 18;
    const auto state = dyadic_state<TypeParam>(n, 2);
    LoadedVector<TypeParam> v(state);
    for (const Qubits& qubits : std::vector<Qubits>{{}, {n - 1}, {0}, {5, 11}}) {
        const unsigned long outcome = (1ul << qubits.size()) - 1;
        TypeParam sum = 0;
        for (unsigned long i = 0; i < state.size(); ++i) {
            const unsigned long all = placed(outcome, qubits);
            if ((i & all) == all) sum = sum + (state[i].re * state[i].re + state[i].im * state[i].im);
        }
        for (int threads : thread_counts) {
            v.set_num_threads(threads);
            EXPECT_TRUE(same_bits(sum, v.probability(outcome, qubits))) << describe(qubits) << ", " << threads;
        }
    }
}

TYPED_TEST(probability, of_negative_zeros_is_positive_zero) {
    reference::State<TypeParam> rho(4, {-TypeParam(0), 0});
    LoadedVector<TypeParam> v(rho);
    v.is_density_matrix = true;
    EXPECT_TRUE(same_bits(TypeParam(0), v.probability(0, Qubits{})));
    EXPECT_TRUE(same_bits(TypeParam(0), v.probability(0, Qubits{0})));
}

TYPED_TEST(probability, does_not_change_the_state) {
    const auto state = random_state<TypeParam>(7, Values::any_bits);
    LoadedVector<TypeParam> v(state);
    v.probability(1, Qubits{3, 0});
    v.probability(5);
    EXPECT_TRUE(same_bits(state, v.amplitudes.get()));
}

TEST(read_views, hold_pointer_qubits_and_dimension_in_order) {
    using State = pbamplix::SVSequence<thrust::complex<double>>;
    using Diagonal = pbamplix::DMDiagSequence<float>;
    static_assert(std::is_same_v<State::proba_type, double> && std::is_same_v<Diagonal::proba_type, float>);
    static_assert(std::is_same_v<decltype(State::nqubits), unsigned int>);
    static_assert(std::is_same_v<decltype(State::dim), unsigned long>);
    static_assert(std::is_trivially_copyable_v<State> && std::is_trivially_copyable_v<Diagonal>);
    static_assert(sizeof(State) == 24 && sizeof(Diagonal) == 24);
    static_assert(offsetof(State, data) == 0 && offsetof(State, nqubits) == 8 && offsetof(State, dim) == 16);
    static_assert(offsetof(Diagonal, data) == 0 && offsetof(Diagonal, nqubits) == 8 && offsetof(Diagonal, dim) == 16);
}
