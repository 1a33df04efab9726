/* Fixed-point backend: Q numbers and the ai16s kernels. */
#ifndef ORU_FIXED_H
#define ORU_FIXED_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ORU_FIXED_H */
