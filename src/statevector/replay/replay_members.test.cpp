#include "reference/named_gates.hpp"
#include "reference/resets.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/named_gates.hpp"
#include "support/precision.hpp"
#include "support/random_circuit.hpp"
#include "support/random_state.hpp"

#include <stdexcept>

using namespace support;
using pbamplix::PybindAmplixWCircuit;
using reference::NamedGate;

PRECISION_SUITE(replay);

namespace {

template <class T>
PybindAmplixWCircuit<T> record_of(const std::vector<NamedGate<T>>& gates, unsigned int n) {
    PybindAmplixWCircuit<T> circuit(n);
    for (const auto& gate : gates) {
        const bool turns = gate.name[0] == 'R' || gate.name == "PH";
        circuit.add_gate(gate.name, turns ? std::vector<T>{gate.angle} : std::vector<T>{}, gate.qubits);
    }
    return circuit;
}

// Replays on every thread count; compares with the reference and with the members called gate by gate.
template <class T>
testing::AssertionResult agrees(const std::vector<NamedGate<T>>& gates, const reference::State<T>& start,
                                const std::vector<int>& threads) {
    const unsigned int n = reference::qubit_count(start.size());
    auto circuit = record_of(gates, n);
    auto expected = start;
    for (const auto& gate : gates) reference::apply(expected, gate);
    LoadedVector<T> v(start);
    for (int count : threads) {
        v.set_num_threads(count);
        v.load(start);
        for (const auto& gate : gates) call(v, gate);
        if (auto same = same_bits(expected, v.amplitudes.get()); !same) {
            return same << "\ngate by gate, n = " << n << ", " << count << " thread(s)";
        }
        v.load(start);
        v.simulate_circuit(circuit);
        if (auto same = same_bits(expected, v.amplitudes.get()); !same) {
            return same << "\nreplayed, n = " << n << ", " << count << " thread(s)";
        }
    }
    return testing::AssertionSuccess();
}

}  // namespace

TYPED_TEST(replay, equals_gate_by_gate_and_the_reference_bit_for_bit) {
    for (unsigned int n = 1; n <= 12; ++n) {
        for (unsigned int trial = 0; trial < 4; ++trial) {
            const auto gates = random_circuit<TypeParam>(n, 60, 100 * n + trial);
            ASSERT_TRUE(agrees(gates, random_state<TypeParam>(n, Values::ordinary, trial), thread_counts));
        }
    }
}

TYPED_TEST(replay, of_long_records_on_12_to_15_qubits_equals_gate_by_gate_and_the_reference_bit_for_bit) {
    // From here on gates are taken together in passes; each state with another thread count.
    for (unsigned int n = 12; n <= 15; ++n) {
        for (unsigned int trial = 0; trial < 4; ++trial) {
            const auto gates = random_circuit<TypeParam>(n, 150, 1000 * n + trial);
            const auto start = random_state<TypeParam>(n, Values::ordinary, trial);
            ASSERT_TRUE(agrees(gates, start, {thread_counts[trial]}));
        }
    }
}

TYPED_TEST(replay, of_a_large_state_equals_gate_by_gate_and_the_reference_bit_for_bit) {
    for (unsigned int n : {16u, 17u, 18u}) {
        const auto gates = random_circuit<TypeParam>(n, 50, n);
        ASSERT_TRUE(agrees(gates, random_state<TypeParam>(n, Values::ordinary), {1, 2, 3, 7}));
    }
}

TYPED_TEST(replay, of_layers_on_neighbours_equals_gate_by_gate_and_the_reference_bit_for_bit) {
    // Rotations on every qubit, then a chain of CNOTs: what blocked passes gain most from.
    const unsigned int n = 17;
    std::vector<NamedGate<TypeParam>> gates;
    for (unsigned int layer = 0; layer < 2; ++layer) {
        for (unsigned int q = 0; q < n; ++q) gates.push_back({"RY", {q}, TypeParam(0.1) * TypeParam(q + 1)});
        for (unsigned int q = 0; q < n; ++q) gates.push_back({"RZ", {q}, TypeParam(0.3) * TypeParam(q + 1)});
        for (unsigned int q = 0; q + 1 < n; ++q) gates.push_back({"CNOT", {q, q + 1}});
    }
    ASSERT_TRUE(agrees(gates, random_state<TypeParam>(n, Values::ordinary), {1, 3}));
}

TYPED_TEST(replay, carries_infinities_and_nans_as_gate_by_gate_does) {
    // Gates that flip no sign: the processor's NaN stays the only one.
    for (unsigned int n : {3u, 8u, 14u, 16u}) {
        auto gates = random_circuit<TypeParam>(n, 40, n);
        std::erase_if(gates, [](const auto& gate) { return gate.name == "Y" || gate.name == "Z"; });
        ASSERT_TRUE(agrees(gates, random_state<TypeParam>(n, Values::unusual), {1, 3}));
    }
}

TYPED_TEST(replay, of_an_empty_record_leaves_the_state_untouched) {
    const auto start = random_state<TypeParam>(5, Values::any_bits);
    LoadedVector<TypeParam> v(start);
    PybindAmplixWCircuit<TypeParam> circuit(5);
    v.simulate_circuit(circuit);
    EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
    circuit.add_gate("X", {}, {0});
    circuit.reset(5);
    v.simulate_circuit(circuit);
    EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
}

TYPED_TEST(replay, of_cnot_takes_control_then_target) {
    const auto start = random_state<TypeParam>(3, Values::any_bits);
    LoadedVector<TypeParam> replayed(start), called(start);
    PybindAmplixWCircuit<TypeParam> circuit(3);
    circuit.add_gate("CNOT", {}, {0, 1});
    replayed.simulate_circuit(circuit);
    called.apply_CNOT(0, 1);
    EXPECT_EQ(std::memcmp(replayed.amplitudes.get(), called.amplitudes.get(), 8 * sizeof(start[0])), 0);
}

