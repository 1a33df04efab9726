// Per-channel bias with an activation in the same pass, on CHW and HWG output, plus the
// tensor ReLU and softmax.

#include "kernels/activation/oru_act_kernels.h"
#include "core/oru_dispatch.h"
#include "conv/oru_conv_internal.h"
#include "kernels/packed_hwg/oru_hwg_kernels.h"

namespace oru {

namespace {

using LineFn = decltype(&bias_act_line_plain);

LineFn line_kernel() {
  static const LineFn k = pick(ORU_KERNEL_FORMS(bias_act_line));
  return k;
}

using GroupFn = decltype(&hwg_bias_act_plain);

GroupFn group_kernel() {
  static const GroupFn k = pick(ORU_KERNEL_FORMS(hwg_bias_act));
  return k;
}

int32_t dim(const oru_tensor *t, int k) { return t->ndims > k ? t->dims[k] : 1; }

// The checks shared by every bias kernel; on success *bias points at the bias of channel 0.
uint32_t check_bias_args(const oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                         const oru_conv2d_params *params, const float **bias) {
  if (!tensor_usable(output) || !tensor_usable(input) || !tensor_usable(weight) || !params) return ORU_RET_ERR_PARA;
  for (int k = 0; k < 3; ++k)
    if (dim(output, k) != dim(input, k)) return ORU_RET_ERR_PARA;
  if (dim(output, 2) != params->out_channels) return ORU_RET_ERR_PARA;
  int64_t offset = int64_t(params->kernel_w) * params->kernel_h * kernel_count(*params);
  if (params->kernel_w < 0 || params->kernel_h < 0 || weight->total_elements < offset + params->out_channels)
    return ORU_RET_ERR_PARA;
  *bias = static_cast<const float *>(weight->data) + offset;
  return ORU_RET_OK;
}

}  // namespace

uint32_t bias_act_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                      const oru_conv2d_params *params, int act) {
  const float *bias = nullptr;
  uint32_t st = check_bias_args(output, input, weight, params, &bias);
  if (st) return st;
  int64_t n = int64_t(dim(output, 0)) * dim(output, 1);
  if (n < 1) return ORU_RET_OK;
  LineFn line = line_kernel();
  for (int32_t c = 0; c < params->out_channels; ++c) line(plane(output, c), plane(input, c), bias[c], n, act);
  return ORU_RET_OK;
}

// Channel groups of 8, then one of 4 if at least 4 remain, then singles; each group's
// channels lie side by side per pixel.
uint32_t bias_act_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                      const oru_conv2d_params *params, int act) {
  const float *bias = nullptr;
  uint32_t st = check_bias_args(output, input, weight, params, &bias);
  if (st) return st;
  int64_t n = int64_t(dim(output, 0)) * dim(output, 1);
  if (n < 1) return ORU_RET_OK;
  int32_t channels = params->out_channels;
  const float *x = static_cast<const float *>(input->data);
  float *y = static_cast<float *>(output->data);
  int32_t c = 0;
  while (c < channels) {
    int g = channels - c >= 8 ? 8 : channels - c >= 4 ? 4 : 1;
    const float *xs = x + int64_t(c) * n;
    float *ys = y + int64_t(c) * n;
    if (g == 1)
      line_kernel()(ys, xs, bias[c], n, act);
    else
      group_kernel()(ys, xs, bias + c, g, n, act);
    c += g;
  }
  return ORU_RET_OK;
}

}  // namespace oru

extern "C" {

ORU_API uint32_t oru_tensor_bias_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                     const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_chw(output, input, weight, params, oru::act_none);
}
uint32_t oru_tensor_bias_relu_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_chw(output, input, weight, params, oru::act_relu);
}
uint32_t oru_tensor_bias_hswish_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                    const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_chw(output, input, weight, params, oru::act_hswish);
}
uint32_t oru_tensor_bias_hsigmoid_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                      const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_chw(output, input, weight, params, oru::act_hsigmoid);
}
uint32_t oru_tensor_bias_leaky_relu_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                        const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_chw(output, input, weight, params, oru::act_leaky);
}
uint32_t oru_tensor_bias_tanh_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_chw(output, input, weight, params, oru::act_tanh);
}
ORU_API uint32_t oru_tensor_bias_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                     const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_hwg(output, input, weight, params, oru::act_none);
}
uint32_t oru_tensor_bias_relu_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_hwg(output, input, weight, params, oru::act_relu);
}
uint32_t oru_tensor_bias_hswish_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                    const oru_conv2d_params *params, const uint32_t *) {
  return oru::bias_act_hwg(output, input, weight, params, oru::act_hswish);
}

ORU_API uint32_t oru_tensor_relu(oru_tensor *output, const oru_tensor *input, const void *) {
  if (!oru::tensor_usable(output) || !oru::tensor_usable(input)) return ORU_RET_ERR_PARA;
  for (int k = 0; k < 3; ++k)
    if (oru::dim(output, k) != oru::dim(input, k)) return ORU_RET_ERR_PARA;
  int64_t n = input->total_elements < output->total_elements ? input->total_elements : output->total_elements;
  if (n < 1) return ORU_RET_OK;
  oru::line_kernel()(static_cast<float *>(output->data), static_cast<const float *>(input->data), 0.0f, n,
                     oru::act_relu);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_softmax(oru_tensor *output, const oru_tensor *input, int32_t n) {
  if (!oru::tensor_usable(output) || !oru::tensor_usable(input) || n < 1) return ORU_RET_ERR_PARA;
  if (output->ndims != input->ndims) return ORU_RET_ERR_PARA;
  for (int k = 0; k < input->ndims && k < 5; ++k)
    if (output->dims[k] != input->dims[k]) return ORU_RET_ERR_PARA;
  int64_t runs = input->total_elements / n;
  if (runs < 1) return ORU_RET_ERR_PARA;
  // The graph operator's reference rows, so both softmaxes give the same bits.
  oru::softmax_rows_f32_plain(static_cast<float *>(output->data), static_cast<const float *>(input->data), runs, n);
  return ORU_RET_OK;
}

}  // extern "C"
