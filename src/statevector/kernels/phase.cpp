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
        [=](unsigned long base) __attribute__((always_inline)) {
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

#define VELACAMPLIX_INSTANTIATE(G)                                                                      \
    template kernel_call<float> phase_call<G, float>(unsigned long, condition, thrust::complex<float>); \
    template kernel_call<double> phase_call<G, double>(unsigned long, condition, thrust::complex<double>);
VELACAMPLIX_PHASE_GATES(VELACAMPLIX_INSTANTIATE)
#undef VELACAMPLIX_INSTANTIATE

}  // namespace velacamplix::kernels
