#pragma once

#include "statevector/packs/pack.hpp"

#if defined(__SSE2__)
#include <immintrin.h>
#endif

// Whether all scalars of a pack are finite and different from zero. The vector types offer no quick way from a
// comparison to a branch, so this one question is put in the processor's own words; elsewhere it goes unasked, which
// only costs time.

namespace velacamplix::packs {

#if defined(__AVX512DQ__)

// Classes of vfpclass: quiet NaN 0x01, zeros 0x02 and 0x04, infinities 0x08 and 0x10, signalling NaN 0x80.
[[gnu::always_inline]] inline bool all_ordinary(pack_type<double, 64>::type v) {
    return _mm512_fpclass_pd_mask(v, 0x9f) == 0;
}
[[gnu::always_inline]] inline bool all_ordinary(pack_type<float, 64>::type v) {
    return _mm512_fpclass_ps_mask(v, 0x9f) == 0;
}

#endif
#if defined(__AVX__)

[[gnu::always_inline]] inline bool all_ordinary(pack_type<double, 32>::type v) {
    const __m256d size = _mm256_andnot_pd(_mm256_set1_pd(-0.0), v);
    const __m256d ordinary = _mm256_and_pd(_mm256_cmp_pd(size, _mm256_setzero_pd(), _CMP_GT_OQ),
                                           _mm256_cmp_pd(size, _mm256_set1_pd(__builtin_inf()), _CMP_LT_OQ));
    return _mm256_movemask_pd(ordinary) == 0xf;
}
[[gnu::always_inline]] inline bool all_ordinary(pack_type<float, 32>::type v) {
    const __m256 size = _mm256_andnot_ps(_mm256_set1_ps(-0.0f), v);
    const __m256 ordinary = _mm256_and_ps(_mm256_cmp_ps(size, _mm256_setzero_ps(), _CMP_GT_OQ),
                                          _mm256_cmp_ps(size, _mm256_set1_ps(__builtin_inff()), _CMP_LT_OQ));
    return _mm256_movemask_ps(ordinary) == 0xff;
}

#endif
#if defined(__SSE2__)

[[gnu::always_inline]] inline bool all_ordinary(pack_type<double, 16>::type v) {
    const __m128d size = _mm_andnot_pd(_mm_set1_pd(-0.0), v);
    const __m128d ordinary =
        _mm_and_pd(_mm_cmpgt_pd(size, _mm_setzero_pd()), _mm_cmplt_pd(size, _mm_set1_pd(__builtin_inf())));
    return _mm_movemask_pd(ordinary) == 0x3;
}
[[gnu::always_inline]] inline bool all_ordinary(pack_type<float, 16>::type v) {
    const __m128 size = _mm_andnot_ps(_mm_set1_ps(-0.0f), v);
    const __m128 ordinary =
        _mm_and_ps(_mm_cmpgt_ps(size, _mm_setzero_ps()), _mm_cmplt_ps(size, _mm_set1_ps(__builtin_inff())));
    return _mm_movemask_ps(ordinary) == 0xf;
}

#endif

// Single amplitudes in single precision, and processors without the above.
template <class V>
[[gnu::always_inline]] inline bool all_ordinary(V) {
    return false;
}

}  // namespace velacamplix::packs
