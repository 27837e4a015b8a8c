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

// Every amplitude of the outcome is divided by `root` (or left alone without one), all others become (other, other).
// A root of infinity or NaN has its say everywhere: `other` is 0 / root.
template <class T, bool divide>
void rewrite(thrust::complex<T>* amplitudes, unsigned long size, outcome_bits kept, T root, T other, int nthreads) {
    using V = kernels::wide_pack<T>;
    constexpr unsigned long lanes = kernels::lanes<V>;
    const auto belongs = [kept](unsigned long i) { return (i & kept.listed) == kept.pattern; };

    if (size < lanes) {
        for (unsigned long i = 0; i < size; ++i) {
            const thrust::complex<T> a = amplitudes[i];
            if (!belongs(i)) {
                amplitudes[i] = thrust::complex<T>(other, other);
            } else if (divide) {
                amplitudes[i] = thrust::complex<T>(a.real() / root, a.imag() / root);
            }
        }
        return;
    }

    const unsigned long inside = lanes - 1;  // index bits that select a lane
    kernels::bits_of<V> kept_lanes{};
    for (unsigned long lane = 0; lane < lanes; ++lane) {
        if ((lane & kept.listed) == (kept.pattern & inside)) kept_lanes[2 * lane] = kept_lanes[2 * lane + 1] = -1;
    }
    const outcome_bits kept_packs{kept.listed & ~inside, kept.pattern & ~inside};
    const V divisor = kernels::broadcast<V>(root);
    const V others = kernels::broadcast<V>(other);
    // Amplitudes that lie side by side before a listed bit interrupts them belong together or not at all.
    const unsigned long run = kept_packs.listed != 0 ? kept_packs.listed & -kept_packs.listed : size;
    const bool whole_packs = (kept.listed & inside) == 0;

    storage::parallel_blocks(size / lanes, size * 2 * sizeof(T), nthreads, [=](unsigned long begin, unsigned long end) {
        const unsigned long stop = end * lanes;
        for (unsigned long i = begin * lanes; i < stop;) {
            const unsigned long run_end = std::min(stop, (i / run + 1) * run);
            if ((i & kept_packs.listed) != kept_packs.pattern) {
                for (; i < run_end; i += lanes) kernels::store(amplitudes + i, others);
            } else if (whole_packs) {
                if (!divide) i = run_end;
                for (; i < run_end; i += lanes) {
                    kernels::store(amplitudes + i, kernels::load<V>(amplitudes + i) / divisor);
                }
            } else {
                for (; i < run_end; i += lanes) {
                    const V a = kernels::load<V>(amplitudes + i);
                    kernels::store(amplitudes + i, kernels::select(kept_lanes, divide ? a / divisor : a, others));
                }
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
        measurement::rewrite<T, false>(amps, size, kept, T(1), T(0), nthreads);
        throw std::domain_error("Cannot project onto an outcome of probability zero");
    }
    const T root = std::sqrt(norm);
    measurement::rewrite<T, true>(amps, size, kept, root, T(0) / root, nthreads);
}

template void _project(thrust::complex<float>*, unsigned long, const std::vector<unsigned int>&, unsigned long, int);
template void _project(thrust::complex<double>*, unsigned long, const std::vector<unsigned int>&, unsigned long, int);

}  // namespace pbamplix::cpu
