#pragma once

#include <vector>

// The reference simulator: one slow loop per operation, one thread, no code shared with the library. It is compiled
// without contraction and without vectorisation, so that each line below is each rounding that happens.
namespace reference {

// One amplitude, laid out as the library's: real part first. No operators, so that no formula hides an operation.
template <class T>
struct Complex {
    T re, im;
};

// 2^n amplitudes; qubit q is bit q of the index.
template <class T>
using State = std::vector<Complex<T>>;

using Qubits = std::vector<unsigned int>;

}  // namespace reference
