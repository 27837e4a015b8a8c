#pragma once

#include "statevector/gates/operation.hpp"

#include <vector>

namespace velacamplix::distributed {

// The same gate where qubit q is called names[q]. A kernel knows qubits by their roles in the gate, so every amplitude
// goes through the same operations.
template <class T>
gates::operation<T> renamed(const gates::operation<T>& op, const std::vector<unsigned int>& names);

// Whether a gate only exchanges two qubits, everywhere.
template <class T>
bool is_plain_swap(const gates::operation<T>& op) {
    return op.kind == gates::gate_kind::swap && op.controls == 0;
}
template <class T>
gates::operation<T> swap_of(unsigned int a, unsigned int b) {
    return gates::named_operation<T>(*gates::find_gate("SWAP"), std::vector<double>{}, {a, b});
}

// Gates in which no qubit changes its name any more, and those that put all qubits back.
template <class T>
struct without_swaps {
    std::vector<gates::operation<T>> operations;
    std::vector<unsigned int> name;  // in the end qubit q of the list is called name[q]

    // Takes plain SWAPs out and renames the qubits of what follows.
    without_swaps(const std::vector<gates::operation<T>>& list, unsigned nbqbits);
};

// Exchanges of two qubits each after which that at place q is the one that was at place from[q], in order.
std::vector<std::pair<unsigned int, unsigned int>> exchanges_for(const std::vector<unsigned int>& from);

}  // namespace velacamplix::distributed
