#pragma once

#include "complex.hpp"

#include <random>
#include <string>
#include <utility>

namespace reference {

// One Pauli string as masks over qubits: X or Y, Y or Z, and the number of Y.
struct PauliString {
    unsigned long flip, phase;
    unsigned int y_count;
};

// A weighted sum of strings plus a constant.
template <class T>
struct PauliSum {
    std::vector<Complex<T>> coefficients;
    std::vector<PauliString> strings;
    Complex<T> constant;
};

// <P> on a pure state: the sum over all indices, in order, of Re(x * i^k) with x = conj(a[i ^ flip]) * a[i].
template <class T>
T term_value(const State<T>& state, PauliString p);

// Indices in the outer loop, terms in the inner one, then the constant.
template <class T>
Complex<T> expectation_value(const State<T>& state, const PauliSum<T>& sum);

// The same for a density matrix of 2^m x 2^m entries: Tr(rho P), entry (r ^ flip, r) for every r.
template <class T>
Complex<T> term_value_density(const State<T>& matrix, PauliString p);
template <class T>
Complex<T> expectation_value_density(const State<T>& matrix, const PauliSum<T>& sum);

// <P> on a pure state with every addition where the library makes it. Pairs i, i ^ flip are taken once where the flip
// reaches beyond a row; numbers stand in rows of 64 bytes and slabs of 512 rows. In a slab, rows are joined in
// eights: neighbours, pairs, fours; the last row is folded in halves. Slabs are added in order inside a section, then
// at most 128 sections in order.
template <class T>
T term_value_by_tree(const State<T>& state, PauliString p);

// One Pauli term in readable form.
template <class T>
struct Term {
    Qubits qubits;
    std::string op;
    Complex<T> coefficient;
};

// Walks the operators from the last to the first; each I cuts the string there, its own entry leaves the list.
template <class T>
void prune(Term<T>& term);

// Into the term's measurement basis, or back; of a density matrix a qubit and its row copy.
template <class T>
void change_basis(State<T>& state, const Term<T>& term, bool undo, bool density_matrix);

template <class T>
struct Estimate {
    Complex<T> mean, standard_error;
};

// Draws `shots` numbers; each gives the first position of the table not below it, or the position behind the last.
template <class T>
Estimate<T> evaluate_term(const std::vector<T>& cumulative, Complex<T> coefficient, unsigned long shots,
                          std::mt19937_64& engine);

// Prunes, then measures each term in its basis. The state is rotated and rotated back.
template <class T>
std::vector<Estimate<T>> evaluate_terms(State<T>& state, std::vector<Term<T>> terms, unsigned long shots,
                                        std::mt19937_64& engine, bool density_matrix);

}  // namespace reference
