#pragma once

#include "statevector/gates/gate_table.hpp"
#include "statevector/gates/target_list.hpp"
#include "statevector/kernels/kernel_call.hpp"
#include "statevector/kernels/sorted_diagonal.hpp"
#include "statevector/kernels/walk.hpp"

#include <string>
#include <vector>

namespace velacamplix::gates {

// Makes the loop for a matrix on the given target bits of an array of 2^nbqbits amplitudes.
template <class T>
using matrix_call = kernels::kernel_call<T> (*)(unsigned long nbqbits, const std::vector<unsigned long>& targets,
                                                const std::vector<thrust::complex<T>>& matrix);

// One gate as a value: what a member of the state vector does, written down instead of done.
template <class T>
struct operation {
    gate_kind kind;
    target_list targets;             // in the order that defines the local index
    unsigned long controls = 0;      // mask
    std::array<double, 3> angles{};  // as many as it takes
    std::array<thrust::complex<T>, 4> coefficients{};
    std::vector<thrust::complex<T>> entries;  // matrix2, matrix, product, block
    kernels::shared_diagonal<T> diagonal;
    // A block's loops round otherwise than all others. Only fusion knows them: it leaves here how one is made.
    matrix_call<T> block_call = nullptr;

    unsigned long target_mask() const { return targets.mask(); }
    bool is_diagonal() const { return gates::is_diagonal(kind); }
    bool is_move() const { return gates::is_move(kind); }
};

// A word for a kind: the name of its gate without controls, or what it was given as.
std::string name_of(gate_kind kind);

// A gate of the table with its coefficients computed from its angles, as program.hpp tells; `Angle` is double or T.
// Trusts the number of params and qubits.
template <class T, class Angle>
operation<T> named_operation(const gate_row& row, const std::vector<Angle>& params,
                             const std::vector<unsigned int>& qubits);

// prepare(named_operation(...)), without the operation, which would allocate.
template <class T, class Angle>
kernels::kernel_call<T> named_call(const gate_row& row, const std::vector<Angle>& params,
                                   const std::vector<unsigned int>& qubits, unsigned long nbqbits);

// Gives a gate other angles, as many as it takes.
template <class T>
void set_angles(operation<T>& op, const std::vector<double>& angles);

// Whether a gate multiplies the amplitudes whose target and controls read 1 by one number and leaves the others alone;
// and its loop where some of these qubits are known to read 1, so that `where` says the rest.
bool is_phase(gate_kind kind);
template <class T>
kernels::kernel_call<T> phase_call(const operation<T>& op, unsigned long nbqbits, kernels::condition where);

// Whether a gate multiplies by its first coefficient where an even number of its targets, one or two, read 1, and by
// its second where it is odd.
constexpr bool is_parity(gate_kind kind) { return kind == gate_kind::rz || kind == gate_kind::rzz; }

// A gate given as a matrix, treated as the state vector's matrix members treat it: an exactly diagonal one becomes a
// diagonal (std::runtime_error if it has no controls and more than 256 entries), any other a dense gate.
template <class T>
operation<T> matrix_operation(const std::vector<thrust::complex<T>>& matrix, const std::vector<unsigned int>& qubits,
                              bool controlled);
// A diagonal of any size.
template <class T>
operation<T> diagonal_operation(const std::vector<thrust::complex<T>>& diagonal,
                                const std::vector<unsigned int>& qubits);

// A product's factors multiplied out: the diagonal in the gate's local order.
template <class T>
std::vector<thrust::complex<T>> product_entries(const std::vector<thrust::complex<T>>& factors);

// The loop that performs an operation on an array of 2^nbqbits amplitudes.
template <class T>
kernels::kernel_call<T> prepare(const operation<T>& op, unsigned long nbqbits);

}  // namespace velacamplix::gates
