#include <velacamplix/version.hpp>

#include <gtest/gtest.h>

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
    if (name == "x86-64-v4") {
        EXPECT_TRUE(__builtin_cpu_supports("x86-64-v4"));
    } else if (name == "x86-64-v3") {
        EXPECT_TRUE(__builtin_cpu_supports("x86-64-v3"));
    } else {
        EXPECT_EQ(name, "x86-64");
    }
#else
    EXPECT_FALSE(name.empty());
#endif
}
