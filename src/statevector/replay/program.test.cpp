#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/program.hpp>

#include <stdexcept>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(program_run);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;
template <class T>
using C = thrust::complex<T>;

// The same gate twice: appended to a program, and applied through the state vector's own members.
template <class T>
class Recorder {
public:
    Recorder(unsigned int n, unsigned int seed) : list(n), n_(n), engine_(seed) {}

    void random_gate() {
        const char* const one[] = {"X", "Y", "Z", "H", "S", "T", "ZtoY", "YtoZ"};
        const char* const turned[] = {"RX", "RY", "RZ", "PH"};
        const char* const two[] = {"SWAP", "ISWAP", "SQRTSWAP"};
        switch (below(n_ > 1 ? 8 : 4)) {
            case 0:
            case 1:
                named(one[below(8)], {}, 1);
                break;
            case 2:
            case 3:
                named(turned[below(4)], {angle()}, 1);
                break;
            case 4:
                exchange(two[below(3)]);
                break;
            case 5:
                controlled_not();
                break;
            case 6:
                matrix(false);
                break;
            default:
                matrix(true);
                break;
        }
    }

    // Applies every gate to `state`, one call each.
    void apply(StateVector<T>& state, unsigned long count) const {
        for (unsigned long i = 0; i < count; ++i) gates_[i](state);
    }

    program<T> list;

private:
    using Gate = std::function<void(StateVector<T>&)>;

    unsigned int below(unsigned int limit) { return engine_() % limit; }
    T angle() { return T(below(1000)) / 100 - 5; }

    // Up to two controls apart from the targets.
    Qubits controls_beside(const Qubits& targets) {
        const auto most = static_cast<unsigned int>(n_ - targets.size());
        const Qubits all = random_qubits(n_, n_, engine_);
        Qubits controls;
        for (const unsigned int q : all) {
            if (controls.size() == std::min(most, below(3))) break;
            if (std::find(targets.begin(), targets.end(), q) == targets.end()) controls.push_back(q);
        }
        return controls;
    }

    void named(const std::string& name, std::vector<T> params, unsigned int) {
        const Qubits q = random_qubits(1, n_, engine_);
        const Qubits c = controls_beside(q);
        list.add_gate(name, params, q, c);
        gates_.push_back([=](StateVector<T>& s) {
            if (name == "X") s.apply_X(q[0], c);
            if (name == "Y") s.apply_Y(q[0], c);
            if (name == "Z") s.apply_Z(q[0], c);
            if (name == "H") s.apply_H(q[0], c);
            if (name == "S") s.apply_S(q[0], c);
            if (name == "T") s.apply_T(q[0], c);
            if (name == "ZtoY") s.apply_ZtoY(q[0], c);
            if (name == "YtoZ") s.apply_YtoZ(q[0], c);
            if (name == "RX") s.apply_RX(q[0], params[0], c);
            if (name == "RY") s.apply_RY(q[0], params[0], c);
            if (name == "RZ") s.apply_RZ(q[0], params[0], c);
            if (name == "PH") s.apply_PH(q[0], params[0], c);
        });
    }

    void exchange(const std::string& name) {
        const Qubits q = random_qubits(2, n_, engine_);
        list.add_gate(name, {}, q);
        gates_.push_back([=](StateVector<T>& s) {
            if (name == "SWAP") s.apply_SWAP(q[0], q[1]);
            if (name == "ISWAP") s.apply_ISWAP(q[0], q[1]);
            if (name == "SQRTSWAP") s.apply_SQRTSWAP(q[0], q[1]);
        });
    }

    void controlled_not() {
        const Qubits q = random_qubits(std::min(n_, 3u), n_, engine_);
        if (q.size() == 3 && below(2) == 0) {
            list.add_gate("CCNOT", {}, q);
            gates_.push_back([=](StateVector<T>& s) { s.apply_CCNOT(q[0], q[1], q[2]); });
        } else if (below(2) == 0) {
            list.add_gate("CSIGN", {}, {q[0], q[1]});
            gates_.push_back([=](StateVector<T>& s) { s.apply_CSIGN(q[0], q[1]); });
        } else {
            list.add_gate("CNOT", {}, {q[0], q[1]});
            gates_.push_back([=](StateVector<T>& s) { s.apply_CNOT(q[0], q[1]); });
        }
    }

    void matrix(bool diagonal) {
        const Qubits q = random_qubits(1 + below(std::min(n_, 4u)), n_, engine_);
        const Qubits c = controls_beside(q);
        const unsigned long dim = 1ul << q.size();
        std::vector<C<T>> m(dim * dim);
        const auto entries = as_thrust(random_coefficients<T>(dim * dim, engine_()));
        for (unsigned long i = 0; i < dim * dim; ++i) {
            if (!diagonal || i % (dim + 1) == 0) m[i] = entries[i];
        }
        if (diagonal && below(2) == 0) {
            std::vector<C<T>> diag(dim);
            for (unsigned long i = 0; i < dim; ++i) diag[i] = m[i * (dim + 1)];
            list.add_diagonal(diag, q, c);
        } else {
            list.add_matrix(m, q, c);
        }
        gates_.push_back([=](StateVector<T>& s) {
            if (q.size() == 1) c.empty() ? s.apply_1qbit_gate(q[0], m) : s.apply_1qbit_ctrl_gate(c, q[0], m);
            if (q.size() == 2)
                c.empty() ? s.apply_2qbit_gate(q[0], q[1], m) : s.apply_2qbit_ctrl_gate(c, q[0], q[1], m);
            if (q.size() > 2) c.empty() ? s.apply_nqbit_gate(q, m) : s.apply_nqbit_ctrl_gate(c, q, m);
        });
    }

