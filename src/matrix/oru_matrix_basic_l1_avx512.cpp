// AVX-512 forms of the binary element-wise kernels; the body is the shared x86-64 one.
#include "kernels/simd/oru_simd_avx512.h"

#include <cstdint>

namespace oru {
namespace {

// 512-bit vectors.
struct Vec {
  static constexpr int64_t kBytes = 64;
  static __m512 add(__m512 a, __m512 b) { return _mm512_add_ps(a, b); }
  static __m512d add(__m512d a, __m512d b) { return _mm512_add_pd(a, b); }
  static __m512 sub(__m512 a, __m512 b) { return _mm512_sub_ps(a, b); }
  static __m512d sub(__m512d a, __m512d b) { return _mm512_sub_pd(a, b); }
  static __m512 mul(__m512 a, __m512 b) { return _mm512_mul_ps(a, b); }
  static __m512d mul(__m512d a, __m512d b) { return _mm512_mul_pd(a, b); }
  static __m512 div(__m512 a, __m512 b) { return _mm512_div_ps(a, b); }
  static __m512d div(__m512d a, __m512d b) { return _mm512_div_pd(a, b); }
  static __m512 load(const float *p) { return _mm512_loadu_ps(p); }
  static __m512d load(const double *p) { return _mm512_loadu_pd(p); }
  static void store(float *p, __m512 v) { _mm512_storeu_ps(p, v); }
  static void store(double *p, __m512d v) { _mm512_storeu_pd(p, v); }
};

}  // namespace
}  // namespace oru

#define ORU_FORM(name) name##_avx512
#include "matrix/oru_matrix_basic_l1_x86.inl"
