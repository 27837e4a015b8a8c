#include "statevector/measurement/distribution.hpp"

namespace pbamplix::cpu {

template <class Seq>
void write_distribution(Seq seq, typename Seq::proba_type* out, const typename Seq::proba_type& threshold_sq,
                        const std::vector<unsigned int>& qubits, const int& nthreads) {
    using T = typename Seq::proba_type;
    const auto write = [=](unsigned long slot, T p) { out[slot] = p > threshold_sq ? p : T(0); };
    velacamplix::measurement::sum_distribution(seq, qubits, nthreads, write);
}

#define VELACAMPLIX_INSTANTIATE(Seq)                                                                                  \
    template void write_distribution(Seq, Seq::proba_type*, const Seq::proba_type&, const std::vector<unsigned int>&, \
                                     const int&);                                                                     \
    template void write_distribution(precise_view<Seq>, double*, const double&, const std::vector<unsigned int>&,     \
                                     const int&);
VELACAMPLIX_INSTANTIATE(SVSequence<thrust::complex<float>>)
VELACAMPLIX_INSTANTIATE(SVSequence<thrust::complex<double>>)
VELACAMPLIX_INSTANTIATE(DMDiagSequence<float>)
VELACAMPLIX_INSTANTIATE(DMDiagSequence<double>)

}  // namespace pbamplix::cpu
