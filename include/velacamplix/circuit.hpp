#pragma once

#include "export.hpp"

#include <string>
#include <vector>

namespace pbamplix {

// A plain record of a gate sequence. Nothing is checked here: names, qubits and parameters are looked at when the
// record is replayed by simulate_circuit, which knows the names
// H X Y Z (one qubit), RX RY RZ PH (one qubit, one angle in radians), T, CNOT (control, target) and SWAP.
template <class T>
class VELACAMPLIX_API PybindAmplixWCircuit {
public:
    explicit PybindAmplixWCircuit(unsigned int n);

    // Forgets every gate and takes a new qubit count.
    void reset(unsigned int n);

    // Appends copies of the three; any content is stored as given.
    void add_gate(const std::string& name, const std::vector<T>& params, const std::vector<unsigned int>& qubits);

    unsigned int nqubits;            // stored only, never compared with a state's
    std::vector<std::string> gates;  // entry i of the three lists describes gate i
    std::vector<std::vector<unsigned int>> qubits;
    std::vector<std::vector<T>> params;
};

}  // namespace pbamplix
