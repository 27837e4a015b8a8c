#include "statevector/measurement/distribution.hpp"
#include "statevector/measurement/draws.hpp"
#include "statevector/measurement/views.hpp"

#include <velacamplix/observable.hpp>

#include <algorithm>
#include <random>

namespace pbamplix::cpu {

namespace measurement = velacamplix::measurement;

namespace {

// table[v] = the probability of the outcomes up to v; the first listed qubit is the LEAST significant bit of v.
template <class View>
void fill_cumulative_table(std::vector<typename View::proba_type>& table, const View& view,
                           const std::vector<unsigned int>& qubits, int nthreads) {
    using T = typename View::proba_type;
    table.resize(1ul << (qubits.size() & 63));
    const std::vector<unsigned int> highest_first(qubits.rbegin(), qubits.rend());
    measurement::sum_distribution(view, highest_first, nthreads,
                                  [values = table.data()](unsigned long slot, T p) { values[slot] = p; });
    for (std::size_t v = 1; v < table.size(); ++v) table[v] += table[v - 1];
}

// Room for the longest term's table, taken before anything is rotated. std::length_error where no vector can be that
// long.
template <class T>
void reserve_for_longest(std::vector<T>& table, const std::vector<SimpleTerm<T>>& terms) {
    std::size_t longest = 0;
    for (const auto& term : terms) longest = std::max(longest, term.qubits.size());
    table.reserve(longest < 64 ? 1ul << longest : ~0ul);
}

// Calls read() between change(false), into a term's basis, and change(true), back, which follows an exception too.
template <class Change, class Read>
void in_basis(Change change, Read read) {
    change(false);
    try {
        read();
    } catch (...) {
        change(true);
        throw;
    }
    change(true);
}

}  // namespace

template <class T, class Engine>
std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> _evaluate_terms(thrust::complex<T>* amplitudes,
                                                                               const std::vector<SimpleTerm<T>>& terms,
                                                                               unsigned long shots, Engine& rng,
                                                                               unsigned int qubits, int nthreads,
                                                                               bool density_matrix) {
    std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> results;
    if (terms.empty()) return results;
    std::vector<T> table;
    reserve_for_longest(table, terms);
    results.reserve(terms.size());
    const auto change_basis = density_matrix ? &basis_change_deterministic<T> : &basis_change<T>;
    measurement::with_engine(rng, [&] {
        for (const auto& term : terms) {
            const auto change = [&](bool undo) { change_basis(amplitudes, term, undo, qubits, nthreads); };
            in_basis(change, [&] {
                fill_cumulative_table(table, measurement::state_view(amplitudes, qubits), term.qubits, nthreads);
                results.push_back(evaluate_term(table, term.coefficient, shots, rng, nthreads));
            });
        }
    });
    return results;
}

template <class T, class Engine>
std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> precise_evaluate_terms(
    thrust::complex<T>* amplitudes, const std::vector<SimpleTerm<double>>& terms, unsigned long shots, Engine& rng,
    unsigned int qubits, int nthreads) {
    std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> results;
    if (terms.empty()) return results;
    std::vector<double> table;
    reserve_for_longest(table, terms);
    results.reserve(terms.size());
    const precise_view<SVSequence<thrust::complex<T>>> view{measurement::state_view(amplitudes, qubits)};
    measurement::with_engine(rng, [&] {
        for (const auto& term : terms) {
            const SimpleTerm<T> rotation{term.qubits, term.op, {}};
            const auto change = [&](bool undo) { basis_change(amplitudes, rotation, undo, qubits, nthreads); };
            in_basis(change, [&] {
                fill_cumulative_table(table, view, term.qubits, nthreads);
                const double total = table.back();
                for (double& sum : table) sum /= total;
                results.push_back(evaluate_term(table, term.coefficient, shots, rng, nthreads));
            });
        }
    });
    return results;
}

#define VELACAMPLIX_SAMPLED_VALUES(T)                                                                               \
    template std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> _evaluate_terms(                        \
        thrust::complex<T>*, const std::vector<SimpleTerm<T>>&, unsigned long, std::mt19937_64&, unsigned int, int, \
        bool);                                                                                                      \
    template std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> precise_evaluate_terms(       \
        thrust::complex<T>*, const std::vector<SimpleTerm<double>>&, unsigned long, std::mt19937_64&, unsigned int, \
        int);
VELACAMPLIX_SAMPLED_VALUES(float)
VELACAMPLIX_SAMPLED_VALUES(double)
#undef VELACAMPLIX_SAMPLED_VALUES

}  // namespace pbamplix::cpu
