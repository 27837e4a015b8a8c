#include "statevector/kernels/diagonal.hpp"

#include "statevector/kernels/formulas.hpp"
#include "statevector/kernels/phase.hpp"
#include "statevector/kernels/walk.hpp"
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

    // A pack of entries, one for each lane.
    [[gnu::always_inline]] void set_all(V d) {
        constexpr auto all = std::make_index_sequence<scalars<V>>{};
        re = shuffle(d, d, first_of_pair{}, all);
        im = negate_real(shuffle(d, d, second_of_pair{}, all));
    }

private:
    struct first_of_pair {
        static constexpr int at(std::size_t s) { return static_cast<int>(s & ~std::size_t{1}); }
    };
    struct second_of_pair {
        static constexpr int at(std::size_t s) { return static_cast<int>(s | 1); }
    };
};

template <bool blend, class V>
[[gnu::always_inline]] inline V product(const lane_factors<V>& factors, V old, bits_of<V> changed) {
    const V a = factors * old;
    return blend ? select(changed, a, old) : a;
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
    using amplitude = thrust::complex<scalar_of<V>>;
    const unsigned long target = call.target_bit[0];
    walk<V, 2>(
        call, state, begin, end,
        [=](const amplitude* at) {
            __builtin_prefetch(at, 1);
            __builtin_prefetch(at + target, 1);
        },
        [=]<std::size_t n>(const std::array<amplitude*, n>& at) __attribute__((always_inline)) {
            V a[n], b[n];
            for (unsigned k = 0; k < n; ++k) a[k] = product<blend>(zero, load<V>(at[k]), changed);
            for (unsigned k = 0; k < n; ++k) b[k] = product<blend>(one, load<V>(at[k] + target), changed);
            for (unsigned k = 0; k < n; ++k) store(at[k], a[k]);
            for (unsigned k = 0; k < n; ++k) store(at[k] + target, b[k]);
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
    using amplitude = thrust::complex<scalar_of<V>>;
    walk<V, 2>(
        call, state, begin, end, [](const amplitude* at) { __builtin_prefetch(at, 1); },
        [=]<std::size_t n>(const std::array<amplitude*, n>& at) __attribute__((always_inline)) {
            V a[n];
            for (unsigned k = 0; k < n; ++k) a[k] = product<blend>(factors, load<V>(at[k]), changed);
            for (unsigned k = 0; k < n; ++k) store(at[k], a[k]);
        });
}

// --- any number of qubits --------------------------------------------------------------------------------------------

// Up to this many factor packs are formed beforehand; larger diagonals form each pack's when it is met.
constexpr unsigned long most_prepared_packs = 1024;

// The position of an entry is the index's target bits gathered. Those inside a pack give its lowest bits; the others,
// here called outer, are looked up: the eight index bits just above the pack in a small table, those above them once
// per 256 packs.
constexpr unsigned long table_bits = 8;

enum class factors {
    prepared,      // for every outer position
    side_by_side,  // all index bits inside a pack are targets: the pack's entries follow each other
    scattered,
};

template <class T, class V>
struct diagonal_table : coefficient_table<T> {
    static constexpr unsigned long inside_pack = lanes<V> - 1;
    static constexpr unsigned long block_shift = lane_bits<V> + table_bits;

    shared_diagonal<T> diagonal;
    unsigned long mask;          // index bits of the array that are targets
    unsigned long outer_places;  // the bits of an outer position that they give; the others come from outside
    factors form;
    std::vector<lane_factors<V>> prepared;
    std::array<unsigned int, 1ul << table_bits> gathered;

    // The lowest of the diagonal's targets, as many as a pack has bits, are among those of the array.
    diagonal_table(shared_diagonal<T> of, unsigned long targets, unsigned long places)
        : diagonal(std::move(of)), mask(targets), outer_places(places >> inside_bits()) {
        index::fill_by_bits(gathered.data(), gathered.size(),
                            [&](unsigned long unit) { return outer_position(unit << lane_bits<V>); });
        const unsigned long outer_count = 1ul << (diagonal->bits - inside_bits());
        form = inside() == inside_pack ? factors::side_by_side : factors::scattered;
        if (outer_count > most_prepared_packs) return;
        for (unsigned long outer = 0; outer < outer_count; ++outer) prepared.push_back(scattered_factors(outer));
        form = factors::prepared;
    }

    unsigned long inside() const { return mask & inside_pack; }
    unsigned inside_bits() const { return static_cast<unsigned>(std::popcount(inside())); }

    unsigned long outer_position(unsigned long index) const {
        return index::deposit(index::extract(index, mask & ~inside_pack), outer_places);
    }

    lane_factors<V> scattered_factors(unsigned long outer) const {
        const unsigned long first = outer << inside_bits();
        lane_factors<V> result;
        for (unsigned lane = 0; lane < lanes<V>; ++lane) {
            result.set_lane(lane, diagonal->entries[first | index::extract(lane, inside())]);
        }
        return result;
    }
};

template <class V, factors form>
void run_entries(const kernel_call<scalar_of<V>>& call, unsigned long first, thrust::complex<scalar_of<V>>* state,
                 unsigned long begin, unsigned long end) {
    using table_type = diagonal_table<scalar_of<V>, V>;
    constexpr unsigned long block_shift = table_type::block_shift;
    const auto& table = static_cast<const table_type&>(*call.table);
    const auto* gathered = table.gathered.data();
    const auto* prepared = table.prepared.data();
    const auto* entries = table.diagonal->entries.get();
    const unsigned long first_outer = first >> table.inside_bits();
    const bits_of<V> changed = lane_mask<V>(call);
    const auto factors_at = [&](unsigned long outer) __attribute__((always_inline)) {
        if constexpr (form == factors::prepared) return prepared[outer];
        if constexpr (form == factors::scattered) return table.scattered_factors(outer);
        lane_factors<V> own;
        own.set_all(load<V>(entries + (outer << lane_bits<V>)));
        return own;
    };
    using amplitude = thrust::complex<scalar_of<V>>;
    const unsigned long free = ~call.fixed;
    const unsigned long units_of_block = 1ul << std::popcount(free & index::low_bits(block_shift));
    while (begin < end) {
        const unsigned long block = (index::deposit(begin, free) | call.ones) >> block_shift << block_shift;
        const unsigned long high = first_outer | table.outer_position(block);
        const unsigned long stop = std::min(end, begin - begin % units_of_block + units_of_block);
        walk<V, 2>(
            call, state, begin, stop, [](const amplitude*) {},
            [=]<std::size_t n>(const std::array<amplitude*, n>& at) __attribute__((always_inline)) {
                V a[n];
                for (unsigned k = 0; k < n; ++k) {
                    const auto base = static_cast<unsigned long>(at[k] - state);
                    const unsigned long outer = high | gathered[(base >> lane_bits<V>)&index::low_bits(table_bits)];
                    a[k] = product<true>(factors_at(outer), load<V>(at[k]), changed);
                }
                for (unsigned k = 0; k < n; ++k) store(at[k], a[k]);
            });
        begin = stop;
    }
}

template <class V, factors form>
void run_diagonal(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
                  unsigned long end) {
    run_entries<V, form>(call, 0, state, begin, end);
}

template <class V, factors form>
void run_window(const kernel_call<scalar_of<V>>& call, unsigned long first, thrust::complex<scalar_of<V>>* buffer) {
    run_entries<V, form>(call, first, buffer, 0, call.units);
}

// Makes a call with its table, and hands the form of its loop to `choose`.
template <class V, class Choose>
kernel_call<scalar_of<V>> prepare_entries(unsigned long nbqbits, unsigned long targets, unsigned long places,
                                          unsigned long controls, shared_diagonal<scalar_of<V>> diagonal,
                                          Choose choose) {
    auto table = std::make_shared<const diagonal_table<scalar_of<V>, V>>(std::move(diagonal), targets, places);
    kernel_call<scalar_of<V>> call;
    select_groups<V>(call, nbqbits, all_ones(controls), 0, 1);
    switch (table->form) {
        case factors::prepared:
            choose.template operator()<V, factors::prepared>(call);
            break;
        case factors::side_by_side:
            choose.template operator()<V, factors::side_by_side>(call);
            break;
        case factors::scattered:
            choose.template operator()<V, factors::scattered>(call);
            break;
    }
    call.table = std::move(table);
    return call;
}

// The same in the widest packs that the array has room for.
template <class T, class Choose>
kernel_call<T> prepare_in_packs(unsigned long nbqbits, unsigned long targets, unsigned long places,
                                unsigned long controls, shared_diagonal<T> diagonal, Choose choose) {
    if (nbqbits >= lane_bits<wide_pack<T>>) {
        return prepare_entries<wide_pack<T>>(nbqbits, targets, places, controls, std::move(diagonal), choose);
    }
    return prepare_entries<single_pack<T>>(nbqbits, targets, places, controls, std::move(diagonal), choose);
}

}  // namespace

template <class T>
kernel_call<T> one_qubit_diagonal_call(unsigned long nbqbits, unsigned long target, unsigned long controls,
                                       thrust::complex<T> d0, thrust::complex<T> d1) {
    using wide = wide_pack<T>;
    using narrow = single_pack<T>;
    const condition where = all_ones(controls);
    // A target among the controls reads 1 wherever the gate acts.
    if ((target & controls) != 0) return phase_call<GatePhase, T>(nbqbits, where, d1);
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
kernel_call<T> diagonal_call(unsigned long nbqbits, unsigned long targets, unsigned long controls,
                             shared_diagonal<T> diagonal) {
    return prepare_in_packs<T>(nbqbits, targets, ~0ul, controls, std::move(diagonal),
                               []<class V, factors form>(kernel_call<T>& call) { call.run = run_diagonal<V, form>; });
}

template <class T>
kernel_call<T> diagonal_call(unsigned long nbqbits, const std::vector<unsigned int>& targets, unsigned long controls,
                             const std::vector<thrust::complex<T>>& diag, bool guarded) {
    if (guarded) storage::refuse_beyond_free_memory(diag.size() * sizeof(thrust::complex<T>));
    return diagonal_call<T>(nbqbits, index::xor_mask_of(targets), controls, sort_diagonal(targets, diag));
}

template <class T>
diagonal_window<T>::diagonal_window(shared_diagonal<T> diagonal, unsigned long targets, unsigned long local,
                                    unsigned long controls)
    : outside_(targets & ~local), places_(index::extract(outside_, targets)) {
    call_ = prepare_in_packs<T>(static_cast<unsigned>(std::popcount(local)), index::extract(targets & local, local),
                                ~places_, controls, std::move(diagonal),
                                [this]<class V, factors form>(kernel_call<T>&) { loop_ = run_window<V, form>; });
}

template <class T>
void diagonal_window<T>::run(thrust::complex<T>* buffer, unsigned long base) const {
    loop_(call_, index::deposit(index::extract(base, outside_), places_), buffer);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                             \
    template kernel_call<T> one_qubit_diagonal_call<T>(unsigned long, unsigned long, unsigned long,            \
                                                       thrust::complex<T>, thrust::complex<T>);                \
    template kernel_call<T> diagonal_call<T>(unsigned long, unsigned long, unsigned long, shared_diagonal<T>); \
    template kernel_call<T> diagonal_call<T>(unsigned long, const std::vector<unsigned int>&, unsigned long,   \
                                             const std::vector<thrust::complex<T>>&, bool);                    \
    template class diagonal_window<T>;
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::kernels
