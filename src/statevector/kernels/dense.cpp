#include "statevector/kernels/dense.hpp"

#include "statevector/kernels/walk.hpp"
#include "statevector/storage/memory_guard.hpp"

#include <velacamplix/kernels.hpp>

#include <algorithm>
#include <cstdlib>

namespace velacamplix::kernels {
namespace {

// A matrix entry as the row products read it: (re, re, -im, +im). Two scalars are repeated over a pack by one load.
template <class T>
struct entry {
    T re[2];
    T im[2];
};

template <class T>
struct dense_table : coefficient_table<T> {
    unsigned long dim = 0;
    std::vector<entry<T>> matrix;         // row-major
    std::vector<unsigned long> offsets;   // outer bits of each pack of a group, by local index
    std::vector<unsigned long> inner_of;  // per target: position inside the pack, or `outer`
    static constexpr unsigned long outer = ~0ul;
};

template <class V, std::size_t... s>
[[gnu::always_inline]] inline V repeat_two(const scalar_of<V>* two, std::index_sequence<s...>) {
    using pair = typename pack_type<scalar_of<V>, 2 * sizeof(scalar_of<V>)>::type;
    pair p;
    __builtin_memcpy(&p, two, sizeof(p));
    return __builtin_shufflevector(p, p, (s % 2)...);
}

template <class V>
[[gnu::always_inline]] inline V repeat_two(const scalar_of<V>* two) {
    return repeat_two<V>(two, std::make_index_sequence<scalars<V>>{});
}

// One group's amplitudes and results, as packs over several groups at once.
template <class V>
struct group_buffer {
    static constexpr unsigned long most_on_stack = 64;
    V on_stack[3 * most_on_stack];
    V* old;     // the amplitudes
    V* turned;  // the amplitudes with real and imaginary parts exchanged
    V* result;
    void* heap = nullptr;

    explicit group_buffer(unsigned long dim) : old(on_stack) {
        if (dim > most_on_stack) {
            heap = std::aligned_alloc(64, (3 * dim * sizeof(V) + 63) / 64 * 64);
            if (heap == nullptr) std::abort();  // inside a parallel region nothing can be thrown
            old = static_cast<V*>(heap);
        }
        turned = old + dim;
        result = turned + dim;
    }
    ~group_buffer() { std::free(heap); }
    group_buffer(const group_buffer&) = delete;
    group_buffer& operator=(const group_buffer&) = delete;
};

// `rows` rows of the product at once: every sum starts at +0 and takes the columns upward, products in full.
template <unsigned rows, class V>
[[gnu::always_inline]] inline void multiply_rows(const entry<scalar_of<V>>* matrix, unsigned long dim, const V* old,
                                                 const V* turned, V* result) {
    V sum[rows] = {};
    for (unsigned long column = 0; column < dim; ++column) {
        const V x = old[column];
        const V y = turned[column];
        for (unsigned row = 0; row < rows; ++row) {
            const entry<scalar_of<V>>& m = matrix[row * dim + column];
            sum[row] += x * repeat_two<V>(m.re) + y * repeat_two<V>(m.im);
        }
    }
    for (unsigned row = 0; row < rows; ++row) result[row] = sum[row];
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
    const entry<T>* matrix = table.matrix.data();
    const unsigned long k = table.inner_of.size();
    const bool any_inner = std::any_of(table.inner_of.begin(), table.inner_of.end(),
                                       [](unsigned long position) { return position != dense_table<T>::outer; });
    const bits_of<V> changed = lane_mask<V>(call);
    const bool blend = call.lane_fixed != 0;
    group_buffer<V> buffer(dim);
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
    walk<V>(
        call, begin, end, [](unsigned long) {},
        [&](unsigned long base) {
            for (unsigned long j = 0; j < dim; ++j) old[j] = load<V>(state + (base | offsets[j]));
            if (any_inner) exchange_all(old);
            for (unsigned long j = 0; j < dim; ++j) turned[j] = swap_parts(old[j]);
            // Every dimension but 1 and 2 is a multiple of the four rows that share the loads of a column.
            if (fixed_dim != 0 || dim >= 4) {
                for (unsigned long row = 0; row < dim; row += 4) {
                    multiply_rows<4>(matrix + row * dim, dim, old, turned, result + row);
                }
            } else {
                for (unsigned long row = 0; row < dim; ++row) {
                    multiply_rows<1>(matrix + row * dim, dim, old, turned, result + row);
                }
            }
            if (any_inner) exchange_all(result);
            if (blend) {
                for (unsigned long j = 0; j < dim; ++j) {
                    thrust::complex<T>* const at = state + (base | offsets[j]);
                    result[j] = select(changed, result[j], load<V>(at));
                }
            }
            for (unsigned long j = 0; j < dim; ++j) store(state + (base | offsets[j]), result[j]);
        });
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
    call.run = choose_loop<V>(table.dim);
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
    table->matrix.reserve(table->dim * table->dim);
    for (unsigned long i = 0; i < table->dim * table->dim; ++i) {
        const thrust::complex<T> m = matrix[i];
        table->matrix.push_back({{m.real(), m.real()}, {-m.imag(), m.imag()}});
    }
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
VELACAMPLIX_INSTANTIATE(float)
VELACAMPLIX_INSTANTIATE(double)

}  // namespace velacamplix::kernels

namespace pbamplix::cpu {

using namespace velacamplix;

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

#define VELACAMPLIX_INSTANTIATE_FUNCTIONS(C)                                                                      \
    template void apply_nbqbit_gate<C, false, true>(C*, std::vector<unsigned int>, std::vector<unsigned int>,     \
                                                    std::vector<C>, unsigned long, int);                          \
    template void apply_nbqbit_gate<C, false, true>(C*, std::vector<unsigned int>, std::vector<C>, unsigned long, \
                                                    int);                                                         \
    template void _apply_nqbit_gate<C, true, true, false>(C*, vela::core::iterator::StateIterator, unsigned long, \
                                                          std::vector<C>, int);
VELACAMPLIX_INSTANTIATE_FUNCTIONS(thrust::complex<float>)
VELACAMPLIX_INSTANTIATE_FUNCTIONS(thrust::complex<double>)

}  // namespace pbamplix::cpu
