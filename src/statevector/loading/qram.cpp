#include "statevector/loading/groups.hpp"

#include <velacamplix/loading.hpp>

#include <cmath>

namespace pbamplix::cpu {

using namespace velacamplix;
using namespace velacamplix::loading;

namespace {

// The qubits of both kinds of QRAM: the first `naddress` hold the address, the others the value, each least
// significant bit first.
struct registers {
    registers(const std::vector<unsigned int>& qubits, unsigned int naddress)
        : addresses(1ul << (naddress & 63)),
          values(1ul << ((qubits.size() - naddress) & 63)),
          address_bits({qubits.begin(), qubits.begin() + naddress}),
          value_bits({qubits.begin() + naddress, qubits.end()}) {}

    unsigned long addresses;
    unsigned long values;
    placement address_bits;
    placement value_bits;
};

// Calls body(strip, first address, last address) for all groups and addresses. Distinct qubits make the addresses of
// a group independent, and large groups are shared by address; a repeated qubit (the host's mistake) leaves the
// addresses of a group to one thread, in increasing order.
template <class V, class Body>
void for_addresses(const group_range& groups, unsigned long group_size, const registers& r, bool distinct,
                   unsigned long bytes, int nthreads, Body body) {
    const strips<V> cut(groups, group_size);
    const unsigned long parts = distinct ? r.addresses : 1;
    const unsigned long addresses_per_part = r.addresses / parts;
    storage::parallel_blocks(cut.count() * parts, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        strip where;
        while (begin < end) {
            const unsigned long number = begin / parts;
            const unsigned long first = begin % parts;
            const unsigned long last = std::min(parts, first + (end - begin));
            cut.fill(number, where);
            body(where, first * addresses_per_part, last * addresses_per_part);
            begin += last - first;
        }
    });
}

// The norm of each address's block of real parts. Squares are taken in double and rounded before they are added.
template <class T>
std::vector<T> block_norms(const thrust::complex<double>* data, const registers& r, int nthreads) {
    std::vector<T> norms(r.addresses);
    const unsigned long bytes = r.addresses * r.values * sizeof(*data);
    storage::parallel_blocks(r.addresses, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long a = begin; a < end; ++a) {
            T sum = T(0);
            for (unsigned long v = 0; v < r.values; ++v) {
                const double real = data[a * r.values + v].real();
                sum += static_cast<T>(real * real);
            }
            norms[a] = std::sqrt(sum);
        }
    });
    return norms;
}

template <class V>
void load_blocks(thrust::complex<kernels::scalar_of<V>>* state, const thrust::complex<double>* data,
                 const group_range& groups, unsigned long group_size, const registers& r, bool distinct, int nthreads) {
    using T = kernels::scalar_of<V>;
    const std::vector<T> norms = block_norms<T>(data, r, nthreads);
    const unsigned long bytes = groups.count * group_size * sizeof(thrust::complex<T>);
    const auto body = [&](const strip& where, unsigned long first, unsigned long last) {
        std::array<V, most_strip_packs> spread;
        for (unsigned long a = first; a < last; ++a) {
            thrust::complex<T>* source = state + r.address_bits(a);
            const bool divides = norms[a] > T(0);
            for (unsigned long p = 0; p < where.packs; ++p) {
                const V amplitude = kernels::load<V>(source + where.bases[p]);
                spread[p] = divides ? amplitude / kernels::broadcast<V>(norms[a]) : amplitude;
            }
            for (unsigned long v = 0; v < r.values; ++v) {
                // The value register reads 0 in the source, so v = 0 writes the source itself.
                thrust::complex<T>* to = state + (r.address_bits(a) | r.value_bits(v));
                const V weight = kernels::broadcast<V>(static_cast<T>(data[a * r.values + v].real()));
                for (unsigned long p = 0; p < where.packs; ++p)
                    kernels::store<V>(to + where.bases[p], spread[p] * weight);
            }
        }
    };
    for_addresses<V>(groups, group_size, r, distinct, bytes, nthreads, body);
}

template <class V>
void move_to_values(thrust::complex<kernels::scalar_of<V>>* state, const unsigned long* data, const group_range& groups,
                    const registers& r, bool distinct, int nthreads) {
    using T = kernels::scalar_of<V>;
    const unsigned long bytes = 2 * groups.count * r.addresses * sizeof(thrust::complex<T>);
    const auto body = [&](const strip& where, unsigned long first, unsigned long last) {
        for (unsigned long a = first; a < last; ++a) {
            thrust::complex<T>* source = state + r.address_bits(a);
            thrust::complex<T>* to = state + (r.address_bits(a) | r.value_bits(data[a] & (r.values - 1)));
            for (unsigned long p = 0; p < where.packs; ++p) {
                // In this order: the value 0 leaves the amplitude in place.
                const V moved = kernels::load<V>(source + where.bases[p]);
                kernels::store<V>(source + where.bases[p], V{});
                kernels::store<V>(to + where.bases[p], moved);
            }
        }
    };
    for_addresses<V>(groups, 2 * r.addresses, r, distinct, bytes, nthreads, body);
}

}  // namespace

template <class T>
void _qram(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
           const std::vector<unsigned int>& qubits, const unsigned int& naddress, int num_threads) {
    using wide = kernels::wide_pack<T>;
    const registers r(qubits, naddress);
    const group_range groups = groups_over(qubits, n);
    const bool distinct = all_distinct(qubits);
    const unsigned long group_size = r.addresses * r.values;
    if (fit_packs<wide>(groups)) {
        load_blocks<wide>(state, data, groups, group_size, r, distinct, num_threads);
    } else {
        load_blocks<kernels::single_pack<T>>(state, data, groups, group_size, r, distinct, num_threads);
    }
}

template <class T>
void _binary_qram(thrust::complex<T>* state, const unsigned long* data, unsigned int n,
                  const std::vector<unsigned int>& qubits, const unsigned int& naddress, int num_threads) {
    using wide = kernels::wide_pack<T>;
    const registers r(qubits, naddress);
    const group_range groups = groups_over(qubits, n);
    const bool distinct = all_distinct(qubits);
    if (fit_packs<wide>(groups)) {
        move_to_values<wide>(state, data, groups, r, distinct, num_threads);
    } else {
        move_to_values<kernels::single_pack<T>>(state, data, groups, r, distinct, num_threads);
    }
}

#define VELACAMPLIX_QRAM(T)                                                                \
    template void _qram(thrust::complex<T>*, const thrust::complex<double>*, unsigned int, \
                        const std::vector<unsigned int>&, const unsigned int&, int);       \
    template void _binary_qram(thrust::complex<T>*, const unsigned long*, unsigned int,    \
                               const std::vector<unsigned int>&, const unsigned int&, int);
VELACAMPLIX_QRAM(float)
VELACAMPLIX_QRAM(double)
#undef VELACAMPLIX_QRAM

}  // namespace pbamplix::cpu
