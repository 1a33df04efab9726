// x86-64 bodies of the geometry inner loops, shared by the AVX2 and AVX-512 files (each
// compiles them with its own flags). Included once per file after defining
// ORU_FORM(name) to the form's suffixed name. The float arithmetic of the warp runs in
// the plain form's order, with separate multiplies and adds, so results agree bit for bit.
#include <immintrin.h>

#include <cstring>

#include "image/oru_geometry_kernels.h"

namespace oru {
namespace {

inline __m128i load16(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }
inline void store8(uint8_t *p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i *>(p), v); }
inline void store8_high(uint8_t *p, __m128i v) { _mm_storeh_pd(reinterpret_cast<double *>(p), _mm_castsi128_pd(v)); }
inline void store4(uint8_t *p, __m128i v) {
  const int32_t w = _mm_cvtsi128_si32(v);
  std::memcpy(p, &w, 4);
}

}  // namespace

void ORU_FORM(mirror_row_c1)(uint8_t *dst, const uint8_t *src, int32_t n) {
  const __m256i reverse = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11,
                                           10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  int32_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + n - 32 - i));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i),
                        _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, reverse), 0x4E));
  }
  mirror_row_c1_plain(dst + i, src, n - i);
}

void ORU_FORM(mirror_row_c3)(uint8_t *dst, const uint8_t *src, int32_t n) {
  // Five pixels a step from a load that starts one byte early, so that neither the load
  // nor the 16-byte store leaves the row; byte 15 of the store is rewritten by the next step.
  const __m128i reverse5 = _mm_setr_epi8(13, 14, 15, 10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3, 0);
  int32_t i = 0;
  for (; i + 6 <= n; i += 5)
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 3 * int64_t(i)),
                     _mm_shuffle_epi8(load16(src + 3 * int64_t(n - i - 5) - 1), reverse5));
  mirror_row_c3_plain(dst + 3 * int64_t(i), src, n - i);
}

void ORU_FORM(transpose8_c1)(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width) {
  int32_t j = 0;
  for (; j + 16 <= width; j += 16) {
    __m128i a[8];
    for (int r = 0; r < 8; ++r) a[r] = load16(src + src_stride * r + j);
    __m128i b[8], c[8];
    for (int r = 0; r < 4; ++r) {
      b[2 * r] = _mm_unpacklo_epi8(a[2 * r], a[2 * r + 1]);
      b[2 * r + 1] = _mm_unpackhi_epi8(a[2 * r], a[2 * r + 1]);
    }
    for (int h = 0; h < 2; ++h) {  // rows 0-3, then rows 4-7
      c[4 * h] = _mm_unpacklo_epi16(b[4 * h], b[4 * h + 2]);
      c[4 * h + 1] = _mm_unpackhi_epi16(b[4 * h], b[4 * h + 2]);
      c[4 * h + 2] = _mm_unpacklo_epi16(b[4 * h + 1], b[4 * h + 3]);
      c[4 * h + 3] = _mm_unpackhi_epi16(b[4 * h + 1], b[4 * h + 3]);
    }
    for (int k = 0; k < 4; ++k) {  // c[k]: four columns of rows 0-3, c[4 + k]: of rows 4-7
      const __m128i lo = _mm_unpacklo_epi32(c[k], c[4 + k]), hi = _mm_unpackhi_epi32(c[k], c[4 + k]);
      uint8_t *d = dst + dst_stride * (j + 4 * k);
      store8(d, lo);
      store8_high(d + dst_stride, lo);
      store8(d + 2 * dst_stride, hi);
      store8_high(d + 3 * dst_stride, hi);
    }
  }
  if (j < width) transpose8_c1_plain(src + j, src_stride, dst + dst_stride * j, dst_stride, width - j);
}

void ORU_FORM(transpose8_c3)(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width) {
  // Four pixels of each row widened to words, a 4 x 4 word transpose per half, and
  // each column packed back to three bytes a pixel.
  const __m128i widen = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const __m128i pack = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  int32_t j = 0;
  for (; j + 6 <= width; j += 4) {
    __m128i t[2][4];
    for (int h = 0; h < 2; ++h) {
      __m128i a[4];
      for (int r = 0; r < 4; ++r) a[r] = _mm_shuffle_epi8(load16(src + src_stride * (4 * h + r) + 3 * int64_t(j)), widen);
      const __m128i l0 = _mm_unpacklo_epi32(a[0], a[1]), l1 = _mm_unpacklo_epi32(a[2], a[3]);
      const __m128i h0 = _mm_unpackhi_epi32(a[0], a[1]), h1 = _mm_unpackhi_epi32(a[2], a[3]);
      t[h][0] = _mm_shuffle_epi8(_mm_unpacklo_epi64(l0, l1), pack);
      t[h][1] = _mm_shuffle_epi8(_mm_unpackhi_epi64(l0, l1), pack);
      t[h][2] = _mm_shuffle_epi8(_mm_unpacklo_epi64(h0, h1), pack);
      t[h][3] = _mm_shuffle_epi8(_mm_unpackhi_epi64(h0, h1), pack);
    }
    for (int k = 0; k < 4; ++k) {
      uint8_t *d = dst + dst_stride * (j + k);
      _mm_storeu_si128(reinterpret_cast<__m128i *>(d), t[0][k]);  // bytes 12-15 are rewritten below
      store8(d + 12, t[1][k]);
      store4(d + 20, _mm_srli_si128(t[1][k], 8));
    }
  }
  if (j < width) transpose8_c3_plain(src + 3 * int64_t(j), src_stride, dst + dst_stride * j, dst_stride, width - j);
}

