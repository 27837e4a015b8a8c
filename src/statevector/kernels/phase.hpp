#pragma once

#include "statevector/kernels/walk.hpp"

#include <velacamplix/kernels.hpp>

namespace velacamplix::kernels {

// Prepares a gate that multiplies the amplitudes under a condition by one number and leaves the others unread:
// Z, S, T by what the tag says, the phase gate, GatePhase, by `coefficient`. G is the tag of a formula over one
// amplitude (formulas.hpp).
template <class G, class T>
kernel_call<T> phase_call(unsigned long nbqbits, condition where, thrust::complex<T> coefficient = {});

}  // namespace velacamplix::kernels
