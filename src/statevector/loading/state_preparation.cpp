#include "statevector/loading/groups.hpp"

#include <velacamplix/loading.hpp>

#include <cmath>

namespace pbamplix::cpu {

using namespace velacamplix;
using namespace velacamplix::loading;

namespace {

// |a|^2 of every amplitude of a pack, in both parts. Below `tiny` (the root of the smallest normal number) squares
// would leave the normal range, so an amplitude with two such parts is scaled by 4 before and by 1/16 after; the
// others by 1, which changes no bit.
template <class V>
V norms_in_both_parts(V a) {
    using T = kernels::scalar_of<V>;
    using bits = kernels::bits_of<V>;
    using integer = kernels::scalar_of<bits>;
    // A part is tiny when the two highest bits of its exponent are 0; those two alone make a normal number.
    constexpr auto not_tiny = static_cast<integer>(integer{3} << (8 * sizeof(integer) - 3));
    const V other = kernels::swap_parts(a);
    const auto tiny = (V)(((bits)a | (bits)other) & not_tiny) == V{};
    const V up = tiny ? kernels::broadcast<V>(T(4)) : kernels::broadcast<V>(T(1));
    const V down = tiny ? kernels::broadcast<V>(T(0.0625)) : kernels::broadcast<V>(T(1));
    const V scaled = a * up;
    const V squares = scaled * scaled;
    return (squares + kernels::swap_parts(squares)) * down;
}

// One request: which amplitudes form a group, and which entry of the data each of them takes.
template <class V>
class preparation {
    using T = kernels::scalar_of<V>;

public:
    preparation(thrust::complex<T>* state, const thrust::complex<double>* data, const group_range& groups,
                const std::vector<unsigned int>& qubits)
        : state_(state),
          data_(data),
          group_size_(1ul << (qubits.size() & 63)),
          // The first listed qubit is the most significant bit of a local index.
          offset_(std::vector<unsigned int>(qubits.rbegin(), qubits.rend())),
          entry_(ranks(qubits)),
          strips_(groups, group_size_) {}

    void run(int nthreads) {
        const unsigned long amplitudes = strips_.count() * strips_.length() * kernels::lanes<V> * group_size_;
        const unsigned long bytes = 2 * amplitudes * sizeof(thrust::complex<T>);
        constexpr unsigned long cached_group = 1ul << 14;
        if (group_size_ <= cached_group) {
            storage::parallel_blocks(strips_.count(), bytes, nthreads, [&](unsigned long begin, unsigned long end) {
                strip where;
                std::array<V, most_strip_packs> roots;
                for (unsigned long s = begin; s < end; ++s) {
                    strips_.fill(s, where);
                    find_roots(where, roots.data());
                    write(where, roots.data(), 0, group_size_);
                }
            });
            return;
        }
        // Few large groups: all norms first, then the threads share the offsets.
        std::vector<V> roots(strips_.count() * strips_.length());
        storage::parallel_blocks(strips_.count(), bytes / 2, nthreads, [&](unsigned long begin, unsigned long end) {
            strip where;
            for (unsigned long s = begin; s < end; ++s) {
                strips_.fill(s, where);
                find_roots(where, roots.data() + s * strips_.length());
            }
        });
        storage::parallel_blocks(group_size_, bytes / 2, nthreads, [&](unsigned long begin, unsigned long end) {
            strip where;
            for (unsigned long s = 0; s < strips_.count(); ++s) {
                strips_.fill(s, where);
                write(where, roots.data() + s * strips_.length(), begin, end);
            }
        });
    }

private:
    // For every listed qubit, least significant local bit first, its place among the listed qubits by number.
    static std::vector<unsigned int> ranks(const std::vector<unsigned int>& qubits) {
        const unsigned long mask = index::mask_of(qubits);
        std::vector<unsigned int> ranks;
        for (auto q = qubits.rbegin(); q != qubits.rend(); ++q) {
            ranks.push_back(static_cast<unsigned int>(std::popcount(mask & (index::bit(*q) - 1))));
        }
        return ranks;
    }

    // The roots of the groups' norms, each summed in local order.
    void find_roots(const strip& where, V* roots) const {
        for (unsigned long p = 0; p < where.packs; ++p) roots[p] = V{};
        for (unsigned long j = 0; j < group_size_; ++j) {
            const thrust::complex<T>* from = state_ + offset_(j);
            for (unsigned long p = 0; p < where.packs; ++p) {
                roots[p] += norms_in_both_parts(kernels::load<V>(from + where.bases[p]));
            }
        }
        for (unsigned long p = 0; p < where.packs; ++p) {
            for (unsigned s = 0; s < kernels::scalars<V>; s += 2)
                roots[p][s] = roots[p][s + 1] = std::sqrt(roots[p][s]);
        }
    }

    void write(const strip& where, const V* roots, unsigned long begin, unsigned long end) const {
        for (unsigned long j = begin; j < end; ++j) {
            thrust::complex<T>* to = state_ + offset_(j);
            const thrust::complex<double> entry = data_[entry_(j)];
            const V value = repeat<V>({static_cast<T>(entry.real()), static_cast<T>(entry.imag())});
            for (unsigned long p = 0; p < where.packs; ++p) kernels::store<V>(to + where.bases[p], value * roots[p]);
        }
    }

    thrust::complex<T>* state_;
    const thrust::complex<double>* data_;
    unsigned long group_size_;
    placement offset_;
    placement entry_;
    strips<V> strips_;
};

}  // namespace

template <class T>
void _state_preparation(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
                        const std::vector<unsigned int>& qubits, int num_threads) {
    using wide = kernels::wide_pack<T>;
    const group_range groups = groups_over(qubits, n);
    if (fit_packs<wide>(groups)) {
        preparation<wide>(state, data, groups, qubits).run(num_threads);
    } else {
        preparation<kernels::single_pack<T>>(state, data, groups, qubits).run(num_threads);
    }
}

template void _state_preparation(thrust::complex<float>*, const thrust::complex<double>*, unsigned int,
                                 const std::vector<unsigned int>&, int);
template void _state_preparation(thrust::complex<double>*, const thrust::complex<double>*, unsigned int,
                                 const std::vector<unsigned int>&, int);

}  // namespace pbamplix::cpu
