#pragma once

#include "reference/complex.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>

namespace support {

// Bit for bit, by memcmp; the failure names the first number that differs, with the bits of both.
testing::AssertionResult same_numbers(const float* expected, const float* got, unsigned long count,
                                      unsigned int numbers_per_entry);
testing::AssertionResult same_numbers(const double* expected, const double* got, unsigned long count,
                                      unsigned int numbers_per_entry);

// Amplitudes: the reference's state against anything laid out like it.
template <class T, class Amplitude>
testing::AssertionResult same_bits(const reference::State<T>& expected, const Amplitude* got) {
    static_assert(sizeof(Amplitude) == sizeof(reference::Complex<T>));
    if (std::memcmp(expected.data(), got, expected.size() * sizeof(Amplitude)) == 0) return testing::AssertionSuccess();
    return same_numbers(reinterpret_cast<const T*>(expected.data()), reinterpret_cast<const T*>(got),
                        2 * expected.size(), 2);
}

// Reals.
template <class T>
testing::AssertionResult same_bits(const std::vector<T>& expected, const std::vector<T>& got) {
    if (expected.size() != got.size()) {
        return testing::AssertionFailure() << "expected " << expected.size() << " numbers, got " << got.size();
    }
    return same_numbers(expected.data(), got.data(), expected.size(), 1);
}
template <class T>
testing::AssertionResult same_bits(T expected, T got) {
    return same_numbers(&expected, &got, 1, 1);
}

// "n = 5, target {3}, controls {0, 4}, 7 threads": what a failing comparison was about.
std::string describe(unsigned int n, const reference::Qubits& targets, const reference::Qubits& controls, int threads);
std::string describe(const reference::Qubits& qubits);

}  // namespace support
