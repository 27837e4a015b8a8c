#pragma once

#include <cstdint>
#include <limits>

// Both of them: what is compiled for every precision.
#define VELACAMPLIX_FOR_EACH_PRECISION(each) each(float) each(double)

namespace velacamplix::packs {

// All that depends on which precision the amplitudes have, and does not follow from its size. Another precision is
// another specialisation.
template <class T>
struct precision;

template <>
struct precision<float> {
    using integer = std::int32_t;  // holds the bits of a number

    // The factor of H, and of all that stands for it.
    static constexpr float inverse_sqrt2 = 0x1.6a09e6p-1f;

    // A power of two, the root of the smallest normal number: the square of what is below leaves the normal range.
    static constexpr float tiny_part = 0x1p-63f;

    // How far from unitary a given matrix may be to be taken for one: some units in the last place.
    static constexpr double unitary_tolerance = 1e-6;

    // Coefficients that differ by no more are taken for equal where gates are multiplied together.
    static constexpr double equal_coefficients = 1e-7;

    // An entry of a rotation's matrix from here on may stand where exact sines and cosines are zero, and be what
    // rounding a multiple of pi leaves of them. In single precision that is told by the entry itself.
    static constexpr double least_rounded_sine = std::numeric_limits<double>::infinity();
};

template <>
struct precision<double> {
    using integer = std::int64_t;

    // One unit below the correctly rounded 1/sqrt(2), on purpose: H twice on |0> gives 0.9999999999999998, and hosts
    // rely on it. Pinned by one_qubit.test.cpp.
    static constexpr double inverse_sqrt2 = 0x1.6a09e667f3bccp-1;

    static constexpr double tiny_part = 0x1p-511;
    static constexpr double unitary_tolerance = 2e-15;
    static constexpr double equal_coefficients = 4 * std::numeric_limits<double>::epsilon();
    static constexpr double least_rounded_sine = 6e-17;
};

}  // namespace velacamplix::packs
