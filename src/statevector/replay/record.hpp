#pragma once

#include "statevector/gates/gate_table.hpp"

#include <velacamplix/amplitude.hpp>
#include <velacamplix/circuit.hpp>

#include <string>

namespace velacamplix::replay {

// Replays a record in passes. At a name that a record may not hold, the gates before it act, then
// std::invalid_argument is thrown.
template <class T>
void run_record(const pbamplix::PybindAmplixWCircuit<T>& circuit, thrust::complex<T>* state, unsigned nbqbits,
                int nthreads);

// The row of a gate that a record may hold; null for any other name.
const gates::gate_row* recorded_gate(const std::string& name);

[[noreturn]] void refuse_name(const std::string& name);

}  // namespace velacamplix::replay
