/* Image processing: the image record, the BMP codec and the pixel operations. */
#ifndef ORU_IMAGE_H
#define ORU_IMAGE_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ORU_IMAGE_H */
