#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "program.hpp"
#include "work_hook.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

// A state in parts: 2^r of them, each on a rank of its own, a process with memory of its own or a piece of a file.
// Gates act in every part by itself, stage by stage; between two stages parts exchange amplitudes. How amplitudes
// travel is the host's matter.
//
// Qubits have places: those at places 0 ... l - 1 are bits of an amplitude's position in its part, those at l, l + 1,
// ... are bits of the rank's number. Gates never change places with others unless one of the two only moves amplitudes,
// so that the state has, wherever its amplitudes are, bit for bit those that program::run gives.

namespace pbamplix::cpu {

// Before a stage: amplitudes first ... first + count - 1 of a rank's part and as many of its partner's, given by the
// transfer of the partner that names this rank, change places.
struct part_transfer {
    unsigned long partner;
    unsigned long first;
    unsigned long count;
};

// Where the qubits of a program stand: qubit q is bit places[q] of `position | (rank ^ flipped) << l`.
struct qubit_places {
    std::vector<unsigned int> places;
    unsigned long flipped;
};

// Puts what `bytes` bytes at `data` hold in the hands of another rank, which calls at the same time with this rank, and
// what that one gives in their place. At most 16 MiB at a time. What it throws ends the run, with a part of no worth.
using part_exchange = std::function<void(unsigned long partner, void* data, std::size_t bytes)>;

struct stage_settings {
    // The state begins as |0...0>: amplitude 0 of rank 0 is 1, all others are 0, and qubits may stand anywhere.
    // Otherwise its parts are in the order of the ranks and its qubits in the order of their numbers.
    bool from_zeros = true;
    // In the end the lowest l qubits are at their own places again, so that every part is a range of the state. Which
    // of the others is which bit of a rank stays as it is.
    bool back_in_order = true;
};

// A program cut into stages for parts of 2^(nqubits - rank_bits) amplitudes. All ranks make the same plan of the same
// program. An object must not be used by two host threads at once. T is float or double.
template <class T>
class VELACAMPLIX_API stage_plan {
public:
    // Throws std::invalid_argument for a program with fusion or with more qubits than the state, for more than 63
    // qubits, for parts of less than two amplitudes, and for a gate that mixes more qubits than a part has. Controls
    // and the qubits of diagonal gates are not counted: they may be bits of a rank's number.
    stage_plan(const program<T>& list, unsigned int nqubits, unsigned int rank_bits,
               const stage_settings& settings = {});
    ~stage_plan();
    stage_plan(stage_plan&&) noexcept;
    stage_plan& operator=(stage_plan&&) noexcept;

    unsigned long size() const;  // stages
    unsigned int part_qubits() const;

    // What every rank sends, and gets, in all stages together; 1 is its whole part once.
    double parts_sent() const;

    // The numbers that the gates multiply by, gate by gate. Sines and cosines may have other last bits on other
    // processors: ranks that all set those of one of them make the state which that one makes by itself. Throws
    // std::invalid_argument for more or fewer numbers than there are.
    std::vector<thrust::complex<T>> coefficients() const;
    void set_coefficients(const std::vector<thrust::complex<T>>& numbers);

    // What travels before a stage. In turn: no rank has two partners at the same time.
    std::vector<part_transfer> transfers(unsigned long stage, unsigned long rank) const;

    // Lets the gates of a stage act in a rank's part. Plans of passes are kept for the stage that ran last. The hook
    // hears between passes how many have been made; what it throws ends the call, with a part of no worth.
    void run_stage(unsigned long stage, unsigned long rank, thrust::complex<T>* part, int nthreads,
                   const work_hook& hook = {});

    // All stages, with what travels between them; the hook hears of stages.
    void run(unsigned long rank, thrust::complex<T>* part, int nthreads, const part_exchange& exchange,
             const work_hook& hook = {});

    // After the last stage.
    const qubit_places& places() const;
    // The number of a rank's part among the parts of the state in its order. Throws std::logic_error for a plan that
    // does not bring it back in order.
    unsigned long part_of(unsigned long rank) const;

private:
    struct [[gnu::visibility("hidden")]] implementation;
    std::unique_ptr<implementation> self;
};

}  // namespace pbamplix::cpu
