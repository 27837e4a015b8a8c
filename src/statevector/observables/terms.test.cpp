#include "reference/observables.hpp"

#include <velacamplix/observable.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

namespace {

using Term = pbamplix::SimpleTerm<double>;

Term pruned(std::vector<unsigned int> qubits, std::string op) {
    std::vector<Term> terms = {{std::move(qubits), std::move(op), {2.0, -3.0}}};
    pbamplix::prune_I_ops(terms);
    return terms.front();
}

TEST(PruneIdentities, zz_stays_unchanged) {
    const Term term = pruned({4, 1}, "ZZ");
    EXPECT_EQ(term.op, "ZZ");
    EXPECT_EQ(term.qubits, (std::vector<unsigned int>{4, 1}));
    EXPECT_EQ(term.coefficient, thrust::complex<double>(2.0, -3.0));
}

TEST(PruneIdentities, zi_becomes_z_with_one_qubit) {
    const Term term = pruned({4, 1}, "ZI");
    EXPECT_EQ(term.op, "Z");
    EXPECT_EQ(term.qubits, (std::vector<unsigned int>{4}));
}

TEST(PruneIdentities, iz_becomes_an_empty_string_with_one_qubit_left) {
    const Term term = pruned({4, 1}, "IZ");
    EXPECT_EQ(term.op, "");
    EXPECT_EQ(term.qubits, (std::vector<unsigned int>{1}));
}

TEST(PruneIdentities, an_identity_cuts_off_the_operators_behind_it_but_not_their_qubits) {
    const Term term = pruned({0, 1, 2}, "XIZ");
    EXPECT_EQ(term.op, "X");
    EXPECT_EQ(term.qubits, (std::vector<unsigned int>{0, 2}));
}

TEST(PruneIdentities, only_identities_leave_nothing) {
    const Term term = pruned({3, 5, 7}, "III");
    EXPECT_EQ(term.op, "");
    EXPECT_TRUE(term.qubits.empty());
}

TEST(PruneIdentities, a_string_longer_than_its_list_loses_no_qubit_it_does_not_have) {
    const Term term = pruned({3}, "ZII");
    EXPECT_EQ(term.op, "Z");
    EXPECT_EQ(term.qubits, (std::vector<unsigned int>{3}));
}

TEST(PruneIdentities, every_string_of_up_to_five_operators_is_pruned_as_written) {
    for (unsigned int length = 0; length <= 5; ++length) {
        for (unsigned int code = 0; code < 1u << (2 * length); ++code) {
            reference::Term<double> expected;
            for (unsigned int j = 0; j < length; ++j) {
                expected.qubits.push_back(10 + j);
                expected.op += "XYZI"[(code >> (2 * j)) & 3];
            }
            const Term term = pruned(expected.qubits, expected.op);
            const std::string op = expected.op;
            reference::prune(expected);
            EXPECT_EQ(term.op, expected.op) << op;
            EXPECT_EQ(term.qubits, expected.qubits) << op;
        }
    }
}

TEST(PruneIdentities, every_term_of_a_list_is_pruned_in_single_precision_too) {
    std::vector<pbamplix::SimpleTerm<float>> terms = {{{0, 1}, "XI", {}}, {{}, "", {}}, {{2, 3}, "IY", {}}};
    pbamplix::prune_I_ops(terms);
    EXPECT_EQ(terms[0].op, "X");
    EXPECT_EQ(terms[1].op, "");
    EXPECT_EQ(terms[2].op, "");
    EXPECT_EQ(terms[2].qubits, (std::vector<unsigned int>{3}));
}

TEST(ObservableTypes, have_their_fields_in_order) {
    using Sum = WObservable<float>;
    static_assert(std::is_same_v<decltype(Sum::coefficients), std::vector<thrust::complex<float>>>);
    static_assert(std::is_same_v<decltype(Sum::flip_masks), std::vector<unsigned long>>);
    static_assert(std::is_same_v<decltype(Sum::phase_masks), std::vector<unsigned long>>);
    static_assert(std::is_same_v<decltype(Sum::y_counts), std::vector<unsigned int>>);
    static_assert(std::is_same_v<decltype(Sum::constant), thrust::complex<float>>);
    static_assert(std::is_same_v<decltype(Sum::nqubits), unsigned int>);
    EXPECT_LT(offsetof(Sum, coefficients), offsetof(Sum, flip_masks));
    EXPECT_LT(offsetof(Sum, flip_masks), offsetof(Sum, phase_masks));
    EXPECT_LT(offsetof(Sum, phase_masks), offsetof(Sum, y_counts));
    EXPECT_LT(offsetof(Sum, y_counts), offsetof(Sum, constant));
    EXPECT_LT(offsetof(Sum, constant), offsetof(Sum, nqubits));
    static_assert(std::is_same_v<decltype(Term::qubits), std::vector<unsigned int>>);
    static_assert(std::is_same_v<decltype(Term::op), std::string>);
    static_assert(std::is_same_v<decltype(Term::coefficient), thrust::complex<double>>);
    EXPECT_LT(offsetof(Term, qubits), offsetof(Term, op));
    EXPECT_LT(offsetof(Term, op), offsetof(Term, coefficient));
}

}  // namespace
