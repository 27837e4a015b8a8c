#pragma once

#include "statevector/gates/gate_table.hpp"

#include <string>
#include <vector>

// The library's gates with a name, from its table: a gate that is added there is tried by every test that asks here.
namespace support {

using velacamplix::gates::gate_row;

template <class Wanted>
std::vector<std::string> names_of_gates(Wanted wanted) {
    std::vector<std::string> names;
    for (const gate_row& row : velacamplix::gates::gate_rows) {
        if (wanted(row)) names.emplace_back(row.name);
    }
    return names;
}

// Those without controls of their own.
inline std::vector<std::string> plain_gates(unsigned int targets) {
    return names_of_gates(
        [=](const gate_row& row) { return row.controls == 0 && row.targets == targets && row.angles == 0; });
}
inline std::vector<std::string> gates_with_angles() {
    return names_of_gates([](const gate_row& row) { return row.angles != 0; });
}

// Controls of its own and targets together.
inline std::vector<std::string> gates_on(unsigned int qubits) {
    return names_of_gates([=](const gate_row& row) { return row.controls + row.targets == qubits; });
}

inline unsigned int qubits_of(const std::string& name) {
    const gate_row& row = *velacamplix::gates::find_gate(name);
    return row.controls + row.targets;
}
inline unsigned int angles_of(const std::string& name) { return velacamplix::gates::find_gate(name)->angles; }

}  // namespace support
