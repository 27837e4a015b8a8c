#include "statevector/index/bits.hpp"
#include "statevector/packs/parts.hpp"
#include "statevector/packs/widened.hpp"
#include "statevector/storage/aligned_array.hpp"
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
using row = std::array<double, row_length>;

// Amplitudes that are written to the end before the next are begun, so that what all flips add to them stays in the
// cache; a power of two of rows.
constexpr unsigned block_bits = 12;
constexpr unsigned block_row_bits = block_bits - row_bits;

// Parities of a row's number that terms of one flip may depend on where their sums stand in a table.
constexpr std::size_t most_parities = 8;

bool is_odd(unsigned long bits) { return __builtin_parityl(bits) != 0; }

// A number times (-1)^|i & phase|, i being the index that is written.
struct signed_number {
    double number;
    unsigned long phase;
};

// What the signs inside a row make of one.
row row_of(const signed_number& n) {
    row numbers;
    for (unsigned long a = 0; a < row_length; ++a) numbers[a] = is_odd(a & n.phase) ? -n.number : n.number;
    return numbers;
}

void add_signed(row& to, const row& numbers, bool negative) {
    for (unsigned long a = 0; a < row_length; ++a) to[a] += negative ? -numbers[a] : numbers[a];
}

// The sum of signed numbers at every index, a row at a time. Signs of rows go by parities of the row's number. Where
// few parities tell all signs apart, the sums are formed once for each combination; where they are many, for every
// block, by a Walsh-Hadamard transform over its rows.
class signed_sums {
public:
    explicit signed_sums(const std::vector<signed_number>& numbers) : numbers_(numbers) {
        for (const signed_number& n : numbers) add_parity(n.phase >> row_bits);
        if (!has_table()) return;
        table_.resize(1ul << parities_.size());
        for (const signed_number& n : numbers) {
            const row plain = row_of(n);
            const unsigned long combination = combination_of(n.phase >> row_bits);
            for (unsigned long c = 0; c < table_.size(); ++c) add_signed(table_[c], plain, is_odd(c & combination));
        }
        for (unsigned long r = 0; r < low_.size(); ++r) low_[r] = place_of(r);
        for (unsigned long r = 0; r < high_.size(); ++r) high_[r] = place_of(r << low_bits);
    }

    bool is_empty() const { return numbers_.empty(); }
    // One that is not out of proportion to what it is made of: half a KiB for a number.
    bool has_table() const {
        return parities_.size() <= most_parities && (1ul << parities_.size()) <= 8 * std::max(numbers_.size(), 1ul);
    }

    // The sums of a block's rows, of which the first is number `first`; `own` is room for a row each, for sums without
    // a table.
    class in_block {
    public:
        in_block(const signed_sums& sums, unsigned long first, unsigned long rows, row* own) : sums_(sums), own_(own) {
            if (sums.has_table()) {
                place_ = sums.place_of(first);
            } else {
                sums.transform(first, rows, own);
            }
        }
        // Of the row first + r.
        const double* operator[](unsigned long r) const {
            if (!sums_.has_table()) return own_[r].data();
            return sums_.table_[place_ ^ sums_.low_[r % sums_.low_.size()] ^ sums_.high_[r >> low_bits]].data();
        }

    private:
        const signed_sums& sums_;
        row* own_;
        unsigned long place_ = 0;
    };

    double at(unsigned long i) const {
        double sum = 0;
        for (const signed_number& n : numbers_) sum += is_odd(i & n.phase) ? -n.number : n.number;
        return sum;
    }

private:
    static constexpr unsigned low_bits = 4;

    // Keeps masks of which no combination is another: each has a highest bit of its own.
    void add_parity(unsigned long mask) {
        for (const unsigned long known : parities_) mask = std::min(mask, mask ^ known);
        if (mask != 0) parities_.push_back(mask);
    }
    // Which of the parities together make that of `mask`.
    unsigned long combination_of(unsigned long mask) const {
        unsigned long combination = 0;
        for (std::size_t k = 0; k < parities_.size(); ++k) {
            if ((mask ^ parities_[k]) >= mask) continue;
            mask ^= parities_[k];
            combination |= 1ul << k;
        }
        return combination;
    }
    // Where the sums of a row stand in the table.
    unsigned long place_of(unsigned long r) const {
        unsigned long place = 0;
        for (std::size_t k = 0; k < parities_.size(); ++k) place |= (is_odd(r & parities_[k]) ? 1ul : 0ul) << k;
        return place;
    }

