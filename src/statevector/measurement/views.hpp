#pragma once

#include "statevector/index/bits.hpp"
#include "statevector/packs/squares.hpp"
#include "statevector/packs/widened.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <velacamplix/measurement.hpp>

#include <algorithm>

// Reading probabilities: element k of a view, one at a time or a run at a time. A run is formed in the precision of
// the numbers it is written to, so a precise view needs nothing of its own there.

namespace velacamplix::measurement {

// Element `index` of a view.
template <class T>
inline T probability_at(const pbamplix::SVSequence<thrust::complex<T>>& view, unsigned long index) {
    return packs::squared_magnitude(packs::read_amplitude(view.data + index));
}
template <class T>
inline T probability_at(const pbamplix::DMDiagSequence<T>& view, unsigned long index) {
    return packs::read_amplitude(view.data + index * (view.dim + 1)).real();
}
template <class T>
inline double probability_at(const pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<T>>>& view,
                             unsigned long index) {
    return packs::squared_magnitude(packs::widened<double>(packs::read_amplitude(view.data + index)));
}
template <class T>
inline double probability_at(const pbamplix::precise_view<pbamplix::DMDiagSequence<T>>& view, unsigned long index) {
    return static_cast<double>(packs::read_amplitude(view.data + index * (view.dim + 1)).real());
}

// What the exports copy: the amplitude, or the diagonal entry.
template <class T>
inline thrust::complex<T> value_at(const pbamplix::SVSequence<thrust::complex<T>>& view, unsigned long index) {
    return packs::read_amplitude(view.data + index);
}
template <class T>
inline T value_at(const pbamplix::DMDiagSequence<T>& view, unsigned long index) {
    return packs::read_amplitude(view.data + index * (view.dim + 1)).real();
}

// Fetches the elements first ... first + count - 1 from memory without waiting for them.
template <class T>
inline void fetch_ahead(const pbamplix::SVSequence<thrust::complex<T>>& view, unsigned long first,
                        unsigned long count) {
    const char* const from = reinterpret_cast<const char*>(view.data + first);
    for (unsigned long b = 0; b < count * sizeof(*view.data); b += storage::line_bytes)
        __builtin_prefetch(from + b, 0, 2);
}
template <class T>
inline void fetch_ahead(const pbamplix::DMDiagSequence<T>&, unsigned long, unsigned long) {}  // few and far apart

// Writes the elements first ... first + count - 1 of a view to `out`. Those from `next` on, which the caller will want
// after these, are fetched from memory meanwhile.
template <class T, class Out>
inline void fill_probabilities(const pbamplix::SVSequence<thrust::complex<T>>& view, unsigned long first,
                               unsigned long count, Out* out, unsigned long next) {
    using V = packs::wide_pack<Out>;
    constexpr unsigned long lanes = packs::lanes<V>;
    const thrust::complex<T>* from = view.data + first;
    unsigned long ahead = next;
    for (unsigned long pairs = count / (2 * lanes); pairs != 0; --pairs) {
        fetch_ahead(view, ahead, 2 * lanes);
        packs::store_scalars(
            out, packs::squared_magnitudes(packs::load_widened<V>(from), packs::load_widened<V>(from + lanes)));
        ahead += 2 * lanes;
        from += 2 * lanes;
        out += 2 * lanes;
    }
    for (unsigned long rest = count % (2 * lanes); rest != 0; --rest) {
        *out++ = packs::squared_magnitude(packs::widened<Out>(packs::read_amplitude(from++)));
    }
}

template <class T, class Out>
inline void fill_probabilities(const pbamplix::DMDiagSequence<T>& view, unsigned long first, unsigned long count,
                               Out* out, unsigned long) {
    for (unsigned long k = 0; k < count; ++k) out[k] = static_cast<Out>(probability_at(view, first + k));
}

// The part of a view whose other index bits carry `fixed`: element j is the view's element deposit(j, free) | fixed.
template <class Seq>
struct fixed_view {
    using proba_type = typename Seq::proba_type;
    static constexpr unsigned long window = 64;  // neighbouring elements of the whole view

