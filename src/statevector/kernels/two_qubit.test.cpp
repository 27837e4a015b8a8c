#include "reference/two_qubit.hpp"
#include "support/kernel_check.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/kernels.hpp>

using namespace pbamplix::cpu;
using namespace support;
using reference::Qubits;
using reference::TwoQubit;

namespace {

// A kernel and its formula in the reference.
template <class Tag, TwoQubit formula_>
struct Row {
    static constexpr TwoQubit formula = formula_;
    static constexpr bool is_matrix = formula_ == TwoQubit::Matrix;
    static constexpr unsigned int params = is_matrix ? 16 : 0;
    static constexpr Values values = formula_ == TwoQubit::SWAP ? Values::any_bits : Values::unusual;
    static constexpr const char* names[7] = {"SWAP",         "ISWAP",        "SQRTSWAP", "HH",
                                             "ZtoYZtoYConj", "YtoZYtoZConj", "Matrix"};
    static constexpr const char* name = names[static_cast<int>(formula_)];

    template <class T>
    static void run(thrust::complex<T>* state, const Qubits& targets, unsigned int n, int threads,
                    const Qubits& controls, const std::vector<thrust::complex<T>>& m) {
        using kernel = Template2QBGate<Tag>;
        if constexpr (is_matrix) kernel::apply_controlled(state, targets[0], targets[1], n, threads, controls, m);
        if constexpr (!is_matrix) {
            kernel::template apply_controlled<T>(state, targets[0], targets[1], n, threads, controls);
        }
    }
};

using Rows =
    in_both_precisions<Row<GateSWAP, TwoQubit::SWAP>, Row<GateISWAP, TwoQubit::ISWAP>,
                       Row<GateSQRTSWAP, TwoQubit::SQRTSWAP>, Row<GateHH, TwoQubit::HH>,
                       Row<GateZtoYZtoYConj, TwoQubit::ZtoYZtoYConj>, Row<GateYtoZYtoZConj, TwoQubit::YtoZYtoZConj>,
                       Row<_Gate2QB<true>, TwoQubit::Matrix>>::types;

struct RowName {
    template <class C>
    static std::string GetName(int) {
        return std::string(C::tag::name) + "_" + precision_name<typename C::precision>;
    }
};

template <class C>
class two_qubit_kernel : public testing::Test {
protected:
    using row = typename C::tag;
    using Real = typename C::precision;

    static testing::AssertionResult agrees(GuardedArray<Real>& array, const reference::State<Real>& start,
                                           const Qubits& targets, const Qubits& controls,
                                           const std::vector<int>& threads) {
        const unsigned int n = reference::qubit_count(start.size());
        const auto m = random_coefficients<Real>(row::params, targets[0]);
        auto expected = start;
        reference::apply(row::formula, expected, targets[0], targets[1], controls, m);
        return kernel_agrees(array, start, expected, targets, controls, threads,
                             [&](thrust::complex<Real>* state, int count) {
                                 row::template run<Real>(state, targets, n, count, controls, as_thrust(m));
                             });
    }
};
TYPED_TEST_SUITE(two_qubit_kernel, Rows, RowName);

}  // namespace

TYPED_TEST(two_qubit_kernel, agrees_bit_for_bit_on_2_to_12_qubits) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 2; n <= 12; ++n) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        GuardedArray<T> array(start);
        for (const Qubits& targets : ordered_pairs(n)) {
            for (const Qubits& controls : control_sets(targets, n)) {
                ASSERT_TRUE(this->agrees(array, start, targets, controls, thread_counts));
            }
        }
    }
}

TYPED_TEST(two_qubit_kernel, agrees_bit_for_bit_when_threads_share_the_array) {
    using T = typename TypeParam::precision;
    // Low/low, low/high, high/low, mid/mid, high/high.
    for (const auto& [n, targets] : std::vector<std::pair<unsigned int, Qubits>>{
             {16, {1, 0}}, {16, {0, 15}}, {17, {15, 2}}, {17, {8, 9}}, {18, {17, 16}}}) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        GuardedArray<T> array(start);
        for (const Qubits& controls : telling_controls(targets, n)) {
            ASSERT_TRUE(this->agrees(array, start, targets, controls, {2, 3, 7}));
        }
    }
}

