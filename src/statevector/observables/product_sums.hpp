#pragma once

#include "statevector/observables/signed_sums.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace velacamplix::observables {

// A sequence of real numbers and the sign masks under which it is to be summed. All Pauli strings that flip the same
// qubits share the products conj(a[i ^ flip]) * a[i], so their real parts are one sequence and the imaginary parts
// another.
struct product_sequence {
    unsigned long flip;
    bool imaginary;
    unsigned long length;    // numbers in the sequence, a power of two
    unsigned long above;     // index of number j: j + (j & above), which leaves out one bit; 0 leaves out none
    std::size_t first_mask;  // its masks: first_mask ... last_mask - 1
    std::size_t last_mask;
};

// Numbers that stand in one slab, and slabs, of a sequence.
template <class T>
unsigned long filled_length(const product_sequence& s) {
    return std::min(s.length, slab_length<T>);
}
template <class T>
unsigned long slab_count(const product_sequence& s) {
    return s.length / filled_length<T>(s);
}

// The index range is cut into this many sections, or fewer where there are fewer patches; each is summed slab after
// slab and the sections are added in order. Part of the sum's definition, like the tree inside a slab.
inline constexpr unsigned long most_sections = 4096;

inline unsigned long section_count(unsigned long patches) { return std::min(patches, most_sections); }

// Masks that are summed at once: what they share is done once for many of them, and their partial sums, one for each
// section, take 8 MiB at most.
inline unsigned long most_masks(unsigned long patches) {
    constexpr unsigned long most_partial_sums = (8ul << 20) / sizeof(double);
    return std::min(most_partial_sums / section_count(patches), 4096ul);
}

// Neighbours among the patches of a sum: whole sections, or some of one.
struct patch_range {
    unsigned long first;
    unsigned long count;
};

// Adds the patches of `range` to the sums of their sections: partial[s * masks.size() + m] is that of mask m in section
// s, counted from the first that the range meets. `patches`, fill and between as for sum_sequences.
template <class T, class Fill, class Between>
void add_patches(const std::vector<product_sequence>& sequences, const std::vector<unsigned long>& masks,
                 unsigned long patches, const patch_range& range, unsigned long bytes, int nthreads, Fill fill,
                 T* partial, Between between) {
    const unsigned long patches_per_section = std::min(patches / section_count(patches), range.count);
    const unsigned long sections = range.count / patches_per_section;

    const auto add_slab = [&](const product_sequence& s, unsigned long number, slab<T>& numbers, T* sums) {
        const unsigned long filled = filled_length<T>(s);
        const unsigned steps = steps_for(filled >> row_bits<T>);
        const unsigned long padded = row_length<T> << (3 * steps);
        fill(s, number, numbers.rows);
        for (unsigned long j = filled; j < padded; ++j) numbers.rows[j] = T(0);

        const unsigned transforms = worthwhile_transforms(steps, s.last_mask - s.first_mask);
        for (unsigned step = 0; step < transforms; ++step) transform(numbers.rows, steps, step);
        for (std::size_t m = s.first_mask; m < s.last_mask; ++m) {
            const T sign = sign_of_parity<T>(number & (masks[m] >> slab_bits<T>));
            sums[m] += sign * signed_sum(numbers, steps, transforms, masks[m]);
        }
    };

    // One unit of work: one sequence in one section. A thread's share of a section is done patch by patch.
    const unsigned long units = sections * sequences.size();
    const auto sum_units = [&](unsigned long begin, unsigned long end) {
        slab<T> numbers;
        while (begin < end) {
            const unsigned long section = begin / sequences.size();
            const unsigned long first = begin % sequences.size();
            const unsigned long last = std::min(sequences.size(), first + (end - begin));
            for (unsigned long patch = 0; patch < patches_per_section; ++patch) {
                for (unsigned long k = first; k < last; ++k) {
                    const product_sequence& s = sequences[k];
                    const unsigned long per_patch = slab_count<T>(s) / patches;
                    const unsigned long number = (range.first + section * patches_per_section + patch) * per_patch;
                    for (unsigned long c = 0; c < per_patch; ++c) {
                        add_slab(s, number + c, numbers, partial + section * masks.size());
                    }
                }
            }
            begin += last - first;
        }
    };
    // Enough units for any team, and few enough for a fraction of a second.
    const unsigned long pieces = std::clamp(units / 1024, 1ul, 64ul);
    for (unsigned long piece = 0; piece < pieces; ++piece) {
        const auto [first, last] = storage::share_of(units, pieces, piece);
        storage::parallel_shares(last - first, bytes / pieces, nthreads,
                                 [&, start = first](auto begin, auto end) { sum_units(start + begin, start + end); });
        between();
    }
}

// Adds the sections of a sum, which stand `distance` apart, in order.
template <class T>
T sum_of_sections(const T* partial, unsigned long sections, std::size_t distance) {
    T sum = partial[0];
    for (unsigned long section = 1; section < sections; ++section) sum += partial[section * distance];
    return sum;
}

// out[m] = the sum of (-1)^|j & masks[m]| * (number j) over the sequence that m belongs to. `patches` (a power of two)
// divides every sequence's slab count or is 1: the slabs of one patch come from the same amplitudes, so all sequences
// take their turn while those are in the cache. `bytes` is what all passes touch together.
// fill(sequence, slab number, numbers) writes filled_length numbers; it must not throw. between() is called on the
// calling thread several times in a second, and may.
template <class T, class Fill, class Between>
void sum_sequences(const std::vector<product_sequence>& sequences, const std::vector<unsigned long>& masks,
                   unsigned long patches, unsigned long bytes, int nthreads, Fill fill, T* out, Between between) {
    const unsigned long sections = section_count(patches);
    std::vector<T> partial(sections * masks.size());
    add_patches<T>(sequences, masks, patches, {0, patches}, bytes, nthreads, fill, partial.data(), between);
    for (std::size_t m = 0; m < masks.size(); ++m) {
        out[m] = sum_of_sections(partial.data() + m, sections, masks.size());
    }
}

}  // namespace velacamplix::observables
