#pragma once

#include <limits>
#include <random>
#include <type_traits>

namespace velacamplix::measurement {

// An output converted, rounding to nearest. Before AVX-512 a processor converts signed numbers alone, and which way the
// highest bit goes cannot be predicted: so a double takes both halves, exactly, and rounds once, in their sum.
template <class T>
inline T converted(unsigned long output) {
    if constexpr (std::is_same_v<T, double>) {
        return static_cast<T>(static_cast<long>(output >> 32)) * 0x1p32 +
               static_cast<T>(static_cast<long>(output & 0xfffffffful));
    } else {
        return static_cast<T>(output);
    }
}

// A number in [0, 1) from one output of a 64-bit engine: converted first, then scaled. What rounds up to 1 becomes the
// largest number below it.
template <class T>
inline T uniform(unsigned long output) {
    const T u = converted<T>(output) * T(0x1p-64);
    return u < T(1) ? u : T(1) - std::numeric_limits<T>::epsilon() / 2;
}

// Returns work(), which draws from an engine. When it throws, for lack of memory, the engine is put back.
template <class Engine, class Work>
auto with_engine(Engine& engine, Work work) {
    const Engine before = engine;
    try {
        return work();
    } catch (...) {
        engine = before;
        throw;
    }
}

// A random number and the shot it decides.
template <class T>
struct draw {
    T number;
    unsigned int shot;
};

// Writes one draw per output to `draws`, by increasing number. outputs[i] belongs to shot i; equally spread outputs
// take linear time.
template <class T>
void sort_draws(const unsigned long* outputs, unsigned int count, draw<T>* draws, int nthreads);

}  // namespace velacamplix::measurement
