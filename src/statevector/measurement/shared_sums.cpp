#include "statevector/measurement/shared_sums.hpp"

#include <algorithm>
#include <bit>
#include <new>

namespace velacamplix::measurement {
namespace {

// Two sums, from the bottom and from one last place above it, through `count` elements one after another.
template <class T>
growth<T> growth_in_order(const T* probabilities, unsigned long count, sum_bits<T> bottom) {
    T even = std::bit_cast<T>(bottom), odd = std::bit_cast<T>(bottom + 1);
    for (unsigned long e = 0; e < count; ++e) {
        even += probabilities[e];
        odd += probabilities[e];
    }
    return {{std::bit_cast<sum_bits<T>>(even) - bottom, std::bit_cast<sum_bits<T>>(odd) - (bottom + 1)}};
}

// The same of 2^k elements that fit the first-level cache. Many such pairs of sums go side by side, each through
// elements of its own. Where none of these is a tie both sums grow alike; otherwise they grow differently, as both are
// even behind the first tie. Without ties the order is nothing, and the growths are added up.
template <class T>
growth<T> growth_of_piece(const T* probabilities, unsigned long count, sum_bits<T> bottom) {
    using V = packs::wide_pack<T>;
    using bits = typename packs::pack_type<sum_bits<T>, sizeof(V)>::type;
    constexpr unsigned pairs = 4;
    V even[pairs], odd[pairs];
    for (unsigned i = 0; i < pairs; ++i) {
        even[i] = packs::broadcast<V>(std::bit_cast<T>(bottom));
        odd[i] = packs::broadcast<V>(std::bit_cast<T>(bottom + 1));
    }
    const bits even_start = (bits)even[0], odd_start = (bits)odd[0];
    for (unsigned long e = 0; e < count; e += pairs * packs::scalars<V>) {
#pragma GCC unroll 4
        for (unsigned i = 0; i < pairs; ++i) {
            const V p = packs::load_scalars<V>(probabilities + e + i * packs::scalars<V>);
            even[i] += p;
            odd[i] += p;
        }
    }
    bits total{}, any{}, tied{};
    for (unsigned i = 0; i < pairs; ++i) {
        const bits grown = (bits)even[i] - even_start;
        total += grown;
        any |= grown;
        tied |= grown ^ ((bits)odd[i] - odd_start);
    }
    sum_bits<T> sum = 0, all = 0, ties = 0;
    for (unsigned s = 0; s < packs::scalars<V>; ++s) {
        sum += total[s];
        all |= any[s];
        ties |= tied[s];
    }
    if (all >= one_exponent<T>) return {{one_exponent<T>, one_exponent<T>}};
    if (ties != 0) return growth_in_order(probabilities, count, bottom);
    return {{sum, sum}};
}

// The sum at the end of elements, walked one after another.
template <class Seq, class T>
T walked(const Seq& view, unsigned long begin, unsigned long end, T sum) {
    walk_running_sum(view, begin, end, sum, [&](unsigned long, const T* sums, unsigned long count) {
        sum = sums[count - 1];
        return true;
    });
    return sum;
}

// About what elements add to a sum: in no order that matters.
template <class Seq>
typename Seq::proba_type estimate_of(const Seq& view, unsigned long begin, unsigned long end) {
    using T = typename Seq::proba_type;
    using V = packs::wide_pack<T>;
    constexpr unsigned long most = 512;
    alignas(64) T probabilities[most];
    const unsigned long piece = std::min(most, end - begin);
    T sum = T(0);
    V several{};
    for (unsigned long at = begin; at < end; at += piece) {
        fill_probabilities(view, at, piece, probabilities, std::min(at + piece, view.dim - piece));
        unsigned long e = 0;
        for (; e + packs::scalars<V> <= piece; e += packs::scalars<V>) {
            several += packs::load_scalars<V>(probabilities + e);
        }
        for (; e < piece; ++e) sum += probabilities[e];
    }
    for (unsigned s = 0; s < packs::scalars<V>; ++s) sum += several[s];
    return sum;
}

// How many blocks to look at next: as many as the exponent stays for if the sum goes on to grow as it did. But those
// that were looked at in vain shall not become more than the others.
template <class T>
unsigned long next_blocks(T sum, unsigned long done, unsigned long in_vain) {
    const auto bits = std::bit_cast<sum_bits<T>>(sum);
    const T room = std::bit_cast<T>(bottom_of<T>(bits) + one_exponent<T>) - sum;
    const T predicted = static_cast<T>(done) * (room / sum);
    const unsigned long most = std::min(done - std::min(in_vain, done), 4096ul);
    return predicted < static_cast<T>(most) ? static_cast<unsigned long>(predicted) : most;
}

}  // namespace

template <class Seq>
growth<typename Seq::proba_type> growth_of_block(const Seq& view, unsigned long first,
                                                 sum_bits<typename Seq::proba_type> bottom) {
    using T = typename Seq::proba_type;
    constexpr unsigned long piece = 512;
    alignas(64) T probabilities[piece];
    growth<T> all;
    for (unsigned long at = first; at < first + sum_block && !all.may_leave(); at += piece) {
        fill_probabilities(view, at, piece, probabilities, std::min(at + piece, view.dim - piece));
        all = all + growth_of_piece(probabilities, piece, bottom);
    }
    return all;
}

template <class Seq>
std::vector<typename Seq::proba_type> sums_of_blocks(const Seq& view, int nthreads, typename Seq::proba_type enough) {
    using T = typename Seq::proba_type;
    const unsigned long blocks = view.dim / sum_block;
    const unsigned long team = storage::most_bodies(blocks, ~0ul, nthreads);
    std::vector<T> sums;
    std::vector<growth<T>> some;
    try {
        sums.reserve(blocks);
        some.resize(std::min(blocks, std::max(team, 4096ul)));
    } catch (const std::bad_alloc&) {
        return {};
    }
    T sum = T(0);
    for (unsigned long in_vain = 0; sums.size() < blocks && !(enough <= sum);) {
        const unsigned long done = sums.size();
        const sum_bits<T> bottom = bottom_of<T>(std::bit_cast<sum_bits<T>>(sum));
        unsigned long count = std::min(std::max(team, next_blocks(sum, done, in_vain)), blocks - done);
        if (!(sum <= std::numeric_limits<T>::max())) count = 0;  // infinite or NaN: nothing is counted in last places
        storage::parallel_shares(count, count * sum_block * 2 * sizeof(T), nthreads,
                                 [&](unsigned long begin, unsigned long end) {
                                     for (unsigned long b = begin; b < end; ++b)
                                         some[b] = growth_of_block(view, (done + b) * sum_block, bottom);
                                 });
        unsigned long used = 0;
        for (; used < count; ++used) {
            const auto bits = std::bit_cast<sum_bits<T>>(sum);
            const sum_bits<T> after = bits + some[used].of(bits);
            if (some[used].may_leave() || bottom_of<T>(after) != bottom) break;
            sums.push_back(sum = std::bit_cast<T>(after));
        }
        in_vain += count - used;
        if (used == count && count != 0) continue;
        const unsigned long first = sums.size() * sum_block;
        sums.push_back(sum = walked(view, first, first + sum_block, sum));
    }
    return sums;
}

template <class Seq>
foreseen_sums<Seq>::foreseen_sums(const Seq& part, int nthreads)
    : part_(part), nthreads_(nthreads), estimates_(part.dim / block_size()), sums_(estimates_.size()) {
    storage::parallel_shares(estimates_.size(), bytes(), nthreads_, [&](unsigned long begin, unsigned long end) {
        for (unsigned long b = begin; b < end; ++b) {
            estimates_[b] = estimate_of(part_, b * block_size(), (b + 1) * block_size());
        }
    });
}

template <class Seq>
double foreseen_sums<Seq>::estimate() const {
    double sum = 0;
    for (const T block : estimates_) sum += static_cast<double>(block);
    return sum;
}

template <class Seq>
void foreseen_sums<Seq>::foresee(double before) {
    if (part_.dim < sum_block) return;
    bottoms_.clear();
    for (const T block : estimates_) {
        bottoms_.push_back(bottom_of<T>(std::bit_cast<sum_bits<T>>(static_cast<T>(before))));
        before += static_cast<double>(block);
    }
    growths_.resize(bottoms_.size());
    storage::parallel_shares(growths_.size(), bytes(), nthreads_, [&](unsigned long begin, unsigned long end) {
        for (unsigned long b = begin; b < end; ++b) growths_[b] = growth_of_block(part_, b * sum_block, bottoms_[b]);
    });
}

template <class Seq>
typename Seq::proba_type foreseen_sums<Seq>::run(T sum) {
    for (unsigned long b = 0; b < sums_.size(); ++b) {
        const auto bits = std::bit_cast<sum_bits<T>>(sum);
        if (b < growths_.size() && sum <= std::numeric_limits<T>::max() && bottom_of<T>(bits) == bottoms_[b] &&
            !growths_[b].may_leave() && bottom_of<T>(bits + growths_[b].of(bits)) == bottoms_[b]) {
            sum = std::bit_cast<T>(bits + growths_[b].of(bits));
        } else {
            sum = walked(part_, b * block_size(), (b + 1) * block_size(), sum);
        }
        sums_[b] = sum;
    }
    return sum;
}

#define VELACAMPLIX_INSTANTIATE(View)                                                                          \
    template growth<View::proba_type> growth_of_block(const View&, unsigned long, sum_bits<View::proba_type>); \
    template std::vector<View::proba_type> sums_of_blocks(const View&, int, View::proba_type);                 \
    template class foreseen_sums<View>;
VELACAMPLIX_INSTANTIATE(pbamplix::SVSequence<thrust::complex<float>>)
VELACAMPLIX_INSTANTIATE(pbamplix::SVSequence<thrust::complex<double>>)
VELACAMPLIX_INSTANTIATE(pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<float>>>)
VELACAMPLIX_INSTANTIATE(pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<double>>>)

}  // namespace velacamplix::measurement
