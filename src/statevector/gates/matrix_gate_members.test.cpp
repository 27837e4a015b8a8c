#include "reference/dense.hpp"
#include "reference/diagonal.hpp"
#include "reference/one_qubit.hpp"
#include "reference/two_qubit.hpp"
#include "support/captured_output.hpp"
#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <cmath>
#include <limits>
#include <new>
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

// --- which loop a matrix takes ---------------------------------------------------------------------------------------

PRECISION_SUITE(matrix_gate);

namespace {

template <class T>
std::vector<thrust::complex<T>> swap_matrix() {
    std::vector<thrust::complex<T>> m(16);
    m[0] = m[6] = m[9] = m[15] = thrust::complex<T>(1, 0);
    return m;
}

// -0 is kept by the small dense loops, which add no +0, and becomes +0 in the loop for any number of qubits.
template <class T>
reference::State<T> with_negative_zeros(unsigned int n) {
    auto state = random_state<T>(n, Values::ordinary);
    for (unsigned long i = 0; i < state.size(); i += 3) state[i] = {T(-0.0), T(-0.0)};
    return state;
}

}  // namespace

TYPED_TEST(matrix_gate, diagonal_1_minus_1_equals_Z) {
    const auto start = random_state<TypeParam>(5, Values::ordinary);
    LoadedVector<TypeParam> by_matrix(start), by_name(start);
    using C = thrust::complex<TypeParam>;
    by_matrix.apply_1qbit_gate(3, {C(1), C(0), C(0), C(-1)});
    by_name.apply_Z(3);
    for (unsigned long i = 0; i < start.size(); ++i) EXPECT_EQ(by_matrix.amplitudes[i], by_name.amplitudes[i]) << i;
}

TYPED_TEST(matrix_gate, controlled_phase_as_a_diagonal_takes_the_diagonal_loop) {
    // The diagonal loop multiplies by 1 in full, so that every amplitude is a product; the dense one adds zeros too.
    const auto start = with_negative_zeros<TypeParam>(5);
    const std::vector<reference::Complex<TypeParam>> diag = {{1, 0}, {1, 0}, {1, 0}, {-1, 0}};
    LoadedVector<TypeParam> v(start);
    v.apply_2qbit_gate(4, 1, matrix_of(diag));
    auto expected = start;
    reference::apply_diagonal(expected, {4, 1}, {}, diag);
    EXPECT_TRUE(same_bits(expected, v.amplitudes.get()));
}

TYPED_TEST(matrix_gate, swap_permutation_takes_the_dense_loop_of_two_qubits) {
    const auto start = with_negative_zeros<TypeParam>(5);
    LoadedVector<TypeParam> v(start);
    v.apply_2qbit_gate(0, 3, swap_matrix<TypeParam>());
    auto expected = start;
    std::vector<reference::Complex<TypeParam>> m(16);
    for (const int at : {0, 6, 9, 15}) m[static_cast<unsigned long>(at)] = {1, 0};
    reference::apply(reference::TwoQubit::Matrix, expected, 0, 3, {}, m);
    EXPECT_TRUE(same_bits(expected, v.amplitudes.get()));
}

TYPED_TEST(matrix_gate, general_matrices_agree_with_the_reference_with_and_without_controls) {
    const auto start = random_state<TypeParam>(7, Values::unusual);
    const auto m1 = random_coefficients<TypeParam>(4), m2 = random_coefficients<TypeParam>(16),
               m3 = random_coefficients<TypeParam>(64);
    for (const reference::Qubits& controls : {reference::Qubits{}, {6}, {0, 5}}) {
        LoadedVector<TypeParam> v(start, 2);
        auto expected = start;
        v.apply_1qbit_ctrl_gate(controls, 3, as_thrust(m1));
        reference::apply(reference::OneQubit::Matrix, expected, 3, controls, m1);
        ASSERT_TRUE(same_bits(expected, v.amplitudes.get()));
        v.load(start);
        expected = start;
        v.apply_2qbit_ctrl_gate(controls, 4, 1, as_thrust(m2));
        reference::apply(reference::TwoQubit::Matrix, expected, 4, 1, controls, m2);
        ASSERT_TRUE(same_bits(expected, v.amplitudes.get()));
        v.load(start);
        expected = start;
        v.apply_nqbit_ctrl_gate(controls, {2, 4, 1}, as_thrust(m3));
        reference::apply_dense(expected, {2, 4, 1}, controls, m3);
        ASSERT_TRUE(same_bits(expected, v.amplitudes.get()));
    }
}

