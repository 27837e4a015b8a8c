#include "statevector/measurement/draws.hpp"

#include "statevector/storage/parallel.hpp"

#include <bit>
#include <vector>

namespace velacamplix::measurement {
namespace {

template <class T>
bool lower(const draw<T>& a, const draw<T>& b) {
    return a.number < b.number;
}

// Draws whose numbers spread evenly over [low, low + width): put into as many bins as there are draws, then the few of
// each bin in order.
template <class T>
void sort_part(draw<T>* draws, unsigned long count, T low, T width) {
    constexpr unsigned long most = 1024;
    if (count > most) {  // not spread evenly
        std::sort(draws, draws + count, lower<T>);
        return;
    }
    const unsigned int bins = std::bit_ceil(static_cast<unsigned int>(count) + 1);
    const T scale = static_cast<T>(bins) / width;
    unsigned int end[2 * most] = {};
    draw<T> sorted[most];
    const auto bin_of = [&](const draw<T>& d) {
        return std::min(static_cast<unsigned int>((d.number - low) * scale), bins - 1);
    };
    for (unsigned long i = 0; i < count; ++i) ++end[bin_of(draws[i])];
    for (unsigned int b = 1; b < bins; ++b) end[b] += end[b - 1];
    for (unsigned long i = count; i-- > 0;) sorted[--end[bin_of(draws[i])]] = draws[i];
    // end[b] is now the beginning of bin b.
    for (unsigned int b = 0; b < bins; ++b) {
        const unsigned long stop = b + 1 < bins ? end[b + 1] : count;
        if (stop - end[b] > 1) std::sort(sorted + end[b], sorted + stop, lower<T>);
    }
    std::copy_n(sorted, count, draws);
}

}  // namespace

template <class T>
void sort_draws(const unsigned long* outputs, unsigned int count, draw<T>* draws, int nthreads) {
    constexpr unsigned int part_size = 512;  // on average; a part's draws and bins fit the nearest cache
    const unsigned int part_bits = static_cast<unsigned int>(std::bit_width(count / part_size));
    if (part_bits == 0) {
        for (unsigned int i = 0; i < count; ++i) draws[i] = {uniform<T>(outputs[i]), i};
        std::sort(draws, draws + count, lower<T>);
        return;
    }
    const unsigned long parts = 1ul << part_bits;
    const auto part_of = [part_bits](unsigned long output) { return output >> (64 - part_bits); };

    std::vector<unsigned int> end(parts + 1);
    for (unsigned int i = 0; i < count; ++i) ++end[part_of(outputs[i]) + 1];
    for (unsigned long p = 0; p < parts; ++p) end[p + 1] += end[p];
    // end[p] is where part p begins; filling it makes it where the part ends.
    for (unsigned int i = 0; i < count; ++i) draws[end[part_of(outputs[i])]++] = {uniform<T>(outputs[i]), i};

    const T width = T(1) / static_cast<T>(parts);
    storage::parallel_shares(parts, count * sizeof(draw<T>), nthreads, [&](unsigned long begin, unsigned long stop) {
        for (unsigned long p = begin; p < stop; ++p) {
            const unsigned int first = p == 0 ? 0 : end[p - 1];
            sort_part(draws + first, end[p] - first, static_cast<T>(p) * width, width);
        }
    });
}

template void sort_draws(const unsigned long*, unsigned int, draw<float>*, int);
template void sort_draws(const unsigned long*, unsigned int, draw<double>*, int);

}  // namespace velacamplix::measurement
