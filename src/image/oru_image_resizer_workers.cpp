// The resizer workers on bare 8-bit buffers, each with its own 11-bit fixed-point
// scheme. Per-column work goes into a table once; the pixel loops are integer only.
#include <cmath>
#include <cstring>
#include <utility>

#include "core/oru_scratch.h"
#include "image/oru_image_internal.h"
#include "image/oru_image_kernels.h"
#include "image/oru_image_resizer_internal.h"

namespace oru {
namespace {

constexpr int32_t kOne = 2048;

// Source position of destination index x: integer part (floor) and weight in 1/2048.
struct Pos {
  int32_t i;
  int32_t w;
};
inline Pos source_pos(int32_t x, float scale) {
  const float f = (float(x) + 0.5f) * scale - 0.5f;
  const float fl = std::floor(f);
  return {int32_t(fl), int32_t(std::floor((f - fl) * float(kOne)))};
}

inline uint8_t lerp11(int32_t p, int32_t q, int32_t w) { return uint8_t(((p << 11) + (q - p) * w + 1024) >> 11); }

// One table entry: the left source index, its right neighbour and the weight.
struct Tap {
  int32_t c0;
  int32_t c1;
  int32_t w;
};

// Grey and three-channel tables of the row-table schemes; they differ only at the right edge.
void edge_clamped_taps(Tap *t, int32_t dst_size, int32_t src_size, bool three_channel) {
  const float scale = float(src_size) / float(dst_size);
  for (int32_t x = 0; x < dst_size; ++x) {
    Pos p = source_pos(x, scale);
    if (p.i < 0) p.w = 0;
    const int32_t i0 = p.i < 0 ? 0 : p.i;
    if (i0 >= src_size - 1) {
      // Grey keeps the last column; the three-channel table repeats the second-last one.
      const int32_t c = three_channel && src_size >= 2 ? src_size - 2 : src_size - 1;
      t[x] = {c, c, 0};
    } else {
      t[x] = {i0, i0 + 1, p.w};
    }
  }
}

// Horizontal pass of the two-stage scheme into a row of bytes.
void horizontal_c1(uint8_t *out, const uint8_t *s, const Tap *t, int32_t n) {
  for (int32_t x = 0; x < n; ++x) out[x] = lerp11(s[t[x].c0], s[t[x].c1], t[x].w);
}
void horizontal_c3(uint8_t *out, const uint8_t *s, const Tap *t, int32_t n) {
  for (int32_t x = 0; x < n; ++x) {
    const uint8_t *p = s + 3 * t[x].c0, *q = s + 3 * t[x].c1;
    const int32_t w = t[x].w;
    out[3 * x] = lerp11(p[0], q[0], w);
    out[3 * x + 1] = lerp11(p[1], q[1], w);
    out[3 * x + 2] = lerp11(p[2], q[2], w);
  }
}

// Two-stage bilinear shared by the grey and three-channel schemes: each source row
// is passed horizontally at most once, and consecutive destination rows reuse it.
uint32_t two_stage_bilinear(uint8_t *dst, int32_t dw, int32_t dh, int32_t dstride, const uint8_t *src, int32_t sw,
                            int32_t sh, int32_t sstride, int32_t channels) {
  static const auto vertical = pick(ORU_KERNEL_FORMS(bilinear_vertical_row));
  Scratch<Tap> cols(dw), rows(dh);
  const int64_t n = int64_t(dw) * channels;
  Scratch<uint8_t> line(2 * n);
  if (!cols || !rows || !line) return ORU_RET_ERR_MEMORY;
  edge_clamped_taps(cols.get(), dw, sw, channels == 3);
  edge_clamped_taps(rows.get(), dh, sh, false);
  uint8_t *buf[2] = {line.get(), line.get() + n};
  int32_t have[2] = {-1, -1};
  // Three-channel rows run through the vector kernel, with its table of byte offsets
  // and weight pairs (three copies a pixel, and slack for whole vector loads). Its
  // right neighbour is always the next pixel: edge taps have weight 0. A one-pixel
  // source has no next pixel and keeps the tap form.
  static const auto horizontal3 = pick(ORU_KERNEL_FORMS(bilinear_horizontal_c3));
  const bool kernel3 = channels == 3 && sw >= 2;
  Scratch<int32_t> t3(kernel3 ? 4 * int64_t(dw) + 8 : 0);
  if (kernel3) {
    if (!t3) return ORU_RET_ERR_MEMORY;
    int32_t *off = t3.get(), *wexp = off + dw;
    for (int32_t x = 0; x < dw; ++x) {
      off[x] = 3 * cols[x].c0;
      wexp[3 * x] = wexp[3 * x + 1] = wexp[3 * x + 2] = int32_t(uint32_t(kOne - cols[x].w) | (uint32_t(cols[x].w) << 16));
    }
    for (int k = 0; k < 8; ++k) wexp[3 * dw + k] = 0;
  }
  auto horizontal = [&](uint8_t *out, const uint8_t *s, const Tap *taps, int32_t count) {
    if (kernel3)
      horizontal3(out, s, t3.get(), t3.get() + dw, count);
    else if (channels == 3)
      horizontal_c3(out, s, taps, count);
    else
      horizontal_c1(out, s, taps, count);
  };
  for (int32_t y = 0; y < dh; ++y) {
    const int32_t r0 = rows[y].c0, r1 = rows[y].c1, wy = rows[y].w;
    if (have[0] != r0) {
      if (have[1] == r0) {
        std::swap(buf[0], buf[1]);
        std::swap(have[0], have[1]);
      } else {
        horizontal(buf[0], src + int64_t(r0) * sstride, cols.get(), dw);
        have[0] = r0;
      }
    }
    uint8_t *d = dst + int64_t(y) * dstride;
    if (wy == 0) {
      // A zero weight gives the upper row exactly; the lower one is not needed.
      std::memcpy(d, buf[0], size_t(n));
      continue;
    }
    if (have[1] != r1) {
      if (have[0] == r1)
        std::memcpy(buf[1], buf[0], size_t(n));
      else
        horizontal(buf[1], src + int64_t(r1) * sstride, cols.get(), dw);
      have[1] = r1;
    }
    vertical(d, buf[0], buf[1], wy, int32_t(n));
  }
  return ORU_RET_OK;
}

}  // namespace

uint32_t bgr_resizer_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride,
                              const uint8_t *src, int32_t src_width, int32_t src_height, int32_t src_stride) {
  return two_stage_bilinear(dst, dst_width, dst_height, dst_stride, src, src_width, src_height, src_stride, 3);
}

