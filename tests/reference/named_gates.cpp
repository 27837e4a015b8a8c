#include "named_gates.hpp"

#include "arithmetic.hpp"
#include "diagonal.hpp"
#include "one_qubit.hpp"
#include "two_qubit.hpp"

#include <cmath>
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

}  // namespace

template <class T>
void apply(State<T>& state, const NamedGate<T>& gate) {
    static const std::map<std::string, OneQubit> mixing = {
        {"X", OneQubit::X}, {"Y", OneQubit::Y}, {"H", OneQubit::H}, {"ZtoY", OneQubit::ZtoY}, {"YtoZ", OneQubit::YtoZ}};
    static const std::map<std::string, Phase> turning = {{"Z", Phase::Z}, {"S", Phase::S}, {"T", Phase::T}};
    static const std::map<std::string, TwoQubit> pairs = {
        {"SWAP", TwoQubit::SWAP}, {"ISWAP", TwoQubit::ISWAP}, {"SQRTSWAP", TwoQubit::SQRTSWAP}};

    const auto& [name, q, angle, controls] = gate;
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
    throw std::logic_error("no such named gate: " + name);
}

template void apply(State<float>&, const NamedGate<float>&);
template void apply(State<double>&, const NamedGate<double>&);

}  // namespace reference