TYPED_TEST(replay, of_swap_takes_its_qubits_in_either_order) {
    const auto start = random_state<TypeParam>(3, Values::any_bits);
    LoadedVector<TypeParam> one(start), other(start), called(start);
    PybindAmplixWCircuit<TypeParam> circuit(3);
    circuit.add_gate("SWAP", {}, {1, 0});
    one.simulate_circuit(circuit);
    circuit.reset(3);
    circuit.add_gate("SWAP", {}, {0, 1});
    other.simulate_circuit(circuit);
    called.apply_SWAP(0, 1);
    EXPECT_EQ(std::memcmp(one.amplitudes.get(), other.amplitudes.get(), 8 * sizeof(start[0])), 0);
    EXPECT_EQ(std::memcmp(one.amplitudes.get(), called.amplitudes.get(), 8 * sizeof(start[0])), 0);
}

namespace {

// Replays X on qubit 0, then a gate of this name, then X on qubit 1, on |0...0>: a small state, whose gates are called
// one by one, and one whose gates are planned.
template <class T>
void expect_refused_after_the_first_gate(const std::string& name, unsigned int n) {
    StateVector<T> v(n);
    v.reset();
    PybindAmplixWCircuit<T> circuit(n);
    circuit.add_gate("X", {}, {0});
    circuit.add_gate(name, {1}, {0, 1});
    circuit.add_gate("X", {}, {1});
    try {
        v.simulate_circuit(circuit);
        FAIL() << "\"" << name << "\" was accepted";
    } catch (const std::invalid_argument& refusal) {
        EXPECT_EQ(std::string(refusal.what()), "Gate " + name + " is not supported by the pybinded circuit");
    }
    auto expected = reference::basis_state_0<T>(n);
    std::swap(expected[0], expected[1]);
    EXPECT_TRUE(same_bits(expected, v.amplitudes.get())) << "the first gate alone has acted";
    EXPECT_EQ(circuit.gates.size(), 3ul) << "the record is unchanged";
}

template <class T>
void expect_refused_after_the_first_gate(const std::string& name) {
    for (unsigned int n : {2u, 14u}) expect_refused_after_the_first_gate<T>(name, n);
}

}  // namespace

TYPED_TEST(replay, refuses_s_after_the_earlier_gates_took_effect) {
    expect_refused_after_the_first_gate<TypeParam>("S");
}

TYPED_TEST(replay, refuses_lower_case_h) { expect_refused_after_the_first_gate<TypeParam>("h"); }

TYPED_TEST(replay, accepts_t_but_refuses_tt) {
    StateVector<TypeParam> v(1);
    v.reset();
    PybindAmplixWCircuit<TypeParam> circuit(1);
    circuit.add_gate("T", {}, {0});
    EXPECT_NO_THROW(v.simulate_circuit(circuit));
    expect_refused_after_the_first_gate<TypeParam>("TT");
}

TYPED_TEST(replay, refuses_the_empty_name) { expect_refused_after_the_first_gate<TypeParam>(""); }

TYPED_TEST(replay, refuses_named_gates_outside_the_vocabulary) {
    for (const char* name : {"CCNOT", "CSIGN", "ISWAP", "SQRTSWAP", "ZtoY", "YtoZ", "I", "RXX", "R", "X ", "cnot"}) {
        expect_refused_after_the_first_gate<TypeParam>(name);
    }
}

TYPED_TEST(replay, of_a_record_for_3_qubits_runs_on_more) {
    for (unsigned int n : {5u, 14u}) {
        const auto start = random_state<TypeParam>(n, Values::ordinary);
        const auto gates = random_circuit<TypeParam>(3, 30, 7);
        LoadedVector<TypeParam> v(start);
        auto circuit = record_of(gates, 3);
        v.simulate_circuit(circuit);
        auto expected = start;
        for (const auto& gate : gates) reference::apply(expected, gate);
        EXPECT_TRUE(same_bits(expected, v.amplitudes.get())) << n << " qubits";
    }
}

TYPED_TEST(replay, ignores_extra_qubits_and_parameters) {
    for (unsigned int n : {2u, 14u}) {
        StateVector<TypeParam> v(n);
        v.reset();
        PybindAmplixWCircuit<TypeParam> circuit(n);
        circuit.add_gate("X", {5}, {1, 0, 77});
        circuit.add_gate("CNOT", {1, 2}, {1, 0, 99});
        v.simulate_circuit(circuit);
        auto expected = reference::basis_state_0<TypeParam>(n);
        std::swap(expected[0], expected[3]);
        EXPECT_TRUE(same_bits(expected, v.amplitudes.get())) << n << " qubits";
    }
}

TYPED_TEST(replay, of_coinciding_qubits_writes_nothing_outside_the_array) {
    for (unsigned int n : {1u, 2u, 5u, 13u, 15u}) {
        GuardedArray<TypeParam> array(random_state<TypeParam>(n, Values::ordinary));
        BorrowingVector<TypeParam> v(n);
        v.borrow(array.data());
        v.set_num_threads(3);
        PybindAmplixWCircuit<TypeParam> circuit(n);
        for (unsigned int q = 0; q < n; ++q) {
            circuit.add_gate("H", {}, {(q + 1) % n});
            circuit.add_gate("CNOT", {}, {q, q});
            circuit.add_gate("SWAP", {}, {q, q});
        }
        v.simulate_circuit(circuit);
        EXPECT_TRUE(array.fences_stand()) << n << " qubits";
    }
}
