#include "statevector/loading/registers.hpp"

#include <velacamplix/loading.hpp>

#include <cmath>

namespace pbamplix::cpu {

using namespace velacamplix;
using namespace velacamplix::loading;

namespace {

// The norm of each address's block of real parts. Squares are taken in double and rounded before they are added.
template <class T>
std::vector<T> block_norms(const thrust::complex<double>* data, const registers& r, int nthreads) {
    std::vector<T> norms(r.addresses);
    const unsigned long bytes = r.addresses * r.values * sizeof(*data);
    storage::parallel_shares(r.addresses, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long a = begin; a < end; ++a) {
            T sum = T(0);
            for (unsigned long v = 0; v < r.values; ++v) {
                const double real = packs::read_amplitude(data + (a * r.values + v)).real();
                sum += static_cast<T>(real * real);
            }
            norms[a] = std::sqrt(sum);
        }
    });
    return norms;
}

// The bits of a register that stand inside a pack: what each lane adds to the register's number.
template <class V>
struct register_lanes {
    register_lanes(const std::vector<unsigned int>& qubits, std::size_t first, std::size_t last) {
        for (std::size_t t = first; t < last; ++t) {
            if (qubits[t] >= packs::lane_bits<V>) continue;
            number_bits |= index::bit(static_cast<unsigned int>(t - first));
            lane_bits |= index::bit(qubits[t]);
            for (unsigned long lane = 0; lane < packs::lanes<V>; ++lane) {
                if (lane & index::bit(qubits[t])) of_lane[lane] |= index::bit(static_cast<unsigned int>(t - first));
            }
        }
    }

    // How many numbers there are whose inner bits are 0, the x-th of them, and the one behind a number.
    unsigned long outer_count(unsigned long numbers) const { return numbers >> std::popcount(number_bits); }
    unsigned long outer(unsigned long x) const { return index::deposit(x, ~number_bits); }
    unsigned long next(unsigned long outer_number) const { return index::next(outer_number, ~number_bits); }

    unsigned long number_bits = 0;
    unsigned long lane_bits = 0;
    std::array<unsigned long, packs::lanes<V>> of_lane{};
};

// Spreads amplitudes over their blocks, in packs of whatever lies together in memory. Register bits inside a pack only
// decide which norm, which weight and which source amplitude each lane takes.
template <class V>
class block_loader {
    using T = packs::scalar_of<V>;
    static constexpr unsigned long lanes = packs::lanes<V>;

public:
    block_loader(thrust::complex<T>* state, const thrust::complex<double>* data, const registers& numbers,
                 const std::vector<unsigned int>& qubits, unsigned int naddress, int nthreads)
        : state_(state),
          data_(data),
          numbers_(numbers),
          distinct_(index::all_distinct(qubits)),
          norms_(block_norms<T>(data, numbers, nthreads)),
          address_(qubits, 0, naddress),
          value_(qubits, naddress, qubits.size()) {}

    void run(const group_range& groups, int nthreads) const {
        const unsigned long addresses = address_.outer_count(numbers_.addresses);
        const unsigned long values = value_.outer_count(numbers_.values);
        const unsigned long group_size = numbers_.addresses * numbers_.values;
        const unsigned long bytes = groups.count * group_size * sizeof(thrust::complex<T>);
        const strips<V> cut(groups, addresses * values, 32ul << 10, 8);
        for_addresses(
            cut, addresses, distinct_, bytes, nthreads,
            [&](const strip& where, unsigned long first, unsigned long last) { load(where, first, last, values); });
    }

private:
    // A few addresses at a time, so that a cache line which several of them share is written while it is near.
    static constexpr unsigned long most_addresses = 8;

    void load(const strip& where, unsigned long first, unsigned long last, unsigned long values) const {
        std::array<V, std::max(most_addresses, most_columns)> spread;
        std::array<unsigned long, most_addresses> addresses;
        const unsigned long together = distinct_ ? std::max(1ul, most_addresses / where.columns) : 1;
        unsigned long address = address_.outer(first);
        for (; first < last; first += together) {
            const unsigned long count = std::min(together, last - first);
            for (unsigned long x = 0; x < count; ++x, address = address_.next(address)) {
                addresses[x] = address;
                take_sources(where, address, spread.data() + x * where.columns);
            }
            unsigned long value = 0;
            for (unsigned long y = 0; y < values; ++y, value = value_.next(value)) {
                for (unsigned long x = 0; x < count; ++x) {
                    write(where, addresses[x], value, spread.data() + x * where.columns);
                }
            }
        }
    }

    // Each lane's source amplitude, where the value register reads 0, divided by its address's norm. A norm of zero
    // divides by 1, which changes no bit.
    void take_sources(const strip& where, unsigned long address, V* spread) const {
        const V divisor = make_pack<V>([&](std::size_t lane, std::size_t) {
            const T norm = norms_[address | address_.of_lane[lane]];
            return norm > T(0) ? norm : T(1);
        });
        const thrust::complex<T>* source = state_ + numbers_.address_bits(address);
        for (unsigned long c = 0; c < where.columns; ++c) {
            const thrust::complex<T>* from = source + where.bases[c];
            const V amplitudes =
                value_.lane_bits == 0 ? packs::load<V>(from) : make_pack<V>([&](std::size_t lane, std::size_t part) {
                    const auto amplitude = packs::read_amplitude(from + (lane & ~value_.lane_bits));
                    return part == 0 ? amplitude.real() : amplitude.imag();
                });
            spread[c] = amplitudes / divisor;
        }
    }

    void write(const strip& where, unsigned long address, unsigned long value, const V* spread) const {
        const V weights = make_pack<V>([&](std::size_t lane, std::size_t) {
            const unsigned long block = (address | address_.of_lane[lane]) * numbers_.values;
            return static_cast<T>(packs::read_amplitude(data_ + (block + (value | value_.of_lane[lane]))).real());
        });
        thrust::complex<T>* to = state_ + (numbers_.address_bits(address) | numbers_.value_bits(value));
        for (unsigned long c = 0; c < where.columns; ++c) {
            packs::store<V>(to + where.bases[c], spread[c] * weights);
        }
    }

    thrust::complex<T>* state_;
    const thrust::complex<double>* data_;
    const registers& numbers_;
    bool distinct_;
    std::vector<T> norms_;
    register_lanes<V> address_;
    register_lanes<V> value_;
};

}  // namespace

template <class T>
void _qram(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
           const std::vector<unsigned int>& qubits, const unsigned int& naddress, int num_threads) {
    using wide = packs::wide_pack<T>;
    const registers numbers(qubits, naddress);
    const group_range groups = groups_over(qubits, n);
    if (fit_packs<wide>(qubits, n)) {
        block_loader<wide>(state, data, numbers, qubits, naddress, num_threads).run(groups, num_threads);
    } else {
        using single = packs::single_pack<T>;
        block_loader<single>(state, data, numbers, qubits, naddress, num_threads).run(groups, num_threads);
    }
}

template void _qram(thrust::complex<float>*, const thrust::complex<double>*, unsigned int,
                    const std::vector<unsigned int>&, const unsigned int&, int);
template void _qram(thrust::complex<double>*, const thrust::complex<double>*, unsigned int,
                    const std::vector<unsigned int>&, const unsigned int&, int);

}  // namespace pbamplix::cpu
