// Argument checks and shape arithmetic shared by the direct kernels.
#include "core/oru_types.h"
#include "conv/oru_conv_internal.h"

namespace oru {

int32_t conv_out_extent(int32_t in, int32_t kernel, int32_t stride, int32_t pad, int32_t dilation) {
  if (in < 1 || kernel < 1 || stride < 1 || pad < 0 || dilation < 1) return 0;
  // 64-bit so that absurd records can't wrap into a plausible size.
  int64_t span = int64_t(in) + 2 * int64_t(pad) - int64_t(kernel - 1) * dilation - 1;
  if (span < 0) return 0;
  return int32_t(span / stride + 1);
}

bool tensor_usable(const oru_tensor *t) {
  return t && t->data && t->ndims >= 1 && oru::base_of_code(t->type) == aif32;
}

static int32_t dim_or_one(const oru_tensor *t, int k) { return t->ndims > k ? t->dims[k] : 1; }

uint32_t check_direct_args(const oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                           const oru_conv2d_params *params, bool use_dilation) {
  if (!tensor_usable(output) || !tensor_usable(input) || !tensor_usable(weight) || !params) return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = *params;
  if (dim_or_one(output, 2) != p.out_channels || dim_or_one(input, 2) != p.in_channels) return ORU_RET_ERR_PARA;
  if (p.in_channels < 1 || p.out_channels < 1) return ORU_RET_ERR_PARA;
  int32_t dw = use_dilation ? p.dilation_w : 1, dh = use_dilation ? p.dilation_h : 1;
  int32_t ow = conv_out_extent(dim_or_one(input, 0), p.kernel_w, p.stride_w, p.pad_w, dw);
  int32_t oh = conv_out_extent(dim_or_one(input, 1), p.kernel_h, p.stride_h, p.pad_h, dh);
  if (ow < 1 || oh < 1 || ow != dim_or_one(output, 0) || oh != dim_or_one(output, 1)) return ORU_RET_ERR_PARA;
  if (weight->total_elements < kernel_count(p) * p.kernel_w * p.kernel_h) return ORU_RET_ERR_PARA;
  return ORU_RET_OK;
}

}  // namespace oru
