#pragma once

#include "statevector/gates/operation.hpp"

#include <array>
#include <complex>

namespace velacamplix::fusion {

// The matrix of gates on two qubits, in double precision whatever the state's.
struct two_qubit_matrix {
    using complex = std::complex<double>;
    std::array<complex, 16> entries{};  // row-major; the high bit of an index is the first qubit's
    std::array<double, 16> from{};      // as of a one_qubit_unitary

    static two_qubit_matrix identity();
    bool is_finite() const;
    two_qubit_matrix after(const two_qubit_matrix& earlier) const;
    // Entries that are rounding errors become zeros.
    void settle_zeros();
    // Whether every entry is zero but those whose row and column are equal or differ by `flipped`, once zeros have
    // settled: 0 asks for a diagonal, 3 for a matrix that mixes 00 with 11 and 01 with 10.
    bool mixes_only(unsigned flipped) const;
};

// What an operation on these qubits, one of them or both, does to them. The first is the larger.
template <class T>
two_qubit_matrix matrix_of(const gates::operation<T>& op, unsigned first, unsigned second);

}  // namespace velacamplix::fusion
