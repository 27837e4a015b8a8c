#include "statevector/measurement/streaming.hpp"
#include "statevector/measurement/views.hpp"
#include "statevector/storage/parallel.hpp"

namespace velacamplix::measurement {
namespace {

// A tile is 16 x 16 elements: the 4 highest index bits are its row, the 4 lowest its column, and the bits between
// number the tiles. Reversal turns rows into columns: both the reads and the writes of a tile are runs of 16
// neighbours, while a plain loop would scatter every single write.
constexpr unsigned tile_bits = 4;
constexpr unsigned tile_side = 1 << tile_bits;

// The tiles in an order in which 16 of them, one after another, fill 16 x 16 neighbours of the copy: a page of 4 KiB
// and its address translation are then used up at once. (The state itself lies on huge pages.)
struct tile_order {
    unsigned int tile_number_bits;
    unsigned int hastened = std::min(tile_bits, tile_number_bits);  // the highest, counted through first

    unsigned long at(unsigned long step) const {
        const unsigned long high = index::reverse_bits(step & index::low_bits(hastened), hastened);
        return high << (tile_number_bits - hastened) | step >> hastened;
    }
};

// One whole amplitude by one move, which GCC would make two of.
template <class T>
[[gnu::always_inline]] inline void copy_element(const pbamplix::SVSequence<thrust::complex<T>>& view,
                                                unsigned long index, thrust::complex<T>* to) {
    kernels::store(to, kernels::load<kernels::single_pack<T>>(view.data + index));
}
template <class T>
inline void copy_element(const pbamplix::DMDiagSequence<T>& view, unsigned long index, T* to) {
    *to = value_at(view, index);
}

template <bool thresholded, bool streamed, class Out, class Seq>
void copy_tiles(const Seq& view, Out* out, typename Seq::proba_type threshold_sq, unsigned long begin,
                unsigned long end) {
    using T = typename Seq::proba_type;
    const unsigned int n = view.nqubits;
    const tile_order order{n - 2 * tile_bits};
    alignas(64) Out tile[tile_side][tile_side];
    alignas(64) T probabilities[tile_side];

    unsigned long next = order.at(begin) * tile_side;
    for (unsigned long step = begin; step < end; ++step) {
        const unsigned long middle = next;
        next = order.at(std::min(step + 1, end - 1)) * tile_side;
        for (unsigned row = 0; row < tile_side; ++row) {
            const unsigned long row_start = pbamplix::cpu::lsb_msb_4qb[row] << (n - tile_bits);
            if constexpr (thresholded) {
                fill_probabilities(view, row_start + middle, tile_side, probabilities, row_start + next);
            } else {
                fetch_ahead(view, row_start + next, tile_side);
            }
            for (unsigned column = 0; column < tile_side; ++column) {
                copy_element(view, row_start + middle + column, &tile[column][row]);
                if (thresholded && !(probabilities[column] > threshold_sq)) tile[column][row] = Out();
            }
        }
        const unsigned long reversed_middle = index::reverse_bits(middle, n);
        for (unsigned column = 0; column < tile_side; ++column) {
            Out* const run = out + reversed_middle + (pbamplix::cpu::lsb_msb_4qb[column] << (n - tile_bits));
            copy_run<streamed>(run, tile[column], sizeof(tile[column]));
        }
    }
    if constexpr (streamed) finish_streaming();
}

}  // namespace
}  // namespace velacamplix::measurement

namespace pbamplix::cpu {

using namespace velacamplix;

template <bool Threshold, class Out, class Seq>
void _permute_and_copy_vector_fast(Seq seq, Out* out, const int& nthreads, typename Seq::proba_type threshold_sq) {
    const unsigned long bytes = seq.dim * sizeof(Out);
    const bool streamed = bytes >= measurement::streaming_bytes && measurement::can_stream(out);
    const unsigned long tiles = seq.dim / (measurement::tile_side * measurement::tile_side);
    storage::parallel_blocks(tiles, 2 * bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        if (streamed) {
            measurement::copy_tiles<Threshold, true>(seq, out, threshold_sq, begin, end);
        } else {
            measurement::copy_tiles<Threshold, false>(seq, out, threshold_sq, begin, end);
        }
    });
}

template <class P, class Out, class Seq>
void _permute_and_copy_vector_no_simd(Seq seq, Out* out, const P& threshold_sq, int nthreads) {
    storage::parallel_blocks(seq.dim, 2 * seq.dim * sizeof(Out), nthreads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long i = begin; i < end; ++i) {
            const bool kept = measurement::probability_at(seq, i) > threshold_sq;
            out[index::reverse_bits(i, seq.nqubits)] = kept ? measurement::value_at(seq, i) : Out();
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
