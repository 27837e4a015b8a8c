#include "statevector/replay/one_qubit_unitary.hpp"

namespace velacamplix::replay {
namespace {

using complex = std::complex<double>;

// Entries below this are rounding left over from products that cancel.
constexpr double vanishing = 1e-15;

bool is_near(complex a, complex b, double tolerance) { return std::abs(a - b) <= tolerance; }

complex direction(complex a) { return a / std::abs(a); }

}  // namespace

bool one_qubit_unitary::is_diagonal() const { return std::abs(m01) <= vanishing && std::abs(m10) <= vanishing; }

bool one_qubit_unitary::is_identity() const { return is_diagonal() && factor_pair{m00, m11}.is_identity(); }

bool one_qubit_unitary::is_unitary() const {
    constexpr double tolerance = 1e-6;  // a float's matrix is one, too
    return is_near(std::norm(m00) + std::norm(m10), 1, tolerance) &&
           is_near(std::norm(m01) + std::norm(m11), 1, tolerance) &&
           is_near(std::conj(m00) * m01 + std::conj(m10) * m11, 0, tolerance);
}

one_qubit_unitary one_qubit_unitary::after(const one_qubit_unitary& earlier) const {
    return {m00 * earlier.m00 + m01 * earlier.m10, m00 * earlier.m01 + m01 * earlier.m11,
            m10 * earlier.m00 + m11 * earlier.m10, m10 * earlier.m01 + m11 * earlier.m11};
}

bool factor_pair::is_identity() const { return is_near(zero, 1, vanishing) && is_near(one, 1, vanishing); }

decomposition decompose(const one_qubit_unitary& u, double tolerance) {
    decomposition d;
    if (u.is_diagonal()) {
        d.last = {u.m00, u.m11};
        return d;
    }
    if (std::abs(u.m00) <= vanishing && std::abs(u.m11) <= vanishing) {
        d.middle = rotation::x;
        d.last = {u.m01, u.m10};
        return d;
    }
    // Lengths keep what a matrix that is not quite unitary does to the norm.
    d.cosine = (std::abs(u.m00) + std::abs(u.m11)) / 2;
    d.sine = (std::abs(u.m01) + std::abs(u.m10)) / 2;
    const bool mostly_diagonal = d.cosine >= d.sine;
    complex zero = std::abs(u.m00) > vanishing ? direction(u.m00) : 1;
    complex one = std::abs(u.m10) > vanishing ? direction(u.m10) : 1;
    // From the larger entries: the direction of a small one is not known well.
    complex first = mostly_diagonal ? direction(u.m11) / one : -direction(u.m01) / zero;
    if (!mostly_diagonal) one = direction(u.m10);
    if (is_near(d.cosine, d.sine, tolerance) && is_near(first, -1, tolerance)) {
        d.middle = rotation::h;
        d.last = {zero, one};
        return d;
    }
    const bool turned = first.real() < -tolerance || (first.real() < tolerance && first.imag() < 0);
    if (turned) {
        d.sine = -d.sine;
        one = -one;
        first = -first;
    }
    if (is_near(first, complex(0, 1), tolerance)) {
        // ry = diag(1, i) rx diag(1, -i)
        d.middle = rotation::rx;
        d.last = {zero, one * complex(0, 1)};
        return d;
    }
    d.middle = rotation::ry;
    d.first = is_near(first, 1, tolerance) ? 1 : first;
    d.last = {zero, one};
    return d;
}

template <class T>
one_qubit_unitary matrix_of(const gates::operation<T>& op) {
    gates::operation<T> alone = op;
    alone.targets = {0};
    alone.controls = 0;
    const auto call = gates::prepare(alone, 1);
    thrust::complex<T> columns[2][2] = {{{1, 0}, {0, 0}}, {{0, 0}, {1, 0}}};
    kernels::run_serial(call, columns[0]);
    kernels::run_serial(call, columns[1]);
    const auto entry = [&](int row, int column) {
        const thrust::complex<T> m = columns[column][row];
        return complex(static_cast<double>(m.real()), static_cast<double>(m.imag()));
    };
    return {entry(0, 0), entry(0, 1), entry(1, 0), entry(1, 1)};
}

template one_qubit_unitary matrix_of(const gates::operation<float>&);
template one_qubit_unitary matrix_of(const gates::operation<double>&);

}  // namespace velacamplix::replay
