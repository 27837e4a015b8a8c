#include "statevector/storage/aligned_array.hpp"

#include "support/captured_output.hpp"
#include "support/precision.hpp"
#include "support/scripted_system.hpp"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <cstdint>
#include <new>

using namespace support;
using pbamplix::aligned_array_delete;
using pbamplix::amplitude_array;
using velacamplix::storage::allocate_amplitudes;
using velacamplix::storage::make_amplitudes;

PRECISION_SUITE(aligned_array);

TYPED_TEST(aligned_array, holder_is_a_pointer_with_a_function_pointer_deleter) {
    using amplitude = thrust::complex<TypeParam>;
    using holder = amplitude_array<TypeParam>;
    static_assert(std::is_same_v<typename holder::deleter_type, void (*)(amplitude*)>);
    static_assert(std::is_same_v<typename holder::element_type, amplitude>);
    static_assert(sizeof(holder) == 2 * sizeof(void*));
    EXPECT_EQ(sizeof(amplitude), 2 * sizeof(TypeParam));
}

TYPED_TEST(aligned_array, stands_on_a_64_byte_boundary) {
    for (unsigned long count : {1ul, 2ul, 3ul, 1000ul, 1ul << 19}) {
        thrust::complex<TypeParam>* array = allocate_amplitudes<TypeParam>(count);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(array) % 64, 0ul) << count << " amplitudes";
        aligned_array_delete(array);
    }
}

TYPED_TEST(aligned_array, takes_exactly_its_bytes_after_the_guard_and_gives_them_back) {
    WatchedArrays arrays;
    thrust::complex<TypeParam>* array = allocate_amplitudes<TypeParam>(32);
    aligned_array_delete(array);
    ASSERT_EQ(arrays.order(), "query allocate release");
    EXPECT_EQ(arrays.events()[1].bytes, 32 * sizeof(thrust::complex<TypeParam>));
    EXPECT_EQ(arrays.events()[2].array, arrays.events()[1].array);
}

TYPED_TEST(aligned_array, empty_holder_never_calls_its_deleter) {
    WatchedArrays arrays;
    { amplitude_array<TypeParam> holder(nullptr, &aligned_array_delete<thrust::complex<TypeParam>>); }
    EXPECT_EQ(arrays.order(), "");
}

TYPED_TEST(aligned_array, scratch_asks_no_guard) {
    WatchedArrays arrays;
    ScriptedMemory memory(0);
    { auto scratch = make_amplitudes<TypeParam>(8); }
    EXPECT_EQ(arrays.order(), "allocate release");
}

TYPED_TEST(aligned_array, of_4_mib_and_more_gets_advice_about_whole_pages_of_the_systems_size) {
    constexpr unsigned long amplitude = sizeof(thrust::complex<TypeParam>);
    for (const unsigned int page : {4096u, 16384u, 65536u}) {
        for (const unsigned long bytes : {4ul << 20, (5ul << 20) + 3 * 64}) {
            ScriptedPages pages(page);
            auto array = make_amplitudes<TypeParam>(bytes / amplitude);
            const auto begin = reinterpret_cast<unsigned long>(array.get());
            ASSERT_EQ(pages.advice().size(), 1ul) << page;
            const auto& advice = pages.advice()[0];
            EXPECT_EQ(advice.advice, MADV_HUGEPAGE);
            EXPECT_EQ(advice.begin % page, 0ul) << "pages of " << page;
            EXPECT_EQ(advice.bytes % page, 0ul) << "pages of " << page;
            EXPECT_GE(advice.begin, begin);
            EXPECT_LE(advice.begin + advice.bytes, begin + bytes);
            EXPECT_LT(bytes - advice.bytes, 2ul * page);
        }
        ScriptedPages pages(page);
        make_amplitudes<TypeParam>((4ul << 20) / amplitude - 1);
        EXPECT_TRUE(pages.advice().empty());
    }
}

TYPED_TEST(aligned_array, byte_count_wraps_before_the_guard_and_ends_as_an_impossible_length) {
    // 2^64 bytes: the guard sees a need of 0.
    const unsigned long count = ~0ul / sizeof(thrust::complex<TypeParam>) + 1;
    CapturedOutput output;
    ScriptedMemory memory(0);
    EXPECT_THROW(allocate_amplitudes<TypeParam>(count), std::bad_array_new_length);
    EXPECT_EQ(output.out(), "");
}

TYPED_TEST(aligned_array, half_the_address_space_is_an_impossible_length_once_the_guard_agrees) {
    const unsigned long count = (1ul << 63) / sizeof(thrust::complex<TypeParam>);
    ScriptedMemory memory(1ul << 62, 2);
    EXPECT_THROW(allocate_amplitudes<TypeParam>(count), std::bad_array_new_length);
    EXPECT_EQ(memory.queries(), 1);
}

TYPED_TEST(aligned_array, failing_allocator_throws_without_the_message) {
    CapturedOutput output;
    WatchedArrays arrays;
    arrays.refuse_allocations();
    EXPECT_THROW(allocate_amplitudes<TypeParam>(16), std::bad_alloc);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
}
