// Affine resampling of a feature map: a 2 x 3 matrix maps each output position, in
// normalised coordinates, to a source position that is read bilinearly, zeros outside.
#include <cmath>

#include "cg/ops/oru_cg_ops_common.h"

namespace oru {
namespace {

inline float pixel(const float *plane, int32_t w, int32_t h, int32_t x, int32_t y) {
  return (x < 0 || y < 0 || x >= w || y >= h) ? 0.0f : plane[int64_t(y) * w + x];
}

uint32_t affine_forward(void *context) {
  auto *c = static_cast<oru_cg_affine_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED)
    return fixed_point_result(
        oru_tensor_affine_fpi16(c->output, c->q_out, c->input, c->q_in, c->matrix, c->q_matrix, &c->params));
  const oru_tensor *in = c->input, *m = c->matrix;
  oru_tensor *out = c->output;
  if (!has_data(in) || !has_data(m) || !has_data(out) || m->total_elements != 6) return ORU_RET_ERR_PARA;
  const int32_t w = in->dims[0], h = in->dims[1], wo = out->dims[0], ho = out->dims[1];
  if (wo < 1 || ho < 1) return ORU_RET_OK;
  const float *t = static_cast<const float *>(m->data);
  // The sampling grid of this run: (gx, gy) for each output position.
  Scratch<float> grid(int64_t(2) * wo * ho);
  if (!grid) return ORU_RET_ERR_MEMORY;
  const bool corners = c->params.align_corners == 1;
  float v = -1.0f;
  for (int32_t y = 0; y < ho; ++y) {
    if (!corners) v = 2.0f * ((1.0f / float(ho)) * (float(y) + 0.5f) - 0.5f);
    float u = -1.0f;
    for (int32_t x = 0; x < wo; ++x) {
      if (!corners) u = 2.0f * ((1.0f / float(wo)) * (float(x) + 0.5f) - 0.5f);
      float *g = grid.get() + 2 * (int64_t(y) * wo + x);
      g[0] = t[2] + (t[1] * v + t[0] * u);
      g[1] = t[5] + (t[4] * v + t[3] * u);
      if (corners) u += 2.0f / float(wo - 1);
    }
    if (corners) v += 2.0f / float(ho - 1);
  }
  const int32_t channels = out->dims[2] > 0 ? out->dims[2] : 1;
  if (in->dims[2] > 0 && in->dims[2] < channels) return ORU_RET_ERR_PARA;
  const float *src = static_cast<const float *>(in->data);
  float *dst = static_cast<float *>(out->data);
  for (int32_t ch = 0; ch < channels; ++ch) {
    const float *plane = src + int64_t(ch) * w * h;
    float *o = dst + int64_t(ch) * wo * ho;
    for (int64_t i = 0; i < int64_t(wo) * ho; ++i) {
      const float gx = grid[2 * i], gy = grid[2 * i + 1];
      float ix, iy;
      if (corners) {
        ix = (gx + 1.0f) * 0.5f * float(w - 1);
        iy = (gy + 1.0f) * 0.5f * float(h - 1);
      } else {
        ix = (gx * 0.5f + 0.5f) * float(w) - 0.5f;
        iy = (gy * 0.5f + 0.5f) * float(h) - 0.5f;
      }
      const float fx0 = std::floor(ix), fy0 = std::floor(iy);
      // Far outside positions read zeros; keep the integer conversion in range.
      if (!(fx0 > -2.0f && fx0 < float(w) + 1.0f && fy0 > -2.0f && fy0 < float(h) + 1.0f)) {
        o[i] = 0.0f;
        continue;
      }
      const int32_t x0 = int32_t(fx0), y0 = int32_t(fy0), x1 = x0 + 1, y1 = y0 + 1;
      const float a = float(x1) - ix, b = ix - float(x0), c1 = float(y1) - iy, d = iy - float(y0);
      const float p = pixel(plane, w, h, x0, y0), q = pixel(plane, w, h, x1, y0);
      const float r = pixel(plane, w, h, x0, y1), s = pixel(plane, w, h, x1, y1);
      o[i] = (b * d) * s + ((a * d) * r + ((a * c1) * p + (b * c1) * q));
    }
  }
  return ORU_RET_OK;
}

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

uint32_t oru_cg_affine(void *context) { return oru::affine_forward(context); }

ORU_API uint32_t oru_init_affine_context(oru_cg_handle *handle, int32_t node, const void *params) {
  if (!handle || !params) return ORU_RET_ERR_PARA;
  oru_cg_affine_context *c = nullptr;
  const uint32_t st = install_context(handle, node, ORU_CG_OP_AFFINE, oru_cg_affine, &c);
  if (st) return st;
  c->backend = handle->backend;
  c->params = *static_cast<const oru_cg_affine_params *>(params);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_init_affine_context_inference(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0) return ORU_RET_ERR_PARA;
  auto *c = cg_context_of<oru_cg_affine_context>(handle, node, {ORU_CG_OP_AFFINE});
  if (!c || cg_in_edge_count(handle, node) != 2) return ORU_RET_ERR_PARA;
  const bool fixed = fixed_point(handle);
  for (int32_t k = 0; k < 2; ++k) {
    const int32_t s = cg_in_edge(handle, node, k);
    // Both sources are data: a weight node yields nothing here, like any operator without output.
    oru_tensor *t = cg_data_tensor(handle, s);
    if (!t) {
      if (cg_op_type(handle, s) != ORU_CG_OP_INPUT) return ORU_RET_ERR_MEMORY;
      continue;
    }
    // The matrix is told by its size, so the edges may come in either order.
    if (t->total_elements == 6) {
      c->matrix = t;
      if (fixed) c->q_matrix = cg_q(handle, s);
    } else {
      c->input = t;
      if (fixed) c->q_in = cg_q(handle, s);
    }
  }
  if (c->input && c->matrix && !c->output) {
    const oru_tensor *in = c->input;
    int32_t dims[5] = {in->dims[0], in->dims[1], in->dims[2], in->dims[3], in->dims[4]};
    dims[0] = int32_t(c->params.scale_w * float(in->dims[0]));
    dims[1] = int32_t(c->params.scale_h * float(in->dims[1]));
    const uint32_t dev = handle->dev_type;
    c->output = (dev == kCgDeviceExternal1 || dev == kCgDeviceExternal3) ? oru_create_tensor_header(in->ndims, dims, in->type)
                                       : oru_create_tensor(in->ndims, dims, in->type);
  }
  if (fixed) {
    c->q_out = c->q_in < c->q_matrix ? c->q_in : c->q_matrix;
    cg_set_q(handle, node, c->q_out);
  }
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_uninit_affine_context(void **context) {
  return cg_release_context<oru_cg_affine_context>(context);
}

ORU_API oru_tensor *oru_get_affine_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_affine_context>(handle, node, {ORU_CG_OP_AFFINE});
}

}  // extern "C"
