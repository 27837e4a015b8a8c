#include "statevector/index/bits.hpp"
#include "statevector/observables/block_sums.hpp"
#include "statevector/packs/widened.hpp"

#include <velacamplix/inner_products.hpp>

// Rows and columns of the matrix are worked on in panels of up to 64. For a panel of rows and one of columns their
// amplitudes at some neighbouring e, what the other qubits read, are first copied to strips of real and imaginary parts
// in which the panel's rows lie side by side; every entry then adds one product per e, a vector of columns at a time.

namespace velacamplix::observables {
namespace {

constexpr unsigned panel_bits = 6;

// Columns of a strip, 256 amplitudes or a whole line of every row: so few that the next are read from memory while
// products of these are added.
constexpr unsigned long strip_length(unsigned long rows) { return std::max(256 / rows, 16ul); }

// The amplitudes of a panel at some neighbouring e: number e * row_count + r.
template <unsigned long row_count>
struct strip {
    alignas(64) double re[strip_length(row_count) * row_count];
    alignas(64) double im[strip_length(row_count) * row_count];
};

// rows[r] | base | low[e] is the index of the amplitude.
template <unsigned long row_count, class T>
void fill(strip<row_count>& to, const thrust::complex<T>* state, const unsigned long* rows, unsigned long base,
          const unsigned long* low, unsigned long columns) {
    for (unsigned long r = 0; r < row_count; ++r) {
        const thrust::complex<T>* const from = state + (rows[r] | base);
        for (unsigned long e = 0; e < columns; ++e) {
            const auto a = packs::widened<double>(packs::read_amplitude(from + low[e]));
            to.re[e * row_count + r] = a.real();
            to.im[e * row_count + r] = a.imag();
        }
    }
}

// The entries of a panel of rows and one of columns.
template <unsigned long row_count>
struct entries {
    alignas(64) double re[row_count][row_count];
    alignas(64) double im[row_count][row_count];
};

// Adds x[r, e] * conj(y[c, e]) to every entry (r, c), one e after another. With `is_lower` entries above the diagonal
// may be left as they are.
template <unsigned long row_count>
void add_products(entries<row_count>& sums, const strip<row_count>& x, const strip<row_count>& y, unsigned long columns,
                  bool is_lower) {
    constexpr unsigned long bytes = std::min(packs::widest_bytes, row_count * sizeof(double));
    using V = typename packs::pack_type<double, bytes>::type;
    constexpr unsigned long width = packs::scalars<V>;
    constexpr unsigned long across = std::min(row_count / width, 2ul);  // vectors of columns in registers,
    constexpr unsigned long down = 2;                                   // and rows

    for (unsigned long c = 0; c < row_count; c += across * width) {
        for (unsigned long r = is_lower ? c : 0; r < row_count; r += down) {
            V re[down][across], im[down][across];
            for (unsigned long i = 0; i < down; ++i) {
                for (unsigned long j = 0; j < across; ++j) {
                    re[i][j] = packs::load_scalars<V>(&sums.re[r + i][c + j * width]);
                    im[i][j] = packs::load_scalars<V>(&sums.im[r + i][c + j * width]);
                }
            }
            for (unsigned long e = 0; e < columns; ++e) {
                const unsigned long at = e * row_count;
                for (unsigned long j = 0; j < across; ++j) {
                    const V yr = packs::load_scalars<V>(y.re + at + c + j * width);
                    const V yi = packs::load_scalars<V>(y.im + at + c + j * width);
                    for (unsigned long i = 0; i < down; ++i) {
                        const V xr = packs::broadcast<V>(x.re[at + r + i]);
                        const V xi = packs::broadcast<V>(x.im[at + r + i]);
                        re[i][j] += xr * yr + xi * yi;
                        im[i][j] += xi * yr - xr * yi;
                    }
                }
            }
            for (unsigned long i = 0; i < down; ++i) {
                for (unsigned long j = 0; j < across; ++j) {
                    packs::store_scalars<V>(&sums.re[r + i][c + j * width], re[i][j]);
                    packs::store_scalars<V>(&sums.im[r + i][c + j * width], im[i][j]);
                }
            }
        }
    }
}

// The numbers of the two panels of pair p among (0, 0), (1, 0), (1, 1), (2, 0), ...
struct panel_pair {
    unsigned long x = 0, y;
    explicit panel_pair(unsigned long p) : y(p) {
        while (y > x) y -= ++x;
    }
};

// For k >= 1 qubits; row_count is 2^min(k, panel_bits).
template <unsigned long row_count, class T>
void sum_entries(const thrust::complex<T>* state, unsigned int n, const std::vector<unsigned int>& qubits,
                 thrust::complex<double>* out, int nthreads, const pbamplix::work_hook& hook) {
    const unsigned long dim = 1ul << qubits.size();
    std::vector<unsigned long> rows(dim);
    index::fill_by_bits(rows.data(), dim, [&](unsigned long r) { return index::place_first_highest(r, qubits); });

    const unsigned long others = index::low_bits(n) & ~index::mask_of(qubits);
    const unsigned long count = 1ul << index::count_bits(others);
    const unsigned long block_columns = std::min(count, (1ul << block_bits) / row_count);
    const unsigned long columns = std::min(block_columns, strip_length(row_count));
    unsigned long low[strip_length(row_count)];
    index::fill_by_bits(low, columns, [&](unsigned long e) { return index::deposit(e, others); });

    const unsigned long panels = dim / row_count, blocks = count / block_columns;
    std::vector<entries<row_count>> sums(std::min(blocks_at_once, blocks * panels * (panels + 1) / 2));
    const auto sum_block = [&](unsigned long number, unsigned long slot) {
        const panel_pair pair(number / blocks);
        const unsigned long first = number % blocks * block_columns;
        strip<row_count> x, y;
        entries<row_count>& mine = sums[slot];
        mine = {};
        for (unsigned long e = first; e < first + block_columns; e += columns) {
            const unsigned long base = index::deposit(e, others);
            fill(x, state, &rows[pair.x * row_count], base, low, columns);
            if (pair.x != pair.y) fill(y, state, &rows[pair.y * row_count], base, low, columns);
            add_products(mine, x, pair.x == pair.y ? x : y, columns, pair.x == pair.y);
        }
    };
    const auto add_block = [&](unsigned long number, unsigned long slot) {
        const panel_pair pair(number / blocks);
        for (unsigned long r = 0; r < row_count; ++r) {
            thrust::complex<double>* const row = out + (pair.x * row_count + r) * dim + pair.y * row_count;
            for (unsigned long c = 0; c < (pair.x == pair.y ? r + 1 : row_count); ++c) {
                thrust::complex<double> entry(sums[slot].re[r][c], sums[slot].im[r][c]);
                if (number % blocks != 0) entry += packs::read_amplitude(row + c);
                packs::write_amplitude(row + c, entry);
            }
        }
    };
    const unsigned long bytes = block_columns * row_count * sizeof(*state);
    sum_in_blocks(panels * (panels + 1) / 2 * blocks, bytes, 1ul << n, nthreads, hook, sum_block, add_block);

    for (unsigned long r = 0; r < dim; ++r) {
        for (unsigned long c = 0; c < r; ++c) {
            packs::write_amplitude(out + c * dim + r, thrust::conj(packs::read_amplitude(out + r * dim + c)));
        }
    }
}

}  // namespace
}  // namespace velacamplix::observables

