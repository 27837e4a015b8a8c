#include "statevector/gradients/turn.hpp"

#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <tuple>

using namespace support;
using velacamplix::gradients::least_turned_bits;
using velacamplix::gradients::sum_and_turn;
using velacamplix::gradients::turn;

PRECISION_SUITE(turned);

namespace {

template <class T>
constexpr double tolerance = sizeof(T) == 4 ? 1e-6 : 1e-13;

template <class T>
std::complex<double> at(const LoadedVector<T>& state, unsigned long i) {
    return {static_cast<double>(state.amplitudes[i].real()), static_cast<double>(state.amplitudes[i].imag())};
}

}  // namespace

TYPED_TEST(turned, both_states_and_the_sum_between_them_are_those_of_the_definition) {
    using T = TypeParam;
    for (unsigned int n = least_turned_bits; n <= 7; ++n) {
        for (unsigned int q = 0; q < n; ++q) {
            for (const bool about_x : {false, true}) {
                for (const bool turns_psi : {false, true}) {
                    const auto before_lambda = random_state<T>(n, Values::ordinary, 2 * n);
                    const auto before_psi = random_state<T>(n, Values::ordinary, 2 * n + 1);
                    const LoadedVector<T> lambda(before_lambda), psi(before_psi);
                    LoadedVector<T> lambda_then(before_lambda), psi_then(before_psi);

                    const unsigned long bit = 1ul << q;
                    std::complex<double> sum = 0;  // <lambda|P|psi>
                    for (unsigned long i = 0; i < psi.size; ++i) {
                        const std::complex<double> factor =
                            about_x ? std::complex<double>(1, 0) : std::complex<double>(0, (i & bit) != 0 ? 1 : -1);
                        sum += std::conj(at(lambda, i)) * factor * at(psi, i ^ bit);
                    }
                    const turn<T> by{bit, about_x, T(0.8), T(0.6)};
                    EXPECT_NEAR(sum.imag(),
                                sum_and_turn(lambda_then.amplitudes.get(), psi_then.amplitudes.get(), n, by, turns_psi),
                                tolerance<T> * static_cast<double>(psi.size))
                        << n << " bits, bit " << q;
                    for (const auto& [old, now, is_turned] :
                         {std::tuple(&lambda, &lambda_then, true), std::tuple(&psi, &psi_then, turns_psi)}) {
                        for (unsigned long i = 0; i < psi.size; ++i) {
                            const std::complex<double> sine =
                                about_x ? std::complex<double>(0, 0.6)
                                        : std::complex<double>((i & bit) != 0 ? 0.6 : -0.6, 0);
                            const auto expected =
                                is_turned ? 0.8 * at(*old, i) + sine * at(*old, i ^ bit) : at(*old, i);
                            ASSERT_LE(std::abs(expected - at(*now, i)), is_turned ? tolerance<T> : 0)
                                << n << " bits, bit " << q << ", amplitude " << i;
                        }
                    }
                }
            }
        }
    }
}
