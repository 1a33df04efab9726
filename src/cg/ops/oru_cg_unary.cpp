// The functions all unary operators share (one input, an output of the same shape,
// in place on the CPU), and ReLU, the first of them.
#include "cg/oru_cg_internal.h"
#include "kernels/activation/oru_act_kernels.h"
#include "core/oru_dispatch.h"

namespace {

constexpr std::initializer_list<int32_t> kUnaryFamily = {ORU_CG_OP_SIGMOID, ORU_CG_OP_RELU, ORU_CG_OP_RELU6,
                                                         ORU_CG_OP_HSWISH, ORU_CG_OP_SOFTMAX};

// Float elements both tensors can hold; a tensor of another type never gets read past its end.
int64_t float_span(const oru_tensor *in, const oru_tensor *out) {
  int64_t n = in->total_elements;
  if (out->total_elements < n) n = out->total_elements;
  if (in->total_bytes / 4 < n) n = in->total_bytes / 4;
  if (out->total_bytes / 4 < n) n = out->total_bytes / 4;
  return n;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_init_relu_context(oru_cg_handle *handle, int32_t node, const void *params) {
  (void)params;
  if (oru::cg_check_init(handle, node) != ORU_RET_OK) return ORU_RET_ERR_PARA;
  auto *c = oru::cg_new_context<oru_cg_unary_context>(ORU_CG_OP_RELU);
  if (!c) return ORU_RET_ERR_MEMORY;
  c->dev_type = handle->dev_type;
  oru::cg_install(handle, node, c, oru_cg_relu_func);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_init_unary_context_inference(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0) return ORU_RET_ERR_PARA;
  auto *c = oru::cg_context_of<oru_cg_unary_context>(handle, node, kUnaryFamily);
  if (!c || oru::cg_in_edge_count(handle, node) != 1) return ORU_RET_ERR_PARA;
  const int32_t source = oru::cg_in_edge(handle, node, 0);
  if (handle->backend == ORU_CG_BACKEND_FIXED) {
    c->q_in = oru::cg_q(handle, source);
    c->q_out = oru::cg_q(handle, node);
  }
  oru_tensor *input = oru::cg_data_tensor(handle, source);
  if (!input) return c->output ? ORU_RET_OK : ORU_RET_ERR_MEMORY;
  c->input = input;
  if (oru::cg_external_device(c->dev_type)) {
    oru_tensor *header = oru_create_tensor_header(input->ndims, input->dims, input->type);
    if (!header) return ORU_RET_ERR_MEMORY;
    if (c->output && c->output != input) oru_release_tensor(&c->output);
    c->output = header;
  } else {
    c->output = input;
  }
  return ORU_RET_OK;
}

ORU_API oru_tensor *oru_get_unary_inference_data(oru_cg_handle *handle, int32_t node) {
  return oru::cg_output_of<oru_cg_unary_context>(handle, node, kUnaryFamily);
}

ORU_API uint32_t oru_uninit_unary_context(void **context) {
  return oru::cg_free_context<oru_cg_unary_context>(context, [](oru_cg_unary_context *c) {
    // On the CPU the output is the input, someone else's; only a device header is ours.
    if (c->output && c->output != c->input && oru::cg_external_device(c->dev_type)) oru_release_tensor(&c->output);
  });
}

uint32_t oru_cg_relu_func(void *context) {
  if (!context) return ORU_RET_ERR_PARA;
  const auto *c = static_cast<const oru_cg_unary_context *>(context);
  const oru_tensor *in = c->input;
  const oru_tensor *out = c->output;
  if (!in || !out || !in->data || !out->data) return ORU_RET_OK;
  const int64_t n = float_span(in, out);
  if (n < 1) return ORU_RET_OK;
  static const auto relu = oru::pick(ORU_KERNEL_FORMS(oru::relu_f32));
  relu(static_cast<float *>(out->data), static_cast<const float *>(in->data), n);
  return ORU_RET_OK;
}

}  // extern "C"
