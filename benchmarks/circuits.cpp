#include "circuits.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
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

using edge = std::array<unsigned int, 2>;

// Of a grid with about as many rows as columns, the qubits row by row. Edges in four groups, none of which meets a
// qubit twice.
std::array<std::vector<edge>, 4> grid_edges(unsigned int n) {
    unsigned int columns = 1;
    while (columns * columns < n) ++columns;
    std::array<std::vector<edge>, 4> groups;
    for (unsigned int q = 0; q < n; ++q) {
        const unsigned int row = q / columns, column = q % columns;
        if (column + 1 < columns && q + 1 < n) groups[column % 2].push_back({q, q + 1});
        if (q + columns < n) groups[2 + row % 2].push_back({q, q + columns});
    }
    return groups;
}

void add_phase_of_both(std::vector<listed_gate>& gates, edge e, double angle) {
    gates.push_back({"CNOT", {}, {e[0], e[1]}});
    gates.push_back({"RZ", {angle}, {e[1]}});
    gates.push_back({"CNOT", {}, {e[0], e[1]}});
}

// A ring and its chords to the opposite qubit.
std::vector<listed_gate> approximate_optimization(unsigned int n) {
    numbers random;
    std::vector<listed_gate> gates;
    for (unsigned int q = 0; q < n; ++q) gates.push_back({"H", {}, {q}});
    for (int round = 0; round < 3; ++round) {
        const double gamma = random.angle(), beta = random.angle();
        for (unsigned int q = 0; q < n; ++q) add_phase_of_both(gates, {q, (q + 1) % n}, gamma);
        for (unsigned int q = 0; q < n / 2; ++q) add_phase_of_both(gates, {q, q + n / 2}, gamma);
        for (unsigned int q = 0; q < n; ++q) gates.push_back({"RX", {beta}, {q}});
    }
    return gates;
}

std::vector<listed_gate> heisenberg_step(unsigned int n) {
    std::vector<listed_gate> gates;
    const auto turn = [&](edge e, const std::string& name, std::vector<double> angles) {
        for (const unsigned int q : e) gates.push_back({name, angles, {q}});
    };
    for (const auto& group : grid_edges(n)) {
        for (const edge e : group) {
            turn(e, "H", {});
            add_phase_of_both(gates, e, 0.2);
            turn(e, "H", {});
            turn(e, "RX", {M_PI / 2});
            add_phase_of_both(gates, e, 0.2);
            turn(e, "RX", {-M_PI / 2});
            add_phase_of_both(gates, e, 0.2);
        }
    }
    return gates;
}

// Columns of random numbers, each made orthogonal to those before it.
std::vector<std::complex<double>> random_unitary(numbers& random) {
    std::complex<double> columns[4][4];
    for (auto& column : columns) {
        for (auto& entry : column) {
            const double length = std::sqrt(-std::log(1 - random.uniform())), angle = 2 * M_PI * random.uniform();
            entry = std::polar(length, angle);
        }
        for (int again = 0; again < 2; ++again) {
            for (const auto& earlier : columns) {
                if (&earlier == &column) break;
                std::complex<double> overlap = 0;
                for (int i = 0; i < 4; ++i) overlap += std::conj(earlier[i]) * column[i];
                for (int i = 0; i < 4; ++i) column[i] -= overlap * earlier[i];
            }
        }
        double norm = 0;
        for (const auto& entry : column) norm += std::norm(entry);
        for (auto& entry : column) entry /= std::sqrt(norm);
    }
    std::vector<std::complex<double>> matrix;
    for (int row = 0; row < 4; ++row) {
        for (const auto& column : columns) matrix.push_back(column[row]);
    }
    return matrix;
}

std::vector<listed_gate> random_pairs(unsigned int n) {
    numbers random;
    std::vector<unsigned int> order(n);
    std::iota(order.begin(), order.end(), 0u);
    std::vector<listed_gate> gates;
    for (int layer = 0; layer < 10; ++layer) {
        for (unsigned int i = n; i-- > 1;) std::swap(order[i], order[random.below(i + 1)]);
        for (unsigned int i = 0; i + 1 < n; i += 2) {
            gates.push_back({"", {}, {order[i], order[i + 1]}, random_unitary(random)});
        }
    }
    return gates;
}

std::vector<listed_gate> random_cycles(unsigned int n) {
    constexpr std::complex<double> i(0, 1);
    const double c = std::sqrt(0.5);
    const std::complex<double> phase = std::polar(1.0, -M_PI / 6);
    const std::vector<std::complex<double>> roots[3] = {
        {c, -c * i, -c * i, c}, {c, -c, c, c}, {c, -c * std::sqrt(i), c * std::sqrt(-i), c}};
    numbers random;
    const auto groups = grid_edges(n);
    std::vector<listed_gate> gates;
    std::vector<unsigned int> last(n, 3);
    for (unsigned int cycle = 0; cycle < 10; ++cycle) {
        for (unsigned int q = 0; q < n; ++q) {
            last[q] = last[q] == 3 ? random.below(3) : (last[q] + 1 + random.below(2)) % 3;
            gates.push_back({"", {}, {q}, roots[last[q]]});
        }
        for (const edge e : groups[cycle % 4]) {
            gates.push_back({"", {}, {e[0], e[1]}, {1, 0, 0, 0, 0, 0, -i, 0, 0, -i, 0, 0, 0, 0, 0, phase}});
        }
    }
    return gates;
}

}  // namespace

bool fits_a_record(const listed_circuit& circuit) {
    return std::all_of(circuit.gates.begin(), circuit.gates.end(),
                       [](const listed_gate& gate) { return gate.matrix.empty(); });
}

std::vector<listed_circuit> measured_circuits(unsigned int n) {
    return {{"ansatz", ansatz(n)},        {"layers", layers(n)},   {"qft", fourier_transform(n)},
            {"random", random_gates(n)},  {"ghz", ghz(n)},         {"qaoa", approximate_optimization(n)},
            {"heis", heisenberg_step(n)}, {"qv", random_pairs(n)}, {"rqc", random_cycles(n)}};
}

template <class T>
void apply_gate_by_gate(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const listed_circuit& circuit) {
    for (const auto& gate : circuit.gates) {
        const auto& [name, angles, qubits, matrix] = gate;
        const unsigned int q = qubits[0];
        if (matrix.size() == 4) {
            state.apply_1qbit_gate(q, matrix_of<T>(gate));
        } else if (matrix.size() == 16) {
            state.apply_2qbit_gate(q, qubits[1], matrix_of<T>(gate));
        } else if (name == "H") {
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
