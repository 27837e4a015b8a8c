#include "statevector/gates/gate_table.hpp"

#include "reference/indices.hpp"
#include "support/precision.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/program.hpp>

#include <functional>
#include <stdexcept>
#include <string>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(program_arguments);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;
template <class T>
using C = thrust::complex<T>;

std::string refusal_of(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::invalid_argument& refusal) {
        return refusal.what();
    }
    return "accepted";
}

template <class T>
std::vector<C<T>> entries(unsigned long count) {
    return std::vector<C<T>>(count, C<T>(1));
}

}  // namespace

TYPED_TEST(program_arguments, of_every_name_are_counted) {
    program<TypeParam> list(5);
    for (const auto& row : velacamplix::gates::gate_rows) {
        const std::string name(row.name);
        const unsigned int wanted = row.controls + row.targets;
        for (unsigned int count = 0; count <= 4; ++count) {
            Qubits qubits;
            for (unsigned int q = 0; q < count; ++q) qubits.push_back(q);
            for (unsigned int given = 0; given <= 4; ++given) {
                const std::vector<double> params(given, 0.5);
                const auto refusal = refusal_of([&] { list.add_gate(name, params, qubits); });
                const std::string gate = "Gate " + name;
                if (given != row.angles) {
                    EXPECT_EQ(refusal, gate + " takes " + std::to_string(row.angles) +
                                           (row.angles == 1 ? " angle" : " angles") + ", not " + std::to_string(given));
                } else if (count != wanted) {
                    EXPECT_EQ(refusal, gate + " takes " + std::to_string(wanted) +
                                           (wanted == 1 ? " qubit" : " qubits") + ", not " + std::to_string(count));
                } else {
                    EXPECT_EQ(refusal, "accepted") << gate;
                }
            }
        }
    }
    EXPECT_EQ(list.size(), velacamplix::gates::gate_rows.size()) << "what was refused left nothing behind";
}

TYPED_TEST(program_arguments, of_matrices_and_diagonals_have_the_size_of_their_qubits) {
    program<TypeParam> list(5);
    EXPECT_EQ(refusal_of([&] {
                  list.add_matrix(entries<TypeParam>(15), {0, 1});
              }),
              "Gate matrix on 2 qubits takes 16 entries, not 15");
    EXPECT_EQ(refusal_of([&] {
                  list.add_matrix(entries<TypeParam>(17), {0, 1}, {2});
              }),
              "Gate matrix on 2 qubits takes 16 entries, not 17");
    EXPECT_EQ(refusal_of([&] { list.add_matrix({}, {0}); }), "Gate matrix on 1 qubit takes 4 entries, not 0");
    EXPECT_EQ(refusal_of([&] {
                  list.add_diagonal(entries<TypeParam>(7), {0, 1, 2});
              }),
              "Gate diagonal on 3 qubits takes 8 entries, not 7");
    EXPECT_EQ(refusal_of([&] { list.add_diagonal({}, {}); }), "Gate diagonal on 0 qubits takes 1 entry, not 0");
    // Counts that do not fit 64 bits.
    program<TypeParam> large(63);
    Qubits all(63);
    for (unsigned int q = 0; q < 63; ++q) all[q] = q;
    EXPECT_NE(refusal_of([&] { large.add_matrix(entries<TypeParam>(4), all); }), "accepted");
    EXPECT_NE(refusal_of([&] { large.add_diagonal(entries<TypeParam>(4), all); }), "accepted");
    EXPECT_EQ(refusal_of([&] { list.add_matrix(entries<TypeParam>(16), {0, 1}); }), "accepted");
    EXPECT_EQ(refusal_of([&] { list.add_diagonal(entries<TypeParam>(8), {0, 1, 2}, {4}); }), "accepted");
    EXPECT_EQ(list.size(), 2u);
}

TYPED_TEST(program_arguments, name_different_qubits_of_the_program) {
    program<TypeParam> list(5);
    const auto in_each_way = [&](const Qubits& qubits, const Qubits& controls, const std::string& what) {
        EXPECT_EQ(refusal_of([&] { list.add_gate("SWAP", {}, qubits, controls); }), "Gate SWAP " + what);
        EXPECT_EQ(refusal_of([&] { list.add_matrix(entries<TypeParam>(16), qubits, controls); }),
                  "Gate matrix " + what);
        EXPECT_EQ(refusal_of([&] { list.add_diagonal(entries<TypeParam>(4), qubits, controls); }),
                  "Gate diagonal " + what);
    };
    in_each_way({0, 5}, {}, "names qubit 5, but the program has 5 qubits, counted from 0");
    in_each_way({0, 1}, {64}, "names qubit 64, but the program has 5 qubits, counted from 0");
    in_each_way({4000000000, 1}, {}, "names qubit 4000000000, but the program has 5 qubits, counted from 0");
    in_each_way({1, 1}, {}, "names qubit 1 twice");
    in_each_way({1, 2}, {3, 2}, "names qubit 2 twice");
    in_each_way({1, 2}, {3, 3}, "names qubit 3 twice");
    EXPECT_EQ(list.size(), 0u);
}

