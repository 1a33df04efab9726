// AVX2 forms of the sampling row kernels.
#include <immintrin.h>

#include "kernels/sampling/oru_sample_kernels_simd.h"

namespace {

struct Avx2 {
  using T = __m256;
  using I = __m256i;
  static constexpr int W = 8;
  static T load(const float *p) { return _mm256_loadu_ps(p); }
  static void store(float *p, T v) { _mm256_storeu_ps(p, v); }
  static T set1(float v) { return _mm256_set1_ps(v); }
  static T add(T a, T b) { return _mm256_add_ps(a, b); }
  static T mul(T a, T b) { return _mm256_mul_ps(a, b); }
  static I load_index(const int32_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
  static T gather(const float *base, I idx) { return _mm256_i32gather_ps(base, idx, 4); }
};

}  // namespace

ORU_SAMPLE_FORMS(avx2, Avx2)
