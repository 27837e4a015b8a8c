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
    const std::size_t before = gates.size();
    try {
        gates.push_back(name);
        qubits.push_back(gate_qubits);
        params.push_back(gate_params);
    } catch (...) {  // no memory: the lists stay equally long
        gates.resize(before);
        qubits.resize(before);
        params.resize(before);
        throw;
    }
}

template class PybindAmplixWCircuit<float>;
template class PybindAmplixWCircuit<double>;

}  // namespace pbamplix
