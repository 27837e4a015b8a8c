#include "support/precision.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <sys/random.h>

#include <chrono>
#include <set>

using namespace support;

PRECISION_SUITE(seeding);

TYPED_TEST(seeding, takes_two_draws_and_keeps_the_second) {
    ScriptedEntropy entropy({0x11223344u, 0xFEDCBA98u});
    StateVector<TypeParam> v(2);
    EXPECT_EQ(v.seed, 0xFEDCBA98u);
    EXPECT_TRUE(v.rng == std::mt19937_64(0xFEDCBA98u)) << "the seed, zero-extended to 64 bits";
    ASSERT_EQ(entropy.requests().size(), 2ul);
    for (const auto& request : entropy.requests()) {
        EXPECT_EQ(request.bytes, 4ul);
        EXPECT_EQ(request.flags, static_cast<unsigned int>(GRND_NONBLOCK));
    }
}

TYPED_TEST(seeding, fills_the_engine_by_the_standard_recurrence) {
    ScriptedEntropy entropy({1, 77});
    StateVector<TypeParam> v(1);
    std::mt19937_64 expected(77);
    for (int i = 0; i < 700; ++i) ASSERT_EQ(v.rng(), expected()) << "number " << i;
}

TYPED_TEST(seeding, happens_at_construction_only) {
    ScriptedEntropy entropy({1, 2, 3, 4, 5, 6});
    StateVector<TypeParam> v(2);
    v.reset();
    v.resize(4);
    v.reset_to_str("01");
    v.resize(1);
    v.release_memory();
    v.resize(2);
    EXPECT_EQ(entropy.requests().size(), 2ul);
    EXPECT_EQ(v.seed, 2u);
    EXPECT_TRUE(v.rng == std::mt19937_64(2));
}

namespace {

// Microseconds since the epoch as the clock-made seed packs them.
unsigned int seed_of(std::int64_t microseconds) {
    const std::int64_t seconds = microseconds / 1000000;
    const auto fraction = static_cast<unsigned int>(microseconds - seconds * 1000000);
    return (fraction << 16) + static_cast<unsigned int>(seconds % 65536);
}

std::int64_t microseconds_now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Whether the seed of a state vector made now is one that the clock could give meanwhile.
template <class T>
bool comes_from_the_clock() {
    const std::int64_t before = microseconds_now();
    StateVector<T> v(1);
    const std::int64_t after = microseconds_now();
    EXPECT_TRUE(v.rng == std::mt19937_64(v.seed));
    for (std::int64_t t = before; t <= after; ++t) {
        if (seed_of(t) == v.seed) return true;
    }
    return false;
}

}  // namespace

TYPED_TEST(seeding, falls_back_to_the_clock_when_the_system_refuses) {
    ScriptedEntropy entropy({});
    EXPECT_TRUE(comes_from_the_clock<TypeParam>());
    EXPECT_EQ(entropy.requests().size(), 2ul);
}

TYPED_TEST(seeding, falls_back_to_the_clock_when_fewer_than_4_bytes_come) {
    ScriptedEntropy entropy({0xDEADBEEFu, 0xDEADBEEFu});
    entropy.answer_only(3);
    EXPECT_TRUE(comes_from_the_clock<TypeParam>());
}

TYPED_TEST(seeding, differs_from_object_to_object) {
    std::set<unsigned int> seeds;
    for (int i = 0; i < 8; ++i) seeds.insert(StateVector<TypeParam>(1).seed);
    EXPECT_GT(seeds.size(), 4ul);
}
