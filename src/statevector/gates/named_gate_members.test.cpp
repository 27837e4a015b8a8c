#include "reference/named_gates.hpp"
#include "support/captured_output.hpp"
#include "support/gate_lists.hpp"
#include "support/kernel_check.hpp"
#include "support/named_gates.hpp"
#include "support/scripted_system.hpp"

using namespace support;
using reference::NamedGate;
using reference::Qubits;

PRECISION_SUITE(named_gate);

namespace {

// A member call on a fenced array against the reference, for every thread count.
template <class T>
testing::AssertionResult agrees(GuardedArray<T>& array, const reference::State<T>& start, const NamedGate<T>& gate,
                                const std::vector<int>& threads) {
    auto expected = start;
    reference::apply(expected, gate);
    BorrowingVector<T> v(reference::qubit_count(start.size()));
    return kernel_agrees(array, start, expected, gate.qubits, gate.controls, threads,
                         [&](thrust::complex<T>* state, int count) {
                             v.borrow(state);
                             v.set_num_threads(count);
                             call(v, gate);
                         })
           << " " << gate.name << " of angle " << gate.angle;
}

Values values_of(const std::string& name) {
    for (const char* moving : {"X", "Y", "Z", "CNOT", "CCNOT", "CSIGN", "SWAP"}) {
        if (name == moving) return Values::any_bits;
    }
    return Values::unusual;
}

}  // namespace

TYPED_TEST(named_gate, on_one_qubit_agrees_with_the_reference) {
    std::mt19937 engine(5);
    for (const std::string& name : gates_on(1)) {
        for (unsigned int n = 1; n <= 10; ++n) {
            const auto start = random_state<TypeParam>(n, values_of(name));
            GuardedArray<TypeParam> array(start);
            for (unsigned int target = 0; target < n; ++target) {
                for (const Qubits& controls : control_sets({target}, n)) {
                    std::uniform_real_distribution<TypeParam> any(-7, 7);
                    const TypeParam angle = any(engine), phi = any(engine), lam = any(engine);
                    ASSERT_TRUE(agrees(array, start, {name, {target}, angle, controls, phi, lam}, thread_counts));
                }
            }
        }
    }
}

TYPED_TEST(named_gate, on_two_qubits_agrees_with_the_reference) {
    for (const std::string& name : gates_on(2)) {
        for (unsigned int n = 2; n <= 10; ++n) {
            const auto start = random_state<TypeParam>(n, values_of(name));
            GuardedArray<TypeParam> array(start);
            for (const Qubits& pair : ordered_pairs(n)) {
                const auto angle = static_cast<TypeParam>(0.3 + pair[0] - 0.7 * pair[1]);
                ASSERT_TRUE(agrees(array, start, NamedGate<TypeParam>{name, pair, angle}, thread_counts));
            }
        }
    }
}

TYPED_TEST(named_gate, ccnot_agrees_with_the_reference) {
    for (unsigned int n = 3; n <= 7; ++n) {
        const auto start = random_state<TypeParam>(n, Values::any_bits);
        GuardedArray<TypeParam> array(start);
        for (unsigned int target = 0; target < n; ++target) {
            for (const Qubits& pair : ordered_pairs(n)) {
                if (pair[0] == target || pair[1] == target) continue;
                const NamedGate<TypeParam> gate{"CCNOT", {pair[0], pair[1], target}};
                ASSERT_TRUE(agrees(array, start, gate, thread_counts));
            }
        }
    }
}

TYPED_TEST(named_gate, agrees_with_the_reference_when_threads_share_the_array) {
    const auto start = random_state<TypeParam>(17, Values::unusual);
    const auto moving = random_state<TypeParam>(17, Values::any_bits);
    GuardedArray<TypeParam> array(start);
    const NamedGate<TypeParam> gates[] = {
        {"X", {16}},       {"Y", {1}},         {"Z", {9}},          {"H", {0}},         {"S", {15}},
        {"T", {2}},        {"ZtoY", {8}},      {"YtoZ", {16}},      {"RX", {3}, 1},     {"RY", {14}, 2},
        {"RZ", {1}, 3},    {"PH", {12}, 4},    {"CNOT", {16, 0}},   {"CSIGN", {1, 15}}, {"CCNOT", {5, 16, 2}},
        {"SWAP", {0, 16}}, {"ISWAP", {15, 3}}, {"SQRTSWAP", {7, 8}}};
    for (const auto& gate : gates) {
        const auto& state = values_of(gate.name) == Values::any_bits ? moving : start;
        ASSERT_TRUE(agrees(array, state, gate, {2, 3, 7}));
    }
}

