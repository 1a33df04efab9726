// Batch normalisation at inference: element-wise (1d) and per channel (2d). The weights are
// four equal quarters: gamma, beta, mean, var.
#include <cmath>

#include "cg/ops/oru_cg_ops_common.h"
#include "oru_fixed.h"

namespace oru {
namespace {

bool same_dims(const oru_tensor *a, const oru_tensor *b) {
  if (a->ndims != b->ndims) return false;
  for (int32_t k = 0; k < a->ndims; ++k)
    if (a->dims[k] != b->dims[k]) return false;
  return true;
}

uint32_t bn1d_forward(void *context) {
  auto *c = static_cast<oru_cg_bn_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED)
    return fixed_point_result(oru_tensor_batchnorm1d_fpi16(c->output, c->q_out, c->input, c->q_in, c->weights,
                                                           c->q_gamma, c->q_beta, c->q_mean, c->q_var, &c->params));
  const oru_tensor *in = c->input, *w = c->weights;
  oru_tensor *out = c->output;
  if (!has_data(in) || !has_data(w) || !has_data(out) || !same_dims(in, out)) return ORU_RET_ERR_PARA;
  const int64_t n = out->total_elements, q = w->total_elements / 4;
  if (q < n) return ORU_RET_ERR_PARA;
  const float *x = static_cast<const float *>(in->data), *g = static_cast<const float *>(w->data);
  const float *beta = g + q, *mean = g + 2 * q, *var = g + 3 * q;
  float *y = static_cast<float *>(out->data);
  const float eps = c->params.eps;
  // Per element, with the division last.
  for (int64_t i = 0; i < n; ++i) y[i] = beta[i] + g[i] * (x[i] - mean[i]) / std::sqrt(eps + var[i]);
  return ORU_RET_OK;
}

uint32_t bn2d_forward(void *context) {
  auto *c = static_cast<oru_cg_bn_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  const oru_tensor *in = c->input, *w = c->weights;
  oru_tensor *out = c->output;
  if (!has_data(in) || !has_data(w) || !has_data(out) || !same_dims(in, out)) return ORU_RET_ERR_PARA;
  const int64_t channels = out->dims[2] > 0 ? out->dims[2] : 1;
  const int64_t q = w->total_elements / 4;
  if (q < channels) return ORU_RET_ERR_PARA;
  const int64_t plane = int64_t(out->dims[0]) * (out->ndims > 1 ? out->dims[1] : 1);
  const int64_t in_plane = int64_t(in->dims[0]) * (in->ndims > 1 ? in->dims[1] : 1);
  const float *x = static_cast<const float *>(in->data), *g = static_cast<const float *>(w->data);
  const float *beta = g + q, *mean = g + 2 * q, *var = g + 3 * q;
  float *y = static_cast<float *>(out->data);
  const float eps = c->params.eps;
  for (int64_t ch = 0; ch < channels; ++ch) {
    // One reciprocal per channel, then a multiply per element.
    const float s = g[ch] * (1.0f / std::sqrt(eps + var[ch]));
    const float b = beta[ch], m = mean[ch];
    const float *xp = x + ch * in_plane;
    float *yp = y + ch * plane;
    for (int64_t i = 0; i < plane; ++i) yp[i] = b + s * (xp[i] - m);
  }
  return ORU_RET_OK;
}

uint32_t init_bn(oru_cg_handle *h, int32_t node, const void *params, int32_t op, oru_cg_forward_fn f) {
  if (!h || !params) return ORU_RET_ERR_PARA;
  oru_cg_bn_context *c = nullptr;
  const uint32_t st = install_context(h, node, op, f, &c);
  if (st) return st;
  // Only the element-wise form has a fixed-point kernel.
  if (op == ORU_CG_OP_BN1D) c->backend = h->backend;
  c->params = *static_cast<const oru_cg_bn_params *>(params);
  return ORU_RET_OK;
}

// Quantises the four quarters of w, each with its own Q, into a new ai16s tensor.
uint32_t quantise_quarters(oru_cg_bn_context *c, const oru_tensor *w) {
  if (c->weights) oru_release_tensor(&c->weights);
  c->weights = oru_create_tensor(w->ndims, w->dims, ai16s);
  if (!c->weights) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  const int32_t q = static_cast<int32_t>(w->total_elements / 4);
  int32_t *qs[4] = {&c->q_gamma, &c->q_beta, &c->q_mean, &c->q_var};
  for (int i = 0; i < 4; ++i) {
    oru_tensor_calc_q(qs[i], w, i * q, q);
    oru_tensor_transform_data_from_real32_to_fpi16(c->weights, w, i * q, q, *qs[i]);
  }
  return ORU_RET_OK;
}

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

// The forward functions under their table names.
uint32_t oru_cg_batchnorm1d(void *context) { return oru::bn1d_forward(context); }
uint32_t oru_cg_batchnorm2d(void *context) { return oru::bn2d_forward(context); }

ORU_API uint32_t oru_init_bn1d_context(oru_cg_handle *handle, int32_t node, const void *params) {
  return init_bn(handle, node, params, ORU_CG_OP_BN1D, oru_cg_batchnorm1d);
}

ORU_API uint32_t oru_init_bn2d_context(oru_cg_handle *handle, int32_t node, const void *params) {
  return init_bn(handle, node, params, ORU_CG_OP_BN2D, oru_cg_batchnorm2d);
}

ORU_API uint32_t oru_init_bn_context_inference(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0) return ORU_RET_ERR_PARA;
  auto *c = static_cast<oru_cg_bn_context *>(cg_context(handle, node));
  if (!c) return ORU_RET_ERR_PARA;
  const int32_t n = cg_in_edge_count(handle, node);
  if (n > 2) return ORU_RET_ERR_PARA;
  const bool fixed = handle->backend == ORU_CG_BACKEND_FIXED;
  for (int64_t k = 0; k < n; ++k) {
    const int32_t s = cg_in_edge(handle, node, int32_t(k));
    if (cg_op_type(handle, s) == ORU_CG_OP_WEIGHT) {
      oru_tensor *w = cg_source_tensor(handle, s);
      // Only bn1d owns a converted copy; bn2d has no fixed-point form and keeps the floats.
      if (c->backend == ORU_CG_BACKEND_FIXED && w) {
        const uint32_t st = quantise_quarters(c, w);
        if (st) return st;
      } else {
        c->weights = w;
      }
    } else {
      c->input = cg_data_tensor(handle, s);
      if (fixed) c->q_in = cg_q(handle, s);
    }
  }
  uint32_t status = ORU_RET_OK;
  if (c->input && c->weights && !c->output)
    c->output = cg_external_device(handle->dev_type)
                    ? oru_create_tensor_header(c->input->ndims, c->input->dims, c->input->type)
                    : oru_create_tensor_from_tensor(c->input);
  if (!c->output) {
    ORU_REPORT(kCgOutputFailed);
    status = ORU_RET_ERR_MEMORY;
  }
  if (fixed) {
    const int32_t m = c->q_gamma < c->q_var ? c->q_gamma : c->q_var;
    c->q_out = m > 8 ? m : 8;
    cg_set_q(handle, node, c->q_out);
  }
  return status;
}

ORU_API uint32_t oru_uninit_bn_context(void **context) {
  return cg_release_context<oru_cg_bn_context>(context, [](oru_cg_bn_context *c) {
    if (c->backend == ORU_CG_BACKEND_FIXED && c->weights) oru_release_tensor(&c->weights);
  });
}

ORU_API oru_tensor *oru_get_bn_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_bn_context>(handle, node, {10, 11});
}

}  // extern "C"
