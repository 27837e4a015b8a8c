#include <velacamplix/trajectories.hpp>

#include "support/precision.hpp"
#include "support/state_vector.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <stdexcept>

using namespace support;
using pbamplix::cpu::combined;
using pbamplix::cpu::noise_channel;
using pbamplix::cpu::noise_site;
using pbamplix::cpu::trajectory_result;
using pbamplix::cpu::trajectory_settings;

PRECISION_SUITE(trajectories);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;
template <class T>
using made_of = pbamplix::cpu::trajectories<T>;

noise_channel flips(double p) { return {{{"I", {}}, {"X", {}}, {"Y", {}}}, {1 - p, p / 2, p / 2}, 0, true}; }

noise_channel damping(double gamma) {
    return {{{"", {1, 0, 0, std::sqrt(1 - gamma)}}, {"", {0, std::sqrt(gamma), 0, 0}}}, {1 - gamma, 0}, 0, false};
}

noise_channel exchange(double p) {
    return {{{"II", {}}, {"", {1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1}}}, {1 - p, p}, 0, true};
}

// Layers of rotations and CNOTs with channels behind all gates.
template <class T>
made_of<T> noisy_layers(unsigned n, unsigned layers, double p) {
    program<T> list(n);
    std::vector<noise_site> sites;
    for (unsigned layer = 0; layer < layers; ++layer) {
        for (unsigned q = 0; q < n; ++q) {
            list.add_gate("RX", {0.3 + 0.7 * q + layer}, {q});
            sites.push_back({list.size(), false, 0, {q}});
            list.add_gate("RZ", {0.2 + 0.4 * q - layer}, {q});
            sites.push_back({list.size(), true, 1, {q}});
            list.add_matrix({T(1), T(0), T(0), static_cast<T>(std::sqrt(1 - p))}, {q});
        }
        for (unsigned q = layer % 2; q + 1 < n; q += 2) {
            list.add_gate("CNOT", {}, {q, q + 1});
            sites.push_back({list.size(), false, 2, {q, q + 1}});
        }
    }
    return {list, {flips(p), damping(p), exchange(p)}, sites};
}

WObservable<double> z_of(unsigned qubit) { return {{1.0}, {0}, {1ul << qubit}, {0}, 0.5, qubit + 1}; }

struct Made {
    std::vector<unsigned long> outcomes;
    trajectory_result result;
};

template <class T>
Made run(made_of<T>& noisy, unsigned long shots, int threads = 1, unsigned long first = 0, bool shares = true) {
    Made made{std::vector<unsigned long>(shots, ~0ul), {}};
    trajectory_settings settings;
    settings.seed = 11;
    settings.first_shot = first;
    settings.shots = shots;
    settings.nthreads = threads;
    settings.outcomes = made.outcomes.data();
    for (unsigned q = 0; q < noisy.nqubits(); ++q) settings.measured.push_back(q);
    settings.observables = {z_of(0), z_of(noisy.nqubits() - 1)};
    settings.shares_prefixes = shares;
    made.result = noisy.run(settings);
    return made;
}

void expect_equal(const Made& one, const Made& other) {
    EXPECT_EQ(one.outcomes, other.outcomes);
    EXPECT_EQ(one.result.distinct, other.result.distinct);
    ASSERT_EQ(one.result.means.size(), other.result.means.size());
    for (std::size_t k = 0; k < one.result.means.size(); ++k) {
        EXPECT_EQ(one.result.means[k], other.result.means[k]);
        EXPECT_EQ(one.result.standard_errors[k], other.result.standard_errors[k]);
    }
}

}  // namespace

// One below the size from which gates are planned, one of many passes, one shared by all threads.
TYPED_TEST(trajectories, threads_and_shared_prefixes_change_no_bit) {
    const std::vector<std::tuple<unsigned, unsigned, unsigned long, double>> cases{
        {3, 4, 400, 0.03}, {13, 2, 30, 0.01}, {18, 1, 3, 0.03}};
    for (const auto& [n, layers, shots, p] : cases) {
        if (emulated && n > 13) continue;
        auto noisy = noisy_layers<TypeParam>(n, layers, p);
        const Made alone = run(noisy, shots, 1, 0, false);
        EXPECT_GT(alone.result.distinct, 1u);
        EXPECT_LT(alone.result.distinct, shots + 1);
        for (const int threads : {1, 2, 8}) {
            SCOPED_TRACE(threads);
            expect_equal(run(noisy, shots, threads), alone);
        }
    }
}

