#include <velacamplix/trajectories.hpp>

namespace pbamplix::cpu {

std::array<std::uint32_t, 4> philox(std::array<std::uint32_t, 4> counter, std::array<std::uint32_t, 2> key) {
    constexpr std::uint64_t multipliers[] = {0xD2511F53, 0xCD9E8D57};
    constexpr std::uint32_t key_steps[] = {0x9E3779B9, 0xBB67AE85};
    for (int round = 0; round < 10; ++round) {
        const std::uint64_t first = multipliers[0] * counter[0], second = multipliers[1] * counter[2];
        counter = {static_cast<std::uint32_t>(second >> 32) ^ counter[1] ^ key[0], static_cast<std::uint32_t>(second),
                   static_cast<std::uint32_t>(first >> 32) ^ counter[3] ^ key[1], static_cast<std::uint32_t>(first)};
        for (int i = 0; i < 2; ++i) key[i] += key_steps[i];
    }
    return counter;
}

}  // namespace pbamplix::cpu
