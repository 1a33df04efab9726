/* Computation graph: handle, edges, sort, bind, prepare, run, and the operators in their graph form. */
#ifndef ORU_CG_H
#define ORU_CG_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ORU_CG_H */
