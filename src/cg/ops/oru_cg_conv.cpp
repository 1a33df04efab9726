// The five plain convolution operators of the graph: standard, depthwise, pointwise,
// dilated and transposed. They resolve their tensors at prepare, pack the kernels once for
// conv method 2, and at run call the kernel family the method selects, then the bias pass.
#include <cstdint>
#include <utility>

#include "cg/ops/oru_cg_conv_internal.h"
#include "cg/oru_cg_internal.h"
#include "core/oru_report.h"
#include "oru_conv.h"
#include "oru_fixed.h"

namespace oru {

int32_t conv_op_out_extent(int32_t in, int32_t kernel, int32_t stride, int32_t pad, int32_t dilation) {
  if (stride < 1 || kernel < 1 || dilation < 1) return 0;
  int64_t span = int64_t(in) + 2 * int64_t(pad) - int64_t(kernel - 1) * dilation - 1;
  return span < 0 ? 0 : int32_t(span / stride + 1);
}

void conv_resolve_inputs(oru_cg_handle *h, int32_t node, oru_tensor **input, oru_tensor **weight) {
  const int32_t edges = cg_in_edge_count(h, node);
  for (int32_t i = 0; i < edges; ++i) {
    const int32_t s = cg_in_edge(h, node, i);
    if (cg_op_type(h, s) == ORU_CG_OP_WEIGHT)
      *weight = cg_source_tensor(h, s);
    else
      *input = cg_source_tensor(h, s);
  }
}

oru_tensor *conv_make_output(const oru_tensor *input, int32_t out_w, int32_t out_h, int32_t channels,
                             uint32_t dev_type, bool force_storage) {
  if (!input || out_w < 1 || out_h < 1 || channels < 1 || input->ndims < 3) return nullptr;
  int32_t dims[5] = {out_w, out_h, channels, 1, 1};
  for (int k = 3; k < input->ndims && k < 5; ++k) dims[k] = input->dims[k];
  oru_tensor *out = force_storage ? oru_create_tensor(input->ndims, dims, input->type)
                                  : cg_new_output(input->ndims, dims, input->type, dev_type);
  if (out) out->channel_layout = input->channel_layout;
  return out;
}

void *conv_make_calc_info(uint32_t method, const oru_tensor *input, const oru_tensor *weight,
                          const oru_conv2d_params *params, const uint32_t *conv_workers) {
  if (method == ORU_CG_CONV_IM2COL_GEMM) return oru_create_im2col_gemm_calc_info(input, weight, params, conv_workers);
  if (method == ORU_CG_CONV_PACKED_HWG) return oru_create_conv2d_hwg_calc_info(input, weight, params, conv_workers);
  return nullptr;
}

uint32_t ConvChwInput::prepare() {
  if (!input_ || !input_->data || input_->channel_layout != ORU_LAYOUT_HWG) return ORU_RET_OK;
  temp_ = oru_create_tensor_from_tensor(input_);
  if (!temp_) ORU_FAIL(ORU_RET_ERR_MEMORY);
  if (oru_tensor_pack_data_hwg_to_chw(temp_, input_) != ORU_RET_OK) {
    oru_release_tensor(&temp_);
    ORU_FAIL(ORU_RET_ERR_PARA);
  }
  return ORU_RET_OK;
}

void conv_release_calc_info(void *calc_info, uint32_t method) {
  if (!calc_info) return;
  if (method == ORU_CG_CONV_PACKED_HWG) {
    auto *info = static_cast<oru_conv2d_hwg_info *>(calc_info);
    oru_release_conv2d_hwg_calc_info(&info);
    return;
  }
  auto *info = static_cast<oru_im2col_gemm_info *>(calc_info);
  oru_release_im2col_gemm_calc_info(&info);
}

}  // namespace oru

