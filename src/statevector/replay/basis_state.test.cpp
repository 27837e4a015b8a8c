#include "statevector/replay/schedule.hpp"
#include "support/precision.hpp"
#include "support/recorded_program.hpp"
#include "support/state_vector.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

using namespace support;
using namespace velacamplix;

PRECISION_SUITE(run_from_basis_state);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;
template <class T>
using C = thrust::complex<T>;

// What no run may read.
template <class T>
struct Unwritten : StateVector<T> {
    Unwritten(unsigned int n, int threads) : StateVector<T>(n) {
        this->num_threads = threads;
        std::fill_n(reinterpret_cast<T*>(this->amplitudes.get()), 2 * this->size, std::numeric_limits<T>::quiet_NaN());
    }
};

template <class T>
struct BasisState : StateVector<T> {
    BasisState(unsigned int n, unsigned long k, int threads = 1) : StateVector<T>(n) {
        this->num_threads = threads;
        this->reset();
        std::swap(this->amplitudes[0], this->amplitudes[k]);
    }
};

std::vector<unsigned long> some_basis_states(unsigned int n) {
    const unsigned long size = 1ul << n;
    std::vector<unsigned long> some = {0, 1, size / 2, size - 1, 0x5555555555555555 & (size - 1), size / 3};
    for (unsigned long& k : some) k = std::min(k, size - 1);
    return some;
}

// How many numbers are zeros, and how many of these have a minus sign.
template <class T>
std::pair<unsigned long, unsigned long> zeros_of(const StateVector<T>& state) {
    const auto* const numbers = reinterpret_cast<const T*>(state.amplitudes.get());
    std::pair<unsigned long, unsigned long> count{0, 0};
    for (unsigned long i = 0; i < 2 * state.size; ++i) {
        if (numbers[i] != 0) continue;
        ++count.first;
        if (std::signbit(numbers[i])) ++count.second;
    }
    return count;
}

}  // namespace

TYPED_TEST(run_from_basis_state, equals_reset_and_gate_by_gate_bit_for_bit) {
    for (unsigned int n = 1; n <= 17; ++n) {
        Recorder<TypeParam> recorder(n, 7 * n);
        for (unsigned int gate = 0; gate < 3 * n; ++gate) recorder.random_gate();
        int threads = 0;
        for (const unsigned long k : some_basis_states(n)) {
            BasisState<TypeParam> expected(n, k);
            recorder.apply(expected, recorder.list.size());
            threads = threads % 3 + 1;
            Unwritten<TypeParam> got(n, threads);
            ASSERT_TRUE(recorder.list.run_from_basis_state(got, k));
            ASSERT_TRUE(equal_states<TypeParam>(expected, got))
                << n << " qubits, basis state " << k << ", threads " << threads;
        }
    }
}

// Few gates mix, so that nearly all amplitudes remain zeros; what multiplies them gives their signs.
TYPED_TEST(run_from_basis_state, keeps_the_sign_of_every_zero) {
    const unsigned int n = 16;
    const auto one_qubit = plain_gates(1), two_qubit = plain_gates(2), turned = gates_with_angles();
    unsigned long zeros = 0, negative = 0;
    for (unsigned int seed = 0; seed < 12; ++seed) {
        std::mt19937 engine(seed);
        program<TypeParam> list(n);
        for (int gate = 0; gate < 24; ++gate) {
            const auto q = random_qubits(4, n, engine);
            const auto controls = std::vector<unsigned int>(q.begin() + 2, q.begin() + 2 + engine() % 3);
            const double angle = double(engine() % 1000) / 50 - 10;
            switch (engine() % 8) {
                case 0:
                    list.add_gate("Y", {}, {q[0]}, controls);
                    break;
                case 1:
                    list.add_gate("Z", {}, {q[0]}, controls);
                    break;
                case 2:
                    list.add_gate("PH", {angle}, {q[0]}, controls);
                    break;
                case 3:
                    for (const unsigned int target : q) list.add_gate("RZ", {angle}, {target});
                    break;
                case 4:
                    list.add_gate("RZZ", {angle}, {q[0], q[1]}, controls);
                    break;
                case 5: {
                    std::vector<C<TypeParam>> entries;
                    for (int i = 0; i < 4; ++i) entries.push_back({TypeParam(i - 2), TypeParam(1 - i)});
                    list.add_diagonal(entries, {q[0], q[1]}, controls);
                    break;
                }
                case 6: {
                    const std::string& name =
                        gate % 2 == 0 ? one_qubit[engine() % one_qubit.size()] : two_qubit[engine() % two_qubit.size()];
                    list.add_gate(name, {}, {q.begin(), q.begin() + qubits_of(name)}, controls);
                    break;
                }
                default: {
                    const std::string& name = turned[engine() % turned.size()];
                    list.add_gate(name, std::vector<double>(angles_of(name), angle),
                                  {q.begin(), q.begin() + qubits_of(name)}, controls);
                    break;
                }
            }
        }
        for (const bool fusion : {false, true}) {
            list.set_fusion(fusion);
            for (const unsigned long k : {0ul, 0x6a5ful}) {
                BasisState<TypeParam> expected(n, k, 2);
                list.run(expected);
                Unwritten<TypeParam> got(n, 1 + static_cast<int>(seed % 3));
                list.run_from_basis_state(got, k);
                ASSERT_TRUE(equal_states<TypeParam>(expected, got)) << "seed " << seed << ", basis state " << k;
                zeros += zeros_of<TypeParam>(expected).first;
                negative += zeros_of<TypeParam>(expected).second;
            }
        }
    }
    EXPECT_GT(zeros, 12ul << n);
    EXPECT_GT(negative, zeros / 10);
    EXPECT_GT(zeros - negative, zeros / 10);
}

