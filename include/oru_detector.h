/* Detector support: SSD priors, box decoding, non-maximum suppression and input preparation. */
#ifndef ORU_DETECTOR_H
#define ORU_DETECTOR_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ORU_DETECTOR_H */
