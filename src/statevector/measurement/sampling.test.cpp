#include "reference/measurement.hpp"
#include "support/chosen_outputs.hpp"
#include "support/counted_allocations.hpp"
#include "support/measured_state.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"

#include <cmath>
#include <limits>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(sampling);

namespace {

// One shot per given output of the engine, over all qubits or a list.
template <class T>
std::vector<unsigned long> shots_of(StateVector<T>& v, const std::vector<unsigned long>& outputs,
                                    const Qubits& qubits = {}) {
    v.rng = engine_with_outputs(outputs);
    std::vector<unsigned long> shots(outputs.size());
    v.sample_subset(shots.data(), qubits, shots.size());
    return shots;
}

// Basis probabilities of any value, as the diagonal of a density matrix.
template <class T>
class Diagonal : public LoadedVector<T> {
public:
    explicit Diagonal(const std::vector<T>& diagonal)
        : LoadedVector<T>(reference::State<T>(diagonal.size() * diagonal.size())) {
        this->is_density_matrix = true;
        for (unsigned long k = 0; k < diagonal.size(); ++k) {
            this->amplitudes[k * (diagonal.size() + 1)] = thrust::complex<T>(diagonal[k], T(9));
        }
    }
};

// The engine's output that stands for r exactly.
template <class T>
unsigned long output_for(T r) {
    return static_cast<unsigned long>(std::ldexp(static_cast<long double>(r), 64));
}

template <class T>
testing::AssertionResult agrees(MeasuredState<T>& measured, unsigned long shots, const Qubits& qubits,
                                const std::vector<int>& threads = thread_counts) {
    auto& v = measured.vector();
    v.rng.seed(static_cast<unsigned int>(17 * shots + measured.qubits()));
    const std::mt19937_64 start = v.rng;
    std::mt19937_64 after = start;
    const auto expected = reference::sampled(measured.view(), after, shots, qubits);
    for (int count : threads) {
        v.set_num_threads(count);
        v.rng = start;
        std::vector<unsigned long> got(shots + 2, 12345);
        if (qubits.empty()) {
            v.sample(got.data() + 1, shots);
        } else {
            v.sample_subset(got.data() + 1, qubits, shots);
        }
        if (got.front() != 12345 || got.back() != 12345) return testing::AssertionFailure() << "a write outside";
        if (v.rng != after) return testing::AssertionFailure() << "another number of outputs was taken";
        for (unsigned long s = 0; s < shots; ++s) {
            if (got[s + 1] == expected[s]) continue;
            return testing::AssertionFailure() << "shot " << s << " of " << shots << " is " << got[s + 1] << ", not "
                                               << expected[s] << "; " << measured.describe(qubits, count);
        }
    }
    return testing::AssertionSuccess();
}

}  // namespace

TYPED_TEST(sampling, gives_each_shot_what_its_own_scan_finds) {
    std::mt19937 engine(1);
    for (const Values values : {Values::ordinary, Values::unusual}) {
        for (unsigned int n = 0; n <= 12; ++n) {
            auto state = random_state<TypeParam>(n, values);
            if (values == Values::ordinary) state = normalised(state);
            MeasuredState<TypeParam> measured(state);
            for (unsigned long shots : {0ul, 1ul, 2ul, 300ul, 3000ul}) {
                ASSERT_TRUE(agrees(measured, shots, {}));
            }
            for (unsigned int k = 1; k <= n; ++k) {
                ASSERT_TRUE(agrees(measured, 100, random_qubits(k, n, engine)));
            }
        }
    }
}

TYPED_TEST(sampling, of_density_matrices_gives_each_shot_what_its_own_scan_finds) {
    std::mt19937 engine(2);
    for (unsigned int n = 0; n <= 15; ++n) {
        // The sums of the random diagonal rise and fall.
        MeasuredState<TypeParam> measured(random_state<TypeParam>(n, Values::ordinary), true);
        ASSERT_TRUE(agrees(measured, 2000, {}));
        const auto listed = random_qubits(n >= 4 ? 2 : n / 2, n / 2, engine);
        ASSERT_TRUE(agrees(measured, 500, listed));
        MeasuredState<TypeParam> odd(random_state<TypeParam>(n, Values::unusual), true);
        ASSERT_TRUE(agrees(odd, 500, {}));
    }
}

