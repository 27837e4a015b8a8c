#include "reference/measurement.hpp"
#include "support/measured_state.hpp"
#include "support/precision.hpp"

#include <cstring>
#include <limits>
#include <memory>

using namespace support;
using reference::Qubits;
using reference::State;

PRECISION_SUITE(mapped_exports);

namespace {

template <class V>
using Map = std::map<unsigned long, V>;

template <class T>
bool same(thrust::complex<T> got, reference::Complex<T> expected) {
    return std::memcmp(&got, &expected, sizeof(got)) == 0;
}
template <class T>
bool same(T got, T expected) {
    return std::memcmp(&got, &expected, sizeof(got)) == 0;
}

// Takes the map, as its owner must.
template <class Got, class Expected>
testing::AssertionResult holds(Map<Got>* got, const Map<Expected>& expected) {
    const std::unique_ptr<Map<Got>> owned(got);
    if (got->size() != expected.size()) {
        return testing::AssertionFailure() << got->size() << " entries instead of " << expected.size();
    }
    auto entry = got->begin();
    for (const auto& [key, value] : expected) {
        if (entry->first != key) return testing::AssertionFailure() << "key " << entry->first << " instead of " << key;
        if (!same(entry->second, value)) return testing::AssertionFailure() << "another value at key " << key;
        ++entry;
    }
    return testing::AssertionSuccess();
}

}  // namespace

TYPED_TEST(mapped_exports, of_states_and_diagonals_agree_bit_for_bit) {
    for (unsigned int n : {0u, 1u, 2u, 3u, 4u, 6u, 8u, 11u, 15u}) {
        const auto state = random_state<TypeParam>(n, Values::unusual);
        const auto view = reference::state_view(state), diagonal = reference::density_view(state);
        for (int threads : thread_counts) {
            LoadedVector<TypeParam> v(state, threads);
            for (const TypeParam threshold : {TypeParam(0), TypeParam(0.5), TypeParam(-0.5)}) {
                // The flag plays no part.
                v.is_density_matrix = threshold > 0;
                const TypeParam square = threshold * threshold;
                ASSERT_TRUE(holds(v.get_mapped_statevector(threshold), reference::mapped(view, state, square)));
                ASSERT_TRUE(holds(v.get_mapped_density_diag(threshold), reference::mapped(diagonal, diagonal, square)));
            }
        }
    }
}

TYPED_TEST(mapped_exports, of_distributions_agree_bit_for_bit) {
    std::mt19937 engine(6);
    for (bool density_matrix : {false, true}) {
        for (unsigned int n = 0; n <= 10; ++n) {
            MeasuredState<TypeParam> measured(random_state<TypeParam>(n, Values::unusual), density_matrix);
            auto& v = measured.vector();
            for (unsigned int k = 0; k <= measured.qubits(); ++k) {
                const Qubits qubits = random_qubits(k, measured.qubits(), engine);
                for (const TypeParam threshold : {TypeParam(0), TypeParam(0.7)}) {
                    const auto expected =
                        reference::mapped_distribution(measured.view(), threshold * threshold, qubits);
                    for (int threads : thread_counts) {
                        v.set_num_threads(threads);
                        ASSERT_TRUE(holds(v.get_mapped_distribution(threshold, qubits), expected))
                            << measured.describe(qubits, threads);
                    }
                }
            }
        }
    }
}

TYPED_TEST(mapped_exports, of_a_large_distribution_agree_bit_for_bit_for_every_thread_count) {
    std::mt19937 engine(7);
    MeasuredState<TypeParam> measured(random_state<TypeParam>(18, Values::ordinary));
    for (const Qubits& qubits : {Qubits{}, Qubits{17, 0}, random_qubits(8, 18, engine)}) {
        const auto expected = reference::mapped_distribution(measured.view(), TypeParam(0), qubits);
        for (int threads : thread_counts) {
            measured.vector().set_num_threads(threads);
            EXPECT_TRUE(holds(measured.vector().get_mapped_distribution(0, qubits), expected));
        }
    }
}

TYPED_TEST(mapped_exports, of_a_3_qubit_basis_state_1_hold_1_at_key_4) {
    StateVector<TypeParam> v(3);
    v.reset();
    v.apply_X(0);
    EXPECT_TRUE(holds(v.get_mapped_statevector(0), Map<reference::Complex<TypeParam>>{{4, {1, 0}}}));
}

TYPED_TEST(mapped_exports, with_threshold_0_omit_exact_zeros_and_keep_every_other_amplitude_however_small) {
    // The smallest whose squared magnitude is above 0, which rounding brings it to.
    const bool is_double = std::is_same_v<TypeParam, double>;
    const TypeParam small = std::ldexp(TypeParam(1), is_double ? -537 : -74);
    ASSERT_GT(reference::squared_magnitude(reference::Complex<TypeParam>{small, 0}), TypeParam(0));
    LoadedVector<TypeParam> v(State<TypeParam>{{0, 0}, {small, 0}, {0, -small}, {TypeParam(-0.0), TypeParam(-0.0)}});
    EXPECT_TRUE(
        holds(v.get_mapped_statevector(0), Map<reference::Complex<TypeParam>>{{1, {0, -small}}, {2, {small, 0}}}));
}

