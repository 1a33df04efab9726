// Operators that move data without arithmetic: reshape (a real copy), split (a strided pick
// of channels), concat along one dimension, and a free permutation of channels.
#include <cstring>

#include "cg/ops/oru_cg_ops_common.h"

namespace oru {
namespace {

// ---- reshape ----

uint32_t reshape_forward(void *context) {
  auto *c = static_cast<oru_cg_reshape_context *>(context);
  if (!c || !has_data(c->input) || !has_data(c->output)) return ORU_RET_ERR_PARA;
  // A copy, not a view, so every element size works; never past the output's end.
  int64_t n = c->input->total_bytes;
  if (n > c->output->total_bytes) n = c->output->total_bytes;
  std::memcpy(c->output->data, c->input->data, size_t(n));
  return ORU_RET_OK;
}

uint32_t prepare_reshape(oru_cg_handle *h, int32_t node) {
  if (!h || node < 0) return ORU_RET_ERR_PARA;
  auto *c = cg_context_of<oru_cg_reshape_context>(h, node, {ORU_CG_OP_RESHAPE});
  if (!c || cg_in_edge_count(h, node) != 1) return ORU_RET_ERR_PARA;
  const int32_t source = cg_in_edge(h, node, 0);
  if (fixed_point(h)) {
    c->q_in = c->q_out = cg_q(h, source);
    cg_set_q(h, node, c->q_out);
  }
  oru_tensor *in = cg_data_tensor(h, source);
  if (!in) return c->output ? ORU_RET_OK : ORU_RET_ERR_MEMORY;
  c->input = in;
  const oru_cg_reshape_params &p = c->params;
  if (p.ndims < 1 || p.ndims > 5) return ORU_RET_ERR_PARA;
  int32_t dims[5] = {0, 0, 0, 0, 0};
  int32_t infer = -1;
  int64_t known = 1;
  for (int32_t k = 0; k < p.ndims; ++k) {
    dims[k] = p.dims[k];
    if (dims[k] == -1) {
      if (infer >= 0) return ORU_RET_ERR_PARA;
      infer = k;
    } else if (dims[k] < 1) {
      return ORU_RET_ERR_PARA;
    } else {
      known *= dims[k];
    }
  }
  if (infer >= 0) {
    dims[infer] = int32_t(in->total_elements / known);
    if (dims[infer] < 1) return ORU_RET_ERR_PARA;
  }
  if (c->output) oru_release_tensor(&c->output);
  const uint32_t dev = h->dev_type;
  if (dev == kCgDeviceExternal1 || dev == kCgDeviceExternal3)
    c->output = oru_create_tensor_header(p.ndims, dims, in->type);
  else if (dev == kCgDeviceExternal2)
    c->output = (in->dims[0] == 1 && in->dims[1] == 1) ? oru_create_tensor_header(in->ndims, in->dims, in->type)
                                                       : oru_create_tensor_header(p.ndims, dims, in->type);
  else
    c->output = oru_create_tensor(p.ndims, dims, in->type);
  return c->output ? ORU_RET_OK : ORU_RET_ERR_MEMORY;
}

// ---- split ----

uint32_t split_forward(void *context) {
  auto *c = static_cast<oru_cg_split_context *>(context);
  if (!c || !has_data(c->input) || !has_data(c->output) || c->input->dims[0] != c->output->dims[0] ||
      c->input->dims[1] != c->output->dims[1])
    return ORU_RET_ERR_PARA;
  const int32_t co = c->output->dims[2];
  if (co < 1) return ORU_RET_OK;
  const int64_t plane = int64_t(c->input->dims[0]) * c->input->dims[1];
  const int64_t cin = c->input->dims[2];
  const float *in = static_cast<const float *>(c->input->data);
  float *out = static_cast<float *>(c->output->data);
  for (int32_t j = 0; j < co; ++j) {
    const int64_t from = int64_t(c->params.start) + int64_t(j) * c->params.step;
    if (from < 0 || from >= cin) return ORU_RET_ERR_PARA;
    std::memcpy(out + j * plane, in + from * plane, size_t(plane) * 4);
  }
  return ORU_RET_OK;
}

uint32_t prepare_split(oru_cg_handle *h, int32_t node) {
  if (!h || node < 0) return ORU_RET_ERR_PARA;
  auto *c = cg_context_of<oru_cg_split_context>(h, node, {ORU_CG_OP_SPLIT});
  if (!c || cg_in_edge_count(h, node) != 1) return ORU_RET_ERR_PARA;
  oru_tensor *in = cg_data_tensor(h, cg_in_edge(h, node, 0));
  if (!in) {
    if (c->output) return ORU_RET_OK;
    ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  }
  c->input = in;
  const int32_t groups = c->params.groups;
  if (groups < 1 || groups > in->dims[2]) return ORU_RET_ERR_PARA;
  int32_t dims[5] = {in->dims[0], in->dims[1], in->dims[2] / groups, in->dims[3], in->dims[4]};
  if (c->output) oru_release_tensor(&c->output);
  c->output = oru_create_tensor(in->ndims, dims, in->type);
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return ORU_RET_OK;
}

// ---- concat ----

bool supported_axis(int32_t ndims, uint32_t axis) { return ndims >= 1 && ndims <= 3 && axis < uint32_t(ndims); }

uint32_t concat_forward(void *context) {
  auto *c = static_cast<oru_cg_concat_context *>(context);
  if (!c) return ORU_RET_ERR_PARA;
  if (cg_external_device(c->dev_type)) return ORU_RET_OK;
  if (c->backend == ORU_CG_BACKEND_FIXED)
    return fixed_point_result(oru_tensor_concat_fpi16(c->output, c->q_out, c->inputs, c->q_inputs,
                                                      static_cast<int32_t>(c->axis), c->count));
  oru_tensor *out = c->output;
  if (!has_data(out) || !c->inputs || c->count < 1) return ORU_RET_ERR_PARA;
  const uint32_t axis = c->axis;
  if (!supported_axis(out->ndims, axis)) return ORU_RET_ERR_PARA;
  int64_t sum = 0;
  for (int32_t k = 0; k < c->count; ++k) {
    const oru_tensor *t = c->inputs[k];
    if (!has_data(t) || t->ndims != out->ndims) return ORU_RET_ERR_PARA;
    for (int32_t d = 0; d < out->ndims; ++d)
      if (uint32_t(d) != axis && t->dims[d] != out->dims[d]) return ORU_RET_ERR_PARA;
    sum += t->dims[axis];
  }
  if (sum != out->dims[axis]) return ORU_RET_ERR_PARA;
  int64_t outer = 1;
  for (int32_t d = int32_t(axis) + 1; d < out->ndims; ++d) outer *= out->dims[d];
  float *o = static_cast<float *>(out->data);
  for (int64_t q = 0; q < outer; ++q)
    for (int32_t k = 0; k < c->count; ++k) {
      const oru_tensor *t = c->inputs[k];
      int64_t chunk = 1;
      for (uint32_t d = 0; d <= axis; ++d) chunk *= t->dims[d];
      std::memcpy(o, static_cast<const float *>(t->data) + q * chunk, size_t(chunk) * 4);
      o += chunk;
    }
  return ORU_RET_OK;
}

uint32_t prepare_concat(oru_cg_handle *h, int32_t node) {
  if (!h || node < 0) return ORU_RET_ERR_PARA;
  auto *c = cg_context_of<oru_cg_concat_context>(h, node, {ORU_CG_OP_CONCAT});
  if (!c) return ORU_RET_ERR_PARA;
  const int32_t n = cg_in_edge_count(h, node);
  if (n < 1 || c->count != n || !c->nodes) return ORU_RET_ERR_PARA;
  for (int32_t i = 0; i < n; ++i) {
    const int32_t s = cg_in_edge(h, node, i);
    bool listed = false;
    for (int32_t k = 0; k < c->count && !listed; ++k) listed = c->nodes[k] == s;
    if (!listed) return ORU_RET_ERR_PARA;
  }
  if (!c->inputs) {
    c->inputs = static_cast<oru_tensor **>(oru_calloc(c->count, sizeof(oru_tensor *)));
    if (!c->inputs) return ORU_RET_ERR_MEMORY;
  }
  const bool fixed = c->backend == ORU_CG_BACKEND_FIXED;
  if (fixed && !c->q_inputs) {
    c->q_inputs = static_cast<int32_t *>(oru_calloc(c->count, sizeof(int32_t)));
    if (!c->q_inputs) return ORU_RET_ERR_MEMORY;
  }
  int64_t sum = 0;
  if (fixed) c->q_out = 15;
  for (int32_t k = 0; k < c->count; ++k) {
    c->inputs[k] = cg_data_tensor(h, c->nodes[k]);
    if (!c->inputs[k]) return ORU_RET_ERR_MEMORY;
    if (c->axis < 5) sum += c->inputs[k]->dims[c->axis];
    if (fixed) {
      c->q_inputs[k] = cg_q(h, c->nodes[k]);
      if (c->q_inputs[k] < c->q_out) c->q_out = c->q_inputs[k];
      cg_set_q(h, node, c->q_out);
    }
  }
  const oru_tensor *first = c->inputs[0];
  if (c->axis >= 5) return ORU_RET_ERR_PARA;
  int32_t dims[5] = {first->dims[0], first->dims[1], first->dims[2], first->dims[3], first->dims[4]};
  dims[c->axis] = int32_t(sum);
  if (c->output) oru_release_tensor(&c->output);
  const uint32_t dev = c->dev_type;
  if (!cg_external_device(dev)) {
    c->output = oru_create_tensor(first->ndims, dims, first->type);
  } else if ((dev == kCgDeviceExternal1 || dev == kCgDeviceExternal3) && c->count > 2) {
    c->output = oru_create_tensor_header(first->ndims, dims, first->type);
  } else if (c->count >= 2 && first->dims[0] >= 2 && first->dims[1] >= 2 && c->inputs[1]->dims[0] >= 2 &&
             c->inputs[1]->dims[1] >= 2) {
    const int32_t d3[3] = {first->dims[0], first->dims[1], first->dims[2] + c->inputs[1]->dims[2]};
    c->output = oru_create_tensor_header(3, d3, first->type);
  } else {
    int64_t total = 0;
    for (int32_t k = 0; k < c->count; ++k) total += c->inputs[k]->total_elements;
    const int32_t d3[3] = {1, 1, int32_t(total)};
    c->output = oru_create_tensor_header(3, d3, first->type);
  }
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return ORU_RET_OK;
}

// ---- shuffle ----

uint32_t shuffle_forward(void *context) {
  auto *c = static_cast<oru_cg_shuffle_context *>(context);
  if (!c || !has_data(c->input) || !has_data(c->output) || !c->order) return ORU_RET_ERR_PARA;
  const oru_tensor *in = c->input;
  oru_tensor *out = c->output;
  const int32_t w = out->dims[0], h = out->dims[1], ch = out->dims[2];
  if (w < 1 || h < 1 || ch < 1) return ORU_RET_OK;
  if (in->dims[0] < w || in->dims[1] < h) return ORU_RET_ERR_PARA;
  const auto *src = static_cast<const uint8_t *>(in->data);
  auto *dst = static_cast<uint8_t *>(out->data);
  for (int32_t k = 0; k < ch; ++k) {
    const int32_t from = c->order[k];
    if (from < 0 || from >= in->dims[2]) return ORU_RET_ERR_PARA;
    for (int32_t y = 0; y < h; ++y)
      std::memcpy(dst + int64_t(k) * out->pitches[1] + int64_t(y) * out->pitches[0],
                  src + int64_t(from) * in->pitches[1] + int64_t(y) * in->pitches[0], size_t(w) * 4);
  }
  return ORU_RET_OK;
}

uint32_t prepare_shuffle(oru_cg_handle *h, int32_t node) {
  if (!h || node < 0) return ORU_RET_ERR_PARA;
  auto *c = cg_context_of<oru_cg_shuffle_context>(h, node, {ORU_CG_OP_SHUFFLE});
  if (!c || cg_in_edge_count(h, node) != 1) return ORU_RET_ERR_PARA;
  c->input = cg_data_tensor(h, cg_in_edge(h, node, 0));
  if (c->order && c->input && !c->output) c->output = oru_create_tensor_from_tensor(c->input);
  if (!c->output) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, kCgOutputFailed);
  return ORU_RET_OK;
}

// A copy of a list of count ids in memory of the context's own, closed by -1 so that a
// run never reads past a list shorter than the channels; null when it can't be had.
int32_t *copy_list(const int32_t *list, int32_t count) {
  if (!list || count < 1) return nullptr;
  auto *copy = static_cast<int32_t *>(oru_malloc((int64_t(count) + 1) * 4));
  if (!copy) return nullptr;
  std::memcpy(copy, list, size_t(count) * 4);
  copy[count] = -1;
  return copy;
}

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

uint32_t oru_cg_tensor_reshape(void *context) { return oru::reshape_forward(context); }
uint32_t oru_cg_channel_concat(void *context) { return oru::concat_forward(context); }
uint32_t oru_cg_tensor_split(void *context) { return oru::split_forward(context); }
uint32_t oru_cg_channel_shuffle(void *context) { return oru::shuffle_forward(context); }

ORU_API uint32_t oru_init_reshape_context(oru_cg_handle *handle, int32_t node, const void *params) {
  if (!handle || !params) return ORU_RET_ERR_PARA;
  oru_cg_reshape_context *c = nullptr;
  const uint32_t st = install_context(handle, node, ORU_CG_OP_RESHAPE, oru_cg_tensor_reshape, &c);
  if (st) return st;
  c->backend = handle->backend;
  c->params = *static_cast<const oru_cg_reshape_params *>(params);
  return ORU_RET_OK;
}
ORU_API uint32_t oru_init_reshape_context_inference(oru_cg_handle *handle, int32_t node) {
  return prepare_reshape(handle, node);
}
ORU_API uint32_t oru_uninit_reshape_context(void **context) { return cg_release_context<oru_cg_reshape_context>(context); }
ORU_API oru_tensor *oru_get_reshape_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_reshape_context>(handle, node, {ORU_CG_OP_RESHAPE});
}

