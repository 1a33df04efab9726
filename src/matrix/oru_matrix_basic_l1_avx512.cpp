// AVX-512 forms of the binary element-wise kernels: two vectors per step, then one, then a
// plain tail of the same arithmetic.
#include <immintrin.h>

// GCC 12 takes the deliberately undefined pass-through operand inside its AVX-512
// intrinsics for an uninitialised variable.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "matrix/oru_l1_kernels.h"

namespace oru {
namespace {

struct Add {
  static __m512 v(__m512 a, __m512 b) { return _mm512_add_ps(a, b); }
  static __m512d v(__m512d a, __m512d b) { return _mm512_add_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a + b; }
};
struct Sub {
  static __m512 v(__m512 a, __m512 b) { return _mm512_sub_ps(a, b); }
  static __m512d v(__m512d a, __m512d b) { return _mm512_sub_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a - b; }
};
struct Mul {
  static __m512 v(__m512 a, __m512 b) { return _mm512_mul_ps(a, b); }
  static __m512d v(__m512d a, __m512d b) { return _mm512_mul_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a * b; }
};
struct Div {
  static __m512 v(__m512 a, __m512 b) { return _mm512_div_ps(a, b); }
  static __m512d v(__m512d a, __m512d b) { return _mm512_div_pd(a, b); }
  template <typename T> static T s(T a, T b) { return a / b; }
};

inline __m512 load(const float *p) { return _mm512_loadu_ps(p); }
inline __m512d load(const double *p) { return _mm512_loadu_pd(p); }
inline void store(float *p, __m512 v) { _mm512_storeu_ps(p, v); }
inline void store(double *p, __m512d v) { _mm512_storeu_pd(p, v); }

template <typename Op, typename T>
void binary(T *d, int64_t n, const T *a, const T *b) {
  constexpr int64_t w = 64 / sizeof(T);
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

void add_real32_avx512(float *d, int64_t n, const float *a, const float *b) { binary<Add>(d, n, a, b); }
void sub_real32_avx512(float *d, int64_t n, const float *a, const float *b) { binary<Sub>(d, n, a, b); }
void mul_real32_avx512(float *d, int64_t n, const float *a, const float *b) { binary<Mul>(d, n, a, b); }
void div_real32_avx512(float *d, int64_t n, const float *a, const float *b) { binary<Div>(d, n, a, b); }
void add_real64_avx512(double *d, int64_t n, const double *a, const double *b) { binary<Add>(d, n, a, b); }
void sub_real64_avx512(double *d, int64_t n, const double *a, const double *b) { binary<Sub>(d, n, a, b); }
void mul_real64_avx512(double *d, int64_t n, const double *a, const double *b) { binary<Mul>(d, n, a, b); }
void div_real64_avx512(double *d, int64_t n, const double *a, const double *b) { binary<Div>(d, n, a, b); }

}  // namespace oru
