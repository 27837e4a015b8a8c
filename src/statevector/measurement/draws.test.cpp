#include "statevector/measurement/draws.hpp"

#include "reference/measurement.hpp"
#include "support/precision.hpp"

#include <algorithm>

using velacamplix::measurement::draw;
using velacamplix::measurement::sort_draws;

PRECISION_SUITE(draws);

namespace {

template <class T>
void expect_sorted(const std::vector<unsigned long>& outputs, const char* what) {
    for (int threads : support::thread_counts) {
        std::vector<draw<T>> sorted(outputs.size());
        sort_draws(outputs.data(), static_cast<unsigned int>(outputs.size()), sorted.data(), threads);
        std::vector<bool> seen(outputs.size());
        for (unsigned long k = 0; k < sorted.size(); ++k) {
            if (k > 0) {
                ASSERT_LE(sorted[k - 1].number, sorted[k].number) << what << ", place " << k;
            }
            const unsigned int shot = sorted[k].shot;
            ASSERT_LT(shot, outputs.size()) << what;
            ASSERT_FALSE(seen[shot]) << what << ", shot " << shot << " came twice";
            seen[shot] = true;
            ASSERT_EQ(sorted[k].number, reference::drawn_number<T>(outputs[shot])) << what;
        }
    }
}

}  // namespace

TYPED_TEST(draws, come_sorted_with_their_shots) {
    std::mt19937_64 engine(8);
    for (unsigned long count : {0ul, 1ul, 2ul, 100ul, 511ul, 512ul, 1024ul, 5000ul, 70000ul}) {
        std::vector<unsigned long> outputs(count);
        std::generate(outputs.begin(), outputs.end(), engine);
        expect_sorted<TypeParam>(outputs, "spread evenly");
    }
}

TYPED_TEST(draws, that_crowd_together_come_sorted_too) {
    std::mt19937_64 engine(9);
    std::vector<unsigned long> outputs(20000);
    expect_sorted<TypeParam>(outputs, "all 0");
    std::fill(outputs.begin(), outputs.end(), ~0ul);
    expect_sorted<TypeParam>(outputs, "all rounding to 1");
    for (auto& output : outputs) output = (1ul << 63) + (engine() >> 20);
    expect_sorted<TypeParam>(outputs, "near 1/2");
    for (auto& output : outputs) output = engine() >> (engine() % 64);
    expect_sorted<TypeParam>(outputs, "of all magnitudes");
    for (auto& output : outputs) output = ~(engine() >> (engine() % 64));
    expect_sorted<TypeParam>(outputs, "close below 1");
}