ORU_API uint32_t oru_init_split_context(oru_cg_handle *handle, int32_t node, const void *params) {
  if (!handle || !params) return ORU_RET_ERR_PARA;
  oru_cg_split_context *c = nullptr;
  const uint32_t st = install_context(handle, node, ORU_CG_OP_SPLIT, oru_cg_tensor_split, &c);
  if (st) return st;
  c->params = *static_cast<const oru_cg_split_params *>(params);
  return ORU_RET_OK;
}
ORU_API uint32_t oru_init_split_context_inference(oru_cg_handle *handle, int32_t node) {
  return prepare_split(handle, node);
}
ORU_API uint32_t oru_uninit_split_context(void **context) { return cg_release_context<oru_cg_split_context>(context); }
ORU_API oru_tensor *oru_get_split_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_split_context>(handle, node, {ORU_CG_OP_SPLIT});
}

ORU_API uint32_t oru_init_concat_context(oru_cg_handle *handle, int32_t node, const void *params) {
  if (!handle || !params) return ORU_RET_ERR_PARA;
  const auto *p = static_cast<const oru_cg_concat_params *>(params);
  if (!p->nodes || p->count < 1) return ORU_RET_ERR_PARA;
  if (cg_check_init(handle, node) != ORU_RET_OK) return ORU_RET_ERR_PARA;
  int32_t *nodes = copy_list(p->nodes, p->count);
  if (!nodes) return ORU_RET_ERR_MEMORY;
  oru_cg_concat_context *c = nullptr;
  const uint32_t st = install_context(handle, node, ORU_CG_OP_CONCAT, oru_cg_channel_concat, &c);
  if (st) {
    oru_free(nodes);
    return st;
  }
  c->backend = handle->backend;
  c->axis = p->axis;
  c->count = p->count;
  c->nodes = nodes;
  return ORU_RET_OK;
}
ORU_API uint32_t oru_init_concat_context_inference(oru_cg_handle *handle, int32_t node) {
  return prepare_concat(handle, node);
}
ORU_API uint32_t oru_uninit_concat_context(void **context) {
  return cg_release_context<oru_cg_concat_context>(context, [](oru_cg_concat_context *c) {
    oru_free(c->inputs);
    oru_free(c->nodes);
    oru_free(c->q_inputs);
  });
}
ORU_API oru_tensor *oru_get_concat_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_concat_context>(handle, node, {ORU_CG_OP_CONCAT});
}

