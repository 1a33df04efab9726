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

/* ---- end of Convolution operators ---- */

/* ==== Fused convolution operators ==== */

/* ---- end of Fused convolution operators ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_CG_H */
