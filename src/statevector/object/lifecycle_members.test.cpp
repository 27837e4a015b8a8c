#include "support/captured_output.hpp"
#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <memory>
#include <new>

using namespace support;

PRECISION_SUITE(lifecycle);

namespace {

const std::string message = "Not enough memory for allocating array \xE2\x80\x94 memory swap is not allowed.\n";

template <class T>
constexpr unsigned long bytes_of(unsigned int n) {
    return sizeof(thrust::complex<T>) << n;
}

}  // namespace

TYPED_TEST(lifecycle, construction_sets_every_field) {
    for (unsigned int n : {0u, 1u, 5u, 12u}) {
        StateVector<TypeParam> v(n);
        EXPECT_EQ(v.nqubits, n);
        EXPECT_EQ(v.size, 1ul << n);
        EXPECT_NE(v.amplitudes.get(), nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(v.amplitudes.get()) % 64, 0ul);
        EXPECT_EQ(v.amplitudes.get_deleter(), &pbamplix::aligned_array_delete<thrust::complex<TypeParam>>);
        EXPECT_FALSE(v.is_density_matrix);
        EXPECT_EQ(v.num_threads, 1);
    }
}

TYPED_TEST(lifecycle, size_of_64_qubits_wraps_to_one_amplitude) {
    StateVector<TypeParam> v(64);
    EXPECT_EQ(v.nqubits, 64u);
    EXPECT_EQ(v.size, 1ul);
}

TYPED_TEST(lifecycle, zero_qubits_still_ask_the_memory_guard) {
    ScriptedMemory memory(bytes_of<TypeParam>(0));
    EXPECT_NO_THROW(StateVector<TypeParam>(0));
    EXPECT_EQ(memory.queries(), 1);
    memory.set_free_units(bytes_of<TypeParam>(0) - 1);
    CapturedOutput output;
    EXPECT_THROW(StateVector<TypeParam>(0), std::bad_alloc);
    EXPECT_EQ(output.out(), message);
}

TYPED_TEST(lifecycle, request_equal_to_the_free_memory_passes) {
    ScriptedMemory memory(bytes_of<TypeParam>(10));
    EXPECT_NO_THROW(StateVector<TypeParam>(10));
    memory.set_free_units(bytes_of<TypeParam>(10) - 1);
    CapturedOutput output;
    EXPECT_THROW(StateVector<TypeParam>(10), std::bad_alloc);
}

TYPED_TEST(lifecycle, refused_construction_writes_the_message_and_allocates_nothing) {
    ScriptedMemory memory(100);
    WatchedArrays arrays;
    CapturedOutput output;
    EXPECT_THROW(StateVector<TypeParam>(20), std::bad_alloc);
    EXPECT_EQ(output.out(), message);
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(arrays.order(), "query");
}

TYPED_TEST(lifecycle, failing_query_refuses_even_one_amplitude) {
    ScriptedMemory memory(1ul << 40);
    memory.fail();
    CapturedOutput output;
    EXPECT_THROW(StateVector<TypeParam>(0), std::bad_alloc);
    EXPECT_EQ(output.out(), message);
}

TYPED_TEST(lifecycle, free_swap_does_not_help) {
    ScriptedMemory memory(1000);
    memory.set_free_swap_units(1ul << 40);
    CapturedOutput output;
    EXPECT_THROW(StateVector<TypeParam>(10), std::bad_alloc);
    EXPECT_EQ(output.out(), message);
}

TYPED_TEST(lifecycle, forty_qubits_end_in_the_message) {
    ScriptedMemory memory(1ul << 36);
    CapturedOutput output;
    EXPECT_THROW(StateVector<TypeParam>(40), std::bad_alloc);
    EXPECT_EQ(output.out(), message);
}

TEST(lifecycle_in_double, sixty_qubits_wrap_past_the_guard_into_an_impossible_length) {
    ScriptedMemory memory(0);
    CapturedOutput output;
    EXPECT_THROW(StateVector<double>(60), std::bad_array_new_length);
    EXPECT_EQ(output.out(), "");
}

TEST(lifecycle_in_single, sixty_one_qubits_wrap_past_the_guard_into_an_impossible_length) {
    ScriptedMemory memory(0);
    CapturedOutput output;
    EXPECT_THROW(StateVector<float>(61), std::bad_array_new_length);
    EXPECT_EQ(output.out(), "");
}

TYPED_TEST(lifecycle, failing_allocator_throws_without_the_message) {
    WatchedArrays arrays;
    arrays.refuse_allocations();
    CapturedOutput output;
    EXPECT_THROW(StateVector<TypeParam>(4), std::bad_alloc);
    EXPECT_EQ(output.out(), "");
}

