/* Convolution kernels: direct CHW, im2col plus GEMM, packed HWG, layout conversions, bias and activation passes. */
#ifndef ORU_CONV_H
#define ORU_CONV_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ORU_CONV_H */
