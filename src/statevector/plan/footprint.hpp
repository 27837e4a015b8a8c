#pragma once

#include "statevector/gates/operation.hpp"

#include <span>
#include <vector>

namespace velacamplix::plan {

// What the planner knows of a gate.
struct footprint {
    unsigned long mixed = 0;  // index bits whose values it mixes: only these must be gathered into a buffer
    unsigned long read = 0;   // its other bits: controls, and targets of a diagonal; constants for a chunk without them
    bool moves = false;       // it only moves amplitudes
};

template <class T>
footprint footprint_of(const gates::operation<T>& op) {
    const unsigned long mixed = op.is_diagonal() ? 0 : op.target_mask();
    return {mixed, (op.target_mask() | op.controls) & ~mixed, op.is_move()};
}

template <class T>
std::vector<footprint> footprints_of(std::span<const gates::operation<T>> operations) {
    std::vector<footprint> footprints;
    footprints.reserve(operations.size());
    for (const gates::operation<T>& op : operations) footprints.push_back(footprint_of(op));
    return footprints;
}

}  // namespace velacamplix::plan