namespace {

// Columns of the sub-image sampling: two clamped source columns and a weight.
void sub_image_taps(Tap *t, int32_t dw, int32_t bw, int32_t sw, int32_t left, int32_t weight_limit) {
  const float scale = float(bw) / float(dw);
  for (int32_t x = 0; x < dw; ++x) {
    Pos p = source_pos(x, scale);
    if (p.i < 0 || p.i >= weight_limit - 1) p.w = 0;
    const int32_t q = p.i + left;
    const int32_t c0 = q < 0 ? 0 : q < sw ? q : sw - 1;
    const int32_t c1 = q < -1 ? 0 : q < sw - 1 ? q + 1 : sw - 1;
    t[x] = {c0, c1, p.w};
  }
}

uint32_t sub_image(uint8_t *dst, int32_t dw, int32_t dh, int32_t dstride, const uint8_t *src, int32_t sw,
                   int32_t sh, int32_t sstride, int32_t bw, int32_t bh, int32_t left, int32_t top, int32_t channels,
                   int32_t weight_limit) {
  Scratch<Tap> cols(dw);
  if (!cols) return ORU_RET_ERR_MEMORY;
  sub_image_taps(cols.get(), dw, bw, sw, left, weight_limit);
  const float ys = float(bh) / float(dh);
  for (int32_t y = 0; y < dh; ++y) {
    int32_t r = int32_t(std::floor((float(y) + 0.5f) * ys - 0.5f)) + top;
    r = r < 0 ? 0 : r > sh - 1 ? sh - 1 : r;
    const uint8_t *s = src + int64_t(r) * sstride;
    uint8_t *d = dst + int64_t(y) * dstride;
    if (channels == 1)
      horizontal_c1(d, s, cols.get(), dw);
    else
      horizontal_c3(d, s, cols.get(), dw);
  }
  return ORU_RET_OK;
}

}  // namespace

