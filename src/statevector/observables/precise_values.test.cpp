#include "statevector/observables/sampled_values.hpp"

#include "reference/observables.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/widened.hpp"

#include <velacamplix/observable.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <type_traits>

// Values of either precision's state, formed and summed in double: bit for bit those of the same numbers in double.

namespace {

using reference::PauliSum;
using reference::State;
using support::amplitudes_of;
using support::compiled;
using support::widened;

// The same bits, or both not a number.
void expect_same(double expected, double got, const std::string& what) {
    if (std::isnan(expected) && std::isnan(got)) return;
    EXPECT_TRUE(support::same_bits(expected, got)) << what;
}

PRECISION_SUITE(PreciseValues);

TYPED_TEST(PreciseValues, terms_are_those_of_the_widened_state_bit_for_bit) {
    for (const unsigned int n : {0u, 1u, 2u, 3u, 5u, 8u, 11u, 13u, 15u}) {
        for (const auto values : {support::Values::ordinary, support::Values::unusual}) {
            const auto state = support::random_state<TypeParam>(n, values, 2);
            const auto wide = widened(state);
            for (const unsigned int flips : {1u, 4u, 30u}) {
                const PauliSum<double> sum = support::random_sum<double>(n, 30, flips, n + flips);
                for (const int threads : support::thread_counts) {
                    const auto got =
                        pbamplix::cpu::term_values(amplitudes_of(state), compiled(sum), state.size(), threads);
                    ASSERT_EQ(got.size(), sum.strings.size());
                    for (std::size_t t = 0; t < got.size(); ++t) {
                        WObservable<double> whole = compiled(sum);
                        const auto value =
                            pbamplix::cpu::_term_value(amplitudes_of(wide), whole, wide.size(), threads, t);
                        const auto expected = whole.coefficients[t] * value.real();
                        const std::string what = std::to_string(n) + " qubits, term " + std::to_string(t);
                        expect_same(expected.real(), got[t].real(), what);
                        expect_same(expected.imag(), got[t].imag(), what);
                    }
                }
            }
        }
    }
}

TYPED_TEST(PreciseValues, terms_have_the_bits_of_the_documented_tree_in_double) {
    std::mt19937_64 engine(4);
    for (const unsigned int n : {1u, 4u, 9u, 14u, 17u}) {
        const auto state = support::random_state<TypeParam>(n, support::Values::ordinary, 9);
        for (int trial = 0; trial < 12; ++trial) {
            const unsigned long all = state.size() - 1;
            const auto string = support::pauli(engine() & all, engine() & all);
            const auto sum = compiled(PauliSum<double>{{{1, 0}}, {string}, {0, 0}});
            const auto got = pbamplix::cpu::term_values(amplitudes_of(state), sum, state.size(), 2);
            const double expected = reference::term_value_by_tree(widened(state), string);
            ASSERT_TRUE(support::same_bits(expected, got.front().real())) << n << " qubits";
        }
    }
}

TYPED_TEST(PreciseValues, of_a_density_matrix_are_those_of_the_widened_matrix) {
    for (const unsigned int m : {0u, 1u, 3u, 5u}) {
        const auto rho = support::random_state<TypeParam>(2 * m, support::Values::ordinary, 6);
        const auto wide = widened(rho);
        const PauliSum<double> sum = support::random_sum<double>(m, 40, 5, m);
        const WObservable<double> whole = compiled(sum);
        for (const int threads : support::thread_counts) {
            const auto got = pbamplix::cpu::term_values_density_matrix(amplitudes_of(rho), whole, threads, m);
            ASSERT_EQ(got.size(), sum.strings.size());
            for (std::size_t t = 0; t < got.size(); ++t) {
                WObservable<double> copy = whole;
                const auto value = pbamplix::cpu::_term_value_density_matrix(amplitudes_of(wide), copy, threads, t, m);
                const auto expected = whole.coefficients[t] * value;
                ASSERT_TRUE(support::same_bits(expected.real(), got[t].real()));
                ASSERT_TRUE(support::same_bits(expected.imag(), got[t].imag()));
            }
        }
    }
}

TYPED_TEST(PreciseValues, an_observable_without_terms_has_none) {
    const auto state = support::random_state<TypeParam>(3, support::Values::ordinary);
    EXPECT_TRUE(pbamplix::cpu::term_values(amplitudes_of(state), WObservable<double>{}, 8, 1).empty());
    EXPECT_TRUE(pbamplix::cpu::term_values_density_matrix(amplitudes_of(state), WObservable<double>{}, 1, 1u).empty());
}

template <class T>
auto as_fractions(thrust::complex<T>* state, const std::vector<pbamplix::SimpleTerm<double>>& terms,
                  unsigned long shots, std::mt19937_64& engine, unsigned int n, int threads) {
    using namespace velacamplix::observables;
    return sampled_values(state, terms, shots, engine, n, threads, false, draw_as::fractions);
}

// Up to rounding of the rotations: a term in Z alone needs none.
TYPED_TEST(PreciseValues, sampled_terms_in_z_are_those_of_the_widened_state) {
    const auto state = support::normalised(support::random_state<TypeParam>(8, support::Values::ordinary, 3));
    const std::vector<pbamplix::SimpleTerm<double>> terms = {
        {{0}, "Z", {0.1, 2}}, {{7, 2}, "ZZ", {-1.5, 0}}, {{1, 6, 4, 3, 5}, "ZZZZZ", {3, 1e300}}, {{}, "", {4, 0}}};
    auto wide = widened(state);
    double total = 0;
    for (const auto& a : wide) total += a.re * a.re + a.im * a.im;
    for (auto& a : wide) a = {a.re / std::sqrt(total), a.im / std::sqrt(total)};

    for (const int threads : support::thread_counts) {
        support::GuardedArray<TypeParam> given(state);
        support::GuardedArray<double> expected_state(wide);
        std::mt19937_64 engine(2), expected_engine(2);
        const auto got = as_fractions(given.data(), terms, 5000, engine, 8, threads);
        const auto expected =
            pbamplix::cpu::_evaluate_terms(expected_state.data(), terms, 5000, expected_engine, 8, threads, false);
        ASSERT_EQ(got.size(), terms.size());
        EXPECT_TRUE(engine == expected_engine);
        for (std::size_t t = 0; t < terms.size(); ++t) {
            EXPECT_EQ(got[t].first, expected[t].first) << t;
            EXPECT_EQ(got[t].second, expected[t].second) << t;
        }
        EXPECT_TRUE(support::same_bits(state, given.data()));
    }
}

TYPED_TEST(PreciseValues, sampled_terms_are_near_the_exact_ones_and_the_state_comes_back) {
    const auto state = support::normalised(support::random_state<TypeParam>(6, support::Values::ordinary, 8));
    const std::vector<pbamplix::SimpleTerm<double>> terms = {{{0, 3}, "XY", {1, 0}}, {{5, 2, 1}, "ZXY", {-2, 0}}};
    const auto exact = pbamplix::cpu::term_values(
        amplitudes_of(state),
        compiled(PauliSum<double>{{{1, 0}, {-2, 0}}, {support::pauli(9, 8), support::pauli(6, 34)}, {0, 0}}),
        state.size(), 1);
    support::GuardedArray<TypeParam> given(state);
    std::mt19937_64 engine(5);
    const auto got = as_fractions(given.data(), terms, 40'000, engine, 6, 2);
    for (std::size_t t = 0; t < terms.size(); ++t) {
        EXPECT_NEAR(got[t].first.real(), exact[t].real(), 5 * std::abs(got[t].second.real()));
        EXPECT_GT(std::abs(got[t].second.real()), 0.001);
    }
    for (std::size_t i = 0; i < state.size(); ++i) {
        EXPECT_NEAR(given.data()[i].real(), state[i].re, 20 * std::numeric_limits<TypeParam>::epsilon());
    }
}

using Terms = std::vector<pbamplix::SimpleTerm<double>>;

Terms some_terms() {
    return {{{0}, "Z", {0.1, 2}}, {{7, 2}, "XY", {-1.5, 0}}, {{1, 6, 4, 3, 5}, "YZXYX", {3, 1e300}}, {{}, "", {4, 0}}};
}

// Where numbers are taken as they are the terms are those of _evaluate_terms.
TYPED_TEST(PreciseValues, terms_of_any_norm_are_sampled_as_fractions_unless_a_double_state_is_normalised) {
    const auto state = support::normalised(support::random_state<TypeParam>(8, support::Values::ordinary, 3));
    for (const double factor : {1.0, 1 + 4e-10, 1 + 2e-9, 0.3, 1e9}) {
        auto given = state;
        for (auto& a : given) {
            a = {static_cast<TypeParam>(static_cast<double>(a.re) * factor),
                 static_cast<TypeParam>(static_cast<double>(a.im) * factor)};
        }
        const bool fractions = std::is_same_v<TypeParam, float> || std::abs(factor - 1) > 1e-9;
        for (const int threads : support::thread_counts) {
            support::GuardedArray<TypeParam> first(given), second(given);
            std::mt19937_64 engine(2), other_engine(2);
            const auto got =
                pbamplix::cpu::evaluate_terms_of_any_norm(first.data(), some_terms(), 3000, engine, 8, threads);
            std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> expected;
            if (fractions) {
                expected = as_fractions(second.data(), some_terms(), 3000, other_engine, 8, threads);
            } else if constexpr (std::is_same_v<TypeParam, double>) {
                expected =
                    pbamplix::cpu::_evaluate_terms(second.data(), some_terms(), 3000, other_engine, 8, threads, false);
            }
            EXPECT_EQ(got, expected) << factor;
            EXPECT_TRUE(engine == other_engine);
            EXPECT_EQ(std::memcmp(first.data(), second.data(), sizeof(thrust::complex<TypeParam>) << 8), 0) << factor;
        }
    }
}

TYPED_TEST(PreciseValues, terms_of_a_state_without_a_total_are_refused_before_anything_happens) {
    for (const TypeParam odd :
         {TypeParam(0), std::numeric_limits<TypeParam>::quiet_NaN(), std::numeric_limits<TypeParam>::infinity()}) {
        State<TypeParam> state(256, {odd == 0 ? odd : TypeParam(0.0625), 0});
        state[100] = {odd, 0};
        support::GuardedArray<TypeParam> given(state);
        std::mt19937_64 engine(2);
        EXPECT_THROW(pbamplix::cpu::evaluate_terms_of_any_norm(given.data(), some_terms(), 10, engine, 8, 2),
                     std::domain_error);
        EXPECT_TRUE(engine == std::mt19937_64(2));
        EXPECT_TRUE(support::same_bits(state, given.data()));
    }
}

// Wherever the call is ended, the state is turned back.
TYPED_TEST(PreciseValues, a_hook_hears_of_every_shot_and_may_end_the_call_anywhere) {
    const auto state = support::normalised(support::random_state<TypeParam>(8, support::Values::ordinary, 3));
    const unsigned long shots = (1ul << 18) + 100;
    const unsigned long all = some_terms().size() * shots;
    std::vector<unsigned long> heard;
    const auto listen = [&](unsigned long done, unsigned long told) {
        EXPECT_EQ(told, all);
        heard.push_back(done);
    };
    support::GuardedArray<TypeParam> given(state);
    std::mt19937_64 engine(2);
    pbamplix::cpu::evaluate_terms_of_any_norm(given.data(), some_terms(), shots, engine, 8, 1, listen);
    EXPECT_TRUE(std::is_sorted(heard.begin(), heard.end()));
    EXPECT_EQ(heard.back(), all);
    ASSERT_GT(heard.size(), 12u);  // passes of basis changes, tables, two pieces of shots

    for (std::size_t last = 1; last <= heard.size(); ++last) {
        std::size_t calls = 0;
        const auto stop = [&](unsigned long, unsigned long) {
            if (++calls == last) throw std::runtime_error("enough");
        };
        support::GuardedArray<TypeParam> stopped(state);
        const std::mt19937_64 before = engine;
        EXPECT_THROW(pbamplix::cpu::evaluate_terms_of_any_norm(stopped.data(), some_terms(), shots, engine, 8, 1, stop),
                     std::runtime_error);
        EXPECT_EQ(calls, last);
        EXPECT_TRUE(engine == before);
        for (std::size_t i = 0; i < state.size(); ++i) {
            ASSERT_NEAR(stopped.data()[i].real(), state[i].re, 20 * std::numeric_limits<TypeParam>::epsilon()) << last;
            ASSERT_NEAR(stopped.data()[i].imag(), state[i].im, 20 * std::numeric_limits<TypeParam>::epsilon()) << last;
        }
    }
}

TYPED_TEST(PreciseValues, a_hook_hears_of_every_term_and_may_end_the_call) {
    const auto state = support::random_state<TypeParam>(18, support::Values::ordinary);
    PauliSum<double> sum;
    for (unsigned long flip = 0; flip < 50; ++flip) {
        sum.coefficients.push_back({1, 0});
        sum.strings.push_back(support::pauli(flip << 12, flip));
    }
    const auto observable = compiled(sum);
    std::vector<unsigned long> heard;
    const auto listen = [&](unsigned long done, unsigned long all) {
        EXPECT_EQ(all, 50u);
        heard.push_back(done);
    };
    const auto values = pbamplix::cpu::term_values(amplitudes_of(state), observable, state.size(), 2, listen);
    EXPECT_EQ(values, pbamplix::cpu::term_values(amplitudes_of(state), observable, state.size(), 2));
    EXPECT_TRUE(std::is_sorted(heard.begin(), heard.end()));
    EXPECT_EQ(heard.back(), 50u);
    ASSERT_GT(heard.size(), 5u);
    const auto stop = [&](unsigned long, unsigned long) { throw std::runtime_error("enough"); };
    EXPECT_THROW(pbamplix::cpu::term_values(amplitudes_of(state), observable, state.size(), 2, stop),
                 std::runtime_error);
}

// What it is for: 2^20 equal products beside a large one.
TEST(PreciseValuesOfSinglePrecision, products_smaller_than_the_last_place_are_summed) {
    State<float> state(1ul << 20, {0x1p-13f, 0});
    const double rest = std::ldexp(static_cast<double>(state.size() - 1), -26);
    state[0] = {static_cast<float>(std::sqrt(1 - rest)), 0};
    const auto sum = compiled(PauliSum<double>{{{1, 0}}, {support::pauli(0, 0)}, {0, 0}});
    const auto got = pbamplix::cpu::term_values(amplitudes_of(state), sum, state.size(), 2);
    const double exact = rest + static_cast<double>(state[0].re) * static_cast<double>(state[0].re);
    EXPECT_NEAR(got.front().real(), exact, 1e-14);
}

}  // namespace
