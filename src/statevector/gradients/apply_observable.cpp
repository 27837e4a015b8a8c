#include "statevector/index/bits.hpp"
#include "statevector/packs/parts.hpp"
#include "statevector/packs/widened.hpp"
#include "statevector/storage/parallel.hpp"

#include <velacamplix/gradient.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace velacamplix::gradients {
namespace {

using V = packs::wide_pack<double>;
constexpr unsigned long width = packs::scalars<V>;

constexpr unsigned row_bits = 3;
constexpr unsigned long row_length = 1ul << row_bits;
// Amplitudes that are written to the end before the next are begun: what all flips add to them stays in the cache.
constexpr unsigned tile_bits = 12;

bool is_odd(unsigned long bits) { return __builtin_parityl(bits) != 0; }

// A number times (-1)^|i & phase|, for the index i that is written.
struct signed_number {
    unsigned long phase;
    std::array<double, row_length> row;  // with the signs that a place in a row gives

    signed_number(double number, unsigned long mask) : phase(mask) {
        for (unsigned long a = 0; a < row_length; ++a) row[a] = is_odd(a & mask) ? -number : number;
    }
};

// All terms that flip the same qubits: out[i] += (re(i) + i im(i)) psi[i ^ flip], re and im sums of signed numbers.
struct flip_group {
    unsigned long flip;
    std::vector<signed_number> re, im;

    static double at(const std::vector<signed_number>& numbers, unsigned long i) {
        double sum = 0;
        for (const signed_number& n : numbers) {
            const double number = n.row[i % row_length];
            sum += is_odd((i & n.phase) >> row_bits) ? -number : number;
        }
        return sum;
    }
};

// In the order of their flips; terms in their own.
std::vector<flip_group> groups_of(const WObservable<double>& observable) {
    std::map<unsigned long, flip_group> by_flip;
    const auto add = [&](thrust::complex<double> coefficient, unsigned long flip, unsigned long phase,
                         unsigned y_count) {
        const double re = coefficient.real(), im = coefficient.imag();
        const std::array<std::pair<double, double>, 4> turned = {{{re, im}, {-im, re}, {-re, -im}, {im, -re}}};
        const auto [x, y] = turned[y_count & 3];  // times i^y_count
        const double sign = is_odd(flip & phase) ? -1 : 1;
        flip_group& group = by_flip.try_emplace(flip, flip_group{flip, {}, {}}).first->second;
        if (x != 0 || y == 0) group.re.emplace_back(sign * x, phase);
        if (y != 0) group.im.emplace_back(sign * y, phase);
    };
    for (std::size_t t = 0; t < observable.flip_masks.size(); ++t) {
        add(observable.coefficients[t], observable.flip_masks[t], observable.phase_masks[t], observable.y_counts[t]);
    }
    if (by_flip.empty() || observable.constant != thrust::complex<double>(0)) add(observable.constant, 0, 0, 0);
    std::vector<flip_group> groups;
    groups.reserve(by_flip.size());
    for (auto& [flip, group] : by_flip) groups.push_back(std::move(group));
    return groups;
}

template <unsigned flipped>
struct flipped_elements {
    static constexpr int at(std::size_t s) { return static_cast<int>(s ^ flipped); }
};

// As many numbers of T as V has.
template <class T>
using narrowed = typename packs::pack_type<T, width * sizeof(T)>::type;

constexpr std::size_t packs_in_row = row_length / width;

[[gnu::always_inline]] inline void add_numbers(const std::vector<signed_number>& numbers, unsigned long row,
                                               std::array<V, packs_in_row>& to) {
    using bits = packs::bits_of<V>;
    for (const signed_number& n : numbers) {
        const auto sign = (bits)packs::broadcast<V>(is_odd(row & (n.phase >> row_bits)) ? -0.0 : 0.0);
        for (std::size_t k = 0; k < packs_in_row; ++k) {
            to[k] += (V)((bits)packs::load_scalars<V>(n.row.data() + k * width) ^ sign);
        }
    }
}

// Adds a group's part to the rows first ... last - 1, or sets them to it.
template <class T, unsigned flipped>
void add_rows(const flip_group& group, const thrust::complex<T>* psi, thrust::complex<T>* out, unsigned long first,
              unsigned long last, bool sets) {
    using N = narrowed<T>;
    constexpr unsigned long lanes = packs::lanes<N>;
    const unsigned long row_flip = group.flip >> row_bits;
    const unsigned long pack_flip = (group.flip & (row_length - 1)) / lanes;
    for (unsigned long row = first; row < last; ++row) {
        std::array<V, packs_in_row> re{}, im{};
        add_numbers(group.re, row, re);
        add_numbers(group.im, row, im);
        const thrust::complex<T>* const from = psi + ((row ^ row_flip) << row_bits);
        thrust::complex<T>* const to = out + (row << row_bits);
        const auto write = [&](std::size_t pack, N real, N imaginary) __attribute__((always_inline)) {
            N a = packs::load<N>(from + (pack ^ pack_flip) * lanes);
            a = packs::shuffle(a, a, flipped_elements<flipped>{}, std::make_index_sequence<width>{});
            N part = a * real;
            if (!group.im.empty()) part += packs::quarter_turn(a) * imaginary;
            packs::store(to + pack * lanes, sets ? part : packs::load<N>(to + pack * lanes) + part);
        };
        for (std::size_t k = 0; k < packs_in_row; ++k) {
            const N x = __builtin_convertvector(re[k], N), y = __builtin_convertvector(im[k], N);
            write(2 * k, packs::first_amplitudes(x, x), packs::first_amplitudes(y, y));
            write(2 * k + 1, packs::second_amplitudes(x, x), packs::second_amplitudes(y, y));
        }
    }
}

template <class T, std::size_t... lane_flips>
void add_rows(const flip_group& group, const thrust::complex<T>* psi, thrust::complex<T>* out, unsigned long first,
              unsigned long last, bool sets, std::index_sequence<lane_flips...>) {
    using loop =
        void (*)(const flip_group&, const thrust::complex<T>*, thrust::complex<T>*, unsigned long, unsigned long, bool);
    static constexpr loop loops[] = {&add_rows<T, static_cast<unsigned>(2 * lane_flips)>...};
    loops[group.flip % (width / 2)](group, psi, out, first, last, sets);
}

// States smaller than a row.
template <class T>
void apply_to_few(const std::vector<flip_group>& groups, const thrust::complex<T>* psi, unsigned long size,
                  thrust::complex<T>* out) {
    for (unsigned long i = 0; i < size; ++i) {
        T re = 0, im = 0;
        for (const flip_group& group : groups) {
            const T x = static_cast<T>(flip_group::at(group.re, i)), y = static_cast<T>(flip_group::at(group.im, i));
            const auto a = packs::read_amplitude(psi + (i ^ group.flip));
            re += a.real() * x - a.imag() * y;
            im += a.imag() * x + a.real() * y;
        }
        packs::write_amplitude(out + i, {re, im});
    }
}

}  // namespace
}  // namespace velacamplix::gradients

