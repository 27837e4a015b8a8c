#include <velacamplix/batch.hpp>

#include "support/captured_output.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/recorded_program.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <omp.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(batch);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;
template <class T>
using settings = pbamplix::cpu::batch_settings<T>;
template <class T>
using Amplitudes = std::vector<thrust::complex<T>>;

const int team_sizes[] = {1, 2, 4, 8};

template <class T>
std::vector<program<T>> some_programs(unsigned int n, unsigned int count, bool fused = false) {
    std::vector<program<T>> programs;
    for (unsigned int i = 0; i < count; ++i) {
        Recorder<T> recorder(n, 100 * n + i, Recorder<T>::unitary);
        for (unsigned int gate = 0; gate < 20 + i; ++gate) recorder.random_gate();
        programs.push_back(std::move(recorder.list));
        programs.back().set_fusion(fused);
    }
    return programs;
}

// What each program makes by itself, on one thread, of |0...0> or of `initial`; one after another.
template <class T>
Amplitudes<T> one_by_one(std::vector<program<T>> programs, unsigned int n, const StateVector<T>* initial = nullptr) {
    Amplitudes<T> all;
    for (auto& list : programs) {
        StateVector<T> state(n);
        state.reset();
        if (initial != nullptr) std::copy_n(initial->amplitudes.get(), state.size, state.amplitudes.get());
        list.run(state);
        all.insert(all.end(), state.amplitudes.get(), state.amplitudes.get() + state.size);
    }
    return all;
}

template <class T>
testing::AssertionResult equal(const Amplitudes<T>& expected, const Amplitudes<T>& got) {
    if (expected.size() != got.size()) return testing::AssertionFailure() << got.size() << " amplitudes";
    return same_numbers(reinterpret_cast<const T*>(expected.data()), reinterpret_cast<const T*>(got.data()),
                        2 * expected.size(), 2);
}

// Angles on every kind of rotation, on qubits inside and outside of a buffer.
template <class T>
program<T> turned_gates(unsigned int n) {
    program<T> list(n);
    const char* const names[] = {"RX", "RY", "RZ", "PH"};
    for (unsigned int gate = 0; gate < 24; ++gate) {
        list.add_gate(names[gate % 4], {0.1 * gate}, {gate * 5 % n});
        list.add_gate("CNOT", {}, {gate % n, (gate + 1) % n});
    }
    return list;
}

}  // namespace

TYPED_TEST(batch, of_programs_gives_the_bits_of_each_for_every_number_of_threads) {
    for (const unsigned int n : {2u, 6u, 13u}) {
        for (const bool fused : {false, true}) {
            const unsigned int count = 30;
            auto programs = some_programs<TypeParam>(n, count, fused);
            const auto expected = one_by_one(some_programs<TypeParam>(n, count, fused), n);
            for (const int threads : team_sizes) {
                Amplitudes<TypeParam> got(count << n);
                EXPECT_EQ(run_batch(programs, pbamplix::cpu::collect_in(got.data()), {threads}), count);
                EXPECT_TRUE(equal(expected, got)) << n << " qubits, " << threads << " threads, fusion " << fused;
            }
        }
    }
}

// A state is not read where a run begins, whatever the run before has left.
TYPED_TEST(batch, begins_anew_in_what_was_left_as_nan) {
    using T = TypeParam;
    const unsigned int count = 5;
    for (const unsigned int n : {3u, 13u, 18u}) {
        auto programs = some_programs<T>(n, count);
        programs.push_back(program<T>(n));
        const auto expected = one_by_one(some_programs<T>(n, count), n);
        for (const int threads : {1, 3}) {
            Amplitudes<T> got((count + 1) << n);
            const auto collected = pbamplix::cpu::collect_in(got.data());
            const auto result = [&](unsigned long index, auto& state) {
                collected(index, state);
                std::fill_n(reinterpret_cast<T*>(state.amplitudes.get()), 2 * state.size,
                            std::numeric_limits<T>::quiet_NaN());
            };
            EXPECT_EQ(run_batch(programs, result, {threads}), count + 1);
            Amplitudes<T> begin(1ul << n);
            begin[0] = 1;
            EXPECT_TRUE(equal({got.begin() + (count << n), got.end()}, begin)) << n << " qubits";
            got.resize(count << n);
            EXPECT_TRUE(equal(expected, got)) << n << " qubits, " << threads << " threads";
        }
    }
}

