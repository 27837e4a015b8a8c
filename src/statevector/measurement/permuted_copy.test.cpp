#include "reference/probabilities.hpp"
#include "support/compare.hpp"
#include "support/measured_state.hpp"
#include "support/precision.hpp"

using namespace support;
using namespace pbamplix::cpu;

PRECISION_SUITE(permuted_copy);

namespace {

enum class Path { fast, fast_with_threshold, no_simd };

// What is copied: amplitudes, or the real parts of the diagonal.
template <class T>
const reference::State<T>& elements(const reference::State<T>& state, const std::vector<T>&, thrust::complex<T>) {
    return state;
}
template <class T>
const std::vector<T>& elements(const reference::State<T>&, const std::vector<T>& view, T) {
    return view;
}

// The copy in a buffer between two fences; `shift` moves it off a 16-byte boundary in single precision.
template <class Out, class Seq, class T>
testing::AssertionResult copy(Seq seq, Path path, T threshold_sq, int threads, unsigned long shift,
                              std::vector<Out>& copied) {
    const Out fence = T(-12345);
    std::vector<Out> buffer(seq.dim + 32, fence);
    Out* out = buffer.data() + 16 + shift;
    if (path == Path::no_simd) _permute_and_copy_vector_no_simd<T, Out, Seq>(seq, out, threshold_sq, threads);
    if (path == Path::fast) _permute_and_copy_vector_fast<false, Out, Seq>(seq, out, threads, threshold_sq);
    if (path == Path::fast_with_threshold) {
        _permute_and_copy_vector_fast<true, Out, Seq>(seq, out, threads, threshold_sq);
    }
    copied.assign(out, out + seq.dim);
    for (unsigned long i = 0; i < buffer.size(); ++i) {
        if (&buffer[i] >= out && &buffer[i] < out + seq.dim) continue;
        if (buffer[i] != fence) return testing::AssertionFailure() << "a write outside the buffer";
    }
    return testing::AssertionSuccess();
}

template <class T>
testing::AssertionResult agrees(const reference::State<T>& state, bool density_matrix, Path path, T threshold_sq,
                                const std::vector<int>& threads = thread_counts, unsigned long shift = 0) {
    MeasuredState<T> measured(state, density_matrix);
    return measured.read([&](auto seq) -> testing::AssertionResult {
        using Out = typename decltype(seq)::value_type;
        const auto& values = elements(state, measured.view(), Out{});
        // Without a threshold every value counts, a NaN too.
        const std::vector<T> everything(values.size(), T(1));
        const auto expected = path == Path::fast ? reference::permuted(everything, values, T(0))
                                                 : reference::permuted(measured.view(), values, threshold_sq);
        for (int count : threads) {
            std::vector<Out> got;
            if (auto inside = copy(seq, path, threshold_sq, count, shift, got); !inside) return inside;
            const unsigned int numbers = sizeof(Out) / sizeof(T);
            auto same = same_numbers(reinterpret_cast<const T*>(expected.data()),
                                     reinterpret_cast<const T*>(got.data()), numbers * got.size(), numbers);
            if (!same) return same << "\n" << measured.describe({}, count);
        }
        return testing::AssertionSuccess();
    });
}

}  // namespace

TYPED_TEST(permuted_copy, of_small_views_agrees_bit_for_bit) {
    for (unsigned int n = 1; n <= 10; ++n) {
        const auto state = random_state<TypeParam>(n, Values::unusual);
        for (const TypeParam threshold_sq : {TypeParam(0), TypeParam(0.25), TypeParam(-1)}) {
            EXPECT_TRUE(agrees(state, false, Path::no_simd, threshold_sq));
            if (n < 2) continue;  // no qubit in the view
            EXPECT_TRUE(agrees(state, true, Path::no_simd, threshold_sq));
        }
    }
}

TYPED_TEST(permuted_copy, of_8_qubits_and_more_agrees_bit_for_bit) {
    for (unsigned int n : {8u, 9u, 10u, 11u, 12u, 13u, 16u, 17u}) {
        const auto state = random_state<TypeParam>(n, Values::unusual);
        EXPECT_TRUE(agrees(state, false, Path::fast, TypeParam(0.25)));
        EXPECT_TRUE(agrees(state, false, Path::fast_with_threshold, TypeParam(0.25)));
        EXPECT_TRUE(agrees(state, false, Path::fast_with_threshold, TypeParam(0)));
    }
}

TYPED_TEST(permuted_copy, of_density_matrices_agrees_bit_for_bit) {
    for (unsigned int n : {16u, 17u, 18u}) {
        const auto state = random_state<TypeParam>(n, Values::unusual);
        EXPECT_TRUE(agrees(state, true, Path::fast, TypeParam(0)));
        EXPECT_TRUE(agrees(state, true, Path::fast_with_threshold, TypeParam(0.25)));
    }
}

TYPED_TEST(permuted_copy, past_the_caches_agrees_bit_for_bit) {
    // 16 MiB.
    const auto state = random_state<TypeParam>(std::is_same_v<TypeParam, double> ? 20 : 21, Values::unusual);
    EXPECT_TRUE(agrees(state, false, Path::fast_with_threshold, TypeParam(0.25), {3}));
    EXPECT_TRUE(agrees(state, false, Path::fast, TypeParam(0), {2}, 1));
}

TYPED_TEST(permuted_copy, into_a_buffer_off_the_16_byte_boundary_agrees_bit_for_bit) {
    const auto state = random_state<TypeParam>(10, Values::unusual);
    EXPECT_TRUE(agrees(state, false, Path::fast, TypeParam(0), {1, 3}, 1));
    EXPECT_TRUE(agrees(state, false, Path::fast_with_threshold, TypeParam(0.25), {1, 3}, 1));
    EXPECT_TRUE(agrees(state, false, Path::no_simd, TypeParam(0.25), {1, 3}, 1));
}

TYPED_TEST(permuted_copy, with_a_negative_threshold_of_7_qubits_still_applies_its_square) {
    const TypeParam threshold = TypeParam(-0.6);
    const auto state = random_state<TypeParam>(7, Values::ordinary);
    EXPECT_TRUE(agrees(state, false, Path::no_simd, threshold * threshold));
}

TYPED_TEST(permuted_copy, without_a_threshold_of_8_qubits_copies_every_value_unchanged) {
    const auto state = random_state<TypeParam>(8, Values::any_bits);
    EXPECT_TRUE(agrees(state, false, Path::fast, TypeParam(0.36)));
}

TYPED_TEST(permuted_copy, has_qubit_0_as_most_significant_bit) {
    const reference::State<TypeParam> state = {{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}, {7, 0}, {8, 0}};
    MeasuredState<TypeParam> measured(state);
    std::vector<thrust::complex<TypeParam>> out(8);
    const pbamplix::SVSequence<thrust::complex<TypeParam>> view{measured.vector().amplitudes.get(), 3, 8};
    _permute_and_copy_vector_no_simd(view, out.data(), TypeParam(0), 1);
    const TypeParam expected[] = {1, 5, 3, 7, 2, 6, 4, 8};
    for (unsigned int i = 0; i < 8; ++i) EXPECT_EQ(out[i].real(), expected[i]) << "position " << i;
}
