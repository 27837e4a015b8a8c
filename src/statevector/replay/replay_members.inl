#pragma once

#include <velacamplix/statevector.hpp>

#include <stdexcept>

namespace pbamplix::cpu {

// The names are compared in order of their frequency in practice; the record is read anew for every gate, as it may
// grow while it is replayed.
template <class T>
void PybindAmplixStateVectorCPU<T>::simulate_circuit(PybindAmplixWCircuit<T>& circuit) {
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
            throw std::invalid_argument("Gate " + name + " is not supported by the pybinded circuit");
        }
    }
}

}  // namespace pbamplix::cpu
