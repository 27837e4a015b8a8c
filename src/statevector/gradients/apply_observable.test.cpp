#include <velacamplix/gradient.hpp>

#include "support/compare.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <gtest/gtest.h>

#include <complex>

using namespace support;
using pbamplix::cpu::apply_observable;

PRECISION_SUITE(observable_applied);

namespace {

// Some units in the last place, of sums of 40 terms.
template <class T>
constexpr double tolerance = sizeof(T) == 4 ? 1e-5 : 1e-13;

template <class T>
std::vector<std::complex<double>> naive(const reference::State<T>& psi, const reference::PauliSum<double>& sum) {
    const std::complex<double> phases[] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
    std::vector<std::complex<double>> result(psi.size());
    for (unsigned long j = 0; j < psi.size(); ++j) {
        const std::complex<double> a(static_cast<double>(psi[j].re), static_cast<double>(psi[j].im));
        result[j] += a * std::complex<double>(sum.constant.re, sum.constant.im);
        for (std::size_t t = 0; t < sum.strings.size(); ++t) {
            const auto& s = sum.strings[t];
            const double sign = std::popcount(j & s.phase) % 2 == 0 ? 1 : -1;
            const std::complex<double> c(sum.coefficients[t].re, sum.coefficients[t].im);
            result[j ^ s.flip] += a * c * sign * phases[s.y_count & 3];
        }
    }
    return result;
}

}  // namespace

TYPED_TEST(observable_applied, is_the_sum_of_its_terms_for_every_number_of_threads) {
    using T = TypeParam;
    for (const unsigned int n : {1u, 2u, 3u, 4u, 6u, 9u, 14u, 17u}) {
        const auto psi = random_state<T>(n, Values::ordinary, n);
        const auto sum = random_sum<double>(n, n > 10 ? 12 : 40, 5, n);
        const auto expected = naive(psi, sum);
        reference::State<T> first(psi.size());
        for (const int threads : thread_counts) {
            reference::State<T> out(psi.size());
            auto* const to = reinterpret_cast<thrust::complex<T>*>(out.data());
            apply_observable(amplitudes_of(psi), compiled(sum), n, threads, to);
            for (unsigned long i = 0; i < psi.size(); ++i) {
                ASSERT_NEAR(static_cast<double>(out[i].re), expected[i].real(), tolerance<T>) << n << " qubits, " << i;
                ASSERT_NEAR(static_cast<double>(out[i].im), expected[i].imag(), tolerance<T>) << n << " qubits, " << i;
            }
            if (threads == 1) first = out;
            EXPECT_TRUE(same_bits(first, to)) << n << " qubits, " << threads << " threads";
        }
    }
}

// Signs that depend on few parities of the index, and on many; real and imaginary parts.
TYPED_TEST(observable_applied, may_have_many_terms_of_one_flip) {
    using T = TypeParam;
    for (const unsigned int n : {3u, 5u, 11u, 13u, 15u}) {
        const auto psi = random_state<T>(n, Values::ordinary, n);
        for (const unsigned int terms : {3u, 9u, 12u, 60u}) {
            const auto sum = random_sum<double>(n, terms, 2, n + terms);
            const auto expected = naive(psi, sum);
            reference::State<T> first(psi.size());
            for (const int threads : thread_counts) {
                reference::State<T> out(psi.size());
                auto* const to = reinterpret_cast<thrust::complex<T>*>(out.data());
                apply_observable(amplitudes_of(psi), compiled(sum), n, threads, to);
                for (unsigned long i = 0; i < psi.size(); ++i) {
                    ASSERT_NEAR(static_cast<double>(out[i].re), expected[i].real(), 2 * tolerance<T>) << n << ", " << i;
                    ASSERT_NEAR(static_cast<double>(out[i].im), expected[i].imag(), 2 * tolerance<T>) << n << ", " << i;
                }
                if (threads == 1) first = out;
                EXPECT_TRUE(same_bits(first, to)) << n << " qubits, " << threads << " threads";
            }
        }
    }
}

TYPED_TEST(observable_applied, without_terms_is_its_constant) {
    using T = TypeParam;
    for (const unsigned int n : {2u, 5u}) {
        const auto psi = random_state<T>(n, Values::ordinary, n);
        reference::State<T> out(psi.size());
        auto* const to = reinterpret_cast<thrust::complex<T>*>(out.data());
        WObservable<double> constant;
        apply_observable(amplitudes_of(psi), constant, n, 1, to);
        for (const auto& a : out) EXPECT_EQ(a.re * a.re + a.im * a.im, 0);
        constant.constant = 2;
        apply_observable(amplitudes_of(psi), constant, n, 1, to);
        for (unsigned long i = 0; i < psi.size(); ++i) {
            EXPECT_EQ(out[i].re, 2 * psi[i].re);
            EXPECT_EQ(out[i].im, 2 * psi[i].im);
        }
    }
}
