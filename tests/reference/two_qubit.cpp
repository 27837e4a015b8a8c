#include "two_qubit.hpp"

#include "arithmetic.hpp"
#include "indices.hpp"

#include <array>
#include <stdexcept>

namespace reference {
namespace {

template <class T>
using Four = std::array<Complex<T>, 4>;

// Half of (1+i) x + (1-i) y: the components are halved first, then added.
template <class T>
Complex<T> root_of_swap(Complex<T> x, Complex<T> y) {
    const T h = T(0.5);
    return {(x.re * h - x.im * h) + (y.im * h + y.re * h), (y.im * h - y.re * h) + (x.im * h + x.re * h)};
}

// Every row is summed from left to right, then multiplied once.
template <class T>
Four<T> hadamards(const Four<T>& a) {
    const auto& [A, B, C, D] = a;
    const Complex<T> half = {T(0.5), T(0)};
    return {multiply(half, add(add(add(A, B), C), D)), multiply(half, subtract(add(subtract(A, B), C), D)),
            multiply(half, subtract(subtract(add(A, B), C), D)), multiply(half, add(subtract(subtract(A, B), C), D))};
}

template <class T>
Four<T> z_to_y_pair(const Four<T>& a) {
    const auto& [A, B, C, D] = a;
    const Complex<T> half = {T(0.5), T(0)}, half_i = {T(0), T(0.5)};
    // Second row: i/2 (-A + B - C + D).
    return {multiply(half, add(add(add(A, B), C), D)), multiply(half_i, add(subtract(subtract(B, A), C), D)),
            multiply(half_i, subtract(subtract(add(A, B), C), D)), multiply(half, add(subtract(subtract(A, B), C), D))};
}

template <class T>
Four<T> y_to_z_pair(const Four<T>& a) {
    const Complex<T> half = {T(0.5), T(0)}, half_i = {T(0), T(0.5)};
    const Complex<T> A = multiply(half, a[0]), B = multiply(half_i, a[1]);
    const Complex<T> C = multiply(half_i, a[2]), D = multiply(half, a[3]);
    const Complex<T> s = add(A, B), t = subtract(A, B);
    return {add(subtract(s, C), D), subtract(subtract(t, C), D), subtract(add(C, s), D), add(D, add(t, C))};
}

template <class T>
Four<T> product(const std::vector<Complex<T>>& m, const Four<T>& a) {
    Four<T> result;
    for (unsigned int r = 0; r < 4; ++r) {
        result[r] = multiply(m[4 * r], a[0]);
        for (unsigned int column = 1; column < 4; ++column) {
            result[r] = add(result[r], multiply(m[4 * r + column], a[column]));
        }
    }
    return result;
}

template <class T>
Four<T> transformed(TwoQubit gate, const Four<T>& a, const std::vector<Complex<T>>& m) {
    const Complex<T> i = {T(0), T(1)};
    switch (gate) {
        case TwoQubit::SWAP:
            return {a[0], a[2], a[1], a[3]};
        case TwoQubit::ISWAP:
            return {a[0], multiply(i, a[2]), multiply(i, a[1]), a[3]};
        case TwoQubit::SQRTSWAP:
            return {a[0], root_of_swap(a[1], a[2]), root_of_swap(a[2], a[1]), a[3]};
        case TwoQubit::HH:
            return hadamards(a);
        case TwoQubit::ZtoYZtoYConj:
            return z_to_y_pair(a);
        case TwoQubit::YtoZYtoZConj:
            return y_to_z_pair(a);
        case TwoQubit::Matrix:
            return product(m, a);
    }
    throw std::logic_error("no such two-qubit gate");
}

}  // namespace

template <class T>
void apply(TwoQubit gate, State<T>& state, unsigned int qubit1, unsigned int qubit2, const Qubits& controls,
           const std::vector<Complex<T>>& params) {
    const Groups groups = groups_of({qubit1, qubit2}, controls, qubit_count(state.size()));
    for (unsigned long g = 0; g < groups.count; ++g) {
        const unsigned long base = groups.base(g);
        Four<T> local;
        for (unsigned int j = 0; j < 4; ++j) local[j] = state[base | groups.offsets[j]];
        const Four<T> result = transformed(gate, local, params);
        for (unsigned int j = 0; j < 4; ++j) state[base | groups.offsets[j]] = result[j];
    }
}

template void apply(TwoQubit, State<float>&, unsigned int, unsigned int, const Qubits&,
                    const std::vector<Complex<float>>&);
template void apply(TwoQubit, State<double>&, unsigned int, unsigned int, const Qubits&,
                    const std::vector<Complex<double>>&);

}  // namespace reference
