#include "support/named_gates.hpp"
#include "support/precision.hpp"
#include "support/watched_regions.hpp"

#include <omp.h>

using namespace support;
using reference::NamedGate;
using Counts = std::vector<unsigned int>;

PRECISION_SUITE(parallel_regions);

namespace {

template <class T>
std::vector<NamedGate<T>> every_named_gate() {
    return {{"X", {3}},           {"Y", {3}},        {"Z", {3}},          {"H", {3}},       {"S", {3}},
            {"T", {3}},           {"ZtoY", {3}},     {"YtoZ", {3}},       {"RX", {3}, 1},   {"RY", {3}, 1},
            {"RZ", {3}, 1},       {"PH", {3}, 1},    {"CNOT", {2, 1}},    {"SWAP", {0, 3}}, {"CSIGN", {2, 1}},
            {"CCNOT", {0, 1, 2}}, {"ISWAP", {0, 3}}, {"SQRTSWAP", {0, 3}}};
}

template <class Act>
Counts regions_of(Act act) {
    WatchedRegions regions;
    act();
    return regions.thread_counts();
}

}  // namespace

TYPED_TEST(parallel_regions, of_a_gate_on_a_large_state_is_one_with_the_objects_threads) {
    StateVector<TypeParam> v(18);
    v.reset();
    for (const auto& gate : every_named_gate<TypeParam>()) {
        for (int threads : {2, 3, 7}) {
            v.set_num_threads(threads);
            EXPECT_EQ(regions_of([&] { call(v, gate); }), Counts{static_cast<unsigned int>(threads)}) << gate.name;
        }
    }
}

TYPED_TEST(parallel_regions, of_a_gate_with_negative_threads_run_on_one) {
    StateVector<TypeParam> v(18);
    v.reset();
    v.set_num_threads(-3);
    for (const auto& gate : every_named_gate<TypeParam>()) {
        for (unsigned int threads : regions_of([&] { call(v, gate); })) EXPECT_EQ(threads, 1u) << gate.name;
    }
}

TYPED_TEST(parallel_regions, of_a_gate_with_0_threads_take_openmps_default_team) {
    StateVector<TypeParam> v(18);
    v.reset();
    v.set_num_threads(0);
    omp_set_num_threads(5);
    for (const auto& gate : every_named_gate<TypeParam>()) {
        const Counts counts = regions_of([&] { call(v, gate); });
        ASSERT_EQ(counts.size(), 1ul) << gate.name;
        // Left to the runtime, or asked of it beforehand.
        EXPECT_TRUE(counts[0] == 0 || counts[0] == 5) << gate.name << ": " << counts[0];
    }
    omp_set_num_threads(omp_get_num_procs());
}

TYPED_TEST(parallel_regions, of_a_gate_on_a_small_state_are_none) {
    StateVector<TypeParam> v(8);
    v.reset();
    v.set_num_threads(7);
    for (const auto& gate : every_named_gate<TypeParam>()) {
        EXPECT_TRUE(regions_of([&] { call(v, gate); }).empty()) << gate.name;
    }
}

TYPED_TEST(parallel_regions, of_readout_of_a_large_state_have_the_objects_threads) {
    StateVector<TypeParam> v(18);
    v.reset();
    v.set_num_threads(3);
    TypeParam out[4];
    const Counts of_total = regions_of([&] { v.probability(0, std::vector<unsigned int>{}); });
    const Counts of_marginal = regions_of([&] { v.get_distribution(out, 0, {17, 0}); });
    for (const Counts& counts : {of_total, of_marginal}) {
        EXPECT_FALSE(counts.empty());
        for (unsigned int threads : counts) EXPECT_EQ(threads, 3u);
    }
}
