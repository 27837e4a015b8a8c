#include "statevector/index/bits.hpp"

#include "reference/indices.hpp"

#include <velacamplix/index.hpp>

#include <gtest/gtest.h>

#include <random>

using namespace velacamplix;
using pbamplix::cpu::lsb_msb_4qb;
using pbamplix::cpu::swap_lsb_msb;

TEST(bits, deposit_puts_bit_t_on_the_t_th_set_bit) {
    EXPECT_EQ(index::deposit(0b101, 0b11010), 0b10010ul);
    EXPECT_EQ(index::deposit(0b1, 1ul << 63), 1ul << 63);
    EXPECT_EQ(index::deposit(0xFFFF, 0b11010), 0b11010ul);
}

TEST(bits, deposit_into_an_empty_mask_is_0) { EXPECT_EQ(index::deposit(~0ul, 0), 0ul); }

TEST(bits, extract_gathers_the_bits_under_the_mask) {
    EXPECT_EQ(index::extract(0b10010, 0b11010), 0b101ul);
    EXPECT_EQ(index::extract(1ul << 63, 1ul << 63), 1ul);
    EXPECT_EQ(index::extract(~0ul, 0b11010), 0b111ul);
}

TEST(bits, extract_under_an_empty_mask_is_0) { EXPECT_EQ(index::extract(~0ul, 0), 0ul); }

TEST(bits, deposit_and_extract_agree_with_the_reference) {
    std::mt19937_64 engine(1);
    for (int trial = 0; trial < 2000; ++trial) {
        // From sparse to dense masks.
        unsigned long mask = engine();
        for (int i = 0; i < trial % 4; ++i) mask &= engine();
        const unsigned long value = engine();
        ASSERT_EQ(index::deposit(value, mask), reference::deposit(value, mask)) << value << " into " << mask;
        ASSERT_EQ(index::extract(value, mask), reference::extract(value, mask)) << value << " under " << mask;
        ASSERT_EQ(index::deposit(index::extract(value, mask), mask), value & mask);
    }
}

TEST(bits, next_skips_what_is_not_free_and_ends_with_0) {
    EXPECT_EQ(index::next(0b00000, 0b11010), 0b00010ul);
    EXPECT_EQ(index::next(0b00010, 0b11010), 0b01000ul);
    EXPECT_EQ(index::next(0b01010, 0b11010), 0b10000ul);
    EXPECT_EQ(index::next(0b11010, 0b11010), 0ul);
    EXPECT_EQ(index::next(0b00110, 0b11010), 0b01000ul) << "what the other bits hold plays no part";
    EXPECT_EQ(index::next(0, 0), 0ul);
    for (const unsigned long free : {0ul, 0b11010ul, 0b1ul, ~0b11010ul, ~0ul}) {
        unsigned long i = 0;
        for (int step = 0; step < 40; ++step) {
            EXPECT_EQ(index::next_within(i, free), index::next(i, free)) << "bits " << free << ", index " << i;
            i = index::next(i, free);
        }
    }
}

TEST(bits, free_indices_are_the_deposited_numbers_in_order) {
    std::mt19937_64 engine(3);
    for (int trial = 0; trial < 200; ++trial) {
        unsigned long free = engine();
        while (index::count_bits(free) > 9) free &= engine();
        unsigned long number = 0;
        for (const unsigned long i : index::free_indices(free)) ASSERT_EQ(i, reference::deposit(number++, free));
        EXPECT_EQ(number, 1ul << index::count_bits(free));

        const unsigned long first = number / 3;
        unsigned long from = first;
        for (const unsigned long i : index::free_indices(free, first, number - first)) {
            ASSERT_EQ(i, reference::deposit(from++, free));
        }
        EXPECT_EQ(from, number);
    }
}

TEST(bits, all_distinct_wants_every_qubit_once_and_below_n) {
    EXPECT_TRUE(index::all_distinct({}));
    EXPECT_TRUE(index::all_distinct({5, 0, 63}));
    EXPECT_FALSE(index::all_distinct({5, 0, 5}));
    EXPECT_TRUE(index::all_distinct({2, 0}, 3));
    EXPECT_FALSE(index::all_distinct({3, 0}, 3));
}

TEST(swap_lsb_msb, of_1_over_3_bits_is_4_and_of_6_is_3) {
    EXPECT_EQ(swap_lsb_msb(1, 3), 4ul);
    EXPECT_EQ(swap_lsb_msb(6, 3), 3ul);
}

TEST(swap_lsb_msb, agrees_with_the_reference_for_every_width) {
    std::mt19937_64 engine(2);
    for (unsigned int n = 1; n <= 64; ++n) {
        for (int trial = 0; trial < 50; ++trial) {
            const unsigned long x = engine() >> (64 - n);
            ASSERT_EQ(swap_lsb_msb(x, n), reference::reverse_bits(x, n)) << x << " over " << n;
            ASSERT_EQ(swap_lsb_msb(swap_lsb_msb(x, n), n), x) << "its own inverse";
        }
    }
}

TEST(swap_lsb_msb, over_0_bits_reverses_the_whole_word) {
    EXPECT_EQ(swap_lsb_msb(0, 0), 0ul);
    EXPECT_EQ(swap_lsb_msb(1, 0), 1ul << 63);
    EXPECT_EQ(swap_lsb_msb(0x0123456789ABCDEFul, 0), 0xF7B3D591E6A2C480ul);
}

TEST(lsb_msb_4qb, is_the_reversal_of_every_4_bit_number) {
    const unsigned long expected[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};
    static_assert(std::is_same_v<decltype(lsb_msb_4qb)::value_type, unsigned long>);
    ASSERT_EQ(lsb_msb_4qb.size(), 16ul);
    for (unsigned int i = 0; i < 16; ++i) {
        EXPECT_EQ(lsb_msb_4qb[i], expected[i]);
        EXPECT_EQ(lsb_msb_4qb[i], swap_lsb_msb(i, 4));
    }
}
