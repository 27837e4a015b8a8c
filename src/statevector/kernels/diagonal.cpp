#include "statevector/kernels/diagonal.hpp"

#include "statevector/kernels/phase.hpp"
#include "statevector/kernels/walk.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/memory_guard.hpp"

#include <velacamplix/kernels.hpp>

namespace velacamplix::kernels {
namespace {

// The factors of one pack, amplitude by amplitude: a' = (a.re d.re - d.im a.im, a.re d.im + d.re a.im).
template <class V>
struct lane_factors {
    V re;  // (d.re, d.re, ...)
    V im;  // (-d.im, +d.im, ...)

    [[gnu::always_inline]] V operator*(V a) const { return a * re + swap_parts(a) * im; }

    void set_lane(unsigned lane, thrust::complex<scalar_of<V>> d) {
        re[2 * lane] = re[2 * lane + 1] = d.real();
        im[2 * lane] = -d.imag();
        im[2 * lane + 1] = d.imag();
    }
};

template <class V>
[[gnu::always_inline]] inline void multiply(thrust::complex<scalar_of<V>>* at, const lane_factors<V>& factors,
                                            bits_of<V> changed, bool blend) {
    const V old = load<V>(at);
    V a = factors * old;
    if (blend) a = select(changed, a, old);
    store(at, a);
}

// --- one qubit -------------------------------------------------------------------------------------------------------

// Target outside the pack: the two halves of a group have a factor each.
template <class V, bool blend>
void run_halves(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
                unsigned long end) {
    lane_factors<V> zero, one;
    for (unsigned lane = 0; lane < lanes<V>; ++lane) {
        zero.set_lane(lane, call.coefficients[0]);
        one.set_lane(lane, call.coefficients[1]);
    }
    const bits_of<V> changed = lane_mask<V>(call);
    const unsigned long target = call.target_bit[0];
    walk<V>(
        call, begin, end,
        [=](unsigned long base) {
            __builtin_prefetch(state + base, 1);
            __builtin_prefetch(state + (base | target), 1);
        },
        [=](unsigned long base) {
            multiply(state + base, zero, changed, blend);
            multiply(state + (base | target), one, changed, blend);
        });
}

// Target inside the pack: every pack has the same factors.
template <class V, bool blend>
void run_lanes(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
               unsigned long end) {
    lane_factors<V> factors;
    for (unsigned lane = 0; lane < lanes<V>; ++lane) {
        factors.set_lane(lane, call.coefficients[(lane & call.target_bit[0]) != 0]);
    }
    const bits_of<V> changed = lane_mask<V>(call);
    walk<V>(
        call, begin, end, [=](unsigned long base) { __builtin_prefetch(state + base, 1); },
        [=](unsigned long base) { multiply(state + base, factors, changed, blend); });
}

// --- any number of qubits
// ----------------------------------------------------------------------------------------------

// Up to this many factor packs are formed beforehand; larger diagonals form each pack's when it is met.
constexpr unsigned long most_prepared_packs = 1024;

// The position in the sorted diagonal is the index's target bits gathered. The eight index bits just above the pack are
// gathered through a small table, those above them once per 256 packs.
constexpr unsigned long table_bits = 8;

template <class T, class V>
struct diagonal_table : coefficient_table<T> {
    pbamplix::amplitude_array<T> sorted{nullptr, &pbamplix::aligned_array_delete<thrust::complex<T>>};
    unsigned long mask = 0;
    std::vector<lane_factors<V>> prepared;
    std::array<unsigned int, 1ul << table_bits> gathered;

    lane_factors<V> factors_of(unsigned long outer) const {
        const unsigned long inside = mask & (lanes<V> - 1);
        const unsigned long first = outer << std::popcount(inside);
        lane_factors<V> factors;
        for (unsigned lane = 0; lane < lanes<V>; ++lane) {
            factors.set_lane(lane, sorted[first | index::extract(lane, inside)]);
        }
        return factors;
    }

