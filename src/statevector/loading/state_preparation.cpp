#include "statevector/loading/mixed_columns.hpp"
#include "statevector/loading/whole_columns.hpp"

#include <velacamplix/loading.hpp>

namespace pbamplix::cpu {

using namespace velacamplix;
using namespace velacamplix::loading;

namespace {

template <class V>
void write_groups(const preparation<packs::scalar_of<V>>& request, int nthreads) {
    if (inner_bits<V>(request.groups.free).targets == 0) {
        whole_columns<V>(request).run(nthreads);
    } else if (mixed_columns<V>::fit(request)) {
        mixed_columns<V>(request).run(nthreads);
    } else {
        whole_columns<packs::single_pack<packs::scalar_of<V>>>(request).run(nthreads);
    }
}

}  // namespace

template <class T>
void _state_preparation(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
                        const std::vector<unsigned int>& qubits, int num_threads) {
    using wide = packs::wide_pack<T>;
    const preparation<T> request(state, data, n, qubits);
    if (fit_packs<wide>(qubits, n)) {
        write_groups<wide>(request, num_threads);
    } else {
        write_groups<packs::single_pack<T>>(request, num_threads);
    }
}

template void _state_preparation(thrust::complex<float>*, const thrust::complex<double>*, unsigned int,
                                 const std::vector<unsigned int>&, int);
template void _state_preparation(thrust::complex<double>*, const thrust::complex<double>*, unsigned int,
                                 const std::vector<unsigned int>&, int);

}  // namespace pbamplix::cpu
