#include "statevector/observables/pauli_values.hpp"

#include <velacamplix/observable.hpp>

namespace pbamplix::cpu {

using velacamplix::observables::density_values;
using velacamplix::observables::pure_values;
using velacamplix::observables::string_of;
using velacamplix::observables::strings_of;

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

template <class T>
thrust::complex<T> _expectation_value(const thrust::complex<T>* amplitudes, WObservable<T> observable,
                                      unsigned long size, int nthreads) {
    const std::vector<T> values = pure_values(amplitudes, size, strings_of(observable), nthreads);
    thrust::complex<T> sum(0, 0);
    // A real value times the weight, part by part.
    for (unsigned long t = 0; t < values.size(); ++t) sum += observable.coefficients[t] * values[t];
    return sum + observable.constant;
}

template <class T>
thrust::complex<T> _expectation_value_density_matrix(const thrust::complex<T>* amplitudes, WObservable<T> observable,
                                                     int nthreads, const unsigned int& qubits) {
    const auto values = density_values(amplitudes, qubits, strings_of(observable), nthreads);
    thrust::complex<T> sum(0, 0);
    for (unsigned long t = 0; t < values.size(); ++t) sum += observable.coefficients[t] * values[t];
    return sum + observable.constant;
}

#define VELACAMPLIX_EXACT_VALUES(T)                                                                                   \
    template thrust::complex<T> _term_value<T>(const thrust::complex<T>*, WObservable<T>&, unsigned long, int,        \
                                               unsigned long);                                                        \
    template thrust::complex<T> _term_value_density_matrix<T>(const thrust::complex<T>*, WObservable<T>&, int,        \
                                                              unsigned long, const unsigned int&);                    \
    template thrust::complex<T> _expectation_value<T>(const thrust::complex<T>*, WObservable<T>, unsigned long, int); \
    template thrust::complex<T> _expectation_value_density_matrix<T>(const thrust::complex<T>*, WObservable<T>, int,  \
                                                                     const unsigned int&);
VELACAMPLIX_EXACT_VALUES(float)
VELACAMPLIX_EXACT_VALUES(double)
#undef VELACAMPLIX_EXACT_VALUES

}  // namespace pbamplix::cpu
