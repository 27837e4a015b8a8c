#include "reference/observables.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <velacamplix/observable.hpp>

#include <bit>
#include <cmath>
#include <stdexcept>

namespace {

using reference::State;

template <class T>
using Term = pbamplix::SimpleTerm<T>;
template <class T>
using Results = std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>>;

template <class T>
Results<T> evaluated(support::GuardedArray<T>& state, unsigned int n, std::vector<Term<T>> terms, unsigned long shots,
                     std::mt19937_64& engine, int threads = 1, bool density_matrix = false) {
    pbamplix::prune_I_ops(terms);
    return pbamplix::cpu::_evaluate_terms(state.data(), terms, shots, engine, n, threads, density_matrix);
}

PRECISION_SUITE(SampledValues);

TYPED_TEST(SampledValues, z_on_a_basis_state_has_mean_one_and_error_zero_exactly_times_the_coefficient) {
    for (const unsigned long shots : {2ul, 3ul, 1000ul}) {
        support::GuardedArray<TypeParam> state(State<TypeParam>{{0, 0}, {0, 0}, {1, 0}, {0, 0}});
        std::mt19937_64 engine(1);
        const thrust::complex<TypeParam> c(TypeParam(0.3), TypeParam(-0.7));
        const auto results = evaluated<TypeParam>(state, 2, {{{0}, "Z", c}, {{1}, "Z", c}}, shots, engine);
        EXPECT_EQ(results[0].first, c);
        EXPECT_EQ(results[0].second, thrust::complex<TypeParam>(0, 0));
        EXPECT_EQ(results[1].first, -c);
        EXPECT_EQ(results[1].second, thrust::complex<TypeParam>(0, 0));
    }
}

TYPED_TEST(SampledValues, x_on_zero_has_a_mean_near_zero_and_the_error_of_a_fair_coin) {
    support::GuardedArray<TypeParam> state(State<TypeParam>{{1, 0}, {0, 0}});
    std::mt19937_64 engine(2);
    const unsigned long shots = 10000;
    const auto results = evaluated<TypeParam>(state, 1, {{{0}, "X", {1, 0}}}, shots, engine);
    const TypeParam coin = std::sqrt(TypeParam(1) / static_cast<TypeParam>(shots - 1));
    EXPECT_LT(std::abs(results[0].first.real()), 5 * coin);
    EXPECT_NE(results[0].first.real(), TypeParam(0));
    EXPECT_NEAR(results[0].second.real(), coin, coin / 100);
}

TYPED_TEST(SampledValues, a_single_shot_has_no_error) {
    support::GuardedArray<TypeParam> state(State<TypeParam>{{1, 0}, {0, 0}});
    std::mt19937_64 engine(3);
    const auto results = evaluated<TypeParam>(state, 1, {{{0}, "X", {2, 1}}}, 1, engine);
    EXPECT_EQ(std::abs(results[0].first.real()), TypeParam(2));
    EXPECT_EQ(results[0].second, thrust::complex<TypeParam>(0, 0));
}

TYPED_TEST(SampledValues, no_shots_leave_an_undefined_mean_and_no_error) {
    support::GuardedArray<TypeParam> state(State<TypeParam>{{1, 0}, {0, 0}});
    std::mt19937_64 engine(3);
    const auto results = evaluated<TypeParam>(state, 1, {{{0}, "Z", {1, 0}}}, 0, engine);
    EXPECT_TRUE(std::isnan(results[0].first.real()));
    EXPECT_EQ(results[0].second, thrust::complex<TypeParam>(0, 0));
    EXPECT_TRUE(engine == std::mt19937_64(3)) << "nothing was drawn";
}

TYPED_TEST(SampledValues, the_same_seed_gives_the_same_results_on_fresh_states_and_any_number_of_threads) {
    const auto start = support::normalised(support::random_state<TypeParam>(6, support::Values::ordinary));
    const std::vector<Term<TypeParam>> terms = {{{0, 3}, "XY", {1, 2}}, {{5, 1, 2}, "ZYX", {-1, 0}}};
    Results<TypeParam> first;
    for (const int threads : support::thread_counts) {
        support::GuardedArray<TypeParam> state(start);
        std::mt19937_64 engine(4);
        const auto results = evaluated<TypeParam>(state, 6, terms, 3000, engine, threads);
        if (first.empty()) first = results;
        EXPECT_EQ(first, results) << threads << " threads";
    }
}

TYPED_TEST(SampledValues, zi_is_measured_on_its_first_qubit) {
    // Qubit 4 reads 1, qubit 1 reads 0 or 1.
    State<TypeParam> start(32);
    start[16] = {TypeParam(0.6), 0};
    start[18] = {0, TypeParam(0.8)};
    support::GuardedArray<TypeParam> state(start);
    std::mt19937_64 engine(5);
    const auto results = evaluated<TypeParam>(state, 5, {{{4, 1}, "ZI", {1, 0}}}, 500, engine);
    EXPECT_EQ(results[0].first, thrust::complex<TypeParam>(-1, 0));
}

TYPED_TEST(SampledValues, iz_is_the_parity_of_its_one_qubit_left) {
    // Pruning leaves no operator but qubit 1, which reads 1; qubit 4 reads 0 or 1.
    State<TypeParam> start(32);
    start[2] = {TypeParam(0.6), 0};
    start[18] = {0, TypeParam(0.8)};
    support::GuardedArray<TypeParam> state(start);
    std::mt19937_64 engine(6);
    const auto results = evaluated<TypeParam>(state, 5, {{{4, 1}, "IZ", {1, 0}}}, 500, engine);
    EXPECT_EQ(results[0].first, thrust::complex<TypeParam>(-1, 0));
}

TYPED_TEST(SampledValues, qubits_behind_a_pruned_string_count_as_z) {
    // "XIZ" on 0, 1, 2 is "X" on 0, 2: qubit 2 is not rotated, whatever stood at its place.
    State<TypeParam> start(8);
    start[4] = {std::sqrt(TypeParam(0.5)), 0};
    start[5] = {std::sqrt(TypeParam(0.5)), 0};
    support::GuardedArray<TypeParam> state(start);
    std::mt19937_64 engine(7);
    const auto results = evaluated<TypeParam>(state, 3, {{{0, 1, 2}, "XIX", {1, 0}}}, 200, engine);
    EXPECT_NEAR(results[0].first.real(), TypeParam(-1), TypeParam(0.02));
}

TYPED_TEST(SampledValues, the_state_comes_back_up_to_rounding_also_with_y) {
    const TypeParam tolerance = 64 * std::numeric_limits<TypeParam>::epsilon();
    const auto start = support::normalised(support::random_state<TypeParam>(6, support::Values::ordinary));
    for (const bool density_matrix : {false, true}) {
        support::GuardedArray<TypeParam> state(start);
        std::mt19937_64 engine(8);
        const std::vector<Term<TypeParam>> terms = {
            {{0, 1, 2}, "YXY", {1, 0}}, {{2, 0}, "YY", {1, 0}}, {{1}, "X", {1, 0}}, {{2}, "Y", {1, 0}}};
        evaluated<TypeParam>(state, 6, terms, 100, engine, 1, density_matrix);
        for (unsigned long i = 0; i < start.size(); ++i) {
            EXPECT_NEAR(state.data()[i].real(), start[i].re, tolerance);
            EXPECT_NEAR(state.data()[i].imag(), start[i].im, tolerance);
        }
        EXPECT_TRUE(state.fences_stand());
    }
}

// Tables, draws, results and the rotated-back state.
TYPED_TEST(SampledValues, random_terms_give_the_bits_of_the_literal_evaluation) {
    std::mt19937 choice(9);
    for (const bool density_matrix : {false, true}) {
        for (unsigned int n = 2; n <= 8; n += 2) {
            const unsigned int m = density_matrix ? n / 2 : n;
            for (const int threads : support::thread_counts) {
                auto start = support::normalised(support::random_state<TypeParam>(n, support::Values::ordinary, n));
                std::vector<reference::Term<TypeParam>> terms;
                std::vector<Term<TypeParam>> library_terms;
                for (unsigned int t = 0; t < 6; ++t) {
                    reference::Term<TypeParam> term;
                    term.qubits = support::random_qubits(choice() % (std::min(m, 4u) + 1), m, choice);
                    for (std::size_t j = 0; j < term.qubits.size(); ++j) term.op += "XYZI"[choice() % 4];
                    term.coefficient = support::random_coefficients<TypeParam>(1, t)[0];
                    terms.push_back(term);
                    library_terms.push_back({term.qubits, term.op, {term.coefficient.re, term.coefficient.im}});
                }
                support::GuardedArray<TypeParam> state(start);
                std::mt19937_64 engine(10), expected_engine(10);
                const auto results =
                    evaluated<TypeParam>(state, n, library_terms, 400, engine, threads, density_matrix);
                const auto expected = reference::evaluate_terms(start, terms, 400, expected_engine, density_matrix);
                ASSERT_EQ(results.size(), expected.size());
                for (std::size_t t = 0; t < results.size(); ++t) {
                    EXPECT_TRUE(support::same_bits(State<TypeParam>{expected[t].mean, expected[t].standard_error},
                                                   &results[t].first))
                        << "term " << t << ", " << terms[t].op << " on " << support::describe(terms[t].qubits);
                }
                EXPECT_TRUE(support::same_bits(start, state.data()));
                EXPECT_TRUE(engine == expected_engine) << "exactly one output for every shot of every term";
            }
        }
    }
}

TYPED_TEST(SampledValues, sampled_terms_converge_to_the_exact_ones) {
    const unsigned int n = 4;
    const auto start = support::normalised(support::random_state<TypeParam>(n, support::Values::ordinary, 3));
    const std::vector<std::string> ops = {"XYZX", "YYXZ", "ZZXX", "YXYX", "XXXX", "ZZZZ", "YYYY", "YZZX"};
    std::vector<Term<TypeParam>> terms;
    std::vector<TypeParam> exact;
    for (const std::string& op : ops) {
        terms.push_back({{0, 1, 2, 3}, op, {1, 0}});
        reference::PauliString p = {0, 0, 0};
        for (unsigned int q = 0; q < n; ++q) {
            if (op[q] != 'Z') p.flip |= 1ul << q;
            if (op[q] != 'X') p.phase |= 1ul << q;
            if (op[q] == 'Y') ++p.y_count;
        }
        exact.push_back(reference::term_value(start, p));
    }
    support::GuardedArray<TypeParam> state(start);
    std::mt19937_64 engine(11);
    for (const unsigned long shots : {100ul, 10000ul, 200000ul}) {
        const auto results = evaluated<TypeParam>(state, n, terms, shots, engine);
        for (std::size_t t = 0; t < terms.size(); ++t) {
            EXPECT_NEAR(results[t].first.real(), exact[t], 5 * results[t].second.real()) << ops[t] << ", " << shots;
            EXPECT_LE(results[t].second.real(), TypeParam(1.01) / std::sqrt(static_cast<TypeParam>(shots - 1)));
        }
    }
}

TYPED_TEST(SampledValues, the_density_matrix_of_a_pure_state_is_sampled_around_the_values_of_the_state_also_for_y) {
    // Its entries' squared magnitudes, summed over the rows, are the probabilities of the state.
    const unsigned int m = 3;
    const auto psi = support::normalised(support::random_state<TypeParam>(m, support::Values::ordinary, 5));
    const unsigned long shots = 100000;
    for (const std::string op : {"XYZ", "YYX", "ZXY", "Y", "YY", "XX", "ZZZ", "ZY"}) {
        reference::PauliString p = {0, 0, 0};
        std::vector<unsigned int> qubits;
        for (unsigned int j = 0; j < op.size(); ++j) {
            const unsigned int q = (j + 1) % m;
            qubits.push_back(q);
            if (op[j] != 'Z') p.flip |= 1ul << q;
            if (op[j] != 'X') p.phase |= 1ul << q;
            if (op[j] == 'Y') ++p.y_count;
        }
        support::GuardedArray<TypeParam> rho(support::density_of(psi));
        std::mt19937_64 engine(17);
        const auto results = evaluated<TypeParam>(rho, 2 * m, {{qubits, op, {1, 0}}}, shots, engine, 1, true);
        EXPECT_NEAR(results[0].first.real(), reference::term_value(psi, p), 5 * results[0].second.real()) << op;
        EXPECT_LT(results[0].second.real(), TypeParam(0.004)) << op;
    }
}

TYPED_TEST(SampledValues, an_empty_list_gives_an_empty_result_and_draws_nothing) {
    support::GuardedArray<TypeParam> state(State<TypeParam>{{1, 0}, {0, 0}});
    std::mt19937_64 engine(12);
    EXPECT_TRUE(evaluated<TypeParam>(state, 1, {}, 100, engine).empty());
    EXPECT_TRUE(engine == std::mt19937_64(12));
}

TYPED_TEST(SampledValues, a_term_without_qubits_is_the_identity) {
    support::GuardedArray<TypeParam> state(State<TypeParam>{{1, 0}, {0, 0}});
    std::mt19937_64 engine(13);
    const auto results = evaluated<TypeParam>(state, 1, {{{}, "", {3, 0}}, {{0}, "I", {2, 0}}}, 50, engine);
    EXPECT_EQ(results[0].first, thrust::complex<TypeParam>(3, 0));
    EXPECT_EQ(results[1].first, thrust::complex<TypeParam>(2, 0));
}

TYPED_TEST(SampledValues, a_term_too_long_for_any_table_throws_before_the_state_is_touched) {
    const State<TypeParam> start = {{1, 0}, {0, 0}};
    support::GuardedArray<TypeParam> state(start);
    std::mt19937_64 engine(14);
    // No vector holds 2^60 doubles, or 2^61 floats.
    const std::size_t longest = sizeof(TypeParam) == 8 ? 60 : 61;
    for (const std::size_t k : {longest, std::size_t{63}, std::size_t{64}, std::size_t{70}}) {
        const std::vector<Term<TypeParam>> terms = {{{0}, "X", {1, 0}},
                                                    {std::vector<unsigned int>(k, 0), std::string(k, 'Z'), {1, 0}}};
        EXPECT_THROW(evaluated<TypeParam>(state, 1, terms, 10, engine), std::length_error) << k;
    }
    EXPECT_TRUE(support::same_bits(start, state.data()));
    EXPECT_TRUE(engine == std::mt19937_64(14));
}

}  // namespace
