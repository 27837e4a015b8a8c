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
using Values = std::vector<unsigned long>;

PRECISION_SUITE(BinaryQram);

template <class T>
unsigned int qubits_of(const State<T>& state) {
    return static_cast<unsigned int>(std::countr_zero(state.size()));
}

template <class T>
void expect_the_literal_move(const State<T>& start, const Values& data, const Qubits& qubits, unsigned int naddress,
                             int threads) {
    auto expected = start;
    reference::binary_qram(expected, data, qubits, naddress);
    support::GuardedArray<T> got(start);
    pbamplix::cpu::_binary_qram(got.data(), data.data(), qubits_of(start), qubits, naddress, threads);
    EXPECT_TRUE(support::same_bits(expected, got.data()))
        << support::describe(qubits_of(start), qubits, {}, threads) << ", " << naddress << " for the address";
    EXPECT_TRUE(got.fences_stand());
}

TYPED_TEST(BinaryQram, the_value_0_changes_nothing_for_its_address) {
    const auto start = support::random_state<TypeParam>(3, support::Values::any_bits);
    expect_the_literal_move<TypeParam>(start, {0, 0}, {1, 0, 2}, 1, 1);
    support::GuardedArray<TypeParam> state(start);
    const Values data = {0, 2};
    pbamplix::cpu::_binary_qram(state.data(), data.data(), 3, {1, 0, 2}, 1, 1);
    for (const unsigned long i : {0ul, 1ul, 4ul, 5ul}) {  // qubit 1 reads 0
        EXPECT_EQ(std::memcmp(&start[i], state.data() + i, sizeof(start[i])), 0) << i;
    }
}

TYPED_TEST(BinaryQram, the_amplitude_moves_to_its_value_and_leaves_zero) {
    State<TypeParam> start(8);
    start[0] = {TypeParam(0.6), 0};
    start[1] = {0, TypeParam(0.8)};
    support::GuardedArray<TypeParam> state(start);
    const Values data = {3, 1};
    pbamplix::cpu::_binary_qram(state.data(), data.data(), 3, {0, 1, 2}, 1, 1);
    EXPECT_EQ(state.data()[6], thrust::complex<TypeParam>(TypeParam(0.6), 0));
    EXPECT_EQ(state.data()[3], thrust::complex<TypeParam>(0, TypeParam(0.8)));
    EXPECT_EQ(state.data()[0], thrust::complex<TypeParam>(0, 0));
    EXPECT_EQ(state.data()[1], thrust::complex<TypeParam>(0, 0));
}

TYPED_TEST(BinaryQram, without_address_qubits_every_group_takes_value_0_of_the_data) {
    expect_the_literal_move<TypeParam>(support::random_state<TypeParam>(4, support::Values::any_bits), {2}, {3, 0}, 0,
                                       1);
}

TYPED_TEST(BinaryQram, higher_bits_of_a_value_are_ignored) {
    const auto start = support::random_state<TypeParam>(4, support::Values::any_bits);
    auto expected = start;
    reference::binary_qram<TypeParam>(expected, {1, 2}, {0, 2, 3}, 1);
    support::GuardedArray<TypeParam> state(start);
    const Values data = {0xfffffffffffffff1ul & ~0xeul, 0x80000000000000f2ul};
    pbamplix::cpu::_binary_qram(state.data(), data.data(), 4, {0, 2, 3}, 1, 1);
    EXPECT_TRUE(support::same_bits(expected, state.data()));
}

TYPED_TEST(BinaryQram, every_division_of_random_lists_gives_the_literal_bits) {
    std::mt19937_64 values(4);
    std::mt19937 engine(3);
    for (unsigned int n = 1; n <= 11; n += 2) {
        for (unsigned int k = 1; k <= n; k += 2) {
            const auto qubits = support::random_qubits(k, n, engine);
            for (unsigned int naddress = 0; naddress <= k; ++naddress) {
                Values data(1ul << naddress);
                for (auto& d : data) d = values();
                for (const int threads : support::thread_counts) {
                    expect_the_literal_move(support::random_state<TypeParam>(n, support::Values::any_bits, naddress),
                                            data, qubits, naddress, threads);
                }
            }
        }
    }
}

TYPED_TEST(BinaryQram, large_registers_shared_by_threads_give_the_literal_bits) {
    std::mt19937_64 values(6);
    std::mt19937 engine(7);
    const unsigned int n = 16;
    const auto start = support::random_state<TypeParam>(n, support::Values::any_bits);
    for (const auto& [k, naddress] : {std::pair{3u, 1u}, {5u, 0u}, {10u, 9u}, {16u, 8u}, {16u, 15u}}) {
        Values data(1ul << naddress);
        for (auto& d : data) d = values();
        const auto qubits = support::random_qubits(k, n, engine);
        for (const int threads : support::thread_counts) {
            expect_the_literal_move(start, data, qubits, naddress, threads);
        }
    }
    // Qubits above the packs only: amplitudes move several at a time.
    Values data(1ul << 6);
    for (auto& d : data) d = values();
    for (const int threads : support::thread_counts) {
        expect_the_literal_move(start, data, {15, 8, 4, 11, 6, 9, 14, 5}, 6, threads);
    }
}

TYPED_TEST(BinaryQram, a_qubit_listed_twice_never_leads_outside_the_array) {
    std::mt19937_64 values(5);
    Values data(16);
    for (auto& d : data) d = values();
    for (const Qubits& qubits : {Qubits{0, 0}, Qubits{2, 1, 2}, Qubits{3, 3, 1, 1}}) {
        for (unsigned int naddress = 0; naddress <= qubits.size(); ++naddress) {
            for (const int threads : support::thread_counts) {
                expect_the_literal_move(support::random_state<TypeParam>(6, support::Values::any_bits), data, qubits,
                                        naddress, threads);
            }
        }
    }
}

}  // namespace
