// Colour-space conversion between the 8-bit formats: BGR, RGB, grey, planar YUV and Lab.
// Everything but Lab to BGR runs on integers with the coefficients of each code.
#include <cstring>

#include "core/oru_report.h"
#include "image/oru_image_color_internal.h"
#include "image/oru_image_internal.h"
#include "image/oru_image_kernels.h"

namespace oru {
void bgr_to_lab(const oru_image *src, oru_image *dst);
void lab_to_bgr(const oru_image *src, oru_image *dst);
}  // namespace oru

using namespace oru;

namespace {

// The Arm-only 4:2:0 forms, or null where the processor has no NEON.
struct ArmQ15 {
  decltype(&yuv420_to_bgr_rows_q15_plain) to_bgr;
  decltype(&bgr_to_yuv420_rows_q15_plain) from_bgr;
};
ArmQ15 arm_q15_forms() {
  if (best_isa() != Isa::neon) return {nullptr, nullptr};
  return {ORU_NEON_FORM(&yuv420_to_bgr_rows_q15_neon), ORU_NEON_FORM(&bgr_to_yuv420_rows_q15_neon)};
}

}  // namespace

void convert_rgb24tobrg24_c(int32_t width, int32_t height, const uint8_t *src, int32_t stride, uint8_t *dst) {
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t *s = src + int64_t(y) * stride;
    uint8_t *d = dst + int64_t(y) * stride;
    for (int32_t x = 0; x < width; ++x, s += 3, d += 3) {
      const uint8_t b0 = s[0], b1 = s[1], b2 = s[2];
      d[0] = b2;
      d[1] = b1;
      d[2] = b0;
    }
  }
}

void convert_yuv420tobgr24_c(int32_t width, int32_t height, uint8_t *dst, int32_t dst_stride, const uint8_t *y,
                             const uint8_t *u, const uint8_t *v, int32_t y_stride, int32_t u_stride,
                             int32_t v_stride) {
  static const auto rows_fn = pick(ORU_KERNEL_FORMS(yuv420_to_bgr_rows));
  static const auto q15 = arm_q15_forms().to_bgr;
  const int32_t ew = width & ~1, eh = height & ~1;
  // On Arm, whole runs of 16 columns take the per-product rounding of the vector unit.
  const int32_t run = q15 && ew >= 16 ? ew & ~15 : 0;
  for (int32_t r = 0; r < eh; r += 2) {
    uint8_t *d0 = dst + int64_t(r) * dst_stride;
    const uint8_t *y0 = y + int64_t(r) * y_stride, *y1 = y0 + y_stride;
    const uint8_t *ur = u + ((int64_t(r) * u_stride) >> 1), *vr = v + ((int64_t(r) * v_stride) >> 1);
    if (run) q15(d0, d0 + dst_stride, y0, y1, ur, vr, run);
    rows_fn(d0 + 3 * run, d0 + dst_stride + 3 * run, y0 + run, y1 + run, ur + run / 2, vr + run / 2, ew - run);
  }
  if ((height & 1) && height >= 2)
    std::memcpy(dst + int64_t(height - 1) * dst_stride, dst + int64_t(height - 2) * dst_stride, size_t(width) * 3);
  if ((width & 1) && width >= 2)
    for (int32_t r = 0; r < height; ++r) {
      uint8_t *p = dst + int64_t(r) * dst_stride + 3 * (width - 1);
      std::memcpy(p, p - 3, 3);
    }
}

