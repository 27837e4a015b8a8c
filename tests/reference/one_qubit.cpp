#include "one_qubit.hpp"

#include "arithmetic.hpp"
#include "indices.hpp"

#include <stdexcept>

namespace reference {
namespace {

template <class T>
struct Pair {
    Complex<T> low, high;
};

template <class T>
Pair<T> transformed(OneQubit gate, Complex<T> a0, Complex<T> a1, const std::vector<Complex<T>>& m) {
    const T c = inverse_root_of_two<T>;
    switch (gate) {
        case OneQubit::X:
            return {a1, a0};
        case OneQubit::Y:
            return {{a1.im, negated(a1.re)}, {negated(a0.im), a0.re}};
        case OneQubit::H: {
            const Complex<T> sum = add(a0, a1), difference = subtract(a0, a1);
            return {{sum.re * c, sum.im * c}, {difference.re * c, difference.im * c}};
        }
        case OneQubit::ZtoY: {
            const Complex<T> sum = add(a1, a0);
            return {{sum.re * c, sum.im * c}, {c * (a1.im - a0.im), c * (a0.re - a1.re)}};
        }
        case OneQubit::YtoZ: {
            const Complex<T> t = {-c * a1.im, c * a1.re};
            const Complex<T> scaled = {c * a0.re, c * a0.im};
            return {subtract(scaled, t), add(t, scaled)};
        }
        case OneQubit::RX:
            return {add(multiply(m[0], a0), multiply(m[1], a1)), add(multiply(m[1], a0), multiply(m[0], a1))};
        case OneQubit::RY:
            return {subtract(multiply(m[0], a0), multiply(m[1], a1)), add(multiply(m[1], a0), multiply(m[0], a1))};
        case OneQubit::Matrix:
            return {add(multiply(m[0], a0), multiply(m[1], a1)), add(multiply(m[2], a0), multiply(m[3], a1))};
    }
    throw std::logic_error("no such one-qubit gate");
}

}  // namespace

template <class T>
void apply(OneQubit gate, State<T>& state, unsigned int qubit, const Qubits& controls,
           const std::vector<Complex<T>>& params) {
    const Groups groups = groups_of({qubit}, controls, qubit_count(state.size()));
    for (unsigned long g = 0; g < groups.count; ++g) {
        const unsigned long base = groups.base(g);
        Complex<T>& a0 = state[base | groups.offsets[0]];
        Complex<T>& a1 = state[base | groups.offsets[1]];
        const Pair<T> result = transformed(gate, a0, a1, params);
        a0 = result.low;
        a1 = result.high;
    }
}

template void apply(OneQubit, State<float>&, unsigned int, const Qubits&, const std::vector<Complex<float>>&);
template void apply(OneQubit, State<double>&, unsigned int, const Qubits&, const std::vector<Complex<double>>&);

}  // namespace reference
