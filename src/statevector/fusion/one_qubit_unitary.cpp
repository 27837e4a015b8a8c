#include "statevector/fusion/one_qubit_unitary.hpp"

#include <algorithm>

namespace velacamplix::fusion {
namespace {

using complex = std::complex<double>;

// What products that cancel leave of a zero, in units of the products.
constexpr double vanishing = 1e-15;

bool is_near(complex a, complex b, double tolerance) { return std::abs(a - b) <= tolerance; }

complex direction(complex a) {
    if (std::abs(a) < 0x1p-500) a *= 0x1p500;  // its length has few digits
    return a / std::abs(a);
}

bool agree_in_length(complex a, complex b, double tolerance) {
    const double la = std::abs(a), lb = std::abs(b);
    return std::abs(la - lb) <= tolerance * std::max(la, lb);
}

}  // namespace

bool counts_as_zero(complex entry, double made_from) { return std::abs(entry) <= vanishing * made_from; }

// What is smaller than a rounded sine stands there for a reason.
template <class T>
double size_made_from(complex entry) {
    return std::abs(entry) >= packs::precision<T>::least_rounded_sine ? 1 : std::abs(entry);
}

bool one_qubit_unitary::is_diagonal() const { return counts_as_zero(m01, from01) && counts_as_zero(m10, from10); }

bool one_qubit_unitary::is_antidiagonal() const { return counts_as_zero(m00, from00) && counts_as_zero(m11, from11); }

bool one_qubit_unitary::is_unitary(double tolerance) const {
    // What a small entry does may be all that a projection leaves: it has digits of its own, if fewer.
    const double of_small_ones = 1000 * tolerance;
    return is_near(std::norm(m00) + std::norm(m10), 1, tolerance) &&
           is_near(std::norm(m01) + std::norm(m11), 1, tolerance) &&
           is_near(std::conj(m00) * m01 + std::conj(m10) * m11, 0, tolerance) &&
           agree_in_length(m00, m11, of_small_ones) && agree_in_length(m01, m10, of_small_ones);
}

one_qubit_unitary one_qubit_unitary::after(const one_qubit_unitary& earlier) const {
    const one_qubit_unitary& e = earlier;
    const auto from = [](double a, double b, double c, double d) { return std::min(a * b + c * d, 1.0); };
    return {m00 * e.m00 + m01 * e.m10,
            m00 * e.m01 + m01 * e.m11,
            m10 * e.m00 + m11 * e.m10,
            m10 * e.m01 + m11 * e.m11,
            from(from00, e.from00, from01, e.from10),
            from(from00, e.from01, from01, e.from11),
            from(from10, e.from00, from11, e.from10),
            from(from10, e.from01, from11, e.from11)};
}

bool factor_pair::is_identity() const { return is_near(zero, 1, vanishing) && is_near(one, 1, vanishing); }

decomposition decompose(const one_qubit_unitary& u, double tolerance) {
    decomposition d;
    if (u.is_diagonal()) {
        d.last = {u.m00, u.m11};
        return d;
    }
    if (u.is_antidiagonal()) {
        d.middle = rotation::x;
        d.last = {u.m01, u.m10};
        return d;
    }
    // Lengths keep what a matrix that is not quite unitary does to the norm.
    d.cosine = (std::abs(u.m00) + std::abs(u.m11)) / 2;
    d.sine = (std::abs(u.m01) + std::abs(u.m10)) / 2;
    const bool mostly_diagonal = d.cosine >= d.sine;
    complex zero = counts_as_zero(u.m00, u.from00) ? 1 : direction(u.m00);
    complex one = counts_as_zero(u.m10, u.from10) ? 1 : direction(u.m10);
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
    const complex m00 = entry(0, 0), m01 = entry(0, 1), m10 = entry(1, 0), m11 = entry(1, 1);
    return {m00,
            m01,
            m10,
            m11,
            size_made_from<T>(m00),
            size_made_from<T>(m01),
            size_made_from<T>(m10),
            size_made_from<T>(m11)};
}

template double size_made_from<float>(complex);
template double size_made_from<double>(complex);
template one_qubit_unitary matrix_of(const gates::operation<float>&);
template one_qubit_unitary matrix_of(const gates::operation<double>&);

}  // namespace velacamplix::fusion
