#include "statevector/index/bits.hpp"
#include "statevector/packs/pack.hpp"
#include "statevector/storage/parallel.hpp"

#include <velacamplix/loading.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

// A group is the 2^k amplitudes that agree on all other qubits. A piece is at most 2^16 of them, in the order of the
// data; pieces are summed one after another inside and then in order, whoever sums them.

namespace velacamplix::loading {
namespace {

template <class Sum, class T>
struct pieces {
    thrust::complex<T>* state;
    const thrust::complex<double>* data;
    unsigned long listed;     // index bits of the qubits
    unsigned long others;     // the rest
    unsigned long length;     // entries of a piece
    unsigned long per_group;  // pieces

    Sum norm_of(unsigned long piece) const {
        Sum sum = 0;
        walk(piece, [&](unsigned long, unsigned long index) {
            const thrust::complex<T> amplitude = packs::read_amplitude(state + index);
            const auto re = static_cast<Sum>(amplitude.real());
            const auto im = static_cast<Sum>(amplitude.imag());
            sum += re * re + im * im;
        });
        return sum;
    }

    void write(unsigned long piece, Sum root) const {
        walk(piece, [&](unsigned long entry, unsigned long index) {
            const thrust::complex<double> value = packs::read_amplitude(data + entry);
            const auto re = static_cast<T>(value.real() * root);
            const auto im = static_cast<T>(value.imag() * root);
            packs::write_amplitude(state + index, thrust::complex<T>(re, im));
        });
    }

private:
    template <class Visit>
    void walk(unsigned long piece, Visit visit) const {
        const unsigned long base = index::deposit(piece / per_group, others);
        const unsigned long first = piece % per_group * length;
        unsigned long entry = first;
        for (const unsigned long local : index::free_indices(listed, first, length)) visit(entry++, base | local);
    }
};

}  // namespace
}  // namespace velacamplix::loading

namespace pbamplix::cpu {

using namespace velacamplix;

template <class Sum, class T>
void state_preparation(thrust::complex<T>* state, const thrust::complex<double>* data, unsigned int n,
                       const std::vector<unsigned int>& qubits, int num_threads) {
    constexpr unsigned long longest_piece = 1ul << 16;
    const unsigned long entries = 1ul << qubits.size();
    const unsigned long groups = 1ul << (n - qubits.size());
    const unsigned long listed = index::mask_of(qubits);
    const unsigned long length = std::min(entries, longest_piece);
    const loading::pieces<Sum, T> pieces{state, data, listed, index::low_bits(n) & ~listed, length, entries / length};
    const unsigned long bytes = 2 * entries * groups * sizeof(thrust::complex<T>);

    if (pieces.per_group == 1) {
        storage::parallel_shares(groups, bytes, num_threads, [&](unsigned long begin, unsigned long end) {
            for (unsigned long g = begin; g < end; ++g) pieces.write(g, std::sqrt(pieces.norm_of(g)));
        });
        return;
    }
    const unsigned long count = groups * pieces.per_group;
    std::vector<Sum> norms(count);
    storage::parallel_shares(count, bytes, num_threads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long piece = begin; piece < end; ++piece) norms[piece] = pieces.norm_of(piece);
    });
    std::vector<Sum> roots(groups);
    for (unsigned long piece = 0; piece < count; ++piece) roots[piece / pieces.per_group] += norms[piece];
    for (Sum& root : roots) root = std::sqrt(root);
    storage::parallel_shares(count, bytes, num_threads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long piece = begin; piece < end; ++piece) pieces.write(piece, roots[piece / pieces.per_group]);
    });
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                             \
    template void state_preparation<double>(thrust::complex<T>*, const thrust::complex<double>*, unsigned int, \
                                            const std::vector<unsigned int>&, int);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace pbamplix::cpu
