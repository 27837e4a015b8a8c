#pragma once

#include <velacamplix/trajectories.hpp>

namespace velacamplix::channels {

using pbamplix::cpu::shot_stream;

// The random numbers of one shot: two words of 64 bits for every index of a stream.
struct shot_numbers {
    std::uint64_t seed;
    std::uint64_t shot;
    std::uint32_t first_stream = 0;

    std::array<std::uint64_t, 2> words(shot_stream of, std::uint32_t index) const {
        const auto low = [](std::uint64_t word) { return static_cast<std::uint32_t>(word); };
        const auto drawn =
            pbamplix::cpu::philox({low(shot), low(shot >> 32), index, first_stream + static_cast<std::uint32_t>(of)},
                                  {low(seed), low(seed >> 32)});
        return {drawn[0] | std::uint64_t{drawn[1]} << 32, drawn[2] | std::uint64_t{drawn[3]} << 32};
    }
};

// The same for `count` shots with numbers of their own, side by side where the processor can. Writes the first and
// the second word of each.
void words_of_shots(std::uint64_t seed, std::uint32_t first_stream, shot_stream of, std::uint32_t index,
                    const unsigned long* shots, unsigned long count, std::uint64_t* first, std::uint64_t* second);

// A number in [0, 1) with 53 random bits.
inline double unit_number(std::uint64_t word) { return static_cast<double>(word >> 11) * 0x1p-53; }

}  // namespace velacamplix::channels
