#include "statevector/plan/layers.hpp"

#include "statevector/index/bits.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace velacamplix;
using plan::buffer_shape;
using plan::exchange;
using plan::footprint;
using plan::layer;

namespace {

constexpr buffer_shape shape{2, 4};

std::vector<layer> layers_of(const std::vector<footprint>& gates, unsigned nbqbits, exchange allowed) {
    std::vector<layer> layers;
    plan::deal_out(gates, nbqbits, shape, allowed, [&](layer next) {
        layers.push_back(std::move(next));
        return true;
    });
    return layers;
}

footprint mixing(unsigned long bits) { return {bits, 0, false}; }
footprint moving(unsigned long bits) { return {bits, 0, true}; }

using Gates = std::vector<unsigned long>;

}  // namespace

TEST(layers, of_gates_that_fit_one_buffer_are_one) {
    const auto layers =
        layers_of({mixing(0b1), mixing(0b100000), mixing(0b10000), {0, ~0ul, false}}, 8, exchange::exact);
    ASSERT_EQ(layers.size(), 1u);
    EXPECT_EQ(layers[0].gates, (Gates{0, 1, 2, 3}));
    EXPECT_EQ(layers[0].local, 0b110011ul) << "the lowest bits are always local";
}

TEST(layers, are_filled_up_with_the_lowest_bits) {
    const auto layers = layers_of({mixing(0b1000000)}, 8, exchange::exact);
    ASSERT_EQ(layers.size(), 1u);
    EXPECT_EQ(layers[0].local, 0b1000111ul);
    EXPECT_EQ(plan::fill_up(0b1000, 6, 3), 0b1011ul);
    EXPECT_EQ(plan::fill_up(0b1011, 6, 3), 0b1011ul);
}

TEST(layers, leave_a_gate_that_mixes_more_than_a_buffer_to_the_whole_array) {
    const auto layers = layers_of({mixing(0b1), mixing(0b11111), mixing(0b1)}, 8, exchange::exact);
    ASSERT_EQ(layers.size(), 3u);
    EXPECT_EQ(layers[1].gates, Gates{1});
    EXPECT_EQ(layers[1].local, 0ul);
}

TEST(layers, let_only_moves_be_overtaken_where_bits_count) {
    // The second gate finds no place; the third would.
    const auto around = [](footprint waiting) {
        return std::vector<footprint>{mixing(0b110000), waiting, mixing(0b100000)};
    };
    const footprint far_mixing = mixing(0b1000000), far_moving = moving(0b1000000);
    EXPECT_EQ(layers_of(around(far_mixing), 8, exchange::exact)[0].gates, Gates{0});
    EXPECT_EQ(layers_of(around(far_moving), 8, exchange::exact)[0].gates, (Gates{0, 2}));
    EXPECT_EQ(layers_of(around(far_mixing), 8, exchange::up_to_rounding)[0].gates, (Gates{0, 2}));
    // What the waiting gate reads, a mixing gate may not change, however it rounds.
    const footprint controlled{0b1000000, 0b100000, true};
    EXPECT_EQ(layers_of(around(controlled), 8, exchange::up_to_rounding)[0].gates, Gates{0});
}

TEST(layers, hold_every_gate_once_and_keep_the_order_of_gates_that_do_not_commute) {
    std::mt19937 engine(1);
    for (int trial = 0; trial < 200; ++trial) {
        std::vector<footprint> gates;
        for (int g = 0; g < 60; ++g) {
            const unsigned long first = index::bit(engine() % 10), second = index::bit(engine() % 10);
            const bool diagonal = engine() % 4 == 0;
            gates.push_back({diagonal ? 0 : first, diagonal ? first | second : second & ~first, engine() % 2 == 0});
        }
        for (const exchange allowed : {exchange::exact, exchange::up_to_rounding}) {
            Gates order;
            for (const layer& l : layers_of(gates, 10, allowed)) {
                for (const unsigned long gate : l.gates) {
                    EXPECT_TRUE(l.local == 0 || (gates[gate].mixed & ~l.local) == 0) << "its bits are in the buffer";
                    order.push_back(gate);
                }
            }
            Gates sorted = order;
            std::sort(sorted.begin(), sorted.end());
            for (unsigned long g = 0; g < gates.size(); ++g) ASSERT_EQ(sorted.at(g), g);
            ASSERT_EQ(order.size(), gates.size());
            for (std::size_t i = 0; i < order.size(); ++i) {
                for (std::size_t j = i + 1; j < order.size(); ++j) {
                    if (order[i] < order[j]) continue;
                    const footprint &a = gates[order[i]], &b = gates[order[j]];
                    EXPECT_EQ((a.mixed & (b.mixed | b.read)) | (b.mixed & a.read), 0ul);
                    EXPECT_TRUE(a.moves || b.moves || allowed == exchange::up_to_rounding);
                }
            }
        }
    }
}
