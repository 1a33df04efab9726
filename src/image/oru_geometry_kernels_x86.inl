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
inline void store8_high(uint8_t *p, __m128i v) { store8(p, _mm_unpackhi_epi64(v, v)); }
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

namespace {

// The vector lanes of the warp: eight in AVX2 registers, sixteen in AVX-512 ones (the
// file that wants the wide form defines ORU_GEOMETRY_WIDE). Masks are vectors in the
// first, mask registers in the second.
#if defined(ORU_GEOMETRY_WIDE)
struct Lanes {
  using F = __m512;
  using I = __m512i;
  using M = __mmask16;
  static constexpr int n = 16;
  static F fset(float v) { return _mm512_set1_ps(v); }
  static I iset(int32_t v) { return _mm512_set1_epi32(v); }
  static I iota() { return _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15); }
  static I lane_pattern(__m128i v) { return _mm512_broadcast_i32x4(v); }
  static F add(F a, F b) { return _mm512_add_ps(a, b); }
  static F sub(F a, F b) { return _mm512_sub_ps(a, b); }
  static F mul(F a, F b) { return _mm512_mul_ps(a, b); }
  static F to_f(I a) { return _mm512_cvtepi32_ps(a); }
  static I trunc(F a) { return _mm512_cvttps_epi32(a); }
  static M gt(F a, F b) { return _mm512_cmp_ps_mask(a, b, _CMP_GT_OQ); }
  static M lt(F a, F b) { return _mm512_cmp_ps_mask(a, b, _CMP_LT_OQ); }
  static M both(M a, M b) { return M(a & b); }
  static uint32_t bits(M m) { return m; }
  static I keep(I v, M m) { return _mm512_maskz_mov_epi32(m, v); }
  static I iadd(I a, I b) { return _mm512_add_epi32(a, b); }
  static I imul(I a, I b) { return _mm512_mullo_epi32(a, b); }
  static I gather(const int *base, I off, M m) {
    return _mm512_mask_i32gather_epi32(_mm512_setzero_si512(), m, off, base, 1);
  }
  static I shuffle(I a, I b) { return _mm512_shuffle_epi8(a, b); }
  static I clamp_byte(I v) { return _mm512_min_epi32(_mm512_max_epi32(v, _mm512_setzero_si512()), iset(255)); }
  static I shl(I v, int s) { return _mm512_sll_epi32(v, _mm_cvtsi32_si128(s)); }
  static M igt(I a, I b) { return _mm512_cmpgt_epi32_mask(a, b); }
  static I srai11(I a) { return _mm512_srai_epi32(a, 11); }
  static I iand(I a, I b) { return _mm512_and_si512(a, b); }
  static I isub(I a, I b) { return _mm512_sub_epi32(a, b); }
  static I madd16(I a, I b) { return _mm512_madd_epi16(a, b); }
  static I shl16(I a) { return _mm512_slli_epi32(a, 16); }
  static I select(M m, I a, I b) { return _mm512_mask_blend_epi32(m, b, a); }
  // Low byte of each of the sixteen words, stored as sixteen bytes.
  static void store_low_bytes(uint8_t *d, I v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d), _mm512_cvtepi32_epi8(v));
  }
  static F fmin(F a, F b) { return _mm512_min_ps(a, b); }
  static F fmax(F a, F b) { return _mm512_max_ps(a, b); }
  static I bits_of(F a) { return _mm512_castps_si512(a); }
  static F from_bits(I a) { return _mm512_castsi512_ps(a); }
  static I shl23(I a) { return _mm512_slli_epi32(a, 23); }
  // Sixteen x, y pairs split into x and y, and joined back.
  static void load_xy(const float *p, F &x, F &y) {
    const F a = _mm512_loadu_ps(p), b = _mm512_loadu_ps(p + 16);
    const I even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    x = _mm512_permutex2var_ps(a, even, b);
    y = _mm512_permutex2var_ps(a, _mm512_add_epi32(even, iset(1)), b);
  }
  static void store_xy(float *p, F x, F y) {
    const I lo = _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    _mm512_storeu_ps(p, _mm512_permutex2var_ps(x, lo, y));
    _mm512_storeu_ps(p + 16, _mm512_permutex2var_ps(x, _mm512_add_epi32(lo, iset(8)), y));
  }
  static I bor(I a, I b) { return _mm512_or_si512(a, b); }
  static void spill(int32_t *out, I v) { _mm512_storeu_si512(out, v); }
  // Each 128-bit part holds 12 bytes after the pack; they are stored back to back.
  static void store_packed(uint8_t *d, I v) {
    for (int k = 0; k < 3; ++k) store_part(d + 12 * k, extract(v, k));
    const __m128i last = _mm512_extracti32x4_epi32(v, 3);
    store8(d + 36, last);
    store4(d + 44, _mm_srli_si128(last, 8));
  }
  static __m128i extract(I v, int k) {
    switch (k) {
      case 0: return _mm512_castsi512_si128(v);
      case 1: return _mm512_extracti32x4_epi32(v, 1);
      default: return _mm512_extracti32x4_epi32(v, 2);
    }
  }
  static void store_part(uint8_t *d, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(d), v); }
};
#else
struct Lanes {
  using F = __m256;
  using I = __m256i;
  using M = __m256i;
  static constexpr int n = 8;
  static F fset(float v) { return _mm256_set1_ps(v); }
  static I iset(int32_t v) { return _mm256_set1_epi32(v); }
  static I iota() { return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7); }
  static I lane_pattern(__m128i v) { return _mm256_broadcastsi128_si256(v); }
  static F add(F a, F b) { return _mm256_add_ps(a, b); }
  static F sub(F a, F b) { return _mm256_sub_ps(a, b); }
  static F mul(F a, F b) { return _mm256_mul_ps(a, b); }
  static F to_f(I a) { return _mm256_cvtepi32_ps(a); }
  static I trunc(F a) { return _mm256_cvttps_epi32(a); }
  static M gt(F a, F b) { return _mm256_castps_si256(_mm256_cmp_ps(a, b, _CMP_GT_OQ)); }
  static M lt(F a, F b) { return _mm256_castps_si256(_mm256_cmp_ps(a, b, _CMP_LT_OQ)); }
  static M both(M a, M b) { return _mm256_and_si256(a, b); }
  static uint32_t bits(M m) { return uint32_t(_mm256_movemask_ps(_mm256_castsi256_ps(m))); }
  static I keep(I v, M m) { return _mm256_and_si256(v, m); }
  static I iadd(I a, I b) { return _mm256_add_epi32(a, b); }
  static I imul(I a, I b) { return _mm256_mullo_epi32(a, b); }
  static I gather(const int *base, I off, M m) {
    return _mm256_mask_i32gather_epi32(_mm256_setzero_si256(), base, off, m, 1);
  }
  static I shuffle(I a, I b) { return _mm256_shuffle_epi8(a, b); }
  static I clamp_byte(I v) { return _mm256_min_epi32(_mm256_max_epi32(v, _mm256_setzero_si256()), iset(255)); }
  static I shl(I v, int s) { return _mm256_sll_epi32(v, _mm_cvtsi32_si128(s)); }
  static M igt(I a, I b) { return _mm256_cmpgt_epi32(a, b); }
  static I srai11(I a) { return _mm256_srai_epi32(a, 11); }
  static I iand(I a, I b) { return _mm256_and_si256(a, b); }
  static I isub(I a, I b) { return _mm256_sub_epi32(a, b); }
  static I madd16(I a, I b) { return _mm256_madd_epi16(a, b); }
  static I shl16(I a) { return _mm256_slli_epi32(a, 16); }
  static I select(M m, I a, I b) { return _mm256_blendv_epi8(b, a, m); }
  static void store_low_bytes(uint8_t *d, I v) {
    const __m256i b = _mm256_packus_epi16(_mm256_packus_epi32(v, v), v);  // bytes 0-3 of each 128 bits
    store8(d, _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(b, _mm256_setr_epi32(0, 4, 0, 0, 0, 0, 0, 0))));
  }
  static F fmin(F a, F b) { return _mm256_min_ps(a, b); }
  static F fmax(F a, F b) { return _mm256_max_ps(a, b); }
  static I bits_of(F a) { return _mm256_castps_si256(a); }
  static F from_bits(I a) { return _mm256_castsi256_ps(a); }
  static I shl23(I a) { return _mm256_slli_epi32(a, 23); }
  static void load_xy(const float *p, F &x, F &y) {
    const F a = _mm256_loadu_ps(p), b = _mm256_loadu_ps(p + 8);
    x = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(a, b, 0x88)), 0xD8));
    y = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_shuffle_ps(a, b, 0xDD)), 0xD8));
  }
  static void store_xy(float *p, F x, F y) {
    const F lo = _mm256_unpacklo_ps(x, y), hi = _mm256_unpackhi_ps(x, y);
    _mm256_storeu_ps(p, _mm256_permute2f128_ps(lo, hi, 0x20));
    _mm256_storeu_ps(p + 8, _mm256_permute2f128_ps(lo, hi, 0x31));
  }
  static I bor(I a, I b) { return _mm256_or_si256(a, b); }
  static void spill(int32_t *out, I v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), v); }
  static void store_packed(uint8_t *d, I v) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(d), _mm256_castsi256_si128(v));  // bytes 12-15 rewritten below
    const __m128i hi = _mm256_extracti128_si256(v, 1);
    store8(d + 12, hi);
    store4(d + 20, _mm_srli_si128(hi, 8));
  }
};
#endif

}  // namespace

