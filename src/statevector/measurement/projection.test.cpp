#include "reference/measurement.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/measurement.hpp>

#include <cmath>
#include <limits>

using namespace support;
using reference::Qubits;
using reference::State;

PRECISION_SUITE(projection);

namespace {

template <class T>
State<T> contents(const StateVector<T>& v) {
    State<T> state;
    for (unsigned long i = 0; i < v.size; ++i) state.push_back({v.amplitudes[i].real(), v.amplitudes[i].imag()});
    return state;
}

// project and project_then_reset against the reference, on every thread count.
template <class T>
testing::AssertionResult agrees(const State<T>& state, const Qubits& qubits, unsigned long value,
                                const std::vector<int>& threads = thread_counts) {
    const auto expected = reference::projected(state, qubits, value);
    LoadedVector<T> v(state);
    for (int count : threads) {
        const std::string what =
            "value " + std::to_string(value) + ", " + describe(reference::qubit_count(state.size()), qubits, {}, count);
        v.set_num_threads(count);
        v.load(state);
        try {
            v.project(qubits, value);
            if (!expected) return testing::AssertionFailure() << "no exception; " << what;
        } catch (const std::domain_error&) {
            if (expected) return testing::AssertionFailure() << "an exception; " << what;
            continue;
        }
        if (auto same = same_bits(*expected, v.amplitudes.get()); !same) return same << "\n" << what;
        v.load(state);
        v.project_then_reset(qubits, value);
        const auto moved = reference::moved_to_zero(*expected, qubits, value);
        if (auto same = same_bits(moved, v.amplitudes.get()); !same) return same << "\nthen reset, " << what;
    }
    return testing::AssertionSuccess();
}

}  // namespace

TYPED_TEST(projection, agrees_bit_for_bit_for_every_list_of_up_to_two_qubits) {
    for (unsigned int n = 0; n <= 8; ++n) {
        const auto state = random_state<TypeParam>(n, Values::ordinary);
        ASSERT_TRUE(agrees(state, {}, 0));
        for (unsigned int a = 0; a < n; ++a) {
            for (unsigned long value : {0ul, 1ul}) ASSERT_TRUE(agrees(state, {a}, value));
            for (unsigned int b = 0; b < n; ++b) {
                if (b == a) continue;
                for (unsigned long value = 0; value < 4; ++value) ASSERT_TRUE(agrees(state, {a, b}, value));
            }
        }
    }
}

TYPED_TEST(projection, agrees_bit_for_bit_on_unusual_numbers) {
    std::mt19937 engine(3);
    for (unsigned int n = 1; n <= 10; ++n) {
        for (unsigned int k = 0; k <= n; ++k) {
            const auto state = random_state<TypeParam>(n, Values::unusual, k);
            ASSERT_TRUE(agrees(state, random_qubits(k, n, engine), engine() & ((1ul << k) - 1)));
        }
    }
}

TYPED_TEST(projection, of_large_states_agrees_bit_for_bit_for_every_thread_count) {
    for (unsigned int n : {15u, 18u}) {
        const auto state = random_state<TypeParam>(n, Values::ordinary);
        for (const Qubits& qubits :
             std::vector<Qubits>{{}, {0}, {1}, {2}, {5}, {n - 1}, {0, n - 2}, {1, 0, 2}, {9, 3}}) {
            ASSERT_TRUE(agrees(state, qubits, (1ul << qubits.size()) - 1));
            ASSERT_TRUE(agrees(state, qubits, 0, {3}));
        }
    }
}

TYPED_TEST(projection, of_qubit_0_onto_1_of_an_even_superposition_gives_1) {
    StateVector<TypeParam> v(1);
    v.reset();
    v.apply_H(0);
    v.project({0}, 1);
    EXPECT_EQ(v.amplitudes[0], thrust::complex<TypeParam>(0, 0));
    EXPECT_NEAR(v.amplitudes[1].real(), 1, 4 * std::numeric_limits<TypeParam>::epsilon());
    EXPECT_EQ(v.amplitudes[1].imag(), TypeParam(0));
}

