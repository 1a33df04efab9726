// AVX2 forms of the binary element-wise kernels: two vectors per step, then one, then a
// plain tail of the same arithmetic.
#include <immintrin.h>

#include "matrix/oru_l1_kernels.h"

namespace oru {
namespace {

struct Add {
  static __m256 v(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
  static __m256d v(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a + b; }
};
struct Sub {
  static __m256 v(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
  static __m256d v(__m256d a, __m256d b) { return _mm256_sub_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a - b; }
};
struct Mul {
  static __m256 v(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
  static __m256d v(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a * b; }
};
struct Div {
  static __m256 v(__m256 a, __m256 b) { return _mm256_div_ps(a, b); }
  static __m256d v(__m256d a, __m256d b) { return _mm256_div_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a / b; }
};

inline __m256 load(const float *p) { return _mm256_loadu_ps(p); }
inline __m256d load(const double *p) { return _mm256_loadu_pd(p); }
inline void store(float *p, __m256 v) { _mm256_storeu_ps(p, v); }
inline void store(double *p, __m256d v) { _mm256_storeu_pd(p, v); }

template <typename Op, typename T>
void binary(T *d, int64_t n, const T *a, const T *b) {
  constexpr int64_t w = 32 / sizeof(T);
  int64_t i = 0;
  for (; i + 2 * w <= n; i += 2 * w) {
    const auto x0 = Op::v(load(a + i), load(b + i));
    const auto x1 = Op::v(load(a + i + w), load(b + i + w));
    store(d + i, x0);
    store(d + i + w, x1);
  }
  for (; i + w <= n; i += w) store(d + i, Op::v(load(a + i), load(b + i)));
  for (; i < n; ++i) d[i] = Op::s(a[i], b[i]);
}

}  // namespace

void add_real32_avx2(float *d, int64_t n, const float *a, const float *b) { binary<Add>(d, n, a, b); }
void sub_real32_avx2(float *d, int64_t n, const float *a, const float *b) { binary<Sub>(d, n, a, b); }
void mul_real32_avx2(float *d, int64_t n, const float *a, const float *b) { binary<Mul>(d, n, a, b); }
void div_real32_avx2(float *d, int64_t n, const float *a, const float *b) { binary<Div>(d, n, a, b); }
void add_real64_avx2(double *d, int64_t n, const double *a, const double *b) { binary<Add>(d, n, a, b); }
void sub_real64_avx2(double *d, int64_t n, const double *a, const double *b) { binary<Sub>(d, n, a, b); }
void mul_real64_avx2(double *d, int64_t n, const double *a, const double *b) { binary<Mul>(d, n, a, b); }
void div_real64_avx2(double *d, int64_t n, const double *a, const double *b) { binary<Div>(d, n, a, b); }

}  // namespace oru
