#include "statevector/observables/sampled_values.hpp"

#include "statevector/measurement/distribution.hpp"
#include "statevector/measurement/draws.hpp"
#include "statevector/measurement/sampling.hpp"
#include "statevector/measurement/views.hpp"
#include "statevector/observables/sampled_parity.hpp"

#include <velacamplix/observable.hpp>

#include <algorithm>
#include <random>
#include <type_traits>

namespace velacamplix::observables {
namespace {

using pbamplix::SimpleTerm;

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

// Turns a state into the basis of one term after another, and always back. Takes no memory on the way.
template <class T, class Sum>
class turned_state {
public:
    turned_state(thrust::complex<T>* state, unsigned int n, int nthreads, bool density_matrix)
        : amplitudes(state),
          qubits(n),
          threads(nthreads),
          change_basis(density_matrix ? &pbamplix::cpu::basis_change_deterministic<T>
                                      : &pbamplix::cpu::basis_change<T>) {}
    turned_state(const turned_state&) = delete;
    turned_state& operator=(const turned_state&) = delete;
    ~turned_state() { turn_back(); }

    // Calls between() after every pass over the state; it may throw. The term must stay until the state is turned back.
    template <class Between>
    void turn(const SimpleTerm<Sum>& into, Between between) {
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
        change_basis(amplitudes, factor, undo, qubits, threads);
    }

    thrust::complex<T>* amplitudes;
    unsigned int qubits;
    int threads;
    void (*change_basis)(thrust::complex<T>*, const SimpleTerm<T>&, bool, unsigned int, int);
    const SimpleTerm<Sum>* term = nullptr;
    std::size_t turned = 0;  // of the term's factors
    SimpleTerm<T> factor{{0}, "Z", {}};
};

}  // namespace

template <class T, class Sum, class Engine>
std::vector<mean_and_error<Sum>> sampled_values(thrust::complex<T>* amplitudes,
                                                const std::vector<SimpleTerm<Sum>>& terms, unsigned long shots,
                                                Engine& rng, unsigned int qubits, int nthreads, bool density_matrix,
                                                draw_as drawn_as, const pbamplix::work_hook& hook) {
    // A fraction of a second with the largest table.
    constexpr unsigned long shots_at_once = 1ul << 18;
    std::vector<mean_and_error<Sum>> results;
    if (terms.empty()) return results;
    std::vector<Sum> table;
    reserve_for_longest(table, terms);
    results.reserve(terms.size());
    const auto view = measurement::view_summed_in<Sum>(amplitudes, qubits);
    turned_state<T, Sum> state(amplitudes, qubits, nthreads, density_matrix);
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
            if (drawn_as == draw_as::fractions) {
                const Sum total = table.back();
                for (Sum& sum : table) sum /= total;
            }
            tell(0);
            unsigned long odd = 0;
            for (unsigned long drawn = 0; drawn < shots;) {
                const unsigned long piece = std::min(shots - drawn, shots_at_once);
                odd += count_odd(table, piece, rng);
                drawn += piece;
                tell(drawn);
            }
            results.push_back(weighted_parity(odd, shots, term.coefficient));
            state.turn_back();
        }
    });
    return results;
}

#define VELACAMPLIX_SAMPLED_VALUES(T, Sum)                                                                             \
    template std::vector<mean_and_error<Sum>> sampled_values(thrust::complex<T>*, const std::vector<SimpleTerm<Sum>>&, \
                                                             unsigned long, std::mt19937_64&, unsigned int, int, bool, \
                                                             draw_as, const pbamplix::work_hook&);
VELACAMPLIX_SAMPLED_VALUES(float, float)
VELACAMPLIX_SAMPLED_VALUES(double, double)
VELACAMPLIX_SAMPLED_VALUES(float, double)

}  // namespace velacamplix::observables

namespace pbamplix::cpu {

using namespace velacamplix;
using observables::draw_as;

template <class T, class Engine>
std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> _evaluate_terms(thrust::complex<T>* amplitudes,
                                                                               const std::vector<SimpleTerm<T>>& terms,
                                                                               unsigned long shots, Engine& rng,
                                                                               unsigned int qubits, int nthreads,
                                                                               bool density_matrix) {
    return observables::sampled_values(amplitudes, terms, shots, rng, qubits, nthreads, density_matrix,
                                       draw_as::numbers);
}

template <class T, class Engine>
std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> evaluate_terms_of_any_norm(
    thrust::complex<T>* amplitudes, const std::vector<SimpleTerm<double>>& terms, unsigned long shots, Engine& rng,
    unsigned int qubits, int nthreads, const work_hook& hook) {
    const precise_view<SVSequence<thrust::complex<T>>> view{measurement::state_view(amplitudes, qubits)};
    const double total = terms.empty() ? 1 : measurement::total_of(view, nthreads);
    measurement::require_total(total);
    const bool as_numbers = std::is_same_v<T, double> && measurement::is_normalised(total);
    return observables::sampled_values(amplitudes, terms, shots, rng, qubits, nthreads, false,
                                       as_numbers ? draw_as::numbers : draw_as::fractions, hook);
}

#define VELACAMPLIX_EVALUATE_TERMS(T)                                                                               \
    template std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> _evaluate_terms(                        \
        thrust::complex<T>*, const std::vector<SimpleTerm<T>>&, unsigned long, std::mt19937_64&, unsigned int, int, \
        bool);                                                                                                      \
    template std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> evaluate_terms_of_any_norm(   \
        thrust::complex<T>*, const std::vector<SimpleTerm<double>>&, unsigned long, std::mt19937_64&, unsigned int, \
        int, const work_hook&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_EVALUATE_TERMS)

}  // namespace pbamplix::cpu
