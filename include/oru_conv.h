/* Convolution kernels: direct CHW, im2col plus GEMM, packed HWG, layout conversions, bias and activation passes. */
#ifndef ORU_CONV_H
#define ORU_CONV_H

#include "oru_cg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Direct CHW convolution ==== */

/* Kernels of conv method 0 and of the dilated and transposed operators, on CHW tensors in aif32.
   Each takes (output, input, weight, params, address of conv_workers); the last is not read. */
ORU_API uint32_t oru_tensor_std_conv2d_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                           const oru_conv2d_params *params, const uint32_t *conv_workers);
ORU_API uint32_t oru_tensor_depthwise_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *conv_workers);
ORU_API uint32_t oru_tensor_pointwise_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *conv_workers);
ORU_API uint32_t oru_tensor_dilated_conv2d_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                               const oru_conv2d_params *params, const uint32_t *conv_workers);
/* The kernels must already be rotated by 180 degrees. */
ORU_API uint32_t oru_tensor_transposed_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                  const oru_tensor *weight, const oru_conv2d_params *params);

/* ---- end of Direct CHW convolution ---- */

/* ==== Im2col plus GEMM convolution ==== */

/* ---- end of Im2col plus GEMM convolution ---- */

/* ==== Packed HWG convolution ==== */

/* ---- end of Packed HWG convolution ---- */

/* ==== Tensor layout conversions ==== */

/* ---- end of Tensor layout conversions ---- */

/* ==== Bias and activation kernels ==== */

/* Per-channel bias (taken from behind the kernels in the weight tensor) on CHW and HWG
   output; output and input may be the same tensor. */
ORU_API uint32_t oru_tensor_bias_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                     const oru_conv2d_params *params, const uint32_t *conv_workers);
ORU_API uint32_t oru_tensor_bias_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                     const oru_conv2d_params *params, const uint32_t *conv_workers);
/* y = max(x, 0) over every element; the third argument is not read. */
ORU_API uint32_t oru_tensor_relu(oru_tensor *output, const oru_tensor *input, const void *unused);
/* Softmax over consecutive runs of n elements. */
ORU_API uint32_t oru_tensor_softmax(oru_tensor *output, const oru_tensor *input, int32_t n);

/* ---- end of Bias and activation kernels ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_CONV_H */
