#include "random_circuit.hpp"

#include "random_state.hpp"

namespace support {

template <class T>
std::vector<reference::NamedGate<T>> random_circuit(unsigned int n, unsigned int gates, unsigned int seed) {
    const char* const names[] = {"H", "X", "Y", "Z", "RX", "RY", "RZ", "PH", "T", "CNOT", "SWAP", "H", "CNOT"};
    std::mt19937 engine(seed);
    std::uniform_real_distribution<T> angle(T(-7), T(7));
    std::vector<reference::NamedGate<T>> circuit;
    while (circuit.size() < gates) {
        const std::string name = names[engine() % std::size(names)];
        const unsigned int qubits = name == "CNOT" || name == "SWAP" ? 2 : 1;
        if (qubits <= n) circuit.push_back({name, random_qubits(qubits, n, engine), angle(engine)});
    }
    return circuit;
}

template std::vector<reference::NamedGate<float>> random_circuit(unsigned int, unsigned int, unsigned int);
template std::vector<reference::NamedGate<double>> random_circuit(unsigned int, unsigned int, unsigned int);

}  // namespace support
