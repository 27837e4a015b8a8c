#include "measurement.hpp"

#include "indices.hpp"
#include "probabilities.hpp"

#include <cmath>

namespace reference {
namespace {

// Bit j of the reversed value belongs to qubits[j].
unsigned long pattern_of(unsigned long value, const Qubits& qubits) {
    unsigned long pattern = 0;
    for (unsigned long j = 0; j < qubits.size(); ++j) {
        pattern |= ((value >> (qubits.size() - 1 - j)) & 1) << qubits[j];
    }
    return pattern;
}

unsigned long all_of(const Qubits& qubits) {
    unsigned long mask = 0;
    for (unsigned int q : qubits) mask |= 1ul << q;
    return mask;
}

template <class T>
bool is_zero(T value) {
    return value == T(0);
}
template <class T>
bool is_zero(Complex<T> value) {
    return value.re == T(0) && value.im == T(0);
}

}  // namespace

template <class T>
T drawn_number(unsigned long output) {
    const T number = std::ldexp(static_cast<T>(output), -64);
    return number >= T(1) ? std::nextafter(T(1), T(0)) : number;
}

template <class T>
unsigned long chosen_index(const std::vector<T>& view, T r) {
    if (!(r > T(0))) return ~0ul;
    T sum = T(0);
    for (unsigned long i = 0; i < view.size(); ++i) {
        sum = sum + view[i];
        if (!(r > sum)) return i;
    }
    return view.size() - 1;
}

unsigned long outcome(unsigned long index, unsigned int n, const Qubits& qubits) {
    unsigned long result = 0;
    for (unsigned int j = 0; j < (qubits.empty() ? n : qubits.size()); ++j) {
        const unsigned int qubit = qubits.empty() ? j : qubits[j];
        result = 2 * result + ((index >> qubit) & 1);
    }
    return result;
}

template <class T>
std::vector<unsigned long> sampled(const std::vector<T>& view, std::mt19937_64& engine, unsigned long shots,
                                   const Qubits& qubits) {
    std::vector<unsigned long> outcomes;
    for (unsigned long s = 0; s < shots; ++s) {
        const unsigned long index = chosen_index(view, drawn_number<T>(engine()));
        outcomes.push_back(outcome(index, qubit_count(view.size()), qubits));
    }
    return outcomes;
}

template <class T>
std::optional<State<T>> projected(const State<T>& state, const Qubits& qubits, unsigned long value) {
    const unsigned long listed = all_of(qubits), pattern = pattern_of(value, qubits);
    const T norm = marginal_sum(state_view(state), pattern, qubits);
    if (norm == T(0)) return std::nullopt;
    State<T> result = state;
    for (unsigned long i = 0; i < state.size(); ++i) {
        if ((i & listed) != pattern) result[i] = {T(0), T(0)};
        result[i] = {result[i].re / std::sqrt(norm), result[i].im / std::sqrt(norm)};
    }
    return result;
}

template <class T>
State<T> moved_to_zero(const State<T>& state, const Qubits& qubits, unsigned long value) {
    const unsigned long listed = all_of(qubits), pattern = pattern_of(value, qubits);
    State<T> result = state;
    if (pattern == 0) return result;
    for (unsigned long i = 0; i < state.size(); ++i) {
        if ((i & listed) != pattern) continue;
        result[i & ~listed] = state[i];
        result[i] = {T(0), T(0)};
    }
    return result;
}

template <class T, class Element>
std::map<unsigned long, Element> mapped(const std::vector<T>& view, const std::vector<Element>& elements,
                                        T threshold_sq) {
    std::map<unsigned long, Element> result;
    for (unsigned long i = 0; i < view.size(); ++i) {
        if (is_zero(elements[i]) || !(view[i] > threshold_sq)) continue;
        result[outcome(i, qubit_count(view.size()), {})] = elements[i];
    }
    return result;
}

template <class T>
std::map<unsigned long, T> mapped_distribution(const std::vector<T>& view, T threshold_sq, const Qubits& qubits) {
    std::map<unsigned long, T> result;
    for (unsigned long v = 0; v < 1ul << qubits.size(); ++v) {
        const T p = marginal_sum(view, pattern_of(v, qubits), qubits);
        if (p != T(0) && p > threshold_sq) result[v] = p;
    }
    return result;
}

template float drawn_number(unsigned long);
template double drawn_number(unsigned long);
template unsigned long chosen_index(const std::vector<float>&, float);
template unsigned long chosen_index(const std::vector<double>&, double);
template std::vector<unsigned long> sampled(const std::vector<float>&, std::mt19937_64&, unsigned long, const Qubits&);
template std::vector<unsigned long> sampled(const std::vector<double>&, std::mt19937_64&, unsigned long, const Qubits&);
template std::optional<State<float>> projected(const State<float>&, const Qubits&, unsigned long);
template std::optional<State<double>> projected(const State<double>&, const Qubits&, unsigned long);
template State<float> moved_to_zero(const State<float>&, const Qubits&, unsigned long);
template State<double> moved_to_zero(const State<double>&, const Qubits&, unsigned long);
template std::map<unsigned long, float> mapped(const std::vector<float>&, const std::vector<float>&, float);
template std::map<unsigned long, double> mapped(const std::vector<double>&, const std::vector<double>&, double);
template std::map<unsigned long, Complex<float>> mapped(const std::vector<float>&, const State<float>&, float);
template std::map<unsigned long, Complex<double>> mapped(const std::vector<double>&, const State<double>&, double);
template std::map<unsigned long, float> mapped_distribution(const std::vector<float>&, float, const Qubits&);
template std::map<unsigned long, double> mapped_distribution(const std::vector<double>&, double, const Qubits&);

}  // namespace reference
