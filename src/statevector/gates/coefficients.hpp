#pragma once

#include "statevector/kernels/formulas.hpp"

#include <velacamplix/kernels.hpp>

#include <array>
#include <cmath>
#include <type_traits>

namespace velacamplix::gates {

template <class T>
struct sine_and_cosine {
    T sine;
    T cosine;
};

// Both in the working precision, from one call.
inline sine_and_cosine<double> sincos_of(double angle) {
    sine_and_cosine<double> result;
    ::sincos(angle, &result.sine, &result.cosine);
    return result;
}
inline sine_and_cosine<float> sincos_of(float angle) {
    sine_and_cosine<float> result;
    ::sincosf(angle, &result.sine, &result.cosine);
    return result;
}

// As a kernel call and its formula have them.
template <class T>
using coefficients = std::array<thrust::complex<T>, 4>;

template <class T>
struct coefficient_pair {
    thrust::complex<T> first;
    thrust::complex<T> second;
};

// In full: re = a.re b.re - a.im b.im, im = a.re b.im + a.im b.re.
inline thrust::complex<double> product(thrust::complex<double> a, thrust::complex<double> b) {
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

// The coefficients of a gate with angles in radians, by its tag. A gate that the state vector has a member for takes
// one angle, in any precision, and gives a pair in that precision. Others take their angles in double and give all
// coefficients in double.
template <class G>
struct coefficients_of;

inline constexpr unsigned most_angles = 3;

// How many the gate of a tag takes.
template <class G>
constexpr unsigned count_angles() {
    if constexpr (!requires { coefficients_of<G>{}; }) {
        return 0;
    } else {
        return std::is_invocable_v<coefficients_of<G>, double> ? 1 : most_angles;
    }
}

// Diagonal and off-diagonal entry.
template <>
struct coefficients_of<pbamplix::cpu::GateRX> {
    template <class T>
    coefficient_pair<T> operator()(T angle) const {
        const auto [s, c] = sincos_of(angle * T(0.5));
        return {{c, 0}, {0, -s}};
    }
};
template <>
struct coefficients_of<pbamplix::cpu::GateRY> {
    template <class T>
    coefficient_pair<T> operator()(T angle) const {
        const auto [s, c] = sincos_of(angle * T(0.5));
        return {{c, 0}, {s, 0}};
    }
};

// The two entries of diag(exp(-i angle/2), exp(i angle/2)).
template <>
struct coefficients_of<kernels::GateRZ> {
    template <class T>
    coefficient_pair<T> operator()(T angle) const {
        const auto [s, c] = sincos_of(angle * T(0.5));
        return {{c, -s}, {c, s}};
    }
};

// [[cos(theta/2), -exp(i lam) sin(theta/2)], [exp(i phi) sin(theta/2), exp(i phi) exp(i lam) cos(theta/2)]]. Phases are
// multiplied: the sum of large angles would be rounded to that of others.
template <>
struct coefficients_of<kernels::GateU> {
    coefficients<double> operator()(double theta, double phi, double lam) const {
        const auto phase = [](double angle) {
            const auto [s, c] = sincos_of(angle);
            return thrust::complex<double>(c, s);
        };
        const auto [s, c] = sincos_of(theta * 0.5);
        const auto p = phase(phi), q = phase(lam);
        const auto sine_q = product({s, 0}, q);
        return {{{c, 0}, {-sine_q.real(), -sine_q.imag()}, product({s, 0}, p), product(product({c, 0}, p), q)}};
    }
};

// The diagonal entry, that of 00 and 11, that of 01 and 10.
template <>
struct coefficients_of<kernels::GateRXX> {
    coefficients<double> operator()(double angle) const {
        const auto [s, c] = sincos_of(angle * 0.5);
        return {{{c, 0}, {0, -s}, {0, -s}}};
    }
};

template <>
struct coefficients_of<kernels::GateRYY> {
    coefficients<double> operator()(double angle) const {
        const auto [s, c] = sincos_of(angle * 0.5);
        return {{{c, 0}, {0, s}, {-0.0, -s}}};  // the last is the negative of the second, zero and all
    }
};

// exp(-i angle/2) where the two qubits agree, exp(i angle/2) where they differ.
template <>
struct coefficients_of<kernels::GateRZZ> {
    coefficients<double> operator()(double angle) const {
        const auto [s, c] = sincos_of(angle * 0.5);
        return {{{c, -s}, {c, s}}};
    }
};

// exp(i angle)
template <>
struct coefficients_of<kernels::GatePhase> {
    template <class T>
    coefficient_pair<T> operator()(T angle) const {
        const auto [s, c] = sincos_of(angle);
        return {{c, s}, {}};
    }
};

// Those of the angles of a gate. A gate with a member has the member's where T can hold the angle (or it is not a
// number). All others are formed in double and rounded.
template <class G, class T>
coefficients<T> coefficients_at(const double* angles) {
    const auto rounded = [](thrust::complex<double> c) {
        return thrust::complex<T>(static_cast<T>(c.real()), static_cast<T>(c.imag()));
    };
    const coefficients_of<G> formula;
    if constexpr (std::is_invocable_r_v<coefficient_pair<T>, coefficients_of<G>, T>) {
        const T own = static_cast<T>(angles[0]);
        if (static_cast<double>(own) == angles[0] || angles[0] != angles[0]) {
            const coefficient_pair<T> pair = formula(own);
            return {pair.first, pair.second};
        }
        const coefficient_pair<double> pair = formula(angles[0]);
        return {rounded(pair.first), rounded(pair.second)};
    } else {
        coefficients<double> wide;
        if constexpr (count_angles<G>() == 1) {
            wide = formula(angles[0]);
        } else {
            wide = formula(angles[0], angles[1], angles[2]);
        }
        return {rounded(wide[0]), rounded(wide[1]), rounded(wide[2]), rounded(wide[3])};
    }
}

}  // namespace velacamplix::gates