TYPED_TEST(mapped_exports, drop_an_amplitude_whose_squared_magnitude_rounds_to_0) {
    // Its probability, 0, is not above the square of any threshold.
    const TypeParam vanishing = std::numeric_limits<TypeParam>::denorm_min();
    LoadedVector<TypeParam> v(State<TypeParam>{{vanishing, 0}, {1, 0}});
    EXPECT_TRUE(holds(v.get_mapped_statevector(0), Map<reference::Complex<TypeParam>>{{1, {1, 0}}}));
}

TYPED_TEST(mapped_exports, drop_an_amplitude_whose_squared_magnitude_equals_the_squared_threshold) {
    LoadedVector<TypeParam> v(State<TypeParam>{{TypeParam(0.5), 0}, {0, TypeParam(0.75)}});
    const Map<reference::Complex<TypeParam>> one = {{1, {0, TypeParam(0.75)}}};
    EXPECT_TRUE(holds(v.get_mapped_statevector(TypeParam(0.5)), one));
    EXPECT_TRUE(holds(v.get_mapped_statevector(TypeParam(-0.5)), one));
    EXPECT_EQ(std::unique_ptr<Map<thrust::complex<TypeParam>>>(
                  v.get_mapped_statevector(std::nextafter(TypeParam(0.5), TypeParam(0))))
                  ->size(),
              2ul);
}

TYPED_TEST(mapped_exports, of_the_distribution_over_2_and_0_of_001_hold_1_at_key_1) {
    StateVector<TypeParam> v(3);
    v.reset();
    v.apply_X(0);
    EXPECT_TRUE(holds(v.get_mapped_distribution(0, {2, 0}), Map<TypeParam>{{1, 1}}));
}

TYPED_TEST(mapped_exports, of_a_distribution_over_an_empty_list_hold_the_total_if_it_is_above_the_threshold) {
    LoadedVector<TypeParam> v(State<TypeParam>(4, {TypeParam(0.5), 0}));
    EXPECT_TRUE(holds(v.get_mapped_distribution(TypeParam(0.5), {}), Map<TypeParam>{{0, 1}}));
    EXPECT_TRUE(holds(v.get_mapped_distribution(1, {}), Map<TypeParam>{}));
}

TYPED_TEST(mapped_exports, drop_nan_probabilities) {
    const TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    LoadedVector<TypeParam> v(State<TypeParam>{{nan, 0}, {1, 0}});
    EXPECT_TRUE(holds(v.get_mapped_distribution(0, {0}), Map<TypeParam>{{1, 1}}));
    EXPECT_TRUE(holds(v.get_mapped_statevector(0), Map<reference::Complex<TypeParam>>{{1, {1, 0}}}));
}

TYPED_TEST(mapped_exports, of_a_negative_diagonal_entry_drop_it) {
    State<TypeParam> rho(16);
    rho[0].re = TypeParam(-0.5);
    rho[5] = {TypeParam(0.75), TypeParam(3)};
    LoadedVector<TypeParam> v(rho);
    v.is_density_matrix = true;
    EXPECT_TRUE(holds(v.get_mapped_density_diag(0), Map<TypeParam>{{2, TypeParam(0.75)}}));
}

TYPED_TEST(mapped_exports, into_a_map_with_entries_overwrite_their_values_and_leave_the_others) {
    using Amplitude = thrust::complex<TypeParam>;
    LoadedVector<TypeParam> v(State<TypeParam>{{1, 0}, {2, 0}, {0, 0}, {4, 0}});
    Map<Amplitude> map = {{0, Amplitude(9)}, {1, Amplitude(9)}, {7, Amplitude(9)}};
    const pbamplix::SVSequence<Amplitude> view{v.amplitudes.get(), 2, 4};
    EXPECT_EQ(pbamplix::cpu::permute_and_map_vector(view, &map, TypeParam(0), 2), &map);
    const Map<Amplitude> expected = {
        {0, Amplitude(1)}, {1, Amplitude(9)}, {2, Amplitude(2)}, {3, Amplitude(4)}, {7, Amplitude(9)}};
    EXPECT_TRUE(map == expected);
}

TYPED_TEST(mapped_exports, of_coinciding_qubits_hold_no_key_beyond_the_list) {
    LoadedVector<TypeParam> v(random_state<TypeParam>(6, Values::ordinary), 2);
    for (const Qubits& qubits : std::vector<Qubits>{{0, 0}, {3, 5, 3}}) {
        const std::unique_ptr<Map<TypeParam>> map(v.get_mapped_distribution(0, qubits));
        for (const auto& entry : *map) EXPECT_LT(entry.first, 1ul << qubits.size());
    }
}
