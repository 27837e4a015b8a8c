#include "reference/resets.hpp"
#include "support/captured_output.hpp"
#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"
#include "support/watched_regions.hpp"

#include <functional>
#include <stdexcept>

using namespace support;
using reference::State;

PRECISION_SUITE(reset);

namespace {

template <class T>
const T c = std::is_same_v<T, double> ? T(0.7071067811865475) : T(0.70710677f);

// The object's array after `act` on n qubits whose old values are anything.
template <class T, class Act>
testing::AssertionResult leaves(const State<T>& expected, int threads, Act act) {
    const unsigned int n = reference::qubit_count(expected.size());
    LoadedVector<T> v(random_state<T>(n, Values::any_bits), threads);
    act(v);
    return same_bits(expected, v.amplitudes.get()) << " (" << n << " qubits, " << threads << " thread(s))";
}

template <class T>
testing::AssertionResult string_leaves(const State<T>& expected, const std::string& text, int threads = 1) {
    return leaves<T>(expected, threads, [&](StateVector<T>& v) { v.reset_to_str(text); }) << " \"" << text << "\"";
}

}  // namespace

TYPED_TEST(reset, to_basis_state_0_overwrites_every_amplitude) {
    for (unsigned int n : {0u, 1u, 2u, 3u, 4u, 5u, 8u, 12u, 17u}) {
        for (int threads : thread_counts) {
            EXPECT_TRUE(
                leaves(reference::basis_state_0<TypeParam>(n), threads, [](StateVector<TypeParam>& v) { v.reset(); }));
        }
    }
}

TYPED_TEST(reset, of_zero_qubits_gives_the_single_amplitude_1) {
    EXPECT_TRUE(leaves<TypeParam>({{1, 0}}, 1, [](StateVector<TypeParam>& v) { v.reset(); }));
    EXPECT_TRUE(leaves<TypeParam>({{1, 0}}, 1, [](StateVector<TypeParam>& v) { v.reset(std::nullopt); }));
}

TYPED_TEST(reset, through_the_base_takes_no_argument_too) {
    StateVector<TypeParam> v(1);
    pbamplix::PybindAmplixStateVector& base = v;
    base.reset();
    EXPECT_TRUE(same_bits<TypeParam>({{1, 0}, {0, 0}}, v.amplitudes.get()));
}

TYPED_TEST(reset, from_an_array_reads_qubit_0_as_its_most_significant_bit) {
    const State<TypeParam> source = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}, {7, 0}};
    EXPECT_TRUE(
        leaves<TypeParam>({{0, 0}, {4, 0}, {2, 0}, {6, 0}, {1, 0}, {5, 0}, {3, 0}, {7, 0}}, 1,
                          [&](StateVector<TypeParam>& v) { v.reset(reinterpret_cast<unsigned long>(source.data())); }));
}

TYPED_TEST(reset, from_an_array_copies_every_bit_and_keeps_the_source) {
    for (unsigned int n : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 12u, 17u}) {
        const auto source = random_state<TypeParam>(n, Values::any_bits, 1);
        const auto copy = source;
        for (int threads : thread_counts) {
            EXPECT_TRUE(leaves(reference::reversed_copy(source), threads, [&](StateVector<TypeParam>& v) {
                v.reset(reinterpret_cast<unsigned long>(source.data()));
            }));
        }
        EXPECT_TRUE(same_bits(copy, source.data()));
    }
}

TYPED_TEST(reset, to_plus_minus_gives_both_rounded_factors_and_negates_both_parts) {
    const TypeParam p = c<TypeParam> * c<TypeParam>;
    EXPECT_TRUE(string_leaves<TypeParam>({{p, 0}, {-p, -TypeParam(0)}, {p, 0}, {-p, -TypeParam(0)}}, "+-"));
    EXPECT_NEAR(p, TypeParam(0.5), TypeParam(1e-7));
}

TEST(reset_in_double, to_plus_minus_is_one_rounding_below_a_half) {
    EXPECT_TRUE(string_leaves<double>({{0.4999999999999999, 0.0},
                                       {-0.4999999999999999, -0.0},
                                       {0.4999999999999999, 0.0},
                                       {-0.4999999999999999, -0.0}},
                                      "+-"));
}

TYPED_TEST(reset, to_a_short_string_leaves_the_other_qubits_free) {
    EXPECT_TRUE(string_leaves<TypeParam>({{0, 0}, {0, 0}, {0, 0}, {0, 0}, {1, 0}, {1, 0}, {1, 0}, {1, 0}}, "1"));
}

TYPED_TEST(reset, to_a_1_beyond_the_qubits_makes_every_amplitude_0) {
    EXPECT_TRUE(string_leaves<TypeParam>(State<TypeParam>(8, {0, 0}), "0001"));
    EXPECT_TRUE(string_leaves<TypeParam>(State<TypeParam>(8, {0, 0}), "++++++1"));
}

TYPED_TEST(reset, to_a_plus_beyond_the_qubits_still_scales) {
    EXPECT_TRUE(string_leaves<TypeParam>({{0, 0}, {c<TypeParam>, 0}}, "1+"));
    EXPECT_TRUE(string_leaves<TypeParam>({{0, 0}, {c<TypeParam>, 0}}, "1-"));
    EXPECT_TRUE(string_leaves<TypeParam>({{1, 0}, {0, 0}}, "00")) << "a 0 changes nothing";
}

