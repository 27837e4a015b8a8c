#include "statevector/packs/squares.hpp"

#include "support/precision.hpp"

#include <cstring>
#include <limits>
#include <random>

using namespace velacamplix;

PRECISION_SUITE(packs_of);

namespace {

// Parts of any size, zeros and tiny ones among them.
template <class T>
T any_part(std::mt19937_64& engine) {
    const T sizes[] = {0,
                       1,
                       packs::precision<T>::tiny_part,
                       packs::precision<T>::tiny_part / 2,
                       std::numeric_limits<T>::min(),
                       std::numeric_limits<T>::denorm_min()};
    const auto digits = static_cast<T>(static_cast<double>(engine() >> 40) / 0x1p24 - 0.5);
    return digits * sizes[engine() % std::size(sizes)];
}

template <class T>
struct two_packs {
    using V = packs::wide_pack<T>;
    static constexpr unsigned long lanes = packs::lanes<V>;

    explicit two_packs(std::mt19937_64& engine) {
        for (auto& a : amplitudes) a = thrust::complex<T>(any_part<T>(engine), any_part<T>(engine));
    }
    V first() const { return packs::load<V>(amplitudes); }
    V second() const { return packs::load<V>(amplitudes + lanes); }

    thrust::complex<T> amplitudes[2 * lanes];
};

}  // namespace

TYPED_TEST(packs_of, parts_come_apart_in_order_and_together_again) {
    std::mt19937_64 engine(1);
    const two_packs<TypeParam> given(engine);
    const auto re = packs::real_parts(given.first(), given.second());
    const auto im = packs::imaginary_parts(given.first(), given.second());
    for (unsigned i = 0; i < 2 * given.lanes; ++i) {
        EXPECT_EQ(re[i], given.amplitudes[i].real());
        EXPECT_EQ(im[i], given.amplitudes[i].imag());
    }
    const auto first = packs::first_amplitudes(re, im);
    const auto second = packs::second_amplitudes(re, im);
    EXPECT_EQ(std::memcmp(&first, given.amplitudes, sizeof(first)), 0);
    EXPECT_EQ(std::memcmp(&second, given.amplitudes + given.lanes, sizeof(second)), 0);
}

TYPED_TEST(packs_of, squares_are_the_same_one_by_one_and_pack_by_pack) {
    std::mt19937_64 engine(2);
    for (int trial = 0; trial < 2000; ++trial) {
        const two_packs<TypeParam> given(engine);
        const auto squares = packs::squared_magnitudes(given.first(), given.second());
        const auto in_both = packs::squared_magnitudes_in_both_parts(given.first());
        for (unsigned i = 0; i < 2 * given.lanes; ++i) {
            const TypeParam expected = packs::squared_magnitude(given.amplitudes[i]);
            ASSERT_EQ(squares[i], expected) << given.amplitudes[i].real() << ", " << given.amplitudes[i].imag();
            if (i >= given.lanes) continue;
            ASSERT_EQ(in_both[2 * i], expected);
            ASSERT_EQ(in_both[2 * i + 1], expected);
        }
    }
}

TYPED_TEST(packs_of, squares_of_tiny_parts_keep_what_plain_ones_lose) {
    using T = TypeParam;
    const T part = packs::precision<T>::tiny_part / 3;  // scaled by 4 its square is a normal number, as it is it is not
    const thrust::complex<T> a(part, 0);
    EXPECT_EQ(packs::squared_magnitude(a), (part * 4) * (part * 4) * T(0.0625));
    EXPECT_LT(part * part, std::numeric_limits<T>::min());
}
