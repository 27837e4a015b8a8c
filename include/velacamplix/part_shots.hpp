#pragma once

#include "amplitude.hpp"
#include "export.hpp"

#include <memory>
#include <random>
#include <vector>

namespace pbamplix::cpu {

// Shots of a state that lies in parts on many ranks: those of pick_shots_of_any_norm for the whole state with the same
// engine, for every number of ranks.
//
// The running sum goes through the parts in order, but what takes long all ranks do at the same time:
//     part_shots<T> mine(part, ...);              reads the part
//     mine.foresee(before);                       reads it again; `before` adds up estimate() of the parts before
//     sum = mine.run(sum);                        in turn, from 0 on: some 10 ns for every 2^14 amplitudes
//     mine.write(sum of the last, engine, ...);   and the bitwise or of what all ranks wrote is the shots
// Without foresee the results are the same, and take as long as with one rank. T is float or double.
template <class T>
class VELACAMPLIX_API part_shots {
public:
    // The part's amplitudes are those of the whole state from number << part_qubits on. They must stay as they are.
    // Throws std::invalid_argument for more than 63 qubits and for a part that the state has not.
    part_shots(const thrust::complex<T>* part, unsigned int part_qubits, unsigned int state_qubits,
               unsigned long number, int nthreads);
    ~part_shots();
    part_shots(part_shots&&) noexcept;
    part_shots& operator=(part_shots&&) noexcept;

    double estimate() const;
    void foresee(double before);

    // Takes the running sum at the end of the part before (0 for the first) and returns that at the end of this one.
    double run(double before);

    // Writes the outcomes of the shots that find their index in this part, over the listed qubits (first listed = most
    // significant bit; empty = all), and 0 for all others. Takes nshots outputs of the engine, which is in the same
    // state on all ranks. Throws std::domain_error for a total of 0, infinity or NaN, std::bad_alloc where memory runs
    // out; the engine has then taken no step.
    void write(double total, std::mt19937_64& rng, unsigned long* shots, unsigned long nshots,
               const std::vector<unsigned int>& qubits) const;

private:
    struct [[gnu::visibility("hidden")]] implementation;
    std::unique_ptr<implementation> self;
};

}  // namespace pbamplix::cpu
