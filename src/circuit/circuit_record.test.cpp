#include "support/precision.hpp"

#include <velacamplix/circuit.hpp>

#include <cstddef>

using namespace support;
using pbamplix::PybindAmplixWCircuit;

PRECISION_SUITE(circuit_record);

namespace {

using Qubits = std::vector<unsigned int>;

template <class T>
void expect_counts(const PybindAmplixWCircuit<T>& circuit, unsigned long gates) {
    EXPECT_EQ(circuit.gates.size(), gates);
    EXPECT_EQ(circuit.qubits.size(), gates);
    EXPECT_EQ(circuit.params.size(), gates);
}

}  // namespace

TYPED_TEST(circuit_record, has_its_fields_in_order) {
    using C = PybindAmplixWCircuit<TypeParam>;
    static_assert(std::is_same_v<decltype(C::nqubits), unsigned int>);
    static_assert(std::is_same_v<decltype(C::gates), std::vector<std::string>>);
    static_assert(std::is_same_v<decltype(C::qubits), std::vector<std::vector<unsigned int>>>);
    static_assert(std::is_same_v<decltype(C::params), std::vector<std::vector<TypeParam>>>);
    static_assert(offsetof(C, nqubits) < offsetof(C, gates) && offsetof(C, gates) < offsetof(C, qubits) &&
                  offsetof(C, qubits) < offsetof(C, params));
    EXPECT_FALSE(std::is_polymorphic_v<C>);
}

TYPED_TEST(circuit_record, is_empty_when_constructed) {
    const PybindAmplixWCircuit<TypeParam> circuit(7);
    EXPECT_EQ(circuit.nqubits, 7u);
    expect_counts(circuit, 0);
}

TYPED_TEST(circuit_record, keeps_gates_in_the_order_added) {
    PybindAmplixWCircuit<TypeParam> circuit(3);
    circuit.add_gate("H", {}, {0});
    circuit.add_gate("RX", {TypeParam(0.5)}, {2});
    circuit.add_gate("CNOT", {}, {2, 1});
    expect_counts(circuit, 3);
    EXPECT_EQ(circuit.gates, (std::vector<std::string>{"H", "RX", "CNOT"}));
    EXPECT_EQ(circuit.qubits, (std::vector<Qubits>{{0}, {2}, {2, 1}}));
    EXPECT_EQ(circuit.params, (std::vector<std::vector<TypeParam>>{{}, {TypeParam(0.5)}, {}}));
}

TYPED_TEST(circuit_record, keeps_copies_of_what_it_was_given) {
    PybindAmplixWCircuit<TypeParam> circuit(1);
    std::string name = "PH";
    std::vector<TypeParam> params = {1};
    Qubits qubits = {0};
    circuit.add_gate(name, params, qubits);
    name = "X";
    params[0] = 2;
    qubits[0] = 3;
    EXPECT_EQ(circuit.gates[0], "PH");
    EXPECT_EQ(circuit.params[0], (std::vector<TypeParam>{1}));
    EXPECT_EQ(circuit.qubits[0], (Qubits{0}));
}

TYPED_TEST(circuit_record, accepts_any_name_and_any_lists) {
    PybindAmplixWCircuit<TypeParam> circuit(1);
    EXPECT_NO_THROW(circuit.add_gate("S", {}, {0}));
    EXPECT_NO_THROW(circuit.add_gate("", {}, {}));
    EXPECT_NO_THROW(circuit.add_gate("no such gate", {1, 2, 3}, {99, 99}));
    EXPECT_NO_THROW(circuit.add_gate("RX", {}, {}));
    expect_counts(circuit, 4);
    EXPECT_EQ(circuit.gates[2], "no such gate");
}

TYPED_TEST(circuit_record, reset_forgets_every_gate_and_takes_the_new_count) {
    PybindAmplixWCircuit<TypeParam> circuit(3);
    for (int i = 0; i < 10; ++i) circuit.add_gate("RX", {1}, {0});
    circuit.reset(5);
    EXPECT_EQ(circuit.nqubits, 5u);
    expect_counts(circuit, 0);
    circuit.add_gate("X", {}, {4});
    expect_counts(circuit, 1);
}

TYPED_TEST(circuit_record, keeps_extra_qubits_and_parameters) {
    PybindAmplixWCircuit<TypeParam> circuit(3);
    circuit.add_gate("H", {9, 8}, {0, 1, 2});
    EXPECT_EQ(circuit.qubits[0], (Qubits{0, 1, 2}));
    EXPECT_EQ(circuit.params[0], (std::vector<TypeParam>{9, 8}));
}