TYPED_TEST(matrix_gate, of_one_or_two_qubits_in_the_form_for_any_number_sums_from_plus_zero) {
    // Every real part of a product is -0 here: the small forms add nothing else, the general one begins at +0.
    const TypeParam minus_zero = TypeParam(-0.0);
    const reference::State<TypeParam> start(8, {minus_zero, minus_zero});
    for (const unsigned int k : {1u, 2u}) {
        const reference::Qubits qubits = k == 1 ? reference::Qubits{1} : reference::Qubits{2, 0};
        const std::vector<reference::Complex<TypeParam>> m(1ul << (2 * k), {1, -1});
        LoadedVector<TypeParam> small(start), general(start);
        auto expected_small = start, expected_general = start;
        if (k == 1) {
            small.apply_1qbit_gate(1, as_thrust(m));
            reference::apply(reference::OneQubit::Matrix, expected_small, 1, {}, m);
        } else {
            small.apply_2qbit_gate(2, 0, as_thrust(m));
            reference::apply(reference::TwoQubit::Matrix, expected_small, 2, 0, {}, m);
        }
        general.apply_nqbit_gate(qubits, as_thrust(m));
        reference::apply_dense(expected_general, qubits, {}, m);
        EXPECT_TRUE(same_bits(expected_small, small.amplitudes.get())) << k << " qubit(s)";
        EXPECT_TRUE(same_bits(expected_general, general.amplitudes.get())) << k << " qubit(s)";
        EXPECT_TRUE(std::signbit(small.amplitudes[5].real())) << k << " qubit(s)";
        EXPECT_FALSE(std::signbit(general.amplitudes[5].real())) << k << " qubit(s)";
    }
}

TYPED_TEST(matrix_gate, with_a_tiny_or_nan_entry_off_the_diagonal_is_dense) {
    // Row 0 takes the entry in its last column, from the amplitude that is 1: a diagonal loop would leave it 0.
    using C = thrust::complex<TypeParam>;
    const TypeParam tiny = std::numeric_limits<TypeParam>::denorm_min();
    const TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    for (const C entry : {C(tiny, 0), C(0, tiny), C(nan, 0), C(0, nan)}) {
        for (const unsigned int k : {1u, 2u, 3u}) {
            const unsigned long dim = 1ul << k;
            std::vector<C> matrix(dim * dim);
            for (unsigned long i = 0; i < dim; ++i) matrix[i * (dim + 1)] = C(1);
            matrix[dim - 1] = entry;
            for (const bool controlled : {false, true}) {
                StateVector<TypeParam> v(3);
                for (unsigned long i = 0; i < 8; ++i) v.amplitudes[i] = C(i == dim - 1 ? 1 : 0);
                if (k == 1) controlled ? v.apply_1qbit_ctrl_gate({}, 0, matrix) : v.apply_1qbit_gate(0, matrix);
                if (k == 2) controlled ? v.apply_2qbit_ctrl_gate({}, 1, 0, matrix) : v.apply_2qbit_gate(1, 0, matrix);
                if (k == 3) {
                    const reference::Qubits qubits = {2, 1, 0};
                    controlled ? v.apply_nqbit_ctrl_gate({}, qubits, matrix) : v.apply_nqbit_gate(qubits, matrix);
                }
                const C got = v.amplitudes[0];
                if (std::isnan(entry.real()) || std::isnan(entry.imag())) {
                    EXPECT_TRUE(std::isnan(got.real()) && std::isnan(got.imag())) << k << " qubit(s)";
                } else {
                    EXPECT_EQ(got, entry) << k << " qubit(s)";
                }
            }
        }
    }
}

TYPED_TEST(matrix_gate, of_9_targets_that_is_not_diagonal_runs) {
    const auto start = random_state<TypeParam>(9, Values::ordinary);
    std::vector<reference::Complex<TypeParam>> m(512 * 512);
    for (unsigned long i = 0; i < 512; ++i) m[i * 513] = {1, 0};
    m[1] = {TypeParam(0.5), 0};
    const reference::Qubits qubits = {8, 1, 6, 3, 4, 5, 2, 7, 0};
    LoadedVector<TypeParam> v(start);
    v.apply_nqbit_gate(qubits, as_thrust(m));
    auto expected = start;
    reference::apply_dense(expected, qubits, {}, m);
    EXPECT_TRUE(same_bits(expected, v.amplitudes.get()));
}

TYPED_TEST(matrix_gate, diagonal_on_9_targets_with_an_empty_control_list_runs) {
    const reference::Qubits qubits = {8, 1, 6, 3, 4, 5, 2, 7, 0};
    const auto diag = random_coefficients<TypeParam>(512);
    const auto start = random_state<TypeParam>(9, Values::unusual);
    LoadedVector<TypeParam> v(start);
    v.apply_nqbit_ctrl_gate({}, qubits, matrix_of(diag));
    auto expected = start;
    reference::apply_diagonal(expected, qubits, {}, diag);
    EXPECT_TRUE(same_bits(expected, v.amplitudes.get()));
}

TYPED_TEST(matrix_gate, with_an_empty_control_list_equals_its_uncontrolled_twin) {
    const auto start = random_state<TypeParam>(6, Values::ordinary);
    for (const bool diagonal : {false, true}) {
        const auto m1 =
            diagonal ? matrix_of(random_coefficients<TypeParam>(2)) : as_thrust(random_coefficients<TypeParam>(4));
        const auto m2 =
            diagonal ? matrix_of(random_coefficients<TypeParam>(4)) : as_thrust(random_coefficients<TypeParam>(16));
        const auto m3 =
            diagonal ? matrix_of(random_coefficients<TypeParam>(8)) : as_thrust(random_coefficients<TypeParam>(64));
        LoadedVector<TypeParam> plain(start), controlled(start);
        plain.apply_1qbit_gate(1, m1);
        plain.apply_2qbit_gate(0, 4, m2);
        plain.apply_nqbit_gate({5, 2, 3}, m3);
        controlled.apply_1qbit_ctrl_gate({}, 1, m1);
        controlled.apply_2qbit_ctrl_gate({}, 0, 4, m2);
        controlled.apply_nqbit_ctrl_gate({}, {5, 2, 3}, m3);
        EXPECT_EQ(std::memcmp(plain.amplitudes.get(), controlled.amplitudes.get(), 64 * sizeof(plain.amplitudes[0])),
                  0);
    }
}

TYPED_TEST(matrix_gate, identity_takes_the_diagonal_loop_and_leaves_the_state) {
    const auto start = random_state<TypeParam>(5, Values::ordinary);
    const std::vector<reference::Complex<TypeParam>> ones(8, {1, 0});
    const auto identity = [&](unsigned long dim) {
        return matrix_of<TypeParam>({ones.begin(), ones.begin() + static_cast<long>(dim)});
    };
    LoadedVector<TypeParam> v(start);
    v.apply_1qbit_gate(2, identity(2));
    v.apply_2qbit_gate(0, 3, identity(4));
    v.apply_nqbit_gate({4, 1, 2}, identity(8));
    EXPECT_TRUE(same_bits(start, v.amplitudes.get()));

    // A product with 1 keeps the sign of this imaginary part; a dense loop would add zeros of the other sign.
    reference::State<TypeParam> zeros(32);
    zeros[0] = {TypeParam(-0.0), TypeParam(-0.0)};
    const auto expect_diagonal = [&](const reference::Qubits& qubits, auto act) {
        v.load(zeros);
        act();
        auto expected = zeros;
        reference::apply_diagonal(expected, qubits, {}, {ones.begin(), ones.begin() + (1l << qubits.size())});
        EXPECT_TRUE(std::signbit(expected[0].im));
        EXPECT_TRUE(same_bits(expected, v.amplitudes.get())) << qubits.size() << " qubit(s)";
    };
    expect_diagonal({2}, [&] { v.apply_1qbit_gate(2, identity(2)); });
    expect_diagonal({0, 3}, [&] { v.apply_2qbit_gate(0, 3, identity(4)); });
    expect_diagonal({4, 1, 2}, [&] { v.apply_nqbit_gate({4, 1, 2}, identity(8)); });
}

TYPED_TEST(matrix_gate, for_any_number_of_qubits_is_refused_when_a_matrix_per_thread_exceeds_free_memory) {
    const auto start = random_state<TypeParam>(5, Values::any_bits);
    const auto matrix = as_thrust(random_coefficients<TypeParam>(64));
    LoadedVector<TypeParam> v(start, 3);
    const unsigned long bytes = 3 * 64 * sizeof(thrust::complex<TypeParam>);
    {
        ScriptedMemory memory(bytes - 1);
        CapturedOutput output;
        EXPECT_THROW(v.apply_nqbit_gate({0, 4, 2}, matrix), std::bad_alloc);
        EXPECT_THROW(v.apply_nqbit_ctrl_gate({1}, {0, 4, 2}, matrix), std::bad_alloc);
        const std::string line = "Not enough memory for allocating array \u2014 memory swap is not allowed.\n";
        EXPECT_EQ(output.out(), line + line);
    }
    EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
    ScriptedMemory memory(bytes);
    EXPECT_NO_THROW(v.apply_nqbit_gate({0, 4, 2}, matrix));
}

TYPED_TEST(matrix_gate, controlled_diagonal_beyond_free_memory_is_refused) {
    const auto start = random_state<TypeParam>(4, Values::any_bits);
    LoadedVector<TypeParam> v(start);
    const auto matrix = matrix_of(random_coefficients<TypeParam>(4));
    ScriptedMemory memory(4 * sizeof(thrust::complex<TypeParam>) - 1);
    CapturedOutput output;
    EXPECT_THROW(v.apply_2qbit_ctrl_gate({3}, 0, 1, matrix), std::bad_alloc);
    EXPECT_EQ(output.out(), "Not enough memory for allocating array \u2014 memory swap is not allowed.\n");
    EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
}
