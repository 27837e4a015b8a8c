#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "observable.hpp"
#include "work_hook.hpp"

#include <vector>

namespace pbamplix::cpu {

// Pauli sums of a state that lies on many ranks: bit for bit those of term_values for the whole state. A sum is that of
// part_sections sections, each of which lies on one rank, or on one after another of its pieces:
//     add_part_values(ket, bra, ...);      once for every piece of 2^piece_qubits amplitudes, in order
//     the sums of all ranks added up       no two have anything in the same place
//     part_term_values(observable, ...);   and that is term_values

// Sections of the sum over a state of so many qubits, a power of two.
VELACAMPLIX_API unsigned long part_sections(unsigned int state_qubits);

// A piece may not be smaller, unless it is the whole state.
inline constexpr unsigned int fewest_piece_qubits = 13;

// Adds what a piece gives to `sums`, part_sections numbers for every term, 0 to begin with. Piece `number`, at `ket`,
// has the amplitudes from index number << piece_qubits on. Every term flips the same qubits from piece_qubits on, f of
// them as a number, and `bra` is the piece `number ^ f`, or `ket` itself; of the two pieces that whose number lacks f's
// highest bit is the ket, the other one is refused. With `other_part` the products' other part is summed, which shows
// only where a value is infinite. The hook counts terms; what it throws ends the call, with sums of no worth. Throws
// std::invalid_argument for pieces and terms that are not as told here. T is float or double.
template <class T>
VELACAMPLIX_API void add_part_values(const thrust::complex<T>* ket, const thrust::complex<T>* bra,
                                     unsigned int piece_qubits, unsigned int state_qubits, unsigned long number,
                                     const WObservable<double>& observable, int nthreads, bool other_part, double* sums,
                                     const work_hook& hook = {});

// Coefficient times value of every term. Where one of the sums is infinite, `others` are those of the other part, which
// may make NaN of it; otherwise null will do.
VELACAMPLIX_API std::vector<thrust::complex<double>> part_term_values(const WObservable<double>& observable,
                                                                      unsigned int state_qubits, const double* sums,
                                                                      const double* others = nullptr);

}  // namespace pbamplix::cpu
