#pragma once

#include "complex.hpp"

namespace reference {

enum class OneQubit { X, Y, H, ZtoY, YtoZ, RX, RY, Matrix };

// params: d, o for RX and RY; m00, m01, m10, m11 for Matrix; none otherwise.
template <class T>
void apply(OneQubit gate, State<T>& state, unsigned int qubit, const Qubits& controls,
           const std::vector<Complex<T>>& params = {});

}  // namespace reference
