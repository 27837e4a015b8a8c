#include "statevector/loading/registers.hpp"

#include <velacamplix/loading.hpp>

namespace pbamplix::cpu {

using namespace velacamplix;
using namespace velacamplix::loading;

namespace {

// The index bits inside a pack must be free.
template <class V>
void move_to_values(thrust::complex<packs::scalar_of<V>>* state, const unsigned long* data, const group_range& groups,
                    const registers& numbers, bool distinct, int nthreads) {
    const unsigned long moved_amplitudes = 2 * groups.count * numbers.addresses;
    const unsigned long bytes = 2 * moved_amplitudes * sizeof(*state);
    const strips<V> cut(groups, 2 * numbers.addresses, 32ul << 10, 8);
    for_addresses(cut, numbers.addresses, distinct, bytes, nthreads,
                  [&](const strip& where, unsigned long first, unsigned long last) {
                      for (unsigned long a = first; a < last; ++a) {
                          const unsigned long value = data[a] & (numbers.values - 1);
                          thrust::complex<packs::scalar_of<V>>* source = state + numbers.address_bits(a);
                          thrust::complex<packs::scalar_of<V>>* to =
                              state + (numbers.address_bits(a) | numbers.value_bits(value));
                          for (unsigned long c = 0; c < where.columns; ++c) {
                              // In this order: the value 0 leaves the amplitude in place.
                              const V moved = packs::load<V>(source + where.bases[c]);
                              packs::store<V>(source + where.bases[c], V{});
                              packs::store<V>(to + where.bases[c], moved);
                          }
                      }
                  });
}

}  // namespace

template <class T>
void _binary_qram(thrust::complex<T>* state, const unsigned long* data, unsigned int n,
                  const std::vector<unsigned int>& qubits, const unsigned int& naddress, int num_threads) {
    using wide = packs::wide_pack<T>;
    const registers numbers(qubits, naddress);
    const group_range groups = groups_over(qubits, n);
    const bool distinct = index::all_distinct(qubits);
    if (fit_packs<wide>(qubits, n) && inner_bits<wide>(groups.free).targets == 0) {
        move_to_values<wide>(state, data, groups, numbers, distinct, num_threads);
    } else {
        move_to_values<packs::single_pack<T>>(state, data, groups, numbers, distinct, num_threads);
    }
}

template void _binary_qram(thrust::complex<float>*, const unsigned long*, unsigned int,
                           const std::vector<unsigned int>&, const unsigned int&, int);
template void _binary_qram(thrust::complex<double>*, const unsigned long*, unsigned int,
                           const std::vector<unsigned int>&, const unsigned int&, int);

}  // namespace pbamplix::cpu
