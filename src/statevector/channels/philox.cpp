#include "statevector/channels/shot_numbers.hpp"

#include <algorithm>

namespace pbamplix::cpu {

namespace {

constexpr int rounds = 10;
constexpr std::uint64_t multipliers[] = {0xD2511F53, 0xCD9E8D57};
constexpr std::uint32_t key_steps[] = {0x9E3779B9, 0xBB67AE85};

}  // namespace

std::array<std::uint32_t, 4> philox(std::array<std::uint32_t, 4> counter, std::array<std::uint32_t, 2> key) {
    for (int round = 0; round < rounds; ++round) {
        const std::uint64_t first = multipliers[0] * counter[0], second = multipliers[1] * counter[2];
        counter = {static_cast<std::uint32_t>(second >> 32) ^ counter[1] ^ key[0], static_cast<std::uint32_t>(second),
                   static_cast<std::uint32_t>(first >> 32) ^ counter[3] ^ key[1], static_cast<std::uint32_t>(first)};
        for (int i = 0; i < 2; ++i) key[i] += key_steps[i];
    }
    return counter;
}

}  // namespace pbamplix::cpu

namespace velacamplix::channels {

namespace {

// Only AVX-512 multiplies words of 64 bits in vectors; elsewhere one after the other takes no longer.
#if defined(__AVX512DQ__)
constexpr unsigned long lanes = 8;
#else
constexpr unsigned long lanes = 1;
#endif

// Words of 32 bits in places of 64, where their products fit.
using places = std::uint64_t __attribute__((vector_size(8 * lanes)));

// Philox of a counter in every lane, under one key.
void philox_in_lanes(places (&counter)[4], std::uint32_t key0, std::uint32_t key1) {
    constexpr std::uint64_t low = 0xFFFFFFFF;
    auto [word0, word1, word2, word3] = counter;
    for (int round = 0; round < pbamplix::cpu::rounds; ++round) {
        const places first = word0 * pbamplix::cpu::multipliers[0], second = word2 * pbamplix::cpu::multipliers[1];
        word0 = (second >> 32) ^ word1 ^ std::uint64_t{key0};
        word1 = second & low;
        word2 = (first >> 32) ^ word3 ^ std::uint64_t{key1};
        word3 = first & low;
        key0 += pbamplix::cpu::key_steps[0];
        key1 += pbamplix::cpu::key_steps[1];
    }
    counter[0] = word0, counter[1] = word1, counter[2] = word2, counter[3] = word3;
}

}  // namespace

void words_of_shots(std::uint64_t seed, std::uint32_t first_stream, shot_stream of, std::uint32_t index,
                    const unsigned long* shots, unsigned long count, std::uint64_t* first, std::uint64_t* second) {
    for (unsigned long done = 0; done < count; done += lanes) {
        const unsigned long some = std::min(lanes, count - done);
        places counter[4] = {};
        for (unsigned long i = 0; i < lanes; ++i) {
            const unsigned long shot = shots[done + (i < some ? i : 0)];
            counter[0][i] = static_cast<std::uint32_t>(shot);
            counter[1][i] = shot >> 32;
            counter[2][i] = index;
            counter[3][i] = first_stream + static_cast<std::uint32_t>(of);
        }
        philox_in_lanes(counter, static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32));
        const places words[] = {counter[0] | counter[1] << 32, counter[2] | counter[3] << 32};
        for (unsigned long i = 0; i < some; ++i) {
            first[done + i] = words[0][i];
            second[done + i] = words[1][i];
        }
    }
}

}  // namespace velacamplix::channels
