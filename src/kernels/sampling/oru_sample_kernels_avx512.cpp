// AVX-512 forms of the sampling row kernels.
#include <immintrin.h>

#include "kernels/sampling/oru_sample_kernels_simd.h"

namespace {

struct Avx512 {
  using T = __m512;
  using I = __m512i;
  static constexpr int W = 16;
  static T load(const float *p) { return _mm512_loadu_ps(p); }
  static void store(float *p, T v) { _mm512_storeu_ps(p, v); }
  static T set1(float v) { return _mm512_set1_ps(v); }
  static T add(T a, T b) { return _mm512_add_ps(a, b); }
  static T mul(T a, T b) { return _mm512_mul_ps(a, b); }
  static I load_index(const int32_t *p) { return _mm512_loadu_si512(p); }
  // The masked form: the plain one starts from an undefined register.
  static T gather(const float *base, I idx) { return _mm512_mask_i32gather_ps(_mm512_setzero_ps(), 0xFFFF, idx, base, 4); }
};

}  // namespace

ORU_SAMPLE_FORMS(avx512, Avx512)
