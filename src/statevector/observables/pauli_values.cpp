#include "statevector/observables/pauli_values.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/observables/pair_products.hpp"
#include "statevector/observables/string_groups.hpp"

#include <algorithm>
#include <cmath>

namespace velacamplix::observables {
namespace {

// Real or imaginary part of the entries (r ^ flip, r): the ket index is the low half of the flat index.
template <class T, class Stored>
struct band_entries {
    const thrust::complex<Stored>* matrix;
    unsigned int qubits;

    thrust::complex<T> operator()(unsigned long flip, unsigned long r) const {
        return packs::widened<T>(packs::read_amplitude(matrix + (((r ^ flip) << qubits) + r)));
    }
    void operator()(const product_sequence& s, unsigned long number, T* out) const {
        const unsigned long length = filled_length<T>(s);
        for (unsigned long j = 0; j < length; ++j) {
            const thrust::complex<T> entry = (*this)(s.flip, number * length + j);
            out[j] = s.imaginary ? entry.imag() : entry.real();
        }
    }
};

template <class T, class Stored>
std::vector<T> sums_of_parts(const thrust::complex<Stored>* state, unsigned long size,
                             std::vector<pauli_string> strings, int nthreads, const pbamplix::work_hook& hook) {
    for (pauli_string& p : strings) {
        p.flip &= size - 1;
        p.phase &= size - 1;
    }
    const std::vector<std::size_t> order = order_by_flip<T>(strings);
    const unsigned long patches = patch_count<T>(size);

    std::vector<T> values(strings.size());
    string_group<T> group;
    std::vector<T> sums;
    for (std::size_t begin = 0; begin < order.size();) {
        const std::size_t end = group.take(strings, order, begin, size);
        sums.resize(group.masks.size());
        const unsigned long bytes = group.sequences.size() * size * sizeof(thrust::complex<Stored>);
        sum_sequences<T>(group.sequences, group.masks, patches, bytes, nthreads, pair_products<T, Stored>(state),
                         sums.data(), [&] {
                             if (hook) hook(begin, order.size());
                         });
        for (std::size_t m = 0; m < sums.size(); ++m) {
            const std::size_t t = order[begin + m];
            values[t] = value_of<T>(strings[t], size, sums[m]);
        }
        begin = end;
        if (hook) hook(begin, order.size());
    }
    return values;
}

}  // namespace

template <class T, class Sum>
std::vector<Sum> pure_values(const thrust::complex<T>* state, unsigned long size,
                             const std::vector<pauli_string>& strings, int nthreads, const pbamplix::work_hook& hook) {
    if (size == 0) return std::vector<Sum>(strings.size());
    std::vector<Sum> values = sums_of_parts<Sum>(state, size, strings, nthreads, hook);

    // A contribution is Re(x) Re(i^k) - Im(x) Im(i^k), and one of the two factors is 0. The part behind it shows only
    // where it is not finite, as NaN; an infinite sum is the sign to look.
    std::vector<std::size_t> infinite;
    std::vector<pauli_string> other_part;
    for (std::size_t t = 0; t < values.size(); ++t) {
        if (!std::isinf(values[t])) continue;
        infinite.push_back(t);
        other_part.push_back({strings[t].flip, strings[t].phase, (strings[t].y_count + 1) & 3});
    }
    if (infinite.empty()) return values;
    pbamplix::work_hook again;
    if (hook) again = [&](unsigned long, unsigned long) { hook(values.size(), values.size()); };
    const std::vector<Sum> others = sums_of_parts<Sum>(state, size, other_part, nthreads, again);
    for (std::size_t k = 0; k < infinite.size(); ++k) values[infinite[k]] += Sum(0) * others[k];
    return values;
}

template <class T, class Sum>
std::vector<thrust::complex<Sum>> density_values(const thrust::complex<T>* matrix, unsigned int qubits,
                                                 const std::vector<pauli_string>& strings, int nthreads) {
    using complex = thrust::complex<Sum>;
    const complex phases[] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
    const complex signs[] = {{1, 0}, {-1, 0}};
    const unsigned long dim = 1ul << qubits;
    const band_entries<Sum, T> entries{matrix, qubits};
    const std::vector<std::size_t> order = order_by_flip<Sum>(strings);
    const unsigned long patches = slab_count<Sum>({0, false, dim, 0, 0, 0});
    const unsigned long most_strings = most_masks(patches) / 2;  // a mask for either part

    std::vector<complex> values(strings.size());
    std::vector<product_sequence> sequences;
    std::vector<unsigned long> masks;
    std::vector<Sum> sums;
    for (std::size_t begin = 0; begin < order.size();) {
        const unsigned long flip = strings[order[begin]].flip;
        masks.clear();
        for (std::size_t end = begin; end < order.size() && masks.size() < most_strings; ++end) {
            if (strings[order[end]].flip != flip) break;
            masks.push_back(strings[order[end]].phase & (dim - 1));
        }
        const std::size_t count = masks.size();
        masks.insert(masks.end(), masks.begin(), masks.begin() + static_cast<std::ptrdiff_t>(count));
        sequences = {{flip, false, dim, 0, 0, count}, {flip, true, dim, 0, count, 2 * count}};
        sums.resize(2 * count);
        constexpr unsigned long cache_line = 64;
        sum_sequences<Sum>(sequences, masks, patches, dim * cache_line, nthreads, entries, sums.data(), [] {});

        for (std::size_t m = 0; m < count; ++m) {
            const pauli_string& p = strings[order[begin + m]];
            complex value = complex(sums[m], sums[count + m]) * phases[p.y_count];
            if (!std::isfinite(value.real()) || !std::isfinite(value.imag())) {
                value = complex(0, 0);
                for (unsigned long r = 0; r < dim; ++r) {
                    value += entries(flip, r) * phases[p.y_count] * signs[std::popcount(r & p.phase) & 1];
                }
            }
            values[order[begin + m]] = complex(value.real() + Sum(0), value.imag() + Sum(0));
        }
        begin += count;
    }
    return values;
}

#define VELACAMPLIX_PAULI_VALUES(T, Sum)                                                                              \
    template std::vector<Sum> pure_values(const thrust::complex<T>*, unsigned long, const std::vector<pauli_string>&, \
                                          int, const pbamplix::work_hook&);                                           \
    template std::vector<thrust::complex<Sum>> density_values(const thrust::complex<T>*, unsigned int,                \
                                                              const std::vector<pauli_string>&, int);
VELACAMPLIX_PAULI_VALUES(float, float)
VELACAMPLIX_PAULI_VALUES(double, double)
VELACAMPLIX_PAULI_VALUES(float, double)
#undef VELACAMPLIX_PAULI_VALUES

}  // namespace velacamplix::observables
