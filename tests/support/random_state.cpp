#include "random_state.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

namespace support {
namespace {

template <class T>
struct Layout;
template <>
struct Layout<float> {
    using bits = std::uint32_t;
    static constexpr bits sign = 0x80000000u, exponent = 0x7F800000u, quiet = 0x00400000u;
};
template <>
struct Layout<double> {
    using bits = std::uint64_t;
    static constexpr bits sign = 0x8000000000000000ul, exponent = 0x7FF0000000000000ul, quiet = 0x0008000000000000ul;
};

template <class T>
T ordinary(std::mt19937& engine) {
    return std::uniform_real_distribution<T>(T(-1), T(1))(engine);
}

template <class T>
T with_random_sign(typename Layout<T>::bits pattern, std::mt19937& engine) {
    return std::bit_cast<T>(static_cast<typename Layout<T>::bits>(pattern | ((engine() & 1) ? Layout<T>::sign : 0)));
}

// The sign of the NaN that the processor itself makes, of infinity times zero, say.
#if defined(__x86_64__)
template <class T>
constexpr typename Layout<T>::bits sign_of_its_nan = Layout<T>::sign;
#else
template <class T>
constexpr typename Layout<T>::bits sign_of_its_nan = 0;
#endif

template <class T>
T unusual(std::mt19937& engine) {
    using L = Layout<T>;
    using bits = typename L::bits;
    const bits mantissa = static_cast<bits>(engine()) & (L::quiet - 1);
    switch (engine() % 8) {
        case 0:
            return with_random_sign<T>(0, engine);
        case 1:
            return std::sqrt(std::numeric_limits<T>::min()) * 3 *
                   ordinary<T>(engine);  // squares leave the normal range
        case 2:
            return with_random_sign<T>(mantissa | 1, engine);  // denormal
        case 3:
            return with_random_sign<T>(1, engine);  // the smallest of them
        case 4:
            return std::numeric_limits<T>::min() * (1 + ordinary<T>(engine));  // around the smallest normal
        case 5:
            return std::numeric_limits<T>::max() * ordinary<T>(engine);  // sums and products overflow
        case 6:
            return with_random_sign<T>(L::exponent, engine);  // infinity
        default:
            return std::bit_cast<T>(static_cast<bits>(sign_of_its_nan<T> | L::exponent | L::quiet));
    }
}

template <class T>
T any_nan(std::mt19937& engine) {
    using bits = typename Layout<T>::bits;
    const bits payload = ((static_cast<bits>(engine()) << (8 * sizeof(bits) - 32)) | engine()) & ~Layout<T>::exponent;
    return std::bit_cast<T>(static_cast<bits>(payload | Layout<T>::exponent | 1));
}

// About one number in eight is unusual: enough of each kind, and enough groups without any.
template <class T>
T number(Values values, std::mt19937& engine) {
    const unsigned int choice = engine() % 16;
    if (values == Values::any_bits && choice == 0) return any_nan<T>(engine);
    if (values != Values::ordinary && choice <= 2) return unusual<T>(engine);
    return ordinary<T>(engine);
}

}  // namespace

template <class T>
reference::State<T> random_state(unsigned int n, Values values, unsigned int seed) {
    std::mt19937 engine(1000 * n + 10 * seed + static_cast<unsigned int>(values));
    reference::State<T> state(1ul << n);
    for (auto& a : state) {
        a.re = number<T>(values, engine);
        a.im = number<T>(values, engine);
    }
    return state;
}

template <class T>
std::vector<reference::Complex<T>> random_coefficients(unsigned long count, unsigned int seed) {
    std::mt19937 engine(seed + 1);
    const auto coefficient = [&engine] {
        return engine() % 8 == 0 ? with_random_sign<T>(0, engine) : ordinary<T>(engine);
    };
    std::vector<reference::Complex<T>> result(count);
    for (auto& c : result) {
        c.re = coefficient();
        c.im = coefficient();
    }
    return result;
}

reference::Qubits random_qubits(unsigned int count, unsigned int n, std::mt19937& engine) {
    reference::Qubits qubits(n);
    std::iota(qubits.begin(), qubits.end(), 0u);
    std::shuffle(qubits.begin(), qubits.end(), engine);
    qubits.resize(count);
    return qubits;
}

template reference::State<float> random_state(unsigned int, Values, unsigned int);
template reference::State<double> random_state(unsigned int, Values, unsigned int);
template std::vector<reference::Complex<float>> random_coefficients(unsigned long, unsigned int);
template std::vector<reference::Complex<double>> random_coefficients(unsigned long, unsigned int);

}  // namespace support
