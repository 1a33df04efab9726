/* Convolution kernels: direct CHW, im2col plus GEMM, packed HWG, layout conversions, bias and activation passes. */
#ifndef ORU_CONV_H
#define ORU_CONV_H

#include "oru_cg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Direct CHW convolution ==== */

/* ---- end of Direct CHW convolution ---- */

/* ==== Im2col plus GEMM convolution ==== */

/* ---- end of Im2col plus GEMM convolution ---- */

/* ==== Packed HWG convolution ==== */

/* ---- end of Packed HWG convolution ---- */

/* ==== Tensor layout conversions ==== */

/* ---- end of Tensor layout conversions ---- */

/* ==== Bias and activation kernels ==== */

/* ---- end of Bias and activation kernels ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_CONV_H */
