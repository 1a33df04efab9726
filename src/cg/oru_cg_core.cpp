// The graph handle: edges, binding, prepare, run, results, backward scaffolding, release.
#include <cstdio>
#include <cstring>

#include "cg/oru_cg_internal.h"
#include "core/oru_report.h"

namespace {

constexpr char kParamsError[] = "Params Error!\n";
const oru_darray_type kIdType = {sizeof(int32_t), nullptr, nullptr, nullptr};

const int32_t *ids(const oru_darray *a) { return static_cast<const int32_t *>(a->data); }

bool has_node(const oru_darray *nodes, int32_t id) {
  for (int64_t i = 0; i < nodes->size; ++i)
    if (ids(nodes)[i] == id) return true;
  return false;
}

// Appends id to the edge list at slot, creating the list on first use.
bool append_edge(oru_darray **slot, int32_t id) {
  if (!*slot && !(*slot = oru_create_darray(&kIdType))) return false;
  return oru_darray_push_back(*slot, &id) == ORU_RET_OK;
}

template <typename T>
bool ensure_table(T **table, int32_t n) {
  if (!*table) *table = static_cast<T *>(oru_calloc(n, sizeof(T)));
  return *table != nullptr;
}

}  // namespace

namespace oru {

oru_tensor *cg_source_tensor(oru_cg_handle *h, int32_t source) {
  const int32_t op = cg_op_type(h, source);
  if (op == ORU_CG_OP_INPUT || op == ORU_CG_OP_WEIGHT)
    return static_cast<CgTensorNode *>(h->contexts[source])->tensor;
  if (op == ORU_CG_OP_RESERVED_TENSOR) return nullptr;
  return oru_get_computation_node_inference_data(h, source);
}

oru_tensor *cg_data_tensor(oru_cg_handle *h, int32_t source) {
  return cg_op_type(h, source) == ORU_CG_OP_WEIGHT ? nullptr : cg_source_tensor(h, source);
}

oru_tensor *cg_new_output(int32_t ndims, const int32_t *dims, uint32_t type, uint32_t dev_type) {
  return cg_external_device(dev_type) ? oru_create_tensor_header(ndims, dims, type)
                                      : oru_create_tensor(ndims, dims, type);
}

}  // namespace oru

