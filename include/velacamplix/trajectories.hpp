#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "observable.hpp"
#include "program.hpp"
#include "work_hook.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// Noise by trajectories: in each of them every channel is one of its operators, chosen at random, and the state stays a
// vector. All random numbers of a shot follow from a seed and the shot's number alone. So a shot is what it is,
// whichever thread makes it and whatever other shots are made with it.

namespace pbamplix::cpu {

// Philox 4x32-10, a counter-based generator: what the published bijection makes of a counter under a key (Salmon,
// Moraes, Dror, Shaw, "Parallel random numbers: as easy as 1, 2, 3", 2011).
VELACAMPLIX_API std::array<std::uint32_t, 4> philox(std::array<std::uint32_t, 4> counter,
                                                    std::array<std::uint32_t, 2> key);

// What a shot's random numbers are for. The two words of a shot's number `index` are philox({shot, shot >> 32, index,
// stream}, {seed, seed >> 32}), lowest 32 bits first. What a shot meets several times, in parts of a circuit that run
// one after another, has streams of its own each time: `first_stream`, a multiple of 4, is added to these.
enum class shot_stream : std::uint32_t { events = 0, outcome = 1, readout = 2, measurement = 3 };

// Writes the first word of number `index` of `count` shots to `out`; `shots` are their numbers.
VELACAMPLIX_API void shot_words(std::uint64_t seed, const unsigned long* shots, unsigned long count,
                                std::uint32_t index, std::uint32_t stream, unsigned long* out);

// One of a channel's operators on k qubits: letters of I, X, Y, Z, one for each qubit of a site in their order; or,
// without letters, a row-major 2^k x 2^k matrix, first listed qubit = high bit of a row's number.
struct channel_operator {
    std::string paulis;
    std::vector<thrust::complex<double>> matrix;
};

// A mixture chooses operator i, unitary, with probability shares[i]; shares add up to 1. Another channel chooses
// operator i with probability |K_i psi|^2 of a normalised psi, the sum of K_i^dagger K_i being the identity; there
// shares[usual] is a lower bound of that probability over all states, and the other shares are not looked at.
struct noise_channel {
    std::vector<channel_operator> operators;
    std::vector<double> shares;
    unsigned int usual = 0;  // the operator that acts unless something happens
    bool is_mixture = false;
};

// Where a channel acts in a program: behind the gates 0 ... gate - 1. The usual operator is gate `gate` itself if
// usual_is_gate, and the identity otherwise; where another operator acts, that gate is left out. Of a channel that is
// no mixture the gate may be any multiple of the operator.
struct noise_site {
    unsigned long gate = 0;
    bool usual_is_gate = false;
    unsigned long channel = 0;  // of the list of channels
    std::vector<unsigned int> qubits;
};

struct trajectory_settings {
    std::uint64_t seed = 0;
    unsigned long first_shot = 0;
    unsigned long shots = 1;
    int nthreads = 1;  // a request as for get_num_threads

    // Where the outcome of each shot goes, over the qubits `measured`, at least one: first listed = most significant
    // bit. Null: none are drawn.
    unsigned long* outcomes = nullptr;
    std::vector<unsigned int> measured = {};

    std::vector<WObservable<double>> observables = {};

    bool shares_prefixes = true;  // false: every shot is made from the start, with the same bits

