#pragma once

#include "statevector/kernels/formulas.hpp"

#include <velacamplix/kernels.hpp>

#include <cmath>

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

template <class T>
struct coefficient_pair {
    thrust::complex<T> first;
    thrust::complex<T> second;
};

// The coefficients of a gate with an angle in radians, by its tag; in the precision of the angle.
template <class G>
struct coefficients_of;

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

// exp(i angle)
template <>
struct coefficients_of<kernels::GatePhase> {
    template <class T>
    coefficient_pair<T> operator()(T angle) const {
        const auto [s, c] = sincos_of(angle);
        return {{c, s}, {}};
    }
};

// The coefficients of an angle given in double, by one of the formulas above: T's own where T can hold the angle (or it
// is not a number), otherwise those of double, rounded.
template <class T, class Formula>
coefficient_pair<T> coefficients_at(double angle, Formula formula) {
    const T own = static_cast<T>(angle);
    if (static_cast<double>(own) == angle || angle != angle) return formula(own);
    const auto rounded = [](thrust::complex<double> c) {
        return thrust::complex<T>(static_cast<T>(c.real()), static_cast<T>(c.imag()));
    };
    const coefficient_pair<double> wide = formula(angle);
    return {rounded(wide.first), rounded(wide.second)};
}

}  // namespace velacamplix::gates
