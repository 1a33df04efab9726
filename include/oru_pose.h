/* Pose and optimisation: PnP solvers, the Levenberg-Marquardt engine, Rodrigues and projection. */
#ifndef ORU_POSE_H
#define ORU_POSE_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ORU_POSE_H */
