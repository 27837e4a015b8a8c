#include "statevector/measurement/projection.hpp"

#include "statevector/measurement/marginals.hpp"

#include <cmath>
#include <limits>
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
    packs::bits_of<V> kept;        // lanes of the outcome
    packs::bits_of<V> candidates;  // lanes that agree with it in the lowest listed bit, half of all
    unsigned lowest;               // that bit

    explicit lane_rule(outcome_bits outcome) : kept{}, candidates{}, lowest(0) {
        const unsigned long inside = outcome.listed & (packs::lanes<V> - 1);
        const unsigned long bit = inside & -inside;
        if (bit != 0) lowest = static_cast<unsigned>(std::countr_zero(bit));
        for (unsigned long lane = 0; lane < packs::lanes<V>; ++lane) {
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
    return packs::shuffle(v, v, exchanged_lanes<bit>{}, std::make_index_sequence<packs::scalars<V>>{});
}

// Divisions are slow, and half of the lanes would be divided for nothing: so the candidates of two packs share one.
template <unsigned bit, class V>
void divide_lanes(thrust::complex<packs::scalar_of<V>>* from, thrust::complex<packs::scalar_of<V>>* end, V divisor,
                  V others, const lane_rule<V>& rule) {
    constexpr unsigned long lanes = packs::lanes<V>;
    for (; end - from >= static_cast<std::ptrdiff_t>(2 * lanes); from += 2 * lanes) {
        const V a = packs::load<V>(from);
        const V b = packs::load<V>(from + lanes);
        const V quotient = packs::select(rule.candidates, a, exchange_lanes<bit>(b)) / divisor;
        packs::store(from, packs::select(rule.kept, quotient, others));
        packs::store(from + lanes, packs::select(rule.kept, exchange_lanes<bit>(quotient), others));
    }
    for (; from != end; from += lanes) {
        packs::store(from, packs::select(rule.kept, packs::load<V>(from) / divisor, others));
    }
}

template <class V>
void divide_lanes(thrust::complex<packs::scalar_of<V>>* from, thrust::complex<packs::scalar_of<V>>* end, V divisor,
                  V others, const lane_rule<V>& rule) {
    if constexpr (packs::lane_bits < V >> 2) {
        if (rule.lowest == 2) return divide_lanes<2>(from, end, divisor, others, rule);
    }
    if constexpr (packs::lane_bits < V >> 1) {
        if (rule.lowest == 1) return divide_lanes<1>(from, end, divisor, others, rule);
    }
    if constexpr (packs::lane_bits < V >> 0) divide_lanes<0>(from, end, divisor, others, rule);
}

// Every amplitude of the outcome is divided by `divisor`, all others become (other, other).
template <class T>
void rewrite(thrust::complex<T>* amplitudes, unsigned long size, outcome_bits outcome, T divisor, T other,
             int nthreads) {
    using V = packs::wide_pack<T>;
    constexpr unsigned long lanes = packs::lanes<V>;
    if (size < lanes) {
        for (unsigned long i = 0; i < size; ++i) {
            const thrust::complex<T> a = packs::read_amplitude(amplitudes + i);
            const bool kept = (i & outcome.listed) == outcome.pattern;
            packs::write_amplitude(amplitudes + i, thrust::complex<T>(kept ? a.real() / divisor : other,
                                                                      kept ? a.imag() / divisor : other));
        }
        return;
    }
    const lane_rule<V> rule(outcome);
    const bool whole_packs = (outcome.listed & (lanes - 1)) == 0;
    const outcome_bits outside{outcome.listed & ~(lanes - 1), outcome.pattern & ~(lanes - 1)};
    const V divisors = packs::broadcast<V>(divisor);
    const V others = packs::broadcast<V>(other);
    // Packs that lie side by side before a listed bit interrupts them belong together or not at all.
    const unsigned long run = outside.listed != 0 ? outside.listed & -outside.listed : size;

    storage::parallel_shares(size / lanes, size * 2 * sizeof(T), nthreads, [=](unsigned long begin, unsigned long end) {
        const unsigned long stop = end * lanes;
        for (unsigned long i = begin * lanes; i < stop;) {
            const unsigned long run_end = std::min(stop, (i / run + 1) * run);
            if ((i & outside.listed) != outside.pattern) {
                for (; i < run_end; i += lanes) packs::store(amplitudes + i, others);
            } else if (whole_packs) {
                for (; i < run_end; i += lanes) {
                    packs::store(amplitudes + i, packs::load<V>(amplitudes + i) / divisors);
                }
            } else {
                divide_lanes(amplitudes + i, amplitudes + run_end, divisors, others, rule);
                i = run_end;
            }
        }
    });
}

outcome_bits bits_of_outcome(const std::vector<unsigned int>& qubits, unsigned long value) {
    const unsigned long listed = index::mask_of(qubits);
    return {listed, index::place_first_highest(value, qubits) & listed};
}

constexpr const char* impossible = "Cannot project onto an outcome of probability zero";

// The root of an outcome's probability, which is summed in the precision Sum.
template <class Sum, class T>
T root_of_outcome(const thrust::complex<T>* amplitudes, unsigned long size, outcome_bits kept, int nthreads) {
    const auto view = view_summed_in<Sum>(amplitudes, static_cast<unsigned int>(std::countr_zero(size)));
    // Of qubits that the state does not have, only 0 can be read.
    if (size == 0 || (kept.pattern & ~(size - 1)) != 0) return 0;
    const unsigned long free = index::low_bits(view.nqubits) & ~kept.listed;
    return static_cast<T>(std::sqrt(sum_fixed(view, free, kept.pattern, index::count_bits(free), nthreads)));
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

    storage::parallel_shares(count, count * 4 * sizeof(T), nthreads, [=](unsigned long begin, unsigned long end) {
        unsigned long target = index::deposit(begin, free);
        while (begin < end) {
            const unsigned long length = std::min(run - (begin & (run - 1)), end - begin);
            for (const unsigned long stop = target + length; target != stop; ++target) {
                using V = packs::single_pack<T>;
                packs::store(amplitudes + target, packs::load<V>(amplitudes + (target | pattern)));
                packs::store(amplitudes + (target | pattern), V{});
            }
            begin += length;
            target = index::next(target - 1, free);
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
    const auto kept = measurement::bits_of_outcome(qubits, value);
    const T root = measurement::root_of_outcome<T>(amps, size, kept, nthreads);
    if (root == T(0)) {
        const std::domain_error impossible(measurement::impossible);   // may lack memory
        measurement::rewrite(amps, size, kept, T(1), T(0), nthreads);  // by 1: leaves them as they are
        throw impossible;
    }
    // What is zero stays zero, except over a root that is not a number.
    measurement::rewrite(amps, size, kept, root, T(0) / root, nthreads);
}

template <class Sum, class T>
void project(thrust::complex<T>* amps, unsigned long size, const std::vector<unsigned int>& qubits, unsigned long value,
             int nthreads) {
    const auto kept = measurement::bits_of_outcome(qubits, value);
    const T root = measurement::root_of_outcome<Sum>(amps, size, kept, nthreads);
    // A root below the normal range has too few digits to divide by.
    if (root < std::numeric_limits<T>::min()) throw std::domain_error(measurement::impossible);
    measurement::rewrite(amps, size, kept, root, T(0) / root, nthreads);
}

template <class Sum, class T>
void project_then_reset(thrust::complex<T>* amps, unsigned long size, const std::vector<unsigned int>& qubits,
                        unsigned long value, int nthreads) {
    project<Sum>(amps, size, qubits, value, nthreads);
    const auto n = static_cast<unsigned int>(std::countr_zero(size));
    measurement::move_to_zero(amps, n, qubits, value, nthreads);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                     \
    template void _project(thrust::complex<T>*, unsigned long, const std::vector<unsigned int>&, unsigned long, int);  \
    template void project<double>(thrust::complex<T>*, unsigned long, const std::vector<unsigned int>&, unsigned long, \
                                  int);                                                                                \
    template void project_then_reset<double>(thrust::complex<T>*, unsigned long, const std::vector<unsigned int>&,     \
                                             unsigned long, int);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix::cpu
