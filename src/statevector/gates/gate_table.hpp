#pragma once

#include "statevector/kernels/formulas.hpp"

#include <velacamplix/kernels.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

// What there is to know of a gate with a name, one row for each. Whatever lists gates, or asks what kind of gate it has
// before it, reads this table. What a gate does to amplitudes is the formula of its tag (kernels/formulas.hpp).

namespace velacamplix::gates {

enum class gate_kind : unsigned char {
    // In the table.
    x,
    y,
    z,
    h,
    s,
    t,
    z_to_y,
    y_to_z,
    rx,
    ry,
    rz,
    ph,
    swap,
    iswap,
    sqrt_swap,
    sx,
    u,
    rxx,
    ryy,
    rzz,
    // Given by their numbers.
    matrix1,   // mixes one target
    matrix2,   // mixes two
    matrix,    // mixes any number
    diagonal,  // on any number of targets
    product,   // one factor pair per target, side by side in `entries`; only among fused gates
    block,     // a product of matrices on one to four targets; only among fused gates
};
inline constexpr std::size_t gate_kinds = static_cast<std::size_t>(gate_kind::block) + 1;

struct gate_row {
    std::string_view name;
    gate_kind kind;     // gates of one kind do the same to their targets
    unsigned controls;  // how many of its qubits, first listed, are controls
    unsigned targets;   // and how many follow
    unsigned angles;    // in radians
    bool diagonal;      // changes every amplitude by a factor of its own
    bool moves;         // only moves amplitudes
    bool recorded;      // may stand in a circuit record. S is missing on purpose: a record that holds it is refused
    bool listed_controlled;  // among the state vector's named_ctrl_gates, in this order
};

template <class Tag>
struct tagged {
    gate_row row;
};

inline constexpr auto gate_table = [] {
    using namespace kernels;
    constexpr bool yes = true, no = false;
    // clang-format off
    return std::tuple{
        //                                                         |  |  |  |    |    |    listed_controlled
        //                                                         |  |  |  |    |    recorded
        //                                                         |  |  |  |    moves
        //                                                         |  |  |  diagonal
        //                                                         |  |  angles
        //                                                         |  targets
        //                                                         controls
        tagged<GateX>          {{"X",        gate_kind::x,         0, 1, 0, no,  yes, yes, yes}},
        tagged<GateY>          {{"Y",        gate_kind::y,         0, 1, 0, no,  no,  yes, yes}},
        tagged<GateZ>          {{"Z",        gate_kind::z,         0, 1, 0, yes, no,  yes, yes}},
        tagged<GateH>          {{"H",        gate_kind::h,         0, 1, 0, no,  no,  yes, yes}},
        tagged<GateS>          {{"S",        gate_kind::s,         0, 1, 0, yes, no,  no,  yes}},
        tagged<GateT>          {{"T",        gate_kind::t,         0, 1, 0, yes, no,  yes, yes}},
        tagged<GateRX>         {{"RX",       gate_kind::rx,        0, 1, 1, no,  no,  yes, yes}},
        tagged<GateRY>         {{"RY",       gate_kind::ry,        0, 1, 1, no,  no,  yes, yes}},
        tagged<GateRZ>         {{"RZ",       gate_kind::rz,        0, 1, 1, yes, no,  yes, yes}},
        tagged<GatePhase>      {{"PH",       gate_kind::ph,        0, 1, 1, yes, no,  yes, yes}},
        tagged<GateX>          {{"CNOT",     gate_kind::x,         1, 1, 0, no,  yes, yes, no}},
        tagged<GateX>          {{"CCNOT",    gate_kind::x,         2, 1, 0, no,  yes, no,  no}},
        tagged<GateZ>          {{"CSIGN",    gate_kind::z,         1, 1, 0, yes, no,  no,  no}},
        tagged<GateSWAP>       {{"SWAP",     gate_kind::swap,      0, 2, 0, no,  yes, yes, no}},
        tagged<GateISWAP>      {{"ISWAP",    gate_kind::iswap,     0, 2, 0, no,  no,  no,  no}},
        tagged<GateSQRTSWAP>   {{"SQRTSWAP", gate_kind::sqrt_swap, 0, 2, 0, no,  no,  no,  no}},
        tagged<GateZtoY>       {{"ZtoY",     gate_kind::z_to_y,    0, 1, 0, no,  no,  no,  no}},
        tagged<GateYtoZ>       {{"YtoZ",     gate_kind::y_to_z,    0, 1, 0, no,  no,  no,  no}},
        // The state vector has no members for those below.
        tagged<GateSX>         {{"SX",       gate_kind::sx,        0, 1, 0, no,  no,  no,  no}},
        tagged<GateU>          {{"U",        gate_kind::u,         0, 1, 3, no,  no,  no,  no}},
        tagged<GateRXX>        {{"RXX",      gate_kind::rxx,       0, 2, 1, no,  no,  no,  no}},
        tagged<GateRYY>        {{"RYY",      gate_kind::ryy,       0, 2, 1, no,  no,  no,  no}},
        tagged<GateRZZ>        {{"RZZ",      gate_kind::rzz,       0, 2, 1, yes, no,  no,  no}},
    };
    // clang-format on
}();

// The rows without their tags.
inline constexpr auto gate_rows = std::apply(
    [](const auto&... entries) { return std::array<gate_row, sizeof...(entries)>{entries.row...}; }, gate_table);

// Null for a name that no gate has.
constexpr const gate_row* find_gate(std::string_view name) {
    if (name.empty()) return nullptr;
    for (const gate_row& row : gate_rows) {
        if (row.name.front() != name.front()) continue;  // settles most of them without a call
        if (row.name == name) return &row;
    }
    return nullptr;
}

// The row of a kind, by the gate that has no controls of its own; null for a gate that is given by its numbers.
constexpr const gate_row* row_of(gate_kind kind) {
    constexpr auto rows = [] {
        std::array<const gate_row*, gate_kinds> by_kind{};
        for (const gate_row& row : gate_rows) {
            if (row.controls == 0) by_kind[static_cast<std::size_t>(row.kind)] = &row;
        }
        return by_kind;
    }();
    return rows[static_cast<std::size_t>(kind)];
}

inline std::vector<std::string> names_that_take_controls() {
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(
        std::count_if(gate_rows.begin(), gate_rows.end(), [](const gate_row& row) { return row.listed_controlled; })));
    for (const gate_row& row : gate_rows) {
        if (row.listed_controlled) names.emplace_back(row.name);
    }
    return names;
}

constexpr bool is_diagonal(gate_kind kind) {
    const gate_row* const row = row_of(kind);
    return row != nullptr ? row->diagonal : kind == gate_kind::diagonal || kind == gate_kind::product;
}
constexpr bool is_move(gate_kind kind) {
    const gate_row* const row = row_of(kind);
    return row != nullptr && row->moves;
}
constexpr unsigned angles_of(gate_kind kind) {
    const gate_row* const row = row_of(kind);
    return row != nullptr ? row->angles : 0;
}

}  // namespace velacamplix::gates
