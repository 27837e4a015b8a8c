#include "support/levels.hpp"

#include <velacamplix/version.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>

TEST(version, of_the_library_is_that_of_the_headers) {
    const std::string headers = std::to_string(VELACAMPLIX_VERSION_MAJOR) + "." +
                                std::to_string(VELACAMPLIX_VERSION_MINOR) + "." +
                                std::to_string(VELACAMPLIX_VERSION_PATCH);
    EXPECT_EQ(pbamplix::version(), headers);
}

TEST(version, instruction_set_is_one_that_this_machine_can_run) {
    const std::string name = pbamplix::instruction_set();
#if defined(__x86_64__)
    const std::set<std::string> names = {"x86-64", "x86-64-v3", "x86-64-v4"};
    EXPECT_TRUE(names.count(name)) << name;
#else
    EXPECT_FALSE(name.empty());
#endif
    EXPECT_TRUE(support::machine_has(name)) << name;
}
