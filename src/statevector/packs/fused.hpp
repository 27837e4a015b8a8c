#pragma once

#include "statevector/packs/pack.hpp"

#if defined(__FMA__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#include <type_traits>

namespace velacamplix::packs {

// a * b + c, rounded once where processors can: written out, so that all that can give the same bits. For loops that
// opt-in fusion alone reaches; everything else rounds products and sums separately, everywhere. A file that includes
// this is compiled with -mfma at the levels that have it.
template <class V>
[[gnu::always_inline]] inline V fused_multiply_add(V a, V b, V c) {
    [[maybe_unused]] constexpr bool is_float = std::is_same_v<scalar_of<V>, float>;
#if defined(__FMA__)
#if defined(__AVX512F__)
    if constexpr (sizeof(V) == 64 && is_float) return (V)_mm512_fmadd_ps((__m512)a, (__m512)b, (__m512)c);
    if constexpr (sizeof(V) == 64 && !is_float) return (V)_mm512_fmadd_pd((__m512d)a, (__m512d)b, (__m512d)c);
#endif
    if constexpr (sizeof(V) == 32 && is_float) return (V)_mm256_fmadd_ps((__m256)a, (__m256)b, (__m256)c);
    if constexpr (sizeof(V) == 32 && !is_float) return (V)_mm256_fmadd_pd((__m256d)a, (__m256d)b, (__m256d)c);
    if constexpr (sizeof(V) == 16 && is_float) return (V)_mm_fmadd_ps((__m128)a, (__m128)b, (__m128)c);
    if constexpr (sizeof(V) == 16 && !is_float) return (V)_mm_fmadd_pd((__m128d)a, (__m128d)b, (__m128d)c);
    if constexpr (sizeof(V) == 8) {
        return V{__builtin_fmaf(a[0], b[0], c[0]), __builtin_fmaf(a[1], b[1], c[1])};
    }
#elif defined(__aarch64__)
    if constexpr (sizeof(V) == 16 && is_float) return (V)vfmaq_f32((float32x4_t)c, (float32x4_t)a, (float32x4_t)b);
    if constexpr (sizeof(V) == 16 && !is_float) return (V)vfmaq_f64((float64x2_t)c, (float64x2_t)a, (float64x2_t)b);
    if constexpr (sizeof(V) == 8) return (V)vfma_f32((float32x2_t)c, (float32x2_t)a, (float32x2_t)b);
#else
    return a * b + c;
#endif
}

}  // namespace velacamplix::packs
