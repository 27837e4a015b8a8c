#include "statevector/gradients/derivative_sums.hpp"

#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

using namespace support;
using velacamplix::gradients::fill_products;
using velacamplix::gradients::fold_products;
using velacamplix::gradients::pauli_sum;
using velacamplix::gradients::sum_of_flip;
using velacamplix::gradients::sum_of_products;

PRECISION_SUITE(derivative_sums);

namespace {

// Sums of up to 2^10 products of numbers below 1, each rounded in double.
constexpr double tolerance = 1e-12;

// Im <lambda|P|psi> by the definition, index by index.
template <class T>
double naive(const reference::State<T>& lambda, const reference::State<T>& psi, const pauli_sum& sum) {
    const std::complex<double> phases[] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
    std::complex<double> total = 0;
    for (unsigned long j = 0; j < psi.size(); ++j) {
        if ((j & sum.controls) != sum.controls) continue;
        const std::complex<double> l(static_cast<double>(lambda[j ^ sum.flip].re),
                                     static_cast<double>(lambda[j ^ sum.flip].im));
        const std::complex<double> p(static_cast<double>(psi[j].re), static_cast<double>(psi[j].im));
        const double sign = std::popcount(j & sum.phase) % 2 == 0 ? 1 : -1;
        total += std::conj(l) * p * phases[sum.y_count] * sign;
    }
    return total.imag();
}

}  // namespace

TYPED_TEST(derivative_sums, of_every_flip_and_control_are_those_of_the_definition) {
    for (unsigned int n = 1; n <= 7; ++n) {
        const auto lambda = random_state<TypeParam>(n, Values::ordinary, 2 * n);
        const auto psi = random_state<TypeParam>(n, Values::ordinary, 2 * n + 1);
        const unsigned long size = 1ul << n;
        for (unsigned long flip = 1; flip < size; ++flip) {
            if (std::popcount(flip) > 2) continue;
            for (unsigned long controls = 0; controls < size; ++controls) {
                if ((controls & flip) != 0 || std::popcount(controls) > 2) continue;
                for (const unsigned int y_count : {0u, 1u, 2u, 3u}) {
                    const pauli_sum sum = {flip, y_count == 0 ? 0 : flip, y_count, controls};
                    EXPECT_NEAR(sum_of_flip(amplitudes_of(lambda), amplitudes_of(psi), n, sum), naive(lambda, psi, sum),
                                tolerance)
                        << n << " qubits, flip " << flip << ", controls " << controls << ", " << y_count << " Y";
                }
            }
        }
    }
}

TYPED_TEST(derivative_sums, of_products_are_those_of_the_definition) {
    for (unsigned int n = 1; n <= 7; ++n) {
        const auto lambda = random_state<TypeParam>(n, Values::ordinary, 2 * n);
        const auto psi = random_state<TypeParam>(n, Values::ordinary, 2 * n + 1);
        const unsigned long size = 1ul << n;
        std::vector<double> products(size), totals(n + 1);
        fill_products(amplitudes_of(lambda), amplitudes_of(psi), n, products.data());
        for (unsigned long phase = 0; phase < size; ++phase) {
            if (std::popcount(phase) > 2) continue;
            for (unsigned long controls = 0; controls < size; ++controls) {
                if ((controls & phase) != 0 || std::popcount(controls) > 2) continue;
                const pauli_sum sum = {0, phase, 0, controls};
                EXPECT_NEAR(sum_of_products(products.data(), n, sum), naive(lambda, psi, sum), tolerance)
                    << n << " qubits, phase " << phase << ", controls " << controls;
            }
        }
        fold_products(products.data(), n, totals.data());
        for (unsigned int q = 0; q < n; ++q) {
            EXPECT_NEAR(totals[q], naive(lambda, psi, {0, 1ul << q, 0, 0}), tolerance) << n << " qubits, bit " << q;
        }
        EXPECT_NEAR(totals[n], naive(lambda, psi, {}), tolerance) << n << " qubits";
    }
}

TYPED_TEST(derivative_sums, leave_out_what_the_controls_exclude_even_if_it_is_no_number) {
    auto psi = random_state<TypeParam>(5, Values::ordinary, 1);
    const auto lambda = random_state<TypeParam>(5, Values::ordinary, 2);
    for (const unsigned long control : {1ul, 4ul, 16ul}) {
        auto spoilt = psi;
        for (unsigned long i = 0; i < spoilt.size(); ++i) {
            if ((i & control) == 0) spoilt[i].re = std::numeric_limits<TypeParam>::quiet_NaN();
        }
        const pauli_sum sum = {2, 0, 0, control};
        EXPECT_NEAR(sum_of_flip(amplitudes_of(lambda), amplitudes_of(spoilt), 5, sum), naive(lambda, psi, sum),
                    tolerance);
        EXPECT_TRUE(std::isnan(sum_of_flip(amplitudes_of(lambda), amplitudes_of(spoilt), 5, {2, 0, 0, 0})));
    }
}
