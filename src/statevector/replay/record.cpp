#include "statevector/replay/record.hpp"

#include "statevector/replay/schedule.hpp"

#include <stdexcept>

namespace velacamplix::replay {

const gates::gate_row* recorded_gate(const std::string& name) {
    const gates::gate_row* const row = gates::find_gate(name);
    return row != nullptr && row->recorded ? row : nullptr;
}

void refuse_name(const std::string& name) {
    throw std::invalid_argument("Gate " + name + " is not supported by the pybinded circuit");
}

template <class T>
void run_record(const pbamplix::PybindAmplixWCircuit<T>& circuit, thrust::complex<T>* state, unsigned nbqbits,
                int nthreads) {
    std::vector<gates::operation<T>> operations;
    operations.reserve(circuit.gates.size());
    std::size_t gate = 0;
    for (; gate < circuit.gates.size(); ++gate) {
        const gates::gate_row* const row = recorded_gate(circuit.gates[gate]);
        if (row == nullptr) break;
        operations.push_back(gates::named_operation<T>(*row, circuit.params[gate], circuit.qubits[gate]));
    }
    schedule<T>(operations, nbqbits, nthreads).run(operations, state);
    if (gate < circuit.gates.size()) refuse_name(circuit.gates[gate]);
}

template void run_record(const pbamplix::PybindAmplixWCircuit<float>&, thrust::complex<float>*, unsigned, int);
template void run_record(const pbamplix::PybindAmplixWCircuit<double>&, thrust::complex<double>*, unsigned, int);

}  // namespace velacamplix::replay