    void prepare() {
        const unsigned long outer_mask = mask & ~(lanes<V> - 1ul);
        for (unsigned long unit = 0; unit < gathered.size(); ++unit) {
            gathered[unit] = static_cast<unsigned int>(
                index::extract(unit << lane_bits<V>, outer_mask & index::low_bits(lane_bits<V> + table_bits)));
        }
        const unsigned long outer_count = 1ul << std::popcount(outer_mask);
        if (outer_count > most_prepared_packs) return;
        for (unsigned long outer = 0; outer < outer_count; ++outer) prepared.push_back(factors_of(outer));
    }
};

template <class V, bool prepared>
void run_diagonal(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
                  unsigned long end) {
    constexpr unsigned block_shift = lane_bits<V> + table_bits;
    const auto& table = static_cast<const diagonal_table<scalar_of<V>, V>&>(*call.table);
    const auto* gathered = table.gathered.data();
    const lane_factors<V>* factors = table.prepared.data();
    const unsigned long outer_mask = table.mask & ~(lanes<V> - 1ul);
    const unsigned long low_count = static_cast<unsigned>(std::popcount(outer_mask & index::low_bits(block_shift)));
    const unsigned long high_mask = outer_mask & ~index::low_bits(block_shift);
    const bits_of<V> changed = lane_mask<V>(call);
    const bool blend = call.lane_fixed != 0;
    unsigned long block = ~0ul;
    unsigned long high = 0;
    walk<V>(
        call, begin, end, [](unsigned long) {},
        [&, state](unsigned long base) {
            if (base >> block_shift != block) {
                block = base >> block_shift;
                high = index::extract(base, high_mask) << low_count;
            }
            const unsigned long outer = high | gathered[(base >> lane_bits<V>)&index::low_bits(table_bits)];
            if constexpr (prepared) {
                multiply(state + base, factors[outer], changed, blend);
            } else {
                multiply(state + base, table.factors_of(outer), changed, blend);
            }
        });
}

template <class V>
kernel_call<scalar_of<V>> prepare_diagonal(unsigned long nbqbits, const std::vector<unsigned int>& targets,
                                           unsigned long controls,
                                           const std::vector<thrust::complex<scalar_of<V>>>& diag) {
    using T = scalar_of<V>;
    auto table = std::make_shared<diagonal_table<T, V>>();
    table->mask = index::xor_mask_of(targets);
    table->sorted = storage::make_amplitudes<T>(diag.size());
    pbamplix::cpu::fill_sorted_diag(table->sorted.get(), targets, diag, table->mask);
    table->prepare();
    kernel_call<T> call;
    select_groups<V>(call, nbqbits, all_ones(controls), 0, 1);
    call.run = table->prepared.empty() ? run_diagonal<V, false> : run_diagonal<V, true>;
    call.table = std::move(table);
    return call;
}

}  // namespace

template <class T>
kernel_call<T> one_qubit_diagonal_call(unsigned long nbqbits, unsigned long target, unsigned long controls,
                                       thrust::complex<T> d0, thrust::complex<T> d1) {
    using wide = wide_pack<T>;
    using narrow = single_pack<T>;
    const condition where = all_ones(controls);
    // A target among the controls reads 1 wherever the gate acts.
    if ((target & controls) != 0) return phase_call<pbamplix::cpu::GatePH<T>, T>(nbqbits, where, d1);
    kernel_call<T> call;
    call.coefficients[0] = d0;
    call.coefficients[1] = d1;
    call.target_bit[0] = target;
    if (nbqbits < lane_bits<wide>) {
        select_groups<narrow>(call, nbqbits, where, target, 2);
        call.run = run_halves<narrow, false>;
    } else if ((target & (lanes<wide> - 1ul)) != 0) {
        select_groups<wide>(call, nbqbits, where, 0, 1);
        call.run = call.lane_fixed != 0 ? run_lanes<wide, true> : run_lanes<wide, false>;
    } else {
        select_groups<wide>(call, nbqbits, where, target, 2);
        call.run = call.lane_fixed != 0 ? run_halves<wide, true> : run_halves<wide, false>;
    }
    return call;
}

template <class T>
kernel_call<T> diagonal_call(unsigned long nbqbits, const std::vector<unsigned int>& targets, unsigned long controls,
                             const std::vector<thrust::complex<T>>& diag, bool guarded) {
    if (guarded) storage::refuse_beyond_free_memory(diag.size() * sizeof(thrust::complex<T>));
    if (nbqbits >= lane_bits<wide_pack<T>>) return prepare_diagonal<wide_pack<T>>(nbqbits, targets, controls, diag);
    return prepare_diagonal<single_pack<T>>(nbqbits, targets, controls, diag);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                           \
    template kernel_call<T> one_qubit_diagonal_call<T>(unsigned long, unsigned long, unsigned long,          \
                                                       thrust::complex<T>, thrust::complex<T>);              \
    template kernel_call<T> diagonal_call<T>(unsigned long, const std::vector<unsigned int>&, unsigned long, \
                                             const std::vector<thrust::complex<T>>&, bool);
VELACAMPLIX_INSTANTIATE(float)
VELACAMPLIX_INSTANTIATE(double)

}  // namespace velacamplix::kernels

namespace pbamplix::cpu {

using namespace velacamplix;

template <class C>
void fill_sorted_diag(C* out, const std::vector<unsigned int>& targets, const std::vector<C>& diag,
                      unsigned long mask) {
    const auto k = static_cast<unsigned int>(targets.size());
    for (unsigned long i = 0; i < diag.size(); ++i) {
        const unsigned long position = index::extract(index::place_first_lowest(i, targets), mask);
        out[position] = diag[index::reverse_bits(i, k)];
    }
}

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
    template void fill_sorted_diag(thrust::complex<T>*, const std::vector<unsigned int>&,                             \
                                   const std::vector<thrust::complex<T>>&, unsigned long);                            \
    template void _DiagGate<true>::apply<T>(thrust::complex<T>*, std::vector<unsigned int>, unsigned long, int,       \
                                            std::vector<thrust::complex<T>>);                                         \
    template void _DiagGate<true>::apply_controlled<T>(thrust::complex<T>*, std::vector<unsigned int>, unsigned long, \
                                                       int, std::vector<unsigned int>,                                \
                                                       std::vector<thrust::complex<T>>);
VELACAMPLIX_INSTANTIATE_MEMBERS(float)
VELACAMPLIX_INSTANTIATE_MEMBERS(double)

}  // namespace pbamplix::cpu
