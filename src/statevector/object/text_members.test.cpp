#include "reference/text.hpp"
#include "support/captured_output.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <iomanip>

using namespace support;

PRECISION_SUITE(text);

namespace {

template <class T>
std::string printed(StateVector<T>& v) {
    CapturedOutput output;
    v.print();
    return output.out();
}

}  // namespace

TYPED_TEST(text, print_writes_one_line_per_amplitude) {
    StateVector<TypeParam> v(1);
    v.reset();
    EXPECT_EQ(printed(v), "0: (1,0)\n1: (0,0)\n");
}

TYPED_TEST(text, str_puts_all_amplitudes_on_one_line_with_a_final_space) {
    StateVector<TypeParam> v(2);
    v.reset();
    EXPECT_EQ(v.str(), "(1,0) (0,0) (0,0) (0,0) ");
}

TYPED_TEST(text, after_release_memory_is_nothing) {
    StateVector<TypeParam> v(2);
    v.reset();
    v.release_memory();
    EXPECT_EQ(printed(v), "");
    EXPECT_EQ(v.str(), "");
}

TYPED_TEST(text, of_negative_zero_is_minus_0) {
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{-TypeParam(0), 0}, {0, -TypeParam(0)}});
    EXPECT_EQ(v.str(), "(-0,0) (0,-0) ");
    EXPECT_EQ(printed(v), "0: (-0,0)\n1: (0,-0)\n");
}

TYPED_TEST(text, of_a_density_matrix_is_the_raw_array) {
    const auto state = random_state<TypeParam>(4, Values::ordinary);
    LoadedVector<TypeParam> v(state);
    v.is_density_matrix = true;
    EXPECT_EQ(v.str(), reference::one_line(state));
    EXPECT_EQ(printed(v), reference::one_line_each(state));
}

TYPED_TEST(text, has_six_significant_digits) {
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{TypeParam(0.7071067811865476), TypeParam(-0.5)},
                                                          {TypeParam(1e-7), TypeParam(0.1)},
                                                          {1, 1000000},
                                                          {100000, 3}});
    EXPECT_EQ(v.str(), "(0.707107,-0.5) (1e-07,0.1) (1,1e+06) (100000,3) ");
}

TYPED_TEST(text, agrees_with_the_reference_for_any_value) {
    for (unsigned int n = 0; n <= 6; ++n) {
        const auto state = random_state<TypeParam>(n, Values::unusual);
        LoadedVector<TypeParam> v(state);
        EXPECT_EQ(v.str(), reference::one_line(state));
        EXPECT_EQ(printed(v), reference::one_line_each(state));
    }
}

TYPED_TEST(text, print_flushes_after_every_line) {
    StateVector<TypeParam> v(3);
    v.reset();
    CapturedOutput output;
    v.print();
    EXPECT_EQ(output.flushes(), 8);
}

namespace {

// Gives std::cout its own formatting back at the end of a test.
class KeptFormat {
public:
    KeptFormat() { kept_.copyfmt(std::cout); }
    ~KeptFormat() { std::cout.copyfmt(kept_); }
    KeptFormat(const KeptFormat&) = delete;
    KeptFormat& operator=(const KeptFormat&) = delete;

private:
    std::ios kept_{nullptr};
};

}  // namespace

TYPED_TEST(text, print_uses_the_streams_format_and_leaves_it) {
    const KeptFormat kept;
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{TypeParam(0.5), TypeParam(-0.25)}, {1, 0}});
    std::cout << std::fixed << std::setprecision(2) << std::showpos;
    EXPECT_EQ(printed(v), "0: (+0.50,-0.25)\n1: (+1.00,+0.00)\n");
    EXPECT_EQ(std::cout.precision(), 2);
    EXPECT_TRUE(std::cout.flags() & std::ios::fixed);
    EXPECT_TRUE(std::cout.flags() & std::ios::showpos);
}

TYPED_TEST(text, field_width_applies_to_the_first_thing_written) {
    const KeptFormat kept;
    StateVector<TypeParam> v(1);
    v.reset();
    std::cout << std::setw(6);
    EXPECT_EQ(printed(v), "     0: (1,0)\n1: (0,0)\n");
}

TYPED_TEST(text, str_has_a_format_of_its_own) {
    const KeptFormat kept;
    LoadedVector<TypeParam> v(reference::State<TypeParam>{{TypeParam(0.125), 0}, {1, 0}});
    std::cout << std::scientific << std::setprecision(1);
    EXPECT_EQ(v.str(), "(0.125,0) (1,0) ");
}