namespace {

uint8_t *row(void *plane, int64_t stride, int32_t y) {
  return static_cast<uint8_t *>(plane) + y * stride;
}

void bgr_to_gray(const oru_image *src, oru_image *dst) {
  static const auto gray_fn = pick(ORU_KERNEL_FORMS(bgr_to_gray_row));
  for (int32_t y = 0; y < src->rows; ++y) {
    const uint8_t *s = row(src->data, src->stride, y);
    uint8_t *d = row(dst->data, dst->stride, y);
    if (dst->channels == 1) {
      gray_fn(d, s, src->cols);
    } else {
      gray_fn(d, s, src->cols);  // grey first into the row's head, then spread from the right
      for (int32_t x = src->cols - 1; x >= 0; --x) d[3 * x] = d[3 * x + 1] = d[3 * x + 2] = d[x];
    }
  }
}

// Y of codes 8 and 21.
inline uint8_t yuv_luma(int32_t b, int32_t g, int32_t r) {
  return uint8_t(((3211 * b + 16515 * g + 8421 * r + 16384) >> 15) + 16);
}

void bgr_to_yuv420(const oru_image *src, oru_image *dst) {
  const int32_t w = src->cols, h = src->rows, ew = w & ~1, eh = h & ~1;
  uint8_t *Y = static_cast<uint8_t *>(dst->data), *U = static_cast<uint8_t *>(dst->plane1),
          *V = static_cast<uint8_t *>(dst->plane2);
  const int64_t ys = dst->stride, us = dst->stride1, vs = dst->stride2;
  static const auto q15 = arm_q15_forms().from_bgr;
  // On Arm, whole runs of 8 columns take the per-product rounding of the vector unit.
  const int32_t run = q15 && ew >= 8 ? ew & ~7 : 0;
  if (ew >= 2 && eh >= 2) {
    for (int32_t r = 0; r < eh; r += 2) {
      const uint8_t *s0 = row(src->data, src->stride, r), *s1 = s0 + src->stride;
      uint8_t *y0 = Y + r * ys, *y1 = y0 + ys, *u = U + (r >> 1) * us, *v = V + (r >> 1) * vs;
      if (run) q15(y0, y1, u, v, s0, s1, run);
      for (int32_t x = run; x < ew; x += 2) {
        const uint8_t *p[4] = {s0 + 3 * x, s0 + 3 * x + 3, s1 + 3 * x, s1 + 3 * x + 3};
        y0[x] = yuv_luma(p[0][0], p[0][1], p[0][2]);
        y0[x + 1] = yuv_luma(p[1][0], p[1][1], p[1][2]);
        y1[x] = yuv_luma(p[2][0], p[2][1], p[2][2]);
        y1[x + 1] = yuv_luma(p[3][0], p[3][1], p[3][2]);
        const int32_t ba = (p[0][0] + p[1][0] + p[2][0] + p[3][0] + 2) >> 2;
        const int32_t ga = (p[0][1] + p[1][1] + p[2][1] + p[3][1] + 2) >> 2;
        const int32_t ra = (p[0][2] + p[1][2] + p[2][2] + p[3][2] + 2) >> 2;
        u[x >> 1] = uint8_t(((14385 * ba - 9535 * ga - 4850 * ra + 16384) >> 15) ^ 128);
        v[x >> 1] = uint8_t(((-2327 * ba - 12059 * ga + 14385 * ra + 16384) >> 15) ^ 128);
      }
    }
  }
  // Odd sizes repeat the last computed column and row; width first, so that a
  // repeated row carries its repeated column.
  const int32_t cw = (w + 1) >> 1;
  if ((w & 1) && w >= 2) {
    for (int32_t r = 0; r < eh; ++r) Y[r * ys + w - 1] = Y[r * ys + w - 2];
    for (int32_t r = 0; r < (eh >> 1) && cw >= 2; ++r) {
      U[r * us + cw - 1] = U[r * us + cw - 2];
      V[r * vs + cw - 1] = V[r * vs + cw - 2];
    }
  }
  if ((h & 1) && h >= 2) {
    std::memcpy(Y + (h - 1) * ys, Y + (h - 2) * ys, size_t(w));
    // The last chroma row of an odd height holds only a quarter of the luma stride.
    const int64_t n = ys / 4 < cw ? ys / 4 : cw;
    if (n > 0) {
      std::memcpy(U + (eh >> 1) * us, U + ((eh >> 1) - 1) * us, size_t(n));
      std::memcpy(V + (eh >> 1) * vs, V + ((eh >> 1) - 1) * vs, size_t(n));
    }
  }
}

void bgr_to_yuv444(const oru_image *src, oru_image *dst) {
  for (int32_t r = 0; r < src->rows; ++r) {
    const uint8_t *s = row(src->data, src->stride, r);
    uint8_t *y = row(dst->data, dst->stride, r), *u = row(dst->plane1, dst->stride1, r),
            *v = row(dst->plane2, dst->stride2, r);
    for (int32_t x = 0; x < src->cols; ++x, s += 3) {
      const int32_t b = s[0], g = s[1], rr = s[2];
      y[x] = yuv_luma(b, g, rr);
      u[x] = uint8_t(((14385 * b - 9535 * g - 4849 * rr + 16384) >> 15) ^ 128);
      v[x] = uint8_t(((-2326 * b - 12058 * g + 14385 * rr + 16384) >> 15) ^ 128);
    }
  }
}

void yuv444_to_bgr(const oru_image *src, oru_image *dst) {
  for (int32_t r = 0; r < src->rows; ++r) {
    const uint8_t *y = row(src->data, src->stride, r), *u = row(src->plane1, src->stride1, r),
                  *v = row(src->plane2, src->stride2, r);
    uint8_t *d = row(dst->data, dst->stride, r);
    for (int32_t x = 0; x < src->cols; ++x, d += 3) {
      const int32_t yy = 9535 * y[x] - 148464, uu = u[x] - 128, vv = v[x] - 128;
      d[0] = clamp_u8((yy + 16515 * uu) >> 13);
      d[1] = clamp_u8((yy - 3211 * uu - 6651 * vv) >> 13);
      d[2] = clamp_u8((yy + 13074 * vv) >> 13);
    }
  }
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_image_color_space_convert(oru_image *dst, oru_image *src, uint32_t code) {
  if (!dst || !src || dst->rows != src->rows || dst->cols != src->cols || dst->depth != src->depth)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const uint32_t sf = src->format, df = dst->format;
  switch (code) {
    case ORU_COLOR_BGR2GRAY:
      if (sf != ORU_IMAGE_BGR24 || (df != ORU_IMAGE_BGR24 && df != ORU_IMAGE_GRAY8))
        ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
      bgr_to_gray(src, dst);
      return ORU_RET_OK;
    case ORU_COLOR_BGR2RGB:
    case ORU_COLOR_RGB2BGR: {
      const bool in_place = dst->data == src->data;
      convert_rgb24tobrg24_c(src->cols, src->rows, static_cast<const uint8_t *>(src->data), int32_t(src->stride),
                             static_cast<uint8_t *>(dst->data));
      if (in_place && code == ORU_COLOR_BGR2RGB && sf == ORU_IMAGE_BGR24) src->format = ORU_IMAGE_RGB24;
      if (in_place && code == ORU_COLOR_RGB2BGR && sf == ORU_IMAGE_RGB24) src->format = ORU_IMAGE_BGR24;
      return ORU_RET_OK;
    }
    case ORU_COLOR_BGR2YUV420P:
      if (sf != ORU_IMAGE_BGR24 || df != ORU_IMAGE_YUV420P) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
      bgr_to_yuv420(src, dst);
      return ORU_RET_OK;
    case ORU_COLOR_YUV420P2BGR:
      if (sf != ORU_IMAGE_YUV420P || df != ORU_IMAGE_BGR24) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
      convert_yuv420tobgr24_c(src->cols, src->rows, static_cast<uint8_t *>(dst->data), int32_t(dst->stride),
                              static_cast<const uint8_t *>(src->data), static_cast<const uint8_t *>(src->plane1),
                              static_cast<const uint8_t *>(src->plane2), int32_t(src->stride),
                              int32_t(src->stride1), int32_t(src->stride2));
      return ORU_RET_OK;
    case ORU_COLOR_BGR2LAB:
      if (sf != ORU_IMAGE_BGR24 || df != ORU_IMAGE_LAB24) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
      bgr_to_lab(src, dst);
      return ORU_RET_OK;
    case ORU_COLOR_LAB2BGR:
      if (sf != ORU_IMAGE_LAB24 || df != ORU_IMAGE_BGR24) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
      lab_to_bgr(src, dst);
      return ORU_RET_OK;
    case ORU_COLOR_BGR2YUV444P:
      if (sf != ORU_IMAGE_BGR24 || df != ORU_IMAGE_YUV444P) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Color space parameters error!");
      bgr_to_yuv444(src, dst);
      return ORU_RET_OK;
    case ORU_COLOR_YUV444P2BGR:
      if (sf != ORU_IMAGE_YUV444P || df != ORU_IMAGE_BGR24) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Color space parameters error!");
      yuv444_to_bgr(src, dst);
      return ORU_RET_OK;
    default:
      return ORU_RET_ERR_NOT_SUPPORT;
  }
}

ORU_API uint32_t oru_image_yuv420p_to_bgr24_convert(uint8_t *dst, int32_t dst_stride, const uint8_t *const planes[3],
                                                    int32_t width, int32_t height, const int32_t strides[3]) {
  if (!dst || int64_t(dst_stride) < 3 * int64_t(width) || !planes || !planes[0] || !planes[1] || !planes[2] ||
      !strides || strides[0] < width)
    return ORU_RET_ERR_PARA;
  convert_yuv420tobgr24_c(width, height, dst, dst_stride, planes[0], planes[1], planes[2], strides[0], strides[1],
                          strides[2]);
  return ORU_RET_OK;
}

}  // extern "C"
