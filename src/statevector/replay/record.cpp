#include "statevector/replay/record.hpp"

#include "statevector/replay/replay.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

namespace velacamplix::replay {
namespace {

// S is missing on purpose: a record that holds it is refused, although the state vector has the gate.
constexpr std::array<std::string_view, 11> names_of_a_record = {"H",  "X",  "Y", "Z",    "RX",  "RY",
                                                                "RZ", "PH", "T", "CNOT", "SWAP"};

bool may_be_recorded(const std::string& name) {
    return std::find(names_of_a_record.begin(), names_of_a_record.end(), name) != names_of_a_record.end();
}

}  // namespace

void refuse_name(const std::string& name) {
    throw std::invalid_argument("Gate " + name + " is not supported by the pybinded circuit");
}

template <class T>
void run_record(const pbamplix::PybindAmplixWCircuit<T>& circuit, thrust::complex<T>* state, unsigned nbqbits,
                int nthreads) {
    std::vector<gates::operation<T>> operations;
    operations.reserve(circuit.gates.size());
    std::size_t gate = 0;
    for (; gate < circuit.gates.size() && may_be_recorded(circuit.gates[gate]); ++gate) {
        gates::named_operation(operations.emplace_back(), circuit.gates[gate], circuit.params[gate],
                               circuit.qubits[gate]);
    }
    schedule<T>(operations, nbqbits, nthreads).run(operations, state);
    if (gate < circuit.gates.size()) refuse_name(circuit.gates[gate]);
}

template void run_record(const pbamplix::PybindAmplixWCircuit<float>&, thrust::complex<float>*, unsigned, int);
template void run_record(const pbamplix::PybindAmplixWCircuit<double>&, thrust::complex<double>*, unsigned, int);

}  // namespace velacamplix::replay
