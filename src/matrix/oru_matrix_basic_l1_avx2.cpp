// AVX2 forms of the binary element-wise kernels; the body is the shared x86-64 one.
#include <immintrin.h>

#include <cstdint>

namespace oru {
namespace {

// 256-bit vectors.
struct Vec {
  static constexpr int64_t kBytes = 32;
  static __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
  static __m256d add(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
  static __m256 sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
  static __m256d sub(__m256d a, __m256d b) { return _mm256_sub_pd(a, b); }
  static __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
  static __m256d mul(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
  static __m256 div(__m256 a, __m256 b) { return _mm256_div_ps(a, b); }
  static __m256d div(__m256d a, __m256d b) { return _mm256_div_pd(a, b); }
  static __m256 load(const float *p) { return _mm256_loadu_ps(p); }
  static __m256d load(const double *p) { return _mm256_loadu_pd(p); }
  static void store(float *p, __m256 v) { _mm256_storeu_ps(p, v); }
  static void store(double *p, __m256d v) { _mm256_storeu_pd(p, v); }
};

}  // namespace
}  // namespace oru

#define ORU_FORM(name) name##_avx2
#include "matrix/oru_matrix_basic_l1_x86.inl"
