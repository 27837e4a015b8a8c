#include "statevector/kernels/dense.hpp"

#include "statevector/kernels/targets.hpp"
#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/memory_guard.hpp"

#include <velacamplix/kernels.hpp>

#include <algorithm>
#include <bit>
#include <mutex>
#include <new>
#include <numeric>
#include <utility>

namespace velacamplix::kernels {
namespace {

// Up to this dimension a group's packs stand on the stack.
constexpr unsigned long most_on_stack = 64;

// For each pack of a group: the amplitudes, the amplitudes times i, the result.
constexpr unsigned long packs_per_entry = 3;

struct free_packs {
    void operator()(void* packs) const { ::operator delete[](packs, std::align_val_t{storage::alignment}); }
};
using packs_on_heap = std::unique_ptr<void, free_packs>;

template <class T>
struct dense_table : coefficient_table<T> {
    unsigned long dim = 0;
    std::vector<thrust::complex<T>> matrix;  // row-major
    std::vector<unsigned long> offsets;      // outer bits of each pack of a group, by local index
    std::vector<unsigned long> inner_of;     // per target: position inside the pack, or `outer`
    static constexpr unsigned long outer = ~0ul;

    // For a loop that knows the inner positions: the packs of a group in an order in which the inner targets come
    // first, lowest position first, as bits of a pack's number.
    std::vector<unsigned long> pack_offsets;    // by a pack's number
    std::vector<unsigned long> pack_of_column;  // its number, by local index
    std::vector<thrust::complex<T>> rows;       // the matrix's rows by a pack's number, their columns by local index

    // Packs for one thread. Others take their own; where there is no memory for these, threads use the spare ones in
    // turn: amplitudes have been overwritten by then, and nothing may fail any more.
    packs_on_heap spare;
    mutable std::mutex spare_in_use;
};

// One group's amplitudes and results, as packs over several groups at once.
template <class V>
struct group_buffer {
    V on_stack[packs_per_entry * most_on_stack];
    packs_on_heap heap;
    std::unique_lock<std::mutex> spare;
    V* old;     // the amplitudes
    V* turned;  // the amplitudes times i
    V* result;

    group_buffer(const dense_table<scalar_of<V>>& table, unsigned long dim) : old(on_stack) {
        if (dim > most_on_stack) {
            heap.reset(allocate(dim, std::nothrow));
            if (heap == nullptr) spare = std::unique_lock(table.spare_in_use);
            old = static_cast<V*>(heap != nullptr ? heap.get() : table.spare.get());
        }
        turned = old + dim;
        result = turned + dim;
    }

