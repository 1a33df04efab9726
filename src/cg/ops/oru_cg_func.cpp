// Element-wise graph operators: ReLU6, hard swish, sigmoid, softmax (in place, on the
// shared unary context) and add, mul and bias (on the binary context).
#include <cmath>
#include <cstring>

#include "core/oru_types.h"
#include "kernels/activation/oru_act_kernels.h"
#include "cg/ops/oru_cg_ops_common.h"
#include "oru_fixed.h"

namespace oru {
namespace {

uint32_t relu6_forward(void *context) {
  auto *c = static_cast<oru_cg_unary_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (!c->input || !c->output || c->input->total_elements < 1 || !c->input->data || !c->output->data)
    return ORU_RET_OK;
  relu6_f32(static_cast<float *>(c->output->data), static_cast<const float *>(c->input->data),
            c->input->total_elements);
  return ORU_RET_OK;
}

uint32_t hswish_forward(void *context) {
  auto *c = static_cast<oru_cg_unary_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED)
    return fixed_point_result(oru_tensor_hswish_fpi16(c->output, c->q_out, c->input, c->q_in));
  if (!has_data(c->input) || !has_data(c->output)) return ORU_RET_ERR_PARA;
  hswish_f32(static_cast<float *>(c->output->data), static_cast<const float *>(c->input->data),
             c->input->total_elements);
  return ORU_RET_OK;
}

// The fixed-point sigmoid is a float computation on the 16-bit values; the result is in
// Q15 whatever the node's own Q says.
uint32_t sigmoid_fpi16(const oru_cg_unary_context *c) {
  const oru_tensor *in = c->input;
  oru_tensor *out = c->output;
  if (!has_data(in) || !has_data(out) || in->type != ai16s || out->type != ai16s || c->q_in < 0 ||
      c->q_in > ORU_Q_MAX || out->total_elements > in->total_elements)
    return ORU_RET_ERR_PARA;
  const float s = static_cast<float>(1.0 / std::ldexp(1.0, c->q_in));
  const int16_t *x = static_cast<const int16_t *>(in->data);
  int16_t *y = static_cast<int16_t *>(out->data);
  for (int64_t i = 0; i < out->total_elements; ++i) {
    const float v = float(x[i]) * s;
    const float e = static_cast<float>(std::exp(double(v)));
    const float r = (e / (e + 1.0f)) * 32768.0f;
    // Nearest, ties to even; 32768 has no room in 16 signed bits and wraps, a NaN gives 0.
    const float n = std::nearbyint(r);
    y[i] = std::isnan(n) ? int16_t(0) : int16_t(uint16_t(uint32_t(int32_t(n))));
  }
  return ORU_RET_OK;
}

uint32_t sigmoid_forward(void *context) {
  auto *c = static_cast<oru_cg_unary_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED) return fixed_point_result(sigmoid_fpi16(c));
  if (!has_data(c->input) || !has_data(c->output) || c->input->total_elements != c->output->total_elements ||
      c->input->type != c->output->type)
    return ORU_RET_ERR_PARA;
  if (oru::base_of_code(c->input->type) != aif32) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  sigmoid_f32(static_cast<float *>(c->output->data), static_cast<const float *>(c->input->data),
              c->input->total_elements);
  return ORU_RET_OK;
}

uint32_t softmax_forward(void *context) {
  auto *c = static_cast<oru_cg_unary_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (c->dev_type == kCgDeviceExternal1 || c->dev_type == kCgDeviceExternal3) return ORU_RET_ERR_PARA;
  if (c->dev_type == kCgDeviceExternal2) return ORU_RET_OK;
  const oru_tensor *in = c->input;
  oru_tensor *out = c->output;
  if (!in || !out || in->ndims < 1 || in->ndims != out->ndims) return ORU_RET_ERR_PARA;
  for (int32_t k = 0; k < in->ndims; ++k)
    if (in->dims[k] != out->dims[k]) return ORU_RET_ERR_PARA;
  const int64_t len = in->dims[0];
  if (len < 1) return ORU_RET_OK;
  const int64_t rows = in->total_elements / len;
  if (rows < 1) return ORU_RET_ERR_PARA;
  if (!in->data || !out->data) return ORU_RET_ERR_PARA;
  softmax_rows_f32(static_cast<float *>(out->data), static_cast<const float *>(in->data), rows, len);
  return ORU_RET_OK;
}

uint32_t init_unary(oru_cg_handle *h, int32_t node, int32_t op, oru_cg_forward_fn f, bool copies_backend) {
  if (!h) return ORU_RET_ERR_PARA;
  oru_cg_unary_context *c = nullptr;
  const uint32_t st = install_context(h, node, op, f, &c);
  if (st) return st;
  if (copies_backend) c->backend = h->backend;
  return ORU_RET_OK;
}

// ---- binary ----

