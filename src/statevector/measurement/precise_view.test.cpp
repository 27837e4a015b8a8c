#include "reference/measurement.hpp"
#include "reference/probabilities.hpp"
#include "support/chosen_outputs.hpp"
#include "support/measured_state.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/widened.hpp"

#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <type_traits>

// Readout of a state through a precise view is, bit for bit, readout of the same numbers in double precision.

using namespace support;
using reference::Qubits;
using reference::State;

PRECISION_SUITE(precise_view);

namespace {

using outcomes = std::vector<unsigned long>;

// Calls `reader` with the precise view of the state, or of the density matrix's diagonal.
template <class T, class Reader>
auto read_precisely(MeasuredState<T>& measured, Reader reader) {
    return measured.read([&](auto seq) { return reader(pbamplix::precise_view<decltype(seq)>{seq}); });
}

template <class T>
std::vector<double> wide_view(const State<T>& state, bool density_matrix) {
    return density_matrix ? reference::density_view(widened(state)) : reference::state_view(widened(state));
}

// Three ways to the same probabilities: one by one, all at once, as a map.
template <class T>
testing::AssertionResult agrees(const State<T>& state, bool density_matrix, const Qubits& qubits,
                                const std::vector<int>& threads = thread_counts) {
    MeasuredState<T> measured(state, density_matrix);
    const std::vector<double> view = wide_view(state, density_matrix);
    const double threshold = 0.25;
    const auto expected = reference::distribution(view, threshold, qubits);
    const auto expected_map = reference::mapped_distribution(view, threshold * threshold, qubits);
    const auto unfiltered = reference::distribution(view, 0.0, qubits);
    for (int count : threads) {
        const std::string what = "\n" + measured.describe(qubits, count);
        std::vector<double> got(expected.size());
        read_precisely(measured, [&](auto seq) {
            pbamplix::cpu::write_distribution(seq, got.data(), threshold * threshold, qubits, count);
        });
        if (auto same = same_bits(expected, got); !same) return same << what;

        const std::unique_ptr<std::map<unsigned long, double>> map(read_precisely(measured, [&](auto seq) {
            return pbamplix::cpu::map_marginal_distribution(seq, threshold * threshold, qubits, count);
        }));
        if (*map != expected_map) return testing::AssertionFailure() << "another map" << what;

        for (unsigned long slot = 0; slot < std::min(8ul, unfiltered.size()); ++slot) {
            unsigned long fixed = 0;
            for (std::size_t j = 0; j < qubits.size(); ++j) {
                fixed |= (slot >> (qubits.size() - 1 - j) & 1) << qubits[j];
            }
            const double one = read_precisely(
                measured, [&](auto seq) { return pbamplix::cpu::cumulative_probability(seq, fixed, qubits, count); });
            const double summed = reference::marginal_sum(view, fixed, qubits);
            if (auto same = same_bits(summed, one); !same) return same << what;
        }
    }
    return testing::AssertionSuccess();
}

// Each shot's own scan, with its number as a fraction of the last running sum.
std::vector<unsigned long> scanned(const std::vector<double>& view, std::mt19937_64& engine, unsigned long shots,
                                   const Qubits& qubits) {
    double total = 0;
    for (const double p : view) total = total + p;
    if (!std::isfinite(total)) total = 1;
    std::vector<unsigned long> result;
    for (unsigned long s = 0; s < shots; ++s) {
        const double number = reference::drawn_number<double>(engine()) * total;
        const unsigned long index = reference::chosen_index(view, number);
        const auto n = reference::qubit_count(view.size());
        result.push_back(reference::outcome(index, n, qubits));
    }
    return result;
}

template <class T>
testing::AssertionResult samples_agree(const State<T>& state, bool density_matrix, unsigned long shots,
                                       const Qubits& qubits) {
    MeasuredState<T> measured(state, density_matrix);
    const std::vector<double> view = wide_view(state, density_matrix);
    for (int count : thread_counts) {
        std::mt19937_64 expected_engine(7), engine(7);
        const auto expected = scanned(view, expected_engine, shots, qubits);
        std::vector<unsigned long> got(shots);
        read_precisely(measured, [&](auto seq) {
            pbamplix::cpu::pick_shots_state(seq, got.data(), engine, shots, count, qubits);
        });
        if (got != expected) return testing::AssertionFailure() << "other shots, " << measured.describe(qubits, count);
        if (engine != expected_engine) return testing::AssertionFailure() << "another number of outputs was taken";
    }
    return testing::AssertionSuccess();
}

// What shots of any norm are drawn from: a double state as it is, a single one through a precise view.
template <class T, class Reader>
auto read_for_shots(MeasuredState<T>& measured, Reader reader) {
    if constexpr (std::is_same_v<T, double>) {
        return measured.read(reader);
    } else {
        return read_precisely(measured, reader);
    }
}

template <class T>
testing::AssertionResult samples_of_any_norm_agree(const State<T>& state, bool density_matrix, bool as_fractions,
                                                   unsigned long shots, const Qubits& qubits) {
    MeasuredState<T> measured(state, density_matrix);
    const std::vector<double> view = wide_view(state, density_matrix);
    std::mt19937_64 after(11);
    const outcomes expected =
        as_fractions ? scanned(view, after, shots, qubits) : reference::sampled(view, after, shots, qubits);
    for (int count : thread_counts) {
        std::mt19937_64 engine(11);
        outcomes got(shots);
        read_for_shots(measured, [&](auto seq) {
            pbamplix::cpu::pick_shots_of_any_norm(seq, got.data(), engine, shots, count, qubits);
        });
        if (got != expected) return testing::AssertionFailure() << "other shots, " << measured.describe(qubits, count);
        if (engine != after) return testing::AssertionFailure() << "another number of outputs was taken";
    }
    return testing::AssertionSuccess();
}

template <class T>
State<T> scaled(State<T> state, double factor) {
    for (auto& a : state) {
        a = {static_cast<T>(static_cast<double>(a.re) * factor), static_cast<T>(static_cast<double>(a.im) * factor)};
    }
    return state;
}

// `large` at index 0 and 2^k amplitudes of 2^-13 behind it: each is less than half a unit in the last place of the
// first one's probability in single precision.
State<float> mostly_zero(unsigned int n) {
    State<float> state(1ul << n, {0x1p-13f, 0});
    const double rest = std::ldexp(static_cast<double>(state.size() - 1), -26);
    state[0] = {static_cast<float>(std::sqrt(1 - rest)), 0};
    return state;
}

}  // namespace

