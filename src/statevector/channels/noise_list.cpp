#include "statevector/channels/noise_list.hpp"

#include "statevector/gates/gate_table.hpp"
#include "statevector/packs/precision.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace velacamplix::channels {

using pbamplix::cpu::channel_operator;
using pbamplix::cpu::noise_channel;
using pbamplix::cpu::noise_site;
using complex = thrust::complex<double>;

namespace {

constexpr unsigned most_channel_qubits = 6;

[[noreturn]] void refuse(const std::string& why) { throw std::invalid_argument(why); }

void check_channel(const noise_channel& channel, unsigned long number, std::size_t qubits) {
    const auto refuse_this = [&](const std::string& why) { refuse("Channel " + std::to_string(number) + " " + why); };
    if (channel.operators.empty()) refuse_this("has no operators");
    if (channel.usual >= channel.operators.size()) refuse_this("lacks its usual operator");
    if (channel.shares.size() != channel.operators.size()) refuse_this("needs a share for each of its operators");
    if (qubits == 0 || qubits > most_channel_qubits)
        refuse_this("acts on 1 to 6 qubits, not " + std::to_string(qubits));
    for (const double share : channel.shares) {
        if (!(share >= 0 && share <= 1)) refuse_this("has a share of " + std::to_string(share));
    }
    for (const channel_operator& op : channel.operators) {
        const bool is_text = !op.paulis.empty();
        if (is_text ? op.paulis.size() != qubits || op.paulis.find_first_not_of("IXYZ") != std::string::npos
                    : op.matrix.size() != 1ul << 2 * qubits) {
            refuse_this("has an operator that does not fit " + std::to_string(qubits) + " qubits");
        }
        if (is_text && !channel.is_mixture) refuse_this("is no mixture: its operators are matrices");
    }
}

// What happens at a site, besides the usual.
std::vector<double> event_probabilities(const std::vector<noise_channel>& channels,
                                        const std::vector<noise_site>& sites) {
    std::vector<double> probabilities;
    for (const noise_site& site : sites) {
        if (site.channel >= channels.size()) {
            refuse("A site names channel " + std::to_string(site.channel) + " of " + std::to_string(channels.size()));
        }
        const noise_channel& channel = channels[site.channel];
        double others = 0;
        if (!channel.is_mixture) {
            others = channel.usual < channel.shares.size() ? 1 - channel.shares[channel.usual] : 1;
        }
        // A sum, since 1 less a share near 1 has lost its last digits.
        for (std::size_t i = 0; channel.is_mixture && i < channel.shares.size(); ++i) {
            if (i != channel.usual) others += channel.shares[i];
        }
        probabilities.push_back(others);
    }
    return probabilities;
}

std::vector<complex> effect_of(const std::vector<complex>& matrix) {
    const auto dim = static_cast<unsigned long>(std::lround(std::sqrt(static_cast<double>(matrix.size()))));
    std::vector<complex> effect(matrix.size());
    for (unsigned long row = 0; row < dim; ++row) {
        for (unsigned long column = 0; column < dim; ++column) {
            complex sum(0, 0);
            for (unsigned long i = 0; i < dim; ++i) {
                sum += thrust::conj(matrix[i * dim + row]) * matrix[i * dim + column];
            }
            effect[row * dim + column] = sum;
        }
    }
    return effect;
}

// The first of the weights that a number in [0, 1) of their sum falls into.
unsigned picked(const std::vector<double>& weights, double number) {
    double left = 0;
    for (const double weight : weights) left += weight;
    left *= number;
    unsigned last = 0;
    for (unsigned i = 0; i < weights.size(); ++i) {
        if (weights[i] <= 0) continue;
        if (left < weights[i]) return i;
        left -= weights[i];
        last = i;
    }
    return last;
}

}  // namespace

noise_list::noise_list(std::vector<noise_channel> all, std::vector<noise_site> where, unsigned long gates,
                       unsigned nqubits)
    : channels(std::move(all)), sites(std::move(where)), times(event_probabilities(channels, sites)) {
    unsigned long behind = 0;  // the first gate that has not acted
    for (const noise_site& site : sites) {
        if (site.gate < behind || site.gate + site.usual_is_gate > gates) {
            refuse("Sites stand in the order of their gates, of which there are " + std::to_string(gates));
        }
        behind = site.gate + site.usual_is_gate;
        check_channel(channels[site.channel], site.channel, site.qubits.size());
        unsigned long named = 0;
        for (const unsigned qubit : site.qubits) {
            if (qubit >= nqubits || (named >> qubit & 1) != 0) {
                refuse("A site names qubit " + std::to_string(qubit) + " twice or beyond the program's " +
                       std::to_string(nqubits));
            }
            named |= 1ul << qubit;
        }
    }
    for (const double probability : event_probabilities(channels, sites)) expected += probability;
    for (const noise_channel& channel : channels) {
        effects.emplace_back();
        if (channel.is_mixture) continue;
        all_are_mixtures = false;
        for (const channel_operator& op : channel.operators) effects.back().push_back(effect_of(op.matrix));
    }
}

unsigned noise_list::chosen(unsigned long number, double random) const {
    const noise_channel& channel = channel_at(number);
    std::vector<double> weights = channel.shares;
    weights[channel.usual] = 0;
    return picked(weights, random);
}

noise_list::decision noise_list::decided(unsigned long number, double random,
                                         const std::vector<complex>& density) const {
    const noise_channel& channel = channel_at(number);
    const auto dim = 1ul << sites[number].qubits.size();
    double trace = 0;
    for (unsigned long i = 0; i < dim; ++i) trace += density[i * dim + i].real();
    std::vector<double> weights;
    for (const auto& effect : effects[sites[number].channel]) {
        double sum = 0;  // Tr(effect density), which is real
        for (unsigned long row = 0; row < dim; ++row) {
            for (unsigned long column = 0; column < dim; ++column) {
                const complex a = effect[row * dim + column], b = density[column * dim + row];
                sum += a.real() * b.real() - a.imag() * b.imag();
            }
        }
        weights.push_back(std::max(0.0, sum));
    }
    const std::vector<double> probabilities = weights;
    // The usual operator's sure share has been drawn before.
    weights[channel.usual] = std::max(0.0, weights[channel.usual] - channel.shares[channel.usual] * trace);
    const unsigned found = picked(weights, random);
    return {found, probabilities[found]};
}

template <class T>
std::vector<gates::operation<T>> noise_list::gates_of(unsigned long number, unsigned operator_number,
                                                      double factor) const {
    const noise_site& where = sites[number];
    const channel_operator& op = channel_at(number).operators[operator_number];
    std::vector<gates::operation<T>> made;
    if (op.paulis.empty()) {
        std::vector<thrust::complex<T>> matrix;
        for (const complex& entry : op.matrix) {
            matrix.emplace_back(static_cast<T>(factor * entry.real()), static_cast<T>(factor * entry.imag()));
        }
        made.push_back(gates::matrix_operation(matrix, where.qubits, false));
        return made;
    }
    for (std::size_t i = 0; i < op.paulis.size(); ++i) {
        if (op.paulis[i] == 'I') continue;
        const gates::gate_row* const row = gates::find_gate(std::string(1, op.paulis[i]));
        made.push_back(gates::named_operation<T>(*row, std::vector<double>(), {where.qubits[i]}));
    }
    return made;
}

#define VELACAMPLIX_INSTANTIATE(T) \
    template std::vector<gates::operation<T>> noise_list::gates_of(unsigned long, unsigned, double) const;
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::channels