namespace {

using oru::cg_context;

enum class Kind { standard, depthwise, pointwise, dilated, transposed };

oru_cg_forward_fn forward_of(Kind kind) {
  switch (kind) {
    case Kind::standard: return oru_cg_std_conv2d;
    case Kind::depthwise: return oru_cg_depthwise_conv2d;
    case Kind::pointwise: return oru_cg_conv2d_1x1;
    case Kind::dilated: return oru_cg_dilated_conv2d;
    default: return oru_cg_transposed_conv2d;
  }
}

int32_t op_code_of(Kind kind) {
  switch (kind) {
    case Kind::standard: return ORU_CG_OP_STD_CONV2D;
    case Kind::depthwise: return ORU_CG_OP_DEPTHWISE_CONV2D;
    case Kind::pointwise: return ORU_CG_OP_POINTWISE_CONV2D;
    case Kind::dilated: return ORU_CG_OP_DILATED_CONV2D;
    default: return ORU_CG_OP_TRANSPOSED_CONV2D;
  }
}

uint32_t init_context(oru_cg_handle *h, int32_t node, const void *params, Kind kind) {
  if (!params) return ORU_RET_ERR_PARA;
  if (oru::cg_check_init(h, node)) return ORU_RET_ERR_PARA;
  const bool method_free = kind == Kind::dilated || kind == Kind::transposed;
  if (!method_free && oru::conv_unbuilt_method(h)) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  oru_conv2d_context *c = oru::cg_new_context<oru_conv2d_context>(op_code_of(kind));
  if (!c) return ORU_RET_ERR_MEMORY;
  oru::conv_fill_context(c, params, h, method_free ? 0u : h->backend);
  oru::cg_install(h, node, c, forward_of(kind));
  return ORU_RET_OK;
}

uint32_t init_inference(oru_cg_handle *h, int32_t node, Kind kind) {
  if (!h || node < 0) return ORU_RET_ERR_PARA;
  auto *c = static_cast<oru_conv2d_context *>(cg_context(h, node));
  if (!c || c->op_type != op_code_of(kind)) return ORU_RET_ERR_PARA;
  const bool fixed = c->backend == ORU_CG_BACKEND_FIXED;
  if (fixed && c->weight) oru_release_tensor(&c->weight);
  oru::conv_resolve_inputs(h, node, &c->input, &c->weight);
  if (fixed) {
    // The kernels and the bias share one Q; the converted copy is this node's.
    oru_tensor *raw = c->weight;
    c->weight = nullptr;
    if (uint32_t st = oru::conv_fixed_q(h, node, &c->q_in, &c->q_out)) return st;
    if (uint32_t st = oru::conv_fixed_weights(raw, raw ? raw->total_elements : 0, &c->weight, &c->q_weight))
      return st;
  }
  const oru_conv2d_params &p = c->params;
  if (c->input && c->weight && c->input->ndims >= 3) {
    int32_t in_w = c->input->dims[0], in_h = c->input->dims[1], out_w, out_h;
    if (kind == Kind::transposed) {
      int64_t w = int64_t(in_w) + int64_t(in_w - 1) * (p.stride_w - 1) + 2 * int64_t(p.kernel_w - 1 - p.pad_w) -
                  int64_t(p.kernel_w - 1) * p.dilation_w;
      int64_t hh = int64_t(in_h) + int64_t(in_h - 1) * (p.stride_h - 1) + p.out_pad_h +
                   2 * int64_t(p.kernel_h - 1 - p.pad_h) - int64_t(p.kernel_h - 1) * p.dilation_h;
      bool sane = p.stride_w >= 1 && p.stride_h >= 1 && p.kernel_w >= 1 && p.kernel_h >= 1;
      out_w = sane && w > 0 && w < INT32_MAX ? int32_t(w) : 0;
      out_h = sane && hh > 0 && hh < INT32_MAX ? int32_t(hh) : 0;
    } else {
      out_w = oru::conv_op_out_extent(in_w, p.kernel_w, p.stride_w, p.pad_w, p.dilation_w);
      out_h = oru::conv_op_out_extent(in_h, p.kernel_h, p.stride_h, p.pad_h, p.dilation_h);
    }
    const bool force_storage = kind == Kind::dilated || kind == Kind::transposed;
    c->output = oru::conv_make_output(c->input, out_w, out_h, p.out_channels, c->dev_type, force_storage);
  }
  if (!c->output) return ORU_RET_ERR_MEMORY;
  if (kind == Kind::dilated || kind == Kind::transposed) return ORU_RET_OK;
  if (c->conv_method == ORU_CG_CONV_IM2COL_GEMM || c->conv_method == ORU_CG_CONV_PACKED_HWG) {
    c->calc_info = oru::conv_make_calc_info(c->conv_method, c->input, c->weight, &c->params, &c->conv_workers);
    if (!c->calc_info && kind != Kind::pointwise) return ORU_RET_ERR_MEMORY;
  }
  return ORU_RET_OK;
}

uint32_t uninit(void **context) {
  return oru::cg_release_context<oru_conv2d_context>(context, [](oru_conv2d_context *c) {
    if (c->backend == ORU_CG_BACKEND_FIXED && c->weight) oru_release_tensor(&c->weight);
    oru::conv_release_calc_info(c->calc_info, c->conv_method);
  });
}

using ChwKernel = uint32_t (*)(oru_tensor *, const oru_tensor *, const oru_tensor *, const oru_conv2d_params *,
                               const uint32_t *);
using GemmKernel = uint32_t (*)(oru_tensor *, const oru_tensor *, const oru_tensor *, const oru_conv2d_params *,
                                const oru_im2col_gemm_info *);
using HwgKernel = uint32_t (*)(oru_tensor *, const oru_tensor *, const oru_tensor *, const oru_conv2d_params *,
                               const oru_conv2d_hwg_info *);

using FixedKernel = uint32_t (*)(oru_tensor *, int32_t, const oru_tensor *, int32_t, const oru_tensor *, int32_t,
                                 const oru_conv2d_params *, const uint32_t *);

// Fixed point: the direct kernel, then the bias on the output in place, in the output's Q.
uint32_t run_fixed(oru_conv2d_context *c, FixedKernel kernel) {
  uint32_t st = kernel(c->output, c->q_out, c->input, c->q_in, c->weight, c->q_weight, &c->params, &c->conv_workers);
  if (st == ORU_RET_OK && c->params.has_bias == 1)
    st = oru_tensor_bias_chw_fpi16(c->output, c->q_out, c->output, c->q_out, c->weight, c->q_weight, &c->params);
  if (st != ORU_RET_OK) ORU_REPORT_STATUS(st);
  return st;
}

uint32_t run(void *context, ChwKernel chw, GemmKernel gemm, HwgKernel hwg, FixedKernel fixed) {
  auto *c = static_cast<oru_conv2d_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (c->backend == ORU_CG_BACKEND_FIXED) {
    if (c->conv_method != ORU_CG_CONV_DIRECT_CHW) return ORU_RET_ERR_NOT_SUPPORT;  // refused at bind
    return run_fixed(c, fixed);
  }
  uint32_t st;
  oru::ConvChwInput in(c->input);
  if (c->conv_method == ORU_CG_CONV_DIRECT_CHW || c->conv_method == ORU_CG_CONV_IM2COL_GEMM) {
    if ((st = in.prepare())) return st;
    if (in.converted() && c->output) c->output->channel_layout = ORU_LAYOUT_CHW;
  }
  switch (c->conv_method) {
    case ORU_CG_CONV_DIRECT_CHW:
      st = chw(c->output, in.get(), c->weight, &c->params, &c->conv_workers);
      break;
    case ORU_CG_CONV_IM2COL_GEMM:
      st = gemm(c->output, in.get(), c->weight, &c->params, static_cast<const oru_im2col_gemm_info *>(c->calc_info));
      break;
    case ORU_CG_CONV_PACKED_HWG:
      if (!c->calc_info) return ORU_RET_ERR_PARA;
      st = hwg(c->output, c->input, c->weight, &c->params, static_cast<const oru_conv2d_hwg_info *>(c->calc_info));
      break;
    default:
      return ORU_RET_OK;
  }
  if (st) return st;
  if (c->params.has_bias != 1) return ORU_RET_OK;
  if (c->conv_method == ORU_CG_CONV_PACKED_HWG)
    return oru_tensor_bias_hwg(c->output, c->output, c->weight, &c->params, &c->conv_workers);
  return oru_tensor_bias_chw(c->output, c->output, c->weight, &c->params, &c->conv_workers);
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_init_std_conv2d_context(oru_cg_handle *h, int32_t node, const void *params) {
  return init_context(h, node, params, Kind::standard);
}
ORU_API uint32_t oru_init_depthwise_conv2d_context(oru_cg_handle *h, int32_t node, const void *params) {
  return init_context(h, node, params, Kind::depthwise);
}
ORU_API uint32_t oru_init_pointwise_conv2d_context(oru_cg_handle *h, int32_t node, const void *params) {
  return init_context(h, node, params, Kind::pointwise);
}
ORU_API uint32_t oru_init_dilated_conv2d_context(oru_cg_handle *h, int32_t node, const void *params) {
  return init_context(h, node, params, Kind::dilated);
}
ORU_API uint32_t oru_init_transposed_conv2d_context(oru_cg_handle *h, int32_t node, const void *params) {
  return init_context(h, node, params, Kind::transposed);
}

ORU_API uint32_t oru_init_std_conv2d_context_inference(oru_cg_handle *h, int32_t node) {
  return init_inference(h, node, Kind::standard);
}
ORU_API uint32_t oru_init_depthwise_conv2d_context_inference(oru_cg_handle *h, int32_t node) {
  return init_inference(h, node, Kind::depthwise);
}
ORU_API uint32_t oru_init_pointwise_conv2d_context_inference(oru_cg_handle *h, int32_t node) {
  return init_inference(h, node, Kind::pointwise);
}
ORU_API uint32_t oru_init_dilated_conv2d_context_inference(oru_cg_handle *h, int32_t node) {
  return init_inference(h, node, Kind::dilated);
}
ORU_API uint32_t oru_init_transposed_conv2d_context_inference(oru_cg_handle *h, int32_t node) {
  return init_inference(h, node, Kind::transposed);
}

ORU_API uint32_t oru_uninit_std_conv2d_context(void **context) { return uninit(context); }
ORU_API uint32_t oru_uninit_depthwise_conv2d_context(void **context) { return uninit(context); }
ORU_API uint32_t oru_uninit_pointwise_conv2d_context(void **context) { return uninit(context); }
ORU_API uint32_t oru_uninit_dilated_conv2d_context(void **context) { return uninit(context); }
ORU_API uint32_t oru_uninit_transposed_conv2d_context(void **context) { return uninit(context); }

ORU_API oru_tensor *oru_get_conv2d_inference_data(oru_cg_handle *h, int32_t node) {
  return oru::cg_output_of<oru_conv2d_context>(h, node, {3, 4, 5, 6, 7, 8});
}

uint32_t oru_cg_std_conv2d(void *context) {
  return run(context, oru_tensor_std_conv2d_chw, oru_tensor_std_conv2d_im2col_gemm, oru_tensor_std_conv2d_hwg,
             oru_tensor_std_conv2d_chw_fpi16);
}
uint32_t oru_cg_depthwise_conv2d(void *context) {
  return run(context, oru_tensor_depthwise_conv2d_chw, oru_tensor_depthwise_conv2d_im2col_gemm,
             oru_tensor_depthwise_conv2d_hwg, oru_tensor_depthwise_conv2d_chw_fpi16);
}
uint32_t oru_cg_conv2d_1x1(void *context) {
  return run(context, oru_tensor_pointwise_conv2d_chw, oru_tensor_pointwise_conv2d_im2col_gemm,
             oru_tensor_pointwise_conv2d_hwg, oru_tensor_pointwise_conv2d_chw_fpi16);
}

uint32_t oru_cg_dilated_conv2d(void *context) {
  auto *c = static_cast<oru_conv2d_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  return oru_tensor_dilated_conv2d_chw(c->output, c->input, c->weight, &c->params, &c->conv_workers);
}

uint32_t oru_cg_transposed_conv2d(void *context) {
  auto *c = static_cast<oru_conv2d_context *>(context);
  if (!c || !c->weight || !c->weight->data) return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = c->params;
  if (!c->kernel_flipped) {
    const int64_t kw = p.kernel_w, kh = p.kernel_h, kernels = int64_t(p.in_channels) * p.out_channels;
    if (kw < 1 || kh < 1 || kernels < 1 || c->weight->total_elements < kernels * kw * kh) return ORU_RET_ERR_PARA;
    // A 180-degree turn of every kernel, in place: it changes the weight tensor itself.
    float *w = static_cast<float *>(c->weight->data);
    for (int64_t k = 0; k < kernels; ++k) {
      float *kern = w + k * kw * kh;
      for (int64_t r = 0; r < kh; ++r)
        for (int64_t i = 0, j = kw - 1; i < j; ++i, --j) std::swap(kern[r * kw + i], kern[r * kw + j]);
      for (int64_t r = 0, s = kh - 1; r < s; ++r, --s)
        for (int64_t x = 0; x < kw; ++x) std::swap(kern[r * kw + x], kern[s * kw + x]);
    }
    c->kernel_flipped = 1;
  }
  return oru_tensor_transposed_conv2d_chw(c->output, c->input, c->weight, &p);
}

}  // extern "C"
