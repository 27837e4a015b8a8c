#pragma once

#include "statevector/kernels/kernel_call.hpp"
#include "statevector/kernels/sorted_diagonal.hpp"

#include <optional>
#include <string>
#include <vector>

namespace velacamplix::gates {

enum class gate_kind : unsigned char {
    x,
    y,
    h,
    z_to_y,
    y_to_z,
    rx,
    ry,
    matrix1,  // mix one target
    z,
    s,
    t,
    ph,  // multiply where the target reads 1
    rz,  // diag(c0, c1) on one target
    swap,
    iswap,
    sqrt_swap,
    matrix2,  // mix two targets
    matrix,
    diagonal,  // any number of targets
    product,   // one factor pair per target, side by side in `entries`; only among fused gates
};

// One gate as a value: what a member of the state vector does, written down instead of done.
template <class T>
struct operation {
    gate_kind kind;
    std::vector<unsigned int> targets;  // in the order that defines the local index
    unsigned long controls = 0;         // mask
    std::array<thrust::complex<T>, 4> coefficients{};
    std::vector<thrust::complex<T>> entries;  // matrix2, matrix, product
    kernels::shared_diagonal<T> diagonal;

    unsigned long target_mask() const;
    bool is_diagonal() const;  // changes every amplitude by a factor of its own
    bool is_move() const;      // only moves amplitudes
};

// What a name asks for; nothing for an unknown one.
struct gate_arguments {
    unsigned angles;
    unsigned qubits;  // controls of its own and targets
};
std::optional<gate_arguments> arguments_of(const std::string& name);

// A word for a kind: the name of its gate without controls, or what it was given as.
std::string name_of(gate_kind kind);

// A named gate with its coefficients computed from the angle, as program.hpp tells; `Angle` is double or T. False for
// an unknown name. Trusts the number of params and qubits.
template <class T, class Angle>
bool named_operation(operation<T>& op, const std::string& name, const std::vector<Angle>& params,
                     const std::vector<unsigned int>& qubits);

bool takes_angle(gate_kind kind);

// Gives RX, RY, RZ or PH another angle.
template <class T>
void set_angle(operation<T>& op, double angle);

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
