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

/* Conv method 2: packed kernels times a matrix of input patches, filled one output row at a time. */
typedef struct oru_im2col_gemm_info {
  int32_t mr;
  int32_t nr;
  /* tile kernel of the multiply (8 by 8 for groups 1) */
  void (*kernel)(int32_t k, const float *a, const float *b, float *c, int32_t ldc, float alpha, float beta);
  int32_t gemm_n;       /* out_h * out_w */
  int32_t gemm_k;       /* kernel * kernel * in_channels */
  int32_t out_w;
  int32_t out_h;
  int32_t k_len;        /* kernel * kernel * in_channels */
  int32_t m;            /* out_channels */
  int32_t packed_rows;
  int32_t packed_cols;
  float *packed;        /* owned, from oru_malloc */
  uint32_t mode;        /* 0 to 9 */
  uint32_t conv_workers;
} oru_im2col_gemm_info;

ORU_API oru_im2col_gemm_info *oru_create_im2col_gemm_calc_info(const oru_tensor *input, const oru_tensor *weight,
                                                               const oru_conv2d_params *params,
                                                               const uint32_t *conv_workers);
ORU_API uint32_t oru_conv2d_im2col_gemm_info_init(int32_t in_channels, int32_t out_channels, int32_t in_w,
                                                  int32_t in_h, int32_t kernel, int32_t pad, int32_t stride,
                                                  int32_t groups, uint32_t conv_workers, oru_im2col_gemm_info *info);
ORU_API uint32_t oru_conv2d_ker2row_pack_for_im2col_gemm(float *destination, const float *kernels,
                                                         const oru_im2col_gemm_info *info);
ORU_API uint32_t oru_release_im2col_gemm_calc_info(oru_im2col_gemm_info **info);
ORU_API uint32_t oru_conv2d_im2col_gemm(float *output, const float *packed, const float *input, int32_t in_channels,
                                        int32_t out_channels, int32_t in_w, int32_t in_h, int32_t kernel, int32_t pad,
                                        int32_t stride, const oru_im2col_gemm_info *info);
/* The weight tensor's data is not read: the record's packed kernels stand in for it. */
ORU_API uint32_t oru_tensor_std_conv2d_im2col_gemm(oru_tensor *output, const oru_tensor *input,
                                                   const oru_tensor *weight, const oru_conv2d_params *params,
                                                   const oru_im2col_gemm_info *info);
ORU_API uint32_t oru_tensor_pointwise_conv2d_im2col_gemm(oru_tensor *output, const oru_tensor *input,
                                                         const oru_tensor *weight, const oru_conv2d_params *params,
                                                         const oru_im2col_gemm_info *info);
ORU_API uint32_t oru_tensor_depthwise_conv2d_im2col_gemm(oru_tensor *output, const oru_tensor *input,
                                                         const oru_tensor *weight, const oru_conv2d_params *params,
                                                         const oru_im2col_gemm_info *info);

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
