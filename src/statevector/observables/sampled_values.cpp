#include "statevector/measurement/distribution.hpp"
#include "statevector/measurement/draws.hpp"
#include "statevector/measurement/views.hpp"

#include <velacamplix/observable.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>

namespace pbamplix::cpu {

namespace measurement = velacamplix::measurement;

namespace {

template <class T>
struct estimate {
    T mean;
    T standard_error;
};

// Draws the outcomes of one term: the first position of the table not below a draw, 2^k (odd) where all are below.
// Counted in integers, which is the sum of +1 and -1 as long as that is exact and does not stall at 2^24 in single
// precision; the engine's order alone decides, so the number of threads does not matter.
template <class T, class Engine>
estimate<T> sample_parities(const std::vector<T>& cumulative, unsigned long shots, Engine& rng) {
    unsigned long odd = 0;
    for (unsigned long shot = 0; shot < shots; ++shot) {
        const auto position = std::lower_bound(cumulative.begin(), cumulative.end(), measurement::uniform<T>(rng()));
        odd += std::popcount(static_cast<unsigned long>(position - cumulative.begin())) & 1;
    }
    const long sum = static_cast<long>(shots) - 2 * static_cast<long>(odd);
    const T mean = static_cast<T>(sum) / static_cast<T>(shots);  // no shots: NaN
    const T error = shots <= 1 ? T(0) : std::sqrt((T(1) - mean * mean) / static_cast<T>(shots - 1));
    return {mean, error};
}

template <class T>
std::pair<thrust::complex<T>, thrust::complex<T>> weighted(const thrust::complex<T>& coefficient, estimate<T> e) {
    return {coefficient * e.mean, coefficient * e.standard_error};
}

// table[v] = the probability of the outcomes up to v; the first listed qubit is the LEAST significant bit of v.
template <class T>
void fill_cumulative_table(std::vector<T>& table, const thrust::complex<T>* amplitudes, unsigned int n,
                           const std::vector<unsigned int>& qubits, int nthreads) {
    table.resize(1ul << (qubits.size() & 63));
    const std::vector<unsigned int> highest_first(qubits.rbegin(), qubits.rend());
    measurement::sum_distribution(measurement::state_view(amplitudes, n), highest_first, nthreads,
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

}  // namespace

template <class T, class Engine>
std::pair<thrust::complex<T>, thrust::complex<T>> evaluate_term(const std::vector<T>& cumulative,
                                                                const thrust::complex<T>& coefficient,
                                                                unsigned long shots, Engine& rng, int) {
    return weighted(coefficient, sample_parities(cumulative, shots, rng));
}

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
    for (const auto& term : terms) {
        change_basis(amplitudes, term, false, qubits, nthreads);
        fill_cumulative_table(table, amplitudes, qubits, term.qubits, nthreads);
        results.push_back(evaluate_term(table, term.coefficient, shots, rng, nthreads));
        change_basis(amplitudes, term, true, qubits, nthreads);
    }
    return results;
}

#define VELACAMPLIX_SAMPLED_VALUES(T)                                                                               \
    template std::pair<thrust::complex<T>, thrust::complex<T>> evaluate_term(                                       \
        const std::vector<T>&, const thrust::complex<T>&, unsigned long, std::mt19937_64&, int);                    \
    template std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> _evaluate_terms(                        \
        thrust::complex<T>*, const std::vector<SimpleTerm<T>>&, unsigned long, std::mt19937_64&, unsigned int, int, \
        bool);
VELACAMPLIX_SAMPLED_VALUES(float)
VELACAMPLIX_SAMPLED_VALUES(double)
#undef VELACAMPLIX_SAMPLED_VALUES

}  // namespace pbamplix::cpu
