#include "named_gates.hpp"

#include "arithmetic.hpp"
#include "diagonal.hpp"
#include "one_qubit.hpp"
#include "two_qubit.hpp"

#include <cmath>
#include <complex>
#include <map>
#include <stdexcept>

namespace reference {
namespace {

void sine_and_cosine(float angle, float& sine, float& cosine) { ::sincosf(angle, &sine, &cosine); }
void sine_and_cosine(double angle, double& sine, double& cosine) { ::sincos(angle, &sine, &cosine); }

template <class T>
void apply_rotation(State<T>& state, const NamedGate<T>& gate) {
    T sine, cosine;
    sine_and_cosine(gate.angle * T(0.5), sine, cosine);
    const Complex<T> d = {cosine, T(0)};
    const unsigned int target = gate.qubits[0];
    if (gate.name == "RX") apply(OneQubit::RX, state, target, gate.controls, {d, {T(0), negated(sine)}});
    if (gate.name == "RY") apply(OneQubit::RY, state, target, gate.controls, {d, {sine, T(0)}});
    if (gate.name == "RZ") {
        apply_diagonal(state, {target}, gate.controls, {{cosine, negated(sine)}, {cosine, sine}});
    }
}

template <class T>
void apply_matrix(State<T>& state, const std::vector<Complex<T>>& matrix, const Qubits& q, const Qubits& controls) {
    const std::size_t dim = std::size_t{1} << q.size();
    bool is_diagonal = true;
    std::vector<Complex<T>> diagonal;
    for (std::size_t i = 0; i < dim * dim; ++i) {
        if (i % (dim + 1) == 0) {
            diagonal.push_back(matrix[i]);
        } else if (matrix[i].re != 0 || matrix[i].im != 0) {
            is_diagonal = false;
        }
    }
    if (is_diagonal) return apply_diagonal(state, q, controls, diagonal);
    if (q.size() == 1) return apply(OneQubit::Matrix, state, q[0], controls, matrix);
    apply(TwoQubit::Matrix, state, q[0], q[1], controls, matrix);
}

using Entry = std::complex<double>;

Entry times(Entry a, Entry b) {
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

// Of gates without a member.
std::vector<Entry> entries_of(const std::string& name, double angle, double phi, double lam) {
    const double c = std::cos(angle / 2), s = std::sin(angle / 2);
    if (name == "RZZ") return {{c, -s}, 0, 0, 0, 0, {c, s}, 0, 0, 0, 0, {c, s}, 0, 0, 0, 0, {c, -s}};
    const Entry flip(0, -s);
    if (name == "RXX") return {c, 0, 0, flip, 0, c, flip, 0, 0, flip, c, 0, flip, 0, 0, c};
    const Entry turn(0, s);
    if (name == "RYY") return {c, 0, 0, turn, 0, c, -turn, 0, 0, -turn, c, 0, turn, 0, 0, c};
    if (name == "U") {
        const Entry p(std::cos(phi), std::sin(phi)), q(std::cos(lam), std::sin(lam));
        return {c, -times(Entry(s, 0), q), times(Entry(s, 0), p), times(times(Entry(c, 0), p), q)};
    }
    if (name == "SX") return {{0.5, 0.5}, {0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}};
    return {};
}

}  // namespace

template <class T>
std::vector<Complex<T>> matrix_of(const NamedGate<T>& gate) {
    std::vector<Complex<T>> rounded;
    for (const Entry& e : entries_of(gate.name, gate.angle, gate.phi, gate.lam)) {
        rounded.push_back({static_cast<T>(e.real()), static_cast<T>(e.imag())});
    }
    return rounded;
}

template <class T>
void apply(State<T>& state, const NamedGate<T>& gate) {
    static const std::map<std::string, OneQubit> mixing = {
        {"X", OneQubit::X}, {"Y", OneQubit::Y}, {"H", OneQubit::H}, {"ZtoY", OneQubit::ZtoY}, {"YtoZ", OneQubit::YtoZ}};
    static const std::map<std::string, Phase> turning = {{"Z", Phase::Z}, {"S", Phase::S}, {"T", Phase::T}};
    static const std::map<std::string, TwoQubit> pairs = {
        {"SWAP", TwoQubit::SWAP}, {"ISWAP", TwoQubit::ISWAP}, {"SQRTSWAP", TwoQubit::SQRTSWAP}};

    const auto& [name, q, angle, controls, phi, lam] = gate;
    if (mixing.contains(name)) return apply(mixing.at(name), state, q[0], controls);
    if (turning.contains(name)) return apply(turning.at(name), state, {q[0]}, controls);
    if (pairs.contains(name)) return apply(pairs.at(name), state, q[0], q[1], {});
    if (name == "RX" || name == "RY" || name == "RZ") return apply_rotation(state, gate);
    if (name == "CNOT") return apply(OneQubit::X, state, q[1], {q[0]});
    if (name == "CCNOT") return apply(OneQubit::X, state, q[2], {q[0], q[1]});
    if (name == "CSIGN") return apply(Phase::Z, state, {q[1]}, {q[0]});
    if (name == "PH") {
        Complex<T> factor;
        sine_and_cosine(angle, factor.im, factor.re);
        return apply(Phase::PH, state, {q[0]}, controls, factor);
    }
    const auto matrix = matrix_of(gate);
    if (matrix.empty()) throw std::logic_error("no such named gate: " + name);
    apply_matrix(state, matrix, q, controls);
}

template std::vector<Complex<float>> matrix_of(const NamedGate<float>&);
template std::vector<Complex<double>> matrix_of(const NamedGate<double>&);

template void apply(State<float>&, const NamedGate<float>&);
template void apply(State<double>&, const NamedGate<double>&);

}  // namespace reference
