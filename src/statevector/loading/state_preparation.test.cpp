#include "reference/loading.hpp"
#include "reference/probabilities.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <velacamplix/loading.hpp>

#include <bit>
#include <cmath>

namespace {

using reference::Qubits;
using reference::State;
using Data = std::vector<reference::Complex<double>>;

PRECISION_SUITE(StatePreparation);

template <class T>
void prepare(support::GuardedArray<T>& state, unsigned int n, const Data& data, const Qubits& qubits, int threads = 1) {
    pbamplix::cpu::_state_preparation(state.data(), reinterpret_cast<const thrust::complex<double>*>(data.data()), n,
                                      qubits, threads);
}

template <class T>
void expect_the_literal_result(const State<T>& start, const Data& data, const Qubits& qubits, int threads,
                               unsigned long shifted_by = 0) {
    const auto n = static_cast<unsigned int>(std::countr_zero(start.size()));
    auto expected = start;
    reference::state_preparation(expected, data, qubits);
    support::GuardedArray<T> got(start, shifted_by);
    prepare(got, n, data, qubits, threads);
    EXPECT_TRUE(support::same_bits(expected, got.data())) << support::describe(n, qubits, {}, threads);
    EXPECT_TRUE(got.fences_stand()) << support::describe(n, qubits, {}, threads);
}

TYPED_TEST(StatePreparation, all_qubits_become_the_data_times_the_old_norm) {
    for (unsigned int n = 1; n <= 5; ++n) {
        const auto start = support::random_state<TypeParam>(n, support::Values::ordinary);
        const auto data = support::random_coefficients<double>(start.size(), n);
        support::GuardedArray<TypeParam> state(start);
        Qubits all;
        for (unsigned int q = n; q-- > 0;) all.push_back(q);
        TypeParam norm = 0;
        for (const auto& a : start) norm += reference::squared_magnitude(a);
        prepare(state, n, data, all);
        for (unsigned long i = 0; i < start.size(); ++i) {
            EXPECT_EQ(state.data()[i].real(), static_cast<TypeParam>(data[i].re) * std::sqrt(norm));
            EXPECT_EQ(state.data()[i].imag(), static_cast<TypeParam>(data[i].im) * std::sqrt(norm));
        }
    }
}

TYPED_TEST(StatePreparation, qubit_0_of_the_basis_state_becomes_the_two_numbers) {
    State<TypeParam> start(8);
    start[0] = {1, 0};
    support::GuardedArray<TypeParam> state(start);
    prepare(state, 3, {{0.6, 0.1}, {-0.25, 0.8}}, {0});
    State<TypeParam> expected(8);
    expected[0] = {static_cast<TypeParam>(0.6), static_cast<TypeParam>(0.1)};
    expected[1] = {static_cast<TypeParam>(-0.25), static_cast<TypeParam>(0.8)};
    for (unsigned long i = 0; i < 8; ++i) {
        EXPECT_EQ(state.data()[i].real(), expected[i].re);
        EXPECT_EQ(state.data()[i].imag(), expected[i].im);
    }
}

TYPED_TEST(StatePreparation, the_order_of_the_list_does_not_matter) {
    // Up to rounding: the norm of a group is summed in the list's order.
    const auto start = support::random_state<TypeParam>(5, support::Values::ordinary);
    const auto data = support::random_coefficients<double>(4, 1);
    support::GuardedArray<TypeParam> one(start), other(start);
    prepare(one, 5, data, {2, 0});
    prepare(other, 5, data, {0, 2});
    for (unsigned long i = 0; i < start.size(); ++i) {
        const TypeParam tolerance = 4 * std::numeric_limits<TypeParam>::epsilon();
        EXPECT_NEAR(one.data()[i].real(), other.data()[i].real(), tolerance);
        EXPECT_NEAR(one.data()[i].imag(), other.data()[i].imag(), tolerance);
    }
}

TYPED_TEST(StatePreparation, a_configuration_without_weight_stays_zero) {
    auto start = support::random_state<TypeParam>(4, support::Values::ordinary);
    for (unsigned long i = 0; i < 16; ++i) {
        if (i & 4) start[i] = {0, 0};
    }
    support::GuardedArray<TypeParam> state(start);
    prepare(state, 4, {{0.5, 0}, {0, 0.5}, {-0.5, 0}, {0.5, 0}}, {3, 1});
    for (unsigned long i = 0; i < 16; ++i) {
        if (!(i & 4)) continue;
        EXPECT_EQ(state.data()[i].real(), TypeParam(0));
        EXPECT_EQ(state.data()[i].imag(), TypeParam(0));
    }
}

TYPED_TEST(StatePreparation, every_list_of_up_to_four_qubits_gives_the_literal_bits) {
    for (unsigned int n = 1; n <= 4; ++n) {
        for (unsigned long code = 0; code < 1ul << (2 * n); ++code) {
            // Every ordered list: its length and order are read from the digits.
            Qubits qubits;
            unsigned long used = 0;
            for (unsigned int d = 0; d < n; ++d) {
                const unsigned int q = (code >> (2 * d)) & 3;
                if (q < n && !(used >> q & 1)) qubits.push_back(q);
                used |= 1ul << q;
            }
            for (const int threads : support::thread_counts) {
                expect_the_literal_result(support::random_state<TypeParam>(n, support::Values::unusual, 1),
                                          support::random_coefficients<double>(1ul << qubits.size(), n), qubits,
                                          threads);
            }
        }
    }
}

TYPED_TEST(StatePreparation, random_lists_on_larger_states_give_the_literal_bits) {
    std::mt19937 engine(1);
    for (unsigned int n = 5; n <= 13; n += 2) {
        for (unsigned int k = 0; k <= n; ++k) {
            const auto qubits = support::random_qubits(k, n, engine);
            const auto data = support::random_coefficients<double>(1ul << k, k);
            for (const int threads : support::thread_counts) {
                expect_the_literal_result(support::random_state<TypeParam>(n, support::Values::unusual, k), data,
                                          qubits, threads, n % 4);
            }
        }
    }
}

TYPED_TEST(StatePreparation, large_groups_shared_by_threads_give_the_literal_bits) {
    std::mt19937 engine(2);
    const unsigned int n = 17;
    const auto start = support::random_state<TypeParam>(n, support::Values::ordinary);
    for (const unsigned int k : {15u, 16u, 17u}) {
        const auto data = support::random_coefficients<double>(1ul << k, k);
        for (const int threads : support::thread_counts) {
            expect_the_literal_result(start, data, support::random_qubits(k, n, engine), threads);
        }
    }
}

// Large groups of zeros but for a few amplitudes are read in another order than they are added.
TYPED_TEST(StatePreparation, nearly_empty_large_groups_give_the_literal_bits) {
    std::mt19937 engine(4);
    const unsigned int n = 14;
    for (const unsigned int nonzero : {0u, 1u, 5u, 40u, 70u, 200u, 900u}) {
        State<TypeParam> start(1ul << n);
        const auto values = support::random_state<TypeParam>(10, support::Values::ordinary, nonzero);
        for (unsigned int i = 0; i < nonzero; ++i) start[engine() % start.size()] = values[i];
        for (unsigned long i = 0; i < start.size(); i += 7) {
            if (start[i].re == TypeParam(0)) start[i] = {TypeParam(-0.0), TypeParam(0)};
        }
        for (const unsigned int k : {11u, 12u, 13u, 14u}) {
            const auto data = support::random_coefficients<double>(1ul << k, k);
            Qubits rising(k), falling(k);
            for (unsigned int q = 0; q < k; ++q) rising[q] = falling[k - 1 - q] = q;
            expect_the_literal_result(start, data, rising, 1);
            expect_the_literal_result(start, data, falling, 3);
            expect_the_literal_result(start, data, support::random_qubits(k, n, engine), 2);
        }
    }
    auto bad = State<TypeParam>(1ul << n);
    bad[77] = {std::numeric_limits<TypeParam>::infinity(), 0};
    expect_the_literal_result(bad, support::random_coefficients<double>(bad.size()),
                              support::random_qubits(n, n, engine), 1);
}

TYPED_TEST(StatePreparation, small_amplitudes_keep_their_norm) {
    // Squares below the normal range: without scaling the norm would be lost.
    const TypeParam tiny = std::sqrt(std::numeric_limits<TypeParam>::min());
    for (const TypeParam scale : {tiny, tiny / 2, tiny / 64}) {
        auto start = support::random_state<TypeParam>(6, support::Values::ordinary);
        for (auto& a : start) a = {a.re * scale, a.im * scale};
        for (const Qubits& qubits : {Qubits{0, 3}, Qubits{4, 5}, Qubits{5, 3, 4}}) {
            expect_the_literal_result(start, support::random_coefficients<double>(1ul << qubits.size()), qubits, 1);
        }
    }
}

TYPED_TEST(StatePreparation, the_weights_of_the_untouched_qubits_stay) {
    const unsigned int n = 7;
    std::mt19937 engine(3);
    const auto start = support::random_state<TypeParam>(n, support::Values::ordinary);
    const auto qubits = support::random_qubits(3, n, engine);
    auto data = support::random_coefficients<double>(8, 4);
    double norm = 0;
    for (const auto& d : data) norm += d.re * d.re + d.im * d.im;
    for (auto& d : data) d = {d.re / std::sqrt(norm), d.im / std::sqrt(norm)};
    support::GuardedArray<TypeParam> state(start);
    prepare(state, n, data, qubits);
    State<TypeParam> after(start.size());
    std::memcpy(after.data(), state.data(), after.size() * sizeof(after[0]));

    Qubits others;
    for (unsigned int q = 0; q < n; ++q) {
        if (std::find(qubits.begin(), qubits.end(), q) == qubits.end()) others.push_back(q);
    }
    const auto before_view = reference::state_view(start), after_view = reference::state_view(after);
    for (unsigned long outcome = 0; outcome < 1ul << others.size(); ++outcome) {
        EXPECT_NEAR(reference::probability(before_view, outcome, others),
                    reference::probability(after_view, outcome, others),
                    64 * std::numeric_limits<TypeParam>::epsilon());
    }
}

TYPED_TEST(StatePreparation, a_qubit_listed_twice_never_leads_outside_the_array) {
    const auto data = support::random_coefficients<double>(64, 5);
    for (const Qubits& qubits : {Qubits{0, 0}, Qubits{3, 1, 3}, Qubits{4, 4, 4, 4}}) {
        for (const int threads : support::thread_counts) {
            expect_the_literal_result(support::random_state<TypeParam>(6, support::Values::ordinary), data, qubits,
                                      threads);
        }
    }
    // More entries than qubits: whatever comes out, it stays inside.
    support::GuardedArray<TypeParam> state(support::random_state<TypeParam>(2, support::Values::ordinary));
    prepare(state, 2, data, {1, 1, 0, 1, 0, 0});
    EXPECT_TRUE(state.fences_stand());
}

}  // namespace