namespace {

// Two calls on equal states leave equal bits.
template <class T, class One, class Other>
void expect_same(One one, Other other, Values values = Values::any_bits) {
    const auto start = random_state<T>(6, values);
    LoadedVector<T> left(start), right(start);
    one(left);
    other(right);
    EXPECT_EQ(std::memcmp(left.amplitudes.get(), right.amplitudes.get(), start.size() * sizeof(start[0])), 0);
}

}  // namespace

TYPED_TEST(named_gate, x_without_controls_is_x_with_an_empty_list) {
    using V = StateVector<TypeParam>;
    for (unsigned int q = 0; q < 6; ++q) {
        expect_same<TypeParam>([=](V& v) { v.apply_X(q); }, [=](V& v) { v.apply_X(q, std::vector<unsigned int>{}); });
    }
}

TYPED_TEST(named_gate, cnot_is_x_with_one_control) {
    using V = StateVector<TypeParam>;
    for (const Qubits& p : ordered_pairs(6)) {
        expect_same<TypeParam>([=](V& v) { v.apply_CNOT(p[0], p[1]); }, [=](V& v) { v.apply_X(p[1], Qubits{p[0]}); });
    }
}

TYPED_TEST(named_gate, ccnot_is_x_with_two_controls) {
    using V = StateVector<TypeParam>;
    for (const Qubits& p : ordered_pairs(5)) {
        expect_same<TypeParam>([=](V& v) { v.apply_CCNOT(p[0], p[1], 5); },
                               [=](V& v) {
                                   v.apply_X(5, Qubits{p[0], p[1]});
                               });
    }
}

TYPED_TEST(named_gate, csign_is_z_with_one_control_and_symmetric) {
    using V = StateVector<TypeParam>;
    for (const Qubits& p : ordered_pairs(6)) {
        expect_same<TypeParam>([=](V& v) { v.apply_CSIGN(p[0], p[1]); }, [=](V& v) { v.apply_Z(p[1], Qubits{p[0]}); });
        expect_same<TypeParam>([=](V& v) { v.apply_CSIGN(p[0], p[1]); }, [=](V& v) { v.apply_CSIGN(p[1], p[0]); });
    }
}

TYPED_TEST(named_gate, rz_and_ph_differ_by_the_global_phase_of_half_the_angle) {
    const TypeParam angle = TypeParam(0.7), tolerance = 4 * std::numeric_limits<TypeParam>::epsilon();
    const thrust::complex<TypeParam> half(std::cos(angle / 2), std::sin(angle / 2));
    const auto start = random_state<TypeParam>(3, Values::ordinary);
    LoadedVector<TypeParam> rz(start), ph(start);
    rz.apply_RZ(1, angle);
    ph.apply_PH(1, angle);
    for (unsigned long i = 0; i < 8; ++i) {
        const thrust::complex<TypeParam> a(start[i].re, start[i].im);
        const bool one = (i >> 1) & 1;
        EXPECT_LE(thrust::abs(rz.amplitudes[i] - a * (one ? half : thrust::conj(half))), tolerance);
        EXPECT_LE(thrust::abs(ph.amplitudes[i] - a * (one ? half * half : thrust::complex<TypeParam>(1))), tolerance);
        EXPECT_LE(thrust::abs(ph.amplitudes[i] - rz.amplitudes[i] * half), tolerance);
    }
}

TYPED_TEST(named_gate, ph_leaves_amplitudes_with_bit_0_their_exact_bits) {
    const auto start = random_state<TypeParam>(5, Values::any_bits);
    LoadedVector<TypeParam> v(start);
    v.apply_PH(2, TypeParam(1.1));
    for (unsigned long i = 0; i < 32; ++i) {
        if ((i >> 2) & 1) continue;
        EXPECT_EQ(std::memcmp(&start[i], &v.amplitudes[i], sizeof start[i]), 0) << "index " << i;
    }
}

TYPED_TEST(named_gate, rx_of_pi_takes_0_to_minus_i_1) {
    const TypeParam pi = TypeParam(3.14159265358979323846), tolerance = std::numeric_limits<TypeParam>::epsilon();
    StateVector<TypeParam> v(1);
    v.reset();
    v.apply_RX(0, pi);
    EXPECT_LE(thrust::abs(v.amplitudes[0]), tolerance);
    EXPECT_EQ(v.amplitudes[1], thrust::complex<TypeParam>(0, -1));
}

