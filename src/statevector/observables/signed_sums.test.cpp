#include "statevector/observables/signed_sums.hpp"

#include "support/compare.hpp"
#include "support/precision.hpp"

#include <memory>
#include <random>

namespace {

using namespace velacamplix::observables;

PRECISION_SUITE(SignedSums);

template <class T>
std::unique_ptr<slab<T>> random_slab(unsigned int steps, unsigned int seed) {
    auto numbers = std::make_unique<slab<T>>();
    std::mt19937 engine(seed);
    for (unsigned long j = 0; j < row_length<T> << (3 * steps); ++j) {
        numbers->rows[j] = std::uniform_real_distribution<T>(T(-1), T(1))(engine);
    }
    return numbers;
}

template <class T>
T in_index_order(const slab<T>& numbers, unsigned int steps, unsigned long mask) {
    T sum = T(0);
    for (unsigned long j = 0; j < row_length<T> << (3 * steps); ++j) {
        sum += std::popcount(j & mask) % 2 == 0 ? numbers.rows[j] : -numbers.rows[j];
    }
    return sum;
}

TYPED_TEST(SignedSums, rows_are_counted_in_eights) {
    EXPECT_EQ(steps_for(0), 0u);
    EXPECT_EQ(steps_for(1), 0u);
    EXPECT_EQ(steps_for(2), 1u);
    EXPECT_EQ(steps_for(8), 1u);
    EXPECT_EQ(steps_for(16), 2u);
    EXPECT_EQ(steps_for(64), 2u);
    EXPECT_EQ(steps_for(128), 3u);
    EXPECT_EQ(steps_for(most_rows), most_steps);
}

// Small whole numbers: no addition rounds, so the order does not matter and every sign is found.
TYPED_TEST(SignedSums, whole_numbers_sum_exactly_under_every_mask_of_a_slab) {
    for (unsigned int steps = 0; steps <= 2; ++steps) {
        auto numbers = random_slab<TypeParam>(steps, steps);
        for (auto& x : numbers->rows) x = std::nearbyint(x * TypeParam(100));
        for (unsigned long mask = 0; mask < row_length<TypeParam> << (3 * steps); ++mask) {
            EXPECT_EQ(signed_sum(*numbers, steps, 0, mask), in_index_order(*numbers, steps, mask)) << mask;
        }
    }
}

TYPED_TEST(SignedSums, shared_steps_give_the_bits_of_one_mask_alone) {
    std::mt19937 engine(5);
    for (unsigned int steps = 0; steps <= most_steps; ++steps) {
        std::vector<unsigned long> masks;
        for (unsigned int m = 0; m < 300; ++m) masks.push_back(engine() % (row_length<TypeParam> << (3 * steps)));
        auto numbers = random_slab<TypeParam>(steps, 17 + steps);
        std::vector<TypeParam> alone;
        for (const unsigned long mask : masks) alone.push_back(signed_sum(*numbers, steps, 0, mask));
        for (unsigned int shared = 1; shared <= steps; ++shared) {
            transform(numbers->rows, steps, shared - 1);
            std::vector<TypeParam> together;
            for (const unsigned long mask : masks) together.push_back(signed_sum(*numbers, steps, shared, mask));
            EXPECT_TRUE(support::same_bits(alone, together)) << steps << " steps, " << shared << " shared";
        }
    }
}

TYPED_TEST(SignedSums, a_full_slab_is_near_the_sum_in_index_order) {
    auto numbers = random_slab<TypeParam>(most_steps, 3);
    const TypeParam tolerance = TypeParam(slab_length<TypeParam>) * std::numeric_limits<TypeParam>::epsilon();
    std::mt19937 engine(6);
    for (unsigned int m = 0; m < 50; ++m) {
        const unsigned long mask = engine() % slab_length<TypeParam>;
        EXPECT_NEAR(signed_sum(*numbers, most_steps, 0, mask), in_index_order(*numbers, most_steps, mask), tolerance);
    }
}

TYPED_TEST(SignedSums, a_number_that_is_not_finite_reaches_every_sum) {
    for (const TypeParam bad :
         {std::numeric_limits<TypeParam>::quiet_NaN(), std::numeric_limits<TypeParam>::infinity()}) {
        for (unsigned int shared = 0; shared <= most_steps; ++shared) {
            auto numbers = random_slab<TypeParam>(most_steps, 4);
            numbers->rows[slab_length<TypeParam> - 3] = bad;
            for (unsigned int step = 0; step < shared; ++step) transform(numbers->rows, most_steps, step);
            for (unsigned long mask = 0; mask < slab_length<TypeParam>; mask += 37) {
                EXPECT_FALSE(std::isfinite(signed_sum(*numbers, most_steps, shared, mask)));
            }
        }
    }
}

TYPED_TEST(SignedSums, steps_are_shared_by_four_masks_and_more) {
    EXPECT_EQ(worthwhile_transforms(3, 1), 0u);
    EXPECT_EQ(worthwhile_transforms(3, 3), 0u);
    EXPECT_EQ(worthwhile_transforms(3, 4), 1u);
    EXPECT_EQ(worthwhile_transforms(3, 32), 2u);
    EXPECT_EQ(worthwhile_transforms(3, 1000), 3u);
    EXPECT_EQ(worthwhile_transforms(0, 1000), 0u);
}

}  // namespace
