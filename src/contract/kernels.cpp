// What hosts may call that reach past the class to its kernels: each unpacks its arguments and runs the loop that the
// state vector's own members run.

#include "statevector/kernels/dense.hpp"
#include "statevector/kernels/diagonal.hpp"
#include "statevector/kernels/formulas.hpp"
#include "statevector/kernels/matrix_shape.hpp"
#include "statevector/kernels/one_qubit.hpp"
#include "statevector/kernels/phase.hpp"
#include "statevector/kernels/sorted_diagonal.hpp"
#include "statevector/kernels/two_qubit.hpp"

#include <velacamplix/kernels.hpp>

namespace pbamplix::cpu {

using namespace velacamplix;

// --- one qubit -------------------------------------------------------------------------------------------------------

template <class G>
template <class T, class... Args>
void Template1QBGate<G>::apply_controlled(thrust::complex<T>* state, unsigned int qubit, unsigned long nbqbits,
                                          int nthreads, std::vector<unsigned int> controls, Args... params) {
    const auto call = kernels::one_qubit_call<G, T>(nbqbits, index::bit(qubit), index::mask_of(controls), {params...});
    kernels::run_parallel(call, state, nthreads);
}

#define VELACAMPLIX_INSTANTIATE_MEMBER(G, T, ...)                                     \
    template void Template1QBGate<G>::apply_controlled<T __VA_OPT__(, ) __VA_ARGS__>( \
        thrust::complex<T>*, unsigned int, unsigned long, int, std::vector<unsigned int> __VA_OPT__(, ) __VA_ARGS__);
#define VELACAMPLIX_C(T) thrust::complex<T>
#define VELACAMPLIX_INSTANTIATE_MEMBERS(T)                                                                  \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateX, T)                                                                \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateY, T)                                                                \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateH, T)                                                                \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateZtoY, T)                                                             \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateYtoZ, T)                                                             \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateRX, T, VELACAMPLIX_C(T), VELACAMPLIX_C(T))                           \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateRY, T, VELACAMPLIX_C(T), VELACAMPLIX_C(T))                           \
    VELACAMPLIX_INSTANTIATE_MEMBER(_Gate1QB<true>, T, VELACAMPLIX_C(T), VELACAMPLIX_C(T), VELACAMPLIX_C(T), \
                                   VELACAMPLIX_C(T))

VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE_MEMBERS)

#undef VELACAMPLIX_INSTANTIATE_MEMBER
#undef VELACAMPLIX_INSTANTIATE_MEMBERS
#undef VELACAMPLIX_C

// --- two qubits ------------------------------------------------------------------------------------------------------

template <class G>
template <class T, class... Args>
void Template2QBGate<G>::apply_controlled(thrust::complex<T>* state, unsigned int qubit1, unsigned int qubit2,
                                          unsigned long nbqbits, int nthreads, std::vector<unsigned int> controls,
                                          Args... params) {
    const unsigned long high = index::bit(qubit1);
    const unsigned long low = index::bit(qubit2);
    const unsigned long control_mask = index::mask_of(controls);
    if constexpr (sizeof...(Args) == 1) {
        kernels::run_parallel(kernels::two_qubit_matrix_call<T>(nbqbits, high, low, control_mask, params...), state,
                              nthreads);
    } else {
        kernels::run_parallel(kernels::two_qubit_call<G, T>(nbqbits, high, low, control_mask), state, nthreads);
    }
}

#define VELACAMPLIX_INSTANTIATE_MEMBER(G, T, ...)                                     \
    template void Template2QBGate<G>::apply_controlled<T __VA_OPT__(, ) __VA_ARGS__>( \
        thrust::complex<T>*, unsigned int, unsigned int, unsigned long, int,          \
        std::vector<unsigned int> __VA_OPT__(, ) __VA_ARGS__);
#define VELACAMPLIX_INSTANTIATE_MEMBERS(T)              \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateSWAP, T)         \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateISWAP, T)        \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateSQRTSWAP, T)     \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateHH, T)           \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateZtoYZtoYConj, T) \
    VELACAMPLIX_INSTANTIATE_MEMBER(GateYtoZYtoZConj, T) \
    VELACAMPLIX_INSTANTIATE_MEMBER(_Gate2QB<true>, T, std::vector<thrust::complex<T>>)

VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE_MEMBERS)

#undef VELACAMPLIX_INSTANTIATE_MEMBER
#undef VELACAMPLIX_INSTANTIATE_MEMBERS