TYPED_TEST(lifecycle, resize_to_the_same_count_does_nothing) {
    const auto state = random_state<TypeParam>(4, Values::any_bits);
    LoadedVector<TypeParam> v(state);
    WatchedArrays arrays;
    v.resize(4);
    EXPECT_EQ(arrays.order(), "");
    EXPECT_TRUE(same_bits(state, v.amplitudes.get()));
}

TYPED_TEST(lifecycle, shrinking_keeps_the_array_and_its_first_amplitudes) {
    auto state = random_state<TypeParam>(6, Values::any_bits);
    LoadedVector<TypeParam> v(state);
    const auto* array = v.amplitudes.get();
    WatchedArrays arrays;
    v.resize(3);
    EXPECT_EQ(v.nqubits, 3u);
    EXPECT_EQ(v.size, 8ul);
    EXPECT_EQ(v.amplitudes.get(), array);
    EXPECT_EQ(arrays.order(), "");
    state.resize(8);
    EXPECT_TRUE(same_bits(state, v.amplitudes.get()));
}

TYPED_TEST(lifecycle, growing_frees_the_old_array_before_the_guard_looks) {
    StateVector<TypeParam> v(3);
    const void* old = v.amplitudes.get();
    WatchedArrays arrays;
    v.resize(5);
    EXPECT_EQ(v.nqubits, 5u);
    EXPECT_EQ(v.size, 32ul);
    ASSERT_EQ(arrays.order(), "release query allocate");
    EXPECT_EQ(arrays.events()[0].array, old);
    EXPECT_EQ(arrays.events()[2].bytes, bytes_of<TypeParam>(5));
    EXPECT_EQ(arrays.events()[2].array, v.amplitudes.get());
}

TYPED_TEST(lifecycle, growing_after_shrinking_allocates_anew) {
    StateVector<TypeParam> v(6);
    v.resize(2);
    WatchedArrays arrays;
    v.resize(4);  // would fit the array that is there
    EXPECT_EQ(arrays.order(), "release query allocate");
}

TYPED_TEST(lifecycle, refused_growth_leaves_new_counts_and_no_array) {
    ScriptedMemory memory(bytes_of<TypeParam>(4));
    StateVector<TypeParam> v(4);
    CapturedOutput output;
    EXPECT_THROW(v.resize(5), std::bad_alloc);
    EXPECT_EQ(output.out(), message);
    EXPECT_EQ(v.nqubits, 5u);
    EXPECT_EQ(v.size, 32ul);
    EXPECT_EQ(v.amplitudes.get(), nullptr);
    v.resize(2);
    EXPECT_EQ(v.size, 4ul);
    EXPECT_EQ(v.amplitudes.get(), nullptr) << "a later shrink still leaves no array";
    v.resize(4);
    EXPECT_NE(v.amplitudes.get(), nullptr);
}

TYPED_TEST(lifecycle, release_memory_then_destruction_frees_nothing_twice) {
    WatchedArrays arrays;
    {
        StateVector<TypeParam> v(3);
        v.release_memory();
        EXPECT_EQ(v.nqubits, 0u);
        EXPECT_EQ(v.size, 0ul);
        EXPECT_EQ(v.amplitudes.get(), nullptr);
        v.release_memory();
    }
    EXPECT_EQ(arrays.order(), "query allocate release");
}

TYPED_TEST(lifecycle, released_object_is_usable_after_a_resize) {
    StateVector<TypeParam> v(3);
    v.release_memory();
    v.resize(2);
    EXPECT_EQ(v.size, 4ul);
    v.reset();
    EXPECT_TRUE(same_bits<TypeParam>({{1, 0}, {0, 0}, {0, 0}, {0, 0}}, v.amplitudes.get()));
}

TYPED_TEST(lifecycle, zero_and_negative_thread_requests_are_stored_as_given) {
    StateVector<TypeParam> v(2);
    for (int request : {0, -1, -2147483647 - 1, 7, 2147483647}) {
        v.set_num_threads(request);
        EXPECT_EQ(v.num_threads, request);
    }
}

TYPED_TEST(lifecycle, density_matrix_switch_sets_the_member_and_nothing_else) {
    const auto state = random_state<TypeParam>(4, Values::any_bits);
    LoadedVector<TypeParam> v(state);
    WatchedArrays arrays;
    v.set_is_density_matrix(true);
    EXPECT_TRUE(v.is_density_matrix);
    v.set_is_density_matrix(false);
    EXPECT_FALSE(v.is_density_matrix);
    EXPECT_EQ(v.nqubits, 4u);
    EXPECT_EQ(arrays.order(), "");
    EXPECT_TRUE(same_bits(state, v.amplitudes.get()));
}
