#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "index.hpp"

#include <vector>

// The loops that apply gates to an array of 2^nbqbits amplitudes, in place. All are instantiated for float and
// double. `nthreads` is a request as for get_num_threads. Qubits must be distinct and below nbqbits.

namespace pbamplix::cpu {

// Gate tags: compile-time names of the fixed formulas.
struct GateX {};
struct GateY {};
struct GateZ {};
struct GateH {};
struct GateS {};
struct GateT {};
struct GateZtoY {};  // 1/sqrt(2) [[1, 1], [i, -i]]: from the Z to the Y measurement basis
struct GateYtoZ {};  // its adjoint, 1/sqrt(2) [[1, -i], [1, i]]
struct GateRX {};    // [[d, o], [o, d]]
struct GateRY {};    // [[d, -o], [o, d]]
struct GateSWAP {};
struct GateISWAP {};
struct GateSQRTSWAP {};
struct GateHH {};            // H on both qubits, factor exactly 1/2
struct GateZtoYZtoYConj {};  // ZtoY on qubit1, its complex conjugate on qubit2
struct GateYtoZYtoZConj {};  // YtoZ on qubit1, its complex conjugate on qubit2

// The phase gate diag(1, factor). Unlike the empty tags above it carries its number, so the kernels that take it
// have one more argument, the tag's value.
template <class T>
struct GatePH {
    thrust::complex<T> factor;
};

// General matrices. Only the `true` form exists.
template <bool>
struct _Gate1QB {};
template <bool>
struct _Gate2QB {};

// 2x2 gates. `params`: none for X, Y, H, ZtoY, YtoZ; d, o for RX and RY; m00, m01, m10, m11 for _Gate1QB<true>.
template <class G>
struct Template1QBGate {
    template <class T, class... Args>
    VELACAMPLIX_API static void apply_controlled(thrust::complex<T>* state, unsigned int qubit, unsigned long nbqbits,
                                                 int nthreads, std::vector<unsigned int> controls, Args... params);
};

// 4x4 gates; qubit1 is the high bit of the local index. `params`: none for the named tags; a row-major
// std::vector of 16 entries for _Gate2QB<true>.
template <class G>
struct Template2QBGate {
    template <class T, class... Args>
    VELACAMPLIX_API static void apply_controlled(thrust::complex<T>* state, unsigned int qubit1, unsigned int qubit2,
                                                 unsigned long nbqbits, int nthreads,
                                                 std::vector<unsigned int> controls, Args... params);
};

// Multiplies the amplitudes whose local index is 1 (last listed target 1, all others 0) by the tag's factor.
// First form, `true`: the factor follows from the tag (GateZ, GateS, GateT).
template <class G, bool fixed>
struct _TemplatePartialDiagGate {
    template <class T>
    VELACAMPLIX_API static void apply(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                      unsigned long nbqbits, int nthreads);
    template <class T>
    VELACAMPLIX_API static void apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                                 unsigned long nbqbits, int nthreads,
                                                 std::vector<unsigned int> controls);
};

// Second form, `false`: the tag is a value that carries the factor (GatePH<T>).
template <class G>
struct _TemplatePartialDiagGate<G, false> {
    template <class T>
    VELACAMPLIX_API static void apply(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                      unsigned long nbqbits, int nthreads, G gate);
    template <class T>
    VELACAMPLIX_API static void apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                                 unsigned long nbqbits, int nthreads,
                                                 std::vector<unsigned int> controls, G gate);
};

// An arbitrary diagonal of 2^k entries in the gate's local order. Only the `true` form exists. The members of the
// state vector refuse more than 256 entries before they call `apply`; `apply_controlled` has no limit but memory.
template <bool>
struct _DiagGate {
    template <class T>
    VELACAMPLIX_API static void apply(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                      unsigned long nbqbits, int nthreads, std::vector<thrust::complex<T>> diag);
    // May throw std::bad_alloc after the memory guard's message.
    template <class T>
    VELACAMPLIX_API static void apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                                 unsigned long nbqbits, int nthreads,
                                                 std::vector<unsigned int> controls,
                                                 std::vector<thrust::complex<T>> diag);
};

// Reorders a diagonal from the gate's local order into the state's: out[p] belongs to the state indices whose
// target bits, gathered in increasing qubit order by `mask`, equal p. `out` holds diag.size() entries.
template <class C>
VELACAMPLIX_API void fill_sorted_diag(C* out, const std::vector<unsigned int>& targets, const std::vector<C>& diag,
                                      unsigned long mask);

// A dense 2^k x 2^k matrix, row-major, on k targets. Only <thrust::complex<T>, false, true> exists. Refuses with
// the memory guard's message and std::bad_alloc when threads x matrix bytes exceed the free memory.
template <class C, bool, bool>
VELACAMPLIX_API void apply_nbqbit_gate(C* state, std::vector<unsigned int> targets, std::vector<unsigned int> controls,
                                       std::vector<C> matrix, unsigned long nbqbits, int nthreads);
template <class C, bool, bool>
VELACAMPLIX_API void apply_nbqbit_gate(C* state, std::vector<unsigned int> targets, std::vector<C> matrix,
                                       unsigned long nbqbits, int nthreads);

// Its worker over a prepared enumeration; dim = 2^k. Only <thrust::complex<T>, true, true, false> exists.
template <class C, bool, bool, bool>
VELACAMPLIX_API void _apply_nqbit_gate(C* state, vela::core::iterator::StateIterator it, unsigned long dim,
                                       std::vector<C> matrix, int nthreads);

}  // namespace pbamplix::cpu

namespace pbamplix {

// True when the row-major dim x dim matrix has only zeros (of either sign) off its diagonal; no tolerance, NaN
// counts as non-zero. `diag` is resized to dim and holds the diagonal; when the answer is false, only the entries
// before the first offending one have been written.
template <class C>
VELACAMPLIX_API bool get_diag_if_diag(const std::vector<C>& matrix, std::vector<C>& diag, const unsigned int& dim);

}  // namespace pbamplix
