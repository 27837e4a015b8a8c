#include "statevector/measurement/distribution.hpp"

namespace velacamplix::measurement {

template <class Seq>
void write_distribution(const Seq& view, typename Seq::proba_type* out, typename Seq::proba_type threshold_sq,
                        const std::vector<unsigned int>& listed, int nthreads) {
    using T = typename Seq::proba_type;
    sum_distribution(view, listed, nthreads, [=](unsigned long slot, T p) { out[slot] = p > threshold_sq ? p : T(0); });
}

template void write_distribution(const pbamplix::SVSequence<thrust::complex<float>>&, float*, float,
                                 const std::vector<unsigned int>&, int);
template void write_distribution(const pbamplix::SVSequence<thrust::complex<double>>&, double*, double,
                                 const std::vector<unsigned int>&, int);
template void write_distribution(const pbamplix::DMDiagSequence<float>&, float*, float,
                                 const std::vector<unsigned int>&, int);
template void write_distribution(const pbamplix::DMDiagSequence<double>&, double*, double,
                                 const std::vector<unsigned int>&, int);

}  // namespace velacamplix::measurement

namespace pbamplix::cpu {

template <class Seq>
void precise_distribution(precise_view<Seq> seq, double* out, const double& threshold_sq,
                          const std::vector<unsigned int>& qubits, const int& nthreads) {
    velacamplix::measurement::write_distribution(seq, out, threshold_sq, qubits, nthreads);
}

template void precise_distribution(precise_view<SVSequence<thrust::complex<float>>>, double*, const double&,
                                   const std::vector<unsigned int>&, const int&);
template void precise_distribution(precise_view<SVSequence<thrust::complex<double>>>, double*, const double&,
                                   const std::vector<unsigned int>&, const int&);
template void precise_distribution(precise_view<DMDiagSequence<float>>, double*, const double&,
                                   const std::vector<unsigned int>&, const int&);
template void precise_distribution(precise_view<DMDiagSequence<double>>, double*, const double&,
                                   const std::vector<unsigned int>&, const int&);

}  // namespace pbamplix::cpu
