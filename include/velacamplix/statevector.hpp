#pragma once

#include "amplitude.hpp"
#include "circuit.hpp"
#include "export.hpp"
#include "observable.hpp"
#include "storage.hpp"

#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace pbamplix {

// What every kind of state vector offers, whatever its precision.
class VELACAMPLIX_API PybindAmplixStateVector {
public:
    PybindAmplixStateVector();
    virtual ~PybindAmplixStateVector();

    virtual void resize(unsigned int n) = 0;
    virtual void reset(std::optional<unsigned long> state = std::nullopt) = 0;
    virtual void release_memory() = 0;
    virtual std::vector<std::string>& get_named_ctrl_gates();

    std::vector<std::string> named_ctrl_gates;  // empty here; derived classes bring their own
};

namespace cpu {

// A state of n qubits as 2^n amplitudes, or, when `is_density_matrix` is set, a density matrix of n/2 qubits as 2^n
// entries. Qubit q is bit q of an index. Qubit numbers, lengths and norms are the host's duty: nothing is checked.
// Buffers that the host hands over may lie at any address that suits their numbers, which for complex ones is that of a
// T. One object serves one host thread at a time; objects of their own may be used on any threads, inside the host's
// parallel regions too. Where memory runs out a member throws std::bad_alloc and leaves the object as it was, but for
// what resize and evaluate_terms say. T is float or double.
template <class T>
class VELACAMPLIX_API PybindAmplixStateVectorCPU : public PybindAmplixStateVector {
public:
    using controls_list = std::optional<std::vector<unsigned int>>;  // all must read 1; none or empty: uncontrolled

    // Seeds the engine and allocates; the amplitudes are undefined until a reset. Throws std::bad_alloc after the
    // memory guard's message when free memory does not suffice. From 64 on, n counts modulo 64 for the size; such an
    // object is good for nothing, and its resets say so.
    explicit PybindAmplixStateVectorCPU(unsigned int n);
    ~PybindAmplixStateVectorCPU() override;

    // Growing frees the array, then allocates: the contents are undefined again, and when memory does not suffice
    // (std::bad_alloc) the object is left with the new n and without an array. The way back is release_memory, then
    // resize: a smaller n alone would only shrink what is not there. Shrinking keeps the first 2^n amplitudes; the n it
    // has already changes nothing.
    void resize(unsigned int n) override;

    // Both resets throw std::logic_error where there is no array, after release_memory or a refused resize.

    // Basis state 0; or a copy of the caller's array of `size` amplitudes at the given address, whose index has
    // qubit 0 as MOST significant bit.
    void reset(std::optional<unsigned long> state = std::nullopt) override;

    // A product state, one character of "01+-" per qubit; the first governs qubit n - 1. Other characters leave
    // their qubit free (not normalised).
    void reset_to_str(std::string s);

    // Frees the array; the object holds 0 qubits and no amplitude until it is resized to one qubit or more.
    void release_memory() override;

    std::vector<std::string>& get_named_ctrl_gates() override;
    void set_num_threads(int n);                      // stored as given; see get_num_threads
    void set_is_density_matrix(bool density_matrix);  // sets the member and does nothing else

    void print();       // one line "index: (re,im)" per amplitude to standard output
    std::string str();  // "(re,im) " for every amplitude on one line

