#pragma once

#include "statevector/replay/record.hpp"
#include "statevector/replay/schedule.hpp"

#include <velacamplix/statevector.hpp>

namespace pbamplix::cpu {

// A state that fits in the first-level cache takes the gates one by one; the record is read anew for each, as it may
// grow while it is replayed.
template <class T>
void PybindAmplixStateVectorCPU<T>::simulate_circuit(PybindAmplixWCircuit<T>& circuit) {
    if (nqubits >= velacamplix::replay::fewest_qubits_worth_planning<T>) {
        velacamplix::replay::run_record(circuit, amplitudes.get(), nqubits, num_threads);
        return;
    }
    for (std::size_t i = 0; i < circuit.gates.size(); ++i) {
        const velacamplix::gates::gate_row* const row = velacamplix::replay::recorded_gate(circuit.gates[i]);
        if (row == nullptr) velacamplix::replay::refuse_name(circuit.gates[i]);
        const auto call = velacamplix::gates::named_call<T>(*row, circuit.params[i], circuit.qubits[i], nqubits);
        velacamplix::kernels::run_parallel(call, amplitudes.get(), num_threads);
    }
}

}  // namespace pbamplix::cpu
