/* Computation graph: handle, edges, sort, bind, prepare, run, and the operators in their graph form. */
#ifndef ORU_CG_H
#define ORU_CG_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Graph core ==== */

/* ---- end of Graph core ---- */

/* ==== Model weight file and block builders ==== */

/* ---- end of Model weight file and block builders ---- */

/* ==== Unary operators ==== */

/* ---- end of Unary operators ---- */

/* ==== Binary operators and bias ==== */

/* ---- end of Binary operators and bias ---- */

/* ==== Linear, affine and batch-norm operators ==== */

/* ---- end of Linear, affine and batch-norm operators ---- */

/* ==== Pooling operators ==== */

/* ---- end of Pooling operators ---- */

/* ==== Sampling operator ==== */

/* ---- end of Sampling operator ---- */

/* ==== Shape operators ==== */

/* ---- end of Shape operators ---- */

/* ==== Convolution operators ==== */

/* Fourteen 32-bit words; dim 0 of a tensor is the width, dim 1 the height, dim 2 the channels. */
typedef struct oru_conv2d_params {
  int32_t in_channels;
  int32_t out_channels;
  int32_t kernel_w;
  int32_t kernel_h;
  int32_t stride_w;
  int32_t stride_h;
  int32_t pad_w;
  int32_t pad_h;
  int32_t reserved;
  int32_t out_pad_h;   /* transposed output height only */
  int32_t dilation_w;
  int32_t dilation_h;
  int32_t groups;      /* 1, or in_channels == out_channels for depthwise */
  int32_t has_bias;    /* 1: out_channels bias values follow the kernels */
} oru_conv2d_params;

/* ---- end of Convolution operators ---- */

/* ==== Fused convolution operators ==== */

/* Activation codes of the fused operators. */
#define ORU_ACT_NONE 0
#define ORU_ACT_RELU 1
#define ORU_ACT_HSWISH 2
#define ORU_ACT_RELU6 3
#define ORU_ACT_HSIGMOID 4
#define ORU_ACT_LEAKY_RELU 5
#define ORU_ACT_TANH 6

typedef struct oru_conv2d_act_params {
  oru_conv2d_params conv;
  int32_t act;
} oru_conv2d_act_params;

typedef struct oru_conv2d_bn2d_act_params {
  oru_conv2d_params conv;
  float bn_eps;        /* 0 means 1e-5 */
  int32_t act;
} oru_conv2d_bn2d_act_params;

/* ---- end of Fused convolution operators ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_CG_H */
