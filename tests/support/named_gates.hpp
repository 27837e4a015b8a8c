#pragma once

#include "reference/named_gates.hpp"
#include "support/gate_lists.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/program.hpp>

#include <functional>
#include <map>
#include <optional>
#include <tuple>

namespace support {

// The members that take named gates.
template <class T>
const auto& members() {
    using State = StateVector<T>;
    using Gate = reference::NamedGate<T>;
    using Controls = std::optional<std::vector<unsigned int>>;
    static const std::map<std::string, std::function<void(State&, const Gate&, const Controls&)>> by_name = {
        {"X", [](State& v, const Gate& g, const Controls& c) { v.apply_X(g.qubits[0], c); }},
        {"Y", [](State& v, const Gate& g, const Controls& c) { v.apply_Y(g.qubits[0], c); }},
        {"Z", [](State& v, const Gate& g, const Controls& c) { v.apply_Z(g.qubits[0], c); }},
        {"H", [](State& v, const Gate& g, const Controls& c) { v.apply_H(g.qubits[0], c); }},
        {"S", [](State& v, const Gate& g, const Controls& c) { v.apply_S(g.qubits[0], c); }},
        {"T", [](State& v, const Gate& g, const Controls& c) { v.apply_T(g.qubits[0], c); }},
        {"ZtoY", [](State& v, const Gate& g, const Controls& c) { v.apply_ZtoY(g.qubits[0], c); }},
        {"YtoZ", [](State& v, const Gate& g, const Controls& c) { v.apply_YtoZ(g.qubits[0], c); }},
        {"RX", [](State& v, const Gate& g, const Controls& c) { v.apply_RX(g.qubits[0], g.angle, c); }},
        {"RY", [](State& v, const Gate& g, const Controls& c) { v.apply_RY(g.qubits[0], g.angle, c); }},
        {"RZ", [](State& v, const Gate& g, const Controls& c) { v.apply_RZ(g.qubits[0], g.angle, c); }},
        {"PH", [](State& v, const Gate& g, const Controls& c) { v.apply_PH(g.qubits[0], g.angle, c); }},
        {"CNOT", [](State& v, const Gate& g, const Controls&) { v.apply_CNOT(g.qubits[0], g.qubits[1]); }},
        {"CSIGN", [](State& v, const Gate& g, const Controls&) { v.apply_CSIGN(g.qubits[0], g.qubits[1]); }},
        {"SWAP", [](State& v, const Gate& g, const Controls&) { v.apply_SWAP(g.qubits[0], g.qubits[1]); }},
        {"ISWAP", [](State& v, const Gate& g, const Controls&) { v.apply_ISWAP(g.qubits[0], g.qubits[1]); }},
        {"SQRTSWAP", [](State& v, const Gate& g, const Controls&) { v.apply_SQRTSWAP(g.qubits[0], g.qubits[1]); }},
        {"CCNOT",
         [](State& v, const Gate& g, const Controls&) { v.apply_CCNOT(g.qubits[0], g.qubits[1], g.qubits[2]); }},
    };
    return by_name;
}

inline bool has_member(const std::string& name) { return members<double>().contains(name); }

// Angles as a program takes them.
template <class T>
std::vector<double> params_of(const reference::NamedGate<T>& gate) {
    std::vector<double> params = {static_cast<double>(gate.angle), static_cast<double>(gate.phi),
                                  static_cast<double>(gate.lam)};
    params.resize(angles_of(gate.name));
    return params;
}

// Applies a gate by its member, or by a program of this one gate where there is no member. An empty control list is
// left out of the call.
template <class T>
void call(StateVector<T>& v, const reference::NamedGate<T>& gate) {
    if (has_member(gate.name)) {
        std::optional<std::vector<unsigned int>> controls;
        if (!gate.controls.empty()) controls = gate.controls;
        return members<T>().at(gate.name)(v, gate, controls);
    }
    pbamplix::cpu::program<T> alone(v.nqubits);
    alone.add_gate(gate.name, params_of(gate), gate.qubits, gate.controls);
    alone.run(v);
}

// Applies a gate by its member, or by that for matrices.
template <class T>
void call_member(StateVector<T>& v, const reference::NamedGate<T>& gate) {
    if (has_member(gate.name)) return call(v, gate);
    const auto matrix = as_thrust(reference::matrix_of(gate));
    const auto& [q, c] = std::tie(gate.qubits, gate.controls);
    if (q.size() == 1) return c.empty() ? v.apply_1qbit_gate(q[0], matrix) : v.apply_1qbit_ctrl_gate(c, q[0], matrix);
    c.empty() ? v.apply_2qbit_gate(q[0], q[1], matrix) : v.apply_2qbit_ctrl_gate(c, q[0], q[1], matrix);
}

// A state vector that works on somebody else's array.
template <class T>
class BorrowingVector : public StateVector<T> {
public:
    explicit BorrowingVector(unsigned int n) : StateVector<T>(n) {}

    void borrow(thrust::complex<T>* array) {
        this->amplitudes = pbamplix::amplitude_array<T>(array, [](thrust::complex<T>*) {});
    }
};

}  // namespace support
