#include "statevector/measurement/sampling.hpp"

#include "statevector/measurement/draws.hpp"
#include "statevector/measurement/outcomes.hpp"
#include "statevector/measurement/release.hpp"
#include "statevector/measurement/running_sum.hpp"
#include "statevector/measurement/shared_sums.hpp"
#include "statevector/storage/parallel.hpp"

#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>

// A shot's index is the first i for which its number r is not above the running sum c of the probabilities 0 ... i;
// a NaN sum ends the search too. A number that is not above 0 has the index of all ones, one above the total the last
// index. Scans for many shots share one walk: shots wait in increasing order of r, and each sum releases those that
// are not above it. A sum that falls again releases nothing, and so changes nothing.
//
// Of a precise view a shot's number is a fraction of the total. The norm of a state in single precision drifts by some
// 1e-7 with every gate; numbers taken as they are would find what is missing, or lack what is too much, at the last
// index, and 10^7 shots show it there.

namespace velacamplix::measurement {
namespace {

// Writes to `shots` the index that each of the draws, sorted by number, comes to. Returns the last running sum it saw:
// the total, if the walk is to go to the end although every draw may have its index before.
template <class Seq>
typename Seq::proba_type release_draws(const Seq& view, const draw<typename Seq::proba_type>* waiting,
                                       const draw<typename Seq::proba_type>* end, unsigned long* shots, int nthreads,
                                       bool to_the_end = false) {
    using T = typename Seq::proba_type;
    for (; waiting != end && !(waiting->number > T(0)); ++waiting) shots[waiting->shot] = all_ones;
    T last = T(0);
    if (waiting == end && !to_the_end) return last;
    std::vector<T> sums;
    if constexpr (never_falls<Seq>) {
        const T enough = to_the_end ? std::numeric_limits<T>::quiet_NaN() : end[-1].number;
        if (shares_sums(view, nthreads)) sums = sums_of_blocks(view, nthreads, enough);
    }
    if (!sums.empty()) {
        last = sums.back();
        waiting = release_in_blocks(view, T(0), sums, waiting, end, shots, nthreads);
    } else {
        walk_running_sum(view, [&](unsigned long first, const T* part, unsigned long count) {
            last = part[count - 1];
            waiting = release<Seq>(waiting, end, first, part, count, shots);
            return to_the_end || waiting != end;
        });
    }
    for (; waiting != end; ++waiting) shots[waiting->shot] = view.dim - 1;
    return last;
}

template <class Seq>
inline constexpr bool numbers_are_fractions = false;
template <class Seq>
inline constexpr bool numbers_are_fractions<pbamplix::precise_view<Seq>> = true;

// Views so small that all their running sums are kept.
constexpr unsigned long most_kept = 1024;

// pick_shots for such a view: every shot looks its own number up, and none is sorted. Many take a step of count_below
// side by side, so that none waits for another.
template <class Rng, class Seq>
typename Seq::proba_type look_up_shots(const Seq& seq, typename Seq::proba_type factor, bool has_to_be_normalised,
                                       unsigned long* shots, Rng& rng, unsigned long nshots, int nthreads,
                                       const std::vector<unsigned int>& qubits) {
    using T = typename Seq::proba_type;
    T sums[most_kept];
    walk_running_sum(seq, [&](unsigned long first, const T* part, unsigned long count) {
        std::copy_n(part, count, sums + first);
        return true;
    });
    const T total = sums[seq.dim - 1];
    if (has_to_be_normalised && !is_normalised(static_cast<double>(total))) return total;

    unsigned long outcomes[most_kept];
    const bool keeps_outcomes = nshots >= seq.dim;
    for (unsigned long i = 0; keeps_outcomes && i < seq.dim; ++i) outcomes[i] = outcome_of(i, seq.nqubits, qubits);
    const unsigned long outcome_of_ones = outcome_of(all_ones, seq.nqubits, qubits);
#pragma omp critical
    for (unsigned long i = 0; i < nshots; ++i) shots[i] = rng();

    storage::parallel_shares(nshots, nshots * sizeof(*shots), nthreads, [&](unsigned long begin, unsigned long end) {
        constexpr unsigned long side_by_side = 256;
        T numbers[side_by_side];
        unsigned long below[side_by_side];
        for (unsigned long first = begin; first < end; first += side_by_side) {
            const unsigned long count = std::min(side_by_side, end - first);
            unsigned long* const some = shots + first;
            for (unsigned long i = 0; i < count; ++i) numbers[i] = share_of(uniform<T>(some[i]), factor);
            std::fill_n(below, count, 0ul);
            for (int level = std::countr_zero(seq.dim) - 1; level >= 0; --level) {
                const T* const middle = sums + (1ul << level) - 1;
                for (unsigned long i = 0; i < count; ++i) {
                    below[i] += static_cast<unsigned long>(numbers[i] > middle[below[i]]) << level;
                }
            }
            for (unsigned long i = 0; i < count; ++i) {
                if (!(numbers[i] > T(0))) {
                    some[i] = outcome_of_ones;
                } else {
                    some[i] = keeps_outcomes ? outcomes[below[i]] : outcome_of(below[i], seq.nqubits, qubits);
                }
            }
        }
    });
    return total;
}

// Draws shots whose numbers are multiplied by `factor`, and returns the last running sum of the first batch. Where the
// state has to be normalised this is the total, and no further batch follows if it is not near 1.
template <class Rng, class Seq>
typename Seq::proba_type pick_shots(const Seq& seq, typename Seq::proba_type factor, bool has_to_be_normalised,
                                    unsigned long* shots, Rng& rng, unsigned long nshots, int nthreads,
                                    const std::vector<unsigned int>& qubits) {
    using T = typename Seq::proba_type;
    if constexpr (never_falls<Seq>) {
        if (seq.dim <= most_kept) {
            return look_up_shots(seq, factor, has_to_be_normalised, shots, rng, nshots, nthreads, qubits);
        }
    }
    const auto draws = std::make_unique_for_overwrite<draw<T>[]>(std::min(nshots, most_draws_at_once));
    T total = T(0);

    with_engine(rng, [&] {
        for (unsigned long first = 0; first < nshots; first += most_draws_at_once) {
            const auto count = static_cast<unsigned int>(std::min(nshots - first, most_draws_at_once));
            unsigned long* const batch = shots + first;  // holds the engine's outputs, then indices, then outcomes
#pragma omp critical
            for (unsigned int i = 0; i < count; ++i) batch[i] = rng();

            sort_draws(batch, count, draws.get(), nthreads);
            if (factor != T(1)) {
                for (draw<T>* d = draws.get(); d != draws.get() + count; ++d) d->number = share_of(d->number, factor);
            }
            const bool to_the_end = has_to_be_normalised && first == 0;
            const T last = release_draws(seq, draws.get(), draws.get() + count, batch, nthreads, to_the_end);
            if (first == 0) total = last;
            if (to_the_end && !is_normalised(static_cast<double>(total))) break;
            storage::parallel_shares(count, count * sizeof(*batch), nthreads,
                                     [&](unsigned long begin, unsigned long end) {
                                         for (unsigned long i = begin; i < end; ++i)
                                             batch[i] = outcome_of(batch[i], seq.nqubits, qubits);
                                     });
        }
    });
    return total;
}

}  // namespace

// The last of the running sums itself, so that no fraction of it comes to lie above it.
template <class Seq>
double total_of(const Seq& view, int nthreads) {
    const draw<double>* const none = nullptr;
    return release_draws(view, none, none, nullptr, nthreads, true);
}

template double total_of(const pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<float>>>&, int);
template double total_of(const pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<double>>>&, int);

bool is_normalised(double total) { return std::abs(total - 1) <= 1e-9; }

void require_total(double total) {
    if (total > 0 && std::isfinite(total)) return;
    std::ostringstream text;
    text << "there is nothing to draw from: the probabilities of the state must add up to a finite number above 0, got "
         << total;
    throw std::domain_error(text.str());
}

template <class Seq>
unsigned long draw_outcome(const Seq& view, std::mt19937_64& rng, const std::vector<unsigned int>& qubits,
                           int nthreads) {
    using T = typename Seq::proba_type;
    unsigned long output;
#pragma omp critical
    output = rng();
    const draw<T> only{uniform<T>(output), 0};
    unsigned long index;
    release_draws(view, &only, &only + 1, &index, nthreads);
    return outcome_of(index, view.nqubits, qubits);
}

template unsigned long draw_outcome(const pbamplix::SVSequence<thrust::complex<float>>&, std::mt19937_64&,
                                    const std::vector<unsigned int>&, int);
template unsigned long draw_outcome(const pbamplix::SVSequence<thrust::complex<double>>&, std::mt19937_64&,
                                    const std::vector<unsigned int>&, int);
template unsigned long draw_outcome(const pbamplix::DMDiagSequence<float>&, std::mt19937_64&,
                                    const std::vector<unsigned int>&, int);
template unsigned long draw_outcome(const pbamplix::DMDiagSequence<double>&, std::mt19937_64&,
                                    const std::vector<unsigned int>&, int);

}  // namespace velacamplix::measurement

