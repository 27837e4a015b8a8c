#include "loading.hpp"

#include "arithmetic.hpp"
#include "indices.hpp"
#include "probabilities.hpp"

#include <cmath>

namespace reference {
namespace {

unsigned long placed(unsigned long value, const Qubits& qubits, unsigned long first, unsigned long last) {
    unsigned long pattern = 0;
    for (unsigned long t = first; t < last; ++t) pattern |= ((value >> (t - first)) & 1) << qubits[t];
    return pattern;
}

unsigned long union_of(const Qubits& qubits) {
    unsigned long mask = 0;
    for (unsigned int q : qubits) mask |= 1ul << (q % 64);
    return mask;
}

}  // namespace

template <class T>
void state_preparation(State<T>& state, const std::vector<Complex<double>>& data, const Qubits& qubits) {
    const unsigned long mask = union_of(qubits);
    const Groups groups = groups_of(qubits, {}, qubit_count(state.size()));
    for (unsigned long g = 0; g < groups.count; ++g) {
        const unsigned long base = groups.base(g);
        T sum = T(0);
        for (unsigned long offset : groups.offsets) sum = sum + squared_magnitude(state[base | offset]);
        const T root = std::sqrt(sum);
        for (unsigned long offset : groups.offsets) {
            const Complex<double> entry = data[extract(base | offset, mask)];
            state[base | offset] = {static_cast<T>(entry.re) * root, static_cast<T>(entry.im) * root};
        }
    }
}

template <class T>
void qram(State<T>& state, const std::vector<Complex<double>>& data, const Qubits& qubits, unsigned int naddress) {
    const Groups groups = groups_of(qubits, {}, qubit_count(state.size()));
    const unsigned long values = 1ul << (qubits.size() - naddress);
    for (unsigned long g = 0; g < groups.count; ++g) {
        for (unsigned long a = 0; a < 1ul << naddress; ++a) {
            const unsigned long source = groups.base(g) | placed(a, qubits, 0, naddress);
            Complex<T> amplitude = state[source];
            T sum = T(0);
            for (unsigned long v = 0; v < values; ++v) {
                const double re = data[a * values + v].re;
                const T square = static_cast<T>(re * re);
                sum = sum + square;
            }
            const T norm = std::sqrt(sum);
            if (norm > T(0)) amplitude = {amplitude.re / norm, amplitude.im / norm};
            for (unsigned long v = 0; v < values; ++v) {
                const T weight = static_cast<T>(data[a * values + v].re);
                state[source | placed(v, qubits, naddress, qubits.size())] = {amplitude.re * weight,
                                                                              amplitude.im * weight};
            }
        }
    }
}

template <class T>
void binary_qram(State<T>& state, const std::vector<unsigned long>& data, const Qubits& qubits, unsigned int naddress) {
    const Groups groups = groups_of(qubits, {}, qubit_count(state.size()));
    for (unsigned long g = 0; g < groups.count; ++g) {
        for (unsigned long a = 0; a < 1ul << naddress; ++a) {
            const unsigned long source = groups.base(g) | placed(a, qubits, 0, naddress);
            const unsigned long destination = source | placed(data[a], qubits, naddress, qubits.size());
            const Complex<T> moved = state[source];
            state[source] = {0, 0};
            state[destination] = moved;
        }
    }
}

template <class T>
void phase_oracle(State<T>& state, const std::vector<unsigned long>& marked, const Qubits& qubits) {
    const unsigned int n = qubit_count(state.size());
    for (unsigned long k = 0; k < state.size(); ++k) {
        unsigned long key = 0;
        for (unsigned int q : qubits) key = 2 * key + ((k >> q) & 1);
        for (unsigned long value : marked) {
            if (value != key) continue;
            Complex<T>& amplitude = state[k == 0 ? 0 : reverse_bits(k, n)];
            amplitude = {negated(amplitude.re), negated(amplitude.im)};
            break;
        }
    }
}

#define REFERENCE_LOADING(T)                                                                              \
    template void state_preparation(State<T>&, const std::vector<Complex<double>>&, const Qubits&);       \
    template void qram(State<T>&, const std::vector<Complex<double>>&, const Qubits&, unsigned int);      \
    template void binary_qram(State<T>&, const std::vector<unsigned long>&, const Qubits&, unsigned int); \
    template void phase_oracle(State<T>&, const std::vector<unsigned long>&, const Qubits&);
REFERENCE_LOADING(float)
REFERENCE_LOADING(double)
#undef REFERENCE_LOADING

}  // namespace reference