TYPED_TEST(batch, starts_from_a_given_state_that_may_have_more_qubits) {
    const unsigned int n = 9, count = 12;
    const LoadedVector<TypeParam> initial(random_state<TypeParam>(n, Values::ordinary));
    auto programs = some_programs<TypeParam>(7, count);
    const auto expected = one_by_one<TypeParam>(some_programs<TypeParam>(7, count), n, &initial);
    for (const int threads : team_sizes) {
        Amplitudes<TypeParam> got(count << n);
        EXPECT_EQ(run_batch(programs, pbamplix::cpu::collect_in(got.data()), {threads, &initial}), count);
        EXPECT_TRUE(equal(expected, got)) << threads << " threads";
    }
}

TYPED_TEST(batch, of_sets_of_angles_gives_the_bits_of_a_program_with_these_angles) {
    for (const unsigned int n : {4u, 14u, 18u}) {
        const unsigned int runs = n == 18 ? 2 : 20;
        const auto list = turned_gates<TypeParam>(n);
        const std::vector<unsigned long> gates = {0, 2, 4, 6, 20, 44};
        std::vector<std::vector<double>> angles;
        std::vector<program<TypeParam>> bound;
        for (unsigned int run = 0; run < runs; ++run) {
            bound.push_back(list.copy());
            angles.emplace_back();
            for (std::size_t i = 0; i < gates.size(); ++i) {
                angles.back().push_back(0.37 * run - 0.2 * static_cast<double>(i));
                bound.back().set_params(gates[i], {angles.back().back()});
            }
        }
        const auto expected = one_by_one(std::move(bound), n);
        for (const int threads : team_sizes) {
            Amplitudes<TypeParam> got(static_cast<unsigned long>(runs) << n);
            EXPECT_EQ(run_batch(list, gates, angles, pbamplix::cpu::collect_in(got.data()), {threads}), runs);
            EXPECT_TRUE(equal(expected, got)) << n << " qubits, " << threads << " threads";
        }
        std::vector<program<TypeParam>> own, fresh;
        own.push_back(list.copy());
        fresh.push_back(turned_gates<TypeParam>(n));
        EXPECT_TRUE(equal(one_by_one(std::move(fresh), n), one_by_one(std::move(own), n)))
            << "the program keeps its own angles";
    }
}

TYPED_TEST(batch, hands_over_every_state_once_and_shares_them_among_threads) {
    const unsigned int n = 8, count = 200;
    auto programs = some_programs<TypeParam>(n, count);
    for (const int threads : team_sizes) {
        std::mutex mutex;
        std::multiset<unsigned long> indices;
        std::set<int> teams;
        const unsigned long done = run_batch(programs,
                                             [&](unsigned long index, auto& state) {
                                                 const std::lock_guard<std::mutex> lock(mutex);
                                                 indices.insert(index);
                                                 teams.insert(omp_get_num_threads());
                                                 EXPECT_EQ(state.num_threads, 1);
                                                 state.num_threads = 5;  // what it changes does not outlast the run
                                                 state.is_density_matrix = true;
                                                 state.apply_X(0);
                                             },
                                             {threads});
        EXPECT_EQ(done, count);
        EXPECT_EQ(teams, std::set<int>{threads});
        EXPECT_EQ(indices.size(), count);
        for (unsigned long i = 0; i < count; ++i) EXPECT_EQ(indices.count(i), 1u) << i;
    }
}

TYPED_TEST(batch, draws_the_same_shots_for_every_number_of_threads_when_engines_are_seeded) {
    const unsigned int n = 6, count = 40;
    auto programs = some_programs<TypeParam>(n, count);
    std::vector<unsigned long> expected;
    for (const int threads : team_sizes) {
        std::vector<unsigned long> shots(count * 10);
        run_batch(programs,
                  [&](unsigned long index, auto& state) {
                      state.rng.seed(index);
                      state.sample(shots.data() + index * 10, 10);
                  },
                  {threads});
        if (expected.empty()) expected = shots;
        EXPECT_EQ(expected, shots) << threads << " threads";
    }
    EXPECT_GT(std::set<unsigned long>(expected.begin(), expected.end()).size(), 5u);
}