namespace pbamplix::cpu {

using namespace velacamplix;
using namespace velacamplix::gradients;

template <class T>
void apply_observable(const thrust::complex<T>* psi, const WObservable<double>& observable, unsigned int qubits,
                      int nthreads, thrust::complex<T>* out, const work_hook& hook) {
    const unsigned long size = 1ul << qubits;
    const std::vector<flip_group> groups = groups_of(observable);
    if (qubits < row_bits) {
        apply_to_few(groups, psi, size, out);
        if (hook) hook(size, size);
        return;
    }
    const unsigned long tile = 1ul << std::min(qubits, tile_bits), rows = tile >> row_bits, tiles = size / tile;
    const unsigned long bytes = size * sizeof(thrust::complex<T>) * (groups.size() + 1);
    const unsigned long pieces = std::clamp(tiles / 16, 1ul, 64ul);  // few enough for a fraction of a second
    for (unsigned long piece = 0; piece < pieces; ++piece) {
        const auto share = storage::share_of(tiles, pieces, piece);
        storage::parallel_shares(share.end - share.begin, bytes / pieces, nthreads, [&](auto begin, auto end) {
            for (unsigned long t = share.begin + begin; t < share.begin + end; ++t) {
                for (const flip_group& group : groups) {
                    add_rows(group, psi, out, t * rows, (t + 1) * rows, &group == groups.data(),
                             std::make_index_sequence<width / 2>{});
                }
            }
        });
        if (hook) hook(share.end * tile, size);
    }
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                           \
    template void apply_observable(const thrust::complex<T>*, const WObservable<double>&, unsigned int, int, \
                                   thrust::complex<T>*, const work_hook&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix::cpu
