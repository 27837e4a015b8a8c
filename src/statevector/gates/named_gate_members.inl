#pragma once

#include "statevector/gates/coefficients.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/kernels/diagonal.hpp"
#include "statevector/kernels/one_qubit.hpp"
#include "statevector/kernels/phase.hpp"
#include "statevector/kernels/two_qubit.hpp"
#include "statevector/storage/memory_guard.hpp"

#include <velacamplix/statevector.hpp>

namespace velacamplix::gates {

inline unsigned long control_mask(const std::optional<std::vector<unsigned int>>& controls) {
    return controls.has_value() ? index::mask_of(*controls) : 0;
}

}  // namespace velacamplix::gates

namespace pbamplix::cpu {

// A gate takes three steps: the member computes the coefficients, the kernel call is prepared for the object's size,
// and it runs over the array with the object's threads.

#define VELACAMPLIX_PAIR_GATE(member, tag)                                                              \
    template <class T>                                                                                  \
    void PybindAmplixStateVectorCPU<T>::member(unsigned int qubit, controls_list controls) {            \
        using namespace velacamplix;                                                                    \
        kernels::run_parallel(                                                                          \
            kernels::one_qubit_call<tag, T>(nqubits, index::bit(qubit), gates::control_mask(controls)), \
            amplitudes.get(), num_threads);                                                             \
    }
VELACAMPLIX_PAIR_GATE(apply_X, GateX)
VELACAMPLIX_PAIR_GATE(apply_Y, GateY)
VELACAMPLIX_PAIR_GATE(apply_H, GateH)
VELACAMPLIX_PAIR_GATE(apply_ZtoY, GateZtoY)
VELACAMPLIX_PAIR_GATE(apply_YtoZ, GateYtoZ)
#undef VELACAMPLIX_PAIR_GATE

#define VELACAMPLIX_PHASE_GATE(member, tag)                                                                \
    template <class T>                                                                                     \
    void PybindAmplixStateVectorCPU<T>::member(unsigned int qubit, controls_list controls) {               \
        using namespace velacamplix;                                                                       \
        const auto where = kernels::all_ones(index::bit(qubit) | gates::control_mask(controls));           \
        kernels::run_parallel(kernels::phase_call<tag, T>(nqubits, where), amplitudes.get(), num_threads); \
    }
VELACAMPLIX_PHASE_GATE(apply_Z, GateZ)
VELACAMPLIX_PHASE_GATE(apply_S, GateS)
VELACAMPLIX_PHASE_GATE(apply_T, GateT)
#undef VELACAMPLIX_PHASE_GATE

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_RX(unsigned int qubit, T angle, controls_list controls) {
    using namespace velacamplix;
    const auto [d, o] = gates::coefficients_of<GateRX>{}(angle);
    const auto call =
        kernels::one_qubit_call<GateRX, T>(nqubits, index::bit(qubit), gates::control_mask(controls), {d, o});
    kernels::run_parallel(call, amplitudes.get(), num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_RY(unsigned int qubit, T angle, controls_list controls) {
    using namespace velacamplix;
    const auto [d, o] = gates::coefficients_of<GateRY>{}(angle);
    const auto call =
        kernels::one_qubit_call<GateRY, T>(nqubits, index::bit(qubit), gates::control_mask(controls), {d, o});
    kernels::run_parallel(call, amplitudes.get(), num_threads);
}

// With controls RZ is a controlled diagonal, whose two entries the memory guard must allow, though the loop takes them
// without a copy. Hosts rely on the refusal.
template <class T>
void PybindAmplixStateVectorCPU<T>::apply_RZ(unsigned int qubit, T angle, controls_list controls) {
    using namespace velacamplix;
    if (controls.has_value() && !controls->empty()) storage::refuse_beyond_free_memory(2 * sizeof(thrust::complex<T>));
    const auto [d0, d1] = gates::coefficients_of<kernels::GateRZ>{}(angle);
    const auto call =
        kernels::one_qubit_diagonal_call<T>(nqubits, index::bit(qubit), gates::control_mask(controls), d0, d1);
    kernels::run_parallel(call, amplitudes.get(), num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_PH(unsigned int qubit, T angle, controls_list controls) {
    using namespace velacamplix;
    const auto where = kernels::all_ones(index::bit(qubit) | gates::control_mask(controls));
    kernels::run_parallel(kernels::phase_call<kernels::GatePhase, T>(
                              nqubits, where, gates::coefficients_of<kernels::GatePhase>{}(angle).first),
                          amplitudes.get(), num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_CNOT(unsigned int control, unsigned int target) {
    using namespace velacamplix;
    kernels::run_parallel(kernels::one_qubit_call<GateX, T>(nqubits, index::bit(target), index::bit(control)),
                          amplitudes.get(), num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_CCNOT(unsigned int control1, unsigned int control2, unsigned int target) {
    using namespace velacamplix;
    const unsigned long controls = index::bit(control1) | index::bit(control2);
    kernels::run_parallel(kernels::one_qubit_call<GateX, T>(nqubits, index::bit(target), controls), amplitudes.get(),
                          num_threads);
}

template <class T>
void PybindAmplixStateVectorCPU<T>::apply_CSIGN(unsigned int control, unsigned int target) {
    using namespace velacamplix;
    const auto where = kernels::all_ones(index::bit(control) | index::bit(target));
    kernels::run_parallel(kernels::phase_call<GateZ, T>(nqubits, where), amplitudes.get(), num_threads);
}

#define VELACAMPLIX_QUAD_GATE(member, tag)                                                                         \
    template <class T>                                                                                             \
    void PybindAmplixStateVectorCPU<T>::member(unsigned int qubit1, unsigned int qubit2) {                         \
        using namespace velacamplix;                                                                               \
        kernels::run_parallel(kernels::two_qubit_call<tag, T>(nqubits, index::bit(qubit1), index::bit(qubit2), 0), \
                              amplitudes.get(), num_threads);                                                      \
    }
VELACAMPLIX_QUAD_GATE(apply_SWAP, GateSWAP)
VELACAMPLIX_QUAD_GATE(apply_ISWAP, GateISWAP)
VELACAMPLIX_QUAD_GATE(apply_SQRTSWAP, GateSQRTSWAP)
#undef VELACAMPLIX_QUAD_GATE

}  // namespace pbamplix::cpu
