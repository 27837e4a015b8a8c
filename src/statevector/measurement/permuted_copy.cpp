#include "statevector/measurement/streaming.hpp"
#include "statevector/measurement/views.hpp"
#include "statevector/storage/parallel.hpp"

namespace velacamplix::measurement {
namespace {

// A square is 16 x 16 elements: the 4 highest index bits are its row, the 4 lowest its column, and the bits between
// number the squares. Reversal turns rows into columns: both the reads and the writes of a square are runs of 16
// neighbours, while a plain loop would scatter every single write.
constexpr unsigned square_bits = 4;
constexpr unsigned square_side = 1 << square_bits;

// The squares in an order in which 16 of them, one after another, fill runs of 16 x 16 neighbours of the copy: a page
// of 4 KiB and its address translation are then used up at once. (The state itself lies on huge pages.)
struct square_order {
    unsigned int square_number_bits;
    unsigned int hastened = std::min(square_bits, square_number_bits);  // the highest bits, counted through first

    unsigned long at(unsigned long step) const {
        const unsigned long high = index::reverse_bits(step & index::low_bits(hastened), hastened);
        return high << (square_number_bits - hastened) | step >> hastened;
    }
    bool begins_run(unsigned long step) const { return (step & index::low_bits(hastened)) == 0; }
};

// Columns of a square, each with room for what waits in front of it.
template <class Out>
using staged_square = Out[square_side][square_side + line_bytes / sizeof(Out)];

// One whole amplitude by one move, which GCC would make two of.
template <class T>
[[gnu::always_inline]] inline void copy_element(const pbamplix::SVSequence<thrust::complex<T>>& view,
                                                unsigned long index, thrust::complex<T>* to) {
    packs::store(to, packs::load<packs::single_pack<T>>(view.data + index));
}
template <class T>
inline void copy_element(const pbamplix::DMDiagSequence<T>& view, unsigned long index, T* to) {
    *to = value_at(view, index);
}

// All bits set where a probability is kept, none where it is not.
template <class T>
using keep_mask = packs::scalar_of<packs::bits_of<packs::single_pack<T>>>;

template <class T>
[[gnu::always_inline]] inline void compare(const T* probabilities, T threshold_sq, keep_mask<T>* masks) {
    using V = packs::wide_pack<T>;
    for (unsigned k = 0; k < square_side; k += packs::scalars<V>) {
        const packs::bits_of<V> above = packs::load_scalars<V>(probabilities + k) > packs::broadcast<V>(threshold_sq);
        __builtin_memcpy(masks + k, &above, sizeof(above));
    }
}

// The same with a mask: no branch, which would be mispredicted where probabilities lie on both sides of the threshold.
template <class T>
[[gnu::always_inline]] inline void copy_element(const pbamplix::SVSequence<thrust::complex<T>>& view,
                                                unsigned long index, thrust::complex<T>* to, keep_mask<T> kept) {
    using V = packs::single_pack<T>;
    using bits = packs::bits_of<V>;
    packs::store(to, (V)((bits)packs::load<V>(view.data + index) & bits{kept, kept}));
}
template <class T>
inline void copy_element(const pbamplix::DMDiagSequence<T>& view, unsigned long index, T* to, keep_mask<T> kept) {
    *to = kept != 0 ? value_at(view, index) : T(0);
}

// Forms one square after another and calls write(column, at, first, last, next_at) for each of its columns: the
// elements column[past_line ...] belong to the copy's places from `at` on, `next_at` being the next square's. From the
// first square of 16 to the last, a column's runs follow on each other. What stands before `past_line` is left alone.
template <bool thresholded, class Out, class Seq, class Write>
void walk_squares(const Seq& view, typename Seq::proba_type threshold_sq, unsigned long begin, unsigned long end,
                  unsigned long past_line, Write write) {
    using T = typename Seq::proba_type;
    const unsigned int n = view.nqubits;
    const square_order order{n - 2 * square_bits};
    alignas(line_bytes) staged_square<Out> square;
    alignas(line_bytes) T probabilities[square_side];
    alignas(line_bytes) keep_mask<T> masks[square_side];

    unsigned long next = order.at(begin) * square_side;
    for (unsigned long step = begin; step < end; ++step) {
        const unsigned long middle = next;
        next = order.at(std::min(step + 1, end - 1)) * square_side;
        for (unsigned row = 0; row < square_side; ++row) {
            const unsigned long row_start = pbamplix::cpu::lsb_msb_4qb[row] << (n - square_bits);
            if constexpr (thresholded) {
                fill_probabilities(view, row_start + middle, square_side, probabilities, row_start + next);
                compare(probabilities, threshold_sq, masks);
            } else {
                fetch_ahead(view, row_start + next, square_side);
            }
            for (unsigned column = 0; column < square_side; ++column) {
                const unsigned long element = row_start + middle + column;
                if constexpr (thresholded) {
                    copy_element(view, element, &square[column][past_line + row], masks[column]);
                } else {
                    copy_element(view, element, &square[column][past_line + row]);
                }
            }
        }
        const bool first = step == begin || order.begins_run(step);
        const bool last = step + 1 == end || order.begins_run(step + 1);
        const unsigned long place = index::reverse_bits(middle, n);
        const unsigned long next_place = index::reverse_bits(next, n);
        for (unsigned column = 0; column < square_side; ++column) {
            const unsigned long column_start = pbamplix::cpu::lsb_msb_4qb[column] << (n - square_bits);
            write(square[column], column_start + place, first, last, column_start + next_place);
        }
    }
}

template <bool thresholded, class Out, class Seq>
void copy_squares(const Seq& view, Out* out, typename Seq::proba_type threshold_sq, unsigned long begin,
                  unsigned long end) {
    walk_squares<thresholded, Out>(view, threshold_sq, begin, end, 0,
                                   [&](Out* column, unsigned long at, bool, bool, unsigned long) {
                                       std::memcpy(static_cast<void*>(out + at), column, square_side * sizeof(Out));
                                   });
}

// Only whole lines are streamed. What a square leaves of its last line waits in front of the column for the next
// square, whose run follows on. The broken lines at both ends of 16 runs are stored the ordinary way; they are fetched
// before, since such a store holds up all that come after it.
template <bool thresholded, class Out, class Seq>
void stream_squares(const Seq& view, Out* out, typename Seq::proba_type threshold_sq, unsigned long begin,
                    unsigned long end) {
    constexpr unsigned long line = line_bytes / sizeof(Out);
    const unsigned long waiting = elements_past_line(out);
    walk_squares<thresholded, Out>(view, threshold_sq, begin, end, waiting,
                                   [&](Out* column, unsigned long at, bool first, bool last, unsigned long next_at) {
                                       Out* const run = out + at - waiting;
                                       if (first && waiting != 0) {
                                           __builtin_prefetch(run + square_side * square_side, 1);
                                           std::copy(column + waiting, column + line, run + waiting);
                                           stream_lines(run + line, column + line, (square_side - line) * sizeof(Out));
                                       } else {
                                           stream_lines(run, column, square_side * sizeof(Out));
                                       }
                                       if (last && waiting != 0) {
                                           __builtin_prefetch(out + next_at, 1);
                                           std::copy_n(column + square_side, waiting, run + square_side);
                                       } else {
                                           std::memcpy(static_cast<void*>(column), column + square_side,
                                                       line_bytes);  // a whole line is faster
                                       }
                                   });
    finish_streaming();
}

}  // namespace
}  // namespace velacamplix::measurement

