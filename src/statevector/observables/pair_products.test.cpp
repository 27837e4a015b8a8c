#include "statevector/observables/pair_products.hpp"

#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <cmath>
#include <memory>

namespace {

using namespace velacamplix::observables;

PRECISION_SUITE(PairProducts);

// The numbers of a sequence, literally: for every index where the flip's highest bit is 0, in order; for a flip inside
// a row, for every index.
template <class T>
std::vector<T> expected_numbers(const reference::State<T>& state, unsigned long flip, bool imaginary) {
    const unsigned long highest = flip >= row_length<T> ? std::bit_floor(flip) : 0;
    std::vector<T> numbers;
    for (unsigned long i = 0; i < state.size(); ++i) {
        if (i & highest) continue;
        const auto ket = state[i], bra = state[i ^ flip];
        // conj(bra) * ket
        numbers.push_back(imaginary ? bra.re * ket.im + -bra.im * ket.re : bra.re * ket.re - -bra.im * ket.im);
    }
    return numbers;
}

template <class T>
std::vector<T> filled_numbers(const reference::State<T>& state, unsigned long flip, bool imaginary) {
    const pair_products<T> fill(reinterpret_cast<const thrust::complex<T>*>(state.data()));
    const product_sequence s = pair_sequence<T>(flip, imaginary, state.size());
    auto buffer = std::make_unique<slab<T>>();
    std::vector<T> numbers;
    for (unsigned long number = 0; number < slab_count<T>(s); ++number) {
        fill(s, number, buffer->rows);
        numbers.insert(numbers.end(), buffer->rows, buffer->rows + filled_length<T>(s));
    }
    return numbers;
}

TYPED_TEST(PairProducts, every_flip_of_up_to_eight_qubits_multiplies_the_right_amplitudes_bit_for_bit) {
    for (unsigned int n = 0; n <= 8; ++n) {
        const auto state = support::random_state<TypeParam>(n, support::Values::ordinary);
        for (unsigned long flip = 0; flip < state.size(); ++flip) {
            for (const bool imaginary : {false, true}) {
                EXPECT_TRUE(support::same_bits(expected_numbers(state, flip, imaginary),
                                               filled_numbers(state, flip, imaginary)))
                    << "n = " << n << ", flip " << flip << (imaginary ? ", imaginary part" : ", real part");
            }
        }
    }
}

TYPED_TEST(PairProducts, flips_inside_and_beyond_a_slab_multiply_the_right_amplitudes_bit_for_bit) {
    const unsigned int n = 16;
    const auto state = support::random_state<TypeParam>(n, support::Values::ordinary);
    for (const unsigned long flip :
         {0ul, 1ul, 6ul, 15ul, 16ul, 0x1fful, 0x1001ul, 0x2000ul, 0x3bcdul, 0x8000ul, 0xfffful}) {
        for (const bool imaginary : {false, true}) {
            EXPECT_TRUE(
                support::same_bits(expected_numbers(state, flip, imaginary), filled_numbers(state, flip, imaginary)))
                << "flip " << flip << (imaginary ? ", imaginary part" : ", real part");
        }
    }
}

TYPED_TEST(PairProducts, masks_over_indices_count_the_same_signs_over_numbers) {
    const unsigned int n = 9;
    for (unsigned long flip = 0; flip < 1ul << n; flip += 5) {
        const product_sequence s = pair_sequence<TypeParam>(flip, false, 1ul << n);
        for (unsigned long mask = 0; mask < 1ul << n; mask += 3) {
            const unsigned long over_numbers = mask_over_numbers(s, mask);
            for (unsigned long j = 0; j < s.length; ++j) {
                const unsigned long index = j + (j & s.above);
                ASSERT_EQ(std::popcount(index & mask) % 2, std::popcount(j & over_numbers) % 2);
            }
        }
    }
}

}  // namespace
