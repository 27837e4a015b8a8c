#include "statevector/measurement/distribution.hpp"
#include "statevector/measurement/draws.hpp"
#include "statevector/measurement/sampling.hpp"
#include "statevector/measurement/views.hpp"
#include "statevector/observables/sampled_parity.hpp"

#include <velacamplix/observable.hpp>

#include <algorithm>
#include <random>
#include <type_traits>

namespace pbamplix::cpu {

namespace measurement = velacamplix::measurement;
namespace observables = velacamplix::observables;

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

// Turns a state into the basis of one term after another, and always back. Takes no memory on the way.
template <class T>
class turned_state {
public:
    turned_state(thrust::complex<T>* state, unsigned int n, int nthreads)
        : amplitudes(state), qubits(n), threads(nthreads) {}
    turned_state(const turned_state&) = delete;
    turned_state& operator=(const turned_state&) = delete;
    ~turned_state() { turn_back(); }

    // Calls between() after every pass over the state; it may throw. The term must stay until the state is turned back.
    template <class Between>
    void turn(const SimpleTerm<double>& into, Between between) {
        term = &into;
        for (std::size_t j = 0; j < into.qubits.size() && j < into.op.size(); ++j) {
            change(j, false);
            ++turned;
            between();
        }
    }
    void turn_back() {
        for (std::size_t j = 0; j < turned; ++j) change(j, true);
        turned = 0;
    }

private:
    void change(std::size_t j, bool undo) {
        factor.qubits.front() = term->qubits[j];
        factor.op.front() = term->op[j];
        basis_change(amplitudes, factor, undo, qubits, threads);
    }

    thrust::complex<T>* amplitudes;
    unsigned int qubits;
    int threads;
    const SimpleTerm<double>* term = nullptr;
    std::size_t turned = 0;  // of the term's factors
    SimpleTerm<T> factor{{0}, "Z", {}};
};

// Parities of shots in double precision. Random numbers are shares of the total, or else numbers as they are.
template <class T, class Engine>
std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> evaluate_precisely(
    thrust::complex<T>* amplitudes, const std::vector<SimpleTerm<double>>& terms, unsigned long shots, Engine& rng,
    unsigned int qubits, int nthreads, bool numbers_are_shares, const work_hook& hook) {
    // A fraction of a second with the largest table.
    constexpr unsigned long shots_at_once = 1ul << 18;
    std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> results;
    if (terms.empty()) return results;
    std::vector<double> table;
    reserve_for_longest(table, terms);
    results.reserve(terms.size());
    const precise_view<SVSequence<thrust::complex<T>>> view{measurement::state_view(amplitudes, qubits)};
    turned_state<T> state(amplitudes, qubits, nthreads);
    unsigned long all = 0;
    if (__builtin_mul_overflow(terms.size(), shots, &all)) all = ~0ul;

    measurement::with_engine(rng, [&] {
        for (const auto& term : terms) {
            const unsigned long done = results.size() * shots;
            const auto tell = [&](unsigned long drawn) {
                if (hook) hook(done + drawn, all);
            };
            state.turn(term, [&] { tell(0); });
            fill_cumulative_table(table, view, term.qubits, nthreads);
            if (numbers_are_shares) {
                const double total = table.back();
                for (double& sum : table) sum /= total;
            }
            tell(0);
            unsigned long odd = 0;
            for (unsigned long drawn = 0; drawn < shots;) {
                const unsigned long piece = std::min(shots - drawn, shots_at_once);
                odd += observables::count_odd(table, piece, rng);
                drawn += piece;
                tell(drawn);
            }
            results.push_back(observables::weighted_parity(odd, shots, term.coefficient));
            state.turn_back();
        }
    });
    return results;
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
    return evaluate_precisely(amplitudes, terms, shots, rng, qubits, nthreads, true, {});
}

template <class T, class Engine>
std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> evaluate_terms_of_any_norm(
    thrust::complex<T>* amplitudes, const std::vector<SimpleTerm<double>>& terms, unsigned long shots, Engine& rng,
    unsigned int qubits, int nthreads, const work_hook& hook) {
    const precise_view<SVSequence<thrust::complex<T>>> view{measurement::state_view(amplitudes, qubits)};
    const double total = terms.empty() ? 1 : measurement::total_of(view);
    measurement::require_shares(total);
    const bool numbers_are_shares = !std::is_same_v<T, double> || !measurement::is_normalised(total);
    return evaluate_precisely(amplitudes, terms, shots, rng, qubits, nthreads, numbers_are_shares, hook);
}

#define VELACAMPLIX_SAMPLED_VALUES(T)                                                                               \
    template std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> _evaluate_terms(                        \
        thrust::complex<T>*, const std::vector<SimpleTerm<T>>&, unsigned long, std::mt19937_64&, unsigned int, int, \
        bool);                                                                                                      \
    template std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> precise_evaluate_terms(       \
        thrust::complex<T>*, const std::vector<SimpleTerm<double>>&, unsigned long, std::mt19937_64&, unsigned int, \
        int);                                                                                                       \
    template std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> evaluate_terms_of_any_norm(   \
        thrust::complex<T>*, const std::vector<SimpleTerm<double>>&, unsigned long, std::mt19937_64&, unsigned int, \
        int, const work_hook&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_SAMPLED_VALUES)
#undef VELACAMPLIX_SAMPLED_VALUES

}  // namespace pbamplix::cpu
