// What the convolution operators do at prepare in a fixed-point graph: read the Q values
// of their input and output from the list, and quantise their weights once.
#include <cstring>

#include "cg/ops/oru_cg_conv_internal.h"
#include "cg/oru_cg_internal.h"
#include "core/oru_report.h"
#include "oru_fixed.h"

namespace oru {

uint32_t conv_fixed_q(oru_cg_handle *h, int32_t node, int32_t *q_in, int32_t *q_out) {
  int32_t source = -1;
  const int32_t edges = cg_in_edge_count(h, node);
  for (int32_t i = 0; i < edges; ++i) {
    const int32_t s = cg_in_edge(h, node, i);
    if (cg_op_type(h, s) != ORU_CG_OP_WEIGHT) source = s;
  }
  *q_in = source >= 0 ? cg_q(h, source) : -1;
  *q_out = cg_q(h, node);
  if (*q_in < 0 || *q_in > ORU_Q_MAX || *q_out < 0 || *q_out > ORU_Q_MAX)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Q value missing or outside 0 to 15 in the fixed-point Q list");
  return ORU_RET_OK;
}

uint32_t conv_fixed_weights(const oru_tensor *weight, int64_t count, oru_tensor **converted, int32_t *q_weight) {
  *converted = nullptr;
  if (!weight || !weight->data || weight->type != aif32 || count < 1 || count > weight->total_elements)
    ORU_FAIL(ORU_RET_ERR_PARA);
  int32_t q = 0;
  if (oru_tensor_calc_q(&q, weight, 0, int32_t(count)) != ORU_RET_OK)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "weights too large for any Q of 16-bit fixed point");
  oru_tensor *t = oru_create_tensor(weight->ndims, weight->dims, ai16s);
  if (!t) ORU_FAIL(ORU_RET_ERR_MEMORY);
  std::memset(t->data, 0, size_t(t->total_bytes));
  if (uint32_t st = oru_tensor_transform_data_from_real32_to_fpi16(t, weight, 0, int32_t(count), q)) {
    oru_release_tensor(&t);
    ORU_FAIL(st);
  }
  *converted = t;
  *q_weight = q;
  return ORU_RET_OK;
}

}  // namespace oru
