#include "control_sets.hpp"

#include <algorithm>

namespace support {
namespace {

using reference::Qubits;

Qubits others(const Qubits& targets, unsigned int n) {
    Qubits result;
    for (unsigned int q = 0; q < n; ++q) {
        if (std::find(targets.begin(), targets.end(), q) == targets.end()) result.push_back(q);
    }
    return result;
}

std::vector<Qubits> subsets(const Qubits& qubits) {
    std::vector<Qubits> sets;
    for (unsigned long chosen = 0; chosen < (1ul << qubits.size()); ++chosen) {
        Qubits set;
        for (unsigned long i = 0; i < qubits.size(); ++i) {
            if ((chosen >> i) & 1) set.push_back(qubits[i]);
        }
        std::reverse(set.begin(), set.end());
        sets.push_back(set);
    }
    return sets;
}

}  // namespace

std::vector<Qubits> control_sets(const Qubits& targets, unsigned int n) {
    const Qubits free = others(targets, n);
    if (n <= 5) return subsets(free);

    const unsigned int lowest_target = *std::min_element(targets.begin(), targets.end());
    Qubits below, above;
    for (unsigned int q : free) (q < lowest_target ? below : above).push_back(q);

    std::vector<Qubits> sets = {{}};
    if (!below.empty()) sets.insert(sets.end(), {{below.back()}, {below.front()}});
    if (!above.empty()) sets.insert(sets.end(), {{above.front()}, {above.back()}});
    if (!below.empty() && !above.empty()) {
        sets.push_back({above.back(), below.front()});
        sets.push_back({below.back(), above.back(), above.front()});
    }
    if (free.size() >= 4) sets.push_back({free[3], free[0], free[free.size() - 1], free[1]});
    sets.push_back(free);
    for (auto& set : sets) {
        std::vector<unsigned int> seen;
        for (unsigned int q : set) {
            if (std::find(seen.begin(), seen.end(), q) == seen.end()) seen.push_back(q);
        }
        set = seen;
    }
    std::sort(sets.begin(), sets.end());
    sets.erase(std::unique(sets.begin(), sets.end()), sets.end());
    return sets;
}

}  // namespace support
