#include "reference/one_qubit.hpp"
#include "support/kernel_check.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/kernels.hpp>

using namespace pbamplix::cpu;
using namespace support;
using reference::OneQubit;
using reference::Qubits;

namespace {

// A kernel, its formula in the reference, and how many coefficients it takes.
template <class Tag, OneQubit formula_, unsigned int params_>
struct Row {
    static constexpr OneQubit formula = formula_;
    static constexpr unsigned int params = params_;
    static constexpr bool moves_only = formula_ == OneQubit::X || formula_ == OneQubit::Y;
    static constexpr Values values = moves_only ? Values::any_bits : Values::unusual;
    static constexpr const char* names[8] = {"X", "Y", "H", "ZtoY", "YtoZ", "RX", "RY", "Matrix"};
    static constexpr const char* name = names[static_cast<int>(formula_)];

    template <class T>
    static void run(thrust::complex<T>* state, unsigned int qubit, unsigned int n, int threads, const Qubits& controls,
                    const std::vector<thrust::complex<T>>& m) {
        using kernel = Template1QBGate<Tag>;
        if constexpr (params == 0) kernel::template apply_controlled<T>(state, qubit, n, threads, controls);
        if constexpr (params == 2) kernel::apply_controlled(state, qubit, n, threads, controls, m[0], m[1]);
        if constexpr (params == 4) kernel::apply_controlled(state, qubit, n, threads, controls, m[0], m[1], m[2], m[3]);
    }
};

using Rows =
    in_both_precisions<Row<GateX, OneQubit::X, 0>, Row<GateY, OneQubit::Y, 0>, Row<GateH, OneQubit::H, 0>,
                       Row<GateZtoY, OneQubit::ZtoY, 0>, Row<GateYtoZ, OneQubit::YtoZ, 0>, Row<GateRX, OneQubit::RX, 2>,
                       Row<GateRY, OneQubit::RY, 2>, Row<_Gate1QB<true>, OneQubit::Matrix, 4>>::types;

struct RowName {
    template <class C>
    static std::string GetName(int) {
        return std::string(C::tag::name) + "_" + precision_name<typename C::precision>;
    }
};

template <class C>
class one_qubit_kernel : public testing::Test {
protected:
    using row = typename C::tag;
    using Real = typename C::precision;

    static testing::AssertionResult agrees(GuardedArray<Real>& array, const reference::State<Real>& start,
                                           unsigned int target, const Qubits& controls,
                                           const std::vector<int>& threads) {
        const unsigned int n = reference::qubit_count(start.size());
        const auto m = random_coefficients<Real>(row::params, target);
        auto expected = start;
        reference::apply(row::formula, expected, target, controls, m);
        return kernel_agrees(array, start, expected, {target}, controls, threads,
                             [&](thrust::complex<Real>* state, int count) {
                                 row::template run<Real>(state, target, n, count, controls, as_thrust(m));
                             });
    }
};
TYPED_TEST_SUITE(one_qubit_kernel, Rows, RowName);

}  // namespace

TYPED_TEST(one_qubit_kernel, agrees_bit_for_bit_on_1_to_12_qubits) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 1; n <= 12; ++n) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        GuardedArray<T> array(start);
        for (unsigned int target = 0; target < n; ++target) {
            for (const Qubits& controls : control_sets({target}, n)) {
                ASSERT_TRUE(this->agrees(array, start, target, controls, thread_counts));
            }
        }
    }
}

TYPED_TEST(one_qubit_kernel, agrees_bit_for_bit_when_threads_share_the_array) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 16; n <= 18; ++n) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        GuardedArray<T> array(start);
        for (unsigned int target : telling_qubits(n)) {
            for (const Qubits& controls : telling_controls({target}, n)) {
                ASSERT_TRUE(this->agrees(array, start, target, controls, {2, 3, 7}));
            }
        }
    }
}

TYPED_TEST(one_qubit_kernel, accepts_an_array_off_the_64_byte_boundary) {
    using T = typename TypeParam::precision;
    for (unsigned int n : {1u, 4u, 7u}) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        for (unsigned long shift : {1ul, 2ul, 3ul}) {
            GuardedArray<T> array(start, shift);
            for (unsigned int target = 0; target < n; ++target) {
                ASSERT_TRUE(this->agrees(array, start, target, {}, {1, 3}));
            }
        }
    }
}

