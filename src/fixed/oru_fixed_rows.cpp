// Plain forms of the fixed-point row kernels: the reference every vector twin matches bit
// for bit, and the one place that picks the form this CPU runs.
#include "core/oru_dispatch.h"
#include "fixed/oru_fixed_internal.h"

namespace oru {

void fx_pointwise_block_plain(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                              const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift) {
  const int32_t r = fx_round_term(shift);
  for (int o = 0; o < oc; ++o) {
    int16_t *y = out + o * out_plane;
    const int16_t *wo = w + o * ldw;
    for (int64_t p = 0; p < n; ++p) {
      int32_t sum = y[p];
      for (int64_t i = 0; i < ic; ++i)
        sum = fx_add32(sum, fx_add32(fx_mul32(in[i * in_plane + p], wo[i]), r) >> shift);
      y[p] = fx_low16(sum);
    }
  }
}

void fx_conv3x3_row_plain(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                          const int16_t *k9, int shift, int stride, bool accumulate) {
  const int32_t r = fx_round_term(shift);
  for (int64_t x = 0; x < n; ++x) {
    const int64_t c = x * stride;
    int32_t acc = 0;
    for (int k = 0; k < 3; ++k) {
      acc = fx_add32(acc, fx_mul32(r0[c + k], k9[k]));
      acc = fx_add32(acc, fx_mul32(r1[c + k], k9[3 + k]));
      acc = fx_add32(acc, fx_mul32(r2[c + k], k9[6 + k]));
    }
    const int32_t term = fx_add32(acc, r) >> shift;
    out[x] = fx_low16(accumulate ? int64_t(out[x]) + term : term);
  }
}

void fx_bias_act_row_plain(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up, int act,
                           int q_out) {
  const int32_t r = fx_round_term(down), three = 3 << q_out, six = 6 << q_out, rq = fx_round_term(q_out);
  for (int64_t i = 0; i < n; ++i) {
    int32_t t = fx_add32(fx_shl32(x[i], up_x), b);
    t = up > 0 ? fx_shl32(t, up) : fx_add32(t, r) >> down;
    if (act == 1) {
      t = t > 0 ? t : 0;
    } else if (act == 2) {
      int32_t c = fx_add32(t, three);
      c = c < 0 ? 0 : (c > six ? six : c);
      const int32_t p = fx_add32(fx_mul32(c, t), rq) >> q_out;
      t = fx_add32(fx_mul32(p, 5461), 16384) >> 15;  // 5461 is 1/6 in Q15
    } else if (act == 3) {
      t = t < 0 ? 0 : (t > six ? six : t);
    }
    y[i] = fx_low16(t);
  }
}

FxBiasActRowFn fx_bias_act_row() {
  static const FxBiasActRowFn k = pick(ORU_KERNEL_FORMS(fx_bias_act_row));
  return k;
}

FxPointwiseBlockFn fx_pointwise_block() {
  static const FxPointwiseBlockFn k = pick(ORU_KERNEL_FORMS(fx_pointwise_block));
  return k;
}

FxConv3x3RowFn fx_conv3x3_row() {
  static const FxConv3x3RowFn k = pick(ORU_KERNEL_FORMS(fx_conv3x3_row));
  return k;
}

}  // namespace oru
