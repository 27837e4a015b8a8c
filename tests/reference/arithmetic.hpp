#pragma once

#include "complex.hpp"

#include <bit>
#include <cstdint>

// Element arithmetic of the reference. Only its own .cpp files include this: the flags they are compiled with are
// part of the meaning.
namespace reference {

template <class T>
Complex<T> add(Complex<T> x, Complex<T> y) {
    return {x.re + y.re, x.im + y.im};
}

template <class T>
Complex<T> subtract(Complex<T> x, Complex<T> y) {
    return {x.re - y.re, x.im - y.im};
}

// Four products, always: a factor of 0 or 1 is not skipped.
template <class T>
Complex<T> multiply(Complex<T> x, Complex<T> y) {
    return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
}

// Flips the sign bit and nothing else, also of a NaN.
inline float negated(float x) { return std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) ^ 0x80000000u); }
inline double negated(double x) {
    return std::bit_cast<double>(std::bit_cast<std::uint64_t>(x) ^ 0x8000000000000000ul);
}

// 1/sqrt(2) as the system has it: in double one unit below the correctly rounded value.
template <class T>
constexpr T inverse_root_of_two = T(0);
template <>
inline constexpr float inverse_root_of_two<float> = std::bit_cast<float>(std::uint32_t{0x3F3504F3});
template <>
inline constexpr double inverse_root_of_two<double> = std::bit_cast<double>(std::uint64_t{0x3FE6A09E667F3BCC});

}  // namespace reference
