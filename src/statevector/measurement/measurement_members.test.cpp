// The dense exports, as the class offers them; their loop is tested in permuted_copy.test.cpp.

#include "reference/measurement.hpp"
#include "support/measured_state.hpp"
#include "support/precision.hpp"

#include <cstring>
#include <memory>

using namespace support;
using reference::State;

PRECISION_SUITE(permuted_exports);

namespace {

// What an export with this threshold keeps: below 256 entries its square counts, whatever its sign; from there on a
// threshold of 0 or less keeps all.
template <class T, class Element>
std::vector<Element> expected_copy(const std::vector<T>& view, const std::vector<Element>& elements, T threshold) {
    if (view.size() < 256 || threshold > 0) return reference::permuted(view, elements, threshold * threshold);
    return reference::permuted(std::vector<T>(view.size(), T(1)), elements, T(0));
}

template <class T>
testing::AssertionResult state_export_agrees(const State<T>& state, T threshold, int threads) {
    LoadedVector<T> v(state, threads);
    const auto expected = expected_copy(reference::state_view(state), state, threshold);
    std::vector<thrust::complex<T>> out(state.size());
    v.is_density_matrix = threads == 2;  // plays no part
    v.get_permuted_statevector(out.data(), threshold);
    if (auto same = same_bits(expected, out.data()); !same) return same << "\nstate";
    v.get_permuted_density_matrix(out.data(), threshold);
    if (auto same = same_bits(expected, out.data()); !same) return same << "\ndensity matrix";
    return testing::AssertionSuccess();
}

template <class T>
testing::AssertionResult diagonal_export_agrees(const State<T>& state, T threshold, int threads) {
    LoadedVector<T> v(state, threads);
    const auto view = reference::density_view(state);
    std::vector<T> out(view.size());
    v.get_permuted_density_diag(out.data(), threshold);
    return same_bits(expected_copy(view, view, threshold), out);
}

}  // namespace

TYPED_TEST(permuted_exports, agree_bit_for_bit) {
    for (unsigned int n : {0u, 1u, 2u, 3u, 5u, 7u, 8u, 9u, 12u, 16u}) {
        const auto state = random_state<TypeParam>(n, Values::unusual);
        for (const TypeParam threshold : {TypeParam(0), TypeParam(0.5), TypeParam(-0.5)}) {
            for (int threads : thread_counts) {
                ASSERT_TRUE(state_export_agrees(state, threshold, threads)) << n << " qubits, threshold " << threshold;
                ASSERT_TRUE(diagonal_export_agrees(state, threshold, threads)) << n << " qubits";
            }
        }
    }
}

TYPED_TEST(permuted_exports, of_a_3_qubit_basis_state_1_hold_1_at_position_4) {
    StateVector<TypeParam> v(3);
    v.reset();
    v.apply_X(0);
    std::vector<thrust::complex<TypeParam>> out(8);
    v.get_permuted_statevector(out.data(), 0);
    for (unsigned long p = 0; p < 8; ++p) EXPECT_EQ(out[p].real(), TypeParam(p == 4)) << "position " << p;
}

TYPED_TEST(permuted_exports, write_an_amplitude_whose_squared_magnitude_equals_the_squared_threshold_as_0) {
    for (unsigned int n : {1u, 9u}) {
        State<TypeParam> state(1ul << n);
        state[0].re = TypeParam(0.5);
        state[1].im = TypeParam(-0.75);
        LoadedVector<TypeParam> v(state);
        std::vector<thrust::complex<TypeParam>> out(state.size());
        v.get_permuted_statevector(out.data(), TypeParam(0.5));
        EXPECT_EQ(out[0], thrust::complex<TypeParam>(0, 0));
        EXPECT_EQ(out[state.size() / 2], thrust::complex<TypeParam>(0, TypeParam(-0.75)));
    }
}

TYPED_TEST(permuted_exports, with_a_negative_threshold_zero_small_values_of_7_qubits_and_none_of_8) {
    for (unsigned int n : {7u, 8u}) {
        LoadedVector<TypeParam> v(State<TypeParam>(1ul << n, {TypeParam(0.25), 0}));
        std::vector<thrust::complex<TypeParam>> out(1ul << n);
        v.get_permuted_statevector(out.data(), TypeParam(-0.5));
        const TypeParam expected = n == 7 ? TypeParam(0) : TypeParam(0.25);
        for (const auto& a : out) ASSERT_EQ(a, thrust::complex<TypeParam>(expected, 0)) << n << " qubits";
    }
}

TYPED_TEST(permuted_exports, of_a_density_matrix_reverse_each_axis_and_exchange_the_two) {
    const unsigned int m = 4;
    const auto rho = random_state<TypeParam>(2 * m, Values::ordinary);
    LoadedVector<TypeParam> v(rho);
    v.is_density_matrix = true;
    std::vector<thrust::complex<TypeParam>> out(rho.size());
    v.get_permuted_density_matrix(out.data(), 0);
    for (unsigned long high = 0; high < 1ul << m; ++high) {
        for (unsigned long low = 0; low < 1ul << m; ++low) {
            const auto reversed = [m](unsigned long x) { return pbamplix::cpu::swap_lsb_msb(x, m); };
            const auto expected = as_thrust(rho[high << m | low]);
            EXPECT_EQ(out[reversed(low) << m | reversed(high)], expected) << high << ", " << low;
        }
    }
}

TYPED_TEST(permuted_exports, agree_with_the_mapped_ones) {
    for (unsigned int n : {4u, 6u, 10u}) {
        LoadedVector<TypeParam> v(random_state<TypeParam>(n, Values::ordinary), 3);
        const TypeParam threshold = TypeParam(0.6);
        std::vector<thrust::complex<TypeParam>> dense(v.size);
        v.get_permuted_statevector(dense.data(), threshold);
        const std::unique_ptr<std::map<unsigned long, thrust::complex<TypeParam>>> sparse(
            v.get_mapped_statevector(threshold));
        std::vector<thrust::complex<TypeParam>> filled(v.size);
        for (const auto& [key, value] : *sparse) filled[key] = value;
        EXPECT_GT(sparse->size(), 0ul);
        EXPECT_LT(sparse->size(), v.size);
        EXPECT_TRUE(dense == filled);

        std::vector<TypeParam> diagonal(1ul << n / 2), diagonal_filled(1ul << n / 2);
        v.get_permuted_density_diag(diagonal.data(), threshold);
        const std::unique_ptr<std::map<unsigned long, TypeParam>> diagonal_map(v.get_mapped_density_diag(threshold));
        for (const auto& [key, value] : *diagonal_map) diagonal_filled[key] = value;
        EXPECT_EQ(diagonal, diagonal_filled);
    }
}
