#include "reference/observables.hpp"
#include "support/chosen_outputs.hpp"
#include "support/compare.hpp"
#include "support/precision.hpp"

#include <velacamplix/observable.hpp>

#include <cmath>

namespace {

// The sum of +1 and -1 that evaluate_term found, from its mean.
template <class T>
long sum_of(const std::vector<T>& table, unsigned long shots, std::mt19937_64& engine) {
    const auto result = pbamplix::cpu::evaluate_term(table, thrust::complex<T>(1, 0), shots, engine, 1);
    return std::lround(result.first.real() * static_cast<T>(shots));
}

PRECISION_SUITE(SampledParity);

TYPED_TEST(SampledParity, a_draw_on_an_entry_of_the_table_takes_that_entry) {
    const std::vector<TypeParam> table = {TypeParam(0.25), TypeParam(0.5), TypeParam(0.75), TypeParam(1)};
    // 0, exactly a quarter, just above it, exactly a half: outcomes 0, 0, 1, 1.
    auto engine = support::engine_with_outputs({0, 1ul << 62, (1ul << 62) + (1ul << 40), 1ul << 63});
    EXPECT_EQ(sum_of(table, 4, engine), 0);
    auto on_quarter = support::engine_with_outputs({1ul << 62});
    EXPECT_EQ(sum_of(table, 1, on_quarter), 1);
    auto above_quarter = support::engine_with_outputs({(1ul << 62) + (1ul << 40)});
    EXPECT_EQ(sum_of(table, 1, above_quarter), -1);
}

TYPED_TEST(SampledParity, an_output_that_rounds_to_one_stays_below_it) {
    // The largest number below 1 is on the first entry, so the outcome is 0; a draw of 1 would be beyond both.
    const TypeParam below_one = std::nextafter(TypeParam(1), TypeParam(0));
    auto engine = support::engine_with_outputs({~0ul});
    EXPECT_EQ(sum_of<TypeParam>({below_one, below_one}, 1, engine), 1);
}

TYPED_TEST(SampledParity, outputs_are_rounded_to_nearest_before_they_are_scaled) {
    // Half an ulp below a half rounds up to it: not above the entry. One more step down would not change that.
    const unsigned long half = 1ul << 63;
    const unsigned long half_ulp = sizeof(TypeParam) == 8 ? 1ul << 9 : 1ul << 38;
    auto rounds_up = support::engine_with_outputs({half - half_ulp});
    EXPECT_EQ(sum_of<TypeParam>({std::nextafter(TypeParam(0.5), TypeParam(0)), TypeParam(1)}, 1, rounds_up), -1);
    auto rounds_down = support::engine_with_outputs({half - half_ulp - 1});
    EXPECT_EQ(sum_of<TypeParam>({std::nextafter(TypeParam(0.5), TypeParam(0)), TypeParam(1)}, 1, rounds_down), 1);
}

TYPED_TEST(SampledParity, a_draw_beyond_the_whole_table_counts_minus_one) {
    for (const std::size_t entries : {1ul, 2ul, 8ul}) {
        auto engine = support::engine_with_outputs({~0ul >> 1});
        EXPECT_EQ(sum_of(std::vector<TypeParam>(entries, TypeParam(0.25)), 1, engine), -1) << entries;
    }
}

TYPED_TEST(SampledParity, an_empty_table_counts_plus_one) {
    auto engine = support::engine_with_outputs({5, ~0ul});
    EXPECT_EQ(sum_of(std::vector<TypeParam>{}, 2, engine), 2);
}

TYPED_TEST(SampledParity, a_table_that_is_not_ordered_is_searched_like_any_other) {
    const TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    const std::vector<std::vector<TypeParam>> tables = {
        {nan, nan, nan, nan},
        {TypeParam(0.5), nan, TypeParam(0.2), TypeParam(1)},
        {TypeParam(0.9), TypeParam(0.1), TypeParam(0.8), TypeParam(0.3)},
        {nan, TypeParam(0.5)}};
    for (const auto& table : tables) {
        std::mt19937_64 engine(15), expected_engine(15);
        const auto result = pbamplix::cpu::evaluate_term(table, thrust::complex<TypeParam>(1, 0), 300, engine, 1);
        const auto expected = reference::evaluate_term<TypeParam>(table, {1, 0}, 300, expected_engine);
        EXPECT_TRUE(support::same_bits(expected.mean.re, result.first.real()));
    }
}

TYPED_TEST(SampledParity, a_term_draws_its_shots_and_no_more) {
    std::mt19937_64 engine(16), expected(16);
    (void)sum_of<TypeParam>({TypeParam(0.5), TypeParam(1)}, 1234, engine);
    expected.discard(1234);
    EXPECT_TRUE(engine == expected);
}

}  // namespace
