// What every graph operator needs from the core: typed access to contexts, the
// resolution of a node's inputs from its in-edges, installing a context, Q values.
//
// An operator's init_context allocates with cg_new_context, then cg_install;
// its init_inference checks cg_node_ok, walks cg_in_edge_count / cg_in_edge and
// turns each source into a tensor with cg_source_tensor (or cg_data_tensor when it
// takes no weights); its getter is one call of cg_context_of with its family of codes.
#ifndef ORU_CG_INTERNAL_H
#define ORU_CG_INTERNAL_H

#include <cstdint>
#include <initializer_list>

#include "core/oru_scratch.h"
#include "oru_cg.h"

namespace oru {

// The core's record behind a tensor node (op types 0 to 2); the tensor is the client's.
struct CgTensorNode {
  int32_t op_type;
  oru_tensor *tensor;
};

// The report of an init_inference that could not make its output.
constexpr const char kCgOutputFailed[] = "Allocating memory error!\n";

// Number of nodes N: the size of every table indexed by id.
inline int32_t cg_node_count(const oru_cg_handle *h) { return h && h->nodes ? int32_t(h->nodes->size) : 0; }

// True for a handle with bound tables and an id below N; init_inference's first check.
inline bool cg_node_ok(const oru_cg_handle *h, int32_t node) {
  return h && node >= 0 && node < cg_node_count(h) && h->contexts;
}

// The context of a node, or null.
inline void *cg_context(const oru_cg_handle *h, int32_t node) {
  return cg_node_ok(h, node) ? h->contexts[node] : nullptr;
}

// op_type of a node's context (every context starts with it), or -1 when there is none.
inline int32_t cg_op_type(const oru_cg_handle *h, int32_t node) {
  const void *c = cg_context(h, node);
  return c ? *static_cast<const int32_t *>(c) : -1;
}

// The context as Ctx if its op_type is one of the family, else null: the body of every getter.
template <typename Ctx>
Ctx *cg_context_of(const oru_cg_handle *h, int32_t node, std::initializer_list<int32_t> family) {
  const int32_t op = cg_op_type(h, node);
  for (int32_t f : family)
    if (op == f) return static_cast<Ctx *>(h->contexts[node]);
  return nullptr;
}

// The output tensor of a node whose context is of the family, else null: every getter.
template <typename Ctx>
oru_tensor *cg_output_of(const oru_cg_handle *h, int32_t node, std::initializer_list<int32_t> family) {
  const Ctx *c = cg_context_of<Ctx>(h, node, family);
  return c ? c->output : nullptr;
}

// A zeroed context of type Ctx with its op_type set; null when memory fails.
template <typename Ctx>
Ctx *cg_new_context(int32_t op_type) {
  Ctx *c = alloc_zeroed<Ctx>();
  if (c) c->op_type = op_type;
  return c;
}

// The body of every uninit_context: refuses a null, lets release(c) free what the context
// owns, frees the context itself and clears the caller's pointer.
template <typename Ctx, typename Release>
uint32_t cg_free_context(void **context, Release release) {
  if (!context || !*context) return ORU_RET_ERR_PARA;
  Ctx *c = static_cast<Ctx *>(*context);
  release(c);
  oru_free(c);
  *context = nullptr;
  return ORU_RET_OK;
}

// As cg_free_context for a context that owns its output: releases it, then what extra(c) frees.
template <typename Ctx, typename Extra>
uint32_t cg_release_context(void **context, Extra extra) {
  return cg_free_context<Ctx>(context, [&](Ctx *c) {
    if (c->output) oru_release_tensor(&c->output);
    extra(c);
  });
}

template <typename Ctx>
uint32_t cg_release_context(void **context) {
  return cg_release_context<Ctx>(context, [](Ctx *) {});
}

// Checks the arguments of init_context: 1 for a bad handle or id, or a node that has a context already.
inline uint32_t cg_check_init(const oru_cg_handle *h, int32_t node) {
  if (!cg_node_ok(h, node) || !h->forward || h->contexts[node]) return ORU_RET_ERR_PARA;
  return ORU_RET_OK;
}

// Stores the context and the forward function of a node; the last step of init_context.
inline void cg_install(oru_cg_handle *h, int32_t node, void *context, oru_cg_forward_fn forward) {
  h->contexts[node] = context;
  h->forward[node] = forward;
}

// Number of in-edges of a node, duplicates included.
inline int32_t cg_in_edge_count(const oru_cg_handle *h, int32_t node) {
  if (!h || node < 0 || node >= h->max_nodes || !h->in_edges || !h->in_edges[node]) return 0;
  return int32_t(h->in_edges[node]->size);
}

// Source id of in-edge i of a node, in the order the edges were added.
inline int32_t cg_in_edge(const oru_cg_handle *h, int32_t node, int32_t i) {
  return static_cast<const int32_t *>(h->in_edges[node]->data)[i];
}

// The tensor a source yields: its own tensor for an input (0) or weight (2) node, nothing
// for a reserved node (1), the output of any operator.
oru_tensor *cg_source_tensor(oru_cg_handle *h, int32_t source);

// As cg_source_tensor for operators without weights: a weight node yields nothing.
oru_tensor *cg_data_tensor(oru_cg_handle *h, int32_t source);

// The output of init_inference: a header only on an external device (dev_type 1 to 3),
// else a tensor with storage. Null on refusal or memory failure.
oru_tensor *cg_new_output(int32_t ndims, const int32_t *dims, uint32_t type, uint32_t dev_type);

// Device types: the CPU, and three device back ends outside this library whose tensors are
// headers without storage; each operator treats them in its own way. Others act as the CPU.
constexpr uint32_t kCgDeviceCpu = 0;
constexpr uint32_t kCgDeviceExternal1 = 1;
constexpr uint32_t kCgDeviceExternal2 = 2;
constexpr uint32_t kCgDeviceExternal3 = 3;

// True for the device types whose tensors have no storage here.
inline bool cg_external_device(uint32_t dev_type) {
  return dev_type >= kCgDeviceExternal1 && dev_type <= kCgDeviceExternal3;
}

// Q of a node from the handle's list, -1 when there is none.
inline int32_t cg_q(const oru_cg_handle *h, int32_t node) { return oru_cg_get_q_from_list(h, node); }

// Writes an operator's output Q back for its consumers; ignored without a list.
inline void cg_set_q(oru_cg_handle *h, int32_t node, int32_t q) {
  if (h && h->q_list && node >= 0 && node < h->max_nodes) h->q_list[node] = q;
}

// Copies the constant operator table into a handle's fresh slots.
void cg_fill_operator_table(oru_cg_operator *slots);

}  // namespace oru

// Forward functions of the operators: internal, reached only through the handle's table.
extern "C" {
uint32_t oru_cg_relu_func(void *context);
}

#endif
