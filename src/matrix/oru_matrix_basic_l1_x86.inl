// x86-64 body of the binary element-wise kernels, shared by the AVX2 and AVX-512 files (each
// compiles it with its own flags): two vectors per step, then one, then a plain tail of the
// same arithmetic. Included once per file after defining ORU_FORM(name) to the form's
// suffixed name and, in oru::{anonymous}, the vector traits Vec: kBytes, and add, sub, mul,
// div, load and store for float and double vectors.
#include "matrix/oru_l1_kernels.h"

namespace oru {
namespace {

struct Add {
  template <typename V> static V v(V a, V b) { return Vec::add(a, b); }
  template <typename T> static T s(T a, T b) { return a + b; }
};
struct Sub {
  template <typename V> static V v(V a, V b) { return Vec::sub(a, b); }
  template <typename T> static T s(T a, T b) { return a - b; }
};
struct Mul {
  template <typename V> static V v(V a, V b) { return Vec::mul(a, b); }
  template <typename T> static T s(T a, T b) { return a * b; }
};
struct Div {
  template <typename V> static V v(V a, V b) { return Vec::div(a, b); }
  template <typename T> static T s(T a, T b) { return a / b; }
};

template <typename Op, typename T>
void binary(T *d, int64_t n, const T *a, const T *b) {
  constexpr int64_t w = Vec::kBytes / sizeof(T);
  int64_t i = 0;
  for (; i + 2 * w <= n; i += 2 * w) {
    const auto x0 = Op::v(Vec::load(a + i), Vec::load(b + i));
    const auto x1 = Op::v(Vec::load(a + i + w), Vec::load(b + i + w));
    Vec::store(d + i, x0);
    Vec::store(d + i + w, x1);
  }
  for (; i + w <= n; i += w) Vec::store(d + i, Op::v(Vec::load(a + i), Vec::load(b + i)));
  for (; i < n; ++i) d[i] = Op::s(a[i], b[i]);
}

}  // namespace

void ORU_FORM(add_real32)(float *d, int64_t n, const float *a, const float *b) { binary<Add>(d, n, a, b); }
void ORU_FORM(sub_real32)(float *d, int64_t n, const float *a, const float *b) { binary<Sub>(d, n, a, b); }
void ORU_FORM(mul_real32)(float *d, int64_t n, const float *a, const float *b) { binary<Mul>(d, n, a, b); }
void ORU_FORM(div_real32)(float *d, int64_t n, const float *a, const float *b) { binary<Div>(d, n, a, b); }
void ORU_FORM(add_real64)(double *d, int64_t n, const double *a, const double *b) { binary<Add>(d, n, a, b); }
void ORU_FORM(sub_real64)(double *d, int64_t n, const double *a, const double *b) { binary<Sub>(d, n, a, b); }
void ORU_FORM(mul_real64)(double *d, int64_t n, const double *a, const double *b) { binary<Mul>(d, n, a, b); }
void ORU_FORM(div_real64)(double *d, int64_t n, const double *a, const double *b) { binary<Div>(d, n, a, b); }

}  // namespace oru
