#pragma once

#include "statevector/measurement/running_sum.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <limits>
#include <type_traits>
#include <vector>

// The running sum of running_sum.hpp, bit for bit, formed by several threads.
//
// As long as a sum's exponent stays, its last place has one weight, and adding p >= 0 raises it by a whole number of
// last places. Which number follows from p alone, unless p lies halfway between two; then the sum is rounded to the
// even one, which depends on its last bit and makes that 0. So what a block of elements does to a sum is known before
// the sum is: two numbers, one for each last bit. Blocks in which the exponent changes are walked element by element.

namespace velacamplix::measurement {

// The bits of a number above or equal to 0, which count last places as long as the exponent stays. Zero and the
// subnormal numbers have an exponent of their own.
template <class T>
using sum_bits = std::make_unsigned_t<typename packs::precision<T>::integer>;

// One step of the exponent.
template <class T>
inline constexpr sum_bits<T> one_exponent = sum_bits<T>{1} << (std::numeric_limits<T>::digits - 1);

// The least number with a sum's exponent.
template <class T>
sum_bits<T> bottom_of(sum_bits<T> sum) {
    return sum & ~(one_exponent<T> - 1);
}

// By how many last places a run of elements raises a sum; one_exponent or more if the exponent may not stay. Then
// nothing else is known.
template <class T>
struct growth {
    sum_bits<T> by_last_bit[2] = {0, 0};

    sum_bits<T> of(sum_bits<T> sum) const { return by_last_bit[sum & 1]; }
    bool may_leave() const { return (by_last_bit[0] | by_last_bit[1]) >= one_exponent<T>; }
};

// First one run, then the next.
template <class T>
growth<T> operator+(growth<T> first, growth<T> second) {
    const auto both = [=](sum_bits<T> last_bit) {
        const sum_bits<T> half = first.of(last_bit);
        return half + second.of(last_bit + half);
    };
    if (first.may_leave() || second.may_leave()) return {{one_exponent<T>, one_exponent<T>}};
    return {{both(0), both(1)}};
}

inline constexpr unsigned long sum_block = 1ul << 14;

// What the elements first ... first + sum_block - 1 do to a sum whose exponent is that of `bottom`.
template <class Seq>
growth<typename Seq::proba_type> growth_of_block(const Seq& view, unsigned long first,
                                                 sum_bits<typename Seq::proba_type> bottom);

// Whether several threads would share the blocks of a view. Of fewer blocks each is read twice and little is won.
template <class Seq>
bool shares_sums(const Seq& view, int nthreads) {
    return view.dim >= 64 * sum_block && storage::shares_work(nthreads);
}

// The running sum at the end of every block of a view that shares_sums, up to the first that reaches `enough`; a NaN
// is never reached. Empty where memory runs out.
template <class Seq>
std::vector<typename Seq::proba_type> sums_of_blocks(const Seq& view, int nthreads, typename Seq::proba_type enough);

// The running sum through a part of a view, which begins with the sum of the parts before. What takes long is done
// before that sum is known: the blocks' growths, for the exponents that the sum is foreseen to have.
template <class Seq>
class foreseen_sums {
public:
    // Reads the part once; it must stay as it is.
    foreseen_sums(const Seq& part, int nthreads);

    // About what the part adds.
    double estimate() const;

    // Reads the part again, for a sum of about `before` before it.
    void foresee(double before);

    // Returns the sum at the part's end, and keeps those at the ends of its blocks. Blocks that were not foreseen
    // rightly are walked.
    typename Seq::proba_type run(typename Seq::proba_type before);
    const std::vector<typename Seq::proba_type>& at_blocks() const { return sums_; }

private:
    using T = typename Seq::proba_type;

    unsigned long block_size() const { return std::min(sum_block, part_.dim); }
    unsigned long bytes() const { return part_.dim * 2 * sizeof(T); }

    Seq part_;
    int nthreads_;
    std::vector<T> estimates_;  // of the blocks
    std::vector<sum_bits<T>> bottoms_;
    std::vector<growth<T>> growths_;
    std::vector<T> sums_;
};

}  // namespace velacamplix::measurement