TYPED_TEST(precise_view, gives_the_probabilities_of_double_precision_bit_for_bit) {
    std::mt19937 engine(6);
    for (const Values values : {Values::ordinary, Values::unusual}) {
        for (unsigned int n = 0; n <= 11; ++n) {
            const auto state = random_state<TypeParam>(n, values);
            for (unsigned int k = 0; k <= n; ++k) ASSERT_TRUE(agrees(state, false, random_qubits(k, n, engine)));
        }
    }
    for (unsigned int m = 0; m <= 5; ++m) {
        const auto matrix = random_state<TypeParam>(2 * m, Values::ordinary);
        for (unsigned int k = 0; k <= m; ++k) ASSERT_TRUE(agrees(matrix, true, random_qubits(k, m, engine)));
    }
}

TYPED_TEST(precise_view, of_large_states_keeps_its_bits_on_any_number_of_threads) {
    const auto state = random_state<TypeParam>(18, Values::ordinary);
    for (const Qubits& qubits : {Qubits{}, Qubits{17}, Qubits{0}, Qubits{3, 16, 1}, Qubits{17, 2, 0, 9, 5}}) {
        ASSERT_TRUE(agrees(state, false, qubits));
    }
}

TYPED_TEST(precise_view, gives_each_shot_what_its_own_scan_in_double_finds) {
    std::mt19937 engine(1);
    for (const Values values : {Values::ordinary, Values::unusual}) {
        for (unsigned int n = 0; n <= 12; ++n) {
            const auto state = random_state<TypeParam>(n, values);
            for (unsigned long shots : {0ul, 1ul, 300ul, 3000ul}) {
                ASSERT_TRUE(samples_agree(state, false, shots, {}));
                ASSERT_TRUE(samples_agree(state, false, shots, random_qubits(n / 2 + n % 2, n, engine)));
            }
        }
    }
    for (unsigned int m = 1; m <= 4; ++m) {
        ASSERT_TRUE(samples_agree(random_state<TypeParam>(2 * m, Values::ordinary), true, 2000, {}));
    }
}

TYPED_TEST(precise_view, never_draws_an_impossible_outcome_however_far_the_norm_is_from_one) {
    for (const double magnitude : {0.3, 0.9999, 1.0001, 2.0}) {
        State<TypeParam> state(8, {0, 0});
        state[2] = state[5] = {static_cast<TypeParam>(magnitude), 0};
        MeasuredState<TypeParam> measured(state);
        std::mt19937_64 engine = engine_with_outputs({1, ~0ul, 1ul << 62, 3ul << 62, ~0ul - 1, 1ul << 63});
        outcomes shots(6);
        read_precisely(measured, [&](auto seq) {
            pbamplix::cpu::pick_shots_state(seq, shots.data(), engine, shots.size(), 1, Qubits{2, 1, 0});
        });
        EXPECT_EQ(shots, (outcomes{2, 5, 2, 5, 5, 2})) << magnitude;
    }
}

