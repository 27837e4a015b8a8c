#include "statevector/kernels/two_qubit.hpp"

#include "statevector/kernels/formulas.hpp"
#include "statevector/kernels/targets.hpp"

namespace velacamplix::kernels {
namespace {

template <class T>
struct matrix_table : coefficient_table<T> {
    std::array<thrust::complex<T>, 16> entries;
};

template <class T>
const thrust::complex<T>* coefficients_of(const kernel_call<T>& call) {
    if (call.table == nullptr) return call.coefficients.data();
    return static_cast<const matrix_table<T>&>(*call.table).entries.data();
}

// Where a target stands inside the pack the four parts come mixed, and all must be read and written.
template <class G, class V>
inline constexpr bool middle_only = std::is_base_of_v<leaves_00_and_11, formula<G, V>>;

// The one loop over groups of four. `inner_high` and `inner_low` are the targets' positions inside the pack, -1 for
// those outside; `blend` says that some controls stand inside the pack.
template <class G, class V, int inner_high, int inner_low, bool blend>
void run_quads(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
               unsigned long end) {
    constexpr bool outer = inner_high < 0 && inner_low < 0;
    constexpr bool all_four = !(middle_only<G, V> && outer);
    formula<G, V> gate(coefficients_of(call));
    const bits_of<V> changed = lane_mask<V>(call);
    const unsigned long high = call.target_bit[0];
    const unsigned long low = call.target_bit[1];
    walk<V>(
        call, begin, end,
        [=](unsigned long base) {
            __builtin_prefetch(state + (base | low), 1);
            __builtin_prefetch(state + (base | high), 1);
            if constexpr (all_four) {
                __builtin_prefetch(state + base, 1);
                __builtin_prefetch(state + (base | high | low), 1);
            }
        },
        [ =, &gate ](unsigned long base) __attribute__((always_inline)) {
            V old[4] = {};
            if constexpr (all_four) old[0] = load<V>(state + base);
            old[1] = load<V>(state + (base | low));
            old[2] = load<V>(state + (base | high));
            if constexpr (all_four) old[3] = load<V>(state + (base | high | low));
            V a = old[0], b = old[1], c = old[2], d = old[3];
            if constexpr (inner_high >= 0) {
                exchange_bit<static_cast<unsigned>(inner_high)>(a, c);
                exchange_bit<static_cast<unsigned>(inner_high)>(b, d);
            }
            if constexpr (inner_low >= 0) {
                exchange_bit<static_cast<unsigned>(inner_low)>(a, b);
                exchange_bit<static_cast<unsigned>(inner_low)>(c, d);
            }
            gate(a, b, c, d);
            if constexpr (inner_low >= 0) {
                exchange_bit<static_cast<unsigned>(inner_low)>(a, b);
                exchange_bit<static_cast<unsigned>(inner_low)>(c, d);
            }
            if constexpr (inner_high >= 0) {
                exchange_bit<static_cast<unsigned>(inner_high)>(a, c);
                exchange_bit<static_cast<unsigned>(inner_high)>(b, d);
            }
            if constexpr (blend) {
                a = select(changed, a, old[0]);
                b = select(changed, b, old[1]);
                c = select(changed, c, old[2]);
                d = select(changed, d, old[3]);
            }
            if constexpr (all_four) store(state + base, a);
            store(state + (base | low), b);
            store(state + (base | high), c);
            if constexpr (all_four) store(state + (base | high | low), d);
        });
}

template <class G, class V, int inner_high = -1, int inner_low = -1>
auto choose_loop(int high, int low, bool blend) -> typename kernel_call<scalar_of<V>>::loop {
    constexpr int positions = static_cast<int>(lane_bits<V>);
    if constexpr (inner_high < 0 || inner_high != inner_low) {
        if (high == inner_high && low == inner_low) {
            return blend ? run_quads<G, V, inner_high, inner_low, true> : run_quads<G, V, inner_high, inner_low, false>;
        }
    }
    if constexpr (inner_low + 1 < positions) return choose_loop<G, V, inner_high, inner_low + 1>(high, low, blend);
    if constexpr (inner_low + 1 >= positions && inner_high + 1 < positions) {
        return choose_loop<G, V, inner_high + 1, -1>(high, low, blend);
    }
    return nullptr;
}

}  // namespace

template <class G, class T>
kernel_call<T> two_qubit_call(unsigned long nbqbits, unsigned long high, unsigned long low, unsigned long controls,
                              const std::array<thrust::complex<T>, 4>& coefficients) {
    using wide = wide_pack<T>;
    using narrow = single_pack<T>;
    const condition where = all_ones(controls);
    const std::array<unsigned long, 2> targets = {high, low};
    kernel_call<T> call;
    call.coefficients = coefficients;
    std::array<outer_target, 2> placed;
    if (are_distinct(targets, where) && place_targets<wide>(placed, targets, nbqbits, where)) {
        const bool outer = placed[0].exchanged_with < 0 && placed[1].exchanged_with < 0;
        select_groups<wide>(call, nbqbits, where, placed[0].bit | placed[1].bit, middle_only<G, wide> && outer ? 2 : 4);
        call.target_bit = {placed[0].bit, placed[1].bit};
        call.prefetch =
            std::max(prefetch_distance<T>(nbqbits, placed[0].bit), prefetch_distance<T>(nbqbits, placed[1].bit));
        // The 60 operations of a general matrix leave the processor too little room to look ahead by itself.
        if (std::is_same_v<G, _Gate2QB<true>> && is_larger_than_l2<T>(nbqbits)) {
            call.prefetch = std::max(call.prefetch, (8ul << 10) / sizeof(thrust::complex<T>));
        }
        call.run = choose_loop<G, wide>(placed[0].exchanged_with, placed[1].exchanged_with, call.lane_fixed != 0);
    } else {
        select_groups<narrow>(call, nbqbits, where, high | low, 4);
        call.target_bit = targets;
        call.run = run_quads<G, narrow, -1, -1, false>;
    }
    return call;
}

template <class T>
kernel_call<T> two_qubit_matrix_call(unsigned long nbqbits, unsigned long high, unsigned long low,
                                     unsigned long controls, const std::vector<thrust::complex<T>>& matrix) {
    auto table = std::make_shared<matrix_table<T>>();
    std::copy_n(matrix.begin(), table->entries.size(), table->entries.begin());
    kernel_call<T> call = two_qubit_call<_Gate2QB<true>, T>(nbqbits, high, low, controls);
    call.table = std::move(table);
    return call;
}

#define VELACAMPLIX_INSTANTIATE(G)                                                                             \
    template kernel_call<float> two_qubit_call<G>(unsigned long, unsigned long, unsigned long, unsigned long,  \
                                                  const std::array<thrust::complex<float>, 4>&);               \
    template kernel_call<double> two_qubit_call<G>(unsigned long, unsigned long, unsigned long, unsigned long, \
                                                   const std::array<thrust::complex<double>, 4>&);
VELACAMPLIX_QUAD_GATES(VELACAMPLIX_INSTANTIATE)
#undef VELACAMPLIX_INSTANTIATE

template kernel_call<float> two_qubit_matrix_call(unsigned long, unsigned long, unsigned long, unsigned long,
                                                  const std::vector<thrust::complex<float>>&);
template kernel_call<double> two_qubit_matrix_call(unsigned long, unsigned long, unsigned long, unsigned long,
                                                   const std::vector<thrust::complex<double>>&);

}  // namespace velacamplix::kernels
