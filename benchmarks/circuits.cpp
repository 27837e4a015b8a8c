#include "circuits.hpp"

#include <cmath>
#include <cstdint>
#include <stdexcept>

namespace velacamplix::bench {
namespace {

// Marsaglia's xorshift: short, and the same numbers with every standard library.
class numbers {
public:
    // From 0 to 1, 1 excluded.
    double uniform() {
        bits ^= bits << 13;
        bits ^= bits >> 7;
        bits ^= bits << 17;
        return static_cast<double>(bits >> 11) * 0x1p-53;
    }
    double angle() { return 6 * uniform(); }
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(uniform() * limit); }

private:
    std::uint64_t bits = 88172645463325252u;
};

void add_chain(std::vector<listed_gate>& gates, unsigned int first, unsigned int step, unsigned int n) {
    for (unsigned int q = first; q + 1 < n; q += step) gates.push_back({"CNOT", {}, {q, q + 1}});
}

std::vector<listed_gate> ansatz(unsigned int n) {
    numbers random;
    std::vector<listed_gate> gates;
    for (int layer = 0; layer < 10; ++layer) {
        for (unsigned int q = 0; q < n; ++q) gates.push_back({"RY", {random.angle()}, {q}});
        for (unsigned int q = 0; q < n; ++q) gates.push_back({"RZ", {random.angle()}, {q}});
        add_chain(gates, 0, 1, n);
    }
    return gates;
}

std::vector<listed_gate> layers(unsigned int n) {
    numbers random;
    std::vector<listed_gate> gates;
    for (unsigned int layer = 0; layer < 20; ++layer) {
        for (unsigned int q = 0; q < n; ++q) {
            const unsigned int kind = random.below(3);
            if (kind == 0) gates.push_back({"H", {}, {q}});
            if (kind == 1) gates.push_back({"T", {}, {q}});
            if (kind == 2) gates.push_back({"RX", {random.angle()}, {q}});
        }
        add_chain(gates, layer % 2, 2, n);
    }
    return gates;
}

// Every controlled phase is three phases and two CNOTs. The final exchange of qubits is left out.
std::vector<listed_gate> fourier_transform(unsigned int n) {
    std::vector<listed_gate> gates;
    for (unsigned int target = n; target-- > 0;) {
        gates.push_back({"H", {}, {target}});
        for (unsigned int control = target; control-- > 0;) {
            const double half = M_PI / std::ldexp(2.0, static_cast<int>(target - control));
            gates.push_back({"PH", {half}, {control}});
            gates.push_back({"CNOT", {}, {control, target}});
            gates.push_back({"PH", {-half}, {target}});
            gates.push_back({"CNOT", {}, {control, target}});
            gates.push_back({"PH", {half}, {target}});
        }
    }
    return gates;
}

std::vector<listed_gate> random_gates(unsigned int n) {
    numbers random;
    std::vector<listed_gate> gates;
    for (int k = 0; k < 300; ++k) {
        const unsigned int p = random.below(n);
        const unsigned int q = (p + 1 + random.below(n - 1)) % n;
        const unsigned int kind = random.below(4);
        if (kind == 0) gates.push_back({"H", {}, {p}});
        if (kind == 1) gates.push_back({"RX", {random.angle()}, {p}});
        if (kind == 2) gates.push_back({"RZ", {random.angle()}, {p}});
        if (kind == 3) gates.push_back({"CNOT", {}, {p, q}});
    }
    return gates;
}

std::vector<listed_gate> ghz(unsigned int n) {
    std::vector<listed_gate> gates{{"H", {}, {0}}};
    add_chain(gates, 0, 1, n);
    return gates;
}

}  // namespace

std::vector<listed_circuit> measured_circuits(unsigned int n) {
    return {{"ansatz", ansatz(n)},
            {"layers", layers(n)},
            {"qft", fourier_transform(n)},
            {"random", random_gates(n)},
            {"ghz", ghz(n)}};
}

template <class T>
void apply_gate_by_gate(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const listed_circuit& circuit) {
    for (const auto& [name, angles, qubits] : circuit.gates) {
        const unsigned int q = qubits[0];
        if (name == "H") {
            state.apply_H(q);
        } else if (name == "T") {
            state.apply_T(q);
        } else if (name == "RX") {
            state.apply_RX(q, static_cast<T>(angles[0]));
        } else if (name == "RY") {
            state.apply_RY(q, static_cast<T>(angles[0]));
        } else if (name == "RZ") {
            state.apply_RZ(q, static_cast<T>(angles[0]));
        } else if (name == "PH") {
            state.apply_PH(q, static_cast<T>(angles[0]));
        } else if (name == "CNOT") {
            state.apply_CNOT(q, qubits[1]);
        } else {
            throw std::invalid_argument("no member is known here for gate " + name);
        }
    }
}

template void apply_gate_by_gate(pbamplix::cpu::PybindAmplixStateVectorCPU<float>&, const listed_circuit&);
template void apply_gate_by_gate(pbamplix::cpu::PybindAmplixStateVectorCPU<double>&, const listed_circuit&);

}  // namespace velacamplix::bench
