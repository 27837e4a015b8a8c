#pragma once

#include "statevector/loading/groups.hpp"

#include <velacamplix/amplitude.hpp>

namespace velacamplix::loading {

// The listed qubits in increasing order, each once.
inline std::vector<unsigned int> sorted_once(std::vector<unsigned int> qubits) {
    std::sort(qubits.begin(), qubits.end());
    qubits.erase(std::unique(qubits.begin(), qubits.end()), qubits.end());
    return qubits;
}

// One request to prepare a state. A group has two orders: the local one, in which its norm is summed (the first listed
// qubit is the most significant bit), and that of the data (the lowest-numbered qubit is the least significant bit).
template <class T>
struct preparation {
    preparation(thrust::complex<T>* amplitudes, const thrust::complex<double>* values, unsigned int n,
                const std::vector<unsigned int>& listed)
        : state(amplitudes),
          data(values),
          qubits(listed),
          sorted(sorted_once(listed)),
          groups(groups_over(listed, n)),
          group_size(1ul << (listed.size() & 63)),
          entries(1ul << sorted.size()),
          bytes(2 * groups.count * entries * sizeof(thrust::complex<T>)) {}

    // An entry of the data in the state's precision.
    thrust::complex<T> value(unsigned long entry) const {
        const thrust::complex<double> given = packs::read_amplitude(data + entry);
        return {static_cast<T>(given.real()), static_cast<T>(given.imag())};
    }

    thrust::complex<T>* state;
    const thrust::complex<double>* data;
    std::vector<unsigned int> qubits;
    std::vector<unsigned int> sorted;
    group_range groups;
    unsigned long group_size;  // local indices, more than entries when a qubit is listed twice
    unsigned long entries;
    unsigned long bytes;  // read and written by the whole request
};

}  // namespace velacamplix::loading