    unsigned int n_;
    std::mt19937 engine_;
    std::vector<Gate> gates_;
};

template <class T>
testing::AssertionResult equal_states(const StateVector<T>& expected, const StateVector<T>& got) {
    const auto* numbers = reinterpret_cast<const T*>(expected.amplitudes.get());
    return same_numbers(numbers, reinterpret_cast<const T*>(got.amplitudes.get()), 2 * expected.size, 2);
}

}  // namespace

TYPED_TEST(program_run, of_random_gates_equals_gate_by_gate_bit_for_bit) {
    for (unsigned int n = 1; n <= 16; ++n) {
        const auto start = random_state<TypeParam>(n, Values::ordinary, n);
        for (unsigned int seed = 0; seed < 3; ++seed) {
            Recorder<TypeParam> recorder(n, 100 * n + seed);
            for (int gate = 0; gate < 60; ++gate) recorder.random_gate();
            LoadedVector<TypeParam> expected(start);
            recorder.apply(expected, 60);
            for (const int threads : {1, 2, 3}) {
                LoadedVector<TypeParam> got(start, threads);
                ASSERT_EQ(recorder.list.run(got), 60u);
                ASSERT_TRUE(equal_states(expected, got)) << n << " qubits, seed " << seed << ", threads " << threads;
            }
        }
    }
}

TYPED_TEST(program_run, carries_zeros_of_both_signs_and_infinities_as_gate_by_gate_does) {
    for (const unsigned int n : {9u, 13u, 15u}) {
        const auto start = random_state<TypeParam>(n, Values::unusual, n);
        Recorder<TypeParam> recorder(n, n);
        for (int gate = 0; gate < 40; ++gate) recorder.random_gate();
        LoadedVector<TypeParam> expected(start), got(start, 2);
        recorder.apply(expected, 40);
        recorder.list.run(got);
        EXPECT_TRUE(equal_states(expected, got)) << n << " qubits";
    }
}

TYPED_TEST(program_run, on_20_qubits_equals_gate_by_gate_bit_for_bit) {
    const auto start = random_state<TypeParam>(20, Values::ordinary);
    Recorder<TypeParam> recorder(20, 5);
    for (int gate = 0; gate < 120; ++gate) recorder.random_gate();
    LoadedVector<TypeParam> expected(start, 2), got(start, 2);
    recorder.apply(expected, 120);
    recorder.list.run(got);
    EXPECT_TRUE(equal_states(expected, got));
}

TYPED_TEST(program_run, stopped_by_its_hook_leaves_the_state_of_a_prefix) {
    const auto start = random_state<TypeParam>(17, Values::ordinary);
    Recorder<TypeParam> recorder(17, 9);
    for (int gate = 0; gate < 80; ++gate) recorder.random_gate();
    const auto passes = recorder.list.plan(17, 1).passes;
    ASSERT_GT(passes.size(), 1u);
    LoadedVector<TypeParam> got(start);
    unsigned long heard = 0;
    const unsigned long applied = recorder.list.run(got, [&](unsigned long done, unsigned long total) {
        EXPECT_EQ(total, 80u);
        EXPECT_GT(done, heard);
        heard = done;
        return done < passes[0].last_gate;
    });
    EXPECT_EQ(applied, passes[0].last_gate);
    LoadedVector<TypeParam> expected(start);
    recorder.apply(expected, applied);
    EXPECT_TRUE(equal_states(expected, got));
}

TYPED_TEST(program_run, on_a_larger_state_acts_on_the_lowest_qubits) {
    const auto start = random_state<TypeParam>(15, Values::ordinary);
    Recorder<TypeParam> recorder(6, 2);
    for (int gate = 0; gate < 30; ++gate) recorder.random_gate();
    LoadedVector<TypeParam> expected(start), got(start);
    recorder.apply(expected, 30);
    recorder.list.run(got);
    EXPECT_TRUE(equal_states(expected, got));
}

TYPED_TEST(program_run, plan_covers_every_gate_once_and_in_order) {
    Recorder<TypeParam> recorder(16, 4);
    for (int gate = 0; gate < 50; ++gate) recorder.random_gate();
    unsigned long next = 0;
    const auto& plan = recorder.list.plan(16, 2);
    for (const auto& pass : plan.passes) {
        EXPECT_EQ(pass.first_gate, next);
        next = pass.last_gate;
    }
    EXPECT_EQ(next, 50u);
    EXPECT_LE(plan.predicted_sweeps, static_cast<double>(plan.passes.size()));
}

TYPED_TEST(program_run, of_no_gates_leaves_the_state) {
    const auto start = random_state<TypeParam>(13, Values::any_bits);
    LoadedVector<TypeParam> state(start);
    program<TypeParam> empty(13);
    EXPECT_EQ(empty.run(state), 0u);
    EXPECT_TRUE(same_bits(start, state.amplitudes.get()));
}

TYPED_TEST(program_run, refuses_an_unknown_name_and_a_large_plain_diagonal) {
    program<TypeParam> list(10);
    try {
        list.add_gate("h", {}, {0});
        FAIL() << "accepted";
    } catch (const std::invalid_argument& refusal) {
        EXPECT_STREQ(refusal.what(), "Gate h is not known to a program");
    }
    const Qubits nine = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_THROW(list.add_diagonal(std::vector<C<TypeParam>>(512), nine), std::runtime_error);
    EXPECT_NO_THROW(list.add_diagonal(std::vector<C<TypeParam>>(512), nine, {9}));
    EXPECT_EQ(list.size(), 1u);
    EXPECT_EQ(list.nqubits(), 10u);
    list.clear();
    EXPECT_EQ(list.size(), 0u);
}