uint32_t add_forward(void *context) {
  auto *c = static_cast<oru_cg_binary_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED)
    return fixed_point_result(oru_tensor_add_fpi16(c->output, c->q_out, c->input_a, c->q_a, c->input_b, c->q_b));
  const oru_tensor *a = c->input_a, *b = c->input_b;
  oru_tensor *out = c->output;
  if (!has_data(a) || !has_data(b) || !has_data(out)) return ORU_RET_ERR_PARA;
  for (int k = 0; k < 3; ++k)
    if (a->dims[k] != out->dims[k]) return ORU_RET_ERR_PARA;
  const float *pa = static_cast<const float *>(a->data), *pb = static_cast<const float *>(b->data);
  float *po = static_cast<float *>(out->data);
  if (a->total_elements == b->total_elements) {
    // Equal sizes decide alone: b is added element by element whatever its own dims.
    if (out->total_elements < a->total_elements) return ORU_RET_ERR_PARA;
    add_f32(po, pa, pb, a->total_elements);
    return ORU_RET_OK;
  }
  const int32_t channels = a->dims[2];
  if (out->ndims != 3 || b->total_elements != channels) return ORU_RET_ERR_PARA;
  const int64_t plane = int64_t(a->dims[0]) * a->dims[1];
  const int64_t pa_pitch = a->pitches[1] / 4, po_pitch = out->pitches[1] / 4;
  for (int32_t ch = 0; ch < channels; ++ch) add_scalar_f32(po + ch * po_pitch, pa + ch * pa_pitch, pb[ch], plane);
  return ORU_RET_OK;
}

// out[c][i] = s[c] * t[c][i], planes contiguous.
void scale_channels(float *out, const float *s, const float *t, int64_t channels, int64_t plane) {
  for (int64_t ch = 0; ch < channels; ++ch)
    for (int64_t i = 0; i < plane; ++i) out[ch * plane + i] = s[ch] * t[ch * plane + i];
}

uint32_t mul_forward(void *context) {
  auto *c = static_cast<oru_cg_binary_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  const oru_tensor *a = c->input_a, *b = c->input_b;
  oru_tensor *out = c->output;
  if (!has_data(a) || !has_data(b) || !has_data(out)) return ORU_RET_ERR_PARA;
  const float *pa = static_cast<const float *>(a->data), *pb = static_cast<const float *>(b->data);
  float *po = static_cast<float *>(out->data);
  auto scaled_by = [&](const oru_tensor *s, const oru_tensor *t, const float *ps, const float *pt) -> uint32_t {
    if (s->dims[2] != t->dims[2] || t->dims[2] != out->dims[2] || t->dims[0] != out->dims[0] ||
        t->dims[1] != out->dims[1])
      return ORU_RET_ERR_PARA;
    const int64_t channels = t->dims[2] > 0 ? t->dims[2] : 1;
    const int64_t plane = int64_t(t->dims[0]) * t->dims[1];
    if (s->total_elements < channels || t->total_elements < channels * plane) return ORU_RET_ERR_PARA;
    scale_channels(po, ps, pt, channels, plane);
    return ORU_RET_OK;
  };
  if (a->dims[0] == 1 && a->dims[1] == 1) return scaled_by(a, b, pa, pb);
  if (b->dims[0] == 1 && b->dims[1] == 1) return scaled_by(b, a, pb, pa);
  for (int k = 0; k < 3; ++k)
    if (a->dims[k] != b->dims[k] || a->dims[k] != out->dims[k]) return ORU_RET_ERR_PARA;
  const int64_t n = out->total_elements;
  if (a->total_elements < n || b->total_elements < n) return ORU_RET_ERR_PARA;
  for (int64_t i = 0; i < n; ++i) po[i] = pa[i] * pb[i];
  return ORU_RET_OK;
}

uint32_t init_binary(oru_cg_handle *h, int32_t node, int32_t op, oru_cg_forward_fn f, bool copies_backend) {
  if (!h) return ORU_RET_ERR_PARA;
  oru_cg_binary_context *c = nullptr;
  const uint32_t st = install_context(h, node, op, f, &c);
  if (st) return st;
  if (copies_backend) c->backend = h->backend;
  return ORU_RET_OK;
}

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

// The forward functions under their table names.
uint32_t oru_cg_relu6_func(void *context) { return oru::relu6_forward(context); }
uint32_t oru_cg_hswish_func(void *context) { return oru::hswish_forward(context); }
uint32_t oru_cg_sigmoid_func(void *context) { return oru::sigmoid_forward(context); }
uint32_t oru_cg_softmax_func(void *context) { return oru::softmax_forward(context); }
uint32_t oru_cg_add(void *context) { return oru::add_forward(context); }
uint32_t oru_cg_mul(void *context) { return oru::mul_forward(context); }

ORU_API uint32_t oru_init_relu6_context(oru_cg_handle *handle, int32_t node, const void *) {
  return init_unary(handle, node, 20, oru_cg_relu6_func, false);
}
ORU_API uint32_t oru_init_hswish_context(oru_cg_handle *handle, int32_t node, const void *) {
  return init_unary(handle, node, 21, oru_cg_hswish_func, true);
}
ORU_API uint32_t oru_init_sigmoid_context(oru_cg_handle *handle, int32_t node, const void *) {
  return init_unary(handle, node, 15, oru_cg_sigmoid_func, true);
}
ORU_API uint32_t oru_init_softmax_context(oru_cg_handle *handle, int32_t node, const void *) {
  return init_unary(handle, node, 24, oru_cg_softmax_func, false);
}