    void transform(unsigned long first, unsigned long rows, row* out) const {
        std::fill_n(out, rows, row{});
        for (const signed_number& n : numbers_) {
            add_signed(out[(n.phase >> row_bits) & (rows - 1)], row_of(n), is_odd(first & (n.phase >> row_bits)));
        }
        for (unsigned long half = 1; half < rows; half *= 2) {
            for (unsigned long r = 0; r < rows; r = ((r | half) + 1) & ~half) {
                for (unsigned long a = 0; a < row_length; a += width) {
                    double *const x = out[r].data() + a, *const y = out[r | half].data() + a;
                    const V p = packs::load_scalars<V>(x), q = packs::load_scalars<V>(y);
                    packs::store_scalars(x, p + q);
                    packs::store_scalars(y, p - q);
                }
            }
        }
    }

    std::vector<signed_number> numbers_;
    std::vector<unsigned long> parities_;
    std::vector<row> table_;
    std::array<unsigned long, 1ul << low_bits> low_;                      // places of a row's lowest bits
    std::array<unsigned long, 1ul << (block_row_bits - low_bits)> high_;  // and of those above, inside a block
};

// All terms that flip the same qubits: out[i] += (re(i) + i im(i)) psi[i ^ flip].
struct flip_group {
    unsigned long flip;
    signed_sums re, im;
};

// In the order of their flips; terms in their own.
std::vector<flip_group> groups_of(const WObservable<double>& observable) {
    std::map<unsigned long, std::array<std::vector<signed_number>, 2>> by_flip;
    const auto add = [&](thrust::complex<double> weight, unsigned long flip, unsigned long phase, unsigned y_count) {
        const double re = weight.real(), im = weight.imag();
        const std::array<std::pair<double, double>, 4> turned = {{{re, im}, {-im, re}, {-re, -im}, {im, -re}}};
        const auto [x, y] = turned[y_count & 3];  // times i^y_count
        // P has the sign of the index that it comes from, i ^ flip.
        const double sign = is_odd(flip & phase) ? -1 : 1;
        auto& parts = by_flip[flip];
        if (x != 0 || y == 0) parts[0].push_back({sign * x, phase});
        if (y != 0) parts[1].push_back({sign * y, phase});
    };
    for (std::size_t t = 0; t < observable.flip_masks.size(); ++t) {
        add(observable.coefficients[t], observable.flip_masks[t], observable.phase_masks[t], observable.y_counts[t]);
    }
    if (by_flip.empty() || observable.constant != thrust::complex<double>(0)) add(observable.constant, 0, 0, 0);
    std::vector<flip_group> groups;
    groups.reserve(by_flip.size());
    for (const auto& [flip, parts] : by_flip) groups.push_back({flip, signed_sums(parts[0]), signed_sums(parts[1])});
    return groups;
}

template <unsigned flipped>
struct flipped_elements {
    static constexpr int at(std::size_t s) { return static_cast<int>(s ^ flipped); }
};

// As many numbers of T as V has.
template <class T>
using narrowed = typename packs::pack_type<T, width * sizeof(T)>::type;

// Numbers in place of amplitudes: each twice. `second` takes those of the second half of a pack.
template <class N, bool second>
[[gnu::always_inline]] inline N spread(const double* numbers) {
    const N narrow = __builtin_convertvector(packs::load_scalars<V>(numbers), N);
    return second ? packs::second_amplitudes(narrow, narrow) : packs::first_amplitudes(narrow, narrow);
}

