#include "reference/diagonal.hpp"
#include "support/compare.hpp"
#include "support/counted_allocations.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/recorded_program.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/program.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <stdexcept>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(program_run);
PRECISION_SUITE(fused_run);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;
template <class T>
using C = thrust::complex<T>;

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
        // Where two NaN meet, the sign is that of the one that the compiler has put first.
        for (auto* state : {&expected, &got}) {
            auto* const numbers = reinterpret_cast<TypeParam*>(state->amplitudes.get());
            for (unsigned long i = 0; i < 2 * state->size; ++i) {
                if (numbers[i] != numbers[i]) numbers[i] = std::numeric_limits<TypeParam>::quiet_NaN();
            }
        }
        EXPECT_TRUE(equal_states(expected, got)) << n << " qubits";
    }
}

// A gate that moves amplitudes on high qubits waits for a later pass, and gates of every kind overtake it: on other
// qubits, or reading its control.
TYPED_TEST(program_run, lets_gates_overtake_those_that_only_move_without_a_change_of_bits) {
    const unsigned int n = 19, first_high = 14;
    // Few different numbers, so that sums cancel, and zeros of both signs.
    auto start = random_state<TypeParam>(n, Values::ordinary, 1);
    const TypeParam parts[] = {TypeParam(0.5), TypeParam(-0.5), TypeParam(0), TypeParam(-0.0), TypeParam(0.25)};
    for (unsigned long i = 0; i < start.size(); ++i) start[i] = {parts[i * 7 % 11 % 5], parts[i * 5 % 13 % 5]};
    const char* const moving[] = {"X", "CNOT", "CCNOT", "SWAP"};
    for (const std::string name : moving) {
        program<TypeParam> list(n);
        std::vector<program<TypeParam>> singles;
        const auto add = [&](const std::string& gate, const std::vector<double>& params, const Qubits& qubits,
                             const Qubits& controls = {}) {
            list.add_gate(gate, params, qubits, controls);
            singles.emplace_back(n).add_gate(gate, params, qubits, controls);
        };
        // The low qubits fill the first buffer, so that the moving gates find no place.
        for (unsigned int q = 0; q < 12; ++q) add("X", {}, {q});
        for (unsigned int q = first_high; q + 1 < n; ++q) {
            if (name == "X") add("X", {}, {q});
            if (name == "CNOT") add("CNOT", {}, {first_high - 1, q});
            if (name == "CCNOT") add("CCNOT", {}, {first_high - 1, first_high - 2, q});
            if (name == "SWAP") add("SWAP", {}, {q, q + 1});
        }
        for (unsigned int q = 0; q < 6; ++q) {
            for (const std::string gate : {"H", "Y", "Z", "S", "T", "ZtoY", "YtoZ"}) add(gate, {}, {q});
            for (const std::string gate : {"RX", "RY", "RZ", "PH"}) add(gate, {double(q + 1) / 3}, {q});
            add("H", {}, {q}, {first_high - 1});
            add("CSIGN", {}, {first_high - 1, q});
            add("SQRTSWAP", {}, {q, (q + 1) % 6});
            add("ISWAP", {}, {q, (q + 2) % 6});
        }
        const auto& passes = list.plan(n, 2).passes;
        bool overtaken = false;
        for (std::size_t i = 1; i < passes.size(); ++i) {
            overtaken = overtaken || passes[i].first_gate < passes[i - 1].last_gate;
        }
        EXPECT_TRUE(overtaken) << name;
        LoadedVector<TypeParam> expected(start, 2), got(start, 2);
        for (auto& single : singles) single.run(expected);
        list.run(got);
        EXPECT_TRUE(equal_states(expected, got)) << name;

        // Stopped after each pass in turn: those overtaken catch up.
        for (std::size_t stop = 1; stop < passes.size(); ++stop) {
            LoadedVector<TypeParam> prefix(start, 2), stopped(start, 2);
            std::size_t heard = 0;
            const unsigned long applied =
                list.run(stopped, [&](unsigned long, unsigned long) { return ++heard < stop; });
            for (unsigned long gate = 0; gate < applied; ++gate) singles[gate].run(prefix);
            EXPECT_TRUE(equal_states(prefix, stopped)) << name << ", stopped after pass " << stop;
        }
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
    EXPECT_GE(applied, passes[0].last_gate);
    EXPECT_LT(applied, 80u);
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

TYPED_TEST(program_run, plan_covers_every_gate) {
    Recorder<TypeParam> recorder(16, 4);
    for (int gate = 0; gate < 50; ++gate) recorder.random_gate();
    unsigned long covered = 0;
    const auto& plan = recorder.list.plan(16, 2);
    for (const auto& pass : plan.passes) {
        EXPECT_LE(pass.first_gate, covered);
        EXPECT_LT(pass.first_gate, pass.last_gate);
        covered = std::max(covered, pass.last_gate);
    }
    EXPECT_EQ(covered, 50u);
    EXPECT_LE(plan.predicted_sweeps, static_cast<double>(plan.passes.size()));
}

TYPED_TEST(program_run, of_no_gates_leaves_the_state) {
    const auto start = random_state<TypeParam>(13, Values::any_bits);
    LoadedVector<TypeParam> state(start);
    program<TypeParam> empty(13);
    EXPECT_EQ(empty.run(state), 0u);
    EXPECT_TRUE(same_bits(start, state.amplitudes.get()));
}

TYPED_TEST(program_run, refuses_an_unknown_name_and_a_large_plain_diagonal_given_as_a_matrix) {
    program<TypeParam> list(10);
    try {
        list.add_gate("h", {}, {0});
        FAIL() << "accepted";
    } catch (const std::invalid_argument& refusal) {
        EXPECT_STREQ(refusal.what(), "Gate h is not known to a program");
    }
    const Qubits nine = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    const std::vector<C<TypeParam>> matrix(512 * 512);
    EXPECT_THROW(list.add_matrix(matrix, nine), std::runtime_error);
    EXPECT_NO_THROW(list.add_matrix(matrix, nine, {9}));
    EXPECT_NO_THROW(list.add_diagonal(std::vector<C<TypeParam>>(512), nine));
    EXPECT_NO_THROW(list.add_diagonal(std::vector<C<TypeParam>>(512), nine, {9}));
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(list.nqubits(), 10u);
    list.clear();
    EXPECT_EQ(list.size(), 0u);
}

// A long list is planned before the first gate acts, and that is heard too.
TYPED_TEST(program_run, told_to_stop_while_it_plans_applies_nothing_and_plans_again) {
    const unsigned int n = 14, gates = 20000;
    for (const bool fused : {false, true}) {
        program<TypeParam> list(n);
        list.set_fusion(fused);
        for (unsigned int gate = 0; gate < gates; ++gate) {
            list.add_gate(gate % 3 == 0 ? "T" : "H", {}, {gate % n});
        }
        const auto start = random_state<TypeParam>(n, Values::ordinary);
        LoadedVector<TypeParam> expected(start), got(start);
        unsigned long heard_of_none = 0;
        const unsigned long stopped = list.run(got, [&](unsigned long done, unsigned long total) {
            EXPECT_EQ(done, 0u);
            EXPECT_EQ(total, gates);
            return ++heard_of_none < 3;
        });
        EXPECT_EQ(stopped, 0u);
        EXPECT_EQ(heard_of_none, 3u);
        EXPECT_TRUE(same_bits(start, got.amplitudes.get()));

        struct Thrown {};
        EXPECT_THROW(list.run(got, [](unsigned long, unsigned long) -> bool { throw Thrown{}; }), Thrown);
        EXPECT_TRUE(same_bits(start, got.amplitudes.get()));

        // As if nothing had been.
        program<TypeParam> other(n);
        other.set_fusion(fused);
        for (unsigned int gate = 0; gate < gates; ++gate) {
            other.add_gate(gate % 3 == 0 ? "T" : "H", {}, {gate % n});
        }
        EXPECT_EQ(other.run(expected), gates);
        EXPECT_EQ(list.run(got, [](unsigned long, unsigned long) { return true; }), gates);
        EXPECT_TRUE(equal_states(expected, got)) << "fusion " << fused;
    }
}

// --- parts ----------------------------------------------------------------------------------------------------------

// Cut at every place, those included where a gate that waits has been overtaken.
TYPED_TEST(program_run, in_two_parts_gives_the_bits_of_the_whole) {
    bool overtaken = false;
    for (const unsigned int n : {1u, 3u, 6u, 13u, 15u}) {
        const auto start = random_state<TypeParam>(n, Values::ordinary, n);
        const unsigned int gates = 50;
        Recorder<TypeParam> recorder(n, 7 * n);
        for (unsigned int gate = 0; gate < gates; ++gate) {
            gate % 2 == 0 ? recorder.moving_gate() : recorder.random_gate();
        }
        for (const int threads : {1, 3}) {
            const auto& passes = recorder.list.plan(n, threads).passes;
            for (std::size_t i = 1; i < passes.size(); ++i) {
                overtaken = overtaken || passes[i].first_gate < passes[i - 1].last_gate;
            }
            LoadedVector<TypeParam> expected(start, threads);
            recorder.list.run(expected);
            for (unsigned int k = 0; k <= gates; ++k) {
                LoadedVector<TypeParam> got(start, threads);
                ASSERT_EQ(recorder.list.run(got, 0, k), k);
                ASSERT_EQ(recorder.list.run(got, k, gates), gates - k);
                ASSERT_TRUE(equal_states(expected, got)) << n << " qubits, cut at " << k << ", threads " << threads;
            }
        }
    }
    EXPECT_TRUE(overtaken);
}

TYPED_TEST(program_run, of_any_part_applies_its_gates_alone) {
    const unsigned int n = 13, gates = 30;
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    Recorder<TypeParam> recorder(n, 21);
    for (unsigned int gate = 0; gate < gates; ++gate) recorder.random_gate();
    for (unsigned int first = 0; first <= gates; ++first) {
        for (unsigned int last = first; last <= gates; last += 1 + last % 4) {
            LoadedVector<TypeParam> expected(start), got(start, 2);
            recorder.apply(expected, first, last);
            ASSERT_EQ(recorder.list.run(got, first, last), last - first);
            ASSERT_TRUE(equal_states(expected, got)) << first << " up to " << last;
        }
    }
}

TYPED_TEST(program_run, of_a_part_stopped_by_its_hook_counts_the_gates_of_the_part) {
    const unsigned int n = 17, first = 10, last = 90;
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    Recorder<TypeParam> recorder(n, 9);
    for (unsigned int gate = 0; gate < 100; ++gate) recorder.random_gate();
    LoadedVector<TypeParam> got(start), expected(start);
    const unsigned long applied = recorder.list.run(got, first, last, [&](unsigned long done, unsigned long total) {
        EXPECT_EQ(total, last - first);
        EXPECT_LE(done, total);
        return false;
    });
    EXPECT_GT(applied, 0u);
    EXPECT_LT(applied, last - first);
    recorder.apply(expected, first, first + applied);
    EXPECT_TRUE(equal_states(expected, got));
}

// Planning allocates for every gate; a run of what is planned allocates nothing.
TYPED_TEST(program_run, keeps_the_plans_of_the_whole_and_of_the_last_eight_parts) {
    const unsigned int n = 13, gates = 40;
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    for (const bool fused : {false, true}) {
        Recorder<TypeParam> recorder(n, 4, Recorder<TypeParam>::unitary);
        for (unsigned int gate = 0; gate < gates; ++gate) recorder.random_gate();
        recorder.list.set_fusion(fused);
        LoadedVector<TypeParam> state(start);
        const auto plans = [&](unsigned int first, unsigned int last) {
            state.load(start);
            const CountedAllocations allocations;
            recorder.list.run(state, first, last);
            return allocations.count() != 0;
        };
        EXPECT_TRUE(plans(0, gates));
        for (unsigned int part = 1; part <= 8; ++part) EXPECT_TRUE(plans(part, gates)) << part;
        EXPECT_FALSE(plans(0, gates)) << "the whole";
        for (unsigned int part = 8; part >= 1; --part) EXPECT_FALSE(plans(part, gates)) << part;
        EXPECT_TRUE(plans(9, gates));
        EXPECT_TRUE(plans(8, gates)) << "of nine parts the one whose last run lies furthest back is planned anew";
        EXPECT_FALSE(plans(1, gates));
        for (unsigned int part = 10; part <= 20; ++part) EXPECT_TRUE(plans(part, gates)) << part;
        EXPECT_FALSE(plans(0, gates)) << "the whole is kept";
        EXPECT_FALSE(plans(13, gates)) << "what a run of the whole does not change";
    }
}

TYPED_TEST(fused_run, of_parts_agrees_with_the_whole_up_to_rounding_and_with_programs_of_their_own_bit_for_bit) {
    const unsigned int n = 13, gates = 40, cut = 17;
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    program<TypeParam> whole(n), first(n), second(n);
    for (auto* list : {&whole, &first, &second}) list->set_fusion(true);
    for (unsigned int gate = 0; gate < gates; ++gate) {
        const unsigned int q = gate * 5 % n;
        for (auto* list : {&whole, gate < cut ? &first : &second}) {
            list->add_gate(gate % 3 == 0 ? "RX" : "RZ", {gate / 7.0}, {q});
            list->add_gate("CNOT", {}, {q, (q + 4) % n});
        }
    }
    LoadedVector<TypeParam> expected(start), of_their_own(start), got(start, 3);
    whole.run(expected);
    first.run(of_their_own);
    second.run(of_their_own);
    EXPECT_EQ(whole.run(got, 0, 2 * cut), 2 * cut);
    EXPECT_EQ(whole.run(got, 2 * cut, 2 * gates), 2 * (gates - cut));
    EXPECT_TRUE(equal_states(of_their_own, got));
    for (unsigned long i = 0; i < got.size; ++i) {
        ASSERT_NEAR(expected.amplitudes[i].real(), got.amplitudes[i].real(), 1e-5);
        ASSERT_NEAR(expected.amplitudes[i].imag(), got.amplitudes[i].imag(), 1e-5);
    }
}

// --- diagonals ----------------------------------------------------------------------------------------------------

// Of every size, alone in a pass and beside gates with which they share chunks; on qubits inside and outside of these,
// in any order, under controls inside and outside.
TYPED_TEST(program_run, of_diagonals_of_every_size_equals_the_reference_bit_for_bit) {
    for (const unsigned int n : {3u, 9u, 12u, 15u}) {
        std::mt19937 engine(n);
        const auto start = random_state<TypeParam>(n, Values::unusual, n);
        for (unsigned int k = 1; k <= n; ++k) {
            for (unsigned int trial = 0; trial < 3; ++trial) {
                Qubits targets = random_qubits(n, n, engine);
                // None, some, all of the others: the last trial has the qubits from the highest to the lowest.
                Qubits controls(targets.begin() + k, targets.begin() + k + trial * (n - k) / 2);
                targets.resize(k);
                if (trial == 2) std::sort(targets.rbegin(), targets.rend());
                const auto diagonal = random_coefficients<TypeParam>(1ul << k, k);
                for (const bool beside_others : {false, true}) {
                    program<TypeParam> list(n);
                    // They only move amplitudes, the highest qubit's among them: it is local, so others are not.
                    if (beside_others) list.add_gate("SWAP", {}, {n - 1, 0});
                    list.add_diagonal(as_thrust(diagonal), targets, controls);
                    if (beside_others) list.add_gate("SWAP", {}, {n - 1, 0});
                    const auto exchanged = [&](const reference::State<TypeParam>& state) {
                        if (!beside_others) return state;
                        auto result = state;
                        const unsigned long both = 1 | 1ul << (n - 1);
                        for (unsigned long i = 0; i < state.size(); ++i) {
                            const bool differ = (i & both) != 0 && (i & both) != both;
                            result[i] = state[differ ? i ^ both : i];
                        }
                        return result;
                    };
                    auto expected = exchanged(start);
                    reference::apply_diagonal(expected, targets, controls, diagonal);
                    expected = exchanged(expected);
                    for (const int threads : {1, 3}) {
                        LoadedVector<TypeParam> got(start, threads);
                        list.run(got);
                        ASSERT_TRUE(same_bits(expected, got.amplitudes.get()))
                            << describe(n, targets, controls, threads) << (beside_others ? ", beside others" : "");
                    }
                }
            }
        }
    }
}

// Its entries are sorted once, when it is added. A plan reads none of them and copies none.
TYPED_TEST(program_run, plans_a_large_diagonal_without_looking_at_its_entries) {
    const unsigned int n = 20;
    Qubits qubits;
    for (unsigned int q = 0; q < n; ++q) qubits.push_back(q);
    for (const bool controlled : {false, true}) {
        const Qubits targets(qubits.begin() + (controlled ? 1 : 0), qubits.end());
        program<TypeParam> list(n);
        list.add_gate("H", {}, {n - 1});
        list.add_diagonal(std::vector<C<TypeParam>>(1ul << targets.size(), TypeParam(1)), targets,
                          controlled ? Qubits{0} : Qubits{});
        list.add_gate("H", {}, {n - 1});
        const CountedAllocations allocations;
        const WatchedArrays arrays;
        EXPECT_EQ(list.plan(n, 1).passes.size(), 1u);
        EXPECT_LT(allocations.count(), 200) << (controlled ? "controlled" : "plain");
        EXPECT_EQ(arrays.order(), "") << (controlled ? "controlled" : "plain");
    }
}

// --- new angles ---------------------------------------------------------------------------------------------------

namespace {

// Every gate that takes an angle, on local and non-local qubits, with `shift` added to each angle.
template <class T>
program<T> turned_gates(unsigned int n, double shift) {
    program<T> list(n);
    const char* const names[] = {"RX", "RY", "RZ", "PH"};
    for (unsigned int gate = 0; gate < 40; ++gate) {
        const unsigned int q = gate * 5 % n;
        list.add_gate(names[gate % 4], {gate / 7.0 + shift}, {q}, gate % 3 == 0 ? Qubits{(q + 3) % n} : Qubits{});
    }
    return list;
}

}  // namespace

TYPED_TEST(program_run, with_new_angles_equals_a_program_made_with_them) {
    for (const unsigned int n : {5u, 12u, 15u}) {
        const auto start = random_state<TypeParam>(n, Values::ordinary);
        for (const bool fused : {false, true}) {
            auto list = turned_gates<TypeParam>(n, 0), expected_list = turned_gates<TypeParam>(n, 0.25);
            list.set_fusion(fused);
            expected_list.set_fusion(fused);
            LoadedVector<TypeParam> planned(start, 2), expected(start, 2), got(start, 2);
            list.run(planned);
            for (unsigned int cut : {11u, 23u}) {
                list.run(got, 0, cut);
                list.run(got, cut, 40);
            }
            got.load(start);
            for (unsigned int gate = 0; gate < 40; ++gate) list.set_params(gate, {gate / 7.0 + 0.25});
            expected_list.run(expected);
            list.run(got);
            EXPECT_TRUE(equal_states(expected, got)) << n << " qubits, fusion " << fused;
            if (!fused) {
                LoadedVector<TypeParam> in_parts(start, 2);
                list.run(in_parts, 0, 23);
                list.run(in_parts, 23, 40);
                EXPECT_TRUE(equal_states(expected, in_parts)) << n << " qubits";
            }
            EXPECT_FALSE(equal_states(planned, got));
        }
    }
}

TYPED_TEST(program_run, refuses_an_angle_for_a_gate_without_one) {
    program<TypeParam> list(2);
    list.add_gate("H", {}, {0});
    EXPECT_THROW(list.set_params(0, {1}), std::invalid_argument);
    EXPECT_THROW(list.set_params(1, {1}), std::out_of_range);
}

// --- angles -------------------------------------------------------------------------------------------------------

namespace {

const char* const turning_gates[] = {"RX", "RY", "RZ", "PH"};

template <class T>
void turn(StateVector<T>& state, const std::string& name, T angle, const Qubits& controls) {
    if (name == "RX") state.apply_RX(1, angle, controls);
    if (name == "RY") state.apply_RY(1, angle, controls);
    if (name == "RZ") state.apply_RZ(1, angle, controls);
    if (name == "PH") state.apply_PH(1, angle, controls);
}

}  // namespace

TYPED_TEST(program_run, with_an_angle_of_its_precision_has_the_bits_of_the_member) {
    using T = TypeParam;
    const auto start = random_state<T>(4, Values::ordinary);
    const T not_a_number = std::numeric_limits<T>::quiet_NaN();
    for (const T angle : {T(0.5), T(0.1), T(1234567.8), T(-3e30), T(-0.0), -not_a_number}) {
        for (const std::string name : turning_gates) {
            for (const Qubits& controls : {Qubits{}, Qubits{3}}) {
                program<T> list(4);
                list.add_gate(name, {static_cast<double>(angle)}, {1}, controls);
                LoadedVector<T> expected(start), got(start), renewed(start);
                turn<T>(expected, name, angle, controls);
                list.run(got);
                EXPECT_TRUE(equal_states(expected, got)) << name << " by " << angle;
                program<T> other(4);
                other.add_gate(name, {2.5}, {1}, controls);
                other.set_params(0, {static_cast<double>(angle)});
                other.run(renewed);
                EXPECT_TRUE(equal_states(expected, renewed)) << name << " by " << angle;
            }
        }
    }
}

// cos(a/2), -i sin(a/2) and so on of the angle itself, rounded once.
TEST(program_in_single_precision, takes_any_angle_for_what_it_is) {
    for (const double angle : {0.1, 1234567.8, -1e15, 1e300, 6.283185307179586 * 16384 * 0.3}) {
        const auto c = static_cast<float>(std::cos(angle / 2)), s = static_cast<float>(std::sin(angle / 2));
        const auto whole_c = static_cast<float>(std::cos(angle)), whole_s = static_cast<float>(std::sin(angle));
        // What becomes of the states 0 and 1 of the qubit.
        const std::vector<std::pair<std::string, std::array<std::complex<float>, 4>>> expected = {
            {"RX", {{{c, 0}, {0, -s}, {0, -s}, {c, 0}}}},
            {"RY", {{{c, 0}, {s, 0}, {-s, 0}, {c, 0}}}},
            {"RZ", {{{c, -s}, {0, 0}, {0, 0}, {c, s}}}},
            {"PH", {{{1, 0}, {0, 0}, {0, 0}, {whole_c, whole_s}}}}};
        for (const auto& [name, entries] : expected) {
            for (const bool renewed : {false, true}) {
                for (const bool fused : {false, true}) {
                    program<float> list(1);
                    list.set_fusion(fused);
                    list.add_gate(name, {renewed ? 0.25 : angle}, {0});
                    if (renewed) list.set_params(0, {angle});
                    for (unsigned int from = 0; from < 2; ++from) {
                        StateVector<float> state(1);
                        state.reset_to_str(from == 0 ? "0" : "1");
                        list.run(state);
                        for (unsigned int to = 0; to < 2; ++to) {
                            const std::complex<float> entry = entries[2 * from + to];
                            // Fusion divides phases away and multiplies them back.
                            const float rounding = fused ? 1e-6f : 0.0f;
                            EXPECT_NEAR(state.amplitudes[to].real(), entry.real(), rounding) << name << " by " << angle;
                            EXPECT_NEAR(state.amplitudes[to].imag(), entry.imag(), rounding) << name << " by " << angle;
                        }
                    }
                }
            }
        }
    }
}

// --- fusion -------------------------------------------------------------------------------------------------------

namespace {

// Length of the difference over the length of the expected state.
template <class T>
double error(const StateVector<T>& expected, const StateVector<T>& got) {
    double difference = 0, length = 0;
    for (unsigned long i = 0; i < expected.size; ++i) {
        const C<double> e(expected.amplitudes[i]);
        const C<double> g(got.amplitudes[i]);
        difference += thrust::norm(g - e);
        length += thrust::norm(e);
    }
    return std::sqrt(difference / length);
}

template <class T>
constexpr double most_error = sizeof(T) == 8 ? 1e-12 : 1e-5;

}  // namespace

TYPED_TEST(fused_run, is_not_the_default) {
    program<TypeParam> list(3);
    EXPECT_FALSE(list.fusion());
    list.set_fusion(true);
    EXPECT_TRUE(list.fusion());
}

TYPED_TEST(fused_run, of_1000_random_gates_agrees_up_to_rounding) {
    for (const unsigned int n : {1u, 2u, 3u, 4u, 6u, 9u, 11u, 12u, 13u, 14u, 16u}) {
        const auto start = random_state<TypeParam>(n, Values::ordinary, n);
        for (unsigned int seed = 0; seed < 2; ++seed) {
            Recorder<TypeParam> recorder(n, 31 * n + seed, Recorder<TypeParam>::unitary);
            for (int gate = 0; gate < 1000; ++gate) recorder.random_gate();
            LoadedVector<TypeParam> expected(start, 2);
            recorder.list.run(expected);
            recorder.list.set_fusion(true);
            for (const int threads : {1, 3}) {
                LoadedVector<TypeParam> got(start, threads);
                ASSERT_EQ(recorder.list.run(got), 1000u);
                ASSERT_LE(error<TypeParam>(expected, got), most_error<TypeParam>) << n << " qubits, seed " << seed;
            }
        }
    }
}

TYPED_TEST(fused_run, leaves_matrices_that_are_not_unitary_as_they_are) {
    for (const unsigned int n : {3u, 13u}) {
        const auto start = random_state<TypeParam>(n, Values::ordinary, n);
        Recorder<TypeParam> recorder(n, n);
        for (int gate = 0; gate < 30; ++gate) recorder.random_gate();
        LoadedVector<TypeParam> expected(start), got(start, 2);
        recorder.list.run(expected);
        recorder.list.set_fusion(true);
        recorder.list.run(got);
        EXPECT_LE(error<TypeParam>(expected, got), most_error<TypeParam>) << n << " qubits";
    }
}

TYPED_TEST(fused_run, gives_the_same_plan_and_bits_for_every_number_of_threads) {
    const auto start = random_state<TypeParam>(17, Values::ordinary);
    Recorder<TypeParam> recorder(17, 3, Recorder<TypeParam>::unitary);
    for (int gate = 0; gate < 200; ++gate) recorder.random_gate();
    recorder.list.set_fusion(true);
    LoadedVector<TypeParam> one(start, 1);
    recorder.list.run(one);
    const auto planned = recorder.list.plan(17, 1);
    for (const int threads : {2, 7, 8}) {
        LoadedVector<TypeParam> several(start, threads);
        recorder.list.run(several);
        EXPECT_TRUE(equal_states(one, several)) << threads << " threads";
        const auto& plan = recorder.list.plan(17, threads);
        ASSERT_EQ(plan.passes.size(), planned.passes.size()) << threads << " threads";
        for (std::size_t i = 0; i < plan.passes.size(); ++i) {
            EXPECT_EQ(plan.passes[i].local_qubits, planned.passes[i].local_qubits) << threads << " threads, pass " << i;
        }
    }
}

// Each single gate alone, and each pair on the same and on different qubits: every way to rewrite is met.
TYPED_TEST(fused_run, of_every_pair_of_gates_agrees_up_to_rounding) {
    const auto names = names_of_gates([](const gate_row& row) { return row.controls + row.targets <= 2; });
    const auto start = random_state<TypeParam>(3, Values::ordinary);
    const auto add = [](program<TypeParam>& list, const std::string& name, unsigned int q, TypeParam angle) {
        list.add_gate(name,
                      std::vector<double>(velacamplix::gates::find_gate(name)->angles, static_cast<double>(angle)),
                      qubits_of(name) == 2 ? Qubits{q, (q + 1) % 3} : Qubits{q});
    };
    const TypeParam pi = TypeParam(3.14159265358979323846);
    for (const std::string& first : names) {
        for (const std::string& second : names) {
            for (const std::string third : {"CNOT", "H", "PH"}) {
                for (const unsigned int q : {0u, 1u, 2u}) {
                    for (const TypeParam angle : {TypeParam(0.7), TypeParam(-2.1), TypeParam(0), pi, pi / 2, -pi / 2}) {
                        program<TypeParam> list(3);
                        add(list, first, 0, angle);
                        add(list, second, q, -angle / 2);
                        add(list, third, 0, angle);
                        LoadedVector<TypeParam> expected(start), got(start);
                        list.run(expected);
                        list.set_fusion(true);
                        list.run(got);
                        ASSERT_LE(error<TypeParam>(expected, got), most_error<TypeParam>)
                            << first << ", " << second << ' ' << q << ", " << third << ", angle " << angle;
                    }
                }
            }
        }
    }
}

TYPED_TEST(fused_run, stopped_by_its_hook_leaves_the_state_of_a_prefix) {
    const unsigned int n = 16;
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    Recorder<TypeParam> recorder(n, 8, Recorder<TypeParam>::unitary);
    for (int gate = 0; gate < 800; ++gate) recorder.random_gate();
    recorder.list.set_fusion(true);
    LoadedVector<TypeParam> got(start), expected(start);
    const unsigned long applied = recorder.list.run(got, [](unsigned long, unsigned long) { return false; });
    EXPECT_EQ(applied, 16ul * n);
    recorder.apply(expected, applied);
    EXPECT_LE(error<TypeParam>(expected, got), most_error<TypeParam>);
}

TYPED_TEST(fused_run, brings_gates_together_in_fewer_passes) {
    program<TypeParam> list(20);
    for (int layer = 0; layer < 4; ++layer) {
        for (unsigned int q = 0; q < 20; ++q) list.add_gate("RY", {q + 1.0}, {q});
        for (unsigned int q = 0; q < 20; ++q) list.add_gate("RZ", {q + 2.0}, {q});
        for (unsigned int q = 0; q + 1 < 20; ++q) list.add_gate("CNOT", {}, {q, q + 1});
    }
    const std::size_t exact = list.plan(20, 2).passes.size();
    list.set_fusion(true);
    EXPECT_LT(list.plan(20, 2).passes.size(), exact);
}