// --- phases ----------------------------------------------------------------------------------------------------------

namespace {

// The condition "local index 1": the last listed target reads 1, all others 0, and all controls read 1. False for an
// empty target list, whose only local index is 0.
bool local_index_one(kernels::condition& where, const std::vector<unsigned int>& targets,
                     const std::vector<unsigned int>& controls) {
    if (targets.empty()) return false;
    const unsigned long control_mask = index::mask_of(controls);
    where = {index::xor_mask_of(targets) | control_mask, index::bit(targets.back()) | control_mask};
    // A target listed twice, or listed as control too, contradicts itself: nothing is selected.
    return (where.ones & ~where.fixed) == 0 && (index::xor_mask_of(targets) & control_mask & ~where.ones) == 0;
}

template <class G, class T>
void apply_phase(thrust::complex<T>* state, const std::vector<unsigned int>& targets, unsigned long nbqbits,
                 int nthreads, const std::vector<unsigned int>& controls, thrust::complex<T> coefficient) {
    kernels::condition where;
    if (!local_index_one(where, targets, controls)) return;
    kernels::run_parallel(kernels::phase_call<G, T>(nbqbits, where, coefficient), state, nthreads);
}

}  // namespace

template <class G, bool fixed>
template <class T>
void _TemplatePartialDiagGate<G, fixed>::apply(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                               unsigned long nbqbits, int nthreads) {
    apply_phase<G, T>(state, targets, nbqbits, nthreads, {}, {});
}

template <class G, bool fixed>
template <class T>
void _TemplatePartialDiagGate<G, fixed>::apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                                          unsigned long nbqbits, int nthreads,
                                                          std::vector<unsigned int> controls) {
    apply_phase<G, T>(state, targets, nbqbits, nthreads, controls, {});
}

template <class G>
template <class T>
void _TemplatePartialDiagGate<G, false>::apply(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                               unsigned long nbqbits, int nthreads, G gate) {
    apply_phase<kernels::GatePhase, T>(state, targets, nbqbits, nthreads, {}, gate.factor);
}

template <class G>
template <class T>
void _TemplatePartialDiagGate<G, false>::apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                                          unsigned long nbqbits, int nthreads,
                                                          std::vector<unsigned int> controls, G gate) {
    apply_phase<kernels::GatePhase, T>(state, targets, nbqbits, nthreads, controls, gate.factor);
}

#define VELACAMPLIX_INSTANTIATE_MEMBERS(G, T)                                                                 \
    template void _TemplatePartialDiagGate<G, true>::apply<T>(thrust::complex<T>*, std::vector<unsigned int>, \
                                                              unsigned long, int);                            \
    template void _TemplatePartialDiagGate<G, true>::apply_controlled<T>(                                     \
        thrust::complex<T>*, std::vector<unsigned int>, unsigned long, int, std::vector<unsigned int>);
#define VELACAMPLIX_INSTANTIATE_PRECISION(T)                                                                           \
    VELACAMPLIX_INSTANTIATE_MEMBERS(GateZ, T)                                                                          \
    VELACAMPLIX_INSTANTIATE_MEMBERS(GateS, T)                                                                          \
    VELACAMPLIX_INSTANTIATE_MEMBERS(GateT, T)                                                                          \
    template void _TemplatePartialDiagGate<GatePH<T>, false>::apply<T>(thrust::complex<T>*, std::vector<unsigned int>, \
                                                                       unsigned long, int, GatePH<T>);                 \
    template void _TemplatePartialDiagGate<GatePH<T>, false>::apply_controlled<T>(                                     \
        thrust::complex<T>*, std::vector<unsigned int>, unsigned long, int, std::vector<unsigned int>, GatePH<T>);

VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE_PRECISION)

#undef VELACAMPLIX_INSTANTIATE_MEMBERS
#undef VELACAMPLIX_INSTANTIATE_PRECISION

// --- diagonals -------------------------------------------------------------------------------------------------------

template <bool form>
template <class T>
void _DiagGate<form>::apply(thrust::complex<T>* state, std::vector<unsigned int> targets, unsigned long nbqbits,
                            int nthreads, std::vector<thrust::complex<T>> diag) {
    kernels::run_parallel(kernels::diagonal_call<T>(nbqbits, targets, 0, diag, false), state, nthreads);
}

