#include "statevector/channels/event_times.hpp"

#include <gtest/gtest.h>

#include <cmath>

using velacamplix::channels::event_times;

namespace {

// How many of evenly spread numbers lead from `from` to each place, the last entry being to none.
std::vector<double> shares(const event_times& times, unsigned long from, unsigned long count) {
    std::vector<double> found(times.size() + 1);
    for (unsigned long i = 0; i < count; ++i) {
        const double number = (static_cast<double>(i) + 0.5) / static_cast<double>(count);
        found[times.next(from, number)] += 1.0 / static_cast<double>(count);
    }
    return found;
}

}  // namespace

TEST(event_times, every_place_gets_its_share) {
    constexpr unsigned long count = 100'000;
    const std::vector<std::vector<double>> lists{
        {0.25, 0, 0.5, 0.01, 0.999}, {0.001, 0.3}, {0.5, 1, 0.5}, {0, 0}, {}, {1}, {0.2, 0, 1, 1, 0.7}};
    for (const auto& probabilities : lists) {
        const event_times times(probabilities);
        ASSERT_EQ(times.size(), probabilities.size());
        for (unsigned long from = 0; from <= probabilities.size(); ++from) {
            const auto found = shares(times, from, count);
            double nothing_before = 1;
            for (unsigned long place = 0; place < probabilities.size(); ++place) {
                const double expected = place < from ? 0 : nothing_before * probabilities[place];
                EXPECT_NEAR(found[place], expected, 2.0 / count) << "place " << place << " from " << from;
                if (place >= from) nothing_before *= 1 - probabilities[place];
            }
            EXPECT_NEAR(found.back(), nothing_before, 2.0 / count);
        }
    }
}

TEST(event_times, the_outermost_numbers_stay_inside) {
    const event_times times({0.1, 0.1});
    EXPECT_EQ(times.next(0, 0.0), 2u);
    EXPECT_EQ(times.next(0, 1 - 0x1p-53), 0u);
    EXPECT_EQ(times.next(1, 1 - 0x1p-53), 1u);
    EXPECT_EQ(times.next(2, 0.5), 2u);
}

TEST(event_times, thousands_of_small_probabilities_add_up) {
    const event_times times(std::vector<double>(5000, 0.001));
    const auto found = shares(times, 0, 20'000);
    EXPECT_NEAR(found.back(), std::pow(0.999, 5000), 2.0 / 20'000);
}

// What is found without a logarithm is what the logarithm finds, next to every boundary too.
TEST(event_times, logarithms_decide_at_boundaries) {
    for (const auto& probabilities : std::vector<std::vector<double>>{{0.25, 0, 0.5, 0.01, 0.999},
                                                                      std::vector<double>(200, 0.02),
                                                                      {0.5, 1, 0.5},
                                                                      std::vector<double>(80, 0.9999)}) {
        const event_times times(probabilities);
        for (unsigned long from = 0; from <= probabilities.size(); ++from) {
            std::vector<double> hazard;
            double sum = 0, before = 0;
            for (unsigned long place = 0; place < probabilities.size(); ++place) {
                if (place == from) before = sum;
                if (probabilities[place] < 1) sum -= std::log1p(-probabilities[place]);
                hazard.push_back(sum);
            }
            if (from == probabilities.size()) before = sum;
            for (unsigned long place = from; place < probabilities.size(); ++place) {
                double number = std::exp(before - hazard[place]);
                for (int i = 0; i < 6; ++i) number = std::nextafter(number, 0);
                for (int i = 0; i < 12; ++i, number = std::nextafter(number, 1)) {
                    if (!(number > 0 && number < 1)) continue;
                    const double passed = before - std::log(number);
                    unsigned long expected = from;
                    while (expected < probabilities.size() && probabilities[expected] < 1 &&
                           hazard[expected] <= passed) {
                        ++expected;
                    }
                    ASSERT_EQ(times.next(from, number), expected) << "from " << from << " near " << place;
                }
            }
        }
    }
}
