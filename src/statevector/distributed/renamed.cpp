#include "statevector/distributed/renamed.hpp"

#include "statevector/index/bits.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace velacamplix::distributed {
namespace {

// The entries of a diagonal stand in the order of its targets' bits: renaming may change which is lowest.
template <class T>
kernels::shared_diagonal<T> reordered(const kernels::shared_diagonal<T>& diagonal, unsigned long targets,
                                      const std::vector<unsigned int>& names) {
    std::vector<unsigned int> highest_first;
    for (unsigned long mask = targets; mask != 0; mask &= mask - 1) {
        highest_first.insert(highest_first.begin(), names[static_cast<std::size_t>(std::countr_zero(mask))]);
    }
    if (std::is_sorted(highest_first.rbegin(), highest_first.rend())) return diagonal;
    const auto* const entries = diagonal->entries.get();
    return kernels::sort_diagonal<T>(highest_first, {entries, entries + (1ul << diagonal->bits)});
}

}  // namespace

template <class T>
gates::operation<T> renamed(const gates::operation<T>& op, const std::vector<unsigned int>& names) {
    gates::operation<T> other = op;
    other.targets.clear();
    for (const unsigned int q : op.targets) other.targets.push_back(names[q]);
    other.controls = 0;
    for (unsigned long mask = op.controls; mask != 0; mask &= mask - 1) {
        other.controls |= index::bit(names[static_cast<std::size_t>(std::countr_zero(mask))]);
    }
    if (op.diagonal != nullptr) other.diagonal = reordered<T>(op.diagonal, op.target_mask(), names);
    return other;
}

template <class T>
without_swaps<T>::without_swaps(const std::vector<gates::operation<T>>& list, unsigned nbqbits) : name(nbqbits) {
    std::iota(name.begin(), name.end(), 0u);
    operations.reserve(list.size());
    for (const gates::operation<T>& op : list) {
        if (is_plain_swap(op)) {
            std::swap(name[op.targets[0]], name[op.targets[1]]);
        } else {
            operations.push_back(renamed(op, name));
        }
    }
}

std::vector<std::pair<unsigned int, unsigned int>> exchanges_for(const std::vector<unsigned int>& from) {
    const auto count = static_cast<unsigned int>(from.size());
    std::vector<std::pair<unsigned int, unsigned int>> exchanges;
    std::vector<unsigned int> standing(count), place(count);  // who stands at a place, and where one stands
    std::iota(standing.begin(), standing.end(), 0u);
    std::iota(place.begin(), place.end(), 0u);
    for (unsigned int q = 0; q < count; ++q) {
        const unsigned int other = place[from[q]];
        if (other == q) continue;
        exchanges.emplace_back(q, other);
        std::swap(standing[q], standing[other]);
        place[standing[q]] = q;
        place[standing[other]] = other;
    }
    return exchanges;
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                      \
    template gates::operation<T> renamed(const gates::operation<T>&, const std::vector<unsigned int>&); \
    template struct without_swaps<T>;
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::distributed
