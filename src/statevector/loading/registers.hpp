#pragma once

#include "statevector/loading/groups.hpp"

namespace velacamplix::loading {

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

// Calls body(strip, first, last) for all groups and the addresses numbered from `first` to `last`. Distinct qubits
// make the addresses of a group independent, and large groups are shared by address; a repeated qubit (the host's
// mistake) leaves the addresses of a group to one thread, in increasing order.
template <class V, class Body>
void for_addresses(const strips<V>& cut, unsigned long addresses, bool distinct, unsigned long bytes, int nthreads,
                   Body body) {
    const unsigned long parts = distinct ? addresses : 1;
    const unsigned long addresses_per_part = addresses / parts;
    storage::parallel_shares(cut.count() * parts, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
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

}  // namespace velacamplix::loading