TYPED_TEST(projection, of_1_and_0_onto_2_keeps_qubit_1_at_1_and_qubit_0_at_0) {
    LoadedVector<TypeParam> v(State<TypeParam>(8, {TypeParam(0.25), 0}));
    v.project({1, 0}, 2);
    for (unsigned long i = 0; i < 8; ++i) EXPECT_EQ(v.amplitudes[i] != TypeParam(0), (i & 3) == 2) << i;
}

TYPED_TEST(projection, then_reset_of_qubit_0_onto_1_gives_0) {
    StateVector<TypeParam> v(1);
    v.reset();
    v.apply_H(0);
    v.project_then_reset({0}, 1);
    EXPECT_NEAR(v.amplitudes[0].real(), 1, 4 * std::numeric_limits<TypeParam>::epsilon());
    EXPECT_EQ(v.amplitudes[1], thrust::complex<TypeParam>(0, 0));
}

TYPED_TEST(projection, onto_an_outcome_of_probability_0_throws_and_leaves_every_amplitude_zero) {
    for (unsigned int n : {1u, 3u, 8u, 15u}) {
        for (unsigned int q : {0u, n - 1}) {
            for (int threads : thread_counts) {
                StateVector<TypeParam> v(n);
                v.set_num_threads(threads);
                v.reset();
                try {
                    v.project({q}, 1);
                    ADD_FAILURE() << "no exception";
                } catch (const std::domain_error& error) {
                    EXPECT_STREQ(error.what(), "Cannot project onto an outcome of probability zero");
                }
                EXPECT_TRUE(same_bits(State<TypeParam>(1ul << n), v.amplitudes.get()));
                EXPECT_THROW(v.project_then_reset({q}, 1), std::domain_error);
            }
        }
    }
}

TYPED_TEST(projection, whose_norm_underflows_to_0_leaves_the_kept_amplitudes_as_they_were) {
    const TypeParam tiny = std::numeric_limits<TypeParam>::denorm_min();
    LoadedVector<TypeParam> v(State<TypeParam>{{1, 0}, {tiny, -tiny}, {0, 1}, {0, tiny}});
    EXPECT_THROW(v.project({0}, 1), std::domain_error);
    EXPECT_TRUE(same_bits(State<TypeParam>{{0, 0}, {tiny, -tiny}, {0, 0}, {0, tiny}}, v.amplitudes.get()));
}

TYPED_TEST(projection, with_a_nan_norm_goes_on_and_makes_every_amplitude_nan) {
    for (unsigned int n : {1u, 2u, 4u, 16u}) {
        State<TypeParam> state(1ul << n, {TypeParam(0.5), 0});
        state.back().im = std::numeric_limits<TypeParam>::quiet_NaN();
        for (unsigned int q : {0u, n - 1}) {
            LoadedVector<TypeParam> v(state, 2);
            v.project({q}, 1);
            unsigned long numbers = 0;
            for (const auto& a : contents(v)) numbers += !std::isnan(a.re) + !std::isnan(a.im);
            EXPECT_EQ(numbers, 0ul) << n << " qubits, onto qubit " << q;
        }
    }
}

TYPED_TEST(projection, over_an_empty_list_keeps_every_amplitude_and_renormalises) {
    LoadedVector<TypeParam> v(State<TypeParam>(16, {TypeParam(0.5), 0}));  // norm 4
    v.project({}, 0);
    EXPECT_TRUE(same_bits(State<TypeParam>(16, {TypeParam(0.25), 0}), v.amplitudes.get()));
}

