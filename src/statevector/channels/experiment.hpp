#pragma once

#include "statevector/channels/list_runner.hpp"
#include "statevector/channels/noise_list.hpp"
#include "statevector/gates/operation.hpp"

#include <velacamplix/storage.hpp>

#include <atomic>
#include <mutex>
#include <optional>
#include <vector>

namespace velacamplix::channels {

// A shot on its way: what it is waiting for, and what has happened to it.
struct waiting_shot {
    unsigned long site;     // where its next event is, or the number of sites
    unsigned long shot;     // counted from the first of all
    double choice;          // what decides about the event, in [0, 1)
    std::uint32_t index;    // of its next random numbers
    std::uint64_t history;  // of the operators that were not the usual ones, a hash; 0 for none
};

using pbamplix::cpu::trajectory_record;

// What all threads of a call share.
template <class T>
struct experiment {
    std::span<const gates::operation<T>> operations;
    const typename list_runner<T>::calls& calls;
    const noise_list& noise;
    unsigned nqubits;
    const thrust::complex<T>* initial;  // null: |0...0>
    const pbamplix::cpu::trajectory_settings& settings;
    int threads_per_state;

    std::vector<waiting_shot> shots = {};   // those with an event, in the order of their events
    std::vector<unsigned long> quiet = {};  // the others
    std::size_t next = 0;                   // the first that nobody has taken; guarded by
    std::mutex mutex = {};

    std::atomic<unsigned long> done = 0;  // shots
    std::atomic<bool> stopped = false;

    unsigned long size() const { return 1ul << nqubits; }
};

// Ends a thread's work because another has failed.
struct stopped_by_another {};

// Draws a shot's next event, from a site on.
void draw_event(waiting_shot& shot, const noise_list& noise, std::uint64_t seed, unsigned long from,
                std::uint32_t first_stream);

// Draws the first events of the shots first ... last - 1: those that have one are added to `shots`, those that have
// none to `quiet`.
void draw_first_events(const noise_list& noise, std::uint64_t seed, unsigned long first, unsigned long last,
                       std::vector<waiting_shot>& shots, std::vector<unsigned long>& quiet);

// One thread's part: it takes shots in the order of their first events and walks with a state of its own through the
// program, as no event would have it; for each event a copy of the state goes another way.
template <class T>
class walker {
public:
    // The runner is of the experiment's gates and outlives the walker.
    walker(experiment<T>& shared, list_runner<T>& runner, bool tells);

    // Takes shots as long as there are some.
    void work();

    // Takes `state`, which stands at the beginning for site 0 and otherwise in front of the site of the shot's first
    // event, to the end of the program.
    void apply(waiting_shot shot, unsigned long first_site, thrust::complex<T>* state, std::uint32_t first_stream);

    // Takes a state from such a place to another, or to the end for the number of sites, without an event.
    void walk(unsigned long first, unsigned long last, thrust::complex<T>* state);

    const std::vector<trajectory_record>& records() const { return found; }

private:
    using state_array = pbamplix::amplitude_array<T>;
    using group = std::vector<waiting_shot>;

    struct part {
        unsigned chosen;
        double probability;  // of this operator, where a state has decided
        group shots;
    };

    group take(unsigned long here);
    void start(thrust::complex<T>* state);
    void advance(unsigned long& gate, unsigned long to, thrust::complex<T>* state);
    std::vector<part> decide(const group& shots, unsigned long site, const thrust::complex<T>* state);
    void act(const part& chosen, unsigned long site, thrust::complex<T>* state);
    void draw_next(group& shots, unsigned long from);
    void branch(part chosen, unsigned long site, const thrust::complex<T>* state);
    void follow(group shots, unsigned long gate, thrust::complex<T>* state);
    void finish(const group& shots, const thrust::complex<T>* state);
    void finish(const std::vector<unsigned long>& shots, std::uint64_t history, const thrust::complex<T>* state);
    std::vector<unsigned long> take_quiet();
    state_array spare();
    unsigned long gate_before(unsigned long site) const;
    void normalise(thrust::complex<T>* state);

    experiment<T>& shared;
    bool tells;
    replay::run_hook hook;
    list_runner<T>& runner;
    std::uint32_t first_stream = 0;
    std::vector<state_array> spares;
    group returned;  // shots to which an event has done the usual, a heap with the earliest event in front
    std::optional<unsigned long> density_site;  // where `density` was formed, on the shared walk
    std::vector<thrust::complex<double>> density;
    std::vector<trajectory_record> found;
};

}  // namespace velacamplix::channels
