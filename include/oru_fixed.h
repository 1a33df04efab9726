/* Fixed-point backend: Q numbers and the ai16s kernels. */
#ifndef ORU_FIXED_H
#define ORU_FIXED_H

#include "oru_cg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Q format and conversions ==== */

/* A stored 16-bit v stands for v / 2^q, q from 0 to 15. */
#define ORU_Q_MAX 15

/* Largest Q that holds the extreme value of count elements from first of an aif32 tensor. */
ORU_API uint32_t oru_tensor_calc_q(int32_t *q, const oru_tensor *tensor, int32_t first, int32_t count);
/* dst[i] = low 16 bits of rint(src[i] * 2^q), for i from first to first + count - 1. */
ORU_API uint32_t oru_tensor_transform_data_from_real32_to_fpi16(oru_tensor *dst, const oru_tensor *src,
                                                                 int32_t first, int32_t count, int32_t q);
/* dst[i] = src[i] * (float)(1 / 2^q), for i below count. */
ORU_API uint32_t oru_tensor_transform_data_from_fpi16_to_real32(oru_tensor *dst, const oru_tensor *src,
                                                                 int32_t count, int32_t q);

/* ---- end of Q format and conversions ---- */

/* ==== Fixed-point convolution ==== */

/* ai16s CHW tensors. Every input channel's sum of products is rescaled by itself,
 * ((acc + R) >> s) with s = q_in + q_weight - q_out, and added to the output modulo 2^16.
 * Arguments: output, q_out, input, q_in, weights (kernels then bias, one Q), q_weight,
 * params, conv_workers (not read). */
ORU_API uint32_t oru_tensor_std_conv2d_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                 int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                 const oru_conv2d_params *params, const uint32_t *conv_workers);
ORU_API uint32_t oru_tensor_depthwise_conv2d_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                       int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                       const oru_conv2d_params *params,
                                                       const uint32_t *conv_workers);
/* 1x1: the input's pixel p feeds the output's pixel p; each product is rounded by itself. */
ORU_API uint32_t oru_tensor_pointwise_conv2d_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                       int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                       const oru_conv2d_params *params,
                                                       const uint32_t *conv_workers);
/* Convolution, bias and activation of the fused operators (act 0 none, 1 ReLU, 2 h-swish;
 * the batch-norm form also 3 ReLU6). */
ORU_API uint32_t oru_tensor_conv2d_act_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                 int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                 const oru_conv2d_act_params *params, const uint32_t *conv_workers);
ORU_API uint32_t oru_tensor_conv2d_bn2d_act_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                      int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                      const oru_conv2d_bn2d_act_params *params,
                                                      const uint32_t *conv_workers);
/* Per-channel bias (at kernel_w * kernel_h * kernels in the weights), both values brought
 * to the larger Q, then to q_out; the low 16 bits are stored. */
ORU_API uint32_t oru_tensor_bias_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                           const oru_tensor *weight, int32_t q_weight,
                                           const oru_conv2d_params *params);

/* ---- end of Fixed-point convolution ---- */

/* ==== Fixed-point element-wise, linear, pooling, concat ==== */

ORU_API uint32_t oru_tensor_add_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *a, int32_t q_a,
                                      const oru_tensor *b, int32_t q_b);
/* params: the batch norm parameter record (eps is its second field), or null for 1e-5. */
ORU_API uint32_t oru_tensor_batchnorm1d_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                              int32_t q_in, const oru_tensor *weights, int32_t q_gamma,
                                              int32_t q_beta, int32_t q_mean, int32_t q_var,
                                              const oru_cg_bn_params *params);
/* params: two 32-bit integers, n_in and n_out; the bias follows the n_in * n_out weights. */
ORU_API uint32_t oru_tensor_linear_bias_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                              int32_t q_in, const oru_tensor *weights, int32_t q_w,
                                              const oru_cg_linear_params *params);
ORU_API uint32_t oru_tensor_avg_pool2d_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                             int32_t q_in, int32_t k);
ORU_API uint32_t oru_tensor_concat_fpi16(oru_tensor *output, int32_t q_out, oru_tensor *const *inputs,
                                         const int32_t *q_inputs, int32_t axis, int32_t count);
/* The four trailing arguments are not read, but the last must be non-null. */
ORU_API uint32_t oru_tensor_relu_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                       const void *arg0, const void *arg1, const void *arg2, const void *arg3);
ORU_API uint32_t oru_tensor_hswish_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                         int32_t q_in);
/* The affine sampler with align_corners 0; matrix: six values in Q q_matrix. */
ORU_API uint32_t oru_tensor_affine_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                         const oru_tensor *matrix, int32_t q_matrix,
                                         const oru_cg_affine_params *params);

/* ---- end of Fixed-point element-wise, linear, pooling, concat ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_FIXED_H */
