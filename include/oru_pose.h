/* Pose and optimisation: PnP solvers, the Levenberg-Marquardt engine, Rodrigues and projection. */
#ifndef ORU_POSE_H
#define ORU_POSE_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== PnP pose solvers ==== */

/* ---- end of PnP pose solvers ---- */

/* ==== Levenberg-Marquardt optimiser, Rodrigues, projection ==== */

/* ---- end of Levenberg-Marquardt optimiser, Rodrigues, projection ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_POSE_H */
