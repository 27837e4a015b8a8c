#include "statevector/gates/gate_table.hpp"

#include "reference/named_gates.hpp"
#include "support/gate_lists.hpp"
#include "support/precision.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/program.hpp>

#include <set>

using namespace support;
using namespace velacamplix;
using gates::gate_row;
using gates::gate_rows;
using reference::Qubits;

PRECISION_SUITE(gate_table);

namespace {

template <class T>
constexpr T angle = T(0.7);

Qubits qubits_of(const gate_row& row) {
    Qubits qubits;
    for (unsigned int q = row.controls + row.targets; q-- != 0;) qubits.push_back(q);
    return qubits;
}

// The matrix of a gate on its own qubits, column by column, as a program has it.
template <class T>
std::vector<reference::State<T>> matrix_of(const gate_row& row) {
    const unsigned int n = row.controls + row.targets;
    pbamplix::cpu::program<T> list(n);
    list.add_gate(std::string(row.name), std::vector<double>(row.angles, double(angle<T>)), qubits_of(row));
    std::vector<reference::State<T>> columns;
    for (unsigned long column = 0; column < 1ul << n; ++column) {
        reference::State<T> basis(1ul << n);
        basis[column].re = 1;
        LoadedVector<T> v(basis);
        list.run(v);
        columns.emplace_back();
        for (unsigned long i = 0; i < v.size; ++i) {
            columns.back().push_back({v.amplitudes[i].real(), v.amplitudes[i].imag()});
        }
    }
    return columns;
}

template <class T>
bool is_zero(reference::Complex<T> a) {
    return a.re == 0 && a.im == 0;
}

}  // namespace

TYPED_TEST(gate_table, names_each_gate_once) {
    std::set<std::string_view> names;
    for (const gate_row& row : gate_rows) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(gates::find_gate(row.name), &row);
    }
    EXPECT_EQ(gates::find_gate("NOT"), nullptr);
    EXPECT_EQ(gates::find_gate(""), nullptr);
}

TYPED_TEST(gate_table, says_which_gates_are_diagonal) {
    for (const gate_row& row : gate_rows) {
        const auto columns = matrix_of<TypeParam>(row);
        bool diagonal = true;
        for (unsigned long c = 0; c < columns.size(); ++c) {
            for (unsigned long r = 0; r < columns.size(); ++r) {
                diagonal = diagonal && (r == c || is_zero(columns[c][r]));
            }
        }
        EXPECT_EQ(row.diagonal, diagonal) << row.name;
        EXPECT_EQ(gates::is_diagonal(row.kind), diagonal) << row.name;
    }
}

TYPED_TEST(gate_table, says_which_gates_only_move_amplitudes) {
    for (const gate_row& row : gate_rows) {
        bool moves = true, stays = true;
        const auto columns = matrix_of<TypeParam>(row);
        for (unsigned long c = 0; c < columns.size(); ++c) {
            for (unsigned long r = 0; r < columns.size(); ++r) {
                const auto entry = columns[c][r];
                moves = moves && (is_zero(entry) || (entry.re == 1 && entry.im == 0));
                stays = stays && (r == c || is_zero(entry));
            }
        }
        EXPECT_EQ(row.moves, moves && !stays) << row.name;
        EXPECT_EQ(gates::is_move(row.kind), row.moves) << row.name;
    }
}

TYPED_TEST(gate_table, gives_every_gate_the_matrix_of_the_reference) {
    for (const gate_row& row : gate_rows) {
        const auto columns = matrix_of<TypeParam>(row);
        for (unsigned long c = 0; c < columns.size(); ++c) {
            reference::State<TypeParam> expected(columns.size());
            expected[c].re = 1;
            reference::apply<TypeParam>(
                expected,
                {std::string(row.name), qubits_of(row), angle<TypeParam>, {}, angle<TypeParam>, angle<TypeParam>});
            for (unsigned long r = 0; r < columns.size(); ++r) {
                EXPECT_NEAR(columns[c][r].re, expected[r].re, 1e-6) << row.name << " row " << r << " column " << c;
                EXPECT_NEAR(columns[c][r].im, expected[r].im, 1e-6) << row.name << " row " << r << " column " << c;
            }
        }
    }
}

TYPED_TEST(gate_table, knows_a_record_and_the_controlled_gates_by_heart) {
    const auto recorded = names_of_gates([](const gate_row& row) { return row.recorded; });
    EXPECT_EQ(std::set(recorded.begin(), recorded.end()),
              std::set<std::string>({"H", "X", "Y", "Z", "RX", "RY", "RZ", "PH", "T", "CNOT", "SWAP"}));
    EXPECT_EQ(gates::names_that_take_controls(),
              std::vector<std::string>({"X", "Y", "Z", "H", "S", "T", "RX", "RY", "RZ", "PH"}));
}