TYPED_TEST(precise_view, projects_as_the_sum_in_double_says) {
    std::mt19937 engine(5);
    for (unsigned int n = 0; n <= 9; ++n) {
        const auto state = random_state<TypeParam>(n, Values::ordinary);
        const auto view = wide_view(state, false);
        for (unsigned int k = 0; k <= n; ++k) {
            const Qubits qubits = random_qubits(k, n, engine);
            for (unsigned long value = 0; value < 1ul << std::min(k, 3u); ++value) {
                unsigned long pattern = 0, listed = 0;
                for (unsigned int j = 0; j < k; ++j) {
                    listed |= 1ul << qubits[j];
                    pattern |= (value >> (k - 1 - j) & 1) << qubits[j];
                }
                const auto root = static_cast<TypeParam>(std::sqrt(reference::marginal_sum(view, pattern, qubits)));
                State<TypeParam> expected(state.size(), {0, 0});
                for (unsigned long i = 0; i < state.size(); ++i) {
                    if ((i & listed) == pattern) expected[i] = {state[i].re / root, state[i].im / root};
                }
                for (int threads : thread_counts) {
                    State<TypeParam> got = state;
                    auto* amplitudes = reinterpret_cast<thrust::complex<TypeParam>*>(got.data());
                    pbamplix::cpu::project<double>(amplitudes, got.size(), qubits, value, threads);
                    ASSERT_TRUE(same_bits(expected, got.data())) << n << " qubits, " << describe(qubits);
                    got = state;
                    pbamplix::cpu::project_then_reset<double>(amplitudes, got.size(), qubits, value, threads);
                    ASSERT_TRUE(same_bits(reference::moved_to_zero(expected, qubits, value), got.data()));
                }
            }
        }
    }
}

TYPED_TEST(precise_view, refuses_an_impossible_projection_and_leaves_the_state) {
    const TypeParam least = std::numeric_limits<TypeParam>::min();
    State<TypeParam> state = {{1, 0}, {0, 0}, {least / 4, 0}, {0, -least}};
    auto* amplitudes = reinterpret_cast<thrust::complex<TypeParam>*>(state.data());
    const State<TypeParam> before = state;
    for (const unsigned long value : {1ul, 2ul}) {
        EXPECT_THROW(pbamplix::cpu::project<double>(amplitudes, 4, {1, 0}, value, 1), std::domain_error);
        EXPECT_THROW(pbamplix::cpu::project_then_reset<double>(amplitudes, 4, {1, 0}, value, 1), std::domain_error);
        EXPECT_TRUE(same_bits(before, amplitudes));
    }
    if (std::is_same_v<TypeParam, float>) {
        pbamplix::cpu::project<double>(amplitudes, 4, {1, 0}, 3, 1);
        EXPECT_EQ(amplitudes[3], thrust::complex<TypeParam>(0, -1));
    }
}