template <bool form>
template <class T>
void _DiagGate<form>::apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                       unsigned long nbqbits, int nthreads, std::vector<unsigned int> controls,
                                       std::vector<thrust::complex<T>> diag) {
    kernels::run_parallel(kernels::diagonal_call<T>(nbqbits, targets, index::mask_of(controls), diag, true), state,
                          nthreads);
}

#define VELACAMPLIX_INSTANTIATE_MEMBERS(T)                                                                            \
    template void _DiagGate<true>::apply<T>(thrust::complex<T>*, std::vector<unsigned int>, unsigned long, int,       \
                                            std::vector<thrust::complex<T>>);                                         \
    template void _DiagGate<true>::apply_controlled<T>(thrust::complex<T>*, std::vector<unsigned int>, unsigned long, \
                                                       int, std::vector<unsigned int>,                                \
                                                       std::vector<thrust::complex<T>>);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE_MEMBERS)

#undef VELACAMPLIX_INSTANTIATE_MEMBERS

template <class C>
void fill_sorted_diag(C* out, const std::vector<unsigned int>& targets, const std::vector<C>& diag,
                      unsigned long mask) {
    kernels::fill_sorted(out, targets, diag, mask);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                        \
    template void fill_sorted_diag(thrust::complex<T>*, const std::vector<unsigned int>&, \
                                   const std::vector<thrust::complex<T>>&, unsigned long);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)
#undef VELACAMPLIX_INSTANTIATE

// --- dense matrices --------------------------------------------------------------------------------------------------

template <class C, bool, bool>
void apply_nbqbit_gate(C* state, std::vector<unsigned int> targets, std::vector<unsigned int> controls,
                       std::vector<C> matrix, unsigned long nbqbits, int nthreads) {
    using T = typename C::value_type;
    kernels::guard_dense_matrix<T>(matrix.size(), nthreads);
    kernels::run_parallel(
        kernels::dense_call<T>(nbqbits, index::bits_of_qubits(targets), index::mask_of(controls), matrix), state,
        nthreads);
}

template <class C, bool first, bool second>
void apply_nbqbit_gate(C* state, std::vector<unsigned int> targets, std::vector<C> matrix, unsigned long nbqbits,
                       int nthreads) {
    apply_nbqbit_gate<C, first, second>(state, std::move(targets), {}, std::move(matrix), nbqbits, nthreads);
}

template <class C, bool, bool, bool>
void _apply_nqbit_gate(C* state, vela::core::iterator::StateIterator it, unsigned long dim, std::vector<C> matrix,
                       int nthreads) {
    using T = typename C::value_type;
    std::vector<unsigned long> targets;  // offsets[2^i] is the bit of the i-th target from the end
    for (unsigned long local = dim >> 1; local != 0; local >>= 1) targets.push_back(it.offsets[local]);
    unsigned long qubits = it.free_mask | it.control_mask;
    for (const unsigned long bit : targets) qubits |= bit;
    kernels::run_parallel(
        kernels::dense_call<T>(static_cast<unsigned>(std::popcount(qubits)), targets, it.control_mask, matrix), state,
        nthreads);
}

#define VELACAMPLIX_INSTANTIATE_FUNCTIONS(T)                                                                        \
    template void apply_nbqbit_gate<thrust::complex<T>, false, true>(                                               \
        thrust::complex<T>*, std::vector<unsigned int>, std::vector<unsigned int>, std::vector<thrust::complex<T>>, \
        unsigned long, int);                                                                                        \
    template void apply_nbqbit_gate<thrust::complex<T>, false, true>(                                               \
        thrust::complex<T>*, std::vector<unsigned int>, std::vector<thrust::complex<T>>, unsigned long, int);       \
    template void _apply_nqbit_gate<thrust::complex<T>, true, true, false>(                                         \
        thrust::complex<T>*, vela::core::iterator::StateIterator, unsigned long, std::vector<thrust::complex<T>>,   \
        int);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE_FUNCTIONS)
#undef VELACAMPLIX_INSTANTIATE_FUNCTIONS

}  // namespace pbamplix::cpu

namespace pbamplix {

template <class C>
bool get_diag_if_diag(const std::vector<C>& matrix, std::vector<C>& diag, const unsigned int& dim) {
    return velacamplix::kernels::take_diagonal(matrix, diag, dim);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                           \
    template bool get_diag_if_diag(const std::vector<thrust::complex<T>>&, std::vector<thrust::complex<T>>&, \
                                   const unsigned int&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix
