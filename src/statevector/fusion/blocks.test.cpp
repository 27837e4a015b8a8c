#include "statevector/fusion/blocks.hpp"

#include "statevector/fusion/two_qubit_matrix.hpp"
#include "support/precision.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>

using namespace velacamplix;
using namespace support;
using gates::gate_kind;
using gates::operation;

PRECISION_SUITE(blocks);

namespace {

template <class T>
using list = std::vector<operation<T>>;
using state = std::vector<std::complex<double>>;

template <class T>
operation<T> gate(const char* name, const std::vector<unsigned int>& qubits, const std::vector<double>& angles = {}) {
    return gates::named_operation<T>(*gates::find_gate(name), angles, qubits);
}

// What a list does to basis state `start` of n qubits, gate by gate in the state's precision.
template <class T>
state column_of(const list<T>& operations, unsigned n, unsigned long start) {
    std::vector<thrust::complex<T>> amplitudes(1ul << n);
    amplitudes[start] = T(1);
    for (const auto& op : operations) {
        const auto call = op.targets.empty() ? kernels::kernel_call<T>{} : gates::prepare(op, n);
        kernels::run_serial(call, amplitudes.data());
    }
    state wide;
    for (const auto& a : amplitudes) wide.emplace_back(static_cast<double>(a.real()), static_cast<double>(a.imag()));
    return wide;
}

template <class T>
double distance(const list<T>& a, const list<T>& b, unsigned n) {
    double worst = 0;
    for (unsigned long start = 0; start < 1ul << n; ++start) {
        const state x = column_of(a, n, start), y = column_of(b, n, start);
        for (std::size_t i = 0; i < x.size(); ++i) worst = std::max(worst, std::abs(x[i] - y[i]));
    }
    return worst;
}

template <class T>
constexpr double most_error = sizeof(T) == 8 ? 1e-13 : 2e-5;

template <class T>
thrust::complex<T> number(std::mt19937& engine) {
    return {static_cast<T>(engine() % 1000) / 1000, static_cast<T>(engine() % 1000) / 1000};
}

// Any gate on any of n qubits.
template <class T>
operation<T> random_gate(std::mt19937& engine, unsigned n) {
    std::vector<unsigned int> qubits(n);
    for (unsigned q = 0; q < n; ++q) qubits[q] = q;
    std::shuffle(qubits.begin(), qubits.end(), engine);
    // Pairs more often than chance would have them.
    if (engine() % 3 != 0) std::swap(qubits[0], *std::find(qubits.begin(), qubits.end(), engine() % 2));
    const auto rows = std::size(gates::gate_rows);
    const unsigned long choice = engine() % (rows + 3);
    if (choice == rows) {
        std::vector<thrust::complex<T>> matrix(16);
        const double c = std::cos(static_cast<double>(engine() % 10)), s = std::sqrt(1 - c * c);
        const unsigned flip = 1 + static_cast<unsigned>(engine() % 3);
        for (unsigned i = 0; i < 4; ++i) {
            matrix[5 * i] = static_cast<T>(c);
            matrix[4 * i + (i ^ flip)] = static_cast<T>(i < (i ^ flip) ? s : -s);
        }
        return gates::matrix_operation<T>(matrix, {qubits[0], qubits[1]}, false);
    }
    if (choice == rows + 1)
        return gates::diagonal_operation<T>({1, thrust::complex<T>(0, 1), -1, 1}, {qubits[0], qubits[1]});
    if (choice == rows + 2) return gates::matrix_operation<T>({T(0.6), T(0.8), T(0.8), T(-0.6)}, {qubits[0]}, false);
    const gates::gate_row& row = gates::gate_rows[choice];
    std::vector<double> angles;
    for (unsigned i = 0; i < row.angles; ++i) angles.push_back(static_cast<double>(engine() % 600) / 100);
    qubits.resize(row.controls + row.targets);
    return gates::named_operation<T>(row, angles, qubits);
}

}  // namespace

