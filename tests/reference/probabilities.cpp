#include "probabilities.hpp"

#include "arithmetic.hpp"
#include "indices.hpp"

#include <cmath>
#include <limits>

namespace reference {
namespace {

unsigned long placed(unsigned long value, const Qubits& qubits) {
    unsigned long fixed = 0;
    for (unsigned long j = 0; j < qubits.size(); ++j) fixed |= ((value >> j) & 1) << qubits[j];
    return fixed;
}

}  // namespace

template <class T>
T squared_magnitude(Complex<T> a) {
    const T tiny = std::sqrt(std::numeric_limits<T>::min());
    if (std::fabs(a.re) < tiny && std::fabs(a.im) < tiny) {
        const T re = a.re * T(4), im = a.im * T(4);
        return (re * re + im * im) * T(0.0625);
    }
    return a.re * a.re + a.im * a.im;
}

template <class T>
std::vector<T> state_view(const State<T>& state) {
    std::vector<T> view;
    for (const auto& a : state) view.push_back(squared_magnitude(a));
    return view;
}

template <class T>
std::vector<T> density_view(const State<T>& matrix) {
    const unsigned long dim = 1ul << (qubit_count(matrix.size()) / 2);
    std::vector<T> view;
    for (unsigned long k = 0; k < dim; ++k) view.push_back(matrix[k * (dim + 1)].re);
    return view;
}

template <class T>
T marginal_sum(const std::vector<T>& view, unsigned long fixed, const Qubits& qubits) {
    const unsigned long block = 1ul << 16;
    unsigned long free_mask = view.size() - 1;
    for (unsigned int q : qubits) free_mask &= ~(1ul << q);
    const unsigned long count = view.size() >> qubits.size();

    T total = T(0);
    for (unsigned long first = 0; first < count; first += block) {
        T sum = T(0);
        for (unsigned long j = first; j < first + block && j < count; ++j) {
            sum = sum + view[deposit(j, free_mask) | fixed];
        }
        total = total + sum;
    }
    return total;
}

template <class T>
T probability(const std::vector<T>& view, unsigned long outcome, const Qubits& qubits) {
    return marginal_sum(view, placed(outcome, qubits), qubits);
}

template <class T>
std::vector<T> distribution(const std::vector<T>& view, T threshold, const Qubits& qubits) {
    const unsigned long outcomes = 1ul << qubits.size();
    std::vector<T> out(outcomes);
    for (unsigned long v = 0; v < outcomes; ++v) {
        const T p = marginal_sum(view, placed(v, qubits), qubits);
        const unsigned long position = v == 0 ? 0 : reverse_bits(v, qubits.size());
        out[position] = p > threshold * threshold ? p : T(0);
    }
    return out;
}

template <class T, class Element>
std::vector<Element> permuted(const std::vector<T>& view, const std::vector<Element>& elements, T threshold_sq) {
    std::vector<Element> out(view.size());
    for (unsigned long i = 0; i < view.size(); ++i) {
        out[reverse_bits(i, qubit_count(view.size()))] = view[i] > threshold_sq ? elements[i] : Element{};
    }
    return out;
}

template float squared_magnitude(Complex<float>);
template double squared_magnitude(Complex<double>);
template std::vector<float> state_view(const State<float>&);
template std::vector<double> state_view(const State<double>&);
template std::vector<float> density_view(const State<float>&);
template std::vector<double> density_view(const State<double>&);
template float marginal_sum(const std::vector<float>&, unsigned long, const Qubits&);
template double marginal_sum(const std::vector<double>&, unsigned long, const Qubits&);
template float probability(const std::vector<float>&, unsigned long, const Qubits&);
template double probability(const std::vector<double>&, unsigned long, const Qubits&);
template std::vector<float> distribution(const std::vector<float>&, float, const Qubits&);
template std::vector<double> distribution(const std::vector<double>&, double, const Qubits&);
template std::vector<float> permuted(const std::vector<float>&, const std::vector<float>&, float);
template std::vector<double> permuted(const std::vector<double>&, const std::vector<double>&, double);
template State<float> permuted(const std::vector<float>&, const State<float>&, float);
template State<double> permuted(const std::vector<double>&, const State<double>&, double);

}  // namespace reference
