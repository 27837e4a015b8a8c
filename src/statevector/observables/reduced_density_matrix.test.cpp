#include "reference/inner_products.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/widened.hpp"

#include <velacamplix/inner_products.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace {

using pbamplix::cpu::reduced_density_matrix;
using reference::Qubits;
using reference::State;
using support::amplitudes_of;
using support::random_state;
using support::Values;

// The same bits, or both not a number.
void expect_same(const std::vector<reference::Complex<double>>& expected, const thrust::complex<double>* got,
                 const std::string& what) {
    const auto* e = reinterpret_cast<const double*>(expected.data());
    const auto* g = reinterpret_cast<const double*>(got);
    for (std::size_t i = 0; i < 2 * expected.size(); ++i) {
        if (std::isnan(e[i]) && std::isnan(g[i])) continue;
        // A zero's sign is not fixed: where entries are conjugates, 0 - 0 becomes -0 on one side.
        if (e[i] == 0 && g[i] == 0) continue;
        ASSERT_TRUE(support::same_bits(e[i], g[i])) << what << ", number " << i;
    }
}

template <class T>
void expect_reference(const State<T>& state, const Qubits& qubits, const std::vector<int>& threads) {
    const auto expected = reference::reduced_density_matrix(support::widened(state), qubits);
    for (const int count : threads) {
        // Whole amplitudes off a line, and nothing is written outside.
        support::GuardedArray<double> got(expected.size(), 1);
        const unsigned int n = static_cast<unsigned int>(std::bit_width(state.size())) - 1;
        reduced_density_matrix(amplitudes_of(state), n, qubits, got.data(), count);
        expect_same(expected, got.data(), support::describe(n, qubits, {}, count));
        EXPECT_TRUE(got.fences_stand());
    }
}

PRECISION_SUITE(reduced_density_matrices);

TYPED_TEST(reduced_density_matrices, of_every_set_of_up_to_five_qubits_have_the_bits_of_the_literal_sum) {
    for (unsigned int n = 0; n <= 5; ++n) {
        for (const auto values : {Values::ordinary, Values::unusual}) {
            const auto state = random_state<TypeParam>(n, values, n);
            for (unsigned long set = 0; set < 1ul << n; ++set) {
                Qubits qubits;
                for (unsigned int q = 0; q < n; ++q) {
                    if (set >> q & 1) qubits.push_back(q);
                }
                do {
                    expect_reference(state, qubits, {1});
                } while (qubits.size() < 4 && std::next_permutation(qubits.begin(), qubits.end()));
            }
        }
    }
}

TYPED_TEST(reduced_density_matrices, of_larger_states_have_the_bits_of_the_sum_in_blocks_on_any_number_of_threads) {
    std::mt19937 lists(3);
    const auto state = random_state<TypeParam>(17, Values::ordinary, 4);
    for (unsigned int k = 0; k <= 6; ++k) {
        expect_reference(state, support::random_qubits(k, 17, lists), support::thread_counts);
    }
    Qubits low(6), high(6);
    std::iota(low.begin(), low.end(), 0);
    std::iota(high.begin(), high.end(), 11);
    expect_reference(state, low, {2});
    expect_reference(state, high, {2});
}

TYPED_TEST(reduced_density_matrices, of_more_than_six_qubits_are_made_of_panels) {
    std::mt19937 lists(5);
    for (const auto& [n, k] :
         {std::pair(7u, 7u), std::pair(8u, 7u), std::pair(9u, 8u), std::pair(12u, 7u), std::pair(18u, 7u)}) {
        const auto state = random_state<TypeParam>(n, Values::ordinary, k);
        expect_reference(state, support::random_qubits(k, n, lists), support::thread_counts);
    }
}

TYPED_TEST(reduced_density_matrices, are_hermitian_to_the_last_bit_with_a_real_diagonal) {
    const auto state = random_state<TypeParam>(17, Values::ordinary, 2);
    std::vector<thrust::complex<double>> rho(1ul << 14);
    reduced_density_matrix(amplitudes_of(state), 17, {3, 16, 0, 8, 5, 11, 12}, rho.data(), 2);
    for (unsigned long r = 0; r < 128; ++r) {
        EXPECT_EQ(rho[r * 128 + r].imag(), 0);
        EXPECT_GT(rho[r * 128 + r].real(), 0);
        for (unsigned long c = 0; c < r; ++c) EXPECT_EQ(rho[r * 128 + c], thrust::conj(rho[c * 128 + r]));
    }
}

// (|0> + i|1>) on qubit 1 and |1> on qubit 0; the listed order is that of the bits.
TYPED_TEST(reduced_density_matrices, have_the_first_listed_qubit_as_the_highest_bit) {
    const State<TypeParam> state = {{0, 0}, {1, 0}, {0, 0}, {0, 1}};
    thrust::complex<double> rho[16];
    reduced_density_matrix(amplitudes_of(state), 2, {1}, rho, 1);
    EXPECT_EQ(rho[0 * 2 + 1], thrust::complex<double>(0, -1));
    EXPECT_EQ(rho[1 * 2 + 0], thrust::complex<double>(0, 1));
    reduced_density_matrix(amplitudes_of(state), 2, {0, 1}, rho, 1);
    EXPECT_EQ(rho[0b10 * 4 + 0b11], thrust::complex<double>(0, -1));
    EXPECT_EQ(rho[0b01 * 4 + 0b01], thrust::complex<double>(0, 0));
}

TYPED_TEST(reduced_density_matrices, tell_how_far_they_are_and_may_be_ended) {
    const auto state = random_state<TypeParam>(12, Values::ordinary, 1);
    const Qubits all = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};  // 2080 pairs of panels
    std::vector<thrust::complex<double>> rho(1ul << 24);
    std::vector<unsigned long> heard;
    const auto listen = [&](unsigned long done, unsigned long told) {
        EXPECT_EQ(told, state.size());
        heard.push_back(done);
    };
    reduced_density_matrix(amplitudes_of(state), 12, all, rho.data(), 2, listen);
    EXPECT_EQ(heard.size(), 33u);
    EXPECT_TRUE(std::is_sorted(heard.begin(), heard.end()));
    EXPECT_EQ(heard.back(), state.size());
    const auto stop = [](unsigned long, unsigned long) { throw std::runtime_error("enough"); };
    EXPECT_THROW(reduced_density_matrix(amplitudes_of(state), 12, all, rho.data(), 2, stop), std::runtime_error);
}

}  // namespace
