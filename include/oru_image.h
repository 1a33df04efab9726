/* Image processing: the image record, the BMP codec and the pixel operations. */
#ifndef ORU_IMAGE_H
#define ORU_IMAGE_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Image container and BMP codec ==== */

/* ---- end of Image container and BMP codec ---- */

/* ==== Colour-space conversion ==== */

/* ---- end of Colour-space conversion ---- */

/* ==== Resizers ==== */

/* ---- end of Resizers ---- */

/* ==== Rotation, crop, flip and transposition ==== */

/* ---- end of Rotation, crop, flip and transposition ---- */

/* ==== Warp and homography ==== */

/* ---- end of Warp and homography ---- */

/* ==== Control-point map deformation ==== */

/* ---- end of Control-point map deformation ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_IMAGE_H */
