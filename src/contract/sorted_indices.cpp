#include "statevector/index/bits.hpp"

#include <velacamplix/amplitude.hpp>
#include <velacamplix/index.hpp>

#include <algorithm>

namespace pbamplix::cpu {

using namespace velacamplix::index;

unsigned long swap_lsb_msb(unsigned long x, const unsigned int& n) { return reverse_bits(x, n); }

std::vector<unsigned int> get_sorted_indices(const std::vector<unsigned int>& qubits, unsigned long mask) {
    const auto k = static_cast<unsigned int>(qubits.size());
    std::vector<unsigned int> sorted(1ul << k, 0);
    for (unsigned long local = 0; local < sorted.size(); ++local) {
        const unsigned long position = extract(place_first_lowest(local, qubits), mask);
        sorted[position] = static_cast<unsigned int>(reverse_bits(local, k));
    }
    return sorted;
}

template <class T>
bool contains_no_first_qubits(const std::vector<unsigned int>& a, const std::vector<unsigned int>& b) {
    const auto beyond_first_two = [](unsigned int q) { return q > 1; };
    return std::all_of(a.begin(), a.end(), beyond_first_two) && std::all_of(b.begin(), b.end(), beyond_first_two);
}

template bool contains_no_first_qubits<float>(const std::vector<unsigned int>&, const std::vector<unsigned int>&);
template bool contains_no_first_qubits<double>(const std::vector<unsigned int>&, const std::vector<unsigned int>&);
template bool contains_no_first_qubits<thrust::complex<float>>(const std::vector<unsigned int>&,
                                                               const std::vector<unsigned int>&);
template bool contains_no_first_qubits<thrust::complex<double>>(const std::vector<unsigned int>&,
                                                                const std::vector<unsigned int>&);

}  // namespace pbamplix::cpu
