#include "statevector/measurement/distribution.hpp"
#include "statevector/measurement/gathered_entries.hpp"

#include <memory>

namespace velacamplix::measurement {
namespace {

template <class T>
bool is_zero(thrust::complex<T> value) {
    return value.real() == T(0) && value.imag() == T(0);
}
template <class T>
bool is_zero(T value) {
    return value == T(0);
}

}  // namespace
}  // namespace velacamplix::measurement

namespace pbamplix::cpu {

using namespace velacamplix;

template <class T, class V, class Seq>
std::map<unsigned long, V>* permute_and_map_vector(Seq seq, std::map<unsigned long, V>* map, const T& threshold_sq,
                                                   const int& nthreads) {
    measurement::gathered_entries<V> entries;
    const unsigned long bytes = seq.dim * sizeof(thrust::complex<T>);
    storage::parallel_shares(seq.dim, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        typename measurement::gathered_entries<V>::share found(entries);
        for (unsigned long i = begin; i < end; ++i) {
            const V value = measurement::value_at(seq, i);
            // Exact zeros, most of a sparse state, are not worth a product.
            if (measurement::is_zero(value) || !(measurement::probability_at(seq, i) > threshold_sq)) continue;
            found.add(index::reverse_bits(i, seq.nqubits), value);
        }
    });
    entries.insert_into(*map);
    return map;
}

template <class T, class Seq>
std::map<unsigned long, T>* map_marginal_distribution(Seq seq, const T& threshold_sq,
                                                      const std::vector<unsigned int>& qubits, const int& nthreads) {
    auto map = std::make_unique<std::map<unsigned long, T>>();
    measurement::gathered_entries<T> entries;
    const auto gather = [found = typename measurement::gathered_entries<T>::share(entries), threshold_sq](
                            unsigned long outcome, T p) mutable {
        if (p != T(0) && p > threshold_sq) found.add(outcome, p);
    };
    measurement::sum_distribution(seq, qubits, nthreads, gather);
    entries.insert_into(*map);
    return map.release();
}

template <class T>
using State = SVSequence<thrust::complex<T>>;
template <class V>
using Map = std::map<unsigned long, V>;

template Map<thrust::complex<float>>* permute_and_map_vector(State<float>, Map<thrust::complex<float>>*, const float&,
                                                             const int&);
template Map<thrust::complex<double>>* permute_and_map_vector(State<double>, Map<thrust::complex<double>>*,
                                                              const double&, const int&);
template Map<float>* permute_and_map_vector(DMDiagSequence<float>, Map<float>*, const float&, const int&);
template Map<double>* permute_and_map_vector(DMDiagSequence<double>, Map<double>*, const double&, const int&);

template Map<float>* map_marginal_distribution(State<float>, const float&, const std::vector<unsigned int>&,
                                               const int&);
template Map<double>* map_marginal_distribution(State<double>, const double&, const std::vector<unsigned int>&,
                                                const int&);
template Map<float>* map_marginal_distribution(DMDiagSequence<float>, const float&, const std::vector<unsigned int>&,
                                               const int&);
template Map<double>* map_marginal_distribution(DMDiagSequence<double>, const double&, const std::vector<unsigned int>&,
                                                const int&);
template Map<double>* map_marginal_distribution(precise_view<State<float>>, const double&,
                                                const std::vector<unsigned int>&, const int&);
template Map<double>* map_marginal_distribution(precise_view<State<double>>, const double&,
                                                const std::vector<unsigned int>&, const int&);
template Map<double>* map_marginal_distribution(precise_view<DMDiagSequence<float>>, const double&,
                                                const std::vector<unsigned int>&, const int&);
template Map<double>* map_marginal_distribution(precise_view<DMDiagSequence<double>>, const double&,
                                                const std::vector<unsigned int>&, const int&);

}  // namespace pbamplix::cpu