TYPED_TEST(batch, carries_out_what_a_result_or_the_hook_throws_and_ends) {
    struct Thrown {};
    const unsigned int count = 2000;
    std::vector<program<TypeParam>> programs;
    for (unsigned int i = 0; i < count; ++i) programs.push_back(turned_gates<TypeParam>(6));
    for (const int threads : team_sizes) {
        // The others wait for what is thrown, however slow its thread is.
        std::atomic<unsigned int> taken = 0;
        std::atomic<bool> thrown = false;
        const auto throw_it = [&] {
            thrown = true;
            thrown.notify_all();
            throw Thrown{};
        };
        const auto throws = [&](unsigned long index, auto&) {
            ++taken;
            if (index == 3) throw_it();
            if (index > 3) thrown.wait(false);
        };
        EXPECT_THROW(run_batch(programs, throws, {threads}), Thrown);
        EXPECT_LT(taken, count) << threads << " threads";
        taken = 0;
        thrown = false;
        const auto caller = std::this_thread::get_id();
        const auto hook = [&](unsigned long done, unsigned long total) -> bool {
            EXPECT_EQ(total, count);
            if (done >= 1) throw_it();
            return true;
        };
        const auto counts = [&](unsigned long, auto&) {
            ++taken;
            if (std::this_thread::get_id() != caller) thrown.wait(false);
        };
        EXPECT_THROW(run_batch(programs, counts, {threads, nullptr, hook}), Thrown);
        EXPECT_LT(taken, count) << threads << " threads";
    }
}

TYPED_TEST(batch, stopped_by_its_hook_hands_over_finished_states_alone) {
    const unsigned int n = 13, count = 60;
    auto programs = some_programs<TypeParam>(n, count);
    const auto expected = one_by_one(some_programs<TypeParam>(n, count), n);
    const auto caller = std::this_thread::get_id();
    for (const int threads : team_sizes) {
        std::atomic<unsigned long> taken = 0;
        std::atomic<bool> stopped = false;
        const auto result = [&](unsigned long index, auto& state) {
            ++taken;
            if (std::this_thread::get_id() != caller) stopped.wait(false);  // however slow the caller is
            EXPECT_TRUE(same_numbers(reinterpret_cast<const TypeParam*>(expected.data() + (index << n)),
                                     reinterpret_cast<const TypeParam*>(state.amplitudes.get()), 2ul << n, 2));
        };
        unsigned long heard = 0;
        const auto hook = [&](unsigned long done, unsigned long total) {
            EXPECT_EQ(std::this_thread::get_id(), caller);
            EXPECT_LE(heard, done);
            EXPECT_EQ(total, count);
            heard = done;
            if (done < 2) return true;
            stopped = true;
            stopped.notify_all();
            return false;
        };
        const unsigned long done = run_batch(programs, result, {threads, nullptr, hook});
        EXPECT_EQ(done, taken);
        EXPECT_GE(done, 2u);
        EXPECT_LT(done, count);
        EXPECT_EQ(run_batch(programs, result, {threads}), count) << "as if nothing had been";
    }
}

// A run that outlasts those of the calling thread can be watched and stopped too.
TYPED_TEST(batch, hears_its_hook_until_the_last_thread_has_ended) {
    const unsigned int n = 13;
    auto programs = some_programs<TypeParam>(n, 2);
    const auto caller = std::this_thread::get_id();
    std::atomic<bool> heard = false, in_vain = false;
    const auto result = [&](unsigned long, auto&) {
        if (std::this_thread::get_id() == caller) return;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!heard && std::chrono::steady_clock::now() < end) std::this_thread::yield();
        if (!heard) in_vain = true;
    };
    const auto hook = [&](unsigned long done, unsigned long) {
        if (done == 1) heard = true;
        return true;
    };
    EXPECT_EQ(run_batch(programs, result, {2, nullptr, hook}), 2u);
    EXPECT_FALSE(in_vain);
}

// A large state hears the hook between passes: no run is done then.
TYPED_TEST(batch, of_large_states_stops_within_a_run) {
    const unsigned int n = 18;
    std::vector<program<TypeParam>> programs;
    programs.push_back(turned_gates<TypeParam>(n));
    for (const int threads : {1, 3}) {
        const auto result = [](unsigned long, auto&) { FAIL() << "not finished"; };
        const auto hook = [](unsigned long, unsigned long) { return false; };
        EXPECT_EQ(run_batch(programs, result, {threads, nullptr, hook}), 0u);
    }
}

