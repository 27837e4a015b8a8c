#include "statevector/kernels/sorted_diagonal.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/packs/precision.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <array>

namespace velacamplix::kernels {
namespace {

// A permutation of the bits of an index: bit b goes where `places[b]` has its only bit.
class bit_permutation {
public:
    // From the gate's local index to the position among the target bits under `mask`.
    bit_permutation(const std::vector<unsigned int>& targets, unsigned long mask) {
        bits_ = static_cast<unsigned>(targets.size());
        for (unsigned b = 0; b < bits_; ++b) places_[b] = index::extract(index::bit(targets[bits_ - 1 - b]), mask);
    }

    // False where targets coincide.
    bool is_one() const {
        unsigned long all = 0;
        for (unsigned b = 0; b < bits_; ++b) all |= places_[b];
        return all == index::low_bits(bits_);
    }

    unsigned long operator()(unsigned long local) const {
        unsigned long position = 0;
        for (; local != 0; local &= local - 1) position |= places_[static_cast<unsigned>(std::countr_zero(local))];
        return position;
    }

    // The local indices' bits that go to the lowest `count` bits of a position.
    unsigned long sources_of_lowest(unsigned count) const {
        unsigned long sources = 0;
        for (unsigned b = 0; b < bits_; ++b) {
            if (places_[b] < (1ul << count)) sources |= index::bit(b);
        }
        return sources;
    }

private:
    unsigned bits_;
    std::array<unsigned long, 64> places_;
};

// So many entries stand side by side in what is read as well as in what is written: some cache lines.
constexpr unsigned side_by_side = 4;

// Entries are moved a square at a time, by way of a buffer: lines are read and written whole, however far apart they
// lie.
template <class C>
void permute(C* out, const C* diag, unsigned bits, const bit_permutation& moved) {
    if (bits <= side_by_side) {
        for (unsigned long i = 0; i < (1ul << bits); ++i) out[moved(i)] = diag[i];
        return;
    }
    const unsigned long read = index::low_bits(side_by_side) | moved.sources_of_lowest(side_by_side);
    const unsigned long written = moved(read);
    const unsigned long entries = 1ul << std::popcount(read);
    std::array<C, 1ul << 2 * side_by_side> square;
    std::array<unsigned long, square.size()> from, within, to;
    index::fill_by_bits(from.data(), entries, [&](unsigned long i) { return index::deposit(i, read); });
    index::fill_by_bits(within.data(), entries,
                        [&](unsigned long i) { return index::extract(moved(index::deposit(i, read)), written); });
    index::fill_by_bits(to.data(), entries, [&](unsigned long i) { return index::deposit(i, written); });
    for (const unsigned long base : index::free_indices(index::low_bits(bits) & ~read)) {
        for (unsigned long i = 0; i < entries; ++i) square[within[i]] = diag[base + from[i]];
        C* const at = out + moved(base);
        for (unsigned long i = 0; i < entries; ++i) at[to[i]] = square[i];
    }
}

}  // namespace

template <class C>
void fill_sorted(C* out, const std::vector<unsigned int>& targets, const std::vector<C>& diag, unsigned long mask) {
    const auto k = static_cast<unsigned int>(targets.size());
    const bit_permutation moved(targets, mask);
    if (moved.is_one() && diag.size() == 1ul << k) {
        permute(out, diag.data(), k, moved);
        return;
    }
    for (unsigned long i = 0; i < diag.size(); ++i) {
        const unsigned long position = index::extract(index::place_first_lowest(i, targets), mask);
        out[position] = diag[index::reverse_bits(i, k)];
    }
}

template <class T>
shared_diagonal<T> sort_diagonal(const std::vector<unsigned int>& targets,
                                 const std::vector<thrust::complex<T>>& diagonal) {
    const unsigned long mask = index::xor_mask_of(targets);
    const auto sorted = std::make_shared<sorted_diagonal<T>>(
        sorted_diagonal<T>{static_cast<unsigned>(std::popcount(mask)), storage::make_amplitudes<T>(diagonal.size())});
    fill_sorted(sorted->entries.get(), targets, diagonal, mask);
    return sorted;
}

#define VELACAMPLIX_INSTANTIATE(T)                                                    \
    template void fill_sorted(thrust::complex<T>*, const std::vector<unsigned int>&,  \
                              const std::vector<thrust::complex<T>>&, unsigned long); \
    template shared_diagonal<T> sort_diagonal(const std::vector<unsigned int>&, const std::vector<thrust::complex<T>>&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::kernels