    // Hears now and then, on the calling thread, how many shots are done and how many there are. What it throws ends
    // the call.
    work_hook hook = {};
};

// All shots of a call to which the same has happened.
struct trajectory_record {
    std::uint64_t history;  // of the operators that were not the usual ones, a hash; 0 for none
    unsigned long shots;
    std::vector<thrust::complex<double>> values;  // of the observables
};

struct trajectory_result {
    unsigned long distinct = 0;  // different choices of operators among the shots
    // Of every observable: the mean over the shots of its exact value in each, and the standard error of that, the
    // standard deviation over the root of shots - 1; 0 for one shot.
    std::vector<thrust::complex<double>> means;
    std::vector<double> standard_errors;
    std::vector<trajectory_record> records = {};  // what the numbers above are made of, by ascending histories
};

// What a call would have told that makes the shots of several calls, in other processes perhaps, by all their records
// in any order: the same bits. Records of equal histories have the same values. Throws std::invalid_argument where they
// have different numbers of values.
VELACAMPLIX_API trajectory_result combined(std::vector<trajectory_record> records);

// A program with channels in it.
//
// What happens in each shot is drawn before anything runs, as far as it does not depend on the state: a mixture's
// choices, and for other channels whether the usual operator acts whatever the state. Shots without an event so far are
// one state, equal shots run once, and where a choice depends on the state one reduced density matrix decides for all
// shots that have the same past. States of less than 2^18 amplitudes are made one per thread, larger ones one after
// another by all threads.
//
// Outcomes, means and errors have the same bits for every number of threads, with and without shared prefixes, and
// outcomes also for every way to cut shots into calls. An object serves one host thread at a time.
template <class T>
class VELACAMPLIX_API trajectories {
public:
    // Takes a copy of the program's gates. Sites stand in the order in which they act. Throws std::invalid_argument
    // for channels without operators, operators of the wrong size, shares outside [0, 1], sites out of order, and
    // qubits that the program lacks or that a site names twice.
    trajectories(const program<T>& list, std::vector<noise_channel> channels, std::vector<noise_site> sites);
    ~trajectories();
    trajectories(trajectories&&) noexcept;
    trajectories& operator=(trajectories&&) noexcept;

    unsigned int nqubits() const;
    unsigned long size() const;  // number of gates, usual operators among them

    // How many events a shot has on average, counted before a state decides about some of them.
    double events_per_shot() const;

    // Makes the shots, each from |0...0> or from `initial`, which has as many qubits as the program. Asks for two
    // states per thread that makes some, and for more when groups of shots part again and again; std::bad_alloc after
    // the memory guard's message where they do not fit. Throws std::invalid_argument for an initial state without
    // amplitudes or of another size, and for measured qubits or observables that the program lacks; std::domain_error
    // where the probabilities of a state add up to 0, to infinity or to NaN.
    trajectory_result run(const trajectory_settings& settings, const PybindAmplixStateVectorCPU<T>* initial = nullptr);

    // Takes a state of as many qubits through the trajectory of one shot, and gives it the norm 1. Returns false if
    // the hook, called between passes, has ended the run; the state is then of no worth.
    // With `first_site` the state stands in front of that site, where the shot has its first event.
    bool apply(PybindAmplixStateVectorCPU<T>& state, std::uint64_t seed, unsigned long shot,
               std::uint32_t first_stream = 0, const typename program<T>::progress_hook& hook = {},
               unsigned long first_site = 0);

    // For hosts that let shots share what they have in common: the sites, in front of which of them each shot has its
    // first event (sites() if it has none), and the way of a state without events from in front of site `first` to in
    // front of site `last`, or to its end and the norm 1 for sites(). The hook is that of apply, as is what is
    // returned.
    unsigned long sites() const;
    void first_events(std::uint64_t seed, const unsigned long* shots, unsigned long count, std::uint32_t first_stream,
                      unsigned long* found) const;
    bool walk(PybindAmplixStateVectorCPU<T>& state, unsigned long first, unsigned long last,
              const typename program<T>::progress_hook& hook = {});

private:
    struct [[gnu::visibility("hidden")]] implementation;
    std::unique_ptr<implementation> self;
};

// Draws an outcome of a state for each of `count` shots, by its own random numbers: first listed qubit = most
// significant bit, at least one. Numbers are fractions of the state's total, as in pick_shots_of_any_norm.
template <class T>
VELACAMPLIX_API void sample_keyed(const PybindAmplixStateVectorCPU<T>& state, unsigned long* outcomes,
                                  const unsigned long* shots, unsigned long count, std::uint64_t seed,
                                  std::uint32_t first_stream, const std::vector<unsigned int>& qubits);

// A bit that is read wrongly, by chance.
struct readout_error {
    double one_given_zero = 0;
    double zero_given_one = 0;
};

// Reads the bits of outcomes with errors: those of shot s by the random numbers of shot first_shot + s. An outcome is a
// row of `words` words, the most significant first, and errors[0] is that of its leftmost bit; as many as it has bits.
VELACAMPLIX_API void apply_readout_errors(unsigned long* rows, unsigned long shots, unsigned long words,
                                          const std::vector<readout_error>& errors, std::uint64_t seed,
                                          unsigned long first_shot, int nthreads);

}  // namespace pbamplix::cpu