namespace pbamplix::cpu {

template <class T>
void reduced_density_matrix(const thrust::complex<T>* amplitudes, unsigned int n,
                            const std::vector<unsigned int>& qubits, thrust::complex<double>* out, int nthreads,
                            const work_hook& hook) {
    using velacamplix::observables::sum_entries;
    switch (qubits.size()) {
        case 0:
            return velacamplix::packs::write_amplitude(out, overlap(amplitudes, amplitudes, 1ul << n, nthreads, hook));
        case 1:
            return sum_entries<2>(amplitudes, n, qubits, out, nthreads, hook);
        case 2:
            return sum_entries<4>(amplitudes, n, qubits, out, nthreads, hook);
        case 3:
            return sum_entries<8>(amplitudes, n, qubits, out, nthreads, hook);
        case 4:
            return sum_entries<16>(amplitudes, n, qubits, out, nthreads, hook);
        case 5:
            return sum_entries<32>(amplitudes, n, qubits, out, nthreads, hook);
        default:
            return sum_entries<1ul << velacamplix::observables::panel_bits>(amplitudes, n, qubits, out, nthreads, hook);
    }
}

template void reduced_density_matrix(const thrust::complex<float>*, unsigned int, const std::vector<unsigned int>&,
                                     thrust::complex<double>*, int, const work_hook&);
template void reduced_density_matrix(const thrust::complex<double>*, unsigned int, const std::vector<unsigned int>&,
                                     thrust::complex<double>*, int, const work_hook&);

}  // namespace pbamplix::cpu