void ORU_FORM(warp_affine_bilinear_c3)(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                       const float *inv, int32_t y, int32_t x0, int32_t n, int32_t zero_outside) {
  int32_t k = 0;
  // Offsets are 32-bit in the gathers; larger sources take the plain form.
  if (sw >= 2 && sh >= 2 && src_stride * sh < (int64_t(1) << 31)) {
    const float fyv = float(y);
    const __m256 i0 = _mm256_set1_ps(inv[0]), i3 = _mm256_set1_ps(inv[3]), i2 = _mm256_set1_ps(inv[2]),
                 i5 = _mm256_set1_ps(inv[5]), by = _mm256_set1_ps(inv[1] * fyv), dy = _mm256_set1_ps(inv[4] * fyv);
    const __m256 minus1 = _mm256_set1_ps(-1.0f), xmax = _mm256_set1_ps(float(sw - 1)),
                 ymax = _mm256_set1_ps(float(sh - 1)), one = _mm256_set1_ps(1.0f), half = _mm256_set1_ps(0.5f);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), three = _mm256_set1_epi32(3),
                  stride = _mm256_set1_epi32(int32_t(src_stride)), bytemask = _mm256_set1_epi32(0xFF),
                  maxv = _mm256_set1_epi32(255), zero = _mm256_setzero_si256();
    const __m256i pack = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2, 4, 5, 6, 8,
                                          9, 10, 12, 13, 14, -1, -1, -1, -1);
    const int *base = reinterpret_cast<const int *>(src);
    for (; k + 8 <= n; k += 8) {
      const __m256 fx = _mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_set1_epi32(x0 + k), lanes));
      const __m256 xs = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(i0, fx), by), i2);
      const __m256 ys = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(i3, fx), dy), i5);
      const __m256 in = _mm256_and_ps(
          _mm256_and_ps(_mm256_cmp_ps(xs, minus1, _CMP_GT_OQ), _mm256_cmp_ps(ys, minus1, _CMP_GT_OQ)),
          _mm256_and_ps(_mm256_cmp_ps(xs, xmax, _CMP_LT_OQ), _mm256_cmp_ps(ys, ymax, _CMP_LT_OQ)));
      const int inside = _mm256_movemask_ps(in);
      uint8_t *d = dst + 3 * int64_t(x0 + k);
      if (inside == 0) {
        if (zero_outside) std::memset(d, 0, 24);
        continue;
      }
      const __m256i m = _mm256_castps_si256(in);
      const __m256i X = _mm256_and_si256(_mm256_cvttps_epi32(xs), m), Y = _mm256_and_si256(_mm256_cvttps_epi32(ys), m);
      const __m256 wx = _mm256_sub_ps(xs, _mm256_cvtepi32_ps(X)), wy = _mm256_sub_ps(ys, _mm256_cvtepi32_ps(Y));
      const __m256 ax = _mm256_sub_ps(one, wx), ay = _mm256_sub_ps(one, wy);
      const __m256i off = _mm256_add_epi32(_mm256_mullo_epi32(Y, stride), _mm256_mullo_epi32(X, three));
      const __m256i off1 = _mm256_add_epi32(off, stride);
      // The right neighbour is read from one byte early so no load passes the last pixel.
      const __m256i g00 = _mm256_mask_i32gather_epi32(zero, base, off, m, 1);
      const __m256i g01 = _mm256_srli_epi32(
          _mm256_mask_i32gather_epi32(zero, base, _mm256_add_epi32(off, _mm256_set1_epi32(2)), m, 1), 8);
      const __m256i g10 = _mm256_mask_i32gather_epi32(zero, base, off1, m, 1);
      const __m256i g11 = _mm256_srli_epi32(
          _mm256_mask_i32gather_epi32(zero, base, _mm256_add_epi32(off1, _mm256_set1_epi32(2)), m, 1), 8);
      __m256i out = zero;
      for (int c = 0; c < 3; ++c) {
        auto chan = [&](__m256i g) { return _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(g, 8 * c), bytemask)); };
        const __m256 top = _mm256_add_ps(_mm256_mul_ps(ax, chan(g00)), _mm256_mul_ps(wx, chan(g01)));
        const __m256 bottom = _mm256_add_ps(_mm256_mul_ps(ax, chan(g10)), _mm256_mul_ps(wx, chan(g11)));
        const __m256 v = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(ay, top), _mm256_mul_ps(wy, bottom)), half);
        const __m256i b = _mm256_min_epi32(_mm256_max_epi32(_mm256_cvttps_epi32(v), zero), maxv);
        out = _mm256_or_si256(out, _mm256_slli_epi32(b, 8 * c));
      }
      if (inside == 0xFF || zero_outside) {
        const __m256i packed = _mm256_shuffle_epi8(_mm256_and_si256(out, m), pack);
        const __m128i lo = _mm256_castsi256_si128(packed), hi = _mm256_extracti128_si256(packed, 1);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d), lo);  // bytes 12-15 are rewritten below
        store8(d + 12, hi);
        store4(d + 20, _mm_srli_si128(hi, 8));
      } else {
        alignas(32) int32_t px[8];
        _mm256_store_si256(reinterpret_cast<__m256i *>(px), out);
        for (int l = 0; l < 8; ++l)
          if (inside & (1 << l)) std::memcpy(d + 3 * l, &px[l], 3);
      }
    }
  }
  warp_affine_bilinear_c3_plain(dst, src, src_stride, sw, sh, inv, y, x0 + k, n - k, zero_outside);
}

}  // namespace oru