TYPED_TEST(named_gate, ry_of_pi_takes_0_to_1) {
    const TypeParam pi = TypeParam(3.14159265358979323846), tolerance = std::numeric_limits<TypeParam>::epsilon();
    StateVector<TypeParam> v(1);
    v.reset();
    v.apply_RY(0, pi);
    EXPECT_LE(thrust::abs(v.amplitudes[0]), tolerance);
    EXPECT_EQ(v.amplitudes[1], thrust::complex<TypeParam>(1, 0));
}

TYPED_TEST(named_gate, ph_and_rz_of_angle_0_leave_finite_numbers_to_the_last_bit) {
    const auto start = random_state<TypeParam>(6, Values::ordinary);
    for (unsigned int q = 0; q < 6; ++q) {
        LoadedVector<TypeParam> v(start);
        v.apply_PH(q, 0);
        EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
        v.apply_RZ(q, 0);
        EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
    }
}

TYPED_TEST(named_gate, swap_of_a_qubit_with_itself_is_not_rejected) {
    for (unsigned int n = 1; n <= 6; ++n) {
        GuardedArray<TypeParam> array(random_state<TypeParam>(n, Values::any_bits));
        BorrowingVector<TypeParam> v(n);
        v.borrow(array.data());
        for (unsigned int q = 0; q < n; ++q) EXPECT_NO_THROW(v.apply_SWAP(q, q));
        EXPECT_TRUE(array.fences_stand());
    }
}

TYPED_TEST(named_gate, of_coinciding_qubits_writes_nothing_outside_the_array) {
    for (unsigned int n = 1; n <= 7; ++n) {
        GuardedArray<TypeParam> array(random_state<TypeParam>(n, Values::ordinary));
        BorrowingVector<TypeParam> v(n);
        v.borrow(array.data());
        for (unsigned int q = 0; q < n; ++q) {
            for (const std::string& name : gates_on(1)) {
                if (!has_member(name)) continue;  // programs refuse such qubits
                call<TypeParam>(v, {name, {q}, 1, {q}});
                ASSERT_TRUE(array.fences_stand()) << name << " with its target as control, n = " << n;
            }
            for (const std::string& name : gates_on(2)) {
                if (!has_member(name)) continue;
                call<TypeParam>(v, {name, {q, q}});
                ASSERT_TRUE(array.fences_stand()) << name << " of a qubit with itself, n = " << n;
            }
            for (const Qubits& three : {Qubits{q, q, 0}, Qubits{q, 0, q}, Qubits{0, q, q}, Qubits{q, q, q}}) {
                call<TypeParam>(v, {"CCNOT", three});
                ASSERT_TRUE(array.fences_stand()) << "CCNOT of " << describe(three) << ", n = " << n;
            }
        }
    }
}

TYPED_TEST(named_gate, rz_with_controls_is_refused_when_its_diagonal_exceeds_free_memory) {
    const auto start = random_state<TypeParam>(4, Values::any_bits);
    LoadedVector<TypeParam> v(start);
    const unsigned long bytes = 2 * sizeof(thrust::complex<TypeParam>);
    {
        ScriptedMemory memory(bytes - 1);
        CapturedOutput output;
        EXPECT_THROW(v.apply_RZ(0, TypeParam(0.3), {{2}}), std::bad_alloc);
        EXPECT_THROW(v.apply_RZ(1, TypeParam(0.3), {{2, 3}}), std::bad_alloc);
        const std::string line = "Not enough memory for allocating array \u2014 memory swap is not allowed.\n";
        EXPECT_EQ(output.out(), line + line);
        EXPECT_TRUE(same_bits(start, v.amplitudes.get()));
    }
    ScriptedMemory memory(bytes);
    EXPECT_NO_THROW(v.apply_RZ(0, TypeParam(0.3), {{2}}));
    EXPECT_EQ(memory.queries(), 1);
}

TYPED_TEST(named_gate, but_for_controlled_rz_asks_for_no_memory) {
    StateVector<TypeParam> v(4);
    v.reset();
    ScriptedMemory memory(0);
    for (const char* name : {"X", "Y", "Z", "H", "S", "T", "ZtoY", "YtoZ", "RX", "RY", "PH"}) {
        call<TypeParam>(v, {name, {0}, 1, {2}});
    }
    v.apply_RZ(0, TypeParam(0.3));
    v.apply_RZ(0, TypeParam(0.3), std::vector<unsigned int>{});
    EXPECT_EQ(memory.queries(), 0);
}