TYPED_TEST(two_qubit_kernel, accepts_an_array_off_the_64_byte_boundary) {
    using T = typename TypeParam::precision;
    for (unsigned int n : {2u, 4u, 7u}) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        for (unsigned long shift : {1ul, 2ul, 3ul}) {
            GuardedArray<T> array(start, shift);
            for (const Qubits& targets : ordered_pairs(n)) {
                ASSERT_TRUE(this->agrees(array, start, targets, {}, {1, 3}));
            }
        }
    }
}

TYPED_TEST(two_qubit_kernel, control_leaves_groups_with_its_bit_0_their_exact_bits) {
    using T = typename TypeParam::precision;
    const unsigned int n = 6;
    const auto start = random_state<T>(n, Values::any_bits);
    const auto m = as_thrust(random_coefficients<T>(TypeParam::tag::params));
    for (const Qubits& targets : ordered_pairs(n)) {
        for (unsigned int control = 0; control < n; ++control) {
            if (control == targets[0] || control == targets[1]) continue;
            GuardedArray<T> array(start);
            TypeParam::tag::template run<T>(array.data(), targets, n, 2, {control}, m);
            for (unsigned long i = 0; i < start.size(); ++i) {
                if ((i >> control) & 1) continue;
                ASSERT_EQ(std::memcmp(&start[i], array.data() + i, sizeof start[i]), 0)
                    << "index " << i << ", " << describe(n, targets, {control}, 2);
            }
        }
    }
}

TYPED_TEST(two_qubit_kernel, coinciding_qubits_write_nothing_outside_the_array) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 1; n <= 8; ++n) {
        GuardedArray<T> array(random_state<T>(n, Values::ordinary));
        const auto m = as_thrust(random_coefficients<T>(TypeParam::tag::params));
        for (unsigned int q = 0; q < n; ++q) {
            for (unsigned int p = 0; p < n; ++p) {
                for (const Qubits& controls : {Qubits{}, Qubits{q}, Qubits{p}, Qubits{p, p}}) {
                    TypeParam::tag::template run<T>(array.data(), {q, p}, n, 2, controls, m);
                    ASSERT_TRUE(array.fences_stand()) << describe(n, {q, p}, controls, 2);
                }
            }
        }
    }
}

PRECISION_SUITE(two_qubit_kernels);

namespace {

template <class T>
using Kernel = void (*)(thrust::complex<T>*, unsigned int, unsigned int, unsigned long, int, std::vector<unsigned int>);

template <class T>
void expect_near(const reference::State<T>& expected, const thrust::complex<T>* got) {
    const T tolerance = 8 * std::numeric_limits<T>::epsilon();
    for (unsigned long i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(expected[i].re, got[i].real(), tolerance) << "index " << i;
        EXPECT_NEAR(expected[i].im, got[i].imag(), tolerance) << "index " << i;
    }
}

}  // namespace

TYPED_TEST(two_qubit_kernels, symmetric_gates_take_their_qubits_in_either_order) {
    const Kernel<TypeParam> kernels[] = {Template2QBGate<GateSWAP>::apply_controlled<TypeParam>,
                                         Template2QBGate<GateISWAP>::apply_controlled<TypeParam>,
                                         Template2QBGate<GateSQRTSWAP>::apply_controlled<TypeParam>,
                                         Template2QBGate<GateHH>::apply_controlled<TypeParam>};
    // Of the sums of four, the exchange reorders the two in the middle: exact on small integers.
    reference::State<TypeParam> start(32);
    for (unsigned int i = 0; i < 32; ++i) start[i] = {TypeParam(i), TypeParam(3 * i) - 40};
    for (const auto kernel : kernels) {
        for (const Qubits& pair : ordered_pairs(5)) {
            GuardedArray<TypeParam> one_way(start), other_way(start);
            kernel(one_way.data(), pair[0], pair[1], 5, 1, {});
            kernel(other_way.data(), pair[1], pair[0], 5, 1, {});
            EXPECT_EQ(std::memcmp(one_way.data(), other_way.data(), 32 * sizeof(start[0])), 0) << describe(pair);
        }
    }
}

