#include "statevector/kernels/one_qubit.hpp"

#include "statevector/kernels/formulas.hpp"
#include "statevector/kernels/targets.hpp"

namespace velacamplix::kernels {
namespace {

// The one loop over pairs. `inner` is the target's position inside the pack, -1 for a target outside; `blend` says
// that some controls stand inside the pack, so that only some lanes change.
template <class G, class V, int inner, bool blend>
void run_pairs(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
               unsigned long end) {
    formula<G, V> gate(call.coefficients.data());
    const bits_of<V> changed = lane_mask<V>(call);
    using amplitude = thrust::complex<scalar_of<V>>;
    // Where a condition stands on the target itself both amplitudes are one.
    const unsigned long target = call.target_bit[0] & ~call.ones;
    const auto change = [ =, &gate ](V & a0, V & a1) __attribute__((always_inline)) {
        const V old0 = a0;
        const V old1 = a1;
        if constexpr (inner >= 0) exchange_bit<static_cast<unsigned>(inner)>(a0, a1);
        gate(a0, a1);
        if constexpr (inner >= 0) exchange_bit<static_cast<unsigned>(inner)>(a0, a1);
        if constexpr (blend) {
            a0 = select(changed, a0, old0);
            a1 = select(changed, a1, old1);
        }
    };
    // A formula that remembers something branches; two at once need the many registers of the widest packs then.
    constexpr bool remembers = !std::is_invocable_v<const formula<G, V>&, V&, V&>;
    walk<V, remembers && sizeof(V) < 64 ? 1 : 2>(
        call, state, begin, end,
        // Unless it is inlined at once, the compiler takes it for a function without effect and leaves the call out.
        [=](const amplitude* at) __attribute__((always_inline)) {
            __builtin_prefetch(at, 1, 2);
            __builtin_prefetch(at + target, 1, 2);
        },
        [=]<std::size_t n>(const std::array<amplitude*, n>& at) __attribute__((always_inline)) {
            if constexpr (n == 1) {  // not as arrays: formulas with branches came out slower
                V a0 = load<V>(at[0]);
                V a1 = load<V>(at[0] + target);
                change(a0, a1);
                store(at[0], a0);
                store(at[0] + target, a1);
                return;
            }
            V a0[n], a1[n];
            for (unsigned k = 0; k < n; ++k) a0[k] = load<V>(at[k]);
            for (unsigned k = 0; k < n; ++k) a1[k] = load<V>(at[k] + target);
            for (unsigned k = 0; k < n; ++k) change(a0[k], a1[k]);
            for (unsigned k = 0; k < n; ++k) store(at[k], a0[k]);
            for (unsigned k = 0; k < n; ++k) store(at[k] + target, a1[k]);
        });
}

template <class G, class V, int inner>
auto choose_loop(int position, bool blend) -> typename kernel_call<scalar_of<V>>::loop {
    if (position == inner) return blend ? run_pairs<G, V, inner, true> : run_pairs<G, V, inner, false>;
    if constexpr (inner + 1 < static_cast<int>(lane_bits<V>)) return choose_loop<G, V, inner + 1>(position, blend);
    return nullptr;
}

}  // namespace

template <class G, class T>
kernel_call<T> one_qubit_call(unsigned long nbqbits, unsigned long target, unsigned long controls,
                              const std::array<thrust::complex<T>, 4>& coefficients) {
    using wide = wide_pack<T>;
    using narrow = single_pack<T>;
    const condition where = all_ones(controls);
    const std::array<unsigned long, 1> targets = {target};
    kernel_call<T> call;
    call.coefficients = coefficients;
    std::array<outer_target, 1> placed;
    if (are_distinct(targets, where) && place_targets<wide>(placed, targets, nbqbits, where)) {
        select_groups<wide>(call, nbqbits, where, placed[0].bit, 2);
        call.target_bit[0] = placed[0].bit;
        // The hardware follows two streams well up to runs of 512 bytes.
        constexpr unsigned long least_run = (1ul << 10) / sizeof(thrust::complex<T>);
        if (placed[0].bit >= least_run) call.prefetch = prefetch_distance<T>(nbqbits, placed[0].bit);
        call.run = choose_loop<G, wide, -1>(placed[0].exchanged_with, call.lane_fixed != 0);
    } else {
        select_groups<narrow>(call, nbqbits, where, target, 2);
        call.target_bit[0] = target;
        call.run = run_pairs<G, narrow, -1, false>;
    }
    return call;
}

#define VELACAMPLIX_INSTANTIATE(G)                                                               \
    template kernel_call<float> one_qubit_call<G>(unsigned long, unsigned long, unsigned long,   \
                                                  const std::array<thrust::complex<float>, 4>&); \
    template kernel_call<double> one_qubit_call<G>(unsigned long, unsigned long, unsigned long,  \
                                                   const std::array<thrust::complex<double>, 4>&);
VELACAMPLIX_PAIR_GATES(VELACAMPLIX_INSTANTIATE)
#undef VELACAMPLIX_INSTANTIATE

}  // namespace velacamplix::kernels