    // 2^nqubits elements; nqubits is at most the number of free bits.
    fixed_view(const Seq& whole, unsigned long free_bits, unsigned long fixed_bits, unsigned int count_bits)
        : view(whole), free(free_bits), fixed(fixed_bits & ~free_bits), nqubits(count_bits), dim(1ul << count_bits) {
        const unsigned long inside = free & (window - 1);
        kept = 1u << std::popcount(inside);
        for (unsigned k = 0; k < kept; ++k) {
            kept_at[k] = static_cast<unsigned char>(index::deposit(k, inside) | (fixed & (window - 1)));
        }
    }

    // The free bits that follow those of i.
    unsigned long after(unsigned long i) const { return index::next(i, free); }

    Seq view;
    unsigned long free;
    unsigned long fixed;
    unsigned int nqubits;
    unsigned long dim;
    unsigned kept;                  // elements of a window that belong to the part,
    unsigned char kept_at[window];  // and their places in it
};

// `first` is a multiple of `count`, a power of two.
template <class Seq>
inline void fill_probabilities(const fixed_view<Seq>& part, unsigned long first, unsigned long count,
                               typename Seq::proba_type* out, unsigned long next) {
    constexpr unsigned long window = fixed_view<Seq>::window;
    unsigned long i = index::deposit(first, part.free);
    unsigned long ahead = index::deposit(next, part.free);
    // Elements that lie side by side before a fixed bit interrupts them.
    const unsigned long run = ~part.free != 0 ? (~part.free & -~part.free) : 1ul << 63;

    if (run >= window) {
        while (count != 0) {
            const unsigned long length = std::min(run - (i & (run - 1)), count);
            fill_probabilities(part.view, i | part.fixed, length, out, ahead | part.fixed);
            out += length;
            count -= length;
            i = part.after(i + length - 1);
            ahead = part.after(ahead + length - 1);
        }
    } else if (part.kept >= 8 && count >= part.kept && part.view.dim >= window) {
        // With wide packs it is faster to form all of a window and to pick than to go for single elements.
        alignas(64) typename Seq::proba_type all[window];
        const unsigned long outside = ~(window - 1);
        for (; count != 0; count -= part.kept) {
            fill_probabilities(part.view, (i | part.fixed) & outside, window, all, (ahead | part.fixed) & outside);
            for (unsigned k = 0; k < part.kept; ++k) out[k] = all[part.kept_at[k]];
            out += part.kept;
            i = part.after(i | (window - 1));
            ahead = part.after(ahead | (window - 1));
        }
    } else {
        for (; count != 0; --count) {
            *out++ = probability_at(part.view, i | part.fixed);
            i = part.after(i);
        }
    }
}

// The read views of a state's array; in density-matrix mode the array holds 2m qubits and the view has m.
template <class T>
inline pbamplix::SVSequence<thrust::complex<T>> state_view(const thrust::complex<T>* data, unsigned int n) {
    return {data, n, 1ul << (n & 63)};
}

// A view of a state whose probabilities are formed and summed in the precision Sum, that of the amplitudes or double.
template <class Sum, class T>
inline auto view_summed_in(const thrust::complex<T>* data, unsigned int n) {
    using view = pbamplix::SVSequence<thrust::complex<T>>;
    if constexpr (std::is_same_v<Sum, T>) {
        return state_view(data, n);
    } else {
        return pbamplix::precise_view<view>{state_view(data, n)};
    }
}
template <class T>
inline pbamplix::DMDiagSequence<T> diagonal_view(const thrust::complex<T>* data, unsigned int n) {
    return {data, n >> 1, 1ul << ((n >> 1) & 63)};
}

}  // namespace velacamplix::measurement
