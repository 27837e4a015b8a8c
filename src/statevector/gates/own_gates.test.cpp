#include "reference/named_gates.hpp"
#include "support/control_sets.hpp"
#include "support/gate_lists.hpp"
#include "support/kernel_check.hpp"
#include "support/named_gates.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/recorded_program.hpp"

#include <velacamplix/program.hpp>

// Gates that the state vector has no member for do what their matrices do, bit for bit.

using namespace support;
using reference::Qubits;

PRECISION_SUITE(own_gate);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;

std::vector<std::string> own_gates() {
    return names_of_gates([](const gate_row& row) { return !has_member(std::string(row.name)); });
}

// Turns by nothing, by almost nothing (a sine that single precision has not), by halves, by much; and none like
// another.
const double some_angles[] = {0.7, 0, -0.0, 3.14159265358979323846, 1e-60, -2.9, 1234567.8, 1e-310, 5.1, -1e15, 12.25};

using Gate = reference::NamedGate<double>;

// Three angles from the list, those of a gate with less among them.
Gate gate_with_angle(const std::string& name, const Qubits& qubits, const Qubits& controls, std::size_t which) {
    const auto at = [](std::size_t i) { return some_angles[i % std::size(some_angles)]; };
    return {name, qubits, at(which), controls, at(3 * which + 1), at(5 * which + 2)};
}

template <class T>
void add(program<T>& list, const Gate& gate) {
    list.add_gate(gate.name, params_of(gate), gate.qubits, gate.controls);
}
template <class T>
void add_matrix(program<T>& list, const Gate& gate) {
    std::vector<thrust::complex<T>> matrix;
    for (const auto& e : reference::matrix_of(gate)) matrix.emplace_back(static_cast<T>(e.re), static_cast<T>(e.im));
    list.add_matrix(matrix, gate.qubits, gate.controls);
}

template <class T>
std::vector<Qubits> targets_of(const std::string& name, unsigned int n) {
    if (qubits_of(name) == 2) return ordered_pairs(n);
    std::vector<Qubits> all;
    for (unsigned int q = 0; q < n; ++q) all.push_back({q});
    return all;
}

}  // namespace

TYPED_TEST(own_gate, gives_the_bits_of_its_matrix_on_all_qubits_under_all_controls) {
    for (const std::string& name : own_gates()) {
        std::size_t which = 0;
        for (unsigned int n = qubits_of(name); n <= 7; ++n) {
            for (const Values values : {Values::ordinary, Values::unusual}) {
                const auto start = random_state<TypeParam>(n, values, n);
                for (const Qubits& targets : targets_of<TypeParam>(name, n)) {
                    for (const Qubits& controls : control_sets(targets, n)) {
                        const Gate gate = gate_with_angle(name, targets, controls, which++);
                        program<TypeParam> list(n), by_matrix(n);
                        add(list, gate);
                        add_matrix(by_matrix, gate);
                        LoadedVector<TypeParam> got(start), expected(start);
                        list.run(got);
                        by_matrix.run(expected);
                        ASSERT_TRUE(equal_states(expected, got))
                            << name << " by " << gate.angle << ", " << describe(n, targets, controls, 1);
                    }
                }
            }
        }
    }
}

// In chunks that hold all, some or none of its qubits, and with angles that were set afterwards.
TYPED_TEST(own_gate, gives_the_bits_of_its_matrix_among_other_gates) {
    const unsigned int n = 15;
    for (const std::string& name : own_gates()) {
        for (const Values values : {Values::ordinary, Values::unusual}) {
            const auto start = random_state<TypeParam>(n, values, n);
            std::mt19937 engine(5);
            program<TypeParam> list(n), rebound(n), by_matrix(n);
            for (std::size_t which = 0; which < 60; ++which) {
                // They only move amplitudes: unusual values stay what they are.
                const auto q = static_cast<unsigned int>(engine() % n);
                for (auto* each : {&list, &rebound, &by_matrix}) each->add_gate("X", {}, {q});
                Qubits targets = random_qubits(qubits_of(name) + which % 3, n, engine);
                const Qubits controls(targets.begin() + qubits_of(name), targets.end());
                targets.resize(qubits_of(name));
                const Gate gate = gate_with_angle(name, targets, controls, which);
                add(list, gate);
                add(rebound, gate_with_angle(name, targets, controls, which + 1));
                add_matrix(by_matrix, gate);
            }
            LoadedVector<TypeParam> expected(start), got(start, 3), renewed(start, 3);
            by_matrix.run(expected);
            list.run(got);
            EXPECT_TRUE(equal_states(expected, got)) << name;
            rebound.run(renewed);
            renewed.load(start);
            for (std::size_t which = 0; which < 60; ++which) {
                if (angles_of(name) == 0) break;
                rebound.set_params(2 * which + 1, params_of(gate_with_angle(name, Qubits{}, {}, which)));
            }
            rebound.run(renewed);
            EXPECT_TRUE(equal_states(expected, renewed)) << name << " with new angles";
        }
    }
}
