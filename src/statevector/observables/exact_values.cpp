#include "statevector/observables/pauli_values.hpp"
#include "statevector/packs/precision.hpp"

#include <velacamplix/observable.hpp>

namespace pbamplix::cpu {

using velacamplix::observables::density_values;
using velacamplix::observables::pure_values;
using velacamplix::observables::strings_of;

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

template <class T>
std::vector<thrust::complex<double>> precise_term_values(const thrust::complex<T>* amplitudes,
                                                         const WObservable<double>& observable, unsigned long size,
                                                         int nthreads, const work_hook& hook) {
    std::vector<thrust::complex<double>> results;
    for (const double value : pure_values<T, double>(amplitudes, size, strings_of(observable), nthreads, hook)) {
        results.push_back(observable.coefficients[results.size()] * value);
    }
    return results;
}

template <class T>
std::vector<thrust::complex<double>> precise_term_values_density_matrix(const thrust::complex<T>* amplitudes,
                                                                        const WObservable<double>& observable,
                                                                        int nthreads, const unsigned int& qubits) {
    std::vector<thrust::complex<double>> results;
    for (const auto& value : density_values<T, double>(amplitudes, qubits, strings_of(observable), nthreads)) {
        results.push_back(observable.coefficients[results.size()] * value);
    }
    return results;
}

#define VELACAMPLIX_EXACT_VALUES(T)                                                                                   \
    template thrust::complex<T> _expectation_value<T>(const thrust::complex<T>*, WObservable<T>, unsigned long, int); \
    template thrust::complex<T> _expectation_value_density_matrix<T>(const thrust::complex<T>*, WObservable<T>, int,  \
                                                                     const unsigned int&);                            \
    template std::vector<thrust::complex<double>> precise_term_values(                                                \
        const thrust::complex<T>*, const WObservable<double>&, unsigned long, int, const work_hook&);                 \
    template std::vector<thrust::complex<double>> precise_term_values_density_matrix(                                 \
        const thrust::complex<T>*, const WObservable<double>&, int, const unsigned int&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_EXACT_VALUES)
#undef VELACAMPLIX_EXACT_VALUES

}  // namespace pbamplix::cpu