TYPED_TEST(trajectories, shots_are_the_same_however_they_are_split) {
    auto noisy = noisy_layers<TypeParam>(4, 4, 0.2);
    const auto whole = run(noisy, 300).outcomes;
    for (const unsigned long cut : {1ul, 17ul, 299ul}) {
        const auto first = run(noisy, cut, 2).outcomes, second = run(noisy, 300 - cut, 1, cut).outcomes;
        EXPECT_TRUE(std::equal(first.begin(), first.end(), whole.begin()));
        EXPECT_TRUE(std::equal(second.begin(), second.end(), whole.begin() + static_cast<long>(cut)));
    }
}

TYPED_TEST(trajectories, records_of_several_calls_tell_what_one_call_does) {
    auto noisy = noisy_layers<TypeParam>(4, 4, 0.2);
    const Made whole = run(noisy, 300);
    for (const unsigned long cut : {1ul, 17ul, 299ul}) {
        auto records = run(noisy, 300 - cut, 1, cut).result.records;
        const auto first = run(noisy, cut, 2).result.records;
        records.insert(records.end(), first.begin(), first.end());
        expect_equal({whole.outcomes, combined(records)}, whole);
        records.front().values.pop_back();
        EXPECT_THROW(combined(records), std::invalid_argument);
    }
    EXPECT_EQ(combined({}).distinct, 0u);
}

// Past 2^32 the shots' numbers take both words of the counter.
TYPED_TEST(trajectories, shots_with_large_numbers_differ_from_others) {
    auto noisy = noisy_layers<TypeParam>(6, 2, 0.2);
    EXPECT_NE(run(noisy, 40, 1, 1ul << 32).outcomes, run(noisy, 40).outcomes);
    const auto far = run(noisy, 40, 1, 1ul << 40).outcomes;
    EXPECT_EQ(run(noisy, 20, 2, (1ul << 40) + 20).outcomes, std::vector(far.begin() + 20, far.end()));
}

// Damping by gamma after gamma leaves 1 - that of state 1; the shots' mean is a binomial one.
TYPED_TEST(trajectories, a_decay_is_exponential) {
    constexpr double gamma = 0.1;
    constexpr unsigned long shots = 4000;
    program<TypeParam> list(2);
    std::vector<noise_site> sites;
    list.add_gate("X", {}, {1});
    for (int i = 0; i < 8; ++i) {
        sites.push_back({list.size(), true, 0, {1}});
        list.add_matrix({TypeParam(1), TypeParam(0), TypeParam(0), static_cast<TypeParam>(std::sqrt(1 - gamma))}, {1});
    }
    made_of<TypeParam> noisy(list, {damping(gamma)}, sites);
    EXPECT_NEAR(noisy.events_per_shot(), 0.8, 1e-12);
    EXPECT_EQ(noisy.size(), 9u);
    const auto made = run(noisy, shots);
    const double left = std::pow(1 - gamma, 8), error = std::sqrt(left * (1 - left) / shots);
    const double ones = static_cast<double>(std::count(made.outcomes.begin(), made.outcomes.end(), 1ul));
    EXPECT_NEAR(ones / shots, left, 4 * error);
    EXPECT_EQ(made.result.distinct, 9u);  // a jump at one of the sites, or none
    EXPECT_NEAR(made.result.means[1].real(), 0.5 + 1 - 2 * ones / shots, 1e-6);
    EXPECT_NEAR(made.result.standard_errors[1], 2 * error, 0.1 * error);
    EXPECT_EQ(made.result.means[0].real(), 1.5);
    EXPECT_EQ(made.result.standard_errors[0], 0);
}

TYPED_TEST(trajectories, what_is_certain_happens_in_every_shot) {
    program<TypeParam> list(3);
    list.add_gate("H", {}, {0});
    list.add_gate("X", {}, {1});
    // The usual operator of a certain flip is the flip, which is a gate; a full damping decides by the state.
    const noise_channel flip{{{"X", {}}}, {1}, 0, true};
    std::vector<noise_site> sites{{2, true, 0, {2}}, {3, true, 1, {1}}, {4, true, 1, {0}}};
    list.add_gate("X", {}, {2});
    list.add_matrix({TypeParam(1), TypeParam(0), TypeParam(0), TypeParam(0)}, {1});
    list.add_matrix({TypeParam(1), TypeParam(0), TypeParam(0), TypeParam(0)}, {0});
    made_of<TypeParam> noisy(list, {flip, damping(1)}, sites);
    const auto made = run(noisy, 64);
    EXPECT_EQ(made.outcomes, std::vector<unsigned long>(64, 1));
    EXPECT_EQ(made.result.distinct, 2u);
}