TYPED_TEST(sampling, of_large_states_and_many_shots_is_the_same_for_every_thread_count) {
    MeasuredState<TypeParam> large(normalised(random_state<TypeParam>(17, Values::ordinary)));
    ASSERT_TRUE(agrees(large, 200, {}));
    ASSERT_TRUE(agrees(large, 100, {16, 0, 5}));
    MeasuredState<TypeParam> small(normalised(random_state<TypeParam>(6, Values::ordinary)));
    ASSERT_TRUE(agrees(small, 100000, {}));
}

// From 20 qubits on threads share the running sum.
TYPED_TEST(sampling, and_measuring_where_threads_share_the_sum_give_what_a_scan_finds) {
    MeasuredState<TypeParam> measured(normalised(random_state<TypeParam>(20, Values::ordinary)));
    ASSERT_TRUE(agrees(measured, 12, {}));
    auto& v = measured.vector();
    // 0, the first sum itself, somewhere, and above all sums.
    const std::vector<unsigned long> outputs = {0, 1, output_for(measured.view()[0]), 1ul << 62, ~0ul};
    v.set_num_threads(1);
    const auto expected = shots_of<TypeParam>(v, outputs);
    for (int threads : thread_counts) {
        v.set_num_threads(threads);
        EXPECT_EQ(shots_of<TypeParam>(v, outputs), expected) << threads << " thread(s)";
        v.rng = engine_with_outputs(outputs);
        for (unsigned long outcome : expected) EXPECT_EQ(v.measure({}), outcome) << threads << " thread(s)";
    }
}

TYPED_TEST(sampling, of_a_basis_state_always_gives_its_reversed_index) {
    for (unsigned long i = 0; i < 32; ++i) {
        StateVector<TypeParam> v(5);
        v.reset();
        for (unsigned int q = 0; q < 5; ++q) {
            if (i >> q & 1) v.apply_X(q);
        }
        std::vector<unsigned long> shots(20);
        v.sample(shots.data(), shots.size());
        for (unsigned long shot : shots) EXPECT_EQ(shot, pbamplix::cpu::swap_lsb_msb(i, 5));
    }
}

TYPED_TEST(sampling, of_a_subset_2_and_0_of_001_yields_1) {
    StateVector<TypeParam> v(3);
    v.reset();
    v.apply_X(0);
    unsigned long shots[4] = {};
    v.sample_subset(shots, {2, 0}, 4);
    for (unsigned long shot : shots) EXPECT_EQ(shot, 1ul);
}

TYPED_TEST(sampling, with_one_thread_and_a_seed_equals_as_many_measurements) {
    for (bool density_matrix : {false, true}) {
        MeasuredState<TypeParam> measured(normalised(random_state<TypeParam>(8, Values::ordinary)), density_matrix);
        auto& v = measured.vector();
        v.rng.seed(5);
        std::vector<unsigned long> shots(50);
        v.sample(shots.data(), shots.size());
        const std::mt19937_64 after = v.rng;
        v.rng.seed(5);
        for (unsigned long shot : shots) EXPECT_EQ(v.measure({}), shot);
        EXPECT_EQ(v.rng, after);
    }
}

TYPED_TEST(sampling, of_a_state_whose_total_is_below_r_yields_the_last_index) {
    LoadedVector<TypeParam> v(reference::State<TypeParam>(8, {TypeParam(0.25), 0}));  // total 1/2
    EXPECT_EQ(shots_of<TypeParam>(v, {output_for(TypeParam(0.75))}), (std::vector<unsigned long>{7}));
    EXPECT_EQ(shots_of<TypeParam>(v, {output_for(TypeParam(0.75))}, {1}), (std::vector<unsigned long>{1}));
    LoadedVector<TypeParam> none(reference::State<TypeParam>(8));
    EXPECT_EQ(shots_of<TypeParam>(none, {1, output_for(TypeParam(0.25))}), (std::vector<unsigned long>{7, 7}));
}

TYPED_TEST(sampling, draws_all_ones_for_a_number_of_exactly_0) {
    StateVector<TypeParam> v(3);
    v.reset();
    EXPECT_EQ(shots_of<TypeParam>(v, {0, 1, 0}), (std::vector<unsigned long>{7, 0, 7}));
    EXPECT_EQ(shots_of<TypeParam>(v, {0, 1}, {2, 0}), (std::vector<unsigned long>{3, 0}));
    v.rng = engine_with_outputs({0, 0});
    EXPECT_EQ(v.measure({}), 7ul);
    EXPECT_EQ(v.measure({1}), 1ul);
    v.resize(0);
    v.reset();
    EXPECT_EQ(shots_of<TypeParam>(v, {0, 1}), (std::vector<unsigned long>{0, 0}));
}

