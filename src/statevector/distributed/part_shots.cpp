#include "statevector/measurement/outcomes.hpp"
#include "statevector/measurement/release.hpp"
#include "statevector/measurement/sampling.hpp"
#include "statevector/measurement/shared_sums.hpp"
#include "statevector/measurement/views.hpp"

#include <velacamplix/part_shots.hpp>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace pbamplix::cpu {

using namespace velacamplix;
using measurement::draw;

template <class T>
struct part_shots<T>::implementation {
    using View = decltype(measurement::view_summed_in<double>(static_cast<const thrust::complex<T>*>(nullptr), 0));

    View view;
    unsigned int state_qubits;
    unsigned long number;
    int nthreads;
    measurement::foreseen_sums<View> sums;
    double before = 0;

    bool is_first() const { return number == 0; }
    bool is_last() const { return number == (1ul << (state_qubits - view.nqubits)) - 1; }

    // Writes the index in the whole state of every draw that finds it here, and marks it.
    void release(const draw<double>* draws, const draw<double>* end, unsigned long* indices, bool* is_mine) const {
        const draw<double>* const above_0 = measurement::first_above(draws, end, 0.0);
        const draw<double>* const first =
            is_first() ? above_0 : std::max(above_0, measurement::first_above(draws, end, before));
        const draw<double>* const left =
            measurement::release_in_blocks(view, before, sums.at_blocks(), first, end, indices, nthreads);
        for (const draw<double>* d = first; d != left; ++d) {
            indices[d->shot] |= number << view.nqubits;
            is_mine[d->shot] = true;
        }
        const auto all_at = [&](const draw<double>* d, const draw<double>* stop, unsigned long index) {
            for (; d != stop; ++d) {
                indices[d->shot] = index;
                is_mine[d->shot] = true;
            }
        };
        if (is_first()) all_at(draws, above_0, measurement::all_ones);
        if (is_last()) all_at(left, end, (1ul << state_qubits) - 1);
    }
};

template <class T>
part_shots<T>::part_shots(const thrust::complex<T>* part, unsigned int part_qubits, unsigned int state_qubits,
                          unsigned long number, int nthreads) {
    if (state_qubits > 63 || part_qubits > state_qubits || number >> (state_qubits - part_qubits) != 0) {
        throw std::invalid_argument("A state of " + std::to_string(state_qubits) + " qubits has no part " +
                                    std::to_string(number) + " of " + std::to_string(part_qubits) + " qubits");
    }
    const auto view = measurement::view_summed_in<double>(part, part_qubits);
    self.reset(new implementation{view, state_qubits, number, nthreads, {view, nthreads}});
}
template <class T>
part_shots<T>::~part_shots() = default;
template <class T>
part_shots<T>::part_shots(part_shots&&) noexcept = default;
template <class T>
part_shots<T>& part_shots<T>::operator=(part_shots&&) noexcept = default;

template <class T>
double part_shots<T>::estimate() const {
    return self->sums.estimate();
}

template <class T>
void part_shots<T>::foresee(double before) {
    self->sums.foresee(before);
}

template <class T>
double part_shots<T>::run(double before) {
    self->before = before;
    return self->sums.run(before);
}

template <class T>
void part_shots<T>::write(double total, std::mt19937_64& rng, unsigned long* shots, unsigned long nshots,
                          const std::vector<unsigned int>& qubits) const {
    measurement::require_total(total);
    const double factor = std::is_same_v<T, double> && measurement::is_normalised(total) ? 1 : total;
    const unsigned long most = std::min(nshots, measurement::most_draws_at_once);
    const auto draws = std::make_unique_for_overwrite<draw<double>[]>(most);
    const auto is_mine = std::make_unique_for_overwrite<bool[]>(most);
    measurement::with_engine(rng, [&] {
        for (unsigned long first = 0; first < nshots; first += most) {
            const auto count = static_cast<unsigned int>(std::min(nshots - first, most));
            unsigned long* const batch = shots + first;  // holds the engine's outputs, then indices, then outcomes
            for (unsigned int i = 0; i < count; ++i) batch[i] = rng();
            measurement::sort_draws(batch, count, draws.get(), self->nthreads);
            for (unsigned int i = 0; i < count; ++i) draws[i].number = measurement::share_of(draws[i].number, factor);
            std::fill_n(is_mine.get(), count, false);
            self->release(draws.get(), draws.get() + count, batch, is_mine.get());
            for (unsigned int i = 0; i < count; ++i) {
                batch[i] = is_mine[i] ? measurement::outcome_of(batch[i], self->state_qubits, qubits) : 0;
            }
        }
    });
}

template class part_shots<float>;
template class part_shots<double>;

}  // namespace pbamplix::cpu
