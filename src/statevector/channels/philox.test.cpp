#include "statevector/channels/shot_numbers.hpp"

#include <gtest/gtest.h>

#include <set>
#include <vector>

using pbamplix::cpu::philox;
using Words = std::array<std::uint32_t, 4>;

// The vectors that were published with the generator.
TEST(philox, gives_the_known_answers) {
    EXPECT_EQ(philox({0, 0, 0, 0}, {0, 0}), (Words{0x6627e8d5, 0xe169c58d, 0xbc57ac4c, 0x9b00dbd8}));
    EXPECT_EQ(philox({0xffffffff, 0xffffffff, 0xffffffff, 0xffffffff}, {0xffffffff, 0xffffffff}),
              (Words{0x408f276d, 0x41c83b0e, 0xa20bc7c6, 0x6d5451fd}));
    EXPECT_EQ(philox({0x243f6a88, 0x85a308d3, 0x13198a2e, 0x03707344}, {0xa4093822, 0x299f31d0}),
              (Words{0xd16cfe09, 0x94fdcceb, 0x5001e420, 0x24126ea1}));
}

TEST(philox, numbers_of_a_shot_are_those_the_header_tells) {
    const velacamplix::channels::shot_numbers numbers{0x1111111122222222, 0x3333333344444444, 8};
    const auto drawn = philox({0x44444444, 0x33333333, 5, 10}, {0x22222222, 0x11111111});
    const auto words = numbers.words(pbamplix::cpu::shot_stream::readout, 5);
    EXPECT_EQ(words[0], drawn[0] | std::uint64_t{drawn[1]} << 32);
    EXPECT_EQ(words[1], drawn[2] | std::uint64_t{drawn[3]} << 32);

    const unsigned long shots[] = {7, 0x3333333344444444, 0x3333333344444445};
    unsigned long first[3];
    pbamplix::cpu::shot_words(0x1111111122222222, shots, 3, 5, 10, first);
    EXPECT_EQ(first[1], words[0]);
    EXPECT_EQ(std::set<unsigned long>(first, first + 3).size(), 3u);
}

TEST(philox, many_shots_have_the_words_of_each) {
    std::vector<unsigned long> shots;
    for (unsigned long i = 0; i < 37; ++i) shots.push_back(i * 0x123456789);
    std::vector<std::uint64_t> first(37), second(37);
    for (const unsigned long count : {0ul, 1ul, 16ul, 37ul}) {
        const std::uint64_t seed = 0xFFFFFFFF80000001 + count;
        velacamplix::channels::words_of_shots(seed, 4, pbamplix::cpu::shot_stream::readout, 7, shots.data(), count,
                                              first.data(), second.data());
        for (unsigned long i = 0; i < count; ++i) {
            const velacamplix::channels::shot_numbers numbers{seed, shots[i], 4};
            const auto words = numbers.words(pbamplix::cpu::shot_stream::readout, 7);
            EXPECT_EQ(first[i], words[0]);
            EXPECT_EQ(second[i], words[1]);
        }
    }
}

TEST(philox, unit_numbers_stay_below_one) {
    EXPECT_EQ(velacamplix::channels::unit_number(0), 0.0);
    EXPECT_LT(velacamplix::channels::unit_number(~0ul), 1.0);
}