TYPED_TEST(sampling, keeps_a_number_that_rounds_to_1_below_it) {
    const TypeParam below = std::nextafter(TypeParam(1), TypeParam(0));
    Diagonal<TypeParam> v({below, TypeParam(0), TypeParam(0), TypeParam(1)});
    EXPECT_EQ(shots_of<TypeParam>(v, {~0ul}), (std::vector<unsigned long>{0}));
    v.rng = engine_with_outputs({~0ul});
    EXPECT_EQ(v.measure({}), 0ul);
}

TYPED_TEST(sampling, stops_where_a_number_lies_exactly_on_the_running_sum) {
    // Probabilities 1/4, 1/4, 0, 1/2.
    Diagonal<TypeParam> v({TypeParam(0.25), TypeParam(0.25), TypeParam(0), TypeParam(0.5)});
    const TypeParam above = std::nextafter(TypeParam(0.25), TypeParam(1));
    // Outcomes are reversed indices: 0, 1, 2, 3 read 0, 2, 1, 3.
    EXPECT_EQ(shots_of<TypeParam>(v, {output_for(TypeParam(0.25)), output_for(above), output_for(TypeParam(0.5)),
                                      output_for(std::nextafter(TypeParam(0.5), TypeParam(1)))}),
              (std::vector<unsigned long>{0, 2, 2, 3}));
    const TypeParam half = TypeParam(0.5);
    LoadedVector<TypeParam> state(reference::State<TypeParam>{{half, 0}, {0, -half}, {0, 0}, {half, half}});
    EXPECT_EQ(shots_of<TypeParam>(state, {output_for(TypeParam(0.25)), output_for(above)}),
              (std::vector<unsigned long>{0, 2}));
}

TYPED_TEST(sampling, converts_an_output_by_rounding_to_nearest_before_it_scales) {
    // Halfway between two numbers of the precision, above 2^63: ties go to the even one, 1/2.
    const unsigned long half_step = 1ul << (63 - std::numeric_limits<TypeParam>::digits);
    Diagonal<TypeParam> v({TypeParam(0.5), TypeParam(0.5)});
    EXPECT_EQ(shots_of<TypeParam>(v, {(1ul << 63) + half_step, (1ul << 63) + half_step + 1}),
              (std::vector<unsigned long>{0, 1}));
}

TYPED_TEST(sampling, over_sums_that_fall_takes_the_first_crossing) {
    Diagonal<TypeParam> v({TypeParam(0.5), TypeParam(-0.25), TypeParam(0.125), TypeParam(0.625)});
    // Sums 0.5, 0.25, 0.375, 1.
    EXPECT_EQ(shots_of<TypeParam>(v, {output_for(TypeParam(0.3)), output_for(TypeParam(0.5)),
                                      output_for(TypeParam(0.51)), output_for(TypeParam(0.99))}),
              (std::vector<unsigned long>{0, 0, 3, 3}));
}

TYPED_TEST(sampling, stops_at_a_nan) {
    const TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    const std::vector<unsigned long> outputs = {output_for(TypeParam(0.2)), output_for(TypeParam(0.9))};
    Diagonal<TypeParam> v({TypeParam(0.25), nan, TypeParam(0.25), TypeParam(0.25)});
    EXPECT_EQ(shots_of<TypeParam>(v, outputs), (std::vector<unsigned long>{0, 2}));
    LoadedVector<TypeParam> state(
        reference::State<TypeParam>{{TypeParam(0.5), 0}, {nan, 0}, {TypeParam(0.5), 0}, {TypeParam(0.5), 0}});
    EXPECT_EQ(shots_of<TypeParam>(state, outputs), (std::vector<unsigned long>{0, 2}));
}

