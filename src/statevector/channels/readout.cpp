#include "statevector/channels/event_times.hpp"
#include "statevector/channels/shot_numbers.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <numeric>

namespace pbamplix::cpu {

using namespace velacamplix;

void shot_words(std::uint64_t seed, const unsigned long* shots, unsigned long count, std::uint32_t index,
                std::uint32_t stream, unsigned long* out) {
    for (unsigned long s = 0; s < count; ++s) {
        const channels::shot_numbers numbers{seed, shots[s], stream};
        out[s] = numbers.words(shot_stream::events, index)[0];
    }
}

void apply_readout_errors(unsigned long* rows, unsigned long shots, unsigned long words,
                          const std::vector<readout_error>& errors, std::uint64_t seed, unsigned long first_shot,
                          int nthreads) {
    // A bit is looked at with the larger of its two probabilities, and flipped with what that leaves of its own.
    std::vector<double> looked_at;
    looked_at.reserve(errors.size());
    for (const readout_error& error : errors) {
        looked_at.push_back(std::max(error.one_given_zero, error.zero_given_one));
    }
    const channels::event_times times(looked_at);
    const unsigned long bits = errors.size();
    storage::parallel_shares(shots, shots * 64, nthreads, [&](unsigned long begin, unsigned long end) {
        constexpr unsigned long at_once = 256;
        unsigned long numbers[at_once], places[at_once], from[at_once];
        std::uint64_t times_drawn[at_once], choices[at_once];
        for (; begin < end; begin += at_once) {
            // Those that are still read, and from which bit on.
            unsigned long left = std::min(at_once, end - begin);
            std::iota(places, places + left, begin);
            std::fill_n(from, left, 0ul);
            for (std::uint32_t index = 0; left != 0; ++index) {
                for (unsigned long i = 0; i < left; ++i) numbers[i] = first_shot + places[i];
                channels::words_of_shots(seed, 0, shot_stream::readout, index, numbers, left, times_drawn, choices);
                unsigned long going_on = 0;
                for (unsigned long i = 0; i < left; ++i) {
                    const unsigned long bit = times.next(from[i], channels::unit_number(times_drawn[i]));
                    if (bit == bits) continue;
                    const unsigned long from_the_right = bits - 1 - bit;
                    unsigned long& word = rows[places[i] * words + words - 1 - from_the_right / 64];
                    const bool is_one = (word >> from_the_right % 64 & 1) != 0;
                    const double flips = is_one ? errors[bit].zero_given_one : errors[bit].one_given_zero;
                    if (channels::unit_number(choices[i]) * looked_at[bit] < flips) word ^= 1ul << from_the_right % 64;
                    if (bit + 1 == bits) continue;
                    places[going_on] = places[i];
                    from[going_on++] = bit + 1;
                }
                left = going_on;
            }
        }
    });
}

}  // namespace pbamplix::cpu
