#include <velacamplix/version.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool machine_has(const char* level) {
#if defined(__x86_64__)
    if (std::strcmp(level, "x86-64-v3") == 0) return __builtin_cpu_supports("x86-64-v3");
    if (std::strcmp(level, "x86-64-v4") == 0) return __builtin_cpu_supports("x86-64-v4");
#endif
    return true;
}

}  // namespace

// GoogleTest's own main, and a look at which of the libraries the loader has picked: a run meant for one instruction
// set must not pass on another.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const char* loaded = pbamplix::instruction_set();
    std::printf("velacamplix %s, instruction set %s\n", pbamplix::version(), loaded);
    const char* expected = std::getenv("EXPECTED_INSTRUCTION_SET");
    if (expected != nullptr && std::strcmp(loaded, expected) != 0) {
        if (!machine_has(expected)) {
            std::printf("skipped: this machine cannot run %s\n", expected);
            return 77;  // ctest's SKIP_RETURN_CODE
        }
        std::printf("the loader should have picked %s\n", expected);
        return 1;
    }
    return RUN_ALL_TESTS();
}