// What it is for: sums that no longer grow in single precision.
TEST(precise_view_of_single_precision, sums_what_a_running_sum_in_single_precision_loses) {
    const State<float> state = mostly_zero(20);
    MeasuredState<float> measured(state);
    const std::vector<double> view = wide_view(state, false);
    const double lost = std::ldexp(static_cast<double>(state.size() - 1), -26);  // 1.6 %

    double last = 0;
    measured.read([&](auto seq) {
        std::mt19937_64 engine(3);
        outcomes shots(100'000);
        pbamplix::cpu::pick_shots_state(seq, shots.data(), engine, shots.size(), 2, {});
        for (const unsigned long shot : shots) last += shot == state.size() - 1;
    });
    EXPECT_GT(last / 100'000, lost / 2) << "in single precision all that is lost falls to the last index";

    double total = 0, other = 0, one = 0;
    read_precisely(measured, [&](auto seq) {
        pbamplix::cpu::write_distribution(seq, &total, 0.0, {}, 2);
        std::mt19937_64 engine(3);
        outcomes shots(100'000);
        pbamplix::cpu::pick_shots_state(seq, shots.data(), engine, shots.size(), 2, {});
        for (const unsigned long shot : shots) {
            other += shot != 0;
            one += shot == state.size() - 1;
        }
        engine.seed(3);
    });
    EXPECT_NEAR(total, 1, 1e-7);
    EXPECT_NEAR(other / 100'000, lost, 5 * std::sqrt(lost / 100'000));
    EXPECT_LE(one, 3);
}

TYPED_TEST(precise_view, shots_of_a_normalised_state_are_those_of_its_precision) {
    std::mt19937 lists(8);
    for (unsigned int n = 0; n <= 12; ++n) {
        const auto state = normalised(random_state<TypeParam>(n, Values::ordinary));
        for (const double total : {1.0, 1 + 8e-10, 1 - 8e-10}) {
            const auto near = scaled(state, std::sqrt(total));
            const bool as_fractions = std::is_same_v<TypeParam, float>;
            for (unsigned long shots : {0ul, 1ul, 3000ul}) {
                ASSERT_TRUE(samples_of_any_norm_agree(near, false, as_fractions, shots, {})) << total;
            }
            ASSERT_TRUE(samples_of_any_norm_agree(near, false, as_fractions, 100, random_qubits(n / 2, n, lists)));
        }
    }
}

TYPED_TEST(precise_view, shots_of_a_state_of_another_norm_are_fractions_of_its_total) {
    std::mt19937 lists(9);
    for (const double factor : {std::sqrt(1 + 2e-9), std::sqrt(1 - 2e-9), 0.5, 3.0, 1e-17, 1e17}) {
        for (unsigned int n : {0u, 1u, 4u, 9u, 12u}) {
            const auto state = scaled(normalised(random_state<TypeParam>(n, Values::ordinary)), factor);
            for (unsigned long shots : {1ul, 3000ul}) {
                ASSERT_TRUE(samples_of_any_norm_agree(state, false, true, shots, {})) << factor;
            }
            ASSERT_TRUE(samples_of_any_norm_agree(state, false, true, 100, random_qubits(n / 2, n, lists))) << factor;
        }
        const auto matrix = scaled(density_of(normalised(random_state<TypeParam>(4, Values::ordinary))), factor);
        ASSERT_TRUE(samples_of_any_norm_agree(matrix, true, true, 500, {})) << factor;
    }
    const auto large = scaled(normalised(random_state<TypeParam>(17, Values::ordinary)), 0.5);
    ASSERT_TRUE(samples_of_any_norm_agree(large, false, true, 200, {16, 0, 5}));
}

TYPED_TEST(precise_view, shots_are_refused_and_no_output_is_taken_where_there_is_no_total) {
    const TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    const TypeParam infinity = std::numeric_limits<TypeParam>::infinity();
    for (const TypeParam odd : {TypeParam(0), nan, infinity}) {
        State<TypeParam> state(8, {odd == 0 ? odd : TypeParam(0.5), 0});
        state[5] = {0, odd};
        MeasuredState<TypeParam> measured(state);
        for (unsigned long shots : {1ul, 10ul}) {
            std::mt19937_64 engine(3);
            outcomes got(shots);
            read_for_shots(measured, [&](auto seq) {
                EXPECT_THROW(pbamplix::cpu::pick_shots_of_any_norm(seq, got.data(), engine, shots, 2, {}),
                             std::domain_error)
                    << odd;
            });
            EXPECT_EQ(engine, std::mt19937_64(3));
        }
    }
}

TEST(precise_view_of_a_tiny_state, a_fraction_above_zero_stays_above_zero) {
    // Squares of 1e-320: most fractions of their sum round to 0, which would be the index of all ones.
    MeasuredState<double> measured(State<double>{{1e-160, 0}, {0, 1e-160}, {0, 0}, {0, 0}});
    std::mt19937_64 engine(5);
    outcomes got(1000);
    measured.read([&](auto seq) { pbamplix::cpu::pick_shots_of_any_norm(seq, got.data(), engine, 1000, 1, {}); });
    for (const unsigned long outcome : got) ASSERT_TRUE(outcome == 0 || outcome == 2) << outcome;
}

TYPED_TEST(precise_view, shots_of_any_norm_go_on_with_the_engine_when_there_are_more_than_are_sorted_at_once) {
    constexpr unsigned long shots = (1ul << 24) + 1000;
    State<TypeParam> state(1ul << 11, {0, 0});
    state[0] = {TypeParam(0.5), TypeParam(0.25)};
    state[1] = {1, 1};
    MeasuredState<TypeParam> measured(state);
    std::mt19937_64 engine(3), after(3);
    const auto expected = scanned(wide_view(state, false), after, shots, {});
    outcomes got(shots);
    read_for_shots(measured,
                   [&](auto seq) { pbamplix::cpu::pick_shots_of_any_norm(seq, got.data(), engine, shots, 2, {}); });
    EXPECT_TRUE(got == expected);
    EXPECT_EQ(engine, after);
}
