/* What the example programs draw on BGR images, and how they write them: boxes, small
 * numbers in a built-in bitmap font, a fixed colour per track id, and BMP files that
 * appear whole or not at all. */
#ifndef EXAMPLES_ANNOTATE_H
#define EXAMPLES_ANNOTATE_H

#include <stdint.h>

#include "orucore.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The rectangle x0 y0 x1 y1 (image pixels), `thickness` pixels wide, inside the image. */
void annotate_box(oru_image *bgr, const float *box, const uint8_t colour[3], int32_t thickness);

/* A non-negative number in digits `scale` pixels per font dot, on a patch of `colour`
 * whose top-left corner is (x, y); the digits are black or white, whichever reads
 * better on the patch. Parts outside the image are cut. */
void annotate_number(oru_image *bgr, int32_t x, int32_t y, int32_t number, const uint8_t colour[3], int32_t scale);

/* The colour of a track id: the same id always gets the same colour, and neighbouring
 * ids get clearly different ones. */
void annotate_colour_for_id(int32_t id, uint8_t colour[3]);

/* Writes the image under a temporary name beside `path` and renames it, so a failed
 * write leaves no partial file. 0 on success. */
int annotate_write_bmp(const char *path, oru_image *image);

#ifdef __cplusplus
}
#endif

#endif
