// Plain forms of the hot row kernels: the reference for the vector forms, and what
// processors without a vector form run.
#include "kernels/conv/oru_conv_rows_scalar.h"

namespace oru {

void conv3x3_s1_row_plain(float *out, int64_t n, const float *r0, const float *r1, const float *r2,
                          const float *k9, bool accumulate) {
  conv3x3_s1_row_scalar(out, n, r0, r1, r2, k9, accumulate);
}

void dw3x3_s1_rows_plain(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9,
                         Epilogue e) {
  dw3x3_s1_rows_scalar(out, ldo, nrows, n, rows, k9, e);
}

void deinterleave_plain(float *even, float *odd, const float *src, int64_t n) { deinterleave_scalar(even, odd, src, n); }

void dw3x3_s2_rows_plain(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9,
                         Epilogue e) {
  dw3x3_s2_rows_scalar(out, ldo, nrows, n, rows, k9, e);
}

void conv3x3_s1_multi_plain(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                            const float *k) {
  conv3x3_s1_multi_scalar(out, ldo, nrows, n, rows, ic, k);
}

void conv3x3_s2_multi_plain(float *out, int64_t ldo, int oc, int64_t n, const float *const *rows, int64_t ic,
                            const float *k, Epilogue e) {
  for (int o = 0; o < oc; ++o)
    conv3x3_s2_multi_scalar(out + o * ldo, n, rows, ic, k + o * ic * 9, {e.bias ? e.bias + o : nullptr, e.act});
}

void pointwise_planes_plain(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w,
                            int64_t ldw, int oc, int ic, int64_t n, Epilogue e) {
  pointwise_planes_scalar(out, out_plane, in, in_plane, w, ldw, oc, ic, n, e);
}

void bias_act_line_plain(float *y, const float *x, float b, int64_t n, int act) {
  for (int64_t i = 0; i < n; ++i) y[i] = act_scalar(x[i] + b, act);
}

}  // namespace oru
