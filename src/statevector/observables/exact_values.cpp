#include "statevector/observables/pauli_values.hpp"
#include "statevector/packs/precision.hpp"

#include <velacamplix/observable.hpp>

namespace pbamplix::cpu {

using velacamplix::observables::density_values;
using velacamplix::observables::pure_values;
using velacamplix::observables::strings_of;

template <class T, class Sum>
std::vector<thrust::complex<Sum>> term_values(const thrust::complex<T>* amplitudes, const WObservable<Sum>& observable,
                                              unsigned long size, int nthreads, const work_hook& hook) {
    std::vector<thrust::complex<Sum>> results;
    results.reserve(observable.flip_masks.size());
    // A real value times the weight, part by part.
    for (const Sum value : pure_values<T, Sum>(amplitudes, size, strings_of(observable), nthreads, hook)) {
        results.push_back(observable.coefficients[results.size()] * value);
    }
    return results;
}

template <class T, class Sum>
std::vector<thrust::complex<Sum>> term_values_density_matrix(const thrust::complex<T>* amplitudes,
                                                             const WObservable<Sum>& observable, int nthreads,
                                                             const unsigned int& qubits) {
    std::vector<thrust::complex<Sum>> results;
    results.reserve(observable.flip_masks.size());
    for (const auto& value : density_values<T, Sum>(amplitudes, qubits, strings_of(observable), nthreads)) {
        results.push_back(observable.coefficients[results.size()] * value);
    }
    return results;
}

namespace {

template <class T>
thrust::complex<T> sum_with_constant(const std::vector<thrust::complex<T>>& values, thrust::complex<T> constant) {
    thrust::complex<T> sum(0, 0);
    for (const auto& value : values) sum += value;
    return sum + constant;
}

}  // namespace

template <class T>
thrust::complex<T> _expectation_value(const thrust::complex<T>* amplitudes, WObservable<T> observable,
                                      unsigned long size, int nthreads) {
    return sum_with_constant(term_values(amplitudes, observable, size, nthreads), observable.constant);
}

template <class T>
thrust::complex<T> _expectation_value_density_matrix(const thrust::complex<T>* amplitudes, WObservable<T> observable,
                                                     int nthreads, const unsigned int& qubits) {
    return sum_with_constant(term_values_density_matrix(amplitudes, observable, nthreads, qubits), observable.constant);
}

#define VELACAMPLIX_TERM_VALUES(T, Sum)                                                                        \
    template std::vector<thrust::complex<Sum>> term_values(const thrust::complex<T>*, const WObservable<Sum>&, \
                                                           unsigned long, int, const work_hook&);              \
    template std::vector<thrust::complex<Sum>> term_values_density_matrix(                                     \
        const thrust::complex<T>*, const WObservable<Sum>&, int, const unsigned int&);
VELACAMPLIX_TERM_VALUES(float, float)
VELACAMPLIX_TERM_VALUES(double, double)
VELACAMPLIX_TERM_VALUES(float, double)

#define VELACAMPLIX_EXPECTATION_VALUES(T)                                                                             \
    template thrust::complex<T> _expectation_value<T>(const thrust::complex<T>*, WObservable<T>, unsigned long, int); \
    template thrust::complex<T> _expectation_value_density_matrix<T>(const thrust::complex<T>*, WObservable<T>, int,  \
                                                                     const unsigned int&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_EXPECTATION_VALUES)

}  // namespace pbamplix::cpu
