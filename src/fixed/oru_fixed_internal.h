// Inside of the fixed-point kernels: the integer rules every kernel shares and the hot row
// kernels, a plain form (the reference) and vector twins of one signature each.
#ifndef ORU_FIXED_INTERNAL_H
#define ORU_FIXED_INTERNAL_H

#include <cstdint>

#include "oru_fixed.h"

// Internal loops and fused bias kernels of the fixed-point convolution; not exported.
extern "C" {
uint32_t oru_tensor_std_conv2d_general_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                 int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                 const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_depthwise_conv2d_general_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                       int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                       const oru_conv2d_params *params,
                                                       const uint32_t *conv_workers);
uint32_t oru_tensor_bias_relu_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                        const oru_tensor *weight, int32_t q_weight, const oru_conv2d_params *params);
uint32_t oru_tensor_bias_hswish_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                          const oru_tensor *weight, int32_t q_weight,
                                          const oru_conv2d_params *params);
}

namespace oru {

// The kernels' common arithmetic: a rescale is an arithmetic right shift with half a step
// added first; 16-bit results keep the low bits, so sums wrap instead of saturating.
static inline int32_t fx_round_term(int32_t shift) { return shift > 0 ? int32_t(1u << (shift - 1)) : 0; }

static inline int16_t fx_low16(int64_t v) { return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint64_t>(v))); }

// 32-bit arithmetic with wrap-around, written so that the compiler may not assume otherwise.
static inline int32_t fx_add32(int32_t a, int32_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }
static inline int32_t fx_mul32(int32_t a, int32_t b) { return int32_t(uint32_t(a) * uint32_t(b)); }
static inline int32_t fx_shl32(int32_t a, int32_t n) { return int32_t(uint32_t(a) << n); }

// (acc + R) >> s; a negative s (an output Q above the product's) shifts left instead.
static inline int32_t fx_rescale(int32_t acc, int32_t s) {
  return s >= 0 ? (fx_add32(acc, fx_round_term(s)) >> s) : fx_shl32(acc, -s);
}

// x in Q qa plus y in Q qb into Q q_out: both brought to the larger Q first, then a
// rounded right shift or a plain left shift to q_out. 32 bits; the bias and add rule.
struct FxSumRule {
  int32_t up_x, up_y, down, up, round;
};

static inline FxSumRule fx_sum_rule(int32_t qa, int32_t qb, int32_t q_out) {
  const int32_t top = qa <= qb ? qb : qa;
  FxSumRule r{};
  r.up_x = top - qa;
  r.up_y = top - qb;
  r.down = top >= q_out ? top - q_out : 0;
  r.up = top < q_out ? q_out - top : 0;
  r.round = fx_round_term(r.down);
  return r;
}

static inline int32_t fx_sum(int32_t x, int32_t y, const FxSumRule &r) {
  const int32_t t = fx_add32(fx_shl32(x, r.up_x), fx_shl32(y, r.up_y));
  return r.up ? fx_shl32(t, r.up) : fx_add32(t, r.round) >> r.down;
}

static inline bool fx_q_ok(int32_t q) { return q >= 0 && q <= ORU_Q_MAX; }

// ---- Hot row kernels. ----

// A block of oc (1..4) output planes of a 1x1 convolution over all ic input planes:
// out[o][p] += sum over i of ((in[i][p] * w[o * ldw + i] + R) >> shift), modulo 2^16.
// shift lies in 0..30.
void fx_pointwise_block_plain(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                              const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift);
void fx_pointwise_block_avx2(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                             const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift);
void fx_pointwise_block_avx512(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                               const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift);
void fx_pointwise_block_neon(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                             const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift);

// One output row of a 3x3 window over zero-padded rows r0..r2: the taps of output x are
// columns x * stride .. x * stride + 2. term = (nine-tap sum + R) >> shift (shift 0..30);
// out[x] = term, or out[x] + term modulo 2^16 when accumulating. stride is 1 or 2.
void fx_conv3x3_row_plain(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                          const int16_t *k9, int shift, int stride, bool accumulate);
void fx_conv3x3_row_avx2(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                         const int16_t *k9, int shift, int stride, bool accumulate);
void fx_conv3x3_row_avx512(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                           const int16_t *k9, int shift, int stride, bool accumulate);
void fx_conv3x3_row_neon(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                         const int16_t *k9, int shift, int stride, bool accumulate);

// The bias tail over one line: t = (x << up_x) + b (b brought to the common Q already), then
// t << up when up > 0, else (t + R) >> down; then act (0 none, 1 ReLU, 2 h-swish in Q q_out,
// 3 ReLU6 in Q q_out); the low 16 bits go to y. x and y may be the same.
void fx_bias_act_row_plain(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up, int act,
                           int q_out);
void fx_bias_act_row_avx2(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up, int act,
                          int q_out);
void fx_bias_act_row_avx512(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up,
                            int act, int q_out);
void fx_bias_act_row_neon(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up, int act,
                          int q_out);

// The forms the library picks once; tests reach every form through ORU_KERNEL_FORMS.
using FxPointwiseBlockFn = decltype(&fx_pointwise_block_plain);
using FxConv3x3RowFn = decltype(&fx_conv3x3_row_plain);
FxPointwiseBlockFn fx_pointwise_block();
FxConv3x3RowFn fx_conv3x3_row();
using FxBiasActRowFn = decltype(&fx_bias_act_row_plain);
FxBiasActRowFn fx_bias_act_row();

// ---- Shared checks. ----

static inline bool fx_usable(const oru_tensor *t) { return t && t->data && t->ndims >= 1 && t->type == ai16s; }
static inline int32_t fx_dim(const oru_tensor *t, int k) { return t->ndims > k ? t->dims[k] : 1; }
static inline int16_t *fx_plane(const oru_tensor *t, int64_t c) {
  return static_cast<int16_t *>(t->data) + c * int64_t(fx_dim(t, 0)) * fx_dim(t, 1);
}

}  // namespace oru

#endif
