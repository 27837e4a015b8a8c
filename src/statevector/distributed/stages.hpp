#pragma once

#include "statevector/plan/footprint.hpp"
#include "statevector/plan/layers.hpp"

#include <vector>

// Which qubits are in a part, stage by stage. A state of n qubits lies in parts of 2^local amplitudes; gates of a stage
// act in each part by itself, and between two stages parts exchange amplitudes. Pure: knows gates by their footprints.

namespace velacamplix::distributed {

// Whether a gate flips one qubit, everywhere.
template <class T>
bool is_plain_flip(const gates::operation<T>& op) {
    return op.kind == gates::gate_kind::x && op.controls == 0;
}

// What the planner knows of a gate. `mixed` and `read` say what it may not change places with; `needed`, which of these
// qubits must be in the part. A plain flip needs none: outside it renumbers the parts.
struct footprint : plan::footprint {
    unsigned long needed = 0;
};

template <class T>
std::vector<footprint> footprints_of(const std::vector<gates::operation<T>>& operations) {
    std::vector<footprint> footprints;
    footprints.reserve(operations.size());
    for (const auto& op : operations) {
        const plan::footprint f = plan::footprint_of(op);
        footprints.push_back({f, is_plain_flip(op) ? 0 : f.mixed});
    }
    return footprints;
}

// Gates that act, in this order, while the qubits `local` are in the parts, as many as have places there.
struct stage {
    std::vector<unsigned long> gates;
    unsigned long local = 0;
};

enum class start {
    anywhere,  // qubits may stand where the first stage wants them
    in_order   // the lowest are in the parts; a first stage may have no gates
};

// Cuts a list into stages. Every gate needs `local` qubits at most.
//
// A stage takes every gate that needs no more qubits than have places and may overtake those left behind. When others
// come in, the qubits that are needed last go. Two ways to begin, with the qubits of the first gates and with the
// lowest, are both tried; that by which fewer amplitudes travel is taken, the former if both are alike. With
// `last_local` a last stage without gates brings these qubits home.
std::vector<stage> cut_into_stages(const std::vector<footprint>& gates, unsigned nbqbits, unsigned local,
                                   plan::exchange allowed, start from, unsigned long last_local = 0);

// The parts' amplitudes that go elsewhere, all stages together: 1 is every amplitude once.
double parts_sent(const std::vector<stage>& stages);

}  // namespace velacamplix::distributed
