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

/* ---- end of Fixed-point convolution ---- */

/* ==== Fixed-point element-wise, linear, pooling, concat ==== */

/* ---- end of Fixed-point element-wise, linear, pooling, concat ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_FIXED_H */
