#include "reference/observables.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <velacamplix/observable.hpp>

namespace {

PRECISION_SUITE(BasisChange);

template <class T>
pbamplix::SimpleTerm<T> as_library_term(const reference::Term<T>& term) {
    return {term.qubits, term.op, {term.coefficient.re, term.coefficient.im}};
}

template <class T>
void expect_the_literal_rotation(const reference::State<T>& start, const reference::Term<T>& term, bool undo,
                                 bool density_matrix, int threads) {
    const unsigned int n = static_cast<unsigned int>(std::countr_zero(start.size()));
    auto expected = start;
    reference::change_basis(expected, term, undo, density_matrix);
    support::GuardedArray<T> got(start);
    const auto change =
        density_matrix ? &pbamplix::cpu::basis_change_deterministic<T> : &pbamplix::cpu::basis_change<T>;
    change(got.data(), as_library_term(term), undo, n, threads);
    EXPECT_TRUE(support::same_bits(expected, got.data()))
        << term.op << " on " << support::describe(term.qubits) << (undo ? ", back" : ", forward");
    EXPECT_TRUE(got.fences_stand());
}

TYPED_TEST(BasisChange, a_pure_state_is_rotated_by_the_literal_gates_bit_for_bit) {
    std::mt19937 engine(1);
    for (unsigned int n = 1; n <= 6; ++n) {
        for (const int threads : support::thread_counts) {
            const auto start = support::random_state<TypeParam>(n, support::Values::ordinary, n);
            for (const char* op : {"X", "Y", "Z", "I", "XY", "YX", "YY", "ZXY", "IYX", "YXYX"}) {
                if (std::strlen(op) > n) continue;
                const auto qubits = support::random_qubits(static_cast<unsigned int>(std::strlen(op)), n, engine);
                for (const bool undo : {false, true}) {
                    expect_the_literal_rotation<TypeParam>(start, {qubits, op, {1, 0}}, undo, false, threads);
                }
            }
        }
    }
}

TYPED_TEST(BasisChange, a_density_matrix_is_rotated_on_both_copies_of_a_qubit_bit_for_bit) {
    std::mt19937 engine(2);
    for (unsigned int m = 1; m <= 4; ++m) {
        for (const int threads : support::thread_counts) {
            const auto start = support::random_state<TypeParam>(2 * m, support::Values::ordinary, m);
            for (const char* op : {"X", "Y", "Z", "XY", "YY", "ZXY", "YXYX"}) {
                if (std::strlen(op) > m) continue;
                const auto qubits = support::random_qubits(static_cast<unsigned int>(std::strlen(op)), m, engine);
                for (const bool undo : {false, true}) {
                    expect_the_literal_rotation<TypeParam>(start, {qubits, op, {1, 0}}, undo, true, threads);
                }
            }
        }
    }
}

TYPED_TEST(BasisChange, an_empty_term_and_positions_behind_the_string_rotate_nothing) {
    const auto start = support::random_state<TypeParam>(4, support::Values::any_bits);
    for (const bool density_matrix : {false, true}) {
        expect_the_literal_rotation<TypeParam>(start, {{}, "", {1, 0}}, false, density_matrix, 1);
        expect_the_literal_rotation<TypeParam>(start, {{0, 1}, "", {1, 0}}, false, density_matrix, 1);
        expect_the_literal_rotation<TypeParam>(start, {{1, 0}, "Z", {1, 0}}, true, density_matrix, 1);
    }
    expect_the_literal_rotation<TypeParam>(support::random_state<TypeParam>(4, support::Values::ordinary),
                                           {{3, 1, 0}, "X", {1, 0}}, false, false, 1);
}

TYPED_TEST(BasisChange, there_and_back_is_the_state_again_up_to_rounding) {
    const TypeParam tolerance = 32 * std::numeric_limits<TypeParam>::epsilon();
    const auto start = support::random_state<TypeParam>(6, support::Values::ordinary);
    for (const bool density_matrix : {false, true}) {
        const pbamplix::SimpleTerm<TypeParam> term{{0, 2, 1}, "YXY", {1, 0}};
        const auto change = density_matrix ? &pbamplix::cpu::basis_change_deterministic<TypeParam>
                                           : &pbamplix::cpu::basis_change<TypeParam>;
        support::GuardedArray<TypeParam> got(start);
        change(got.data(), term, false, 6, 1);
        EXPECT_FALSE(support::same_bits(start, got.data()));
        change(got.data(), term, true, 6, 1);
        for (unsigned long i = 0; i < start.size(); ++i) {
            EXPECT_NEAR(got.data()[i].real(), start[i].re, tolerance);
            EXPECT_NEAR(got.data()[i].imag(), start[i].im, tolerance);
        }
    }
}

}  // namespace
