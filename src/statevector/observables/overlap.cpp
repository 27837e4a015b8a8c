#include "statevector/observables/block_sums.hpp"
#include "statevector/packs/widened.hpp"

#include <velacamplix/inner_products.hpp>

namespace velacamplix::observables {
namespace {

// conj(bra) * ket summed in index order, real and imaginary part side by side.
template <class Bra, class Ket>
thrust::complex<double> sum_of_products(const thrust::complex<Bra>* bra, const thrust::complex<Ket>* ket,
                                        unsigned long count) {
    using V = packs::single_pack<double>;
    V sum{};
    for (unsigned long i = 0; i < count; ++i) {
        const thrust::complex<double> b = packs::widened<double>(packs::read_amplitude(bra + i));
        const V k = packs::load_widened<V>(ket + i);
        // re = br*kr + bi*ki, im = br*ki - bi*kr.
        const V turned = packs::swap_parts(k) * packs::broadcast<V>(b.imag());
        sum += k * packs::broadcast<V>(b.real()) + packs::negate_imaginary(turned);
    }
    return {sum[0], sum[1]};
}

}  // namespace
}  // namespace velacamplix::observables

namespace pbamplix::cpu {

using namespace velacamplix;

template <class Bra, class Ket>
thrust::complex<double> overlap(const thrust::complex<Bra>* bra, const thrust::complex<Ket>* ket, unsigned long size,
                                int nthreads, const work_hook& hook) {
    const unsigned long length = std::min(size, 1ul << observables::block_bits);
    const unsigned long blocks = size == 0 ? 0 : size / length;
    thrust::complex<double> sums[observables::blocks_at_once];
    thrust::complex<double> total = 0;
    observables::sum_in_blocks(
        blocks, length * (sizeof(*bra) + sizeof(*ket)), size, nthreads, hook,
        [&](unsigned long block, unsigned long slot) {
            sums[slot] = observables::sum_of_products(bra + block * length, ket + block * length, length);
        },
        [&](unsigned long, unsigned long slot) { total += sums[slot]; });
    return total;
}

#define VELACAMPLIX_OVERLAP(Bra, Ket)                                                                                 \
    template thrust::complex<double> overlap(const thrust::complex<Bra>*, const thrust::complex<Ket>*, unsigned long, \
                                             int, const work_hook&);
VELACAMPLIX_OVERLAP(float, float)
VELACAMPLIX_OVERLAP(float, double)
VELACAMPLIX_OVERLAP(double, float)
VELACAMPLIX_OVERLAP(double, double)

}  // namespace pbamplix::cpu
