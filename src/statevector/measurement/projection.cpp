#include "statevector/measurement/projection.hpp"

#include "statevector/measurement/marginals.hpp"

#include <cmath>
#include <stdexcept>

namespace velacamplix::measurement {
namespace {

// The outcome to keep: an index belongs to it when its bits under `listed` equal `pattern`.
struct outcome_bits {
    unsigned long listed;
    unsigned long pattern;
};

// How a pack is rewritten whose lanes belong partly to the outcome.
template <class V>
struct lane_rule {
    kernels::bits_of<V> kept;        // lanes of the outcome
    kernels::bits_of<V> candidates;  // lanes that agree with it in the lowest listed bit, half of all
    unsigned lowest;                 // that bit

    explicit lane_rule(outcome_bits outcome) : kept{}, candidates{}, lowest(0) {
        const unsigned long inside = outcome.listed & (kernels::lanes<V> - 1);
        const unsigned long bit = inside & -inside;
        if (bit != 0) lowest = static_cast<unsigned>(std::countr_zero(bit));
        for (unsigned long lane = 0; lane < kernels::lanes<V>; ++lane) {
            const unsigned long differing = (lane ^ outcome.pattern) & inside;
            if (differing == 0) kept[2 * lane] = kept[2 * lane + 1] = -1;
            if ((differing & bit) == 0) candidates[2 * lane] = candidates[2 * lane + 1] = -1;
        }
    }
};

template <unsigned bit>
struct exchanged_lanes {
    static constexpr int at(std::size_t s) { return static_cast<int>(s ^ (2u << bit)); }
};
template <unsigned bit, class V>
[[gnu::always_inline]] inline V exchange_lanes(V v) {
    return kernels::shuffle(v, v, exchanged_lanes<bit>{}, std::make_index_sequence<kernels::scalars<V>>{});
}

// Divisions are slow, and half of the lanes would be divided for nothing: so the candidates of two packs share one.
template <unsigned bit, class V>
void divide_lanes(thrust::complex<kernels::scalar_of<V>>* from, thrust::complex<kernels::scalar_of<V>>* end, V divisor,
                  V others, const lane_rule<V>& rule) {
    constexpr unsigned long lanes = kernels::lanes<V>;
    for (; end - from >= static_cast<std::ptrdiff_t>(2 * lanes); from += 2 * lanes) {
        const V a = kernels::load<V>(from);
        const V b = kernels::load<V>(from + lanes);
        const V quotient = kernels::select(rule.candidates, a, exchange_lanes<bit>(b)) / divisor;
        kernels::store(from, kernels::select(rule.kept, quotient, others));
        kernels::store(from + lanes, kernels::select(rule.kept, exchange_lanes<bit>(quotient), others));
    }
    for (; from != end; from += lanes) {
        kernels::store(from, kernels::select(rule.kept, kernels::load<V>(from) / divisor, others));
    }
}

template <class V>
void divide_lanes(thrust::complex<kernels::scalar_of<V>>* from, thrust::complex<kernels::scalar_of<V>>* end, V divisor,
                  V others, const lane_rule<V>& rule) {
    if constexpr (kernels::lane_bits < V >> 2) {
        if (rule.lowest == 2) return divide_lanes<2>(from, end, divisor, others, rule);
    }
    if constexpr (kernels::lane_bits < V >> 1) {
        if (rule.lowest == 1) return divide_lanes<1>(from, end, divisor, others, rule);
    }
    if constexpr (kernels::lane_bits < V >> 0) divide_lanes<0>(from, end, divisor, others, rule);
}

// Every amplitude of the outcome is divided by `divisor`, all others become (other, other).
template <class T>
void rewrite(thrust::complex<T>* amplitudes, unsigned long size, outcome_bits outcome, T divisor, T other,
             int nthreads) {
    using V = kernels::wide_pack<T>;
    constexpr unsigned long lanes = kernels::lanes<V>;
    if (size < lanes) {
        for (unsigned long i = 0; i < size; ++i) {
            const thrust::complex<T> a = amplitudes[i];
            const bool kept = (i & outcome.listed) == outcome.pattern;
            amplitudes[i] = thrust::complex<T>(kept ? a.real() / divisor : other, kept ? a.imag() / divisor : other);
        }
        return;
    }
    const lane_rule<V> rule(outcome);
    const bool whole_packs = (outcome.listed & (lanes - 1)) == 0;
    const outcome_bits packs{outcome.listed & ~(lanes - 1), outcome.pattern & ~(lanes - 1)};
    const V divisors = kernels::broadcast<V>(divisor);
    const V others = kernels::broadcast<V>(other);
    // Packs that lie side by side before a listed bit interrupts them belong together or not at all.
    const unsigned long run = packs.listed != 0 ? packs.listed & -packs.listed : size;

    storage::parallel_blocks(size / lanes, size * 2 * sizeof(T), nthreads, [=](unsigned long begin, unsigned long end) {
        const unsigned long stop = end * lanes;
        for (unsigned long i = begin * lanes; i < stop;) {
            const unsigned long run_end = std::min(stop, (i / run + 1) * run);
            if ((i & packs.listed) != packs.pattern) {
                for (; i < run_end; i += lanes) kernels::store(amplitudes + i, others);
            } else if (whole_packs) {
                for (; i < run_end; i += lanes) {
                    kernels::store(amplitudes + i, kernels::load<V>(amplitudes + i) / divisors);
                }
            } else {
                divide_lanes(amplitudes + i, amplitudes + run_end, divisors, others, rule);
                i = run_end;
            }
        }
    });
}

}  // namespace

template <class T>
void move_to_zero(thrust::complex<T>* amplitudes, unsigned int n, const std::vector<unsigned int>& qubits,
                  unsigned long value, int nthreads) {
    const unsigned long listed = index::mask_of(qubits);
    const unsigned long pattern = index::place_first_highest(value, qubits) & listed;
    if (pattern == 0) return;
    const unsigned long free = index::low_bits(n) & ~listed;
    const unsigned long count = 1ul << std::popcount(free);
    const unsigned long run = listed & -listed;

    storage::parallel_blocks(count, count * 4 * sizeof(T), nthreads, [=](unsigned long begin, unsigned long end) {
        unsigned long target = index::deposit(begin, free);
        while (begin < end) {
            const unsigned long length = std::min(run - (begin & (run - 1)), end - begin);
            for (const unsigned long stop = target + length; target != stop; ++target) {
                amplitudes[target] = amplitudes[target | pattern];
                amplitudes[target | pattern] = thrust::complex<T>();
            }
            begin += length;
            target = (((target - 1) | ~free) + 1) & free;  // carry skips the listed bits
        }
    });
}

template void move_to_zero(thrust::complex<float>*, unsigned int, const std::vector<unsigned int>&, unsigned long, int);
template void move_to_zero(thrust::complex<double>*, unsigned int, const std::vector<unsigned int>&, unsigned long,
                           int);

}  // namespace velacamplix::measurement

