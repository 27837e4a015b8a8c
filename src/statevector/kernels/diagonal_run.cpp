#include "statevector/kernels/diagonal_run.hpp"

#include "statevector/packs/parts.hpp"

namespace velacamplix::kernels {
namespace {

template <class V>
[[gnu::always_inline]] inline void load_parts(const thrust::complex<scalar_of<V>>* from, V& re, V& im) {
    const V first = load<V>(from);
    const V second = load<V>(from + lanes<V>);
    re = real_parts(first, second);
    im = imaginary_parts(first, second);
}

template <class V>
[[gnu::always_inline]] inline void store_parts(thrust::complex<scalar_of<V>>* to, V re, V im) {
    store(to, first_amplitudes(re, im));
    store(to + lanes<V>, second_amplitudes(re, im));
}

}  // namespace

template <class T>
void diagonal_run<T>::add_inside(unsigned position, thrust::complex<T> d0, thrust::complex<T> d1) {
    entry& e = entries_.emplace_back();
    constexpr unsigned inside_pair = lane_bits<V> + 1;
    if (position >= inside_pair) e.shift = position - inside_pair;
    for (unsigned variant = 0; variant < 2; ++variant) {
        for (unsigned lane = 0; lane < amplitudes_per_pair; ++lane) {
            const bool one = position >= inside_pair ? variant == 1 : ((lane >> position) & 1) != 0;
            e.of[variant].re[lane] = (one ? d1 : d0).real();
            e.of[variant].im[lane] = (one ? d1 : d0).imag();
        }
    }
}

template <class T>
void diagonal_run<T>::add_outside(unsigned long bit, thrust::complex<T> d0, thrust::complex<T> d1) {
    entry& e = entries_.emplace_back();
    e.outside = bit;
    e.of[0] = {broadcast<V>(d0.real()), broadcast<V>(d0.imag())};
    e.of[1] = {broadcast<V>(d1.real()), broadcast<V>(d1.imag())};
}

template <class T>
unsigned long diagonal_run<T>::outside() const {
    unsigned long bits = 0;
    for (const entry& e : entries_) bits |= e.outside;
    return bits;
}

template <class T>
void diagonal_run<T>::run(thrust::complex<T>* array, unsigned long base) const {
    const unsigned long pairs = (1ul << nbqbits_) / amplitudes_per_pair;
    const entry* const begin = entries_.data();
    const entry* const end = begin + entries_.size();
    for (unsigned long pair = 0; pair < pairs; pair += pairs_at_once) {
        thrust::complex<T>* const at = array + pair * amplitudes_per_pair;
        V re[pairs_at_once], im[pairs_at_once];
        for (unsigned k = 0; k < pairs_at_once; ++k) load_parts<V>(at + k * amplitudes_per_pair, re[k], im[k]);
        for (const entry* e = begin; e != end; ++e) {
            const unsigned long everywhere = (base & e->outside) != 0 ? 1 : 0;
            for (unsigned k = 0; k < pairs_at_once; ++k) {
                const factors& d = e->of[everywhere | (((pair + k) >> e->shift) & 1)];
                const V old = re[k];
                re[k] = old * d.re - im[k] * d.im;
                im[k] = im[k] * d.re + old * d.im;
            }
        }
        for (unsigned k = 0; k < pairs_at_once; ++k) store_parts<V>(at + k * amplitudes_per_pair, re[k], im[k]);
    }
}

template class diagonal_run<float>;
template class diagonal_run<double>;

}  // namespace velacamplix::kernels
