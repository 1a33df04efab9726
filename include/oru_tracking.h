/* Tracking: Kalman filter, linear sum assignment, SORT tracker and smoothing filters. */
#ifndef ORU_TRACKING_H
#define ORU_TRACKING_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ORU_TRACKING_H */
