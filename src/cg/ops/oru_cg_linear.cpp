// Fully connected layer: output rows are input rows times the transposed weight rows.
#include "cg/ops/oru_cg_ops_common.h"
#include "oru_fixed.h"

namespace oru {
namespace {

// C (m x n) = A (m x k) * B^T, with B n x k: each output is a dot product of two rows.
void rows_times_rows(float *c, const float *a, const float *b, int64_t m, int64_t n, int64_t k) {
  for (int64_t i = 0; i < m; ++i)
    for (int64_t j = 0; j < n; ++j) {
      const float *ar = a + i * k, *br = b + j * k;
      // Four partial sums break the add chain; the order is the linear operator's own.
      float s0 = 0, s1 = 0, s2 = 0, s3 = 0;
      int64_t t = 0;
      for (; t + 4 <= k; t += 4) {
        s0 += ar[t] * br[t];
        s1 += ar[t + 1] * br[t + 1];
        s2 += ar[t + 2] * br[t + 2];
        s3 += ar[t + 3] * br[t + 3];
      }
      for (; t < k; ++t) s0 += ar[t] * br[t];
      c[i * n + j] = (s0 + s1) + (s2 + s3);
    }
}

uint32_t linear_forward(void *context) {
  auto *c = static_cast<oru_cg_linear_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED)
    return fixed_point_result(
        oru_tensor_linear_bias_fpi16(c->output, c->q_out, c->input, c->q_in, c->weights, c->q_w, &c->params));
  const oru_tensor *in = c->input, *w = c->weights;
  oru_tensor *out = c->output;
  if (!has_data(in) || !has_data(w) || !has_data(out) || in->ndims != 2 || out->ndims != 2) return ORU_RET_ERR_PARA;
  const int64_t k = in->dims[0], m = in->dims[1], n = out->dims[0];
  if (out->dims[1] != m || w->total_elements < n * k) return ORU_RET_ERR_PARA;
  float *po = static_cast<float *>(out->data);
  const float *pw = static_cast<const float *>(w->data);
  rows_times_rows(po, static_cast<const float *>(in->data), pw, m, n, k);
  if (c->params.has_bias == 1) {
    const int64_t nout = c->params.out_features;
    const int64_t at = int64_t(c->params.in_features) * nout;
    if (n != nout || w->total_elements < at + nout) return ORU_RET_ERR_PARA;
    // The bias goes to the first row only, whatever the number of rows.
    for (int64_t j = 0; j < nout; ++j) po[j] += pw[at + j];
  }
  return ORU_RET_OK;
}

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

// The forward functions under their table names.
uint32_t oru_cg_linear(void *context) { return oru::linear_forward(context); }

ORU_API uint32_t oru_init_linear_context(oru_cg_handle *handle, int32_t node, const void *params) {
  if (!handle || !params) return ORU_RET_ERR_PARA;
  oru_cg_linear_context *c = nullptr;
  const uint32_t st = install_context(handle, node, ORU_CG_OP_LINEAR, oru_cg_linear, &c);
  if (st) return st;
  c->backend = handle->backend;
  c->params = *static_cast<const oru_cg_linear_params *>(params);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_init_linear_context_inference(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0) return ORU_RET_ERR_PARA;
  auto *c = static_cast<oru_cg_linear_context *>(cg_context(handle, node));
  if (!c) return ORU_RET_ERR_PARA;
  const int32_t n = cg_in_edge_count(handle, node);
  for (int64_t k = 0; k < n; ++k) {
    const int32_t s = cg_in_edge(handle, node, int32_t(k));
    if (cg_op_type(handle, s) == ORU_CG_OP_WEIGHT) {
      oru_tensor *w = cg_source_tensor(handle, s);
      if (handle->backend == ORU_CG_BACKEND_FIXED && w) {
        if (c->weights) oru_release_tensor(&c->weights);
        oru_tensor_calc_q(&c->q_w, w, 0, static_cast<int32_t>(w->total_elements));
        c->weights = oru_create_tensor(w->ndims, w->dims, ai16s);
        if (!c->weights) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
        oru_tensor_transform_data_from_real32_to_fpi16(c->weights, w, 0, static_cast<int32_t>(w->total_elements),
                                                       c->q_w);
      } else {
        c->weights = w;
      }
    } else {
      c->input = cg_data_tensor(handle, s);
      if (handle->backend == ORU_CG_BACKEND_FIXED) c->q_in = cg_q(handle, s);
    }
  }
  if (c->input && c->weights && !c->output) {
    const int32_t dims[3] = {c->params.out_features, c->input->dims[1], 0};
    const uint32_t dev = handle->dev_type;
    if (dev == kCgDeviceExternal1 || dev == kCgDeviceExternal3) {
      c->output = oru_create_tensor_header(2, dims, c->input->type);
    } else if (dev == kCgDeviceExternal2) {
      const int32_t flat[3] = {1, 1, c->params.out_features};
      c->output = (c->input->dims[0] < 2 || c->input->dims[1] < 2) ? oru_create_tensor_header(3, flat, c->input->type)
                                                                    : oru_create_tensor_header(2, dims, c->input->type);
    } else {
      c->output = oru_create_tensor(2, dims, c->input->type);
    }
  }
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  if (handle->backend == ORU_CG_BACKEND_FIXED) c->q_out = cg_q(handle, node);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_uninit_linear_context(void **context) {
  return cg_release_context<oru_cg_linear_context>(context, [](oru_cg_linear_context *c) {
    if (c->backend == ORU_CG_BACKEND_FIXED && c->weights) oru_release_tensor(&c->weights);
  });
}

ORU_API oru_tensor *oru_get_linear_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_linear_context>(handle, node, {25});
}

ORU_API oru_tensor *oru_get_linear_inference_dev_data(oru_cg_handle *handle, int32_t node) {
  return oru_get_linear_inference_data(handle, node);
}

}  // extern "C"
