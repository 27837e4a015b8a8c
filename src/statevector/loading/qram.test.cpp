#include "reference/loading.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <velacamplix/loading.hpp>

#include <bit>

namespace {

using reference::Qubits;
using reference::State;
using Data = std::vector<reference::Complex<double>>;

PRECISION_SUITE(Qram);

template <class T>
unsigned int qubits_of(const State<T>& state) {
    return static_cast<unsigned int>(std::countr_zero(state.size()));
}

template <class T>
void load(support::GuardedArray<T>& state, unsigned int n, const Data& data, const Qubits& qubits,
          unsigned int naddress, int threads = 1) {
    pbamplix::cpu::_qram(state.data(), reinterpret_cast<const thrust::complex<double>*>(data.data()), n, qubits,
                         naddress, threads);
}

template <class T>
void expect_the_literal_load(const State<T>& start, const Data& data, const Qubits& qubits, unsigned int naddress,
                             int threads, unsigned long shifted_by = 0) {
    auto expected = start;
    reference::qram(expected, data, qubits, naddress);
    support::GuardedArray<T> got(start, shifted_by);
    load(got, qubits_of(start), data, qubits, naddress, threads);
    EXPECT_TRUE(support::same_bits(expected, got.data()))
        << support::describe(qubits_of(start), qubits, {}, threads) << ", " << naddress << " for the address";
    EXPECT_TRUE(got.fences_stand());
}

TYPED_TEST(Qram, a_block_of_zero_real_parts_writes_zeros_to_its_whole_address) {
    const auto start = support::random_state<TypeParam>(3, support::Values::ordinary);
    support::GuardedArray<TypeParam> state(start);
    // Address 1 (qubit 0) has zeros, address 0 has a block.
    load(state, 3, {{3, 0}, {4, 0}, {0, 0}, {0, 0}}, {0, 1}, 1);
    for (const unsigned long i : {1ul, 3ul, 5ul, 7ul}) {
        EXPECT_EQ(state.data()[i].real(), TypeParam(0));
        EXPECT_EQ(state.data()[i].imag(), TypeParam(0));
    }
    EXPECT_EQ(state.data()[0].real(), start[0].re / 5 * 3);
    EXPECT_EQ(state.data()[2].real(), start[0].re / 5 * 4);
}

TYPED_TEST(Qram, a_block_of_zero_real_parts_leaves_the_amplitude_undivided) {
    State<TypeParam> start = {{std::numeric_limits<TypeParam>::max(), 1}, {0, 0}};
    // Divided by zero it would be infinite, and infinity times zero is not a number.
    expect_the_literal_load<TypeParam>(start, {{0, 5}, {-0.0, 2}}, {0}, 0, 1);
}

TYPED_TEST(Qram, purely_imaginary_data_writes_zeros) {
    support::GuardedArray<TypeParam> state(support::random_state<TypeParam>(2, support::Values::ordinary));
    load(state, 2, {{0, 1}, {0, 2}, {0, 3}, {0, 4}}, {0, 1}, 0);
    for (unsigned long i = 0; i < 4; ++i) {
        EXPECT_EQ(state.data()[i].real(), TypeParam(0));
        EXPECT_EQ(state.data()[i].imag(), TypeParam(0));
    }
}

TYPED_TEST(Qram, without_address_qubits_every_group_takes_block_0) {
    const auto start = support::random_state<TypeParam>(4, support::Values::ordinary);
    expect_the_literal_load<TypeParam>(start, {{1, 0}, {2, 7}, {-2, 0}, {4, 0}}, {2, 0}, 0, 1);
}

TYPED_TEST(Qram, without_value_qubits_amplitudes_take_the_sign_of_their_datum) {
    const auto start = support::random_state<TypeParam>(4, support::Values::ordinary);
    expect_the_literal_load<TypeParam>(start, {{1, 0}, {-2, 0}, {0, 1}, {0.3, 0}}, {3, 1}, 2, 1);
}

TYPED_TEST(Qram, every_division_of_random_lists_gives_the_literal_bits) {
    std::mt19937 engine(1);
    for (unsigned int n = 1; n <= 11; n += 2) {
        for (unsigned int k = 1; k <= n; k += 2) {
            const auto qubits = support::random_qubits(k, n, engine);
            const auto data = support::random_coefficients<double>(1ul << k, k);
            for (unsigned int naddress = 0; naddress <= k; ++naddress) {
                for (const int threads : support::thread_counts) {
                    expect_the_literal_load(support::random_state<TypeParam>(n, support::Values::unusual, naddress),
                                            data, qubits, naddress, threads, n % 4);
                }
            }
        }
    }
}

TYPED_TEST(Qram, large_registers_shared_by_threads_give_the_literal_bits) {
    std::mt19937 engine(2);
    const unsigned int n = 16;
    const auto start = support::random_state<TypeParam>(n, support::Values::ordinary);
    for (const unsigned int k : {5u, 14u, 16u}) {
        const auto data = support::random_coefficients<double>(1ul << k, k);
        for (const int threads : support::thread_counts) {
            expect_the_literal_load(start, data, support::random_qubits(k, n, engine), k / 2, threads);
        }
    }
}

TYPED_TEST(Qram, numbers_beyond_single_precision_round_as_written) {
    const auto start = support::random_state<TypeParam>(3, support::Values::ordinary);
    // Squares are taken in double: of 1e-30 and 1e25 they fit there alone.
    expect_the_literal_load<TypeParam>(start, {{1e-30, 0}, {1e-31, 0}, {1e25, 0}, {1, 0}}, {1, 0}, 1, 1);
    expect_the_literal_load<TypeParam>(start, {{0.1, 0}, {1.0 / 3, 0}, {-0.7, 0}, {1e-3, 0}}, {0, 2}, 1, 1);
}

TYPED_TEST(Qram, a_qubit_listed_twice_never_leads_outside_the_array) {
    const auto data = support::random_coefficients<double>(256, 3);
    for (const Qubits& qubits : {Qubits{0, 0}, Qubits{2, 1, 2}, Qubits{3, 3, 1, 1}}) {
        for (unsigned int naddress = 0; naddress <= qubits.size(); ++naddress) {
            for (const int threads : support::thread_counts) {
                expect_the_literal_load(support::random_state<TypeParam>(6, support::Values::ordinary), data, qubits,
                                        naddress, threads);
            }
        }
    }
    support::GuardedArray<TypeParam> state(support::random_state<TypeParam>(2, support::Values::ordinary));
    load(state, 2, data, {1, 1, 0, 1, 0}, 2);
    EXPECT_TRUE(state.fences_stand());
}

}  // namespace
