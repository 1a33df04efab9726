// AVX2 forms of the fixed-point row kernels.
#include "fixed/oru_fixed_internal.h"
#include "fixed/oru_fixed_rows_x86.inl"

namespace oru {

void fx_pointwise_block_avx2(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                             const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift) {
  pointwise_block_x86(out, out_plane, in, in_plane, w, ldw, oc, ic, n, shift);
}

void fx_conv3x3_row_avx2(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                         const int16_t *k9, int shift, int stride, bool accumulate) {
  conv3x3_row_x86(out, n, r0, r1, r2, k9, shift, stride, accumulate);
}

void fx_bias_act_row_avx2(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up,
                          int act, int q_out) {
  bias_act_row_x86(y, x, n, b, up_x, down, up, act, q_out);
}

}  // namespace oru