TYPED_TEST(sampling, follows_the_state_s_distribution) {
    // Chi-square over 1024 outcomes: mean 1023, standard deviation 45.
    constexpr unsigned long shots = 1000000;
    MeasuredState<TypeParam> measured(normalised(random_state<TypeParam>(10, Values::ordinary)));
    auto& v = measured.vector();
    v.set_num_threads(2);
    v.rng.seed(2024);
    std::vector<unsigned long> drawn(shots), counts(1024);
    v.sample(drawn.data(), shots);
    for (unsigned long outcome : drawn) ++counts[pbamplix::cpu::swap_lsb_msb(outcome, 10)];
    double square = 0;
    for (unsigned long i = 0; i < 1024; ++i) {
        const double expected = shots * double(measured.view()[i]);
        square += (double(counts[i]) - expected) * (double(counts[i]) - expected) / expected;
    }
    EXPECT_GT(square, 1023 - 5 * 45);
    EXPECT_LT(square, 1023 + 5 * 45);
}

TYPED_TEST(sampling, of_more_shots_than_are_sorted_at_once_goes_on_with_the_engine) {
    constexpr unsigned long shots = (1ul << 24) + 1000;
    reference::State<TypeParam> state(1ul << 11, {0, 0});
    state[0] = {TypeParam(0.5), TypeParam(0.25)};
    state[1] = {1, 1};
    MeasuredState<TypeParam> measured(state);
    auto& v = measured.vector();
    v.rng.seed(3);
    std::mt19937_64 engine = v.rng;
    std::vector<unsigned long> drawn(shots);
    v.set_num_threads(2);
    v.sample(drawn.data(), shots);
    const auto view = measured.view();
    unsigned long different = 0;
    for (unsigned long s = 0; s < shots; ++s) {
        const unsigned long index = reference::chosen_index(view, reference::drawn_number<TypeParam>(engine()));
        different += drawn[s] != reference::outcome(index, 11, {});
    }
    EXPECT_EQ(different, 0ul);
    EXPECT_EQ(v.rng, engine);
}

TYPED_TEST(sampling, of_the_density_matrix_of_a_pure_state_gives_the_shots_of_the_state) {
    const auto psi = normalised(random_state<TypeParam>(6, Values::ordinary));
    LoadedVector<TypeParam> pure(psi), mixed(density_of(psi));
    mixed.is_density_matrix = true;
    for (const Qubits& qubits : std::vector<Qubits>{{}, {4}, {5, 0, 3}}) {
        pure.rng.seed(21);
        mixed.rng.seed(21);
        std::vector<unsigned long> of_pure(1000), of_mixed(1000);
        pure.sample_subset(of_pure.data(), qubits, of_pure.size());
        mixed.sample_subset(of_mixed.data(), qubits, of_mixed.size());
        EXPECT_EQ(of_pure, of_mixed) << describe(qubits);
        EXPECT_EQ(pure.measure(qubits), mixed.measure(qubits)) << describe(qubits);
    }
}

TYPED_TEST(sampling, measures_without_changing_the_amplitudes_and_may_give_two_outcomes) {
    LoadedVector<TypeParam> v(normalised(random_state<TypeParam>(6, Values::ordinary)));
    const reference::State<TypeParam> before = normalised(random_state<TypeParam>(6, Values::ordinary));
    v.rng = engine_with_outputs({1, output_for(TypeParam(0.99))});
    const unsigned long first = v.measure({});
    EXPECT_NE(v.measure({}), first);
    EXPECT_TRUE(same_bits(before, v.amplitudes.get()));
}

TYPED_TEST(sampling, measures_like_a_scan_and_takes_one_output) {
    std::mt19937 lists(4);
    for (bool density_matrix : {false, true}) {
        for (unsigned int n = 0; n <= 12; ++n) {
            MeasuredState<TypeParam> measured(normalised(random_state<TypeParam>(n, Values::ordinary)), density_matrix);
            auto& v = measured.vector();
            v.set_num_threads(3);
            for (unsigned int k = 0; k <= measured.qubits(); ++k) {
                const Qubits qubits = random_qubits(k, measured.qubits(), lists);
                std::mt19937_64 engine = v.rng;
                const auto expected = reference::sampled(measured.view(), engine, 1, qubits);
                EXPECT_EQ(v.measure(qubits), expected[0]) << measured.describe(qubits, 3);
                EXPECT_EQ(v.rng, engine);
            }
        }
    }
}

TYPED_TEST(sampling, measures_without_allocating) {
    StateVector<TypeParam> v(12);
    v.reset();
    for (unsigned int q = 0; q < 12; ++q) v.apply_H(q);
    const Qubits qubits = {3, 7};
    CountedAllocations allocations;
    v.measure(qubits);
    EXPECT_EQ(allocations.count(), 0);
}
