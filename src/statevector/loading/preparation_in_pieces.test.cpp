#include "reference/loading.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/widened.hpp"

#include <velacamplix/loading.hpp>

#include <algorithm>
#include <cmath>

namespace {

using reference::Qubits;
using reference::State;
using Data = std::vector<reference::Complex<double>>;

PRECISION_SUITE(PrecisePreparation);

template <class T>
void prepare(support::GuardedArray<T>& state, unsigned int n, const Data& data, const Qubits& qubits, int threads) {
    pbamplix::cpu::state_preparation<double>(
        state.data(), reinterpret_cast<const thrust::complex<double>*>(data.data()), n, qubits, threads);
}

TYPED_TEST(PrecisePreparation, is_the_preparation_of_the_widened_state_rounded_once) {
    std::mt19937 engine(3);
    for (unsigned int n = 1; n <= 10; ++n) {
        const auto start = support::random_state<TypeParam>(n, support::Values::ordinary);
        for (unsigned int k = 1; k <= n; ++k) {
            // The reference sums in the order of the list; this one is also that of the index.
            Qubits qubits = support::random_qubits(k, n, engine);
            std::sort(qubits.rbegin(), qubits.rend());
            const auto data = support::random_coefficients<double>(1ul << k, n + k);
            auto wide = support::widened(start);
            reference::state_preparation(wide, data, qubits);
            State<TypeParam> expected;
            for (const auto& a : wide) {
                expected.push_back({static_cast<TypeParam>(a.re), static_cast<TypeParam>(a.im)});
            }
            for (const int threads : support::thread_counts) {
                support::GuardedArray<TypeParam> got(start);
                prepare(got, n, data, qubits, threads);
                ASSERT_TRUE(support::same_bits(expected, got.data())) << support::describe(n, qubits, {}, threads);
                ASSERT_TRUE(got.fences_stand());
                Qubits shuffled = qubits;
                std::shuffle(shuffled.begin(), shuffled.end(), engine);
                support::GuardedArray<TypeParam> again(start);
                prepare(again, n, data, shuffled, threads);
                ASSERT_TRUE(support::same_bits(expected, again.data()))
                    << "in the order " << support::describe(shuffled);
            }
        }
    }
}

// More than one piece to a group: the sum of the pieces' sums.
TYPED_TEST(PrecisePreparation, of_large_registers_has_the_same_bits_for_every_thread_count) {
    const unsigned int n = 18;
    const auto start = support::random_state<TypeParam>(n, support::Values::ordinary);
    Qubits all_but_one;
    for (unsigned int q = 0; q < n; ++q) {
        if (q != 5) all_but_one.push_back(q);
    }
    const auto data = support::random_coefficients<double>(1ul << (n - 1), 1);
    double norms[2] = {0, 0};
    for (unsigned long i = 0; i < start.size(); ++i) {
        const double re = static_cast<double>(start[i].re), im = static_cast<double>(start[i].im);
        norms[i >> 5 & 1] += re * re + im * im;
    }
    support::GuardedArray<TypeParam> first(start);
    prepare(first, n, data, all_but_one, 1);
    for (unsigned long i = 0; i < start.size(); ++i) {
        const unsigned long entry = (i & 31) | (i >> 6 << 5);
        const double expected = data[entry].re * std::sqrt(norms[i >> 5 & 1]);
        ASSERT_NEAR(static_cast<double>(first.data()[i].real()), expected, 1e-4) << i;
    }
    State<TypeParam> bits;
    for (unsigned long i = 0; i < start.size(); ++i) bits.push_back({first.data()[i].real(), first.data()[i].imag()});
    for (const int threads : support::thread_counts) {
        support::GuardedArray<TypeParam> got(start);
        prepare(got, n, data, all_but_one, threads);
        ASSERT_TRUE(support::same_bits(bits, got.data())) << threads << " threads";
    }
}

// What it is for.
TEST(PrecisePreparationOfSinglePrecision, keeps_a_norm_that_a_sum_in_single_precision_loses) {
    State<float> start(1ul << 20, {0x1p-13f, 0});
    const double rest = std::ldexp(static_cast<double>(start.size() - 1), -26);
    start[0] = {static_cast<float>(std::sqrt(1 - rest)), 0};
    Data data(start.size(), {0, 0});
    data[77] = {1, 0};
    Qubits all;
    for (unsigned int q = 0; q < 20; ++q) all.push_back(q);
    support::GuardedArray<float> got(start);
    prepare(got, 20, data, all, 2);
    EXPECT_NEAR(got.data()[77].real(), 1, 1e-6);
}

}  // namespace
