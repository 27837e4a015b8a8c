#include "statevector/observables/sampled_parity.hpp"

#include "statevector/measurement/draws.hpp"
#include "statevector/packs/precision.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>

namespace velacamplix::observables {

// The engine's order alone decides, so the number of threads does not matter. Parities are counted in integers: that is
// the sum of +1 and -1 wherever such a sum is exact, and does not stall at 2^24 in single precision.
template <class T, class Engine>
unsigned long count_odd(const std::vector<T>& cumulative, unsigned long shots, Engine& rng) {
    unsigned long odd = 0;
    for (unsigned long shot = 0; shot < shots; ++shot) {
        const T draw = measurement::uniform<T>(rng());
        // The first position not below the draw; behind the end, at 2^k, where the table stays below it: odd as well.
        const auto position = std::lower_bound(cumulative.begin(), cumulative.end(), draw) - cumulative.begin();
        odd += std::popcount(static_cast<unsigned long>(position)) & 1;
    }
    return odd;
}

template <class T>
std::pair<thrust::complex<T>, thrust::complex<T>> weighted_parity(unsigned long odd, unsigned long shots,
                                                                  const thrust::complex<T>& coefficient) {
    const long sum = static_cast<long>(shots) - 2 * static_cast<long>(odd);
    const T mean = static_cast<T>(sum) / static_cast<T>(shots);  // no shots: NaN
    const T error = shots <= 1 ? T(0) : std::sqrt((T(1) - mean * mean) / static_cast<T>(shots - 1));
    return {coefficient * mean, coefficient * error};
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                           \
    template unsigned long count_odd(const std::vector<T>&, unsigned long, std::mt19937_64&);                \
    template std::pair<thrust::complex<T>, thrust::complex<T>> weighted_parity(unsigned long, unsigned long, \
                                                                               const thrust::complex<T>&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::observables
