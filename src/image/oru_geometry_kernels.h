// Inner loops of the pixel rearrangements and of the bilinear warp. Each has a plain
// form, the reference, and vector forms that agree with it bit for bit.
#ifndef ORU_GEOMETRY_KERNELS_H
#define ORU_GEOMETRY_KERNELS_H

#include <cstdint>
#include <cstring>

#include "core/oru_dispatch.h"

namespace oru {

#define ORU_DECLARE_FORMS(name, ...) \
  void name##_plain(__VA_ARGS__);    \
  void name##_avx2(__VA_ARGS__);     \
  void name##_avx512(__VA_ARGS__);   \
  void name##_neon(__VA_ARGS__);

// dst pixel i = src pixel n - 1 - i, over n one-byte or three-byte pixels; no overlap.
ORU_DECLARE_FORMS(mirror_row_c1, uint8_t *dst, const uint8_t *src, int32_t n)
ORU_DECLARE_FORMS(mirror_row_c3, uint8_t *dst, const uint8_t *src, int32_t n)

// Eight source rows (src, src + stride, ...) of width pixels into width destination rows
// of eight pixels: dst row j, pixel i = src row i, pixel j. Strides may be negative.
ORU_DECLARE_FORMS(transpose8_c1, const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride,
                  int32_t width)
ORU_DECLARE_FORMS(transpose8_c3, const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride,
                  int32_t width)

// One destination row y of the affine bilinear warp over columns x0 to x0 + n - 1, with
// inv the first six entries of the inverse map. Positions and weights are float:
// xs = (i0 x + i1 y) + i2, X = xs cut toward zero, inside when 0 <= X < sw - 1 (and
// likewise in y); the value is (1 - fy)((1 - fx) p00 + fx p01) + fy((1 - fx) p10 + fx p11)
// + 0.5, cut toward zero. Outside pixels become zero when zero_outside, else stay.
ORU_DECLARE_FORMS(warp_affine_bilinear_c3, uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw,
                  int32_t sh, const float *inv, int32_t y, int32_t x0, int32_t n, int32_t zero_outside)

// One row of the fixed-point bilinear rotation: pixel k sits at (x + k step_x, y + k step_y)
// in 11-bit fixed point (32-bit sums that wrap). Inside when x >= 0, y >= 0,
// x >> 11 < sw - 1 and y >> 11 < sh - 1; per channel top = ((2048 - wx) p00 + wx p01) >> 11,
// bottom likewise, value ((2048 - wy) top + wy bottom + 1024) >> 11; outside, fill.
ORU_DECLARE_FORMS(rotate_bilinear_row_c1, uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                  int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill)
ORU_DECLARE_FORMS(rotate_bilinear_row_c3, uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                  int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill)

// One row of the radial-basis map: m elements of x, y pairs from in to out. With x
// capped at 1, each element moves by the sum over the n points of E(-a |(x, y) - p_i|^2) w_i
// (summed in the order of i) and is clamped to 0 to 1. E is the fast exponential below.
ORU_DECLARE_FORMS(rbf_map_row, float *out, const float *in, int32_t m, const float *p, const float *w, int32_t n,
                  float a)

#undef ORU_DECLARE_FORMS

// exp(t) for t >= -40 (smaller t is taken as -40): 2^k times a polynomial on the rest,
// with the exponent added to the bit pattern. The vector forms repeat it operation by
// operation; internal linkage keeps each object's copy its own.
static inline float rbf_fast_exp(float t) {
  t = t < -40.0f ? -40.0f : t;
  const int32_t k = int32_t(t * 1.442695f);
  const float f = t - 0.6931472f * float(k), g = f * f;
  const float P = f * 1.0000001f + 1.0f + g * (f * 0.1666657f + 0.5000006f) +
                  g * g * (f * 0.008336937f + 0.04165989f + g * (f * 0.00019578093f + 0.0014122663f));
  uint32_t bits;
  std::memcpy(&bits, &P, sizeof(bits));
  bits += uint32_t(k) << 23;
  float r;
  std::memcpy(&r, &bits, sizeof(r));
  return r;
}

}  // namespace oru

#endif
