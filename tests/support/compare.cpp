#include "compare.hpp"

#include <bit>
#include <cstdint>
#include <cstdio>

namespace support {
namespace {

std::string with_bits(float x) {
    char text[64];
    std::snprintf(text, sizeof text, "%08x (%.9g)", std::bit_cast<std::uint32_t>(x), static_cast<double>(x));
    return text;
}
std::string with_bits(double x) {
    char text[64];
    std::snprintf(text, sizeof text, "%016lx (%.17g)", std::bit_cast<std::uint64_t>(x), x);
    return text;
}

template <class T>
testing::AssertionResult compare(const T* expected, const T* got, unsigned long count, unsigned int per_entry) {
    unsigned long first = count, differing = 0;
    for (unsigned long i = 0; i < count; ++i) {
        if (std::memcmp(expected + i, got + i, sizeof(T)) == 0) continue;
        if (differing == 0) first = i;
        ++differing;
    }
    if (differing == 0) return testing::AssertionSuccess();
    const char* part = per_entry == 1 ? "" : first % 2 == 0 ? ", real part" : ", imaginary part";
    return testing::AssertionFailure() << differing << " of " << count << " numbers differ, first at index "
                                       << first / per_entry << part << ":\n  expected " << with_bits(expected[first])
                                       << "\n  got      " << with_bits(got[first]);
}

}  // namespace

testing::AssertionResult same_numbers(const float* expected, const float* got, unsigned long count,
                                      unsigned int numbers_per_entry) {
    return compare(expected, got, count, numbers_per_entry);
}
testing::AssertionResult same_numbers(const double* expected, const double* got, unsigned long count,
                                      unsigned int numbers_per_entry) {
    return compare(expected, got, count, numbers_per_entry);
}

std::string describe(const reference::Qubits& qubits) {
    std::string text = "{";
    for (unsigned int q : qubits) text += (text.size() == 1 ? "" : ", ") + std::to_string(q);
    return text + "}";
}

std::string describe(unsigned int n, const reference::Qubits& targets, const reference::Qubits& controls, int threads) {
    return "n = " + std::to_string(n) + ", targets " + describe(targets) + ", controls " + describe(controls) + ", " +
           std::to_string(threads) + " thread(s)";
}

}  // namespace support
