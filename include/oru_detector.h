/* Detector support: SSD priors, box decoding, non-maximum suppression and input preparation. */
#ifndef ORU_DETECTOR_H
#define ORU_DETECTOR_H

#include "oru_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== SSD priors, box decoding and NMS ==== */

/* ---- end of SSD priors, box decoding and NMS ---- */

/* ==== Detector input preparation ==== */

/* ---- end of Detector input preparation ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_DETECTOR_H */
