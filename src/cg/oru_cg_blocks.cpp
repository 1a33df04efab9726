// Builders of standard network blocks: each fills the parameter records of its recipe and
// binds consecutive nodes. They add no edges and bind no weight nodes.
#include "cg/ops/oru_cg_ops_common.h"

namespace oru {
namespace {

constexpr float kBlockBnEps = 1e-5f;

oru_conv2d_params conv_recipe(int32_t in, int32_t out, int32_t k, int32_t stride, int32_t pad, int32_t groups,
                              int32_t has_bias) {
  oru_conv2d_params p{};
  p.in_channels = in;
  p.out_channels = out;
  p.kernel_w = p.kernel_h = k;
  p.stride_w = p.stride_h = stride;
  p.pad_w = p.pad_h = pad;
  p.dilation_w = p.dilation_h = 1;
  p.groups = groups;
  p.has_bias = has_bias;
  return p;
}

uint32_t bind(oru_cg_handle *h, int32_t node, int32_t op, const void *params) {
  const oru_cg_node_desc d{op, nullptr};
  return oru_bind_operator_onto_computation_graph(h, node, &d, params);
}

// Convolution + batch norm + activation, without a convolution bias.
uint32_t bind_conv_bn(oru_cg_handle *h, int32_t node, int32_t in, int32_t out, int32_t k, int32_t stride,
                      int32_t pad, int32_t groups, int32_t act) {
  oru_conv2d_bn2d_act_params p{};
  p.conv = conv_recipe(in, out, k, stride, pad, groups, 0);
  p.bn_eps = kBlockBnEps;
  p.act = act;
  return bind(h, node, ORU_CG_OP_CONV2D_BN2D_ACT, &p);
}

// Convolution with bias + activation.
uint32_t bind_conv_act(oru_cg_handle *h, int32_t node, int32_t in, int32_t out, int32_t k, int32_t stride,
                       int32_t pad, int32_t groups, int32_t act) {
  oru_conv2d_act_params p{};
  p.conv = conv_recipe(in, out, k, stride, pad, groups, 1);
  p.act = act;
  return bind(h, node, ORU_CG_OP_CONV2D_ACT, &p);
}

uint32_t invert_residual(int32_t in, int32_t out, int32_t stride, int32_t residual, int32_t expansion, int32_t node,
                         oru_cg_handle *h, int32_t act) {
  if (!h) return ORU_RET_ERR_PARA;
  const int32_t hidden = expansion * in;
  uint32_t st = bind_conv_bn(h, node, in, hidden, 1, 1, 0, 1, act);
  if (!st) st = bind_conv_bn(h, node + 1, hidden, hidden, 3, stride, 1, hidden, act);
  if (!st) st = bind_conv_bn(h, node + 2, hidden, out, 1, 1, 0, 1, ORU_ACT_NONE);
  if (!st && residual != 0) st = bind(h, node + 3, ORU_CG_OP_ADD, nullptr);
  return st;
}

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

ORU_API uint32_t oru_bind_invert_residual(int32_t in_channels, int32_t out_channels, int32_t stride,
                                          int32_t residual, int32_t expansion, int32_t node, oru_cg_handle *handle) {
  return invert_residual(in_channels, out_channels, stride, residual, expansion, node, handle, ORU_ACT_HSWISH);
}

ORU_API uint32_t oru_bind_invert_residual_relu6(int32_t in_channels, int32_t out_channels, int32_t stride,
                                                int32_t residual, int32_t expansion, int32_t node,
                                                oru_cg_handle *handle) {
  return invert_residual(in_channels, out_channels, stride, residual, expansion, node, handle, ORU_ACT_RELU6);
}

ORU_API uint32_t oru_bind_base_net_conv_bn(int32_t in_channels, int32_t out_channels, int32_t stride, int32_t node,
                                           oru_cg_handle *handle) {
  if (!handle) return ORU_RET_ERR_PARA;
  return bind_conv_bn(handle, node, in_channels, out_channels, 3, stride, 1, 1, ORU_ACT_RELU);
}

ORU_API uint32_t oru_bind_base_net_conv_dw(int32_t in_channels, int32_t out_channels, int32_t stride, int32_t node,
                                           oru_cg_handle *handle) {
  if (!handle) return ORU_RET_ERR_PARA;
  uint32_t st = bind_conv_bn(handle, node, in_channels, in_channels, 3, stride, 1, in_channels, ORU_ACT_RELU);
  if (!st) st = bind_conv_bn(handle, node + 1, in_channels, out_channels, 1, 1, 0, 1, ORU_ACT_RELU);
  return st;
}

ORU_API uint32_t oru_bind_extra_net(int32_t channels, int32_t stride, int32_t node, oru_cg_handle *handle) {
  if (!handle) return ORU_RET_ERR_PARA;
  const int32_t wide = 16 * channels, narrow = 4 * channels;
  uint32_t st = bind_conv_act(handle, node, wide, narrow, 1, 1, 0, 1, ORU_ACT_RELU);
  if (!st) st = bind_conv_act(handle, node + 1, narrow, narrow, 3, stride, 1, narrow, ORU_ACT_RELU);
  if (!st) st = bind_conv_act(handle, node + 2, narrow, wide, 1, 1, 0, 1, ORU_ACT_RELU);
  return st;
}

ORU_API uint32_t oru_bind_seperable_conv2d(int32_t in_channels, int32_t out_channels, int32_t stride, int32_t node,
                                           oru_cg_handle *handle) {
  if (!handle) return ORU_RET_ERR_PARA;
  uint32_t st = bind_conv_act(handle, node, in_channels, in_channels, 3, stride, 1, in_channels, ORU_ACT_RELU);
  if (!st) {
    const oru_conv2d_params p = conv_recipe(in_channels, out_channels, 1, 1, 0, 1, 1);
    st = bind(handle, node + 1, ORU_CG_OP_POINTWISE_CONV2D, &p);
  }
  return st;
}

ORU_API uint32_t oru_bind_std_conv2d(int32_t in_channels, int32_t out_channels, int32_t unused, int32_t node,
                                     oru_cg_handle *handle) {
  (void)unused;
  if (!handle) return ORU_RET_ERR_PARA;
  const oru_conv2d_params p = conv_recipe(in_channels, out_channels, 3, 1, 1, 1, 1);
  return bind(handle, node, ORU_CG_OP_STD_CONV2D, &p);
}

ORU_API uint32_t oru_bind_full_connect(int32_t has_bias, int32_t node, oru_cg_handle *handle) {
  if (!handle) return ORU_RET_ERR_PARA;
  // The linear operator needs its feature counts, which this builder has no argument for:
  // the null record makes that binding fail with status 1, and the bias node is not reached.
  uint32_t st = bind(handle, node, ORU_CG_OP_LINEAR, nullptr);
  if (!st && has_bias != 0) st = bind(handle, node + 1, ORU_CG_OP_BIAS, nullptr);
  return st;
}

}  // extern "C"
