// Scalar bodies of the row kernels. Taps after the first are fused multiply-adds, as the
// vector forms do them, so all forms round alike. Each including file gets its own copy
// (internal linkage): the plain forms, and the vector files for their ragged tails, where
// std::fma then compiles to the ISA's own instruction instead of a library call.
#ifndef ORU_CONV_ROWS_SCALAR_H
#define ORU_CONV_ROWS_SCALAR_H

#include <cmath>

#include "conv/oru_conv_internal.h"

namespace oru {
namespace {

inline void conv3x3_s1_row_scalar(float *out, int64_t n, const float *r0, const float *r1, const float *r2,
                          const float *k9, bool accumulate) {
  for (int64_t x = 0; x < n; ++x) {
    float s = r0[x] * k9[0];
    s = std::fma(r0[x + 1], k9[1], s);
    s = std::fma(r0[x + 2], k9[2], s);
    s = std::fma(r1[x], k9[3], s);
    s = std::fma(r1[x + 1], k9[4], s);
    s = std::fma(r1[x + 2], k9[5], s);
    s = std::fma(r2[x], k9[6], s);
    s = std::fma(r2[x + 1], k9[7], s);
    s = std::fma(r2[x + 2], k9[8], s);
    out[x] = accumulate ? out[x] + s : s;
  }
}

inline void conv3x3_s1_multi_scalar(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                            const float *k) {
  for (int r = 0; r < nrows; ++r)
    for (int64_t x = 0; x < n; ++x) {
      float acc = 0.0f;
      for (int64_t i = 0; i < ic; ++i) {
        const float *const *ri = rows + i * 6 + r;
        const float *k9 = k + i * 9;
        float s = ri[0][x] * k9[0];
        s = std::fma(ri[0][x + 1], k9[1], s);
        s = std::fma(ri[0][x + 2], k9[2], s);
        s = std::fma(ri[1][x], k9[3], s);
        s = std::fma(ri[1][x + 1], k9[4], s);
        s = std::fma(ri[1][x + 2], k9[5], s);
        s = std::fma(ri[2][x], k9[6], s);
        s = std::fma(ri[2][x + 1], k9[7], s);
        s = std::fma(ri[2][x + 2], k9[8], s);
        acc += s;
      }
      out[r * ldo + x] = acc;
    }
}

inline void conv3x3_s2_multi_scalar(float *out, int64_t n, const float *const *rows, int64_t ic, const float *k,
                                    Epilogue e = {nullptr, 0}) {
  for (int64_t x = 0; x < n; ++x) {
    float acc = 0.0f;
    for (int64_t i = 0; i < ic; ++i) {
      const float *const *r = rows + i * 6;
      const float *k9 = k + i * 9;
      float s = r[0][x] * k9[0];
      s = std::fma(r[1][x], k9[1], s);
      s = std::fma(r[0][x + 1], k9[2], s);
      s = std::fma(r[2][x], k9[3], s);
      s = std::fma(r[3][x], k9[4], s);
      s = std::fma(r[2][x + 1], k9[5], s);
      s = std::fma(r[4][x], k9[6], s);
      s = std::fma(r[5][x], k9[7], s);
      s = std::fma(r[4][x + 1], k9[8], s);
      acc += s;
    }
    out[x] = finish_scalar(acc, e, 0);
  }
}

inline void pointwise_planes_scalar(float *out, int64_t out_plane, const float *in, int64_t in_plane,
                                    const float *w, int64_t ldw, int oc, int ic, int64_t n, Epilogue e) {
  for (int o = 0; o < oc; ++o) {
    const float *wo = w + o * ldw;
    for (int64_t p = 0; p < n; ++p) {
      float acc = 0.0f;
      for (int i = 0; i < ic; ++i) acc = std::fma(wo[i], in[i * in_plane + p], acc);
      out[o * out_plane + p] = finish_scalar(acc, e, o);
    }
  }
}

inline void deinterleave_scalar(float *even, float *odd, const float *src, int64_t n) {
  for (int64_t j = 0; j < n; ++j) {
    even[j] = src[2 * j];
    odd[j] = src[2 * j + 1];
  }
}

inline void dw3x3_s2_rows_scalar(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows,
                                 const float *k9, Epilogue e) {
  for (int r = 0; r < nrows; ++r) {
    const float *const *q = rows + 4 * r;  // even, odd of input rows 2r, 2r+1, 2r+2
    for (int64_t x = 0; x < n; ++x) {
      float s = q[0][x] * k9[0];
      s = std::fma(q[1][x], k9[1], s);
      s = std::fma(q[0][x + 1], k9[2], s);
      s = std::fma(q[2][x], k9[3], s);
      s = std::fma(q[3][x], k9[4], s);
      s = std::fma(q[2][x + 1], k9[5], s);
      s = std::fma(q[4][x], k9[6], s);
      s = std::fma(q[5][x], k9[7], s);
      s = std::fma(q[4][x + 1], k9[8], s);
      out[r * ldo + x] = finish_scalar(s, e, 0);
    }
  }
}

inline void dw3x3_s1_rows_scalar(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows,
                                 const float *k9, Epilogue e) {
  for (int r = 0; r < nrows; ++r) {
    float *o = out + r * ldo;
    conv3x3_s1_row_scalar(o, n, rows[r], rows[r + 1], rows[r + 2], k9, false);
    if (e.bias)
      for (int64_t x = 0; x < n; ++x) o[x] = finish_scalar(o[x], e, 0);
  }
}

}  // namespace
}  // namespace oru

#endif
