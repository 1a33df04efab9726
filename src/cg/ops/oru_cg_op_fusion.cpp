// The fused convolution operators: convolution plus activation (code 12) and convolution
// plus batch norm plus activation (code 13). The batch norm is folded into the kernels and
// the bias once at prepare, so a run is the convolution and one bias-activation pass.
#include <cmath>
#include <cstdio>

#include "core/oru_types.h"
#include "cg/ops/oru_cg_conv_internal.h"
#include "cg/oru_cg_internal.h"
#include "conv/oru_conv_internal.h"
#include "core/oru_report.h"
#include "oru_fixed.h"

namespace {

enum class ConvKind { none, standard, pointwise, depthwise };

// A fused node decides by its parameters which convolution it is.
ConvKind kind_of(const oru_conv2d_params &p) {
  if (p.groups == 1) return p.kernel_w == 1 && p.kernel_h == 1 ? ConvKind::pointwise : ConvKind::standard;
  if (p.groups == p.in_channels && p.groups == p.out_channels) return ConvKind::depthwise;
  return ConvKind::none;
}

// Output extent of the fused operators: no dilation, and the width's padding on both axes.
int32_t fused_extent(int32_t in, int32_t kernel, int32_t stride, int32_t pad) {
  if (stride < 1 || kernel < 1) return 0;
  int64_t span = int64_t(in) - kernel + 2 * int64_t(pad);
  return span < 0 ? 0 : int32_t(span / stride + 1);
}

// init_context of both operators: the parameters and the handle's settings, then install.
template <typename Ctx>
uint32_t init_fused(oru_cg_handle *h, int32_t node, const void *params, int32_t op_type,
                    oru_cg_forward_fn forward) {
  if (!params) return ORU_RET_ERR_PARA;
  if (oru::cg_check_init(h, node)) return ORU_RET_ERR_PARA;
  if (oru::conv_unbuilt_method(h)) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  auto *c = oru::cg_new_context<Ctx>(op_type);
  if (!c) return ORU_RET_ERR_MEMORY;
  oru::conv_fill_context(c, params, h, h->backend);
  oru::cg_install(h, node, c, forward);
  return ORU_RET_OK;
}

// The output of both operators: no dilation, and the width's padding on both axes.
oru_tensor *fused_output(const oru_tensor *input, const oru_conv2d_params &p, uint32_t dev_type) {
  return oru::conv_make_output(input, fused_extent(input->dims[0], p.kernel_w, p.stride_w, p.pad_w),
                               fused_extent(input->dims[1], p.kernel_h, p.stride_h, p.pad_w), p.out_channels,
                               dev_type, false);
}

// The convolution step of both operators under methods 0, 1 and 2.
// Convolves by the node's method. one_pass_act >= 0 (direct method only) has the direct
// kernels apply the weight tensor's bias and that activation as they store the sums.
uint32_t convolve(uint32_t method, oru_tensor *out, const oru_tensor *in, const oru_tensor *w,
                  const oru_conv2d_params *p, const uint32_t *workers, const void *calc_info, int one_pass_act) {
  if (method == ORU_CG_CONV_PACKED_HWG) {
    const auto *hwg = static_cast<const oru_conv2d_hwg_info *>(calc_info);
    switch (kind_of(*p)) {
      case ConvKind::standard: return oru_tensor_std_conv2d_hwg(out, in, w, p, hwg);
      case ConvKind::pointwise: return oru_tensor_pointwise_conv2d_hwg(out, in, w, p, hwg);
      case ConvKind::depthwise: return oru_tensor_depthwise_conv2d_hwg(out, in, w, p, hwg);
      default: return ORU_RET_OK;
    }
  }
  const auto *info = static_cast<const oru_im2col_gemm_info *>(calc_info);
  oru::ConvChwInput chw(in);
  if (uint32_t st = chw.prepare()) return st;
  if (chw.converted()) out->channel_layout = ORU_LAYOUT_CHW;
  in = chw.get();
  if (method == ORU_CG_CONV_DIRECT_CHW && one_pass_act >= 0)
    return oru::direct_conv_bias_act_chw(out, in, w, p, workers, one_pass_act);
  switch (kind_of(*p)) {
    case ConvKind::standard:
      return method == 0 ? oru_tensor_std_conv2d_chw(out, in, w, p, workers)
                         : oru_tensor_std_conv2d_im2col_gemm(out, in, w, p, info);
    case ConvKind::pointwise:
      return method == 0 ? oru_tensor_pointwise_conv2d_chw(out, in, w, p, workers)
                         : oru_tensor_pointwise_conv2d_im2col_gemm(out, in, w, p, info);
    case ConvKind::depthwise:
      return method == 0 ? oru_tensor_depthwise_conv2d_chw(out, in, w, p, workers)
                         : oru_tensor_depthwise_conv2d_im2col_gemm(out, in, w, p, info);
    default:
      return ORU_RET_OK;  // a grouping no kernel serves: only the tail runs
  }
}

// The bias pass in place over the output in the layout the method leaves it in; on HWG
// output every activation code runs as on CHW.
uint32_t bias_act(uint32_t method, oru_tensor *out, const oru_tensor *w, const oru_conv2d_params *p, int act) {
  if (method == ORU_CG_CONV_PACKED_HWG) return oru::bias_act_hwg(out, out, w, p, act);
  return oru::bias_act_chw(out, out, w, p, act);
}

// Activation alone over every element of an output, whatever its layout.
void activate_all(oru_tensor *t, int act) {
  if (!t || !t->data || t->total_elements < 1) return;
  float *x = static_cast<float *>(t->data);
  for (int64_t i = 0; i < t->total_elements; ++i) x[i] = oru::act_scalar(x[i], act);
}

}  // namespace