TYPED_TEST(blocks, do_what_their_gates_did) {
    unsigned long before = 0, after = 0;
    for (unsigned seed = 0; seed < 150; ++seed) {
        std::mt19937 engine(seed);
        const unsigned n = 3 + seed % 3;
        list<TypeParam> gates;
        for (int i = 0; i < 40; ++i) gates.push_back(random_gate<TypeParam>(engine, n));
        const auto formed = fusion::form_blocks(gates);
        ASSERT_LT(distance(gates, formed, n), most_error<TypeParam>) << "seed " << seed;
        before += gates.size();
        after += formed.size();
    }
    EXPECT_LT(4 * after, 3 * before) << "or nothing was brought together";
}

TYPED_TEST(blocks, of_a_diagonal_are_phases) {
    const list<TypeParam> gates = {gate<TypeParam>("RZZ", {2, 1}, {0.3}), gate<TypeParam>("RZ", {2}, {0.7}),
                                   gate<TypeParam>("CNOT", {1, 2}), gate<TypeParam>("RZ", {2}, {1.1}),
                                   gate<TypeParam>("CNOT", {1, 2})};
    const auto formed = fusion::form_blocks(gates);
    EXPECT_EQ(formed.size(), 3u);
    for (const auto& op : formed) EXPECT_TRUE(op.is_diagonal());
    EXPECT_LT(distance(gates, formed, 3), most_error<TypeParam>);
}

// exp(-i t (XX + YY + ZZ)) as it is usually written.
TYPED_TEST(blocks, of_a_long_sequence_on_one_pair_are_one_operation) {
    list<TypeParam> gates;
    for (const char* turn : {"H", "SX", "T"}) {
        for (const unsigned q : {3u, 1u}) gates.push_back(gate<TypeParam>(turn, {q}));
        gates.push_back(gate<TypeParam>("CNOT", {3, 1}));
        gates.push_back(gate<TypeParam>("RZ", {1}, {0.4}));
        gates.push_back(gate<TypeParam>("CNOT", {3, 1}));
    }
    gates.push_back(gate<TypeParam>("X", {0}));
    gates.push_back(gate<TypeParam>("RX", {3}, {0.4}));
    const auto formed = fusion::form_blocks(gates);
    ASSERT_EQ(formed.size(), 2u);
    EXPECT_LT(distance(gates, formed, 4), most_error<TypeParam>);
}

TYPED_TEST(blocks, leave_cheap_gates_as_they_are) {
    list<TypeParam> gates;
    for (unsigned q = 3; q < 8; ++q) gates.push_back(gate<TypeParam>("H", {q}));
    for (unsigned q = 3; q < 7; ++q) gates.push_back(gate<TypeParam>("CNOT", {q, q + 1}));
    const auto formed = fusion::form_blocks(gates);
    ASSERT_EQ(formed.size(), gates.size());
    for (std::size_t i = 0; i < gates.size(); ++i) EXPECT_EQ(formed[i].kind, gates[i].kind);
}

// Two gates that undo each other leave zeros, not rounding errors, which a projection would bring out.
TYPED_TEST(blocks, have_zeros_where_their_gates_cancel) {
    list<TypeParam> gates;
    for (const double sign : {1.0, -1.0}) {
        gates.push_back(gate<TypeParam>("RXX", {0, 1}, {sign * 0.3}));
        gates.push_back(gate<TypeParam>("RY", {0}, {sign * 0.4}));
        gates.push_back(gate<TypeParam>("RXX", {0, 1}, {sign * 0.3}));
        gates.push_back(gate<TypeParam>("RY", {1}, {sign * 0.9}));
    }
    std::swap(gates[4], gates[7]);
    std::swap(gates[5], gates[6]);
    auto product = fusion::two_qubit_matrix::identity();
    for (const auto& op : gates) product = fusion::matrix_of(op, 1, 0).after(product);
    product.settle_zeros();
    EXPECT_TRUE(product.mixes_only(0));
}