namespace pbamplix::cpu {

using namespace velacamplix;

template <class Rng, class Seq>
void pick_shots_state(Seq seq, unsigned long* shots, Rng& rng, const unsigned long& nshots, const int& nthreads,
                      const std::vector<unsigned int>& qubits) {
    using T = typename Seq::proba_type;
    T factor = T(1);
    if constexpr (measurement::numbers_are_fractions<Seq>) {
        const T total = measurement::total_of(seq, nthreads);
        if (std::isfinite(total)) factor = total;  // else no fraction means anything
    }
    measurement::pick_shots(seq, factor, false, shots, rng, nshots, nthreads, qubits);
}

template <class Rng, class Seq>
void pick_shots_of_any_norm(Seq seq, unsigned long* shots, Rng& rng, const unsigned long& nshots, const int& nthreads,
                            const std::vector<unsigned int>& qubits) {
    if (nshots == 0) return;
    double total;
    if constexpr (measurement::numbers_are_fractions<Seq>) {
        total = measurement::total_of(seq, nthreads);
    } else {
        const Rng before = rng;
        total = measurement::pick_shots(seq, 1.0, true, shots, rng, nshots, nthreads, qubits);
        if (measurement::is_normalised(total)) return;
        rng = before;
    }
    measurement::require_total(total);
    measurement::pick_shots(seq, total, false, shots, rng, nshots, nthreads, qubits);
}

#define VELACAMPLIX_PICK_SHOTS(Seq)                                                                           \
    template void pick_shots_state(Seq, unsigned long*, std::mt19937_64&, const unsigned long&, const int&,   \
                                   const std::vector<unsigned int>&);                                         \
    template void pick_shots_state(precise_view<Seq>, unsigned long*, std::mt19937_64&, const unsigned long&, \
                                   const int&, const std::vector<unsigned int>&);
VELACAMPLIX_PICK_SHOTS(SVSequence<thrust::complex<float>>)
VELACAMPLIX_PICK_SHOTS(SVSequence<thrust::complex<double>>)
VELACAMPLIX_PICK_SHOTS(DMDiagSequence<float>)
VELACAMPLIX_PICK_SHOTS(DMDiagSequence<double>)
#undef VELACAMPLIX_PICK_SHOTS

#define VELACAMPLIX_PICK_SHOTS_OF_ANY_NORM(Seq)                                                                   \
    template void pick_shots_of_any_norm(Seq, unsigned long*, std::mt19937_64&, const unsigned long&, const int&, \
                                         const std::vector<unsigned int>&);
VELACAMPLIX_PICK_SHOTS_OF_ANY_NORM(SVSequence<thrust::complex<double>>)
VELACAMPLIX_PICK_SHOTS_OF_ANY_NORM(DMDiagSequence<double>)
VELACAMPLIX_PICK_SHOTS_OF_ANY_NORM(precise_view<SVSequence<thrust::complex<float>>>)
VELACAMPLIX_PICK_SHOTS_OF_ANY_NORM(precise_view<DMDiagSequence<float>>)
#undef VELACAMPLIX_PICK_SHOTS_OF_ANY_NORM

template void pick_shots_of_any_norm(SVSequence<thrust::complex<double>>, unsigned long*, measurement::given_outputs&,
                                     const unsigned long&, const int&, const std::vector<unsigned int>&);
template void pick_shots_of_any_norm(precise_view<SVSequence<thrust::complex<float>>>, unsigned long*,
                                     measurement::given_outputs&, const unsigned long&, const int&,
                                     const std::vector<unsigned int>&);

}  // namespace pbamplix::cpu