// An infinity times a zero is no number: it must come up in the zeros too.
TYPED_TEST(run_from_basis_state, carries_infinite_entries_to_all_amplitudes) {
    const unsigned int n = 15;
    const TypeParam infinity = std::numeric_limits<TypeParam>::infinity();
    program<TypeParam> list(n);
    list.add_matrix({C<TypeParam>(infinity), C<TypeParam>(1), C<TypeParam>(1), C<TypeParam>(1)}, {3});
    list.add_gate("RZ", {0.5}, {14});
    list.add_gate("CNOT", {}, {3, 5});
    BasisState<TypeParam> expected(n, 9);
    Unwritten<TypeParam> got(n, 2);
    list.run(expected);
    list.run_from_basis_state(got, 9);
    EXPECT_TRUE(equal_states<TypeParam>(expected, got));
    EXPECT_TRUE(std::isnan(got.amplitudes[(1ul << n) - 9].real()));
}

// Small caches make many chunks.
TYPED_TEST(run_from_basis_state, gives_the_same_bits_in_chunks_of_any_size) {
    const unsigned int n = 14;
    std::mt19937 engine(3);
    std::vector<gates::operation<TypeParam>> operations;
    const char* const names[] = {"H", "RX", "RZ", "RZ", "PH", "S", "CNOT", "SWAP", "CSIGN", "RZZ"};
    for (int gate = 0; gate < 80; ++gate) {
        const gates::gate_row& row = *gates::find_gate(names[engine() % std::size(names)]);
        const std::vector<TypeParam> angle = {TypeParam(engine() % 100) / 10 - 5};
        operations.push_back(gates::named_operation<TypeParam>(row, angle, random_qubits(2, n, engine)));
    }
    for (const unsigned long k : some_basis_states(n)) {
        BasisState<TypeParam> expected(n, k);
        for (const auto& op : operations) kernels::run_parallel(gates::prepare(op, n), expected.amplitudes.get(), 1);
        for (const unsigned long cache : {0ul, 16ul << 10, 64ul << 10, 1ul << 20}) {
            for (const int threads : {1, 3}) {
                replay::schedule<TypeParam> schedule(operations, n, threads, false, cache);
                for (const bool asked : {false, true}) {
                    Unwritten<TypeParam> got(n, threads);
                    const replay::run_hook yes = [](unsigned long, unsigned long) { return true; };
                    ASSERT_TRUE(schedule.run_to_end(operations, got.amplitudes.get(), asked ? yes : nullptr, k));
                    ASSERT_TRUE(equal_states<TypeParam>(expected, got))
                        << "basis state " << k << ", cache of " << cache;
                }
            }
        }
    }
}

TYPED_TEST(run_from_basis_state, without_gates_writes_the_basis_state) {
    program<TypeParam> list(9);
    for (const unsigned long k : {0ul, 300ul, 1023ul}) {
        Unwritten<TypeParam> got(10, 2);
        EXPECT_TRUE(list.run_from_basis_state(got, k));
        EXPECT_TRUE(equal_states<TypeParam>(BasisState<TypeParam>(10, k), got)) << k;
    }
}

TYPED_TEST(run_from_basis_state, ends_at_once_when_its_hook_says_so) {
    Recorder<TypeParam> recorder(17, 2);
    for (int gate = 0; gate < 60; ++gate) recorder.random_gate();
    Unwritten<TypeParam> state(17, 2);
    int heard = 0;
    EXPECT_FALSE(
        recorder.list.run_from_basis_state(state, 5, [&](unsigned long, unsigned long) { return ++heard < 2; }));
    EXPECT_EQ(heard, 2);
}

TYPED_TEST(run_from_basis_state, refuses_what_is_no_index_of_the_state) {
    program<TypeParam> list(3);
    Unwritten<TypeParam> state(3, 1);
    for (const unsigned long k : {8ul, ~0ul}) {
        EXPECT_THROW(list.run_from_basis_state(state, k), std::invalid_argument);
    }
    EXPECT_TRUE(std::isnan(state.amplitudes[0].real())) << "what was refused has done nothing";
    Unwritten<TypeParam> few(2, 1);
    EXPECT_THROW(list.run_from_basis_state(few, 0), std::invalid_argument);
    state.release_memory();
    EXPECT_THROW(list.run_from_basis_state(state, 0), std::invalid_argument);
}