void ORU_FORM(warp_affine_bilinear_c3)(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                       const float *inv, int32_t y, int32_t x0, int32_t n, int32_t zero_outside) {
  using L = Lanes;
  constexpr uint32_t kAll = (1u << L::n) - 1u;
  int32_t k = 0;
  // Offsets are 32-bit in the gathers; larger sources take the plain form.
  if (sw >= 2 && sh >= 2 && src_stride * sh < (int64_t(1) << 31)) {
    const float fyv = float(y);
    const L::F i0 = L::fset(inv[0]), i3 = L::fset(inv[3]), i2 = L::fset(inv[2]), i5 = L::fset(inv[5]),
               by = L::fset(inv[1] * fyv), dy = L::fset(inv[4] * fyv);
    const L::F minus1 = L::fset(-1.0f), xmax = L::fset(float(sw - 1)), ymax = L::fset(float(sh - 1)),
               one = L::fset(1.0f), half = L::fset(0.5f);
    const L::I lanes = L::iota(), three = L::iset(3), stride = L::iset(int32_t(src_stride)), two = L::iset(2);
    // pshufb indices of byte 0 of each word with the other three bytes cleared (0x80),
    // and of the three output bytes of each word packed to the front of each 128 bits.
    const L::I spread = L::lane_pattern(_mm_setr_epi8(0, -128, -128, -128, 4, -128, -128, -128, 8, -128, -128, -128,
                                                      12, -128, -128, -128));
    const L::I pack = L::lane_pattern(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    const int *base = reinterpret_cast<const int *>(src);
    for (; k + L::n <= n; k += L::n) {
      const L::F fx = L::to_f(L::iadd(L::iset(x0 + k), lanes));
      const L::F xs = L::add(L::add(L::mul(i0, fx), by), i2);
      const L::F ys = L::add(L::add(L::mul(i3, fx), dy), i5);
      const L::M in = L::both(L::both(L::gt(xs, minus1), L::gt(ys, minus1)), L::both(L::lt(xs, xmax), L::lt(ys, ymax)));
      const uint32_t inside = L::bits(in);
      uint8_t *d = dst + 3 * int64_t(x0 + k);
      if (inside == 0) {
        if (zero_outside) std::memset(d, 0, 3 * L::n);
        continue;
      }
      const L::I X = L::keep(L::trunc(xs), in), Y = L::keep(L::trunc(ys), in);
      const L::F wx = L::sub(xs, L::to_f(X)), wy = L::sub(ys, L::to_f(Y));
      const L::F ax = L::sub(one, wx), ay = L::sub(one, wy);
      const L::I off = L::iadd(L::imul(Y, stride), L::imul(X, three)), off1 = L::iadd(off, stride);
      // The right neighbour is read from one byte early so no load passes the last pixel.
      const L::I g00 = L::gather(base, off, in), g01 = L::gather(base, L::iadd(off, two), in);
      const L::I g10 = L::gather(base, off1, in), g11 = L::gather(base, L::iadd(off1, two), in);
      L::I out = L::iset(0);
      for (int c = 0; c < 3; ++c) {
        // Byte c of every word (left pixel) and byte c + 1 (right pixel), as floats.
        const L::I left = L::iadd(L::iset(c), spread), right = L::iadd(L::iset(c + 1), spread);
        const L::F top = L::add(L::mul(ax, L::to_f(L::shuffle(g00, left))), L::mul(wx, L::to_f(L::shuffle(g01, right))));
        const L::F bottom =
            L::add(L::mul(ax, L::to_f(L::shuffle(g10, left))), L::mul(wx, L::to_f(L::shuffle(g11, right))));
        const L::F v = L::add(L::add(L::mul(ay, top), L::mul(wy, bottom)), half);
        out = L::bor(out, L::shl(L::clamp_byte(L::trunc(v)), 8 * c));
      }
      if (inside == kAll || zero_outside) {
        L::store_packed(d, L::shuffle(L::keep(out, in), pack));
      } else {
        alignas(64) int32_t px[L::n];
        L::spill(px, out);
        for (int l = 0; l < L::n; ++l)
          if (inside & (1u << l)) std::memcpy(d + 3 * l, &px[l], 3);
      }
    }
  }
  warp_affine_bilinear_c3_plain(dst, src, src_stride, sw, sh, inv, y, x0 + k, n - k, zero_outside);
}


namespace {

// One body for both row kernels of the fixed-point rotation. The 16-bit multiply-add
// pairs carry (2048 - w) p + w q exactly; the lower source row is read two bytes early
// (one-byte pixels) so that no load passes the end of the image.
template <int C>
void rotate_bilinear_row_x86(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh, int32_t x,
                             int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  using L = Lanes;
  int32_t k = 0;
  uint32_t X0 = uint32_t(x), Y0 = uint32_t(y);
  if (sw >= 2 && sh >= 2 && src_stride * sh < (int64_t(1) << 31)) {
    const L::I lanes = L::iota(), sx = L::iset(step_x), sy = L::iset(step_y), minus1 = L::iset(-1),
               wlast = L::iset(sw - 1), hlast = L::iset(sh - 1), frac = L::iset(0x7FF), one = L::iset(2048),
               stride = L::iset(int32_t(src_stride)), half = L::iset(1024), fills = L::iset(fill * (C == 1 ? 1 : 0x10101));
    const L::I step_xn = L::iset(int32_t(uint32_t(step_x) * uint32_t(L::n))),
               step_yn = L::iset(int32_t(uint32_t(step_y) * uint32_t(L::n)));
    L::I X = L::iadd(L::iset(x), L::imul(lanes, sx)), Y = L::iadd(L::iset(y), L::imul(lanes, sy));
    const int *base = reinterpret_cast<const int *>(src);
    // Byte pairs into 16-bit halves: c1 rows give bytes 0, 1 (upper row) and 2, 3 (lower
    // row, read two bytes early); c3 takes byte c of the pixel and byte c + 1 of the load
    // one byte early, which is byte c of the right neighbour.
    const L::I pair_top = L::lane_pattern(_mm_setr_epi8(0, -128, 1, -128, 4, -128, 5, -128, 8, -128, 9, -128, 12, -128, 13, -128));
    const L::I pair_bottom = L::lane_pattern(_mm_setr_epi8(2, -128, 3, -128, 6, -128, 7, -128, 10, -128, 11, -128, 14, -128, 15, -128));
    const L::I left = L::lane_pattern(_mm_setr_epi8(0, -128, -128, -128, 4, -128, -128, -128, 8, -128, -128, -128, 12, -128, -128, -128));
    const L::I right = L::lane_pattern(_mm_setr_epi8(-128, -128, 1, -128, -128, -128, 5, -128, -128, -128, 9, -128, -128, -128, 13, -128));
    const L::I pack = L::lane_pattern(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    for (; k + L::n <= n; k += L::n, X = L::iadd(X, step_xn), Y = L::iadd(Y, step_yn)) {
      const L::I xi = L::srai11(X), yi = L::srai11(Y);
      const L::M in = L::both(L::both(L::igt(X, minus1), L::igt(Y, minus1)), L::both(L::igt(wlast, xi), L::igt(hlast, yi)));
      const L::I wx = L::iand(X, frac), wy = L::iand(Y, frac);
      const L::I wxp = L::bor(L::isub(one, wx), L::shl16(wx));
      const L::I wyp = L::bor(L::isub(one, wy), L::shl16(wy));
      const L::I off = L::iadd(L::imul(L::keep(yi, in), stride), L::imul(L::keep(xi, in), L::iset(C)));
      const L::I off1 = L::iadd(off, stride);
      L::I out;
      if (C == 1) {
        const L::I g0 = L::gather(base, off, in), g1 = L::gather(base, L::iadd(off1, L::iset(-2)), in);
        const L::I top = L::srai11(L::madd16(L::shuffle(g0, pair_top), wxp));
        const L::I bottom = L::srai11(L::madd16(L::shuffle(g1, pair_bottom), wxp));
        out = L::srai11(L::iadd(L::madd16(L::bor(top, L::shl16(bottom)), wyp), half));
        L::store_low_bytes(dst + k, L::select(in, out, fills));
      } else {
        const L::I two = L::iset(2);
        const L::I g00 = L::gather(base, off, in), g01 = L::gather(base, L::iadd(off, two), in);
        const L::I g10 = L::gather(base, off1, in), g11 = L::gather(base, L::iadd(off1, two), in);
        out = L::iset(0);
        for (int c = 0; c < 3; ++c) {
          const L::I lc = L::iadd(left, L::iset(c)), rc = L::iadd(right, L::iset(c << 16));
          const L::I top = L::srai11(L::madd16(L::bor(L::shuffle(g00, lc), L::shuffle(g01, rc)), wxp));
          const L::I bottom = L::srai11(L::madd16(L::bor(L::shuffle(g10, lc), L::shuffle(g11, rc)), wxp));
          const L::I v = L::srai11(L::iadd(L::madd16(L::bor(top, L::shl16(bottom)), wyp), half));
          out = L::bor(out, L::shl(v, 8 * c));
        }
        L::store_packed(dst + 3 * int64_t(k), L::shuffle(L::select(in, out, fills), pack));
      }
    }
    X0 += uint32_t(step_x) * uint32_t(k);
    Y0 += uint32_t(step_y) * uint32_t(k);
  }
  (C == 1 ? rotate_bilinear_row_c1_plain : rotate_bilinear_row_c3_plain)(dst + C * int64_t(k), src, src_stride, sw, sh,
                                                                        int32_t(X0), int32_t(Y0), step_x, step_y,
                                                                        n - k, fill);
}

}  // namespace

void ORU_FORM(rotate_bilinear_row_c1)(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                      int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  rotate_bilinear_row_x86<1>(dst, src, src_stride, sw, sh, x, y, step_x, step_y, n, fill);
}

void ORU_FORM(rotate_bilinear_row_c3)(uint8_t *dst, const uint8_t *src, int64_t src_stride, int32_t sw, int32_t sh,
                                      int32_t x, int32_t y, int32_t step_x, int32_t step_y, int32_t n, int32_t fill) {
  rotate_bilinear_row_x86<3>(dst, src, src_stride, sw, sh, x, y, step_x, step_y, n, fill);
}


void ORU_FORM(rbf_map_row)(float *out, const float *in, int32_t m, const float *p, const float *w, int32_t n, float a) {
  using L = Lanes;
  // The plain form's operations in its order, on L::n elements at once. The operands of
  // min and max are ordered so that NaN gets the plain form's answer (the second wins).
  const L::F neg_a = L::fset(-a), lo = L::fset(-40.0f), one = L::fset(1.0f), zero = L::fset(0.0f);
  const L::F c_log2e = L::fset(1.442695f), c_ln2 = L::fset(0.6931472f), c1 = L::fset(1.0000001f),
             c2 = L::fset(0.1666657f), c3 = L::fset(0.5000006f), c4 = L::fset(0.008336937f), c5 = L::fset(0.04165989f),
             c6 = L::fset(0.00019578093f), c7 = L::fset(0.0014122663f);
  int32_t e = 0;
  for (; e + L::n <= m; e += L::n) {
    L::F x, y;
    L::load_xy(in + 2 * e, x, y);
    x = L::fmin(x, one);
    L::F dx = zero, dy = zero;
    for (int32_t i = 0; i < n; ++i) {
      const L::F ex = L::sub(x, L::fset(p[2 * i])), ey = L::sub(y, L::fset(p[2 * i + 1]));
      const L::F t = L::fmax(lo, L::mul(neg_a, L::add(L::mul(ex, ex), L::mul(ey, ey))));
      const L::I k = L::trunc(L::mul(t, c_log2e));
      const L::F f = L::sub(t, L::mul(c_ln2, L::to_f(k))), g = L::mul(f, f);
      const L::F head = L::add(L::add(L::mul(f, c1), one), L::mul(g, L::add(L::mul(f, c2), c3)));
      const L::F tail = L::add(L::add(L::mul(f, c4), c5), L::mul(g, L::add(L::mul(f, c6), c7)));
      const L::F P = L::add(head, L::mul(L::mul(g, g), tail));
      const L::F kv = L::from_bits(L::iadd(L::bits_of(P), L::shl23(k)));
      dx = L::add(dx, L::mul(kv, L::fset(w[2 * i])));
      dy = L::add(dy, L::mul(kv, L::fset(w[2 * i + 1])));
    }
    L::store_xy(out + 2 * e, L::fmin(one, L::fmax(zero, L::add(x, dx))), L::fmin(one, L::fmax(zero, L::add(y, dy))));
  }
  rbf_map_row_plain(out + 2 * e, in + 2 * e, m - e, p, w, n, a);
}

}  // namespace oru
