#include "statevector/index/bits.hpp"
#include "statevector/packs/pack.hpp"
#include "statevector/storage/parallel.hpp"

#include <velacamplix/loading.hpp>

#include <algorithm>
#include <optional>

namespace pbamplix::cpu {

using namespace velacamplix;

namespace {

// The oracle counts qubits from the outside: listed qubit q is bit n - 1 - q of an amplitude's index. A qubit outside
// the state reads 0 and has no bit.
unsigned long inside_bit(unsigned int q, unsigned int n) { return q < n ? index::bit(n - 1 - q) : 0; }

// The index bits of the amplitudes whose listed qubits read `value`, first listed = most significant; nothing when no
// amplitude reads so.
std::optional<unsigned long> pattern_of(unsigned long value, const std::vector<unsigned int>& qubits, unsigned int n) {
    unsigned long ones = 0;
    unsigned long zeros = 0;
    for (auto q = qubits.rbegin(); q != qubits.rend(); ++q, value >>= 1) {
        const unsigned long bit = inside_bit(*q, n);
        if (value & 1) {
            if (bit == 0) return std::nullopt;
            ones |= bit;
        } else {
            zeros |= bit;
        }
    }
    if (value != 0 || (ones & zeros) != 0) return std::nullopt;
    return ones;
}

// The marked patterns, increasing, each once.
std::vector<unsigned long> patterns_of(const std::vector<unsigned long>& marked,
                                       const std::vector<unsigned int>& qubits, unsigned int n) {
    std::vector<unsigned long> patterns;
    patterns.reserve(marked.size());
    for (const unsigned long value : marked) {
        if (const auto pattern = pattern_of(value, qubits, n)) patterns.push_back(*pattern);
    }
    std::sort(patterns.begin(), patterns.end());
    patterns.erase(std::unique(patterns.begin(), patterns.end()), patterns.end());
    return patterns;
}

// Amplitudes are visited block by block, so that patterns which differ in low bits alone meet in the cache.
constexpr unsigned block_bits = 12;

// For each value that the patterns take above the block, where in the sorted list they begin; the list's end last.
std::vector<unsigned long> starts_of_high_parts(const std::vector<unsigned long>& patterns) {
    std::vector<unsigned long> starts;
    for (unsigned long p = 0; p < patterns.size(); ++p) {
        if (p == 0 || patterns[p] >> block_bits != patterns[p - 1] >> block_bits) starts.push_back(p);
    }
    starts.push_back(patterns.size());
    return starts;
}

template <class T>
void negate_at(thrust::complex<T>* amplitude) {
    using V = packs::single_pack<T>;
    packs::store<V>(amplitude, packs::negate(packs::load<V>(amplitude)));
}

}  // namespace

template <class T>
void _phase_oracle(thrust::complex<T>* state, const std::vector<unsigned long>& marked,
                   const std::vector<unsigned int>& qubits, unsigned long size, unsigned int n, int num_threads) {
    const std::vector<unsigned long> patterns = patterns_of(marked, qubits, n);
    if (size == 0 || patterns.empty()) return;
    const std::vector<unsigned long> starts = starts_of_high_parts(patterns);

    unsigned long listed = 0;
    for (const unsigned int q : qubits) listed |= inside_bit(q, n);
    const unsigned long inside_block = index::low_bits(block_bits);
    const unsigned long free = index::low_bits(n) & ~listed;
    const unsigned long free_high = free & ~inside_block;
    const index::free_indices free_low(free & inside_block);

    // One unit of work: one block that holds marked amplitudes. Only those are touched.
    const unsigned long blocks_per_part = 1ul << std::popcount(free_high);
    const unsigned long units = (starts.size() - 1) * blocks_per_part;
    const unsigned long bytes = 2 * (patterns.size() << std::popcount(free)) * sizeof(thrust::complex<T>);
    storage::parallel_shares(units, bytes, num_threads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long unit = begin; unit < end; ++unit) {
            const unsigned long part = unit / blocks_per_part;
            const unsigned long block = index::deposit(unit % blocks_per_part, free_high);
            for (unsigned long p = starts[part]; p < starts[part + 1]; ++p) {
                for (const unsigned long low : free_low) {
                    negate_at(state + (block | patterns[p] | low));
                }
            }
        }
    });
}

template void _phase_oracle(thrust::complex<float>*, const std::vector<unsigned long>&,
                            const std::vector<unsigned int>&, unsigned long, unsigned int, int);
template void _phase_oracle(thrust::complex<double>*, const std::vector<unsigned long>&,
                            const std::vector<unsigned int>&, unsigned long, unsigned int, int);

}  // namespace pbamplix::cpu
