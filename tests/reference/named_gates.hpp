#pragma once

#include "complex.hpp"

#include <string>

namespace reference {

// One call of a state vector's named gate. `qubits` in the order of its arguments (CNOT: control, target); `controls`
// only for the gates that take some.
template <class T>
struct NamedGate {
    std::string name;
    Qubits qubits;
    T angle = T(0);
    Qubits controls = {};
};

template <class T>
void apply(State<T>& state, const NamedGate<T>& gate);

}  // namespace reference