namespace pbamplix::cpu {

using namespace velacamplix;

template <class T>
void _project(thrust::complex<T>* amps, unsigned long size, const std::vector<unsigned int>& qubits,
              unsigned long value, int nthreads) {
    const unsigned long listed = index::mask_of(qubits);
    const measurement::outcome_bits kept{listed, index::place_first_highest(value, qubits) & listed};

    T norm = T(0);
    // Of qubits that the state does not have, only 0 can be read.
    if (size != 0 && (kept.pattern & ~(size - 1)) == 0) {
        const auto n = static_cast<unsigned int>(std::countr_zero(size));
        const unsigned long free = index::low_bits(n) & ~listed;
        norm = measurement::sum_fixed(SVSequence<thrust::complex<T>>{amps, n, size}, free, kept.pattern,
                                      static_cast<unsigned int>(std::popcount(free)), nthreads);
    }
    if (norm == T(0)) {
        measurement::rewrite(amps, size, kept, T(1), T(0), nthreads);  // by 1: leaves them as they are
        throw std::domain_error("Cannot project onto an outcome of probability zero");
    }
    const T root = std::sqrt(norm);
    // What is zero stays zero, except over a root that is not a number.
    measurement::rewrite(amps, size, kept, root, T(0) / root, nthreads);
}

template void _project(thrust::complex<float>*, unsigned long, const std::vector<unsigned int>&, unsigned long, int);
template void _project(thrust::complex<double>*, unsigned long, const std::vector<unsigned int>&, unsigned long, int);

}  // namespace pbamplix::cpu