    template <class... Nothrow>
    static void* allocate(unsigned long dim, Nothrow... nothrow) {
        return ::operator new[](packs_per_entry* dim * sizeof(V), std::align_val_t{storage::alignment}, nothrow...);
    }
};

// A column's amplitudes, and these times i.
template <class V>
struct column_packs {
    V x, y;
};

// `rows` rows of the product at once: every sum starts at +0 and takes the columns upward, products in full. An entry
// is two scalars that the multiplications read from memory and spread over the pack by themselves.
template <unsigned rows, class V, class Packs, class Keep>
[[gnu::always_inline]] inline void multiply_rows(const thrust::complex<scalar_of<V>>* matrix, unsigned long dim,
                                                 Packs packs_of, Keep keep) {
    V sum[rows] = {};
    for (unsigned long column = 0; column < dim; ++column) {
        const auto [x, y] = packs_of(column);
        for (unsigned row = 0; row < rows; ++row) {
            const thrust::complex<scalar_of<V>>& m = matrix[row * dim + column];
            sum[row] += x * m.real() + y * m.imag();
        }
    }
    for (unsigned row = 0; row < rows; ++row) keep(row, sum[row]);
}

// Exchanges a target inside the packs with the outer bit that the same target has among the local indices.
template <class V, unsigned p = 0>
void exchange_inner(V* packs, unsigned long dim, unsigned long local_bit, unsigned long position) {
    if constexpr (p < lane_bits<V>) {
        if (position != p) return exchange_inner<V, p + 1>(packs, dim, local_bit, position);
        for (unsigned long local = 0; local < dim; ++local) {
            if ((local & local_bit) == 0) exchange_bit<p>(packs[local], packs[local | local_bit]);
        }
    }
}

// `fixed_dim` is the matrix's dimension where it is known at compile time, else 0.
template <class V, unsigned long fixed_dim>
void run_dense(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
               unsigned long end) {
    using T = scalar_of<V>;
    const auto& table = static_cast<const dense_table<T>&>(*call.table);
    const unsigned long dim = fixed_dim != 0 ? fixed_dim : table.dim;
    const unsigned long* offsets = table.offsets.data();
    const thrust::complex<T>* matrix = table.matrix.data();
    const unsigned long k = table.inner_of.size();
    const bool any_inner = std::any_of(table.inner_of.begin(), table.inner_of.end(),
                                       [](unsigned long position) { return position != dense_table<T>::outer; });
    const bits_of<V> changed = lane_mask<V>(call);
    const bool blend = call.lane_fixed != 0;
    group_buffer<V> buffer(table, dim);
    V* const old = buffer.old;
    V* const turned = buffer.turned;
    V* const result = buffer.result;
    const auto exchange_all = [&](V* packs) {
        for (unsigned long i = 0; i < k; ++i) {
            if (table.inner_of[i] != dense_table<T>::outer) {
                exchange_inner(packs, dim, 1ul << (k - 1 - i), table.inner_of[i]);
            }
        }
    };
    // Every group costs enough work to fetch the lines of a later one: as many groups ahead as hide the way to memory.
    const unsigned long groups_ahead = std::max(64 / (dim * dim), 1ul) + 1;
    const unsigned long fixed = call.fixed;
    const auto after = [&](unsigned long at) { return index::next(at, ~fixed) | call.ones; };
    unsigned long base = index::deposit(begin, ~fixed) | call.ones;
    unsigned long ahead = index::deposit(begin + groups_ahead, ~fixed) | call.ones;
    for (unsigned long unit = begin; unit < end; ++unit, base = after(base), ahead = after(ahead)) {
        if (call.prefetch) {
            for (unsigned long j = 0; j < dim; ++j) __builtin_prefetch(state + (ahead | offsets[j]), 1);
        }
        for (unsigned long j = 0; j < dim; ++j) old[j] = load<V>(state + (base | offsets[j]));
        if (any_inner) exchange_all(old);
        for (unsigned long j = 0; j < dim; ++j) turned[j] = quarter_turn(old[j]);
        const auto multiply = [&](auto keep) {
            // Every dimension but 1 and 2 is a multiple of the four rows that share the loads of a column. All eight of
            // three targets in one go are faster by half; of more rows eight are no faster than four.
            constexpr unsigned rows = fixed_dim == 0 ? 1 : fixed_dim == 8 ? 8 : 4;
            for (unsigned long row = 0; row < dim; row += rows) {
                multiply_rows<rows, V>(
                    matrix + row * dim, dim,
                    [=](unsigned long column) {
                        return column_packs<V>{old[column], turned[column]};
                    },
                    [&](unsigned r, V sum) { keep(row + r, sum); });
            }
        };
        if (!any_inner && !blend) {
            multiply([&](unsigned long row, V sum) { store(state + (base | offsets[row]), sum); });
            continue;
        }
        multiply([&](unsigned long row, V sum) { result[row] = sum; });
        if (any_inner) exchange_all(result);
        if (blend) {
            for (unsigned long j = 0; j < dim; ++j) {
                result[j] = select(changed, result[j], load<V>(state + (base | offsets[j])));
            }
        }
        for (unsigned long j = 0; j < dim; ++j) store(state + (base | offsets[j]), result[j]);
    }
}

// Exchanges the lane bits `positions` with the lowest bits of the packs' numbers, in order.
template <class V, unsigned long positions, unsigned long bit = 1>
[[gnu::always_inline]] inline void exchange_lowest(V* packs, unsigned long dim) {
    if constexpr (positions != 0) {
        for (unsigned long i = 0; i < dim; ++i) {
            if ((i & bit) == 0) exchange_bit<std::countr_zero(positions)>(packs[i], packs[i | bit]);
        }
        exchange_lowest<V, positions&(positions - 1), 2 * bit>(packs, dim);
    }
}

// Two or three targets, some of them inside the packs, at the positions `inner`: exchanges before and after the
// product stay in registers. No conditions on lanes.
template <class V, unsigned long dim, unsigned long inner>
void run_dense_inside(const kernel_call<scalar_of<V>>& call, thrust::complex<scalar_of<V>>* state, unsigned long begin,
                      unsigned long end) {
    using T = scalar_of<V>;
    const auto& table = static_cast<const dense_table<T>&>(*call.table);
    const unsigned long* const offsets = table.pack_offsets.data();
    const unsigned long* const pack_of_column = table.pack_of_column.data();
    const thrust::complex<T>* const rows = table.rows.data();
    const unsigned long fixed = call.fixed;
    const auto after = [&](unsigned long at) { return index::next(at, ~fixed) | call.ones; };
    constexpr unsigned long groups_ahead = 64 / (dim * dim) + 1;
    unsigned long base = index::deposit(begin, ~fixed) | call.ones;
    unsigned long ahead = index::deposit(begin + groups_ahead, ~fixed) | call.ones;
    for (unsigned long unit = begin; unit < end; ++unit, base = after(base), ahead = after(ahead)) {
        if (call.prefetch) {
            for (unsigned long j = 0; j < dim; ++j) __builtin_prefetch(state + (ahead | offsets[j]), 1);
        }
        V old[dim], turned[dim], result[dim];
        for (unsigned long j = 0; j < dim; ++j) old[j] = load<V>(state + (base | offsets[j]));
        exchange_lowest<V, inner>(old, dim);
        for (unsigned long j = 0; j < dim; ++j) turned[j] = quarter_turn(old[j]);
        multiply_rows<dim, V>(
            rows, dim,
            [&](unsigned long column) {
                const unsigned long pack = pack_of_column[column];
                return column_packs<V>{old[pack], turned[pack]};
            },
            [&](unsigned long row, V sum) { result[row] = sum; });
        exchange_lowest<V, inner>(result, dim);
        for (unsigned long j = 0; j < dim; ++j) store(state + (base | offsets[j]), result[j]);
    }
}

// Fills what run_dense_inside reads.
template <class T>
void sort_packs(dense_table<T>& table) {
    const std::size_t k = table.inner_of.size();
    std::vector<std::size_t> targets(k);  // by bit of a pack's number
    std::iota(targets.begin(), targets.end(), std::size_t{0});
    std::sort(targets.begin(), targets.end(), [&](std::size_t a, std::size_t b) {
        return std::pair(table.inner_of[a], a) < std::pair(table.inner_of[b], b);
    });
    table.pack_offsets.resize(table.dim);
    table.pack_of_column.resize(table.dim);
    table.rows.resize(table.dim * table.dim);
    for (unsigned long pack = 0; pack < table.dim; ++pack) {
        unsigned long local = 0;
        for (std::size_t i = 0; i < k; ++i) local |= (pack >> i & 1) << (k - 1 - targets[i]);
        table.pack_offsets[pack] = table.offsets[local];
        table.pack_of_column[local] = pack;
        std::copy_n(table.matrix.data() + local * table.dim, table.dim, table.rows.data() + pack * table.dim);
    }
}

// Null where there is none for so many targets at these positions.
template <class V, unsigned long dim, unsigned long inner = 1>
auto choose_loop_inside(unsigned long positions) -> typename kernel_call<scalar_of<V>>::loop {
    if constexpr (inner < lanes<V>) {
        if (positions != inner) return choose_loop_inside<V, dim, inner + 1>(positions);
        if constexpr ((1ul << std::popcount(inner)) <= dim) return run_dense_inside<V, dim, inner>;
    }
    return nullptr;
}

template <class V>
auto choose_loop(unsigned long dim) -> typename kernel_call<scalar_of<V>>::loop {
    switch (dim) {
        case 4:
            return run_dense<V, 4>;
        case 8:
            return run_dense<V, 8>;
        case 16:
            return run_dense<V, 16>;
        case 32:
            return run_dense<V, 32>;
        case 64:
            return run_dense<V, 64>;
        default:
            return run_dense<V, 0>;
    }
}

// Gives every target inside the pack a free outer bit; false where the array has too few of them for packs V.
template <class V>
bool place_dense_targets(std::vector<unsigned long>& outer_bits, std::vector<unsigned long>& inner_of,
                         const std::vector<unsigned long>& targets, unsigned long nbqbits, unsigned long controls) {
    constexpr unsigned long inside = lanes<V> - 1;
    if (nbqbits < lane_bits<V>) return false;
    unsigned long taken = controls | inside;
    for (const unsigned long target : targets) {
        if ((target & controls) != 0) return false;
        taken |= target;
    }
    for (const unsigned long target : targets) {
        if ((target & inside) == 0) {
            outer_bits.push_back(target);
            inner_of.push_back(~0ul);
            continue;
        }
        const unsigned long free_bits = index::low_bits(nbqbits) & ~taken;
        if (free_bits == 0) return false;
        outer_bits.push_back(free_bits & -free_bits);
        inner_of.push_back(static_cast<unsigned>(std::countr_zero(target)));
        taken |= outer_bits.back();
    }
    return true;
}

template <class V>
void select_dense(kernel_call<scalar_of<V>>& call, dense_table<scalar_of<V>>& table, unsigned long nbqbits,
                  const std::vector<unsigned long>& outer_bits, unsigned long controls) {
    const std::size_t k = outer_bits.size();
    unsigned long outer_mask = 0;
    for (const unsigned long bit : outer_bits) outer_mask |= bit;
    for (unsigned long local = 0; local < table.dim; ++local) {
        for (std::size_t i = 0; i < k; ++i) {
            if ((local >> (k - 1 - i)) & 1) table.offsets[local] |= outer_bits[i];
        }
    }
    select_groups<V>(call, nbqbits, all_ones(controls), outer_mask, static_cast<unsigned>(table.dim));
    if (table.dim > most_on_stack) table.spare.reset(group_buffer<V>::allocate(table.dim));
    call.prefetch = is_larger_than_l2<scalar_of<V>>(nbqbits) ? 1 : 0;
    call.run = choose_loop<V>(table.dim);
    unsigned long positions = 0;
    int inside = 0;
    for (const unsigned long position : table.inner_of) {
        if (position == dense_table<scalar_of<V>>::outer) continue;
        positions |= 1ul << position;
        ++inside;
    }
    // A host may name a target twice; the general loop has an order of exchanges for that.
    const bool differ = std::popcount(positions) == inside;
    if (inside == 0 || !differ || call.lane_fixed != 0 || (table.dim != 4 && table.dim != 8)) return;
    call.run = table.dim == 4 ? choose_loop_inside<V, 4>(positions) : choose_loop_inside<V, 8>(positions);
    sort_packs(table);
}

}  // namespace

template <class T>
kernel_call<T> dense_call(unsigned long nbqbits, const std::vector<unsigned long>& targets, unsigned long controls,
                          const std::vector<thrust::complex<T>>& matrix) {
    using wide = wide_pack<T>;
    using narrow = single_pack<T>;
    auto table = std::make_shared<dense_table<T>>();
    table->dim = 1ul << targets.size();
    table->offsets.resize(table->dim);
    table->matrix.assign(matrix.begin(), matrix.begin() + static_cast<long>(table->dim * table->dim));
    kernel_call<T> call;
    std::vector<unsigned long> outer_bits;
    if (place_dense_targets<wide>(outer_bits, table->inner_of, targets, nbqbits, controls)) {
        select_dense<wide>(call, *table, nbqbits, outer_bits, controls);
    } else {
        table->inner_of.assign(targets.size(), dense_table<T>::outer);
        select_dense<narrow>(call, *table, nbqbits, targets, controls);
    }
    call.table = std::move(table);
    return call;
}

template <class T>
void guard_dense_matrix(unsigned long entries, int nthreads) {
    const auto threads = static_cast<unsigned long>(pbamplix::get_num_threads(nthreads));
    storage::refuse_beyond_free_memory(threads * entries * sizeof(thrust::complex<T>) / 16 * 16);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                         \
    template kernel_call<T> dense_call<T>(unsigned long, const std::vector<unsigned long>&, unsigned long, \
                                          const std::vector<thrust::complex<T>>&);                         \
    template void guard_dense_matrix<T>(unsigned long, int);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::kernels
