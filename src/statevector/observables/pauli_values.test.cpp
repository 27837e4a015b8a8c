#include "reference/observables.hpp"
#include "support/compare.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"
#include "support/watched_regions.hpp"

#include <velacamplix/observable.hpp>

#include <sys/mman.h>

// Where the additions are made: the same bits for every number of threads, beside any other terms and on every
// instruction set.

namespace {

using reference::PauliString;
using reference::PauliSum;
using reference::State;
using support::amplitudes_of;
using support::compiled;
using support::dyadic_state;
using support::pauli;
using support::random_sum;

template <class T>
thrust::complex<T> library_value(const State<T>& state, PauliString p, int threads = 1) {
    WObservable<T> observable = compiled(PauliSum<T>{{{1, 0}}, {p}, {0, 0}});
    return pbamplix::cpu::_term_value(amplitudes_of(state), observable, state.size(), threads, 0);
}

PRECISION_SUITE(PauliValues);

// The additions are where the library says they are, in every array size, on every instruction set.
TYPED_TEST(PauliValues, values_have_the_bits_of_the_documented_tree) {
    std::mt19937_64 engine(11);
    for (unsigned int n = 0; n <= 17; ++n) {
        const auto state = support::random_state<TypeParam>(n, support::Values::ordinary, 2);
        const unsigned long all = state.size() - 1;
        std::vector<PauliString> strings = {pauli(0, 0), pauli(0, all), pauli(all, 0), pauli(all, all)};
        for (unsigned int s = 0; s < 12; ++s) strings.push_back(pauli(engine() & all, engine() & all));
        for (unsigned int s = 0; s < n; ++s) strings.push_back(pauli(1ul << s, engine() & all));
        for (const auto& p : strings) {
            EXPECT_TRUE(support::same_bits(reference::term_value_by_tree(state, p), library_value(state, p).real()))
                << "n = " << n << ", flip " << p.flip << ", phase " << p.phase;
        }
    }
}

TYPED_TEST(PauliValues, have_the_bits_of_the_documented_tree_in_hundreds_of_sections) {
    const unsigned int n = sizeof(TypeParam) == 8 ? 21 : 22;
    const auto state = support::random_state<TypeParam>(n, support::Values::ordinary, 2);
    for (const auto& p : {pauli(0, 0x155555), pauli(0x3, 0x1), pauli(0x18000f, 0x1f0f3)}) {
        const TypeParam expected = reference::term_value_by_tree(state, p);
        for (const int threads : {1, 3}) {
            EXPECT_TRUE(support::same_bits(expected, library_value(state, p, threads).real()))
                << "flip " << p.flip << ", phase " << p.phase << ", " << threads << " thread(s)";
        }
    }
}

TYPED_TEST(PauliValues, a_value_keeps_its_bits_beside_other_terms_and_on_any_number_of_threads) {
    for (const unsigned int n : {3u, 10u, 15u, 18u}) {
        const auto state = support::random_state<TypeParam>(n, support::Values::ordinary, 3);
        for (const unsigned int terms : {5u, 40u, 700u}) {
            PauliSum<TypeParam> sum = random_sum<TypeParam>(n, terms, terms == 700 ? 2 : 3, terms);
            // One weight of 1 picks one term out of the whole observable.
            for (auto& c : sum.coefficients) c = {0, 0};
            sum.coefficients[terms / 2] = {1, 0};
            sum.constant = {0, 0};
            const TypeParam alone = library_value(state, sum.strings[terms / 2]).real();
            for (const int threads : support::thread_counts) {
                const auto together =
                    pbamplix::cpu::_expectation_value(amplitudes_of(state), compiled(sum), state.size(), threads);
                EXPECT_TRUE(support::same_bits(alone, together.real()))
                    << "n = " << n << ", " << terms << " terms, " << threads << " threads";
            }
        }
    }
}

TYPED_TEST(PauliValues, on_dyadic_states_every_number_of_threads_gives_the_sequential_sum_to_the_bit) {
    for (const unsigned int n : {1u, 5u, 9u, 13u, 16u}) {
        const auto state = dyadic_state<TypeParam>(n, n);
        PauliSum<TypeParam> sum = random_sum<TypeParam>(n, n < 16 ? 40 : 12, 4, n);
        for (unsigned int t = 0; t < sum.coefficients.size(); ++t) {
            sum.coefficients[t] = {static_cast<TypeParam>(t % 5) - TypeParam(2),
                                   t % 3 == 0 ? TypeParam(0.5) : TypeParam(0)};
        }
        const auto expected = reference::expectation_value(state, sum);
        for (const int threads : support::thread_counts) {
            const auto value =
                pbamplix::cpu::_expectation_value(amplitudes_of(state), compiled(sum), state.size(), threads);
            EXPECT_TRUE(support::same_bits(expected.re, value.real())) << "n = " << n << ", " << threads << " threads";
            EXPECT_TRUE(support::same_bits(expected.im, value.imag())) << "n = " << n << ", " << threads << " threads";
        }
        for (const auto& p : sum.strings) {
            EXPECT_TRUE(support::same_bits(reference::term_value(state, p), library_value(state, p, 2).real()));
        }
    }
}

// Large enough for hundreds of sections.
TYPED_TEST(PauliValues, on_a_large_dyadic_state_every_number_of_threads_gives_the_sequential_sum_to_the_bit) {
    const unsigned int n = sizeof(TypeParam) == 8 ? 21 : 22;
    const auto state = dyadic_state<TypeParam>(n, 1);
    const PauliSum<TypeParam> sum = {
        {{1, 0}, {-2, 0}, {3, 0}}, {pauli(0, 0x155555), pauli(0x3, 0x1), pauli(0x18000f, 0x1f0f3)}, {0, 0}};
    const auto expected = reference::expectation_value(state, sum);
    for (const int threads : support::thread_counts) {
        const auto value =
            pbamplix::cpu::_expectation_value(amplitudes_of(state), compiled(sum), state.size(), threads);
        EXPECT_TRUE(support::same_bits(expected.re, value.real())) << threads << " threads";
    }
}

TYPED_TEST(PauliValues, more_terms_than_one_batch_holds_are_all_counted) {
    const unsigned int n = 6;
    const auto state = dyadic_state<TypeParam>(n, 8);
    const PauliSum<TypeParam> drawn = random_sum<TypeParam>(n, 9000, 2, 9);
    PauliSum<TypeParam> sum = drawn;
    for (auto& c : sum.coefficients) c = {1, 0};
    const auto expected = reference::expectation_value(state, sum);
    const auto value = pbamplix::cpu::_expectation_value(amplitudes_of(state), compiled(sum), state.size(), 3);
    EXPECT_TRUE(support::same_bits(expected.re, value.real()));
}

TYPED_TEST(PauliValues, on_dyadic_matrices_every_number_of_threads_gives_the_sequential_trace_to_the_bit) {
    const unsigned int m = 8;
    const auto rho = dyadic_state<TypeParam>(2 * m, 3);
    PauliSum<TypeParam> sum = random_sum<TypeParam>(m, 30, 4, 2);
    for (auto& c : sum.coefficients) c = {TypeParam(0.5), TypeParam(-1)};
    const auto expected = reference::expectation_value_density(rho, sum);
    for (const int threads : support::thread_counts) {
        const auto value =
            pbamplix::cpu::_expectation_value_density_matrix(amplitudes_of(rho), compiled(sum), threads, m);
        EXPECT_TRUE(support::same_bits(expected.re, value.real())) << threads << " threads";
        EXPECT_TRUE(support::same_bits(expected.im, value.imag())) << threads << " threads";
    }
}

// The entries that one flip reads, in a matrix too large to be stored: everything else is memory never touched.
template <class T>
class LargeBand {
public:
    LargeBand(unsigned int qubits, unsigned long flip, unsigned int seed) : dim_(1ul << qubits), flip_(flip) {
        void* const memory =
            mmap(nullptr, bytes(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) return;
        madvise(memory, bytes(), MADV_NOHUGEPAGE);
        matrix_ = static_cast<thrust::complex<T>*>(memory);
        const auto entries = support::random_state<T>(qubits, support::Values::ordinary, seed);
        for (unsigned long r = 0; r < dim_; ++r) matrix_[(r ^ flip) * dim_ + r] = support::as_thrust(entries[r]);
    }
    ~LargeBand() {
        if (matrix_ != nullptr) munmap(matrix_, bytes());
    }
    LargeBand(const LargeBand&) = delete;
    LargeBand& operator=(const LargeBand&) = delete;

    // Null where the system gives no such range of addresses.
    const thrust::complex<T>* matrix() const { return matrix_; }

    // Tr(rho Z...Z X...X): the entries in index order, each with its sign.
    thrust::complex<double> sequential(unsigned long phase) const {
        thrust::complex<double> sum = 0;
        for (unsigned long r = 0; r < dim_; ++r) {
            const thrust::complex<T> entry = matrix_[(r ^ flip_) * dim_ + r];
            const double sign = std::popcount(r & phase) % 2 == 0 ? 1 : -1;
            sum += thrust::complex<double>(sign * double(entry.real()), sign * double(entry.imag()));
        }
        return sum;
    }

private:
    unsigned long bytes() const { return dim_ * dim_ * sizeof(thrust::complex<T>); }

    unsigned long dim_;
    unsigned long flip_;
    thrust::complex<T>* matrix_ = nullptr;
};

TYPED_TEST(PauliValues, of_a_large_matrix_have_the_same_bits_for_every_number_of_threads) {
    // Four slabs: with fewer, no other division of the sum shows in its bits.
    const unsigned int m = sizeof(TypeParam) == 8 ? 14 : 15;
    const unsigned long flip = 0x1204;
    const LargeBand<TypeParam> band(m, flip, 4);
    if (band.matrix() == nullptr) {
        GTEST_SKIP() << "the system gives no " << (sizeof(thrust::complex<TypeParam>) << (2 * m)) << " addresses";
    }
    // No qubit that flips also counts a sign: no Y, no factor but the sign.
    WObservable<TypeParam> sum;
    for (const unsigned long phase : {0ul, 0x0001ul, 0x0c00ul, 0x0dfbul}) {
        sum.coefficients.push_back(thrust::complex<TypeParam>(1, 0));
        sum.flip_masks.push_back(flip);
        sum.phase_masks.push_back(phase);
        sum.y_counts.push_back(0);
    }
    for (unsigned long t = 0; t < sum.flip_masks.size(); ++t) {
        const auto value = [&](int threads) {
            return pbamplix::cpu::_term_value_density_matrix(band.matrix(), sum, threads, t, m);
        };
        const auto alone = value(1);
        const auto sequential = band.sequential(sum.phase_masks[t]);
        const double tolerance = double(1ul << m) * double(std::numeric_limits<TypeParam>::epsilon());
        EXPECT_NEAR(alone.real(), sequential.real(), tolerance);
        EXPECT_NEAR(alone.imag(), sequential.imag(), tolerance);
        for (const int threads : support::thread_counts) {
            support::WatchedRegions regions;
            const auto shared = value(threads);
            EXPECT_EQ(regions.thread_counts().empty(), threads == 1) << "shared by the threads";
            EXPECT_TRUE(support::same_bits(alone.real(), shared.real())) << threads << " threads";
            EXPECT_TRUE(support::same_bits(alone.imag(), shared.imag())) << threads << " threads";
        }
    }
}

}  // namespace