uint32_t resizer_sub_bgr_image_nn_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                           int32_t dst_stride, const uint8_t *src, int32_t src_width,
                                           int32_t src_height, int32_t src_stride, int32_t box_width,
                                           int32_t box_height, int32_t left, int32_t top) {
  return sub_image(dst, dst_width, dst_height, dst_stride, src, src_width, src_height, src_stride, box_width,
                   box_height, left, top, 3, src_width);
}

}  // namespace oru

using namespace oru;

uint32_t resizer_sub_gray_image_nn_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                            int32_t dst_stride, const uint8_t *src, int32_t src_width,
                                            int32_t src_height, int32_t src_stride, int32_t box_width,
                                            int32_t box_height, int32_t left, int32_t top) {
  return sub_image(dst, dst_width, dst_height, dst_stride, src, src_width, src_height, src_stride, box_width,
                   box_height, left, top, 1, box_width);
}

uint32_t resizer_nn(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride, const uint8_t *src,
                    int32_t src_width, int32_t src_height, int32_t src_stride, int32_t channels) {
  Scratch<int32_t> cols(dst_width);
  if (!cols) return ORU_RET_ERR_MEMORY;
  const int32_t px = channels == 1 ? 1 : 3;
  const float xs = float(src_width) / float(dst_width), ys = float(src_height) / float(dst_height);
  for (int32_t x = 0; x < dst_width; ++x) {
    const int32_t i = int32_t(std::floor(float(x) * xs));
    cols[x] = (i >= src_width ? src_width - 1 : i) * px;
  }
  for (int32_t y = 0; y < dst_height; ++y) {
    int32_t r = int32_t(std::floor(float(y) * ys));
    if (r >= src_height) r = src_height - 1;
    const uint8_t *s = src + int64_t(r) * src_stride;
    uint8_t *d = dst + int64_t(y) * dst_stride;
    if (px == 1) {
      for (int32_t x = 0; x < dst_width; ++x) d[x] = s[cols[x]];
    } else {
      for (int32_t x = 0; x < dst_width; ++x) std::memcpy(d + 3 * x, s + cols[x], 3);
    }
  }
  return ORU_RET_OK;
}

extern "C" {

ORU_API uint32_t gray_image_resizer_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                             int32_t dst_stride, const uint8_t *src, int32_t src_width,
                                             int32_t src_height, int32_t src_stride) {
  return two_stage_bilinear(dst, dst_width, dst_height, dst_stride, src, src_width, src_height, src_stride, 1);
}

ORU_API uint32_t resizer2_linear(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride,
                                 const uint8_t *src, int32_t src_width, int32_t src_height, int32_t src_stride,
                                 int32_t channels) {
  (void)src_width;
  (void)src_height;
  if (channels != 1 && channels != 3) return ORU_RET_OK;
  static const auto c1 = pick(ORU_KERNEL_FORMS(box2_row_c1));
  static const auto c3 = pick(ORU_KERNEL_FORMS(box2_row_c3));
  for (int32_t y = 0; y < dst_height; ++y) {
    const uint8_t *r0 = src + int64_t(2 * y) * src_stride;
    uint8_t *d = dst + int64_t(y) * dst_stride;
    if (channels == 1)
      c1(d, r0, r0 + src_stride, dst_width);
    else
      c3(d, r0, r0 + src_stride, 3 * dst_width);
  }
  return ORU_RET_OK;
}

}  // extern "C"

