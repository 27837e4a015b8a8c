#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/replay/plan.hpp"

#include <vector>

namespace velacamplix::replay {

// Gates that act in one pass, in this order.
template <class T>
struct gate_group {
    std::vector<gates::operation<T>> operations;
    unsigned long local = 0;  // index bits that must be together in a buffer; 0: one gate over the whole array
};

// The groups that do the same as the gates begin ... end - 1 up to rounding, in as few passes as exchanging commuting
// gates allows. Phases on single qubits are collected over gates and passes and multiplied in together. Where a gate
// may make a state longer, the gates stay what they are and in an order that gives the same bits.
template <class T>
std::vector<gate_group<T>> fuse(const std::vector<gates::operation<T>>& operations, unsigned long begin,
                                unsigned long end, unsigned nbqbits, buffer_shape shape);

}  // namespace velacamplix::replay