extern "C" {

ORU_API oru_cg_handle *oru_create_computation_graph_handle(const oru_cg_params *params) {
  const int32_t max_nodes = params ? int32_t(params->max_nodes) : 256;
  oru::Guard<oru_cg_handle, oru_release_computation_graph_handle> h(oru::alloc_zeroed<oru_cg_handle>());
  if (!h.get() || max_nodes < 1) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  h->max_nodes = max_nodes;
  h->conv_workers = params ? params->conv_workers : 1;
  h->conv_method = ORU_CG_CONV_IM2COL_GEMM;
  h->backend = params ? params->backend : ORU_CG_BACKEND_FLOAT;
  h->nodes = oru_create_darray(&kIdType);
  h->out_edges = static_cast<oru_darray **>(oru_calloc(max_nodes, sizeof(oru_darray *)));
  h->in_edges = static_cast<oru_darray **>(oru_calloc(max_nodes, sizeof(oru_darray *)));
  h->operators = static_cast<oru_cg_operator *>(oru_calloc(ORU_CG_OPERATOR_SLOTS, sizeof(oru_cg_operator)));
  if (!h->nodes || !h->out_edges || !h->in_edges || !h->operators) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  oru::cg_fill_operator_table(h->operators);
  std::printf(h->backend == ORU_CG_BACKEND_FIXED ? "ORU_INFO: oru go to fixed point cpu backend!\n"
                                                 : "ORU_INFO: oru go to cpu backend!\n");
  return h.dismiss();
}

ORU_API uint32_t oru_release_computation_graph_handle(oru_cg_handle **handle) {
  if (!handle || !*handle) return ORU_RET_ERR_MEMORY;
  oru_cg_handle *h = *handle;
  *handle = nullptr;
  for (int32_t i = 0; i < h->max_nodes; ++i) {
    if (h->out_edges && h->out_edges[i]) oru_release_darray(&h->out_edges[i]);
    if (h->in_edges && h->in_edges[i]) oru_release_darray(&h->in_edges[i]);
  }
  oru_free(h->in_edges);
  oru_free(h->out_edges);
  oru_free(h->forward);
  oru_free(h->backward);
  if (h->contexts) {
    const int32_t n = oru::cg_node_count(h);
    for (int32_t i = 0; i < n; ++i) {
      void *c = h->contexts[i];
      if (!c) continue;
      h->contexts[i] = nullptr;
      const int32_t op = *static_cast<int32_t *>(c);
      if (op <= ORU_CG_OP_WEIGHT) {
        oru_free(c);
      } else if (op < ORU_CG_OPERATOR_SLOTS && h->operators && h->operators[op].uninit) {
        if (h->operators[op].uninit(&c) != ORU_RET_OK) break;
      }
    }
    oru_free(h->contexts);
  }
  if (h->nodes) oru_release_darray(&h->nodes);
  oru_free(h->topo_order);
  oru_free(h->bound);
  oru_free(h->operators);
  oru_free(h->q_list);
  oru_free(h);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_cg_set_conv_method(oru_cg_handle *handle, uint32_t method) {
  if (!handle || method > ORU_CG_CONV_IM2COL_GEMM) return ORU_RET_ERR_PARA;
  handle->conv_method = method;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_get_cg_conv_method(const oru_cg_handle *handle) { return handle ? handle->conv_method : 0; }

ORU_API uint32_t oru_cg_set_dev_type(oru_cg_handle *handle, uint32_t type) {
  if (!handle) return ORU_RET_ERR_PARA;
  handle->dev_type = type;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_cg_get_dev_type(const oru_cg_handle *handle) { return handle ? handle->dev_type : 0; }

ORU_API void *oru_get_dev_context_from_cg_handle(const oru_cg_handle *handle) {
  return handle ? handle->dev_context : nullptr;
}

ORU_API uint32_t oru_cg_set_ptr_q_list(oru_cg_handle *handle, int32_t *list) {
  if (!handle || !list) return ORU_RET_ERR_PARA;
  handle->q_list = list;
  return ORU_RET_OK;
}

ORU_API int32_t oru_cg_get_q_from_list(const oru_cg_handle *handle, int32_t index) {
  if (!handle || index < 0 || !handle->q_list || index >= handle->max_nodes) return -1;
  return handle->q_list[index];
}

ORU_API uint32_t oru_add_one_edge_into_computation_graph(oru_cg_handle *handle, int32_t from, int32_t to) {
  if (!handle || from < 0 || to < 0) ORU_FAIL(ORU_RET_ERR_PARA);
  if (from >= handle->max_nodes || to >= handle->max_nodes) return ORU_RET_ERR_PARA;
  oru_darray *nodes = handle->nodes;
  const bool new_from = !has_node(nodes, from);
  const bool new_to = to != from && !has_node(nodes, to);
  // The tables made by the sort are sized by N: a new node after it would run past them.
  if (handle->topo_order && (new_from || new_to)) ORU_FAIL(ORU_RET_ERR_PARA);
  // Room first, so that a memory failure leaves the graph as it was.
  if (oru_darray_reserve(nodes, 2) != ORU_RET_OK || !append_edge(&handle->out_edges[from], to))
    ORU_FAIL(ORU_RET_ERR_MEMORY);
  if (!append_edge(&handle->in_edges[to], from)) {
    oru_darray_pop_back(handle->out_edges[from]);
    ORU_FAIL(ORU_RET_ERR_MEMORY);
  }
  if (new_from) oru_darray_push_back(nodes, &from);
  if (new_to) oru_darray_push_back(nodes, &to);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_bind_operator_onto_computation_graph(oru_cg_handle *handle, int32_t node,
                                                         const oru_cg_node_desc *desc, const void *params) {
  if (!handle || !desc) ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  const int32_t n = oru::cg_node_count(handle);
  if (n == 0 || node < 0 || node >= n || !has_node(handle->nodes, node) || !handle->bound)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  // The op code indexes the table of slots; anything outside it names no operator.
  if (desc->op_type < 0 || desc->op_type >= ORU_CG_OPERATOR_SLOTS) ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  if (handle->bound[node]) {
    ORU_REPORT("Params Error!");
    std::printf("the %d th node operator has been bound!\n", node);
    return ORU_RET_ERR_PARA;
  }
  if (!ensure_table(&handle->forward, n) || !ensure_table(&handle->backward, n) ||
      !ensure_table(&handle->contexts, n))
    ORU_FAIL(ORU_RET_ERR_MEMORY);
  handle->bound[node] = 1;  // before init: a node whose init failed stays marked
  if (desc->op_type <= ORU_CG_OP_WEIGHT) {
    auto *record = oru::alloc_zeroed<oru::CgTensorNode>();
    if (!record) ORU_FAIL(ORU_RET_ERR_MEMORY);
    record->op_type = desc->op_type;
    record->tensor = desc->tensor;
    handle->contexts[node] = record;
    return ORU_RET_OK;
  }
  const oru_cg_operator &slot = handle->operators[desc->op_type];
  return slot.init_context ? slot.init_context(handle, node, params) : ORU_RET_OK;
}

ORU_API uint32_t oru_prepare_inference_computation(oru_cg_handle *handle) {
  if (!handle) ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  const int32_t n = oru::cg_node_count(handle);
  if (n > 0 && !handle->topo_order) ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  // Every fixed-point operator reads its Q values here: without the list none has any.
  if (handle->backend == ORU_CG_BACKEND_FIXED && !handle->q_list)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "fixed-point graph prepared without a Q list");
  for (int32_t i = 0; i < n; ++i) {
    const int32_t node = handle->topo_order[i];
    if (!handle->contexts || !handle->contexts[node]) return ORU_RET_ERR_PARA;
    const int32_t op = *static_cast<int32_t *>(handle->contexts[node]);
    if (op < 0 || op >= ORU_CG_OPERATOR_SLOTS || !handle->operators[op].init_inference) continue;
    const uint32_t status = handle->operators[op].init_inference(handle, node);
    if (status != ORU_RET_OK) {
      std::printf("ORU_ERROR: failed to prepare inference node:%d!!!\n", node);
      return status;
    }
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_computation_graph_inference(oru_cg_handle *handle) {
  if (!handle) ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  const int32_t n = oru::cg_node_count(handle);
  if (!handle->topo_order || !handle->contexts || !handle->forward) return ORU_RET_OK;
  for (int32_t i = 0; i < n; ++i) {
    const int32_t node = handle->topo_order[i];
    void *context = handle->contexts[node];
    const oru_cg_forward_fn forward = handle->forward[node];
    if (!context || !forward) continue;
    const uint32_t status = forward(context);
    if (status != ORU_RET_OK) {
      std::printf("ORU_ERROR: failed to inference: %d!!!\n", node);
      return status;
    }
  }
  return ORU_RET_OK;
}

}  // extern "C"

namespace {

// The slot a node's result comes from, after the checks both getters share; null if none.
const oru_cg_operator *result_slot(oru_cg_handle *handle, int32_t node) {
  if (!handle || node < 0 || node >= oru::cg_node_count(handle) || !handle->contexts || !handle->contexts[node])
    ORU_FAIL_MSG(nullptr, kParamsError);
  if (!handle->bound || !handle->bound[node]) return nullptr;
  const int32_t op = oru::cg_op_type(handle, node);
  return op >= 0 && op < ORU_CG_OPERATOR_SLOTS ? &handle->operators[op] : nullptr;
}

}  // namespace

extern "C" {

ORU_API oru_tensor *oru_get_computation_node_inference_data(oru_cg_handle *handle, int32_t node) {
  const oru_cg_operator *slot = result_slot(handle, node);
  return slot && slot->get_inference_data ? slot->get_inference_data(handle, node) : nullptr;
}

ORU_API oru_tensor *oru_get_computation_node_inference_dev_data(oru_cg_handle *handle, int32_t node) {
  const oru_cg_operator *slot = result_slot(handle, node);
  return slot && slot->get_dev_data ? slot->get_dev_data(handle, node) : nullptr;
}

ORU_API uint32_t oru_prepare_backward_computation(oru_cg_handle *handle) {
  if (!handle) ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  const int32_t n = oru::cg_node_count(handle);
  if (n > 0 && (!handle->topo_order || !handle->contexts)) return ORU_RET_ERR_MEMORY;
  for (int32_t i = n - 1; i >= 0; --i)
    if (!handle->contexts[handle->topo_order[i]]) return ORU_RET_ERR_MEMORY;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_computation_graph_backward(oru_cg_handle *handle) {
  if (!handle) ORU_FAIL_MSG(ORU_RET_ERR_PARA, kParamsError);
  const int32_t n = oru::cg_node_count(handle);
  if (!handle->topo_order || !handle->contexts || !handle->backward) return ORU_RET_OK;
  uint32_t status = ORU_RET_OK;
  for (int32_t i = n - 1; i >= 0; --i) {
    const int32_t node = handle->topo_order[i];
    if (!handle->contexts[node] || !handle->backward[node]) continue;
    std::printf("Node No = %d\n", node);
    status = handle->backward[node](handle->contexts[node]);
  }
  return status;
}

}  // extern "C"
