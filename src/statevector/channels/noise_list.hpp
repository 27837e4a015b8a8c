#pragma once

#include "statevector/channels/event_times.hpp"
#include "statevector/channels/shot_numbers.hpp"
#include "statevector/gates/operation.hpp"

#include <velacamplix/trajectories.hpp>

#include <vector>

namespace velacamplix::channels {

// The channels of a program and where they act, checked and ready to be asked.
class noise_list {
public:
    // Throws std::invalid_argument as the constructor of trajectories tells.
    noise_list(std::vector<pbamplix::cpu::noise_channel> channels, std::vector<pbamplix::cpu::noise_site> sites,
               unsigned long gates, unsigned nqubits);

    unsigned long size() const { return sites.size(); }
    const pbamplix::cpu::noise_site& site(unsigned long number) const { return sites[number]; }
    const pbamplix::cpu::noise_channel& channel_at(unsigned long number) const {
        return channels[sites[number].channel];
    }
    bool keeps_norms() const { return all_are_mixtures; }
    double events_per_shot() const { return expected; }

    // The first site from `from` on where a shot has an event, or size(). An event of a mixture is that another
    // operator than the usual one acts, any other event that the state decides.
    unsigned long next_event(unsigned long from, double number) const { return times.next(from, number); }

    // The operator of a mixture's event, by a number in [0, 1).
    unsigned chosen(unsigned long site, double number) const;

    // That of another channel's event, in a state with this reduced density matrix (row by row, first qubit of the site
    // = high bit, any trace); and the probability that it has in this state.
    struct decision {
        unsigned chosen;
        double probability;
    };
    decision decided(unsigned long site, double number, const std::vector<thrust::complex<double>>& density) const;

    // The gates that an operator stands for, its numbers multiplied by `factor`.
    template <class T>
    std::vector<gates::operation<T>> gates_of(unsigned long site, unsigned chosen, double factor) const;

private:
    std::vector<pbamplix::cpu::noise_channel> channels;
    std::vector<pbamplix::cpu::noise_site> sites;
    event_times times;
    double expected = 0;
    bool all_are_mixtures = true;
    // Of each channel that is no mixture K^dagger K of every operator K.
    std::vector<std::vector<std::vector<thrust::complex<double>>>> effects;
};

}  // namespace velacamplix::channels