TYPED_TEST(reset, to_positions_64_and_beyond_wraps_onto_the_first) {
    const std::string nothing(64, '.');
    // Position 64 governs the qubit of position 0, which is the highest.
    EXPECT_TRUE(string_leaves<TypeParam>({{0, 0}, {0, 0}, {1, 0}, {1, 0}}, nothing + "1"));
    EXPECT_TRUE(string_leaves<TypeParam>({{0, 0}, {1, 0}, {0, 0}, {1, 0}}, nothing + ".1"));
    // A 0 and a 1 on one qubit: the 1 stays.
    EXPECT_TRUE(string_leaves<TypeParam>({{0, 0}, {1, 0}}, "0" + std::string(63, '.') + "1"));
}

TYPED_TEST(reset, to_other_characters_leaves_their_qubits_free) {
    EXPECT_TRUE(string_leaves<TypeParam>({{1, 0}, {1, 0}, {1, 0}, {1, 0}}, ""));
    EXPECT_TRUE(string_leaves<TypeParam>({{0, 0}, {1, 0}, {0, 0}, {1, 0}}, "x1"));
    EXPECT_TRUE(string_leaves<TypeParam>({{1, 0}}, ""));
}

TYPED_TEST(reset, to_strings_agrees_with_the_reference) {
    std::mt19937 engine(4);
    const std::string characters = "01+-+-?";
    for (unsigned int n : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 9u, 12u, 17u}) {
        for (int trial = 0; trial < (n == 17 ? 2 : 12); ++trial) {
            std::string text;
            // Mostly one character per qubit, sometimes fewer or more.
            const unsigned long length = trial < 9 ? n : engine() % (n + 4);
            for (unsigned long i = 0; i < length; ++i) text += characters[engine() % characters.size()];
            const auto expected = reference::product_state<TypeParam>(text, n);
            for (int threads : thread_counts) EXPECT_TRUE(string_leaves(expected, text, threads));
        }
    }
}

TYPED_TEST(reset, takes_negative_thread_requests_as_one) {
    EXPECT_TRUE(leaves(reference::basis_state_0<TypeParam>(17), -4, [](StateVector<TypeParam>& v) { v.reset(); }));
    EXPECT_TRUE(string_leaves(reference::product_state<TypeParam>("+-1", 17), "+-1", -4));
}

TYPED_TEST(reset, of_a_large_state_opens_one_region_of_the_objects_threads) {
    StateVector<TypeParam> v(18);
    v.set_num_threads(3);
    const std::vector<unsigned int> one_of_three = {3};
    {
        WatchedRegions regions;
        v.reset();
        EXPECT_EQ(regions.thread_counts(), one_of_three);
    }
    {
        WatchedRegions regions;
        v.reset_to_str("+");
        EXPECT_EQ(regions.thread_counts(), one_of_three);
    }
}

// --- objects without an array --------------------------------------------------------------------------------------

namespace {

// What each kind of reset says; they must agree.
template <class T>
std::string refusal_of_resets(StateVector<T>& v) {
    std::vector<thrust::complex<T>> source(1ul << 6);
    const std::function<void()> resets[] = {
        [&] { v.reset(); },
        [&] { v.reset(reinterpret_cast<unsigned long>(source.data())); },
        [&] { v.reset_to_str("01"); },
    };
    std::string said;
    for (const auto& reset : resets) {
        try {
            reset();
            return "accepted";
        } catch (const std::logic_error& refusal) {
            EXPECT_TRUE(said.empty() || said == refusal.what());
            said = refusal.what();
        }
    }
    return said;
}

const std::string without_array =
    "This state has no amplitudes: it was released, or a resize was refused. Call release_memory, then resize to one "
    "qubit or more.";

}  // namespace

TYPED_TEST(reset, of_a_released_state_is_refused_until_it_is_resized) {
    StateVector<TypeParam> v(3);
    v.release_memory();
    EXPECT_EQ(refusal_of_resets(v), without_array);
    v.resize(0);  // as many as it has: nothing changes
    EXPECT_EQ(refusal_of_resets(v), without_array);
    v.resize(2);
    v.reset();
    v.resize(0);
    v.reset();
    EXPECT_EQ(v.amplitudes[0], thrust::complex<TypeParam>(1));
}

TYPED_TEST(reset, after_a_refused_resize_is_refused_until_memory_is_released_and_the_state_resized) {
    StateVector<TypeParam> v(3);
    {
        ScriptedMemory memory(100);
        CapturedOutput output;
        EXPECT_THROW(v.resize(45), std::bad_alloc);
    }
    EXPECT_EQ(refusal_of_resets(v), without_array);
    v.resize(4);  // fewer than 45: an array is taken for granted
    EXPECT_EQ(refusal_of_resets(v), without_array);
    v.release_memory();
    v.resize(4);
    v.reset();
    EXPECT_EQ(v.amplitudes[0], thrust::complex<TypeParam>(1));
    EXPECT_EQ(v.amplitudes[15], thrust::complex<TypeParam>(0));
}

TYPED_TEST(reset, of_more_qubits_than_a_size_can_tell_is_refused) {
    for (const unsigned int n : {64u, 65u, 70u, 128u}) {
        const std::string expected = "A state has at most 63 qubits, not " + std::to_string(n);
        StateVector<TypeParam> made(n), grown(1);
        grown.resize(n);
        EXPECT_EQ(refusal_of_resets(made), expected);
        EXPECT_EQ(refusal_of_resets(grown), expected);
    }
}
