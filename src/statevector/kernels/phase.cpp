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
    using amplitude = thrust::complex<scalar_of<V>>;
    walk<V, 2>(
        call, state, begin, end,
        [](const amplitude* at) __attribute__((always_inline)) { __builtin_prefetch(at, 1, 2); },
        [=]<std::size_t n>(const std::array<amplitude*, n>& at) __attribute__((always_inline)) {
            V a[n];
            for (unsigned k = 0; k < n; ++k) {
                const V old = load<V>(at[k]);
                a[k] = old;
                gate(a[k]);
                if constexpr (blend) a[k] = select(changed, a[k], old);
            }
            for (unsigned k = 0; k < n; ++k) store(at[k], a[k]);
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