TYPED_TEST(projection, then_reset_leaves_the_projected_state_where_the_list_s_own_bits_are_0) {
    const auto state = random_state<TypeParam>(5, Values::ordinary);
    for (const auto& [qubits, value] : std::vector<std::pair<Qubits, unsigned long>>{{{}, 1}, {{2}, 2}, {{3, 1}, 12}}) {
        LoadedVector<TypeParam> v(state);
        v.project_then_reset(qubits, value);
        EXPECT_TRUE(same_bits(*reference::projected(state, qubits, 0), v.amplitudes.get())) << describe(qubits);
    }
}

TYPED_TEST(projection, ignores_the_bits_of_the_value_above_the_list) {
    const auto state = random_state<TypeParam>(5, Values::ordinary);
    LoadedVector<TypeParam> v(state);
    v.project({3, 1}, 4 + 2);
    EXPECT_TRUE(same_bits(*reference::projected(state, {3, 1}, 2), v.amplitudes.get()));
}

TYPED_TEST(projection, treats_a_density_matrix_like_a_state_over_its_stored_qubits) {
    const auto state = random_state<TypeParam>(6, Values::ordinary);
    LoadedVector<TypeParam> v(state);
    v.is_density_matrix = true;
    v.project({5, 0}, 1);
    EXPECT_TRUE(same_bits(*reference::projected(state, {5, 0}, 1), v.amplitudes.get()));
}

TYPED_TEST(projection, is_idempotent) {
    // Exactly so where the norm is exact: 16 kept amplitudes of the same magnitude.
    State<TypeParam> state(32, {TypeParam(0.125), 0});
    for (unsigned int i = 0; i < 32; ++i) state[i].re *= i % 3 ? TypeParam(1) : TypeParam(-1);
    LoadedVector<TypeParam> v(state);
    v.project({2}, 1);
    const auto once = contents(v);
    v.project({2}, 1);
    EXPECT_TRUE(same_bits(once, v.amplitudes.get()));

    const TypeParam tolerance = 8 * std::numeric_limits<TypeParam>::epsilon();
    LoadedVector<TypeParam> w(random_state<TypeParam>(9, Values::ordinary));
    w.project({4, 8}, 2);
    const auto first = contents(w);
    w.project({4, 8}, 2);
    for (unsigned long i = 0; i < 512; ++i) {
        EXPECT_NEAR(w.amplitudes[i].real(), first[i].re, tolerance);
        EXPECT_NEAR(w.amplitudes[i].imag(), first[i].im, tolerance);
    }
}

TYPED_TEST(projection, gives_the_sequential_sum_s_bits_on_dyadic_states_for_every_thread_count) {
    State<TypeParam> state(1ul << 18);
    for (unsigned long i = 0; i < state.size(); ++i) state[i] = {TypeParam(i % 4) / 1024, TypeParam(i % 3) / 1024};
    TypeParam norm = 0;
    for (const auto& a : state) norm += a.re * a.re + a.im * a.im;
    State<TypeParam> expected;
    for (const auto& a : state) expected.push_back({a.re / std::sqrt(norm), a.im / std::sqrt(norm)});
    for (int threads : thread_counts) {
        LoadedVector<TypeParam> v(state, threads);
        v.project({}, 0);
        EXPECT_TRUE(same_bits(expected, v.amplitudes.get())) << threads << " thread(s)";
    }
}

TYPED_TEST(projection, stays_inside_an_array_that_lies_off_its_boundary) {
    for (unsigned int n = 0; n <= 9; ++n) {
        const auto state = random_state<TypeParam>(n, Values::ordinary);
        for (unsigned int q = 0; q < n; ++q) {
            // A qubit listed twice means the same when both entries agree.
            for (const Qubits& qubits : std::vector<Qubits>{{q}, {q, q}}) {
                GuardedArray<TypeParam> array(state, 1);
                pbamplix::cpu::_project(array.data(), state.size(), qubits, (1ul << qubits.size()) - 1, 2);
                EXPECT_TRUE(array.fences_stand());
                EXPECT_TRUE(same_bits(*reference::projected(state, {q}, 1), array.data()));
            }
        }
    }
}