TYPED_TEST(one_qubit_kernel, control_leaves_amplitudes_with_its_bit_0_their_exact_bits) {
    using T = typename TypeParam::precision;
    const unsigned int n = 7;
    // Any NaN may lie where nothing is computed.
    const auto start = random_state<T>(n, Values::any_bits);
    for (unsigned int target = 0; target < n; ++target) {
        for (unsigned int control = 0; control < n; ++control) {
            if (control == target) continue;
            GuardedArray<T> array(start);
            const auto m = as_thrust(random_coefficients<T>(TypeParam::tag::params));
            TypeParam::tag::template run<T>(array.data(), target, n, 2, {control}, m);
            for (unsigned long i = 0; i < start.size(); ++i) {
                if ((i >> control) & 1) continue;
                ASSERT_EQ(std::memcmp(&start[i], array.data() + i, sizeof start[i]), 0)
                    << "index " << i << ", target " << target << ", control " << control;
            }
        }
    }
}

TYPED_TEST(one_qubit_kernel, one_qubit_without_controls_is_one_pair) {
    using T = typename TypeParam::precision;
    const auto start = random_state<T>(1, Values::ordinary, 3);
    GuardedArray<T> array(start);
    EXPECT_TRUE(this->agrees(array, start, 0, {}, thread_counts));
}

TYPED_TEST(one_qubit_kernel, control_on_every_other_qubit_leaves_one_pair) {
    using T = typename TypeParam::precision;
    const unsigned int n = 9, target = 4;
    const Qubits others = {8, 0, 1, 7, 2, 3, 5, 6};
    const auto start = random_state<T>(n, Values::ordinary, 4);
    GuardedArray<T> array(start);
    EXPECT_TRUE(this->agrees(array, start, target, others, thread_counts));
    unsigned long changed = 0;
    for (unsigned long i = 0; i < start.size(); ++i) {
        if (std::memcmp(&start[i], array.data() + i, sizeof start[i]) == 0) continue;
        ++changed;
        EXPECT_EQ(i | 1ul << target, start.size() - 1) << "outside the pair";
    }
    EXPECT_EQ(changed, 2ul);
}

TYPED_TEST(one_qubit_kernel, more_threads_than_pairs_leave_the_rest_idle) {
    using T = typename TypeParam::precision;
    const auto start = random_state<T>(2, Values::ordinary, 5);
    GuardedArray<T> array(start);
    EXPECT_TRUE(this->agrees(array, start, 1, {}, {3, 64}));
    EXPECT_TRUE(this->agrees(array, start, 1, {0}, {2, 64}));
}

TYPED_TEST(one_qubit_kernel, coinciding_qubits_write_nothing_outside_the_array) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 1; n <= 8; ++n) {
        GuardedArray<T> array(random_state<T>(n, Values::ordinary));
        const auto m = as_thrust(random_coefficients<T>(TypeParam::tag::params));
        for (unsigned int q = 0; q < n; ++q) {
            for (const Qubits& controls : {Qubits{q}, Qubits{(q + 1) % n, (q + 1) % n}, Qubits{q, q}}) {
                TypeParam::tag::template run<T>(array.data(), q, n, 2, controls, m);
                ASSERT_TRUE(array.fences_stand()) << describe(n, {q}, controls, 2);
            }
        }
    }
}

PRECISION_SUITE(one_qubit_kernels);

TYPED_TEST(one_qubit_kernels, h_twice_keeps_its_last_bit) {
    GuardedArray<TypeParam> array(2ul);
    array.load({{1, 0}, {0, 0}});
    Template1QBGate<GateH>::apply_controlled<TypeParam>(array.data(), 0, 1, 1, {});
    const TypeParam c = std::is_same_v<TypeParam, double> ? TypeParam(0.7071067811865475) : TypeParam(0.70710677f);
    EXPECT_TRUE(same_bits<TypeParam>({{c, 0}, {c, 0}}, array.data()));
    Template1QBGate<GateH>::apply_controlled<TypeParam>(array.data(), 0, 1, 1, {});
    EXPECT_TRUE(same_bits<TypeParam>({{(c + c) * c, 0}, {0, 0}}, array.data()));
}

TEST(one_qubit_kernels_in_double, h_on_basis_state_0_has_a_norm_one_unit_short_of_1) {
    GuardedArray<double> array(2ul);
    array.load({{1, 0}, {0, 0}});
    Template1QBGate<GateH>::apply_controlled<double>(array.data(), 0, 1, 1, {});
    EXPECT_EQ(array.data()[0].real(), 0.7071067811865475);
    EXPECT_EQ(array.data()[1].real(), 0.7071067811865475);
    const double a = array.data()[0].real(), b = array.data()[1].real();
    EXPECT_EQ(a * a + b * b, 0.9999999999999998);
    Template1QBGate<GateH>::apply_controlled<double>(array.data(), 0, 1, 1, {});
    EXPECT_EQ(array.data()[0].real(), 0.9999999999999998);
    EXPECT_EQ(array.data()[1].real(), 0.0);
}

