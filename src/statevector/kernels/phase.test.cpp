#include "reference/diagonal.hpp"
#include "support/kernel_check.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/kernels.hpp>

using namespace pbamplix::cpu;
using namespace support;
using reference::Phase;
using reference::Qubits;

namespace {

// Z, S and T: the factor follows from the tag.
template <class Tag, Phase formula_>
struct Fixed {
    static constexpr Phase formula = formula_;
    static constexpr Values values = formula_ == Phase::Z ? Values::any_bits : Values::unusual;
    static constexpr const char* name = formula_ == Phase::Z ? "Z" : formula_ == Phase::S ? "S" : "T";

    template <class T>
    static void run(thrust::complex<T>* state, const Qubits& targets, unsigned int n, int threads,
                    const Qubits& controls, thrust::complex<T>) {
        using kernel = _TemplatePartialDiagGate<Tag, true>;
        if (controls.empty()) {
            kernel::template apply<T>(state, targets, n, threads);
        } else {
            kernel::template apply_controlled<T>(state, targets, n, threads, controls);
        }
    }
};

// PH: the tag's value carries the factor.
struct Carried {
    static constexpr Phase formula = Phase::PH;
    static constexpr Values values = Values::unusual;
    static constexpr const char* name = "PH";

    template <class T>
    static void run(thrust::complex<T>* state, const Qubits& targets, unsigned int n, int threads,
                    const Qubits& controls, thrust::complex<T> factor) {
        using kernel = _TemplatePartialDiagGate<GatePH<T>, false>;
        if (controls.empty()) {
            kernel::template apply<T>(state, targets, n, threads, GatePH<T>{factor});
        } else {
            kernel::template apply_controlled<T>(state, targets, n, threads, controls, GatePH<T>{factor});
        }
    }
};

using Rows = in_both_precisions<Fixed<GateZ, Phase::Z>, Fixed<GateS, Phase::S>, Fixed<GateT, Phase::T>, Carried>::types;

struct RowName {
    template <class C>
    static std::string GetName(int) {
        return std::string(C::tag::name) + "_" + precision_name<typename C::precision>;
    }
};

template <class C>
class phase_kernel : public testing::Test {
protected:
    using row = typename C::tag;
    using Real = typename C::precision;

    static testing::AssertionResult agrees(GuardedArray<Real>& array, const reference::State<Real>& start,
                                           const Qubits& targets, const Qubits& controls,
                                           const std::vector<int>& threads) {
        const unsigned int n = reference::qubit_count(start.size());
        const auto factor = random_coefficients<Real>(1, targets.empty() ? 0 : targets[0])[0];
        auto expected = start;
        reference::apply(row::formula, expected, targets, controls, factor);
        return kernel_agrees(array, start, expected, targets, controls, threads,
                             [&](thrust::complex<Real>* state, int count) {
                                 row::template run<Real>(state, targets, n, count, controls, as_thrust(factor));
                             });
    }
};
TYPED_TEST_SUITE(phase_kernel, Rows, RowName);

}  // namespace

TYPED_TEST(phase_kernel, agrees_bit_for_bit_on_1_to_12_qubits) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 1; n <= 12; ++n) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        GuardedArray<T> array(start);
        for (unsigned int target = 0; target < n; ++target) {
            for (const Qubits& controls : control_sets({target}, n)) {
                ASSERT_TRUE(this->agrees(array, start, {target}, controls, thread_counts));
            }
        }
    }
}

TYPED_TEST(phase_kernel, agrees_bit_for_bit_when_threads_share_the_array) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 16; n <= 18; ++n) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        GuardedArray<T> array(start);
        for (unsigned int target : telling_qubits(n)) {
            for (const Qubits& controls : telling_controls({target}, n)) {
                ASSERT_TRUE(this->agrees(array, start, {target}, controls, {2, 3, 7}));
            }
        }
    }
}

TYPED_TEST(phase_kernel, of_several_targets_touches_local_index_1_alone) {
    using T = typename TypeParam::precision;
    const unsigned int n = 7;
    std::mt19937 engine(1);
    const auto start = random_state<T>(n, TypeParam::tag::values);
    GuardedArray<T> array(start);
    for (unsigned int k = 2; k <= 6; ++k) {
        for (int trial = 0; trial < 8; ++trial) {
            Qubits targets = random_qubits(n, n, engine);
            const Qubits controls(targets.begin() + k, targets.begin() + k + (n - k + 1) / 2);
            targets.resize(k);
            ASSERT_TRUE(this->agrees(array, start, targets, {}, thread_counts));
            ASSERT_TRUE(this->agrees(array, start, targets, controls, thread_counts));
            for (unsigned long i = 0; i < start.size(); ++i) {
                bool is_one = (i >> targets[k - 1]) & 1;
                for (unsigned int t = 0; t + 1 < k; ++t) is_one = is_one && ((i >> targets[t]) & 1) == 0;
                if (!is_one) {
                    ASSERT_EQ(std::memcmp(&start[i], array.data() + i, sizeof start[i]), 0) << describe(targets);
                }
            }
        }
    }
}

