#pragma once

#include "statevector/gates/operation.hpp"

#include <complex>

namespace velacamplix::fusion {

// Whether an entry of a product is what products that cancel leave of a zero, by the size of the products.
bool counts_as_zero(std::complex<double> entry, double made_from);

// The size that an entry of a gate's own matrix counts as made from.
template <class T>
double size_made_from(std::complex<double> entry);

// The matrix of gates on one qubit, in double precision whatever the state's.
struct one_qubit_unitary {
    using complex = std::complex<double>;
    complex m00 = 1, m01 = 0, m10 = 0, m11 = 1;
    // How large the numbers were that an entry is made of, up to 1: an entry that is a rounding error of theirs counts
    // as zero. Any other counts, however small: after a projection it may be all there is.
    double from00 = 1, from01 = 0, from10 = 0, from11 = 1;

    bool is_diagonal() const;
    bool is_antidiagonal() const;
    // Within the tolerance, which is also what is lost when it is taken for one.
    bool is_unitary(double tolerance) const;
    one_qubit_unitary after(const one_qubit_unitary& earlier) const;
};

// diag(first, second), or a factor for bit 0 and one for bit 1.
struct factor_pair {
    std::complex<double> zero = 1, one = 1;
    bool is_identity() const;
};

enum class rotation { none, x, h, rx, ry };

// u = diag(last) * rotation * diag(1, first): every unitary has this form, and the rotations take the fewest products.
// The rotation is ((cosine, -sine), (sine, cosine)) for ry, ((cosine, -i sine), (-i sine, cosine)) for rx.
struct decomposition {
    std::complex<double> first = 1;
    rotation middle = rotation::none;
    double cosine = 1, sine = 0;
    factor_pair last;
};
decomposition decompose(const one_qubit_unitary& u, double tolerance);

// What an operation with one target does to it where its controls are 1.
template <class T>
one_qubit_unitary matrix_of(const gates::operation<T>& op);
}  // namespace velacamplix::fusion