ORU_API uint32_t oru_init_shuffle_context(oru_cg_handle *handle, int32_t node, const void *params) {
  if (!handle || !params) return ORU_RET_ERR_PARA;
  const auto *p = static_cast<const oru_cg_shuffle_params *>(params);
  if (cg_check_init(handle, node) != ORU_RET_OK) return ORU_RET_ERR_PARA;
  int32_t *order = nullptr;
  if (p->order && p->count > 0) {
    order = copy_list(p->order, p->count);
    if (!order) return ORU_RET_ERR_MEMORY;
  }
  oru_cg_shuffle_context *c = nullptr;
  const uint32_t st = install_context(handle, node, ORU_CG_OP_SHUFFLE, oru_cg_channel_shuffle, &c);
  if (st) {
    oru_free(order);
    return st;
  }
  c->order = order;
  return ORU_RET_OK;
}
ORU_API uint32_t oru_init_shuffle_context_inference(oru_cg_handle *handle, int32_t node) {
  return prepare_shuffle(handle, node);
}
ORU_API uint32_t oru_uninit_shuffle_context(void **context) {
  return cg_release_context<oru_cg_shuffle_context>(context, [](oru_cg_shuffle_context *c) { oru_free(c->order); });
}
ORU_API oru_tensor *oru_get_shuffle_inference_data(oru_cg_handle *handle, int32_t node) {
  return cg_output_of<oru_cg_shuffle_context>(handle, node, {ORU_CG_OP_SHUFFLE});
}

}  // extern "C"
