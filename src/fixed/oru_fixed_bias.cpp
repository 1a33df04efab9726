// The bias and activation tails of the fixed-point convolutions, and the fused operators'
// whole step: convolution by its grouping, then the tail on the output in place.
#include "fixed/oru_fixed_internal.h"

namespace oru {
namespace {

enum class Tail { bias, relu, hswish, relu6 };

bool is_depthwise(const oru_conv2d_params &p) {
  return p.in_channels == p.out_channels && p.out_channels == p.groups;
}

uint32_t bias_tail(oru_tensor *out, int32_t q_out, const oru_tensor *in, int32_t q_in, const oru_tensor *w,
                   int32_t q_w, const oru_conv2d_params *params, Tail tail) {
  if (!fx_usable(out) || !fx_usable(in) || !fx_usable(w) || !params) return ORU_RET_ERR_PARA;
  for (int k = 0; k < 3; ++k)
    if (fx_dim(out, k) != fx_dim(in, k)) return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = *params;
  if (fx_dim(out, 2) != p.out_channels || p.kernel_w < 0 || p.kernel_h < 0) return ORU_RET_ERR_PARA;
  const int64_t kernels = is_depthwise(p) ? int64_t(p.in_channels) : int64_t(p.in_channels) * p.out_channels;
  const int64_t offset = kernels * p.kernel_w * p.kernel_h;
  if (w->total_elements < offset + p.out_channels) return ORU_RET_ERR_PARA;
  if (q_in < 0 || q_in > ORU_Q_MAX || q_w < 0 || q_w > ORU_Q_MAX || q_out < 0 || q_out > ORU_Q_MAX)
    return ORU_RET_ERR_PARA;
  const int16_t *bias = static_cast<const int16_t *>(w->data) + offset;
  const FxSumRule rule = fx_sum_rule(q_in, q_w, q_out);
  const int64_t n = int64_t(fx_dim(out, 0)) * fx_dim(out, 1);
  const int act = tail == Tail::relu ? 1 : tail == Tail::hswish ? 2 : tail == Tail::relu6 ? 3 : 0;
  const FxBiasActRowFn row = fx_bias_act_row();
  for (int32_t c = 0; c < p.out_channels; ++c)
    row(fx_plane(out, c), fx_plane(in, c), n, fx_shl32(bias[c], rule.up_y), rule.up_x, rule.down, rule.up, act, q_out);
  return ORU_RET_OK;
}

// ReLU of the 16-bit values alone.
void relu_all(oru_tensor *t) {
  int16_t *x = static_cast<int16_t *>(t->data);
  for (int64_t i = 0; i < t->total_elements; ++i) x[i] = x[i] > 0 ? x[i] : int16_t(0);
}

// The convolution a fused node's grouping selects; a grouping no kernel serves runs none.
uint32_t convolve(oru_tensor *out, int32_t q_out, const oru_tensor *in, int32_t q_in, const oru_tensor *w,
                  int32_t q_w, const oru_conv2d_params *p, const uint32_t *workers) {
  if (p->groups == 1) {
    return p->kernel_w == 1 && p->kernel_h == 1
               ? oru_tensor_pointwise_conv2d_chw_fpi16(out, q_out, in, q_in, w, q_w, p, workers)
               : oru_tensor_std_conv2d_chw_fpi16(out, q_out, in, q_in, w, q_w, p, workers);
  }
  if (p->groups == p->in_channels && p->groups == p->out_channels)
    return oru_tensor_depthwise_conv2d_chw_fpi16(out, q_out, in, q_in, w, q_w, p, workers);
  return ORU_RET_OK;
}

}  // namespace
}  // namespace oru

using oru::Tail;

extern "C" {

ORU_API uint32_t oru_tensor_bias_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                           const oru_tensor *weight, int32_t q_weight,
                                           const oru_conv2d_params *params) {
  return oru::bias_tail(output, q_out, input, q_in, weight, q_weight, params, Tail::bias);
}

uint32_t oru_tensor_bias_relu_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                        const oru_tensor *weight, int32_t q_weight, const oru_conv2d_params *params) {
  return oru::bias_tail(output, q_out, input, q_in, weight, q_weight, params, Tail::relu);
}

uint32_t oru_tensor_bias_hswish_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                          const oru_tensor *weight, int32_t q_weight,
                                          const oru_conv2d_params *params) {
  return oru::bias_tail(output, q_out, input, q_in, weight, q_weight, params, Tail::hswish);
}

ORU_API uint32_t oru_tensor_conv2d_act_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                 int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                 const oru_conv2d_act_params *params, const uint32_t *conv_workers) {
  if (!params) return ORU_RET_ERR_PARA;
  const oru_conv2d_params *p = &params->conv;
  if (uint32_t st = oru::convolve(output, q_out, input, q_in, weight, q_weight, p, conv_workers)) return st;
  // The output, in Q q_out, is the tail's own input.
  const bool bias = p->has_bias == 1;
  switch (params->act) {
    case ORU_ACT_NONE:
      return bias ? oru::bias_tail(output, q_out, output, q_out, weight, q_weight, p, Tail::bias) : ORU_RET_OK;
    case ORU_ACT_RELU:
      if (bias) return oru::bias_tail(output, q_out, output, q_out, weight, q_weight, p, Tail::relu);
      oru::relu_all(output);
      return ORU_RET_OK;
    case ORU_ACT_HSWISH:
      return bias ? oru::bias_tail(output, q_out, output, q_out, weight, q_weight, p, Tail::hswish) : ORU_RET_OK;
    default:
      return ORU_RET_OK;
  }
}

ORU_API uint32_t oru_tensor_conv2d_bn2d_act_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                      int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                      const oru_conv2d_bn2d_act_params *params,
                                                      const uint32_t *conv_workers) {
  if (!params) return ORU_RET_ERR_PARA;
  const oru_conv2d_params *p = &params->conv;
  if (uint32_t st = oru::convolve(output, q_out, input, q_in, weight, q_weight, p, conv_workers)) return st;
  // The folded batch norm always brings a bias.
  static const Tail tails[4] = {Tail::bias, Tail::relu, Tail::hswish, Tail::relu6};
  if (params->act < 0 || params->act > 3) return ORU_RET_OK;
  return oru::bias_tail(output, q_out, output, q_out, weight, q_weight, p, tails[params->act]);
}

}  // extern "C"
