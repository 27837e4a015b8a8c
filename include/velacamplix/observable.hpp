#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "work_hook.hpp"

#include <random>
#include <string>
#include <utility>
#include <vector>

// A weighted sum of Pauli strings plus a constant, compiled to bit masks (qubit q is bit q). The per-term vectors
// have equal lengths; the number of terms is that of flip_masks.
template <class T>
struct WObservable {
    std::vector<thrust::complex<T>> coefficients;
    std::vector<unsigned long> flip_masks;   // qubits with X or Y
    std::vector<unsigned long> phase_masks;  // qubits with Y or Z
    std::vector<unsigned int> y_counts;      // number of Y factors; only its value mod 4 matters
    thrust::complex<T> constant{};           // weight of the identity
    unsigned int nqubits = 0;                // carried for the host's own use, never read by the library
};

namespace pbamplix {

using ::WObservable;

// One Pauli term in readable form: op[j], one of X Y Z I, acts on qubits[j].
template <class T>
struct SimpleTerm {
    std::vector<unsigned int> qubits;
    std::string op;
    thrust::complex<T> coefficient{};
};

// Removes identity factors in place, last position first. Each 'I' cuts the string from its position on, while only
// its own entry leaves `qubits`: "XIZ" on (0, 1, 2) becomes "X" on (0, 2). Hosts rely on it.
template <class Term>
VELACAMPLIX_API void prune_I_ops(std::vector<Term>& terms);

namespace cpu {

// Value <psi|P|psi> of one term without its coefficient: real, imaginary part 0. `size` amplitudes.
template <class T>
VELACAMPLIX_API thrust::complex<T> _term_value(const thrust::complex<T>* amplitudes, WObservable<T>& observable,
                                               unsigned long size, int nthreads, unsigned long term);

// Tr(rho P) of one term without its coefficient, for a density matrix of `qubits` qubits.
template <class T>
VELACAMPLIX_API thrust::complex<T> _term_value_density_matrix(const thrust::complex<T>* amplitudes,
                                                              WObservable<T>& observable, int nthreads,
                                                              unsigned long term, const unsigned int& qubits);

// The whole sum with coefficients and constant, pure state and density matrix.
template <class T>
VELACAMPLIX_API thrust::complex<T> _expectation_value(const thrust::complex<T>* amplitudes, WObservable<T> observable,
                                                      unsigned long size, int nthreads);
template <class T>
VELACAMPLIX_API thrust::complex<T> _expectation_value_density_matrix(const thrust::complex<T>* amplitudes,
                                                                     WObservable<T> observable, int nthreads,
                                                                     const unsigned int& qubits);

// Coefficient times value of every term, without the constant: products are formed and summed in the precision Sum of
// the observable, that of the amplitudes or double. The whole sum is theirs plus the constant. The hook counts terms.
template <class T, class Sum>
VELACAMPLIX_API std::vector<thrust::complex<Sum>> term_values(const thrust::complex<T>* amplitudes,
                                                              const WObservable<Sum>& observable, unsigned long size,
                                                              int nthreads, const work_hook& hook = {});
template <class T, class Sum>
VELACAMPLIX_API std::vector<thrust::complex<Sum>> term_values_density_matrix(const thrust::complex<T>* amplitudes,
                                                                             const WObservable<Sum>& observable,
                                                                             int nthreads, const unsigned int& qubits);

// Rotates a term's qubits into the Z basis (undo = false) or back. The first form is for a pure state; the second,
// for a density matrix, also rotates the row copy q + qubits/2 of each qubit.
template <class T>
VELACAMPLIX_API void basis_change(thrust::complex<T>* amplitudes, const pbamplix::SimpleTerm<T>& term, bool undo,
                                  unsigned int qubits, int nthreads);
template <class T>
VELACAMPLIX_API void basis_change_deterministic(thrust::complex<T>* amplitudes, const pbamplix::SimpleTerm<T>& term,
                                                bool undo, unsigned int qubits, int nthreads);

// Draws `shots` outcomes from a cumulative table and returns (coefficient * mean, coefficient * standard error) of
// their parities.
template <class T, class Engine>
VELACAMPLIX_API std::pair<thrust::complex<T>, thrust::complex<T>> evaluate_term(const std::vector<T>& cumulative,
                                                                                const thrust::complex<T>& coefficient,
                                                                                unsigned long shots, Engine& rng,
                                                                                int nthreads);

// evaluate_term for every term, each in its own measurement basis; the state comes back up to rounding, also when
// memory runs out (std::bad_alloc), and the engine then stands where it stood.
template <class T, class Engine>
VELACAMPLIX_API std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> _evaluate_terms(
    thrust::complex<T>* amplitudes, const std::vector<pbamplix::SimpleTerm<T>>& terms, unsigned long shots, Engine& rng,
    unsigned int qubits, int nthreads, bool density_matrix);

// The same for a pure state whose norm nobody knows, with probabilities and parities summed in double; the state is
// rotated in its own precision. A draw is a double in [0, 1), and each term's cumulative table is divided by its last
// entry, so that it ends at 1; but in double precision tables of a state whose probabilities add up to 1 within 1e-9
// stay as they are, which gives the shots of _evaluate_terms. Throws std::domain_error where they add up to 0, to
// infinity or to NaN. The hook counts shots, of all terms. Whatever is thrown, the state is turned back first and the
// engine put back.
template <class T, class Engine>
VELACAMPLIX_API std::vector<std::pair<thrust::complex<double>, thrust::complex<double>>> evaluate_terms_of_any_norm(
    thrust::complex<T>* amplitudes, const std::vector<pbamplix::SimpleTerm<double>>& terms, unsigned long shots,
    Engine& rng, unsigned int qubits, int nthreads, const work_hook& hook = {});

}  // namespace cpu
}  // namespace pbamplix