TYPED_TEST(program_arguments, fit_an_index_of_64_bits) {
    EXPECT_EQ(refusal_of([] { program<TypeParam>(64); }), "A program has at most 63 qubits, not 64");
    EXPECT_EQ(program<TypeParam>(63).nqubits(), 63u);
}

TYPED_TEST(program_arguments, for_an_angle_are_one) {
    program<TypeParam> list(2);
    list.add_gate("RX", {1}, {0});
    list.add_gate("H", {}, {0});
    EXPECT_EQ(refusal_of([&] { list.set_params(0, {}); }), "Gate 0, RX, takes 1 angle, not 0");
    EXPECT_EQ(refusal_of([&] { list.set_params(0, {1, 2}); }), "Gate 0, RX, takes 1 angle, not 2");
    EXPECT_EQ(refusal_of([&] { list.set_params(1, {1}); }), "Gate 1, H, takes no angle");
    list.add_matrix({1, 1, 1, 1}, {0});
    list.add_gate("CNOT", {}, {0, 1});
    EXPECT_EQ(refusal_of([&] { list.set_params(2, {1}); }), "Gate 2, matrix, takes no angle");
    EXPECT_EQ(refusal_of([&] { list.set_params(3, {1}); }), "Gate 3, X, takes no angle") << "with a control";
    EXPECT_EQ(list.angle_count(0), 1u);
    for (const unsigned long gate : {1ul, 2ul, 3ul}) EXPECT_EQ(list.angle_count(gate), 0u) << gate;
    EXPECT_THROW(list.angle_count(4), std::out_of_range);
}

TYPED_TEST(program_arguments, include_a_state_that_holds_the_programs_qubits) {
    program<TypeParam> list(3);
    list.add_gate("X", {}, {2});
    StateVector<TypeParam> small(2);
    small.reset();
    EXPECT_EQ(refusal_of([&] { list.run(small); }), "The program has 3 qubits, the state 2");
    EXPECT_EQ(refusal_of([&] { list.plan(2, 1); }), "The program has 3 qubits, the state 2");
    EXPECT_EQ(refusal_of([&] { list.plan(64, 1); }), "A state has at most 63 qubits, not 64");
    StateVector<TypeParam> released(3);
    released.release_memory();
    program<TypeParam> on_nothing(0);
    EXPECT_EQ(refusal_of([&] { on_nothing.run(released); }),
              "The state has no amplitudes: it was released, or a resize "
              "was refused");
}

TYPED_TEST(program_arguments, for_a_part_are_a_range_of_its_gates) {
    program<TypeParam> list(2);
    for (int gate = 0; gate < 5; ++gate) list.add_gate("X", {}, {0});
    StateVector<TypeParam> state(2);
    state.reset();
    EXPECT_EQ(refusal_of([&] { list.run(state, 3, 2); }), "The program has 5 gates, not those from 3 up to 2");
    EXPECT_EQ(refusal_of([&] { list.run(state, 0, 6); }), "The program has 5 gates, not those from 0 up to 6");
    EXPECT_EQ(refusal_of([&] { list.run(state, 6, 6); }), "The program has 5 gates, not those from 6 up to 6");
    EXPECT_EQ(refusal_of([&] { list.run(state, ~0ul, 1); }),
              "The program has 5 gates, not those from 18446744073709551615 up to 1");
    EXPECT_EQ(state.amplitudes[0], C<TypeParam>(1)) << "what was refused has done nothing";
    EXPECT_EQ(list.run(state, 5, 5), 0u);
    EXPECT_EQ(list.run(state, 4, 5), 1u);
    EXPECT_EQ(state.amplitudes[1], C<TypeParam>(1));
}

TYPED_TEST(program_arguments, of_a_program_moved_from_are_refused) {
    program<TypeParam> list(3);
    list.add_gate("X", {}, {2});
    program<TypeParam> taken = std::move(list);
    StateVector<TypeParam> state(3);
    state.reset();
    const std::string expected = "This program has been moved from";
    EXPECT_EQ(refusal_of([&] { list.add_gate("X", {}, {0}); }), expected);
    EXPECT_EQ(refusal_of([&] { list.add_matrix({1, 1, 1, 1}, {0}); }), expected);
    EXPECT_EQ(refusal_of([&] { list.add_diagonal({1, 1}, {0}); }), expected);
    EXPECT_EQ(refusal_of([&] { list.set_params(0, {1}); }), expected);
    EXPECT_EQ(refusal_of([&] { list.set_fusion(true); }), expected);
    EXPECT_EQ(refusal_of([&] { list.angle_count(0); }), expected);
    EXPECT_EQ(refusal_of([&] { list.fusion(); }), expected);
    EXPECT_EQ(refusal_of([&] { list.size(); }), expected);
    EXPECT_EQ(refusal_of([&] { list.nqubits(); }), expected);
    EXPECT_EQ(refusal_of([&] { list.clear(); }), expected);
    EXPECT_EQ(refusal_of([&] { list.plan(3, 1); }), expected);
    EXPECT_EQ(refusal_of([&] { list.run(state); }), expected);
    EXPECT_EQ(refusal_of([&] { list.run(state, 0, 0); }), expected);
    EXPECT_EQ(taken.run(state), 1u);
    list = std::move(taken);
    EXPECT_EQ(list.run(state), 1u) << "assigned to, it is a program again";
}