// Adds a group's part to a block of `rows` rows from row `first` on, or sets them to it. `own` is room for two blocks
// of sums.
template <class T, unsigned flipped>
void add_block(const flip_group& group, const thrust::complex<T>* psi, thrust::complex<T>* out, unsigned long first,
               unsigned long rows, bool sets, row* own) {
    using N = narrowed<T>;
    constexpr unsigned long lanes = packs::lanes<N>;
    const unsigned long row_flip = group.flip >> row_bits;
    const unsigned long pack_flip = (group.flip & (row_length - 1)) / lanes;
    const bool has_im = !group.im.is_empty();
    const signed_sums::in_block re(group.re, first, rows, own), im(group.im, first, rows, own + rows);
    for (unsigned long r = 0; r < rows; ++r) {
        const double *const x = re[r], *const y = im[r];
        const thrust::complex<T>* const from = psi + (((first + r) ^ row_flip) << row_bits);
        thrust::complex<T>* const to = out + ((first + r) << row_bits);
        const auto write = [&]<bool second>(std::size_t k, std::bool_constant<second>) __attribute__((always_inline)) {
            const std::size_t pack = 2 * k + (second ? 1 : 0);
            N a = packs::load<N>(from + (pack ^ pack_flip) * lanes);
            a = packs::shuffle(a, a, flipped_elements<flipped>{}, std::make_index_sequence<width>{});
            N part = a * spread<N, second>(x + k * width);
            if (has_im) part += packs::quarter_turn(a) * spread<N, second>(y + k * width);
            packs::store(to + pack * lanes, sets ? part : packs::load<N>(to + pack * lanes) + part);
        };
        for (std::size_t k = 0; k < row_length / width; ++k) {
            write(k, std::false_type{});
            write(k, std::true_type{});
        }
    }
}

template <class T, std::size_t... lane_flips>
void add_block(const flip_group& group, const thrust::complex<T>* psi, thrust::complex<T>* out, unsigned long first,
               unsigned long rows, bool sets, row* own, std::index_sequence<lane_flips...>) {
    using loop = void (*)(const flip_group&, const thrust::complex<T>*, thrust::complex<T>*, unsigned long,
                          unsigned long, bool, row*);
    static constexpr loop loops[] = {&add_block<T, static_cast<unsigned>(2 * lane_flips)>...};
    loops[group.flip % (width / 2)](group, psi, out, first, rows, sets, own);
}

// States smaller than a row.
template <class T>
void apply_to_few(const std::vector<flip_group>& groups, const thrust::complex<T>* psi, unsigned long size,
                  thrust::complex<T>* out) {
    for (unsigned long i = 0; i < size; ++i) {
        T re = 0, im = 0;
        for (const flip_group& group : groups) {
            const T x = static_cast<T>(group.re.at(i)), y = static_cast<T>(group.im.at(i));
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
    const unsigned long block = 1ul << std::min(qubits, block_bits), rows = block >> row_bits, blocks = size / block;
    const unsigned long bytes = size * sizeof(thrust::complex<T>) * (groups.size() + 1);
    // Few enough of either in a piece for a fraction of a second.
    const unsigned long pieces = std::clamp(blocks * groups.size() / 1024, 1ul, blocks);
    const bool all_have_tables = std::all_of(groups.begin(), groups.end(), [](const flip_group& group) {
        return group.re.has_table() && group.im.has_table();
    });
    const unsigned long own_rows = all_have_tables ? 0 : 2 * rows;
    const auto room = storage::make_amplitudes<double>(storage::most_bodies(blocks, bytes, nthreads) * own_rows *
                                                       sizeof(row) / sizeof(thrust::complex<double>));
    for (unsigned long piece = 0; piece < pieces; ++piece) {
        const auto share = storage::share_of(blocks, pieces, piece);
        storage::parallel_leases(share.end - share.begin, bytes / pieces, nthreads,
                                 [&](unsigned long begin, unsigned long end, unsigned long lease) {
                                     row* const own = reinterpret_cast<row*>(room.get()) + lease * own_rows;
                                     for (unsigned long b = share.begin + begin; b < share.begin + end; ++b) {
                                         for (const flip_group& group : groups) {
                                             add_block(group, psi, out, b * rows, rows, &group == groups.data(), own,
                                                       std::make_index_sequence<width / 2>{});
                                         }
                                     }
                                 });
        if (hook) hook(share.end * block, size);
    }
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                           \
    template void apply_observable(const thrust::complex<T>*, const WObservable<double>&, unsigned int, int, \
                                   thrust::complex<T>*, const work_hook&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix::cpu
