// What the operators of this library share on top of the graph core's helpers: making and
// installing a context, a node's in-edges as a list, and the forward functions' names.
#ifndef ORU_CG_CPU_OPS_COMMON_H
#define ORU_CG_CPU_OPS_COMMON_H

#include <cstdint>

#include "cg/oru_cg_internal.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_cg.h"
#include "oru_fixed.h"

namespace oru {

// Makes a zeroed context of Ctx with op_type and dev_type set and installs it with its
// forward function. 1 for a bad handle or id, 2 when memory fails.
template <typename Ctx>
uint32_t install_context(oru_cg_handle *h, int32_t node, int32_t op_type, oru_cg_forward_fn forward, Ctx **out) {
  if (cg_check_init(h, node) != ORU_RET_OK) return ORU_RET_ERR_PARA;
  Ctx *ctx = cg_new_context<Ctx>(op_type);
  if (!ctx) return ORU_RET_ERR_MEMORY;
  ctx->dev_type = h->dev_type;
  cg_install(h, node, ctx, forward);
  *out = ctx;
  return ORU_RET_OK;
}

// The context of a node as Ctx, whatever its code; null when there is none.
template <typename Ctx>
Ctx *own_context(const oru_cg_handle *h, int32_t node) {
  return static_cast<Ctx *>(cg_context(h, node));
}

inline bool has_data(const oru_tensor *t) { return t && t->data; }

inline bool fixed_point(const oru_cg_handle *h) { return h->backend == ORU_CG_BACKEND_FIXED; }

// The status of a fixed-point kernel, reported once where the run stops: those kernels
// refuse silently (float tensors in a fixed-point graph, Q values outside 0 to 15).
inline uint32_t fixed_point_result(uint32_t status) {
  if (status != ORU_RET_OK) ORU_REPORT_STATUS(status);
  return status;
}

}  // namespace oru

// Forward functions: internal, reached only through the handle's tables.
extern "C" {
uint32_t oru_cg_relu6_func(void *context);
uint32_t oru_cg_hswish_func(void *context);
uint32_t oru_cg_sigmoid_func(void *context);
uint32_t oru_cg_softmax_func(void *context);
uint32_t oru_cg_add(void *context);
uint32_t oru_cg_mul(void *context);
uint32_t oru_cg_linear(void *context);
uint32_t oru_cg_batchnorm1d(void *context);
uint32_t oru_cg_batchnorm2d(void *context);
uint32_t oru_cg_affine(void *context);
uint32_t oru_cg_max_pool2d(void *context);
uint32_t oru_cg_avg_pool2d(void *context);
uint32_t oru_cg_tensor_reshape(void *context);
uint32_t oru_cg_channel_concat(void *context);
uint32_t oru_cg_tensor_split(void *context);
uint32_t oru_cg_channel_shuffle(void *context);
uint32_t oru_cg_sample(void *context);
}

#endif