TYPED_TEST(two_qubit_kernels, conjugate_gates_in_the_other_order_exchange_their_factors) {
    // On |00> the gate leaves the product of both factors' first columns: (1, i) high, (1, -i) low.
    GuardedArray<TypeParam> one_way(4ul), other_way(4ul);
    const TypeParam h = TypeParam(0.5);
    one_way.load({{1, 0}, {0, 0}, {0, 0}, {0, 0}});
    Template2QBGate<GateZtoYZtoYConj>::apply_controlled<TypeParam>(one_way.data(), 1, 0, 2, 1, {});
    expect_near<TypeParam>({{h, 0}, {0, -h}, {0, h}, {h, 0}}, one_way.data());
    other_way.load({{1, 0}, {0, 0}, {0, 0}, {0, 0}});
    Template2QBGate<GateZtoYZtoYConj>::apply_controlled<TypeParam>(other_way.data(), 0, 1, 2, 1, {});
    expect_near<TypeParam>({{h, 0}, {0, h}, {0, -h}, {h, 0}}, other_way.data());
}

TYPED_TEST(two_qubit_kernels, matrix_has_qubit1_as_high_bit) {
    // X on the first listed qubit, nothing on the second.
    std::vector<thrust::complex<TypeParam>> m(16);
    m[0 * 4 + 2] = m[1 * 4 + 3] = m[2 * 4 + 0] = m[3 * 4 + 1] = TypeParam(1);
    GuardedArray<TypeParam> array(4ul);
    array.load({{1, 0}, {0, 0}, {0, 0}, {0, 0}});
    Template2QBGate<_Gate2QB<true>>::apply_controlled(array.data(), 1, 0, 2, 1, {}, m);
    expect_near<TypeParam>({{0, 0}, {0, 0}, {1, 0}, {0, 0}}, array.data());
    array.load({{1, 0}, {0, 0}, {0, 0}, {0, 0}});
    Template2QBGate<_Gate2QB<true>>::apply_controlled(array.data(), 0, 1, 2, 1, {}, m);
    expect_near<TypeParam>({{0, 0}, {1, 0}, {0, 0}, {0, 0}}, array.data());
}

TYPED_TEST(two_qubit_kernels, sqrtswap_twice_is_swap_up_to_rounding) {
    const auto start = random_state<TypeParam>(5, Values::ordinary);
    for (const Qubits& pair : ordered_pairs(5)) {
        GuardedArray<TypeParam> array(start);
        auto expected = start;
        reference::apply(TwoQubit::SWAP, expected, pair[0], pair[1], {});
        for (int i = 0; i < 2; ++i) {
            Template2QBGate<GateSQRTSWAP>::apply_controlled<TypeParam>(array.data(), pair[0], pair[1], 5, 1, {});
        }
        expect_near(expected, array.data());
    }
}

TYPED_TEST(two_qubit_kernels, iswap_twice_negates_01_and_10) {
    const auto start = random_state<TypeParam>(4, Values::ordinary);
    for (const Qubits& pair : ordered_pairs(4)) {
        GuardedArray<TypeParam> array(start);
        for (int i = 0; i < 2; ++i) {
            Template2QBGate<GateISWAP>::apply_controlled<TypeParam>(array.data(), pair[0], pair[1], 4, 1, {});
        }
        for (unsigned long i = 0; i < start.size(); ++i) {
            const TypeParam sign = ((i >> pair[0]) & 1) != ((i >> pair[1]) & 1) ? TypeParam(-1) : TypeParam(1);
            EXPECT_EQ(sign * start[i].re, array.data()[i].real()) << "index " << i << ", " << describe(pair);
            EXPECT_EQ(sign * start[i].im, array.data()[i].imag()) << "index " << i << ", " << describe(pair);
        }
    }
}

TYPED_TEST(two_qubit_kernels, z_to_y_pair_then_y_to_z_pair_returns_the_state_up_to_rounding) {
    const auto start = random_state<TypeParam>(5, Values::ordinary);
    for (const Qubits& pair : ordered_pairs(5)) {
        GuardedArray<TypeParam> array(start);
        Template2QBGate<GateZtoYZtoYConj>::apply_controlled<TypeParam>(array.data(), pair[0], pair[1], 5, 1, {});
        Template2QBGate<GateYtoZYtoZConj>::apply_controlled<TypeParam>(array.data(), pair[0], pair[1], 5, 1, {});
        expect_near(start, array.data());
    }
}
