#include <velacamplix/circuit.hpp>

namespace pbamplix {

template <class T>
PybindAmplixWCircuit<T>::PybindAmplixWCircuit(unsigned int n) : nqubits(n) {}

template <class T>
void PybindAmplixWCircuit<T>::reset(unsigned int n) {
    nqubits = n;
    gates.clear();
    qubits.clear();
    params.clear();
}

template <class T>
void PybindAmplixWCircuit<T>::add_gate(const std::string& name, const std::vector<T>& gate_params,
                                       const std::vector<unsigned int>& gate_qubits) {
    gates.push_back(name);
    qubits.push_back(gate_qubits);
    params.push_back(gate_params);
}

template class PybindAmplixWCircuit<float>;
template class PybindAmplixWCircuit<double>;

}  // namespace pbamplix
