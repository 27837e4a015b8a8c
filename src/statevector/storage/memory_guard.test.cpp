#include "statevector/storage/memory_guard.hpp"

#include "support/captured_output.hpp"
#include "support/scripted_system.hpp"

#include <gtest/gtest.h>

#include <new>

using support::CapturedOutput;
using support::ScriptedMemory;
using velacamplix::storage::free_memory;
using velacamplix::storage::refuse_beyond_free_memory;

namespace {

const std::string message = "Not enough memory for allocating array \xE2\x80\x94 memory swap is not allowed.\n";

// What the guard printed, and whether it refused.
struct Answer {
    bool refused;
    std::string out, err;
};

Answer ask(unsigned long needed) {
    CapturedOutput output;
    bool refused = false;
    try {
        refuse_beyond_free_memory(needed);
    } catch (const std::bad_alloc&) {
        refused = true;
    }
    return {refused, output.out(), output.err()};
}

}  // namespace

TEST(memory_guard, refuses_with_its_line_on_standard_output) {
    ScriptedMemory memory(1023);
    const Answer answer = ask(1024);
    EXPECT_TRUE(answer.refused);
    EXPECT_EQ(answer.out, message);
    EXPECT_EQ(answer.out.size(), 71ul);
    EXPECT_EQ(answer.err, "");
}

TEST(memory_guard, request_equal_to_the_free_memory_passes) {
    ScriptedMemory memory(1024);
    const Answer answer = ask(1024);
    EXPECT_FALSE(answer.refused);
    EXPECT_EQ(answer.out, "");
}

TEST(memory_guard, counts_free_memory_in_the_systems_unit) {
    ScriptedMemory memory(16, 4096);
    EXPECT_EQ(free_memory(), 65536ul);
    EXPECT_FALSE(ask(65536).refused);
    EXPECT_TRUE(ask(65537).refused);
}

TEST(memory_guard, multiplies_by_the_unit_in_64_bits) {
    ScriptedMemory memory(1ul << 40, 1u << 20);
    EXPECT_EQ(free_memory(), 1ul << 60);
    memory.set_free_units(1ul << 44);
    EXPECT_EQ(free_memory(), 0ul) << "the product wraps";
}

TEST(memory_guard, failing_query_refuses_even_one_byte) {
    ScriptedMemory memory(1ul << 40);
    memory.fail();
    EXPECT_EQ(free_memory(), 0ul);
    const Answer answer = ask(1);
    EXPECT_TRUE(answer.refused);
    EXPECT_EQ(answer.out, message);
}

TEST(memory_guard, free_swap_does_not_help) {
    ScriptedMemory memory(100);
    memory.set_free_swap_units(1ul << 40);
    EXPECT_EQ(free_memory(), 100ul);
    EXPECT_TRUE(ask(101).refused);
}

TEST(memory_guard, asks_anew_every_time) {
    ScriptedMemory memory(10);
    EXPECT_TRUE(ask(20).refused);
    memory.set_free_units(20);
    EXPECT_FALSE(ask(20).refused);
    EXPECT_EQ(memory.queries(), 2);
}

TEST(memory_guard, believes_the_real_system_to_have_some_memory) { EXPECT_GT(free_memory(), 1ul << 20); }
