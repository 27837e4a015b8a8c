#include "statevector/distributed/renamed.hpp"
#include "statevector/distributed/stages.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/replay/program_content.hpp"

#include <algorithm>

namespace pbamplix::cpu {

template <class T>
program<T> program<T>::reordered(unsigned int state_qubits, unsigned int rank_bits) const {
    constexpr unsigned int fewest_local = 6;
    const implementation& content = replay::content_of(self);
    if (state_qubits > replay::most_qubits) {
        replay::refuse("A state has at most " + replay::counted(replay::most_qubits, "qubit") + ", not " +
                       std::to_string(state_qubits));
    }
    if (state_qubits < content.nqubits) {
        replay::refuse("The program has " + replay::counted(content.nqubits, "qubit") + ", the state " +
                       std::to_string(state_qubits));
    }
    program<T> other(content.nqubits);
    other.self->fusion = content.fusion;
    distributed::without_swaps<T> renamed(content.operations, content.nqubits);
    unsigned int local = std::max(fewest_local, state_qubits - std::min(rank_bits, state_qubits));
    std::vector<distributed::footprint> footprints;
    for (const auto& op : renamed.operations) {
        const auto f = velacamplix::plan::footprint_of(op);
        footprints.push_back({f, f.mixed});
        local = std::max(local, index::count_bits(f.mixed));
    }
    for (const auto& stage :
         distributed::cut_into_stages(footprints, state_qubits, std::min(local, state_qubits),
                                      velacamplix::plan::exchange::up_to_rounding, distributed::start::anywhere)) {
        for (const unsigned long gate : stage.gates) other.self->operations.push_back(renamed.operations[gate]);
    }
    for (const auto& [a, b] : distributed::exchanges_for(renamed.name)) {
        other.self->operations.push_back(distributed::swap_of<T>(a, b));
    }
    return other;
}

template program<float> program<float>::reordered(unsigned int, unsigned int) const;
template program<double> program<double>::reordered(unsigned int, unsigned int) const;

}  // namespace pbamplix::cpu
