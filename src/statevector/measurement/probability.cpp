#include "statevector/measurement/marginals.hpp"

namespace pbamplix::cpu {

using namespace velacamplix;

template <class Seq>
typename Seq::proba_type cumulative_probability(Seq seq, unsigned long fixed, const std::vector<unsigned int>& qubits,
                                                const int& nthreads) {
    const unsigned long free = index::low_bits(seq.nqubits) & ~index::mask_of(qubits);
    // Each entry of the list halves the number of elements, a repeated one too; no fewer than one is left.
    const unsigned int left = qubits.size() < seq.nqubits ? seq.nqubits - static_cast<unsigned int>(qubits.size()) : 0;
    return measurement::sum_fixed(seq, free, fixed, left, nthreads);
}

#define VELACAMPLIX_CUMULATIVE_PROBABILITY(Seq)                                                                        \
    template Seq::proba_type cumulative_probability(Seq, unsigned long, const std::vector<unsigned int>&, const int&); \
    template double cumulative_probability(precise_view<Seq>, unsigned long, const std::vector<unsigned int>&,         \
                                           const int&);
VELACAMPLIX_CUMULATIVE_PROBABILITY(SVSequence<thrust::complex<float>>)
VELACAMPLIX_CUMULATIVE_PROBABILITY(SVSequence<thrust::complex<double>>)
VELACAMPLIX_CUMULATIVE_PROBABILITY(DMDiagSequence<float>)
VELACAMPLIX_CUMULATIVE_PROBABILITY(DMDiagSequence<double>)
#undef VELACAMPLIX_CUMULATIVE_PROBABILITY

}  // namespace pbamplix::cpu