TYPED_TEST(batch, asks_for_all_its_memory_before_it_runs) {
    const unsigned int n = 10, count = 40;
    const unsigned long bytes = sizeof(thrust::complex<TypeParam>) << n;
    auto programs = some_programs<TypeParam>(n, count);
    for (const int threads : {1, 4}) {
        std::atomic<unsigned int> taken = 0;
        const auto counts = [&](unsigned long, auto&) { ++taken; };
        const unsigned long all = static_cast<unsigned long>(threads) * bytes;
        {
            ScriptedMemory memory(all - 1);
            CapturedOutput output;
            EXPECT_THROW(run_batch(programs, counts, {threads}), std::bad_alloc);
            EXPECT_NE(output.out(), "");
            EXPECT_EQ(taken, 0u);
        }
        ScriptedMemory memory(all);
        EXPECT_EQ(run_batch(programs, counts, {threads}), count);
    }
}

TYPED_TEST(batch, runs_on_several_host_threads_and_inside_their_regions) {
    const unsigned int n = 12, count = 16, hosts = 4;
    const auto expected = one_by_one(some_programs<TypeParam>(n, count), n);
    std::vector<Amplitudes<TypeParam>> got(2 * hosts, Amplitudes<TypeParam>(count << n));
    std::vector<std::thread> threads;
    for (unsigned int host = 0; host < hosts; ++host) {
        threads.emplace_back([&, host] {
            auto programs = some_programs<TypeParam>(n, count);
            run_batch(programs, pbamplix::cpu::collect_in(got[host].data()), {static_cast<int>(1 + host)});
        });
    }
    for (auto& thread : threads) thread.join();
#pragma omp parallel for num_threads(4) schedule(static, 1)
    for (unsigned int host = hosts; host < 2 * hosts; ++host) {
        auto programs = some_programs<TypeParam>(n, count);
        run_batch(programs, pbamplix::cpu::collect_in(got[host].data()), {static_cast<int>(host)});
    }
    for (unsigned int host = 0; host < 2 * hosts; ++host) EXPECT_TRUE(equal(expected, got[host])) << host;
}

TYPED_TEST(batch, refuses_what_does_not_fit) {
    using T = TypeParam;
    const auto refusal_of = [](const std::function<void()>& call) -> std::string {
        try {
            call();
        } catch (const std::invalid_argument& refusal) {
            return refusal.what();
        }
        return "accepted";
    };
    const auto nothing = [](unsigned long, auto&) {};
    std::vector<program<T>> programs;
    EXPECT_EQ(run_batch(programs, nothing), 0u) << "no programs";
    programs.emplace_back(3);
    programs.emplace_back(3);
    EXPECT_EQ(run_batch(programs, nothing), 2u) << "no gates";
    EXPECT_EQ(refusal_of([&] { run_batch(programs, {}); }), "A batch needs somebody who takes its results");
    StateVector<T> small(2), released(3);
    released.release_memory();
    EXPECT_EQ(refusal_of([&] {
                  run_batch(programs, nothing, {1, &small});
              }),
              "The programs have 3 qubits, the initial state 2");
    EXPECT_EQ(refusal_of([&] { run_batch(programs, nothing, {1, &released}); }), "The initial state has no amplitudes");
    programs.emplace_back(4);
    EXPECT_EQ(refusal_of([&] { run_batch(programs, nothing); }),
              "The programs of a batch have one number of qubits, not 3 and 4");
    programs.pop_back();
    const program<T> taken = std::move(programs[1]);
    EXPECT_EQ(refusal_of([&] { run_batch(programs, nothing); }), "This program has been moved from");

    program<T> list(2);
    list.add_gate("RX", {1}, {0});
    list.add_gate("H", {}, {0});
    EXPECT_EQ(run_batch(list, {}, {{}, {}}, nothing), 2u) << "no angles";
    EXPECT_EQ(run_batch(list, {0}, {}, nothing), 0u) << "no runs";
    EXPECT_EQ(refusal_of([&] { run_batch(list, {1}, {{1}}, nothing); }), "Gate 1 takes no angle");
    EXPECT_EQ(refusal_of([&] {
                  run_batch(list, {0}, {{1}, {1, 2}}, nothing);
              }),
              "The gates take 1 angles, but run 1 has 2");
    EXPECT_THROW(run_batch(list, {2}, {{1}}, nothing), std::out_of_range);
    EXPECT_THROW(run_batch(list, {0}, {{1}, {2}}, [](unsigned long, auto& state) { state.release_memory(); }),
                 std::logic_error);
}
