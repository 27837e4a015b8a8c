#include "reference/inner_products.hpp"
#include "support/compare.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/widened.hpp"

#include <velacamplix/inner_products.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

using pbamplix::cpu::overlap;
using support::amplitudes_of;
using support::random_state;
using support::Values;
using support::widened;

// The same bits, or both not a number.
void expect_same(reference::Complex<double> expected, thrust::complex<double> got, const std::string& what) {
    for (const auto& [e, g] : {std::pair(expected.re, got.real()), std::pair(expected.im, got.imag())}) {
        if (std::isnan(e) && std::isnan(g)) continue;
        EXPECT_TRUE(support::same_bits(e, g)) << what;
    }
}

PRECISION_SUITE(overlaps);

TYPED_TEST(overlaps, have_the_bits_of_the_literal_sum_in_blocks_beside_states_of_either_precision) {
    for (const unsigned int n : {0u, 1u, 2u, 3u, 5u, 9u, 16u, 17u, 18u}) {
        for (const auto values : {Values::ordinary, Values::unusual}) {
            const auto bra = random_state<TypeParam>(n, values, 1);
            const auto single = random_state<float>(n, values, 2);
            const auto full = random_state<double>(n, values, 3);
            const auto with_single = reference::overlap(widened(bra), widened(single));
            const auto with_double = reference::overlap(widened(bra), full);
            for (const int threads : support::thread_counts) {
                const std::string what = std::to_string(n) + " qubits, " + std::to_string(threads) + " threads";
                expect_same(with_single, overlap(amplitudes_of(bra), amplitudes_of(single), bra.size(), threads), what);
                expect_same(with_double, overlap(amplitudes_of(bra), amplitudes_of(full), bra.size(), threads), what);
            }
        }
    }
}

TYPED_TEST(overlaps, are_conjugates_when_the_states_change_places) {
    const auto a = random_state<TypeParam>(17, Values::ordinary, 1),
               b = random_state<TypeParam>(17, Values::ordinary, 2);
    const auto forward = overlap(amplitudes_of(a), amplitudes_of(b), a.size(), 2);
    const auto backward = overlap(amplitudes_of(b), amplitudes_of(a), a.size(), 2);
    EXPECT_EQ(forward, thrust::conj(backward));
    EXPECT_GT(std::abs(forward.imag()), 0);
}

TYPED_TEST(overlaps, of_a_state_with_itself_are_real) {
    const auto a = random_state<TypeParam>(18, Values::ordinary, 1);
    const auto norm = overlap(amplitudes_of(a), amplitudes_of(a), a.size(), 2);
    EXPECT_GT(norm.real(), 0);
    EXPECT_EQ(norm.imag(), 0);
}

TYPED_TEST(overlaps, of_no_amplitudes_are_zero) {
    const thrust::complex<TypeParam>* const none = nullptr;
    EXPECT_EQ(overlap(none, none, 0, 2), thrust::complex<double>(0));
}

TYPED_TEST(overlaps, tell_how_far_they_are_and_may_be_ended) {
    const auto a = random_state<TypeParam>(23, Values::ordinary, 1);  // two rounds of 64 blocks
    std::vector<unsigned long> heard;
    const auto listen = [&](unsigned long done, unsigned long all) {
        EXPECT_EQ(all, a.size());
        heard.push_back(done);
    };
    overlap(amplitudes_of(a), amplitudes_of(a), a.size(), 2, listen);
    EXPECT_EQ(heard, (std::vector<unsigned long>{a.size() / 2, a.size()}));
    const auto stop = [](unsigned long, unsigned long) { throw std::runtime_error("enough"); };
    EXPECT_THROW(overlap(amplitudes_of(a), amplitudes_of(a), a.size(), 2, stop), std::runtime_error);
}

// What it is for: 2^20 equal products beside a large one.
TEST(overlaps_of_single_precision, products_smaller_than_the_last_place_are_summed) {
    reference::State<float> state(1ul << 20, {0x1p-13f, 0});
    const double rest = std::ldexp(static_cast<double>(state.size() - 1), -26);
    state[0] = {static_cast<float>(std::sqrt(1 - rest)), 0};
    const double exact = rest + static_cast<double>(state[0].re) * static_cast<double>(state[0].re);
    EXPECT_NEAR(overlap(amplitudes_of(state), amplitudes_of(state), state.size(), 2).real(), exact, 1e-14);
}

}  // namespace
