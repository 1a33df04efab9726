// Inside of the convolution kernels: the hot row kernels with their vector forms,
// the loops that stay internal, and the checks every public kernel shares.
#ifndef ORU_CONV_INTERNAL_H
#define ORU_CONV_INTERNAL_H

#include <cmath>
#include <cstdint>

#include "oru_conv.h"

// Internal loops and fused bias kernels; not exported.
extern "C" {
uint32_t oru_tensor_std_conv2d_general_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                           const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_depthwise_conv2d_general_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *conv_workers);
void oru_std_conv2d_3x3_s1_4cols_real32(float *out, int32_t width, const float *const *rows, const float *weights);

uint32_t oru_tensor_bias_relu_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_bias_hswish_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                    const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_bias_hsigmoid_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                      const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_bias_leaky_relu_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                        const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_bias_tanh_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_bias_relu_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *conv_workers);
uint32_t oru_tensor_bias_hswish_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                    const oru_conv2d_params *params, const uint32_t *conv_workers);
}

namespace oru {

// Activation codes of the bias pass; 3 (ReLU6) is the fused operators' clamp.
enum Act : int { act_none = 0, act_relu = 1, act_hswish = 2, act_relu6 = 3, act_hsigmoid = 4,
                 act_leaky = 5, act_tanh = 6 };

constexpr float kSixth = 0.16666667f;

// What a kernel applies to each sum as it stores it: nothing when bias is null, else the
// bias of the output channel and then the activation, exactly as the separate bias pass
// would, so that pass over the output is saved.
struct Epilogue {
  const float *bias;
  int act;
};

// ---- Hot row kernels; every form has the signature of its plain twin. ----

// One output row of a 3x3 stride 1 window: out[x] (+)= sum of the nine taps, r0..r2 at
// columns x, x+1, x+2, products summed in weight order before the add.
void conv3x3_s1_row_plain(float *out, int64_t n, const float *r0, const float *r1, const float *r2,
                          const float *k9, bool accumulate);
void conv3x3_s1_row_avx2(float *out, int64_t n, const float *r0, const float *r1, const float *r2,
                         const float *k9, bool accumulate);
void conv3x3_s1_row_avx512(float *out, int64_t n, const float *r0, const float *r1, const float *r2,
                           const float *k9, bool accumulate);
void conv3x3_s1_row_neon(float *out, int64_t n, const float *r0, const float *r1, const float *r2,
                         const float *k9, bool accumulate);

// even[j] = src[2j], odd[j] = src[2j + 1] for j < n: a row split into its even and odd
// columns, so that stride-2 taps become contiguous loads.
void deinterleave_plain(float *even, float *odd, const float *src, int64_t n);
void deinterleave_avx2(float *even, float *odd, const float *src, int64_t n);
void deinterleave_avx512(float *even, float *odd, const float *src, int64_t n);
void deinterleave_neon(float *even, float *odd, const float *src, int64_t n);

// Up to 4 output rows (ldo apart) of one channel of a depthwise 3x3 stride 2 convolution
// from split padded rows: rows holds an even and an odd pointer for each of the
// 2 * nrows + 1 input rows 2oy-1 .. 2oy+2nrows-1 (padded column q = input column q - 1).
// Output (r, x) takes the taps even[x], odd[x], even[x+1] of input rows 2r .. 2r+2 in
// weight order, first a product and then fused multiply-adds; written through e.
void dw3x3_s2_rows_plain(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);
void dw3x3_s2_rows_avx2(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);
void dw3x3_s2_rows_avx512(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);
void dw3x3_s2_rows_neon(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);

// Up to 4 output rows (ldo apart) of one channel of a depthwise 3x3 stride 1 convolution:
// rows holds the nrows + 2 input rows oy-1 .. oy+nrows; output row r is the nine-tap sum
// of rows r, r+1, r+2 as conv3x3_s1_row forms it, written through e. The vector forms
// load each input vector once for the (up to) three output rows that read it.
void dw3x3_s1_rows_plain(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);
void dw3x3_s1_rows_avx2(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);
void dw3x3_s1_rows_avx512(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);
void dw3x3_s1_rows_neon(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9, Epilogue e);

// Up to 4 output rows of one output channel over all its input channels: rows holds six
// row pointers per input channel (input rows oy-1 .. oy+4), k the channel's ic kernels of 9.
// out[r][x] = sum over i ascending of the nine-tap sum of channel i, each tap sum formed first.
void conv3x3_s1_multi_plain(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                            const float *k);
void conv3x3_s1_multi_avx2(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                           const float *k);
void conv3x3_s1_multi_avx512(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                             const float *k);
void conv3x3_s1_multi_neon(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                           const float *k);

// One output row of oc output channels (rows ldo apart) of a 3x3 stride 2 standard
// convolution over all input channels, from deinterleaved padded rows: six pointers per
// channel, the even and odd columns of input rows 2oy-1, 2oy, 2oy+1 (padded column q =
// input column q - 1). Taps of output x are even[x], odd[x], even[x+1] of each row; the
// weights of output channel o start at k + o * ic * 9. Channel sums ascending, each
// nine-tap sum formed before it is added, as in the general loop; e.bias is indexed by o.
void conv3x3_s2_multi_plain(float *out, int64_t ldo, int oc, int64_t n, const float *const *rows, int64_t ic,
                            const float *k, Epilogue e);
void conv3x3_s2_multi_avx2(float *out, int64_t ldo, int oc, int64_t n, const float *const *rows, int64_t ic,
                           const float *k, Epilogue e);
void conv3x3_s2_multi_avx512(float *out, int64_t ldo, int oc, int64_t n, const float *const *rows, int64_t ic,
                             const float *k, Epilogue e);
void conv3x3_s2_multi_neon(float *out, int64_t ldo, int oc, int64_t n, const float *const *rows, int64_t ic,
                           const float *k, Epilogue e);

// oc output planes of a 1x1 convolution over all ic input planes, written through e (its
// bias indexed by output channel):
// out[o][p] = sum over i ascending of w[o * ldw + i] * in[i][p], one fused multiply-add at
// a time from zero. The vector forms hold a tile of output channels and pixels in
// registers for the whole sum, so each output is stored once.
void pointwise_planes_plain(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w,
                            int64_t ldw, int oc, int ic, int64_t n, Epilogue e);
void pointwise_planes_avx2(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w,
                           int64_t ldw, int oc, int ic, int64_t n, Epilogue e);
void pointwise_planes_avx512(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w,
                             int64_t ldw, int oc, int ic, int64_t n, Epilogue e);
void pointwise_planes_neon(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w,
                           int64_t ldw, int oc, int ic, int64_t n, Epilogue e);

// y[i] = act(x[i] + b) over one line; x and y may be the same.
void bias_act_line_plain(float *y, const float *x, float b, int64_t n, int act);
void bias_act_line_avx2(float *y, const float *x, float b, int64_t n, int act);
void bias_act_line_avx512(float *y, const float *x, float b, int64_t n, int act);
void bias_act_line_neon(float *y, const float *x, float b, int64_t n, int act);

// The scalar activation of one biased value; every vector form falls back to it.
inline float act_scalar(float t, int act);

// ---- Shared pieces of the public kernels. ----

inline bool is_depthwise(const oru_conv2d_params &p) {
  return p.in_channels == p.out_channels && p.out_channels == p.groups;
}

// Number of kernels n in the weight tensor (in * out, or in for depthwise).
inline int64_t kernel_count(const oru_conv2d_params &p) {
  return is_depthwise(p) ? int64_t(p.in_channels) : int64_t(p.in_channels) * p.out_channels;
}

// Output extent along one axis, or 0 when the shape can't be made.
int32_t conv_out_extent(int32_t in, int32_t kernel, int32_t stride, int32_t pad, int32_t dilation);

// A float tensor with data and three usable dimensions.
bool tensor_usable(const oru_tensor *t);

// The checks of every direct kernel: tensors, channels against the record, and an output
// plane that matches the shape formula (so a mismatched tensor can't be written past its end).
uint32_t check_direct_args(const oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                           const oru_conv2d_params *params, bool use_dilation);

// Plane of a tensor's channel c in CHW.
inline float *plane(const oru_tensor *t, int64_t c) {
  return static_cast<float *>(t->data) + c * int64_t(t->dims[0]) * t->dims[1];
}

// Patch panels of output row oy (panels of nr columns, the last zero-filled) and the
// whole patch matrix of the generic shape.
// row_buf: in_w + 2p floats whose first and last p are zero.
void im2col_fill_row_panels(float *dst, const float *in, int32_t channels, int32_t in_w, int32_t in_h, int32_t k,
                            int32_t s, int32_t p, int32_t oy, int32_t out_w, int32_t nr, float *row_buf);
void im2col_fill_matrix(float *dst, const float *in, int32_t channels, int32_t in_w, int32_t in_h, int32_t k,
                        int32_t s, int32_t p, int32_t out_w, int32_t out_h);

// A direct CHW convolution (standard, pointwise or depthwise, by its parameters) with the
// bias words of its weight tensor and the activation act (0..6) applied as the sums are
// stored; the same results as the convolution followed by bias_act_chw, in one pass over
// the output where the loop allows it.
uint32_t direct_conv_bias_act_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *conv_workers, int act);

