/* Fixed-point backend: Q numbers and the ai16s kernels. */
#ifndef ORU_FIXED_H
#define ORU_FIXED_H

#include "oru_cg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Q format and conversions ==== */

/* ---- end of Q format and conversions ---- */

/* ==== Fixed-point convolution ==== */

/* ---- end of Fixed-point convolution ---- */

/* ==== Fixed-point element-wise, linear, pooling, concat ==== */

/* ---- end of Fixed-point element-wise, linear, pooling, concat ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_FIXED_H */
