#include "reference/diagonal.hpp"
#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <stdexcept>

using namespace support;

PRECISION_SUITE(diagonal_matrix);

namespace {

// A row-major matrix with these entries on its diagonal and zeros elsewhere.
template <class T>
std::vector<thrust::complex<T>> matrix_of(const std::vector<reference::Complex<T>>& diag) {
    std::vector<thrust::complex<T>> matrix(diag.size() * diag.size());
    for (unsigned long i = 0; i < diag.size(); ++i) matrix[i * (diag.size() + 1)] = as_thrust(diag[i]);
    return matrix;
}

}  // namespace

TYPED_TEST(diagonal_matrix, of_256_entries_runs_without_controls) {
    const reference::Qubits qubits = {8, 1, 6, 3, 4, 5, 2, 7};
    const auto diag = random_coefficients<TypeParam>(256);
    const auto start = random_state<TypeParam>(9, Values::unusual);
    LoadedVector<TypeParam> v(start);
    v.apply_nqbit_gate(qubits, matrix_of(diag));
    auto expected = start;
    reference::apply_diagonal(expected, qubits, {}, diag);
    EXPECT_TRUE(same_bits(expected, v.amplitudes.get()));
}

TYPED_TEST(diagonal_matrix, of_512_entries_without_controls_is_refused_and_leaves_the_state) {
    const auto start = random_state<TypeParam>(9, Values::any_bits);
    LoadedVector<TypeParam> v(start);
    try {
        v.apply_nqbit_gate({8, 1, 6, 3, 4, 5, 2, 7, 0}, matrix_of(random_coefficients<TypeParam>(512)));
        FAIL() << "accepted";
    } catch (const std::runtime_error& refusal) {
        EXPECT_STREQ(refusal.what(), "Diagonal is too large for _DiagGate");
    }
    EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
}

TYPED_TEST(diagonal_matrix, of_512_entries_under_a_control_runs) {
    const reference::Qubits qubits = {8, 1, 6, 3, 4, 5, 2, 7, 0};
    const auto diag = random_coefficients<TypeParam>(512);
    const auto start = random_state<TypeParam>(10, Values::unusual);
    LoadedVector<TypeParam> v(start);
    v.apply_nqbit_ctrl_gate({9}, qubits, matrix_of(diag));
    auto expected = start;
    reference::apply_diagonal(expected, qubits, {9}, diag);
    EXPECT_TRUE(same_bits(expected, v.amplitudes.get()));
}