namespace {

// Source column sx and fraction fx of every destination column of the fast bilinear resizer,
// handed to put(dx, sx, fx). Returns the first column whose right neighbour lies outside the
// source (dst_width when there is none): from there on a column is a copy, not a blend.
template <typename Put>
int32_t fast_bilinear_columns(int32_t dst_width, int32_t src_width, double inv_x, Put put) {
  int32_t x_limit = dst_width;
  for (int32_t dx = 0; dx < dst_width; ++dx) {
    const float f = float(double(float(dx) + 0.5f) * inv_x - 0.5);
    int32_t sx = int32_t(std::floor(f));
    float fx = f - float(sx);
    if (sx < 0) {
      fx = 0.0f;
      sx = 0;
    }
    if (sx + 1 >= src_width) {
      if (dx < x_limit) x_limit = dx;
      if (sx >= src_width - 1) {
        fx = 0.0f;
        sx = src_width - 1;
      }
    }
    put(dx, sx, fx);
  }
  return x_limit;
}

// Brings the source rows r[0] and r[1] into buf[0] and buf[1] (rows already there stay, a
// row held by the other buffer is copied, only a new row is made by compute(out, row)).
template <typename T, typename Compute>
void fast_bilinear_rows(T *const buf[2], int32_t have[2], const int32_t r[2], int64_t n, Compute compute) {
  for (int k = 0; k < 2; ++k) {
    if (have[k] == r[k]) continue;
    if (have[1 - k] == r[k])
      std::memcpy(buf[k], buf[1 - k], size_t(n) * sizeof(T));
    else
      compute(buf[k], r[k]);
    have[k] = r[k];
  }
}

// Depth 1 of the growth scheme: 32-bit float samples, float weights, no 11-bit scaling.
uint32_t fast_bilinear_float(float *dst, int32_t dst_width, int32_t dst_height, int64_t dst_stride, int32_t channels,
                             const float *src, int32_t src_width, int32_t src_height, int64_t src_stride) {
  const int64_t n = int64_t(dst_width) * channels;
  const int64_t padded = (n + 31) & ~int64_t(31);
  Scratch<int32_t> off(n), ry(dst_height);
  Scratch<float> weights(2 * n + 2 * int64_t(dst_height)), lines(2 * padded);
  if (!off || !ry || !weights || !lines) return ORU_RET_ERR_MEMORY;
  float *a0 = weights.get(), *a1 = a0 + n, *b0 = a1 + n, *b1 = b0 + dst_height;
  const double inv_x = 1.0 / (double(dst_width) / src_width), inv_y = 1.0 / (double(dst_height) / src_height);
  const int32_t x_limit = fast_bilinear_columns(dst_width, src_width, inv_x, [&](int32_t dx, int32_t sx, float fx) {
    for (int32_t k = 0; k < channels; ++k) {
      const int64_t e = int64_t(dx) * channels + k;
      off[e] = sx * channels + k;
      a0[e] = 1.0f - fx;
      a1[e] = fx;
    }
  });
  for (int32_t dy = 0; dy < dst_height; ++dy) {
    const float f = float(double(float(dy) + 0.5f) * inv_y - 0.5);
    const float fl = std::floor(f);
    ry[dy] = int32_t(fl);
    b1[dy] = f - fl;
    b0[dy] = 1.0f - b1[dy];
  }
  const int64_t split = int64_t(x_limit) * channels;
  float *const buf[2] = {lines.get(), lines.get() + padded};
  int32_t have[2] = {-1, -1};
  auto compute = [&](float *out, int32_t r) {
    const float *s = reinterpret_cast<const float *>(reinterpret_cast<const uint8_t *>(src) + r * src_stride);
    for (int64_t e = 0; e < split; ++e) out[e] = s[off[e]] * a0[e] + s[off[e] + channels] * a1[e];
    for (int64_t e = split; e < n; ++e) out[e] = s[off[e]];
  };
  auto clamp_row = [&](int32_t r) { return r < 0 ? 0 : r > src_height - 1 ? src_height - 1 : r; };
  for (int32_t dy = 0; dy < dst_height; ++dy) {
    const int32_t r[2] = {clamp_row(ry[dy]), clamp_row(ry[dy] + 1)};
    fast_bilinear_rows(buf, have, r, n, compute);
    float *d = reinterpret_cast<float *>(reinterpret_cast<uint8_t *>(dst) + dy * dst_stride);
    for (int64_t e = 0; e < n; ++e) d[e] = buf[0][e] * b0[dy] + buf[1][e] * b1[dy];
  }
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API uint32_t fast_bilinear_resizer(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride,
                                       int32_t channels, const uint8_t *src, int32_t src_width, int32_t src_height,
                                       int32_t src_stride, uint32_t depth) {
  // Bytes (depth 0) and 32-bit floats (depth 1) are served; no caller in the library
  // passes anything else.
  if (depth == 1)
    return fast_bilinear_float(reinterpret_cast<float *>(dst), dst_width, dst_height, dst_stride, channels,
                               reinterpret_cast<const float *>(src), src_width, src_height, src_stride);
  if (depth != 0) return ORU_RET_ERR_NOT_SUPPORT;
  const int64_t n = int64_t(dst_width) * channels;
  const int64_t padded = (n + 31) & ~int64_t(31);
  // Table: offset and two weights per entry; then the row weights and rows.
  Scratch<int32_t> table(3 * n + 3 * int64_t(dst_height));
  Scratch<int32_t> lines(2 * padded);
  if (!table || !lines) return ORU_RET_ERR_MEMORY;
  int32_t *off = table.get(), *a0 = off + n, *a1 = a0 + n, *ry = a1 + n, *b0 = ry + dst_height,
          *b1 = b0 + dst_height;
  const double inv_x = 1.0 / (double(dst_width) / src_width), inv_y = 1.0 / (double(dst_height) / src_height);
  const int32_t x_limit = fast_bilinear_columns(dst_width, src_width, inv_x, [&](int32_t dx, int32_t sx, float fx) {
    for (int32_t k = 0; k < channels; ++k) {
      const int64_t e = int64_t(dx) * channels + k;
      off[e] = sx * channels + k;
      a0[e] = int32_t(std::rint((1.0f - fx) * 2048.0f));
      a1[e] = int32_t(std::rint(fx * 2048.0f));
    }
  });
  for (int32_t dy = 0; dy < dst_height; ++dy) {
    const float f = float(double(float(dy) + 0.5f) * inv_y - 0.5);
    const float fl = std::floor(f);
    const float fy = f - fl;
    ry[dy] = int32_t(fl);
    b0[dy] = int32_t(std::rint((1.0f - fy) * 2048.0f));
    b1[dy] = int32_t(std::rint(fy * 2048.0f));
  }
  const int64_t split = int64_t(x_limit) * channels;
  int32_t *const buf[2] = {lines.get(), lines.get() + padded};
  int32_t have[2] = {-1, -1};
  auto compute = [&](int32_t *out, int32_t r) {
    const uint8_t *s = src + int64_t(r) * src_stride;
    for (int64_t e = 0; e < split; ++e) out[e] = s[off[e]] * a0[e] + s[off[e] + channels] * a1[e];
    for (int64_t e = split; e < n; ++e) out[e] = s[off[e]] << 11;
  };
  auto clamp_row = [&](int32_t r) { return r < 0 ? 0 : r > src_height - 1 ? src_height - 1 : r; };
  for (int32_t dy = 0; dy < dst_height; ++dy) {
    const int32_t r[2] = {clamp_row(ry[dy]), clamp_row(ry[dy] + 1)};
    fast_bilinear_rows(buf, have, r, n, compute);
    uint8_t *d = dst + int64_t(dy) * dst_stride;
    const int32_t w0 = b0[dy], w1 = b1[dy];
    for (int64_t e = 0; e < n; ++e) d[e] = uint8_t((buf[0][e] * w0 + buf[1][e] * w1 + 0x200000) >> 22);
  }
  return ORU_RET_OK;
}

}  // extern "C"