ORU_API uint32_t oru_init_bias_context(oru_cg_handle *handle, int32_t node, const void *) {
  return init_binary(handle, node, 9, oru_cg_add, true);
}
ORU_API uint32_t oru_init_add_context(oru_cg_handle *handle, int32_t node, const void *) {
  return init_binary(handle, node, 27, oru_cg_add, true);
}
ORU_API uint32_t oru_init_mul_context(oru_cg_handle *handle, int32_t node, const void *) {
  return init_binary(handle, node, 28, oru_cg_mul, false);
}

ORU_API uint32_t oru_init_binary_context_inference(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0) return ORU_RET_ERR_PARA;
  auto *c = static_cast<oru_cg_binary_context *>(cg_context(handle, node));
  if (!c) return ORU_RET_ERR_PARA;
  const int32_t n = cg_in_edge_count(handle, node);
  if (n != 2) return ORU_RET_ERR_PARA;
  if (handle->backend == ORU_CG_BACKEND_FIXED) {
    c->q_a = cg_q(handle, cg_in_edge(handle, node, 0));
    c->q_b = cg_q(handle, cg_in_edge(handle, node, 1));
    c->q_out = cg_q(handle, node);
  }
  // add and mul take a weight node like a data node.
  oru_tensor *a = cg_source_tensor(handle, cg_in_edge(handle, node, 0));
  oru_tensor *b = cg_source_tensor(handle, cg_in_edge(handle, node, 1));
  c->input_a = a;
  c->input_b = b;
  if (!a || !b) {
    if (c->output) return ORU_RET_OK;
    ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  }
  const oru_tensor *shape = (a->dims[0] == 1 && a->dims[1] == 1) ? b : a;
  c->output = cg_external_device(handle->dev_type) ? oru_create_tensor_header(shape->ndims, shape->dims, shape->type)
                                              : oru_create_tensor_from_tensor(shape);
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_init_bias_context_inference(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0) return ORU_RET_ERR_PARA;
  auto *c = static_cast<oru_cg_binary_context *>(cg_context(handle, node));
  if (!c) return ORU_RET_ERR_PARA;
  const int32_t n = cg_in_edge_count(handle, node);
  uint32_t status = ORU_RET_OK;
  for (int64_t k = 0; k < n; ++k) {
    const int32_t s = cg_in_edge(handle, node, int32_t(k));
    const int32_t op = cg_op_type(handle, s);
    if (op == ORU_CG_OP_WEIGHT) {
      oru_tensor *w = cg_source_tensor(handle, s);
      if (handle->backend == ORU_CG_BACKEND_FIXED) {
        // The bias is quantised with its own Q into a copy that this node owns.
        if (!w) continue;
        if (c->input_b) oru_release_tensor(&c->input_b);
        int32_t q = 0;
        oru_tensor_calc_q(&q, w, 0, static_cast<int32_t>(w->total_elements));
        c->q_b = q;
        c->input_b = oru_create_tensor(w->ndims, w->dims, ai16s);
        if (!c->input_b) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
        status = oru_tensor_transform_data_from_real32_to_fpi16(c->input_b, w, 0,
                                                                static_cast<int32_t>(w->total_elements), q);
      } else {
        c->input_b = w;
      }
    } else {
      c->input_a = cg_data_tensor(handle, s);
      if (handle->backend == ORU_CG_BACKEND_FIXED) c->q_a = cg_q(handle, s);
    }
  }
  if (c->input_a && c->input_b && !c->output) {
    if (handle->dev_type == kCgDeviceExternal3)
      c->output = oru_create_tensor_header(c->input_a->ndims, c->input_a->dims, c->input_a->type);
    else if (handle->dev_type == kCgDeviceExternal1)
      c->output = oru_create_tensor_from_tensor(c->input_a);
    else
      c->output = c->input_a;
  }
  if (handle->backend == ORU_CG_BACKEND_FIXED) {
    c->q_out = (c->q_a < c->q_b ? c->q_a : c->q_b) - 1;
    cg_set_q(handle, node, c->q_out);
  }
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return status;
}

ORU_API uint32_t oru_uninit_bias_context(void **context) {
  return cg_free_context<oru_cg_binary_context>(context, [](oru_cg_binary_context *c) {
    if (c->backend == ORU_CG_BACKEND_FIXED && c->input_b) oru_release_tensor(&c->input_b);
    // On the CPU the output is the input's tensor; only the device copies are this node's.
    if (c->output && c->output != c->input_a) oru_release_tensor(&c->output);
  });
}

ORU_API uint32_t oru_uninit_binary_context(void **context) {
  return cg_release_context<oru_cg_binary_context>(context);
}

ORU_API oru_tensor *oru_get_binary_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_binary_context>(handle, node, {9, 25, 27, 28, 29});
}

ORU_API oru_tensor *oru_get_binary_inference_dev_data(oru_cg_handle *handle, int32_t node) {
  return oru_get_binary_inference_data(handle, node);
}

}  // extern "C"
