#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <type_traits>
#include <vector>

// The dimensions every exact comparison runs over: precision (as a type parameter), threads, controls.
namespace support {

template <class T>
inline constexpr const char* precision_name = std::is_same_v<T, float> ? "single" : "double";

using Precisions = testing::Types<float, double>;

struct PrecisionName {
    template <class T>
    static std::string GetName(int) {
        return precision_name<T>;
    }
};

// Said by the build where it runs programs in an emulator.
inline const bool emulated = std::getenv("VELACAMPLIX_EMULATED") != nullptr;

// One thread, an even split, and two counts that leave a rest. More than most small arrays have groups.
inline const std::vector<int> thread_counts = emulated ? std::vector<int>{1, 2} : std::vector<int>{1, 2, 3, 7};

// Pairs a gate tag with a precision, for suites that run over both.
template <class Tag, class T>
struct Case {
    using tag = Tag;
    using precision = T;
};

template <class... Tags>
struct in_both_precisions {
    using types = testing::Types<Case<Tags, float>..., Case<Tags, double>...>;
};

}  // namespace support

// A suite whose tests run in both precisions: precision_suite(Name); TYPED_TEST(Name, what_it_proves) { ... TypeParam }
#define PRECISION_SUITE(Name)             \
    template <class T>                    \
    class Name : public testing::Test {}; \
    TYPED_TEST_SUITE(Name, support::Precisions, support::PrecisionName)