TYPED_TEST(phase_kernel, of_no_targets_touches_nothing) {
    using T = typename TypeParam::precision;
    const auto start = random_state<T>(4, Values::any_bits);
    GuardedArray<T> array(start);
    EXPECT_TRUE(this->agrees(array, start, {}, {}, thread_counts));
    EXPECT_TRUE(this->agrees(array, start, {}, {2}, thread_counts));
    EXPECT_TRUE(same_bits(start, array.data()));
}

TYPED_TEST(phase_kernel, accepts_an_array_off_the_64_byte_boundary) {
    using T = typename TypeParam::precision;
    for (unsigned int n : {1u, 4u, 7u}) {
        const auto start = random_state<T>(n, TypeParam::tag::values);
        for (unsigned long shift : {1ul, 2ul, 3ul}) {
            GuardedArray<T> array(start, shift);
            for (unsigned int target = 0; target < n; ++target) {
                ASSERT_TRUE(this->agrees(array, start, {target}, {}, {1, 3}));
            }
        }
    }
}

TYPED_TEST(phase_kernel, coinciding_qubits_write_nothing_outside_the_array) {
    using T = typename TypeParam::precision;
    for (unsigned int n = 1; n <= 8; ++n) {
        GuardedArray<T> array(random_state<T>(n, Values::ordinary));
        for (unsigned int q = 0; q < n; ++q) {
            for (const Qubits& targets : {Qubits{q}, Qubits{q, q}, Qubits{q, (q + 1) % n, q}}) {
                for (const Qubits& controls : {Qubits{}, Qubits{q}, Qubits{q, q}}) {
                    TypeParam::tag::template run<T>(array.data(), targets, n, 2, controls, {1, 2});
                    ASSERT_TRUE(array.fences_stand()) << describe(n, targets, controls, 2);
                }
            }
        }
    }
}

PRECISION_SUITE(phase_kernels);

TYPED_TEST(phase_kernels, z_negates_exactly_the_amplitudes_with_bit_q_set) {
    const unsigned int n = 6;
    const auto start = random_state<TypeParam>(n, Values::any_bits);
    for (unsigned int q = 0; q < n; ++q) {
        GuardedArray<TypeParam> array(start);
        _TemplatePartialDiagGate<GateZ, true>::apply<TypeParam>(array.data(), {q}, n, 2);
        for (unsigned long i = 0; i < start.size(); ++i) {
            auto expected = start[i];
            // The sign bit alone, also of a zero and of a NaN.
            if ((i >> q) & 1) expected = {-expected.re, -expected.im};
            EXPECT_EQ(std::memcmp(&expected, array.data() + i, sizeof expected), 0) << "index " << i << ", qubit " << q;
        }
    }
}

TEST(phase_kernels_in_double, t_eight_times_comes_close_but_not_back_to_the_bit) {
    GuardedArray<double> array(2ul);
    array.load({{0.6, -0.3}, {0.8, 0.1}});
    for (int i = 0; i < 8; ++i) _TemplatePartialDiagGate<GateT, true>::apply<double>(array.data(), {0}, 1, 1);
    EXPECT_EQ(array.data()[0], thrust::complex<double>(0.6, -0.3));
    EXPECT_NEAR(array.data()[1].real(), 0.8, 1e-14);
    EXPECT_NEAR(array.data()[1].imag(), 0.1, 1e-14);
    EXPECT_NE(array.data()[1], thrust::complex<double>(0.8, 0.1));
}

TYPED_TEST(phase_kernels, empty_control_list_is_the_uncontrolled_kernel) {
    const unsigned int n = 5;
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    GuardedArray<TypeParam> plain(start), controlled(start);
    _TemplatePartialDiagGate<GateT, true>::apply<TypeParam>(plain.data(), {2}, n, 1);
    _TemplatePartialDiagGate<GateT, true>::apply_controlled<TypeParam>(controlled.data(), {2}, n, 1, {});
    EXPECT_EQ(std::memcmp(plain.data(), controlled.data(), start.size() * sizeof(start[0])), 0);
}
