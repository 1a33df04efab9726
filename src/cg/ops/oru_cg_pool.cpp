// Max and average pooling over square windows of each channel of a CHW tensor.
#include "cg/ops/oru_cg_ops_common.h"
#include "kernels/pooling/oru_pool_kernels.h"

namespace oru {
namespace {

// The windows of the forward functions: k x k with stride k, k = kernel_w. The output shape
// comes from all four parameters, so the walk is kept inside both tensors whatever they say.
uint32_t pool_run(const oru_cg_pool_context *c, bool is_max) {
  const oru_tensor *in = c->input;
  oru_tensor *out = c->output;
  if (!has_data(in) || !has_data(out) || in->dims[2] != out->dims[2]) return ORU_RET_ERR_PARA;
  const int32_t channels = out->dims[2], h = in->dims[1], w = in->dims[0];
  if (channels < 1 || h < 1) return ORU_RET_OK;
  const int32_t k = c->params.kernel_w;
  if (k < 1) return ORU_RET_ERR_PARA;
  int32_t ow = (w + k - 1) / k, oh = (h + k - 1) / k;
  if (ow > out->dims[0]) ow = out->dims[0];
  if (oh > out->dims[1]) oh = out->dims[1];
  if (ow > w / k) ow = w / k;
  if (oh > h / k) oh = h / k;
  if (ow < 1 || oh < 1) return ORU_RET_OK;
  PoolPlanes p{static_cast<const float *>(in->data), static_cast<float *>(out->data), w,
               int64_t(in->pitches[1] / 4), ow, oh, int64_t(out->pitches[1] / 4), channels, k, k};
  if (p.in_plane == 0) p.in_plane = int64_t(w) * h;
  if (p.out_plane == 0) p.out_plane = int64_t(out->dims[0]) * out->dims[1];
  // Output rows are the output's own width apart.
  if (ow != out->dims[0]) {
    for (int32_t y = 0; y < oh; ++y) {
      PoolPlanes row = p;
      row.in = p.in + int64_t(y) * k * w;
      row.out = p.out + int64_t(y) * out->dims[0];
      row.out_h = 1;
      is_max ? max_pool2d_f32(row) : avg_pool2d_f32(row);
    }
    return ORU_RET_OK;
  }
  is_max ? max_pool2d_f32(p) : avg_pool2d_f32(p);
  return ORU_RET_OK;
}

uint32_t max_forward(void *context) {
  auto *c = static_cast<oru_cg_pool_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  return pool_run(c, true);
}

uint32_t avg_forward(void *context) {
  auto *c = static_cast<oru_cg_pool_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED)
    return fixed_point_result(oru_tensor_avg_pool2d_fpi16(c->output, c->q_out, c->input, c->q_in, c->params.kernel_w));
  return pool_run(c, false);
}

uint32_t init_pool(oru_cg_handle *h, int32_t node, const void *params, int32_t op, oru_cg_forward_fn f) {
  if (!h || !params) return ORU_RET_ERR_PARA;
  oru_cg_pool_context *c = nullptr;
  const uint32_t st = install_context(h, node, op, f, &c);
  if (st) return st;
  if (op == ORU_CG_OP_AVG_POOL2D) c->backend = h->backend;
  c->params = *static_cast<const oru_cg_pool_params *>(params);
  return ORU_RET_OK;
}

uint32_t prepare_pool(oru_cg_handle *h, int32_t node, bool is_max) {
  if (!h || node < 0) return ORU_RET_ERR_PARA;
  auto *c = cg_context_of<oru_cg_pool_context>(h, node, {is_max ? ORU_CG_OP_MAX_POOL2D : ORU_CG_OP_AVG_POOL2D});
  if (!c || cg_in_edge_count(h, node) != 1) return ORU_RET_ERR_PARA;
  const int32_t source = cg_in_edge(h, node, 0);
  if (!is_max && fixed_point(h)) {
    c->q_in = cg_q(h, source);
    c->q_out = cg_q(h, node);
  }
  oru_tensor *in = cg_data_tensor(h, source);
  if (!in) {
    if (c->output) return ORU_RET_OK;
    ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  }
  c->input = in;
  const oru_cg_pool_params &p = c->params;
  int32_t dims[5] = {in->dims[0], in->dims[1], in->dims[2], in->dims[3], in->dims[4]};
  dims[0] = p.stride_w == 0 ? 1 : (in->dims[0] - p.kernel_w) / p.stride_w + 1;
  dims[1] = p.stride_h == 0 ? 1 : (in->dims[1] - p.kernel_h) / p.stride_h + 1;
  if (c->output) oru_release_tensor(&c->output);
  // Max pooling always computes here, so it always has storage.
  c->output = cg_new_output(in->ndims, dims, in->type, is_max ? kCgDeviceCpu : h->dev_type);
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return ORU_RET_OK;
}

uint32_t uninit_pool(void **context) { return cg_release_context<oru_cg_pool_context>(context); }

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

uint32_t oru_cg_max_pool2d(void *context) { return oru::max_forward(context); }
uint32_t oru_cg_avg_pool2d(void *context) { return oru::avg_forward(context); }

ORU_API uint32_t oru_init_max_pool2d_context(oru_cg_handle *handle, int32_t node, const void *params) {
  return init_pool(handle, node, params, ORU_CG_OP_MAX_POOL2D, oru_cg_max_pool2d);
}
ORU_API uint32_t oru_init_avg_pool2d_context(oru_cg_handle *handle, int32_t node, const void *params) {
  return init_pool(handle, node, params, ORU_CG_OP_AVG_POOL2D, oru_cg_avg_pool2d);
}
ORU_API uint32_t oru_init_max_pool2d_context_inference(oru_cg_handle *handle, int32_t node) {
  return prepare_pool(handle, node, true);
}
ORU_API uint32_t oru_init_avg_pool2d_context_inference(oru_cg_handle *handle, int32_t node) {
  return prepare_pool(handle, node, false);
}
ORU_API uint32_t oru_uninit_max_pool2d_context(void **context) { return uninit_pool(context); }
ORU_API uint32_t oru_uninit_avg_pool2d_context(void **context) { return uninit_pool(context); }

ORU_API oru_tensor *oru_get_pool2d_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_pool_context>(handle, node, {ORU_CG_OP_MAX_POOL2D, ORU_CG_OP_AVG_POOL2D});
}

}  // extern "C"
