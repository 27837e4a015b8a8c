#include "statevector/kernels/phase.hpp"

#include "statevector/kernels/formulas.hpp"
#include "statevector/kernels/targets.hpp"

namespace velacamplix::kernels {
namespace {

template <class G, class V, bool blend>
void run_phases(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
                unsigned long end) {
    const formula<G, V> gate(call.coefficients.data());
    const bits_of<V> changed = lane_mask<V>(call);
    walk<V>(
        call, begin, end, [=](unsigned long base) { __builtin_prefetch(state + base, 1); },
        [=](unsigned long base) {
            const V old = load<V>(state + base);
            V a = old;
            gate(a);
            if constexpr (blend) a = select(changed, a, old);
            store(state + base, a);
        });
}

}  // namespace

template <class G, class T>
kernel_call<T> phase_call(unsigned long nbqbits, condition where, thrust::complex<T> coefficient) {
    using wide = wide_pack<T>;
    using narrow = single_pack<T>;
    kernel_call<T> call;
    call.coefficients[0] = coefficient;
    if (nbqbits >= lane_bits<wide>) {
        select_groups<wide>(call, nbqbits, where, 0, 1);
        const unsigned long outer = where.fixed & ~(lanes<wide> - 1ul);
        call.prefetch = prefetch_distance<T>(nbqbits, outer & -outer);
        call.run = call.lane_fixed != 0 ? run_phases<G, wide, true> : run_phases<G, wide, false>;
    } else {
        select_groups<narrow>(call, nbqbits, where, 0, 1);
        call.run = run_phases<G, narrow, false>;
    }
    return call;
}

bool local_index_one(condition& where, const std::vector<unsigned int>& targets,
                     const std::vector<unsigned int>& controls) {
    if (targets.empty()) return false;
    const unsigned long control_mask = index::mask_of(controls);
    where = {index::xor_mask_of(targets) | control_mask, index::bit(targets.back()) | control_mask};
    // A target listed twice, or listed as control too, contradicts itself: nothing is selected.
    return (where.ones & ~where.fixed) == 0 && (index::xor_mask_of(targets) & control_mask & ~where.ones) == 0;
}

#define VELACAMPLIX_INSTANTIATE(G)                                                                      \
    template kernel_call<float> phase_call<G, float>(unsigned long, condition, thrust::complex<float>); \
    template kernel_call<double> phase_call<G, double>(unsigned long, condition, thrust::complex<double>);
VELACAMPLIX_PHASE_GATES(VELACAMPLIX_INSTANTIATE)
#undef VELACAMPLIX_INSTANTIATE

template <class G, class T>
void apply_phase(thrust::complex<T>* state, const std::vector<unsigned int>& targets, unsigned long nbqbits,
                 int nthreads, const std::vector<unsigned int>& controls, thrust::complex<T> coefficient) {
    condition where;
    if (!local_index_one(where, targets, controls)) return;
    run_parallel(phase_call<G, T>(nbqbits, where, coefficient), state, nthreads);
}

}  // namespace velacamplix::kernels

namespace pbamplix::cpu {

template <class G, bool fixed>
template <class T>
void _TemplatePartialDiagGate<G, fixed>::apply(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                               unsigned long nbqbits, int nthreads) {
    velacamplix::kernels::apply_phase<G, T>(state, targets, nbqbits, nthreads, {}, {});
}

template <class G, bool fixed>
template <class T>
void _TemplatePartialDiagGate<G, fixed>::apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                                          unsigned long nbqbits, int nthreads,
                                                          std::vector<unsigned int> controls) {
    velacamplix::kernels::apply_phase<G, T>(state, targets, nbqbits, nthreads, controls, {});
}

template <class G>
template <class T>
void _TemplatePartialDiagGate<G, false>::apply(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                               unsigned long nbqbits, int nthreads, G gate) {
    velacamplix::kernels::apply_phase<velacamplix::kernels::GatePhase, T>(state, targets, nbqbits, nthreads, {},
                                                                          gate.factor);
}

template <class G>
template <class T>
void _TemplatePartialDiagGate<G, false>::apply_controlled(thrust::complex<T>* state, std::vector<unsigned int> targets,
                                                          unsigned long nbqbits, int nthreads,
                                                          std::vector<unsigned int> controls, G gate) {
    velacamplix::kernels::apply_phase<velacamplix::kernels::GatePhase, T>(state, targets, nbqbits, nthreads, controls,
                                                                          gate.factor);
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

VELACAMPLIX_INSTANTIATE_PRECISION(float)
VELACAMPLIX_INSTANTIATE_PRECISION(double)

}  // namespace pbamplix::cpu