    // Named gates; angles in radians. RZ with controls throws std::bad_alloc after the memory guard's message when the
    // two entries of its diagonal exceed free memory; the state is untouched then.
    void apply_X(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_Y(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_Z(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_H(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_S(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_T(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_ZtoY(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_YtoZ(unsigned int qubit, controls_list controls = std::nullopt);
    void apply_RX(unsigned int qubit, T angle, controls_list controls = std::nullopt);
    void apply_RY(unsigned int qubit, T angle, controls_list controls = std::nullopt);
    void apply_RZ(unsigned int qubit, T angle, controls_list controls = std::nullopt);
    void apply_PH(unsigned int qubit, T angle, controls_list controls = std::nullopt);
    void apply_CNOT(unsigned int control, unsigned int target);
    void apply_CCNOT(unsigned int control1, unsigned int control2, unsigned int target);
    void apply_CSIGN(unsigned int control, unsigned int target);
    void apply_SWAP(unsigned int qubit1, unsigned int qubit2);
    void apply_ISWAP(unsigned int qubit1, unsigned int qubit2);
    void apply_SQRTSWAP(unsigned int qubit1, unsigned int qubit2);

    // Matrix gates: row-major 2^k x 2^k, first listed qubit = high bit of the local index. A matrix that is exactly
    // diagonal takes the diagonal kernel; uncontrolled, that one refuses more than 8 qubits with std::runtime_error.
    void apply_1qbit_gate(unsigned int qubit, const std::vector<thrust::complex<T>>& matrix);
    void apply_2qbit_gate(unsigned int qubit1, unsigned int qubit2, const std::vector<thrust::complex<T>>& matrix);
    void apply_nqbit_gate(const std::vector<unsigned int>& qubits, const std::vector<thrust::complex<T>>& matrix);
    void apply_1qbit_ctrl_gate(const std::vector<unsigned int>& controls, unsigned int qubit,
                               const std::vector<thrust::complex<T>>& matrix);
    void apply_2qbit_ctrl_gate(const std::vector<unsigned int>& controls, unsigned int qubit1, unsigned int qubit2,
                               const std::vector<thrust::complex<T>>& matrix);
    void apply_nqbit_ctrl_gate(const std::vector<unsigned int>& controls, const std::vector<unsigned int>& qubits,
                               const std::vector<thrust::complex<T>>& matrix);

    // Replays a record gate by gate. An unknown name throws std::invalid_argument; the gates before it have acted.
    void simulate_circuit(PybindAmplixWCircuit<T>& circuit);

    // Probability that the listed qubits read `state`, the FIRST listed being its LEAST significant bit (here alone).
    // Without a list: all qubits in increasing order; for a density matrix, its n/2 qubits.
    T probability(const unsigned long& state, std::optional<std::vector<unsigned int>> qubits = std::nullopt);

    // Writes 2^k probabilities to `out` (k = qubits.size()); the caller owns it. Bit order of the position: first
    // listed qubit is the most significant. A probability not above threshold * threshold becomes 0. An empty list
    // writes one value, the total.
    void get_distribution(T* out, const T& threshold, const std::vector<unsigned int>& qubits);

    // Outcomes: first listed qubit (or qubit 0) most significant. The state does not change; each shot takes one
    // number of `rng`. An empty list of `measure` means all qubits. These members and the maps below take a lock of the
    // whole process; measurement.hpp tells what a host must not do while he holds it.
    void sample(unsigned long* shots, unsigned long nshots);
    void sample_subset(unsigned long* shots, const std::vector<unsigned int>& qubits, unsigned long nshots);
    unsigned long measure(const std::vector<unsigned int>& qubits);

    // Collapses onto an outcome (bit order as above) and renormalises; std::domain_error when its probability is
    // zero, which leaves every amplitude outside the outcome zero. The second form then moves the listed qubits to 0.
    void project(const std::vector<unsigned int>& qubits, unsigned long value);
    void project_then_reset(const std::vector<unsigned int>& qubits, unsigned long value);

    // Copies in the host's order (qubit 0 = most significant bit of the position). Entries whose probability is not
    // above threshold * threshold become 0; with 8 qubits and more a threshold of 0 or less keeps everything.
    void get_permuted_statevector(thrust::complex<T>* out, const T& threshold);
    void get_permuted_density_diag(T* out, const T& threshold);
    void get_permuted_density_matrix(thrust::complex<T>* out, const T& threshold);

    // The same as maps of the non-zero entries above the threshold. The caller deletes them.
    std::map<unsigned long, thrust::complex<T>>* get_mapped_statevector(const T& threshold);
    std::map<unsigned long, T>* get_mapped_density_diag(const T& threshold);
    std::map<unsigned long, T>* get_mapped_distribution(const T& threshold, const std::vector<unsigned int>& qubits);

    // <O>, and coefficient * <P> of every term (without the constant). Tr(rho O) for a density matrix.
    thrust::complex<T> expectation_value(WObservable<T> observable);
    std::vector<thrust::complex<T>> terms_expectations_values(WObservable<T> observable);

    // Per term coefficient * mean and coefficient * standard error of `shots` sampled parities. The state comes back up
    // to rounding, also when memory runs out.
    std::vector<std::pair<thrust::complex<T>, thrust::complex<T>>> evaluate_terms(std::vector<SimpleTerm<T>> terms,
                                                                                  unsigned long shots);

    // Data loading; see loading.hpp for shapes and bit orders.
    void apply_state_preparation(thrust::complex<double>* data, const std::vector<unsigned int>& qubits);
    void apply_qram(const thrust::complex<double>* data, const std::vector<unsigned int>& qubits,
                    const unsigned int& naddress);
    void apply_binary_qram(const unsigned long* data, const std::vector<unsigned int>& qubits,
                           const unsigned int& naddress);
    void apply_phase_oracle(const std::vector<unsigned long>& marked, const std::vector<unsigned int>& qubits);

    unsigned int seed;     // last seed given to rng
    std::mt19937_64 rng;   // drawn from by sampling and measurement only
    unsigned int nqubits;  // n
    unsigned long size;    // 2^n; 0 after release_memory
    amplitude_array<T> amplitudes;
    bool is_density_matrix;                     // the host's switch
    int num_threads;                            // the host's request, 1 at first
    std::vector<std::string> named_ctrl_gates;  // hides the base's: the named gates that take controls
};

}  // namespace cpu
}  // namespace pbamplix
