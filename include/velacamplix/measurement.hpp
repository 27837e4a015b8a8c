#pragma once

#include "amplitude.hpp"
#include "export.hpp"
#include "index.hpp"

#include <map>
#include <random>
#include <vector>

namespace pbamplix {

// Read view of a state vector: element k is the probability |amplitude k|^2 of basis state k.
template <class C>
struct SVSequence;

template <class T>
struct SVSequence<thrust::complex<T>> {
    using proba_type = T;
    using value_type = thrust::complex<T>;  // what the permuting exports copy

    const thrust::complex<T>* data;
    unsigned int nqubits;
    unsigned long dim;  // 2^nqubits
};

// Read view of a density matrix of 2^m x 2^m entries: element k is the real part of the diagonal entry (k, k).
template <class T>
struct DMDiagSequence {
    using proba_type = T;
    using value_type = T;

    const thrust::complex<T>* data;
    unsigned int nqubits;  // m
    unsigned long dim;     // 2^m
};

// One of the views above, read in double precision: a probability is formed in double from the stored numbers, and what
// is handed such a view sums in double. In single precision a running sum stops growing once an element is less than
// half a unit in its last place, with equal probabilities beyond some 2^24 of them.
template <class Seq>
struct precise_view : Seq {
    using proba_type = double;
};

namespace cpu {

// One lock for the whole process: OpenMP's unnamed critical section. It is taken, for a moment each time,
//   by the members sample, sample_subset and measure and by pick_shots_state, while they draw from the engine,
//   by the members get_mapped_statevector, get_mapped_density_diag and get_mapped_distribution and by
//   permute_and_map_vector and map_marginal_distribution, while a thread hands in what it has found.
// It cannot be taken twice. A host that calls one of these inside an unnamed `#pragma omp critical` of his own waits
// for ever; to guard a shared object he gives his section a name, or uses a mutex.

// Sum of the view's probabilities over all indices whose listed qubits carry the bits of `fixed` (already in
// place). The same value for every thread count: spans of 2^16 indices are summed in index order and then added
// in span order.
template <class Seq>
VELACAMPLIX_API typename Seq::proba_type cumulative_probability(Seq seq, unsigned long fixed,
                                                                const std::vector<unsigned int>& qubits,
                                                                const int& nthreads);

// out[swap_lsb_msb(i, n)] = element i of the view, or zero where its probability is not above threshold_sq.
// The first needs at least 8 qubits and looks at the threshold only when Threshold is true.
template <bool Threshold, class Out, class Seq>
VELACAMPLIX_API void _permute_and_copy_vector_fast(Seq seq, Out* out, const int& nthreads,
                                                   typename Seq::proba_type threshold_sq);
template <class P, class Out, class Seq>
VELACAMPLIX_API void _permute_and_copy_vector_no_simd(Seq seq, Out* out, const P& threshold_sq, int nthreads);

// Draws nshots outcomes over the listed qubits (first listed = most significant bit; empty list = all, qubit 0
// most significant). Takes exactly nshots outputs of the engine, in order: shot s belongs to output s; none when it
// throws std::bad_alloc. The output becomes a number in [0, 1) of the view's precision, and the shot the first index
// whose running sum reaches it. Of a precise_view this number is a fraction of the running sum's end, so that the
// outcomes are those of the normalised state.
template <class Rng, class Seq>
VELACAMPLIX_API void pick_shots_state(Seq seq, unsigned long* shots, Rng& rng, const unsigned long& nshots,
                                      const int& nthreads, const std::vector<unsigned int>& qubits);

// The same for a state whose norm nobody knows. Of a view in double precision whose running sum ends within 1e-9 of 1
// these are the shots of pick_shots_state; of any other, and of every precise_view, numbers are fractions of that end.
// Throws std::domain_error where the end is 0, infinite or NaN; the engine has then taken no step.
template <class Rng, class Seq>
VELACAMPLIX_API void pick_shots_of_any_norm(Seq seq, unsigned long* shots, Rng& rng, const unsigned long& nshots,
                                            const int& nthreads, const std::vector<unsigned int>& qubits);

// Zeroes every amplitude whose listed qubits do not read `value` (first listed = most significant bit) and divides
// the rest by the square root of their norm. Throws std::domain_error when that norm is zero.
template <class T>
VELACAMPLIX_API void _project(thrust::complex<T>* amps, unsigned long size, const std::vector<unsigned int>& qubits,
                              unsigned long value, int nthreads);

// The same with the norm summed in the precision Sum, which is double: project<double>(amps, ...). Here an outcome is
// impossible when its norm's root is below T's smallest normal number (1.2e-38, 2.2e-308); it is refused with
// std::domain_error, the state being left as it is. The second form then moves the listed qubits to 0.
template <class Sum, class T>
VELACAMPLIX_API void project(thrust::complex<T>* amps, unsigned long size, const std::vector<unsigned int>& qubits,
                             unsigned long value, int nthreads);
template <class Sum, class T>
VELACAMPLIX_API void project_then_reset(thrust::complex<T>* amps, unsigned long size,
                                        const std::vector<unsigned int>& qubits, unsigned long value, int nthreads);

// Writes 2^k probabilities to `out` (k = qubits.size()); the caller owns it. First listed qubit = most significant bit
// of the position. What is not above threshold_sq becomes 0. An empty list writes one value, the total. One pass over
// the view, whichever and however many the qubits.
template <class Seq>
VELACAMPLIX_API void write_distribution(Seq seq, typename Seq::proba_type* out,
                                        const typename Seq::proba_type& threshold_sq,
                                        const std::vector<unsigned int>& qubits, const int& nthreads);

// Fills `map` with the non-zero elements above the threshold, keyed by reversed index; returns it. When memory runs
// out, std::bad_alloc; some entries may be in the map.
template <class T, class V, class Seq>
VELACAMPLIX_API std::map<unsigned long, V>* permute_and_map_vector(Seq seq, std::map<unsigned long, V>* map,
                                                                   const T& threshold_sq, const int& nthreads);

// A new map (the caller deletes it) of the outcomes over the listed qubits whose probability is above the threshold.
template <class T, class Seq>
VELACAMPLIX_API std::map<unsigned long, T>* map_marginal_distribution(Seq seq, const T& threshold_sq,
                                                                      const std::vector<unsigned int>& qubits,
                                                                      const int& nthreads);

}  // namespace cpu
}  // namespace pbamplix
