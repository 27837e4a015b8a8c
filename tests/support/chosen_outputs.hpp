#pragma once

#include <random>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace support {

// An engine whose next outputs are the given ones (at most 312): its state is computed backwards through the
// tempering of std::mt19937_64 and read in as text, 312 words and the position of the next one.
inline std::mt19937_64 engine_with_outputs(const std::vector<unsigned long>& outputs) {
    constexpr std::size_t words = std::mt19937_64::state_size;
    if (outputs.size() > words) throw std::invalid_argument("at most 312 outputs can be chosen");
    // Repeating y = x ^ (shifted(y) & mask) brings one more stretch of correct bits each time.
    const auto undo = [](unsigned long x, int left, unsigned long mask) {
        unsigned long y = x;
        for (int round = 0; round < 64; ++round) y = x ^ ((left > 0 ? y << left : y >> -left) & mask);
        return y;
    };
    std::stringstream state;
    for (std::size_t w = 0; w < words; ++w) {
        unsigned long x = w < outputs.size() ? outputs[w] : 0;
        x = undo(x, -43, ~0ul);
        x = undo(x, 37, 0xFFF7EEE000000000ul);
        x = undo(x, 17, 0x71D67FFFEDA60000ul);
        x = undo(x, -29, 0x5555555555555555ul);
        state << x << ' ';
    }
    state << 0;
    std::mt19937_64 engine;
    state >> engine;
    return engine;
}

}  // namespace support
