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
#define ORU_L1_BINARY_FORM(k, isa, T, S, Op)                                             \
  void k##_##isa(T *d, int64_t n, const T *a, const T *b) {                                \
    l1_simd::binary<S, l1_simd::Op>(d, n, a, b, k##_plain);                                \
  }
#define ORU_L1_BINARY_FORMS(isa, F, D)                 \
  namespace oru {                                      \
  ORU_L1_BINARY_FORM(add_real32, isa, float, F, Add)   \
  ORU_L1_BINARY_FORM(sub_real32, isa, float, F, Sub)   \
  ORU_L1_BINARY_FORM(mul_real32, isa, float, F, Mul)   \
  ORU_L1_BINARY_FORM(add_real64, isa, double, D, Add)  \
  ORU_L1_BINARY_FORM(sub_real64, isa, double, D, Sub)  \
  ORU_L1_BINARY_FORM(mul_real64, isa, double, D, Mul)  \
  ORU_L1_BINARY_FORM(div_real64, isa, double, D, Div)  \
  }

#endif