// Bias plus activation over CHW and HWG output (act_relu6 included).
uint32_t bias_act_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                      const oru_conv2d_params *params, int act);
uint32_t bias_act_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                      const oru_conv2d_params *params, int act);

inline float act_scalar(float t, int act) {
  switch (act) {
    case act_relu: return t > 0.0f ? t : 0.0f;
    case act_hswish: {
      float c = t + 3.0f;
      c = c > 0.0f ? c : 0.0f;
      c = c < 6.0f ? c : 6.0f;
      return (t * c) * kSixth;
    }
    case act_relu6: {
      float c = t > 0.0f ? t : 0.0f;
      return c < 6.0f ? c : 6.0f;
    }
    case act_hsigmoid: {
      float c = t + 3.0f;
      c = c > 0.0f ? c : 0.0f;
      c = c < 6.0f ? c : 6.0f;
      return c * kSixth;
    }
    case act_leaky: {
      float s = 0.1f * t;
      return t >= s ? t : s;
    }
    case act_tanh: {
      float e = std::exp(2.0f * t);
      return (e - 1.0f) / (e + 1.0f);
    }
    default: return t;
  }
}

inline float finish_scalar(float s, const Epilogue &e, int64_t o) { return e.bias ? act_scalar(s + e.bias[o], e.act) : s; }

}  // namespace oru

#endif