namespace pbamplix::cpu {

using namespace velacamplix;

template <bool Threshold, class Out, class Seq>
void _permute_and_copy_vector_fast(Seq seq, Out* out, const int& nthreads, typename Seq::proba_type threshold_sq) {
    const unsigned long bytes = seq.dim * sizeof(Out);
    // An element that lies across the end of a line leaves no whole line to stream.
    const bool streamed =
        bytes >= measurement::streaming_bytes && reinterpret_cast<std::uintptr_t>(out) % sizeof(Out) == 0;
    const unsigned long squares = seq.dim / (measurement::square_side * measurement::square_side);
    storage::parallel_shares(squares, 2 * bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        if (streamed) {
            measurement::stream_squares<Threshold>(seq, out, threshold_sq, begin, end);
        } else {
            measurement::copy_squares<Threshold>(seq, out, threshold_sq, begin, end);
        }
    });
}

template <class P, class Out, class Seq>
void _permute_and_copy_vector_no_simd(Seq seq, Out* out, const P& threshold_sq, int nthreads) {
    storage::parallel_shares(seq.dim, 2 * seq.dim * sizeof(Out), nthreads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long i = begin; i < end; ++i) {
            const bool kept = measurement::probability_at(seq, i) > threshold_sq;
            const Out value = kept ? measurement::value_at(seq, i) : Out();
            std::memcpy(static_cast<void*>(out + index::reverse_bits(i, seq.nqubits)), &value, sizeof(Out));
        }
    });
}

template <class T>
using State = SVSequence<thrust::complex<T>>;
template <class T>
using Diagonal = DMDiagSequence<T>;

template void _permute_and_copy_vector_fast<false>(State<float>, thrust::complex<float>*, const int&, float);
template void _permute_and_copy_vector_fast<false>(State<double>, thrust::complex<double>*, const int&, double);
template void _permute_and_copy_vector_fast<false>(Diagonal<float>, float*, const int&, float);
template void _permute_and_copy_vector_fast<false>(Diagonal<double>, double*, const int&, double);
template void _permute_and_copy_vector_fast<true>(State<float>, thrust::complex<float>*, const int&, float);
template void _permute_and_copy_vector_fast<true>(State<double>, thrust::complex<double>*, const int&, double);
template void _permute_and_copy_vector_fast<true>(Diagonal<float>, float*, const int&, float);
template void _permute_and_copy_vector_fast<true>(Diagonal<double>, double*, const int&, double);

template void _permute_and_copy_vector_no_simd(State<float>, thrust::complex<float>*, const float&, int);
template void _permute_and_copy_vector_no_simd(State<double>, thrust::complex<double>*, const double&, int);
template void _permute_and_copy_vector_no_simd(Diagonal<float>, float*, const float&, int);
template void _permute_and_copy_vector_no_simd(Diagonal<double>, double*, const double&, int);

}  // namespace pbamplix::cpu
