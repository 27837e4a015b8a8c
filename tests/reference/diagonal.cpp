#include "diagonal.hpp"

#include "arithmetic.hpp"
#include "indices.hpp"

#include <stdexcept>

namespace reference {
namespace {

template <class T>
Complex<T> turned(Phase gate, Complex<T> a, Complex<T> factor) {
    switch (gate) {
        case Phase::Z:
            return {negated(a.re), negated(a.im)};
        case Phase::S:
            return multiply({T(0), T(1)}, a);
        case Phase::T: {
            const T r = a.re * inverse_root_of_two<T>, s = a.im * inverse_root_of_two<T>;
            return {r - s, s + r};
        }
        case Phase::PH:
            return multiply(factor, a);
    }
    throw std::logic_error("no such phase gate");
}

}  // namespace

template <class T>
void apply(Phase gate, State<T>& state, const Qubits& targets, const Qubits& controls, Complex<T> factor) {
    const unsigned long mask = mask_of(targets);
    const std::vector<unsigned int> local_index = sorted_indices(targets, mask);
    const Groups groups = groups_of({}, controls, qubit_count(state.size()));
    for (unsigned long g = 0; g < groups.count; ++g) {
        const unsigned long i = groups.base(g);
        if (local_index[extract(i, mask)] == 1) state[i] = turned(gate, state[i], factor);
    }
}

template <class T>
void apply_diagonal(State<T>& state, const Qubits& targets, const Qubits& controls,
                    const std::vector<Complex<T>>& diag) {
    const unsigned long mask = mask_of(targets);
    const std::vector<Complex<T>> sorted = sorted_diagonal(targets, diag, mask);
    const Groups groups = groups_of({}, controls, qubit_count(state.size()));
    for (unsigned long g = 0; g < groups.count; ++g) {
        const unsigned long i = groups.base(g);
        state[i] = multiply(state[i], sorted[extract(i, mask)]);
    }
}

template <class T>
std::vector<Complex<T>> sorted_diagonal(const Qubits& targets, const std::vector<Complex<T>>& diag,
                                        unsigned long mask) {
    std::vector<Complex<T>> sorted(diag.size());
    for (unsigned long i = 0; i < diag.size(); ++i) {
        unsigned long pattern = 0;
        for (unsigned long t = 0; t < targets.size(); ++t) pattern |= ((i >> t) & 1) << targets[t];
        sorted[extract(pattern, mask)] = diag[reverse_bits(i, targets.size())];
    }
    return sorted;
}

template void apply(Phase, State<float>&, const Qubits&, const Qubits&, Complex<float>);
template void apply(Phase, State<double>&, const Qubits&, const Qubits&, Complex<double>);
template void apply_diagonal(State<float>&, const Qubits&, const Qubits&, const std::vector<Complex<float>>&);
template void apply_diagonal(State<double>&, const Qubits&, const Qubits&, const std::vector<Complex<double>>&);
template std::vector<Complex<float>> sorted_diagonal(const Qubits&, const std::vector<Complex<float>>&, unsigned long);
template std::vector<Complex<double>> sorted_diagonal(const Qubits&, const std::vector<Complex<double>>&,
                                                      unsigned long);

}  // namespace reference