TYPED_TEST(trajectories, without_sites_all_shots_are_those_of_the_state) {
    program<TypeParam> list(5);
    for (unsigned q = 0; q < 5; ++q) list.add_gate("RY", {0.4 + q}, {q});
    made_of<TypeParam> quiet(list, {}, {});
    const auto made = run(quiet, 100);
    EXPECT_EQ(made.result.distinct, 1u);

    StateVector<TypeParam> state(5);
    state.reset();
    list.run(state);
    std::vector<unsigned long> drawn(100);
    std::vector<unsigned long> shots(100);
    std::iota(shots.begin(), shots.end(), 0ul);
    pbamplix::cpu::sample_keyed(state, drawn.data(), shots.data(), 100, 11, 0, {0, 1, 2, 3, 4});
    EXPECT_EQ(made.outcomes, drawn);
    pbamplix::cpu::sample_keyed(state, drawn.data(), shots.data() + 40, 60, 11, 0, {0, 1, 2, 3, 4});
    EXPECT_TRUE(std::equal(drawn.begin(), drawn.begin() + 60, made.outcomes.begin() + 40));
}

TYPED_TEST(trajectories, one_shot_applied_to_a_state_is_that_shot) {
    auto noisy = noisy_layers<TypeParam>(4, 3, 0.3);
    const auto all = run(noisy, 50).outcomes;
    for (unsigned long shot = 0; shot < 50; ++shot) {
        StateVector<TypeParam> state(4);
        state.reset();
        ASSERT_TRUE(noisy.apply(state, 11, shot));
        double norm = 0;
        for (unsigned long i = 0; i < state.size; ++i) norm += static_cast<double>(thrust::norm(state.amplitudes[i]));
        EXPECT_NEAR(norm, 1, 1e-5);
        unsigned long outcome;
        pbamplix::cpu::sample_keyed(state, &outcome, &shot, 1, 11, 0, {0, 1, 2, 3});
        EXPECT_EQ(outcome, all[shot]);
    }
}

// A host that takes a state to every shot's first event, and a copy on from there, finds the bits of each shot.
TYPED_TEST(trajectories, shots_part_from_a_walk_without_events) {
    for (const double p : {0.02, 0.3}) {
        auto noisy = noisy_layers<TypeParam>(emulated ? 5 : 13, 2, p);
        std::vector<unsigned long> shots(20), events(20);
        std::iota(shots.begin(), shots.end(), 5ul);
        noisy.first_events(11, shots.data(), shots.size(), 8, events.data());
        EXPECT_LE(*std::max_element(events.begin(), events.end()), noisy.sites());
        for (std::size_t i = 0; i < shots.size(); ++i) {
            StateVector<TypeParam> whole(noisy.nqubits()), parted(noisy.nqubits());
            whole.reset();
            parted.reset();
            ASSERT_TRUE(noisy.apply(whole, 11, shots[i], 8));
            ASSERT_TRUE(noisy.walk(parted, 0, events[i] / 2));
            ASSERT_TRUE(noisy.walk(parted, events[i] / 2, events[i]));
            if (events[i] != noisy.sites()) {
                ASSERT_TRUE(noisy.apply(parted, 11, shots[i], 8, {}, events[i]));
                EXPECT_THROW(noisy.apply(parted, 11, shots[i], 8, {}, events[i] + 1), std::invalid_argument);
            }
            EXPECT_EQ(std::memcmp(whole.amplitudes.get(), parted.amplitudes.get(),
                                  whole.size * sizeof(*whole.amplitudes.get())),
                      0);
        }
        StateVector<TypeParam> state(noisy.nqubits());
        EXPECT_THROW(noisy.walk(state, 1, 0), std::invalid_argument);
        EXPECT_THROW(noisy.walk(state, 0, noisy.sites() + 1), std::invalid_argument);
    }
    // A state of several buffers: a smaller one is done when the hook is first asked.
    auto large = noisy_layers<TypeParam>(13, 2, 0.02);
    StateVector<TypeParam> state(13);
    state.reset();
    EXPECT_FALSE(large.walk(state, 0, large.sites(), [](unsigned long, unsigned long) { return false; }));
}

TYPED_TEST(trajectories, begin_with_the_state_that_is_given) {
    program<TypeParam> list(3);
    list.add_gate("CNOT", {}, {0, 1});
    made_of<TypeParam> noisy(list, {flips(0.5)}, {{1, false, 0, {2}}});
    StateVector<TypeParam> initial(3);
    initial.reset_to_str("001");
    std::vector<unsigned long> outcomes(20);
    trajectory_settings settings;
    settings.shots = 20;
    settings.outcomes = outcomes.data();
    settings.measured = {1, 0};
    noisy.run(settings, &initial);
    EXPECT_EQ(outcomes, std::vector<unsigned long>(20, 3));

    StateVector<TypeParam> other(2);
    EXPECT_THROW(noisy.run(settings, &other), std::invalid_argument);
    EXPECT_THROW(noisy.apply(other, 1, 0), std::invalid_argument);
}

