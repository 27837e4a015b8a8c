#include "reference/observables.hpp"
#include "support/compare.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <bit>

namespace {

using reference::State;

PRECISION_SUITE(ObservableMembers);

template <class T>
WObservable<T> one_term(unsigned long flip, unsigned long phase, thrust::complex<T> weight,
                        thrust::complex<T> constant) {
    return {{weight}, {flip}, {phase}, {static_cast<unsigned int>(std::popcount(flip & phase))}, constant, 0};
}

template <class T>
State<T> normalised_state(unsigned int n) {
    return support::normalised(support::random_state<T>(n, support::Values::ordinary));
}

template <class T>
WObservable<T> random_observable(unsigned int qubits, unsigned int terms) {
    return support::compiled(support::random_sum<T>(qubits, terms, terms, 3));
}

TYPED_TEST(ObservableMembers, no_terms_give_the_constant_and_an_empty_list) {
    using complex = thrust::complex<TypeParam>;
    support::LoadedVector<TypeParam> v(support::random_state<TypeParam>(4, support::Values::ordinary));
    WObservable<TypeParam> observable;
    observable.constant = complex(3, -1);
    for (const bool density_matrix : {false, true}) {
        v.is_density_matrix = density_matrix;
        EXPECT_EQ(v.expectation_value(observable), complex(3, -1));
        EXPECT_TRUE(v.terms_expectations_values(observable).empty());
        EXPECT_TRUE(v.evaluate_terms({}, 10).empty());
    }
}

TYPED_TEST(ObservableMembers, the_constant_belongs_to_the_sum_and_not_to_the_terms) {
    using complex = thrust::complex<TypeParam>;
    support::LoadedVector<TypeParam> v(State<TypeParam>{{1, 0}, {0, 0}});
    const auto observable = one_term<TypeParam>(0, 1, complex(0, 2), complex(5, 7));
    EXPECT_EQ(v.expectation_value(observable), complex(5, 9));
    EXPECT_EQ(v.terms_expectations_values(observable), (std::vector<complex>{complex(0, 2)}));
}

TYPED_TEST(ObservableMembers, terms_are_their_values_times_their_weights_in_term_order) {
    const auto state = normalised_state<TypeParam>(6);
    for (const int threads : support::thread_counts) {
        support::LoadedVector<TypeParam> v(state, threads);
        auto observable = random_observable<TypeParam>(6, 50);
        const auto values = v.terms_expectations_values(observable);
        ASSERT_EQ(values.size(), 50u);
        for (unsigned long t = 0; t < 50; ++t) {
            const auto value = pbamplix::cpu::_term_value(v.amplitudes.get(), observable, v.size, 1, t);
            EXPECT_EQ(values[t], observable.coefficients[t] * value) << t;
        }
    }
}

TYPED_TEST(ObservableMembers, the_sum_of_the_terms_and_the_constant_is_the_expectation_value) {
    const TypeParam tolerance = 200 * std::numeric_limits<TypeParam>::epsilon();
    for (const bool density_matrix : {false, true}) {
        support::LoadedVector<TypeParam> v(normalised_state<TypeParam>(6));
        v.is_density_matrix = density_matrix;
        const auto observable = random_observable<TypeParam>(density_matrix ? 3 : 6, 40);
        thrust::complex<TypeParam> sum = observable.constant;
        for (const auto& value : v.terms_expectations_values(observable)) sum += value;
        const auto whole = v.expectation_value(observable);
        EXPECT_NEAR(whole.real(), sum.real(), tolerance);
        EXPECT_NEAR(whole.imag(), sum.imag(), tolerance);
    }
}

TYPED_TEST(ObservableMembers, the_density_matrix_of_a_pure_state_has_its_values_also_for_y) {
    const TypeParam tolerance = 200 * std::numeric_limits<TypeParam>::epsilon();
    const auto psi = normalised_state<TypeParam>(4);
    support::LoadedVector<TypeParam> pure(psi), mixed(support::density_of(psi));
    mixed.is_density_matrix = true;
    const auto observable = random_observable<TypeParam>(4, 60);
    const auto expected = pure.terms_expectations_values(observable);
    const auto got = mixed.terms_expectations_values(observable);
    for (unsigned long t = 0; t < expected.size(); ++t) {
        EXPECT_NEAR(got[t].real(), expected[t].real(), tolerance) << t;
        EXPECT_NEAR(got[t].imag(), expected[t].imag(), tolerance) << t;
    }
    EXPECT_NEAR(mixed.expectation_value(observable).real(), pure.expectation_value(observable).real(), tolerance);
}

TYPED_TEST(ObservableMembers, reading_values_leaves_the_amplitudes_alone) {
    const auto state = support::random_state<TypeParam>(6, support::Values::unusual);
    support::LoadedVector<TypeParam> v(state, 3);
    (void)v.expectation_value(random_observable<TypeParam>(6, 20));
    (void)v.terms_expectations_values(random_observable<TypeParam>(6, 20));
    EXPECT_TRUE(support::same_bits(state, v.amplitudes.get()));
}

TYPED_TEST(ObservableMembers, sampled_terms_are_pruned_and_drawn_from_the_objects_own_engine) {
    using complex = thrust::complex<TypeParam>;
    for (const bool density_matrix : {false, true}) {
        for (const int threads : support::thread_counts) {
            auto state = normalised_state<TypeParam>(6);
            support::LoadedVector<TypeParam> v(state, threads);
            v.is_density_matrix = density_matrix;
            v.rng.seed(99);
            const std::vector<pbamplix::SimpleTerm<TypeParam>> terms = {{{0, 2, 1}, "XIY", complex(1, 1)},
                                                                        {{2, 0}, "YX", complex(-2, 0)}};
            const auto got = v.evaluate_terms(terms, 500);
            std::mt19937_64 engine(99);
            const auto expected = reference::evaluate_terms<TypeParam>(
                state, {{{0, 2, 1}, "XIY", {1, 1}}, {{2, 0}, "YX", {-2, 0}}}, 500, engine, density_matrix);
            ASSERT_EQ(got.size(), 2u);
            for (unsigned long t = 0; t < 2; ++t) {
                EXPECT_TRUE(
                    support::same_bits(State<TypeParam>{expected[t].mean, expected[t].standard_error}, &got[t].first));
            }
            EXPECT_TRUE(support::same_bits(state, v.amplitudes.get())) << "rotated and rotated back";
            EXPECT_TRUE(v.rng == engine);
            EXPECT_EQ(terms[0].op, "XIY") << "the caller's list stays as it was";
        }
    }
}

TYPED_TEST(ObservableMembers, a_shrunken_state_is_read_to_its_new_size_alone) {
    support::LoadedVector<TypeParam> v(support::random_state<TypeParam>(5, support::Values::ordinary));
    v.resize(3);
    State<TypeParam> prefix(8);
    std::memcpy(prefix.data(), v.amplitudes.get(), 8 * sizeof(prefix[0]));
    const auto value = v.expectation_value(one_term<TypeParam>(5, 3, {1, 0}, {0, 0}));
    EXPECT_NEAR(value.real(), reference::term_value(prefix, {5, 3, 1}), 32 * std::numeric_limits<TypeParam>::epsilon());
}

}  // namespace
