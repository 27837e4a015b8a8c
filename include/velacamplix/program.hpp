#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "gradient.hpp"
#include "statevector.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace pbamplix::cpu {

template <class T>
class trajectories;
template <class T>
class stage_plan;

// One pass of a plan: the state streams once through cache-resident buffers while all of the pass's gates act.
struct program_pass {
    // The gates that the pass executes are among first_gate ... last_gate - 1: gates that only move amplitudes may wait
    // for a later pass, since other gates can overtake them without a change of bits. With fusion the range is that of
    // the batch which was rewritten.
    unsigned long first_gate;
    unsigned long last_gate;
    std::vector<unsigned int> local_qubits;  // gathered into a buffer, in increasing order; empty: worked in place
    unsigned long chunk_amplitudes;          // amplitudes of one buffer
};

// What a plan promises. A sweep reads and writes every amplitude of the state in memory once.
struct program_plan {
    std::vector<program_pass> passes;
    double predicted_sweeps;
};

// A list of gates that can be planned once and run many times. Running it gives bit for bit what the members of the
// state vector give when they are called gate by gate, for every number of threads and every instruction set.
//
// Angles are double whatever T is. An angle that T can hold is T's, with the bits of the member. Of any other the sine
// and cosine are formed in double and rounded, so that large angles keep their meaning in single precision: as a float
// 1234567.8 would be 1234567.75, and RX wrong by 2 percent.
//
// Arguments are checked, other than those of the state vector's members: a number of angles, qubits or entries that
// does not fit the gate, a qubit that the program lacks or that is named twice, a state with fewer qubits or without
// amplitudes, and a program that was moved from (which may be assigned to and destroyed) throw std::invalid_argument;
// nothing has changed then. T is float or double. An object must not be used by two host threads at once.
template <class T>
class VELACAMPLIX_API program {
public:
    // Called between passes with the number of gates applied so far and in all, by the calling thread but inside a
    // parallel region whose other threads wait for it; false stops the run there. A list of more than 4096 gates that
    // has not been planned yet is planned first: the hook then hears of 0 gates every few milliseconds, and when it
    // stops the run, none has acted.
    using progress_hook = std::function<bool(unsigned long done, unsigned long total)>;

    explicit program(unsigned int nqubits);  // at most 63
    ~program();
    program(program&&) noexcept;
    program& operator=(program&&) noexcept;

    // The same gates and the same choice of fusion, without plans: one for another thread. Entries of diagonals are
    // shared.
    program copy() const;

    // Appends a named gate: X Y Z H S T SX ZtoY YtoZ (one qubit), RX RY RZ PH (one qubit, one angle in radians), U (one
    // qubit; theta, phi, lam), CNOT and CSIGN (control, target), CCNOT (two controls, target), SWAP ISWAP SQRTSWAP (two
    // qubits), RXX RYY RZZ (two qubits, one angle). Every gate takes further controls. Throws std::invalid_argument for
    // another name.
    //
    // SX, U, RXX, RYY and RZZ are none of the state vector's members. They give bit for bit (but for the sign of a NaN)
    // what their matrices give when these are formed in double and rounded: SX = 1/2 [[1+i, 1-i], [1-i, 1+i]], U =
    // [[cos(theta/2), -e^(i lam) sin(theta/2)], [e^(i phi) sin(theta/2), e^(i phi) e^(i lam) cos(theta/2)]], RXX =
    // exp(-i angle/2 X X) and so on.
    void add_gate(const std::string& name, const std::vector<double>& params, const std::vector<unsigned int>& qubits,
                  const std::vector<unsigned int>& controls = {});

    // Appends a row-major 2^k x 2^k matrix, first listed qubit = high bit of the local index; as the members
    // apply_1qbit_(ctrl_)gate, apply_2qbit_(ctrl_)gate and, from three qubits on, apply_nqbit_(ctrl_)gate treat it. An
    // exactly diagonal matrix of more than 8 qubits without controls is refused with std::runtime_error.
    void add_matrix(const std::vector<thrust::complex<T>>& matrix, const std::vector<unsigned int>& qubits,
                    const std::vector<unsigned int>& controls = {});

    // Appends a diagonal of 2^k entries in the same order, of any size. Its entries are kept once, as many as there
    // are.
    void add_diagonal(const std::vector<thrust::complex<T>>& diagonal, const std::vector<unsigned int>& qubits,
                      const std::vector<unsigned int>& controls = {});

    // Gives gate `gate` (0 = first) other angles. A plan already made stands, unless fusion is on. Throws
    // std::out_of_range past the last gate, std::invalid_argument for a gate without angles or another number of angles
    // than it takes.
    void set_params(unsigned long gate, const std::vector<double>& params);
    // How many it takes. Throws std::out_of_range past the last gate.
    unsigned int angle_count(unsigned long gate) const;

    // Fusion, off unless asked for, rewrites the list before it is cut into passes: gates on one qubit or two become
    // one, diagonal gates are collected, and commuting gates change places. Results agree with the exact run up to
    // rounding, no longer bit for bit. Their bits follow from the gates with their numbers, the qubits of the state,
    // and T, not from threads or caches; x86-64 processors below x86-64-v3, without fused multiply-add, have others. A
    // batch of 16 gates per qubit is rewritten at a time: in it the hook's number of gates is an estimate, and a run
    // told to stop does so at its end. Matrices need not be unitary; a batch with one that can make a state longer, or
    // that is not diagonal and has more than 6 qubits, is not rewritten and gives the bits of the exact run.
    void set_fusion(bool fusion);
    bool fusion() const;

    // The same gates in another order, which a state on many ranks is better served by: commuting gates change places
    // as they would for parts of state_qubits - rank_bits qubits (6 or more), and SWAPs wait until the end. Results
    // agree up to rounding. The order follows from the gates' qubits and the two numbers alone: run on whatever number
    // of ranks and threads, the new program gives the same bits. Throws std::invalid_argument for a state with fewer
    // qubits than the program.
    program reordered(unsigned int state_qubits, unsigned int rank_bits) const;

    unsigned long size() const;  // number of gates
    unsigned int nqubits() const;
    void clear();  // forgets the gates, keeps the qubit count

    // The passes that run will make, for a state of `state_qubits` qubits and the given thread request.
    const program_plan& plan(unsigned int state_qubits, int nthreads);

    // Applies the gates to the state with its own thread count. Returns how many were applied: all of them, or, when
    // the hook stopped the run, those of a prefix of the program: gates that waited for a later pass are applied first.
    // The state may have more qubits than the program.
    unsigned long run(PybindAmplixStateVectorCPU<T>& state, const progress_hook& hook = {});

    // The same of the gates first_gate ... last_gate - 1 alone; the hook and what is returned count these. The parts of
    // a program, run one after another, give bit for bit what the whole gives. With fusion each part is a list of its
    // own: its bits are those of a program that has no other gates, and together the parts agree with the whole up to
    // rounding. The plans of the last eight parts are kept, beside that of the whole. Throws std::invalid_argument
    // unless first_gate <= last_gate <= size().
    unsigned long run(PybindAmplixStateVectorCPU<T>& state, unsigned long first_gate, unsigned long last_gate,
                      const progress_hook& hook = {});

    // Applies all gates, as run does, for a host that has no use for the state of a prefix: the hook is also asked
    // inside of passes, on the calling thread but inside a parallel region, and false ends the run at once. Returns
    // whether all gates were applied; the state is of no worth otherwise.
    bool run_to_end(PybindAmplixStateVectorCPU<T>& state, const progress_hook& hook);

    // The same on basis state `basis_state`, in place of what the array holds: bit for bit what a reset, an X on every
    // qubit whose bit is 1 there, and run_to_end give, without the sweeps that write and read that state first. Throws
    // std::invalid_argument for a number that is no index of the state.
    bool run_from_basis_state(PybindAmplixStateVectorCPU<T>& state, unsigned long basis_state,
                              const progress_hook& hook = {});

    // The expectation values of observables in the state that the program makes, and their derivatives by the angles of
    // the gates `gates` (0 = first; RX, RY, RZ, PH, U, RXX, RYY, RZZ, with any controls), by the adjoint method: one
    // run forward, and one back on which the state psi and lambda = H psi of every observable are taken through all
    // gates, inverted. Other gates are constants; matrices and diagonals among them must be unitary within 1e-5.
    //
    // Values are those of term_values, summed. Derivatives are summed in double precision. Their bits follow from the
    // gates with their numbers, the qubits of the state, T and the observable alone: not from the number of threads,
    // the caches, the instruction set, the other observables or the other gates asked for. Where no gate on the way
    // from an angle to an observable joins their qubits, the derivative is 0 exactly. With fusion gates are multiplied
    // forward and back: results agree up to rounding, and the bits follow from what those of a fused run do.
    //
    // It takes two states and 64 KiB per thread for one observable; for more, a state more for each, up to most_states
    // or what there is free memory for: the others take their turns, each turn with a run forward of its own. Where not
    // even two states fit it throws std::bad_alloc after the memory guard's message. Throws std::out_of_range for a
    // gate that the program lacks; std::invalid_argument for one without angles, for an observable that is not
    // Hermitian or acts on other qubits, for a matrix that is not unitary, and for an initial state without amplitudes
    // or with fewer qubits. The state has as many qubits as the initial one, otherwise as the program.
    gradient_result gradient(const std::vector<WObservable<double>>& observables,
                             const std::vector<unsigned long>& gates, const gradient_settings<T>& settings = {});

private:
    friend class stage_plan<T>;
    friend class trajectories<T>;

    // Hidden here, where every compiler looks: its members have no place among the shared library's symbols.
    struct [[gnu::visibility("hidden")]] implementation;
    std::unique_ptr<implementation> self;
};

}  // namespace pbamplix::cpu