extern "C" {

uint32_t oru_tensor_fuse_conv2d_bn2d_weight(oru_tensor *destination, const oru_tensor *source,
                                            const oru_conv2d_bn2d_act_params *params) {
  if (!destination || !source || !params || !destination->data || !source->data) return ORU_RET_ERR_PARA;
  if (destination->total_elements != source->total_elements || destination->type != source->type ||
      oru::base_of_code(source->type) != aif32)
    return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = params->conv;
  if (p.out_channels < 1 || p.kernel_w < 1 || p.kernel_h < 1 || p.in_channels < 1) return ORU_RET_ERR_PARA;
  const int64_t oc = p.out_channels, per_kernel = int64_t(p.kernel_w) * p.kernel_h;
  const int64_t kernel_words = oru::kernel_count(p) * per_kernel;
  const bool has_bias = p.has_bias == 1;
  if (source->total_elements != kernel_words + 4 * oc + (has_bias ? oc : 0)) return ORU_RET_ERR_PARA;
  const float *src = static_cast<const float *>(source->data);
  float *dst = static_cast<float *>(destination->data);
  const float *bn = src + kernel_words + (has_bias ? oc : 0);
  const float *gamma = bn, *beta = bn + oc, *mean = bn + 2 * oc, *var = bn + 3 * oc;
  const float eps = params->bn_eps != 0.0f ? params->bn_eps : 1e-5f;
  const int64_t per_out = kernel_words / oc;  // kernels of one output channel, one after the other
  for (int64_t o = 0; o < oc; ++o) {
    const float s = gamma[o] / std::sqrt(var[o] + eps);
    for (int64_t j = 0; j < per_out; ++j) dst[o * per_out + j] = src[o * per_out + j] * s;
    const float b = has_bias ? src[kernel_words + o] : 0.0f;
    dst[kernel_words + o] = beta[o] + (b - mean[o]) * s;
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_init_conv2d_act_context(oru_cg_handle *h, int32_t node, const void *params) {
  return init_fused<oru_conv2d_act_context>(h, node, params, ORU_CG_OP_CONV2D_ACT, oru_cg_conv2d_act);
}

ORU_API uint32_t oru_init_conv2d_bn2d_act_context(oru_cg_handle *h, int32_t node, const void *params) {
  return init_fused<oru_conv2d_bn2d_act_context>(h, node, params, ORU_CG_OP_CONV2D_BN2D_ACT,
                                                 oru_cg_conv2d_bn2d_act);
}

ORU_API uint32_t oru_init_conv2d_act_context_inference(oru_cg_handle *h, int32_t node) {
  if (!h || node < 0) return ORU_RET_ERR_PARA;
  auto *c = oru::cg_context_of<oru_conv2d_act_context>(h, node, {ORU_CG_OP_CONV2D_ACT});
  if (!c) return ORU_RET_ERR_PARA;
  const bool fixed = c->backend == ORU_CG_BACKEND_FIXED;
  if (fixed && c->weight) oru_release_tensor(&c->weight);
  oru::conv_resolve_inputs(h, node, &c->input, &c->weight);
  if (fixed) {
    oru_tensor *raw = c->weight;
    c->weight = nullptr;
    if (uint32_t st = oru::conv_fixed_q(h, node, &c->q_in, &c->q_out)) return st;
    if (uint32_t st = oru::conv_fixed_weights(raw, raw ? raw->total_elements : 0, &c->weight, &c->q_weight))
      return st;
  }
  const oru_conv2d_params &p = c->params.conv;
  if (c->input && c->weight && c->input->ndims >= 3) c->output = fused_output(c->input, p, c->dev_type);
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, oru::kCgOutputFailed);
  if (c->conv_method == ORU_CG_CONV_IM2COL_GEMM || c->conv_method == ORU_CG_CONV_PACKED_HWG) {
    c->calc_info = oru::conv_make_calc_info(c->conv_method, c->input, c->weight, &p, &c->conv_workers);
    if (!c->calc_info) return ORU_RET_ERR_MEMORY;
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_init_conv2d_bn2d_act_context_inference(oru_cg_handle *h, int32_t node) {
  if (!h || node < 0) {
    printf("ORU_ERROR: %s\n", oru_error_string[oru::message_index(ORU_RET_ERR_PARA)]);
    return ORU_RET_ERR_PARA;
  }
  auto *c = oru::cg_context_of<oru_conv2d_bn2d_act_context>(h, node, {ORU_CG_OP_CONV2D_BN2D_ACT});
  if (!c) return ORU_RET_ERR_PARA;
  oru::conv_resolve_inputs(h, node, &c->input, &c->weight);
  const oru_conv2d_params &p = c->params.conv;
  const bool fixed = c->backend == ORU_CG_BACKEND_FIXED;
  if (fixed) {
    if (uint32_t st = oru::conv_fixed_q(h, node, &c->q_in, &c->q_out)) return st;
  }
  if (c->input && c->weight && c->input->ndims >= 3) {
    c->output = fused_output(c->input, p, c->dev_type);
    c->fused_weight = oru_create_tensor(c->weight->ndims, c->weight->dims, aif32);
  }
  if (!c->output || !c->fused_weight) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, oru::kCgOutputFailed);
  // A source of the wrong size leaves the fused weights unfused: the model file's size is
  // the caller's check.
  oru_tensor_fuse_conv2d_bn2d_weight(c->fused_weight, c->weight, &c->params);
  if (fixed) {
    // The float fusion is a step on the way: kernels and fused bias get one Q together.
    oru_tensor *fused = c->fused_weight;
    c->fused_weight = nullptr;
    const int64_t count = p.out_channels + int64_t(p.kernel_w) * p.kernel_h * oru::kernel_count(p);
    const uint32_t st = oru::conv_fixed_weights(fused, count, &c->fused_weight, &c->q_weight);
    oru_release_tensor(&fused);
    return st;
  }
  if (c->conv_method == ORU_CG_CONV_IM2COL_GEMM || c->conv_method == ORU_CG_CONV_PACKED_HWG) {
    c->calc_info = oru::conv_make_calc_info(c->conv_method, c->input, c->fused_weight, &p, &c->conv_workers);
    if (!c->calc_info) return ORU_RET_ERR_MEMORY;
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_uninit_conv2d_act_context(void **context) {
  return oru::cg_release_context<oru_conv2d_act_context>(context, [](oru_conv2d_act_context *c) {
    if (c->backend == ORU_CG_BACKEND_FIXED && c->weight) oru_release_tensor(&c->weight);
    oru::conv_release_calc_info(c->calc_info, c->conv_method);
  });
}

ORU_API uint32_t oru_uninit_conv2d_bn2d_act_context(void **context) {
  return oru::cg_release_context<oru_conv2d_bn2d_act_context>(context, [](oru_conv2d_bn2d_act_context *c) {
    if (c->fused_weight) oru_release_tensor(&c->fused_weight);
    oru::conv_release_calc_info(c->calc_info, c->conv_method);
  });
}

ORU_API oru_tensor *oru_get_conv2d_act_inference_data(oru_cg_handle *h, int32_t node) {
  return oru::cg_output_of<oru_conv2d_act_context>(h, node, {ORU_CG_OP_CONV2D_ACT});
}

ORU_API oru_tensor *oru_get_conv2d_bn2d_act_inference_data(oru_cg_handle *h, int32_t node) {
  return oru::cg_output_of<oru_conv2d_bn2d_act_context>(h, node, {ORU_CG_OP_CONV2D_BN2D_ACT});
}

uint32_t oru_cg_conv2d_act(void *context) {
  auto *c = static_cast<oru_conv2d_act_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (c->backend == ORU_CG_BACKEND_FIXED) {
    if (c->conv_method != ORU_CG_CONV_DIRECT_CHW) return ORU_RET_ERR_NOT_SUPPORT;  // refused at bind
    const uint32_t st = oru_tensor_conv2d_act_chw_fpi16(c->output, c->q_out, c->input, c->q_in, c->weight,
                                                        c->q_weight, &c->params, &c->conv_workers);
    if (st != ORU_RET_OK) ORU_REPORT_STATUS(st);
    return st;
  }
  if (c->conv_method > ORU_CG_CONV_IM2COL_GEMM) return ORU_RET_OK;
  if (!c->input || !c->output || !c->weight || (c->conv_method != ORU_CG_CONV_DIRECT_CHW && !c->calc_info))
    return ORU_RET_ERR_PARA;
  const oru_conv2d_params *p = &c->params.conv;
  const int act = c->params.act;
  // The direct kernels apply the bias and activation as they store the sums.
  const bool one_pass = c->conv_method == ORU_CG_CONV_DIRECT_CHW && p->has_bias == 1 && act >= 0 && act <= 6;
  if (uint32_t st = convolve(c->conv_method, c->output, c->input, c->weight, p, &c->conv_workers, c->calc_info,
                             one_pass ? act : -1))
    return st;
  if (one_pass || act < 0 || act > 6) return ORU_RET_OK;
  if (p->has_bias == 1) return bias_act(c->conv_method, c->output, c->weight, p, act);
  activate_all(c->output, act);
  return ORU_RET_OK;
}

uint32_t oru_cg_conv2d_bn2d_act(void *context) {
  auto *c = static_cast<oru_conv2d_bn2d_act_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (c->backend == ORU_CG_BACKEND_FIXED) {
    if (c->conv_method != ORU_CG_CONV_DIRECT_CHW) return ORU_RET_ERR_NOT_SUPPORT;  // refused at bind
    const uint32_t st = oru_tensor_conv2d_bn2d_act_chw_fpi16(c->output, c->q_out, c->input, c->q_in, c->fused_weight,
                                                             c->q_weight, &c->params, &c->conv_workers);
    if (st != ORU_RET_OK) ORU_REPORT_STATUS(st);
    return st;
  }
  const bool direct = c->conv_method == ORU_CG_CONV_DIRECT_CHW;
  if (c->conv_method > ORU_CG_CONV_IM2COL_GEMM) return ORU_RET_OK;
  if (!c->input || !c->output || !c->fused_weight || (!direct && !c->calc_info)) {
    if (direct) printf("ORU_ERROR: Invalid Input Params\n");
    return ORU_RET_ERR_PARA;
  }
  const oru_conv2d_params *p = &c->params.conv;
  const int act = c->params.act;
  // The fused bias always exists, whatever has_bias says; the direct kernels apply it and
  // the activation as they store the sums.
  const bool one_pass = direct && act >= 0 && act <= 6;
  if (uint32_t st = convolve(c->conv_method, c->output, c->input, c->fused_weight, p, &c->conv_workers,
                             c->calc_info, one_pass ? act : -1)) {
    if (direct) {
      int idx = oru::message_index(st);
      printf("ORU_ERROR: %s\n", idx >= 0 ? oru_error_string[idx] : "");
    }
    return st;
  }
  if (one_pass || act < 0 || act > 6) return ORU_RET_OK;
  return bias_act(c->conv_method, c->output, c->fused_weight, p, act);
}

}  // extern "C"
