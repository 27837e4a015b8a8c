// Single terms of an observable, for hosts that put them together themselves.

#include "statevector/observables/pauli_values.hpp"
#include "statevector/observables/sampled_parity.hpp"
#include "statevector/packs/precision.hpp"

#include <velacamplix/observable.hpp>

namespace pbamplix::cpu {

using namespace velacamplix::observables;

template <class T>
thrust::complex<T> _term_value(const thrust::complex<T>* amplitudes, WObservable<T>& observable, unsigned long size,
                               int nthreads, unsigned long term) {
    return pure_values(amplitudes, size, {string_of(observable, term)}, nthreads).front();
}

template <class T>
thrust::complex<T> _term_value_density_matrix(const thrust::complex<T>* amplitudes, WObservable<T>& observable,
                                              int nthreads, unsigned long term, const unsigned int& qubits) {
    return density_values(amplitudes, qubits, {string_of(observable, term)}, nthreads).front();
}

template <class T, class Engine>
std::pair<thrust::complex<T>, thrust::complex<T>> evaluate_term(const std::vector<T>& cumulative,
                                                                const thrust::complex<T>& coefficient,
                                                                unsigned long shots, Engine& rng, int) {
    return weighted_parity(count_odd(cumulative, shots, rng), shots, coefficient);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                          \
    template thrust::complex<T> _term_value(const thrust::complex<T>*, WObservable<T>&, unsigned long, int, \
                                            unsigned long);                                                 \
    template thrust::complex<T> _term_value_density_matrix(const thrust::complex<T>*, WObservable<T>&, int, \
                                                           unsigned long, const unsigned int&);             \
    template std::pair<thrust::complex<T>, thrust::complex<T>> evaluate_term(                               \
        const std::vector<T>&, const thrust::complex<T>&, unsigned long, std::mt19937_64&, int);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix::cpu
