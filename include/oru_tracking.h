/* Tracking: Kalman filter, linear sum assignment, SORT tracker and smoothing filters. */
#ifndef ORU_TRACKING_H
#define ORU_TRACKING_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Kalman filter ==== */

/* ---- end of Kalman filter ---- */

/* ==== Linear sum assignment ==== */

/* ---- end of Linear sum assignment ---- */

/* ==== SORT tracker ==== */

/* ---- end of SORT tracker ---- */

/* ==== Smoothing filters ==== */

/* ---- end of Smoothing filters ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_TRACKING_H */
