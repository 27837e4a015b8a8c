#pragma once

#include "statevector/replay/record.hpp"
#include "statevector/replay/replay.hpp"

#include <velacamplix/statevector.hpp>

namespace pbamplix::cpu {

// A state that fits in the first-level cache takes the gates one by one. The names are compared in the order of their
// frequency in practice; the record is read anew for every gate, as it may grow while it is replayed.
template <class T>
void PybindAmplixStateVectorCPU<T>::simulate_circuit(PybindAmplixWCircuit<T>& circuit) {
    if (nqubits >= velacamplix::replay::fewest_qubits_worth_planning<T>) {
        velacamplix::replay::run_record(circuit, amplitudes.get(), nqubits, num_threads);
        return;
    }
    for (std::size_t i = 0; i < circuit.gates.size(); ++i) {
        const std::string& name = circuit.gates[i];
        const std::vector<unsigned int>& q = circuit.qubits[i];
        const std::vector<T>& p = circuit.params[i];
        if (name == "H") {
            apply_H(q[0]);
        } else if (name == "X") {
            apply_X(q[0]);
        } else if (name == "Y") {
            apply_Y(q[0]);
        } else if (name == "Z") {
            apply_Z(q[0]);
        } else if (name == "RX") {
            apply_RX(q[0], p[0]);
        } else if (name == "RY") {
            apply_RY(q[0], p[0]);
        } else if (name == "RZ") {
            apply_RZ(q[0], p[0]);
        } else if (name == "PH") {
            apply_PH(q[0], p[0]);
        } else if (name == "T") {
            apply_T(q[0]);
        } else if (name == "CNOT") {
            apply_CNOT(q[0], q[1]);
        } else if (name == "SWAP") {
            apply_SWAP(q[0], q[1]);
        } else {
            velacamplix::replay::refuse_name(name);
        }
    }
}

}  // namespace pbamplix::cpu
