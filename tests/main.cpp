#include "support/levels.hpp"
#include "support/precision.hpp"

#include <velacamplix/version.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Tests that cannot run everywhere. All other tests run on every processor and with every compiler.
struct Group {
    bool left_out;
    const char* reason;
    const char* tests;  // GoogleTest's patterns
};

#if defined(__clang__)
constexpr bool has_gcc_runtime = false;
#else
constexpr bool has_gcc_runtime = true;
#endif

const Group groups[] = {
    {!has_gcc_runtime, "count parallel regions at the entry of GCC's OpenMP runtime",
     "parallel_regions/*:parallel_shares.open_*:parallel_shares.do_not_share_*:PauliValues/*.of_a_large_matrix_*:"
     "reset/*.of_a_large_state_opens_one_region_*"},
    {support::emulated, "take minutes where every instruction is emulated",
     "*.on_20_qubits_*:*.of_long_records_*:*.past_the_caches_*:*.of_large_states_*:*.lets_gates_overtake_*:"
     "*.shots_of_any_norm_go_on_with_the_engine_*:fusion/*:fused_run/*:schedules/*"},
};

void leave_out() {
    std::string& filter = testing::FLAGS_gtest_filter;
    for (const Group& group : groups) {
        if (!group.left_out) continue;
        std::printf("left out, as they %s: %s\n", group.reason, group.tests);
        filter += filter.find('-') == std::string::npos ? '-' : ':';
        filter += group.tests;
    }
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
        if (!support::machine_has(expected)) {
            std::printf("skipped: this machine cannot run %s\n", expected);
            return 77;  // ctest's SKIP_RETURN_CODE
        }
        std::printf("the loader should have picked %s\n", expected);
        return 1;
    }
    leave_out();
    return RUN_ALL_TESTS();
}
