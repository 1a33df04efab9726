// The vector body of the binary element-wise kernels, written once over the traits of the
// vector recipe (core/oru_dispatch.h) with its tail rule; each vector file instantiates it
// with its own traits. Element by element the arithmetic is the plain form's.
#ifndef ORU_MATRIX_BASIC_L1_SIMD_H
#define ORU_MATRIX_BASIC_L1_SIMD_H

#include <cstdint>

#include "kernels/simd/oru_simd_map.h"
#include "matrix/oru_l1_kernels.h"

namespace oru {
namespace l1_simd {
namespace {

struct Add {
  template <typename S> static typename S::V v(typename S::V a, typename S::V b) { return S::add(a, b); }
};
struct Sub {
  template <typename S> static typename S::V v(typename S::V a, typename S::V b) { return S::sub(a, b); }
};
struct Mul {
  template <typename S> static typename S::V v(typename S::V a, typename S::V b) { return S::mul(a, b); }
};
struct Div {
  template <typename S> static typename S::V v(typename S::V a, typename S::V b) { return S::div(a, b); }
};

// d = a op b over n elements; plain is the kernel's plain form.
template <typename S, typename Op, typename T>
void binary(T *d, int64_t n, const T *a, const T *b, void (*plain)(T *, int64_t, const T *, const T *)) {
  simd::map2<S>(d, a, b, n, [](typename S::V x, typename S::V y) { return Op::template v<S>(x, y); },
                [plain](T *y, const T *x, const T *z, int64_t m) { plain(y, m, x, z); });
}

}  // namespace
}  // namespace l1_simd
}  // namespace oru

// The binary kernels of one instruction set: F and D are its float and double traits.
#define ORU_L1_BINARY_FORMS(isa, F, D)                                                                   \
  namespace oru {                                                                                          \
  void add_real32_##isa(float *d, int64_t n, const float *a, const float *b) {                             \
    l1_simd::binary<F, l1_simd::Add>(d, n, a, b, add_real32_plain);                                        \
  }                                                                                                        \
  void sub_real32_##isa(float *d, int64_t n, const float *a, const float *b) {                             \
    l1_simd::binary<F, l1_simd::Sub>(d, n, a, b, sub_real32_plain);                                        \
  }                                                                                                        \
  void mul_real32_##isa(float *d, int64_t n, const float *a, const float *b) {                             \
    l1_simd::binary<F, l1_simd::Mul>(d, n, a, b, mul_real32_plain);                                        \
  }                                                                                                        \
  void add_real64_##isa(double *d, int64_t n, const double *a, const double *b) {                          \
    l1_simd::binary<D, l1_simd::Add>(d, n, a, b, add_real64_plain);                                        \
  }                                                                                                        \
  void sub_real64_##isa(double *d, int64_t n, const double *a, const double *b) {                          \
    l1_simd::binary<D, l1_simd::Sub>(d, n, a, b, sub_real64_plain);                                        \
  }                                                                                                        \
  void mul_real64_##isa(double *d, int64_t n, const double *a, const double *b) {                          \
    l1_simd::binary<D, l1_simd::Mul>(d, n, a, b, mul_real64_plain);                                        \
  }                                                                                                        \
  void div_real64_##isa(double *d, int64_t n, const double *a, const double *b) {                          \
    l1_simd::binary<D, l1_simd::Div>(d, n, a, b, div_real64_plain);                                        \
  }                                                                                                        \
  }

#endif
