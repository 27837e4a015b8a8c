#pragma once

#include "complex.hpp"

#include <string>

namespace reference {

// One use of a gate by its name. `qubits` in the order of its arguments (CNOT: control, target); `controls`
// only for the gates that take some.
template <class T>
struct NamedGate {
    std::string name;
    Qubits qubits;
    T angle = T(0);
    Qubits controls = {};
    T phi = T(0), lam = T(0);  // of a gate with three angles, after `angle`
};

// The matrix of a gate that the state vector has no member for, row by row, the first qubit as the highest bit: formed
// in double and rounded. Empty for a gate with a member.
template <class T>
std::vector<Complex<T>> matrix_of(const NamedGate<T>& gate);

template <class T>
void apply(State<T>& state, const NamedGate<T>& gate);

}  // namespace reference
