#include "reference/observables.hpp"
#include "support/compare.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <velacamplix/observable.hpp>

#include <bit>
#include <cmath>

namespace {

using reference::PauliString;
using reference::PauliSum;
using reference::State;
using support::amplitudes_of;
using support::compiled;
using support::norm_of;
using support::pauli;

// Sums in another order than the library's differ by rounding: by this much for every number that was added, relative
// to the sum of their magnitudes.
template <class T>
constexpr T rounding = std::numeric_limits<T>::epsilon();

template <class T>
thrust::complex<T> library_value(const State<T>& state, PauliString p, int threads = 1) {
    WObservable<T> observable = compiled(PauliSum<T>{{{1, 0}}, {p}, {0, 0}});
    return pbamplix::cpu::_term_value(amplitudes_of(state), observable, state.size(), threads, 0);
}

PRECISION_SUITE(ExactValues);

TYPED_TEST(ExactValues, an_observable_without_terms_is_its_constant) {
    const auto state = support::random_state<TypeParam>(4, support::Values::ordinary);
    WObservable<TypeParam> observable;
    observable.constant = thrust::complex<TypeParam>(TypeParam(1.5), TypeParam(-2));
    EXPECT_EQ(pbamplix::cpu::_expectation_value(amplitudes_of(state), observable, state.size(), 1),
              observable.constant);
    EXPECT_EQ(pbamplix::cpu::_expectation_value_density_matrix(amplitudes_of(state), observable, 1, 2u),
              observable.constant);
}

TYPED_TEST(ExactValues, on_all_zeros_every_z_is_one_and_every_x_or_y_is_zero) {
    for (unsigned int n = 1; n <= 6; ++n) {
        State<TypeParam> state(1ul << n);
        state[0] = {1, 0};
        for (unsigned int q = 0; q < n; ++q) {
            const unsigned long bit = 1ul << q;
            EXPECT_EQ(library_value(state, pauli(0, bit)), thrust::complex<TypeParam>(1, 0)) << "Z" << q;
            EXPECT_EQ(library_value(state, pauli(bit, 0)), thrust::complex<TypeParam>(0, 0)) << "X" << q;
            EXPECT_EQ(library_value(state, pauli(bit, bit)), thrust::complex<TypeParam>(0, 0)) << "Y" << q;
        }
    }
}

TYPED_TEST(ExactValues, on_one_z_is_minus_one) {
    const State<TypeParam> state = {{0, 0}, {1, 0}};
    EXPECT_EQ(library_value(state, pauli(0, 1)), thrust::complex<TypeParam>(-1, 0));
}

TYPED_TEST(ExactValues, y_on_zero_plus_i_one_is_one) {
    const TypeParam c = std::sqrt(TypeParam(0.5));
    const State<TypeParam> state = {{c, 0}, {0, c}};
    EXPECT_NEAR(library_value(state, pauli(1, 1)).real(), TypeParam(1), 2 * rounding<TypeParam>);
    const State<TypeParam> conjugate = {{c, 0}, {0, -c}};
    EXPECT_NEAR(library_value(conjugate, pauli(1, 1)).real(), TypeParam(-1), 2 * rounding<TypeParam>);
}

TYPED_TEST(ExactValues, a_complex_coefficient_weighs_the_value) {
    const State<TypeParam> state = {{1, 0}, {0, 0}};
    const auto observable = compiled(PauliSum<TypeParam>{{{0, 2}}, {pauli(0, 1)}, {0, 0}});
    EXPECT_EQ(pbamplix::cpu::_expectation_value(amplitudes_of(state), observable, 2, 1),
              thrust::complex<TypeParam>(0, 2));
}

TYPED_TEST(ExactValues, every_string_of_up_to_four_qubits_has_the_value_of_the_literal_sum) {
    for (unsigned int n = 0; n <= 4; ++n) {
        const auto state = support::random_state<TypeParam>(n, support::Values::ordinary, n);
        const TypeParam tolerance = norm_of(state) * static_cast<TypeParam>(state.size()) * rounding<TypeParam>;
        for (unsigned long flip = 0; flip < state.size(); ++flip) {
            for (unsigned long phase = 0; phase < state.size(); ++phase) {
                // Also counts of Y that no string has: then the sum is zero, or of the wrong sign, as written.
                for (unsigned int y = 0; y < 8; ++y) {
                    const auto value = library_value(state, {flip, phase, y});
                    EXPECT_NEAR(value.real(), reference::term_value(state, {flip, phase, y}), tolerance)
                        << "n = " << n << ", flip " << flip << ", phase " << phase << ", y " << y;
                    EXPECT_EQ(value.imag(), TypeParam(0));
                }
            }
        }
    }
}

TYPED_TEST(ExactValues, numbers_that_are_not_finite_reach_the_value_as_the_formula_says) {
    const TypeParam infinity = std::numeric_limits<TypeParam>::infinity();
    const TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    const std::vector<reference::Complex<TypeParam>> unusual = {{infinity, 0}, {0, -infinity}, {nan, 0}, {1, nan}};
    for (const unsigned int n : {2u, 7u, 14u}) {
        for (const auto& bad : unusual) {
            auto state = support::random_state<TypeParam>(n, support::Values::ordinary, 4);
            state[state.size() / 2 + 1] = bad;
            const unsigned long all = state.size() - 1;
            for (const auto& p : {pauli(0, 0), pauli(0, all), pauli(1, 0), pauli(all, 3), pauli(2, 2),
                                  PauliString{0, 1, 1}, PauliString{3, 1, 0}}) {
                const TypeParam expected = reference::term_value(state, p);
                const TypeParam value = library_value(state, p).real();
                EXPECT_EQ(std::isnan(expected), std::isnan(value))
                    << "n = " << n << ", flip " << p.flip << ", phase " << p.phase;
                EXPECT_FALSE(std::isfinite(expected));
            }
        }
    }
}

TYPED_TEST(ExactValues, a_norm_beyond_the_largest_number_is_infinite) {
    auto state = support::random_state<TypeParam>(7, support::Values::ordinary, 4);
    state[70] = {std::numeric_limits<TypeParam>::max(), 0};
    for (const unsigned long phase : {0ul, 2ul, 127ul}) {
        const TypeParam expected = reference::term_value(state, pauli(0, phase));
        ASSERT_TRUE(std::isinf(expected));
        EXPECT_EQ(library_value(state, pauli(0, phase)).real(), expected);
    }
}

TYPED_TEST(ExactValues, the_observable_of_the_caller_is_not_touched) {
    const auto state = support::random_state<TypeParam>(5, support::Values::ordinary);
    const WObservable<TypeParam> observable = compiled(support::random_sum<TypeParam>(5, 20, 3, 1));
    const WObservable<TypeParam> copy = observable;
    (void)pbamplix::cpu::_expectation_value(amplitudes_of(state), observable, state.size(), 1);
    EXPECT_EQ(observable.flip_masks, copy.flip_masks);
    EXPECT_EQ(observable.phase_masks, copy.phase_masks);
    EXPECT_EQ(observable.y_counts, copy.y_counts);
}

TYPED_TEST(ExactValues, a_density_matrix_of_a_pure_state_has_the_values_of_the_pure_state_also_for_y) {
    for (unsigned int m = 1; m <= 5; ++m) {
        const auto psi = support::random_state<TypeParam>(m, support::Values::ordinary, 5);
        const auto rho = support::density_of(psi);
        const TypeParam tolerance = norm_of(psi) * static_cast<TypeParam>(psi.size()) * 4 * rounding<TypeParam>;
        for (unsigned long flip = 0; flip < psi.size(); ++flip) {
            for (unsigned long phase = 0; phase < psi.size(); ++phase) {
                WObservable<TypeParam> term = compiled(PauliSum<TypeParam>{{{1, 0}}, {pauli(flip, phase)}, {0, 0}});
                const auto value = pbamplix::cpu::_term_value_density_matrix(amplitudes_of(rho), term, 1, 0, m);
                EXPECT_NEAR(value.real(), library_value(psi, pauli(flip, phase)).real(), tolerance)
                    << "m = " << m << ", flip " << flip << ", phase " << phase;
                EXPECT_NEAR(value.imag(), TypeParam(0), tolerance);
            }
        }
    }
}

TYPED_TEST(ExactValues, any_matrix_has_the_trace_of_the_literal_sum) {
    for (const unsigned int m : {0u, 1u, 3u, 5u}) {
        const auto rho = support::random_state<TypeParam>(2 * m, support::Values::ordinary, 6);
        const PauliSum<TypeParam> sum = support::random_sum<TypeParam>(m, 60, 5, m);
        const TypeParam tolerance = TypeParam(60 * 2) * static_cast<TypeParam>(1ul << m) * 4 * rounding<TypeParam>;
        const auto expected = reference::expectation_value_density(rho, sum);
        for (const int threads : support::thread_counts) {
            const auto value =
                pbamplix::cpu::_expectation_value_density_matrix(amplitudes_of(rho), compiled(sum), threads, m);
            EXPECT_NEAR(value.real(), expected.re, tolerance);
            EXPECT_NEAR(value.imag(), expected.im, tolerance);
        }
        for (unsigned long t = 0; t < sum.strings.size(); ++t) {
            WObservable<TypeParam> observable = compiled(sum);
            const auto value = pbamplix::cpu::_term_value_density_matrix(amplitudes_of(rho), observable, 2, t, m);
            const auto expected_term = reference::term_value_density(rho, sum.strings[t]);
            EXPECT_NEAR(value.real(), expected_term.re, tolerance);
            EXPECT_NEAR(value.imag(), expected_term.im, tolerance);
        }
    }
}

TYPED_TEST(ExactValues, numbers_that_are_not_finite_reach_the_trace_as_the_formula_says) {
    const TypeParam infinity = std::numeric_limits<TypeParam>::infinity();
    auto rho = support::random_state<TypeParam>(6, support::Values::ordinary, 7);
    rho[8 * 3 + 3] = {infinity, 0};
    const auto expected = reference::term_value_density(rho, pauli(0, 5));
    WObservable<TypeParam> term = compiled(PauliSum<TypeParam>{{{1, 0}}, {pauli(0, 5)}, {0, 0}});
    const auto value = pbamplix::cpu::_term_value_density_matrix(amplitudes_of(rho), term, 1, 0, 3u);
    EXPECT_EQ(std::isnan(expected.re), std::isnan(value.real()));
    EXPECT_EQ(std::isnan(expected.im), std::isnan(value.imag()));
    // A string that does not meet the entry does not see it.
    WObservable<TypeParam> other = compiled(PauliSum<TypeParam>{{{1, 0}}, {pauli(1, 0)}, {0, 0}});
    EXPECT_TRUE(std::isfinite(pbamplix::cpu::_term_value_density_matrix(amplitudes_of(rho), other, 1, 0, 3u).real()));
}

}  // namespace