TYPED_TEST(trajectories, a_hook_that_throws_ends_the_call) {
    struct Enough {};
    for (const int threads : {1, 4}) {
        auto noisy = noisy_layers<TypeParam>(13, 2, 0.05);
        trajectory_settings settings;
        settings.shots = 2000;
        settings.nthreads = threads;
        unsigned long calls = 0;
        settings.hook = [&](unsigned long, unsigned long total) {
            EXPECT_EQ(total, 2000u);
            if (++calls == 5) throw Enough();
        };
        EXPECT_THROW(noisy.run(settings), Enough);
        EXPECT_EQ(calls, 5u);
        settings.hook = {};
        settings.shots = 3;
        EXPECT_EQ(noisy.run(settings).means.size(), 0u);
    }
}

TYPED_TEST(trajectories, a_state_without_a_norm_is_refused) {
    program<TypeParam> list(1);
    list.add_matrix({TypeParam(0), TypeParam(0), TypeParam(0), TypeParam(1)}, {0});
    made_of<TypeParam> noisy(list, {damping(1)}, {{1, false, 0, {0}}});
    EXPECT_THROW(run(noisy, 3), std::domain_error);
}

TYPED_TEST(trajectories, wrong_arguments_are_refused) {
    program<TypeParam> list(2);
    list.add_gate("X", {}, {0});
    const auto refused = [&](const noise_channel& channel, const std::vector<noise_site>& sites) {
        EXPECT_THROW(made_of<TypeParam>(list, {channel}, sites), std::invalid_argument);
    };
    refused(flips(0.1), {{2, false, 0, {0}}});
    refused(flips(0.1), {{1, true, 0, {0}}});
    refused(flips(0.1), {{1, false, 0, {0}}, {0, false, 0, {0}}});
    refused(flips(0.1), {{0, false, 1, {0}}});
    refused(flips(0.1), {{0, false, 0, {2}}});
    refused(flips(0.1), {{0, false, 0, {0, 1}}});
    refused(exchange(0.1), {{0, false, 0, {1, 1}}});
    refused({{}, {}, 0, true}, {{0, false, 0, {0}}});
    refused({{{"X", {}}}, {1}, 1, true}, {{0, false, 0, {0}}});
    refused({{{"X", {}}}, {}, 0, true}, {{0, false, 0, {0}}});
    refused({{{"X", {}}}, {1.5}, 0, true}, {{0, false, 0, {0}}});
    refused({{{"X", {}}}, {std::numeric_limits<double>::quiet_NaN()}, 0, true}, {{0, false, 0, {0}}});
    refused({{{"Q", {}}}, {1}, 0, true}, {{0, false, 0, {0}}});
    refused({{{"X", {}}}, {1}, 0, false}, {{0, false, 0, {0}}});

    made_of<TypeParam> noisy(list, {flips(0.1)}, {{1, false, 0, {0}}});
    trajectory_settings settings;
    unsigned long outcome;
    settings.outcomes = &outcome;
    EXPECT_THROW(noisy.run(settings), std::invalid_argument);
    settings.measured = {2};
    EXPECT_THROW(noisy.run(settings), std::invalid_argument);
    settings.measured = {1};
    settings.observables = {z_of(2)};
    EXPECT_THROW(noisy.run(settings), std::invalid_argument);
}

TEST(readout_errors, flip_the_bits_of_rows_by_their_value) {
    using pbamplix::cpu::apply_readout_errors;
    using pbamplix::cpu::readout_error;
    // 70 bits in two words: bit 0 is always read as 1, bit 69 as 0, bit 5 by chance if it is 0.
    std::vector<readout_error> errors(70);
    errors[0] = {1, 0};
    errors[69] = {0, 1};
    errors[5] = {0.25, 0};
    constexpr unsigned long shots = 8000;
    std::vector<unsigned long> rows;
    for (unsigned long s = 0; s < shots; ++s) {
        rows.push_back(0);
        rows.push_back(s % 2);
    }
    auto whole = rows, parts = rows;
    apply_readout_errors(whole.data(), shots, 2, errors, 3, 0, 1);
    apply_readout_errors(parts.data(), 100, 2, errors, 3, 0, 2);
    apply_readout_errors(parts.data() + 200, shots - 100, 2, errors, 3, 100, 4);
    EXPECT_EQ(whole, parts);
    unsigned long ones = 0;
    for (unsigned long s = 0; s < shots; ++s) {
        EXPECT_EQ(whole[2 * s] & ~1ul, 1ul << 5);
        EXPECT_EQ(whole[2 * s + 1] & ~(1ul << 0), 0ul);
        EXPECT_EQ(whole[2 * s + 1] & 1, 0ul);
        ones += whole[2 * s] & 1;
    }
    EXPECT_NEAR(static_cast<double>(ones), 0.25 * shots, 4 * std::sqrt(0.25 * 0.75 * shots));
}
