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

/* Conv method 1. Channels are cut into groups of 8, then one of 4 if at least 4 remain, then
   singles; a group's pixels hold its channels side by side (channel layout 3). */
typedef struct oru_conv2d_hwg_info {
  oru_tensor *packed_weight; /* owned: the kernels in blocks of group pairs, the bias unchanged */
  uint32_t workers;          /* conv_workers clamped to 1..16 */
} oru_conv2d_hwg_info;

ORU_API oru_conv2d_hwg_info *oru_create_conv2d_hwg_calc_info(const oru_tensor *input, const oru_tensor *weight,
                                                             const oru_conv2d_params *params,
                                                             const uint32_t *conv_workers);
ORU_API uint32_t oru_release_conv2d_hwg_calc_info(oru_conv2d_hwg_info **info);
ORU_API void oru_pack_std_weight_chw_to_hwg_real32(float *destination, const float *source, int32_t in_channels,
                                                   int32_t out_channels, int32_t kernel_h, int32_t kernel_w);
ORU_API void oru_pack_depthwise_weight_chw_to_hwg_real32(float *destination, const float *source,
                                                         int32_t in_channels, int32_t out_channels, int32_t kernel_h,
                                                         int32_t kernel_w);
ORU_API void oru_pack_data_chw_to_hwg_real32(float *destination, const float *source, int32_t channels,
                                             int32_t height, int32_t width);
ORU_API void oru_pack_data_hwg_to_chw_real32(float *destination, const float *source, int32_t channels,
                                             int32_t height, int32_t width);
/* Same data size required; the destination's layout becomes 3 (HWG) or 0 (CHW). */
ORU_API uint32_t oru_tensor_pack_data_chw_to_hwg(oru_tensor *destination, const oru_tensor *source);
ORU_API uint32_t oru_tensor_pack_data_hwg_to_chw(oru_tensor *destination, const oru_tensor *source);
/* 3x3 stride 1 or 2 with padding 1, and 1x1 stride 1; input in CHW or HWG, output in HWG.
   The kernels come from the record; the weight tensor is not read. */
ORU_API uint32_t oru_tensor_std_conv2d_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                           const oru_conv2d_params *params, const oru_conv2d_hwg_info *info);
ORU_API uint32_t oru_tensor_depthwise_conv2d_hwg(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const oru_conv2d_hwg_info *info);
ORU_API uint32_t oru_tensor_pointwise_conv2d_hwg(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const oru_conv2d_hwg_info *info);

/* Members of the kernel family, one per group pair (o output, i input channels): output of
   the group, output height, output row in floats, input of the group, input height, input
   row in floats, the pair's weight block. Standard members add into the output, depthwise
   ones store. */
ORU_API void oru_std_conv2d_1x1_s1_o8i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o8i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o8i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o4i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o4i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o4i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o1i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o1i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_1x1_s1_o1i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o8i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o8i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o8i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o4i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o4i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o4i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o1i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o1i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s1_o1i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o8i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o8i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o8i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o4i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o4i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o4i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o1i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o1i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_std_conv2d_3x3_s2_o1i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                               int32_t in_row, const float *w);
ORU_API void oru_depthwise_conv2d_3x3_s1_o8i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                                     int32_t in_row, const float *w);
ORU_API void oru_depthwise_conv2d_3x3_s1_o4i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                                     int32_t in_row, const float *w);
ORU_API void oru_depthwise_conv2d_3x3_s1_o1i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                                     int32_t in_row, const float *w);
ORU_API void oru_depthwise_conv2d_3x3_s2_o8i8_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                                     int32_t in_row, const float *w);
ORU_API void oru_depthwise_conv2d_3x3_s2_o4i4_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                                     int32_t in_row, const float *w);
ORU_API void oru_depthwise_conv2d_3x3_s2_o1i1_real32(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                                                     int32_t in_row, const float *w);

/* ---- end of Packed HWG convolution ---- */

/* ==== Tensor layout conversions ==== */

/* aif32 (or any 4-byte element for the names without real32) between channel layouts;
   the destination exists with its storage and gets the named layout. */
ORU_API uint32_t oru_tensor_convert_NCHW2NHWC(oru_tensor *destination, const oru_tensor *source);
ORU_API uint32_t oru_tensor_convert_NHWG2NCHW(oru_tensor *destination, const oru_tensor *source);
ORU_API uint32_t oru_tensor_convert_NHWG2NHWC(oru_tensor *destination, const oru_tensor *source);
/* Slices of four channels, the missing lanes of the last slice 0; destination dims (4, W, H, D). */
ORU_API uint32_t oru_tensor_convert_NCHW2NDHWC4_real32(oru_tensor *destination, const oru_tensor *source);
/* Back to C planes; the destination's layout field is left as it is. */
ORU_API uint32_t oru_tensor_convert_NDHWC42NCHW_real32(oru_tensor *destination, const oru_tensor *source,
                                                       int32_t channels);

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