TYPED_TEST(one_qubit_kernels, z_to_y_then_y_to_z_returns_the_state_up_to_rounding) {
    const TypeParam tolerance = 4 * std::numeric_limits<TypeParam>::epsilon();
    for (unsigned int qubit = 0; qubit < 5; ++qubit) {
        const auto start = random_state<TypeParam>(5, Values::ordinary);
        GuardedArray<TypeParam> array(start);
        Template1QBGate<GateZtoY>::apply_controlled<TypeParam>(array.data(), qubit, 5, 1, {});
        Template1QBGate<GateYtoZ>::apply_controlled<TypeParam>(array.data(), qubit, 5, 1, {});
        for (unsigned long i = 0; i < start.size(); ++i) {
            EXPECT_NEAR(start[i].re, array.data()[i].real(), tolerance);
            EXPECT_NEAR(start[i].im, array.data()[i].imag(), tolerance);
        }
    }
}

namespace {

// RX and RY with their own kind of coefficients against the reference, on one state.
template <class T>
testing::AssertionResult rotations_agree(const reference::State<T>& start, unsigned int target, T cosine, T sine) {
    const unsigned int n = reference::qubit_count(start.size());
    GuardedArray<T> array(start);
    const auto agrees = [&](OneQubit formula, const std::vector<reference::Complex<T>>& m) {
        auto expected = start;
        reference::apply(formula, expected, target, {}, m);
        return kernel_agrees(array, start, expected, {target}, {}, {1}, [&](thrust::complex<T>* state, int) {
            const auto c = as_thrust(m);
            if (formula == OneQubit::RX) {
                Template1QBGate<GateRX>::apply_controlled<T>(state, target, n, 1, {}, c[0], c[1]);
            } else {
                Template1QBGate<GateRY>::apply_controlled<T>(state, target, n, 1, {}, c[0], c[1]);
            }
        });
    };
    const auto x = agrees(OneQubit::RX, {{cosine, 0}, {0, -sine}});
    return x ? agrees(OneQubit::RY, {{cosine, 0}, {sine, 0}}) : x;
}

}  // namespace

// The products with the zeros of a rotation's matrix show only next to zeros, infinities and NaNs.
TYPED_TEST(one_qubit_kernels, rotations_of_a_state_with_one_unusual_part_agree_bit_for_bit) {
    using limits = std::numeric_limits<TypeParam>;
    const TypeParam made_by_the_processor = -limits::quiet_NaN();
    for (const TypeParam unusual : {TypeParam(0), -TypeParam(0), limits::infinity(), -limits::infinity(),
                                    made_by_the_processor, limits::denorm_min(), -limits::max()}) {
        for (unsigned long at = 0; at < 64; ++at) {
            auto start = random_state<TypeParam>(6, Values::ordinary, 7);
            (at % 2 == 0 ? start[at / 2].re : start[at / 2].im) = unusual;
            for (unsigned int target = 0; target < 6; ++target) {
                ASSERT_TRUE(rotations_agree(start, target, TypeParam(0.8), TypeParam(-0.6))) << unusual << " at " << at;
            }
        }
    }
}

TYPED_TEST(one_qubit_kernels, rotations_that_cancel_or_multiply_by_zero_agree_bit_for_bit) {
    using limits = std::numeric_limits<TypeParam>;
    for (unsigned int n : {1u, 4u, 8u}) {
        for (unsigned int target = 0; target < n; ++target) {
            // Sums that vanish, products that vanish, states of zeros with every pair of signs.
            const auto ordinary = random_state<TypeParam>(n, Values::ordinary, 8);
            auto equal = ordinary, tiny = ordinary, zeros = ordinary;
            for (unsigned long i = 0; i < equal.size(); ++i) {
                equal[i] = {1, -1};
                tiny[i] = {limits::min(), -limits::denorm_min()};
                zeros[i] = {i % 3 == 0 ? TypeParam(0) : -TypeParam(0), i % 5 < 3 ? TypeParam(0) : -TypeParam(0)};
            }
            for (const auto& [cosine, sine] : {std::pair<TypeParam, TypeParam>(TypeParam(0.6), TypeParam(0.6)),
                                               {TypeParam(0.6), TypeParam(-0.6)},
                                               {1, 0},
                                               {1, -TypeParam(0)},
                                               {-1, 0},
                                               {0, 1},
                                               {-TypeParam(0), -1}}) {
                for (const auto& start : {ordinary, equal, tiny, zeros}) {
                    ASSERT_TRUE(rotations_agree(start, target, cosine, sine)) << cosine << ' ' << sine;
                }
            }
        }
    }
}
