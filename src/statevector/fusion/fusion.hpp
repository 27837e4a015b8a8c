#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/plan/layers.hpp"

#include <algorithm>
#include <span>
#include <vector>

namespace velacamplix::fusion {

// A layer of gates that are none of the list's: they act in one pass, in this order.
template <class T>
struct fused_layer {
    std::vector<gates::operation<T>> operations;
    unsigned long local = 0;  // index bits that must be together in a buffer; 0: one gate over the whole array
};

// A list is rewritten in batches of so many gates. A run can only stop between them: they are short enough to stop
// soon, and long enough to hold most of what can be brought together.
inline unsigned long batch_length(unsigned nbqbits) { return 16ul * std::max(nbqbits, 4u); }

// The layers that do the same as a batch of gates up to rounding, in as few passes as exchanging commuting gates
// allows. Phases on single qubits are collected over gates and passes and multiplied in together. Where a gate may make
// a state longer, the gates stay what they are and in an order that gives the same bits.
template <class T>
std::vector<fused_layer<T>> fuse(std::span<const gates::operation<T>> batch, unsigned nbqbits);

}  // namespace velacamplix::fusion
