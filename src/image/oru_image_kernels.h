// Row kernels of the colour conversions and resizers. Each has a plain form, the
// reference, and vector forms with the same integer arithmetic, bit for bit.
#ifndef ORU_IMAGE_KERNELS_H
#define ORU_IMAGE_KERNELS_H

#include <cstdint>

#include "core/oru_dispatch.h"

namespace oru {

// grey = (1868 B + 9617 G + 4899 R + 8192) >> 14 over n BGR pixels.
ORU_DECLARE_FORMS(bgr_to_gray_row, uint8_t *dst, const uint8_t *bgr, int32_t n)

// Two luma rows sharing one chroma row into two BGR rows; n is even.
ORU_DECLARE_FORMS(yuv420_to_bgr_rows, uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1,
                  const uint8_t *u, const uint8_t *v, int32_t n)

// The Arm forms of the 4:2:0 conversions round each product by itself,
// p(a, k) = (a k + 16384) >> 15 saturated to 16 bits, and so may differ by one from the
// formulas above. They serve whole runs (16 columns to BGR, 8 from BGR); the plain forms
// here are their reference, and no x86 form exists.
void yuv420_to_bgr_rows_q15_plain(uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1,
                                  const uint8_t *u, const uint8_t *v, int32_t n);
void yuv420_to_bgr_rows_q15_neon(uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1,
                                 const uint8_t *u, const uint8_t *v, int32_t n);
void bgr_to_yuv420_rows_q15_plain(uint8_t *y0, uint8_t *y1, uint8_t *u, uint8_t *v, const uint8_t *s0,
                                  const uint8_t *s1, int32_t n);
void bgr_to_yuv420_rows_q15_neon(uint8_t *y0, uint8_t *y1, uint8_t *u, uint8_t *v, const uint8_t *s0,
                                 const uint8_t *s1, int32_t n);

// Vertical step of the two-stage bilinear scheme on n bytes of two horizontal results:
// ((b - a) * wy + (a << 11) + 1024) >> 11.
ORU_DECLARE_FORMS(bilinear_vertical_row, uint8_t *dst, const uint8_t *a, const uint8_t *b, int32_t wy,
                  int32_t n)

// Horizontal step of the two-stage bilinear scheme over n three-byte pixels:
// p at s + off[x], its right neighbour q at p + 3, and wexp[3x], wexp[3x + 1] and
// wexp[3x + 2] all hold the weight pair (2048 - w) | w << 16 of pixel x;
// out = (p (2048 - w) + q w + 1024) >> 11 per channel. wexp has 8 entries of slack.
ORU_DECLARE_FORMS(bilinear_horizontal_c3, uint8_t *out, const uint8_t *s, const int32_t *off, const int32_t *wexp,
                  int32_t n)

// Exact 2:1 box of n destination bytes of a 3-channel (channels 3) or grey row pair:
// (p + q + r + s + 2) >> 2.
ORU_DECLARE_FORMS(box2_row_c3, uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n)
ORU_DECLARE_FORMS(box2_row_c1, uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n)


inline uint8_t clamp_u8(int32_t v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); }

}  // namespace oru

#endif
