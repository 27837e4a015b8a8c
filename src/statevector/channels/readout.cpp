#include "statevector/channels/event_times.hpp"
#include "statevector/channels/shot_numbers.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>

namespace pbamplix::cpu {

using namespace velacamplix;

void shot_words(std::uint64_t seed, unsigned long first_shot, unsigned long count, std::uint32_t index,
                std::uint32_t stream, unsigned long* out) {
    for (unsigned long s = 0; s < count; ++s) {
        const channels::shot_numbers numbers{seed, first_shot + s, stream};
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
        for (unsigned long s = begin; s < end; ++s) {
            const channels::shot_numbers numbers{seed, first_shot + s};
            unsigned long bit = 0;
            for (std::uint32_t index = 0; bit < bits; ++index, ++bit) {
                const auto drawn = numbers.words(shot_stream::readout, index);
                bit = times.next(bit, channels::unit_number(drawn[0]));
                if (bit == bits) break;
                const unsigned long from_the_right = bits - 1 - bit;
                unsigned long& word = rows[s * words + words - 1 - from_the_right / 64];
                const bool is_one = (word >> from_the_right % 64 & 1) != 0;
                const double flips = is_one ? errors[bit].zero_given_one : errors[bit].one_given_zero;
                if (channels::unit_number(drawn[1]) * looked_at[bit] < flips) word ^= 1ul << from_the_right % 64;
            }
        }
    });
}

}  // namespace pbamplix::cpu
