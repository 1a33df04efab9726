// x86-64 bodies of the image row kernels, shared by the AVX2 and AVX-512 files
// (each compiles them with its own flags). Included once per file, after defining
// ORU_FORM(name) to the form's suffixed name. The arithmetic is the plain form's:
// a*(2048 - w) + b*w equals (a << 11) + (b - a)*w exactly, so madd pairs can carry it.
#include <immintrin.h>

#include <cstring>

#include "image/oru_image_kernels.h"

namespace oru {
namespace {

// pshufb masks that split 48 interleaved bytes into three planes and join them back.
struct ShuffleMasks {
  int8_t split[3][3][16];  // [channel][source vector][byte]
  int8_t join[3][3][16];   // [output vector][channel][byte]
  constexpr ShuffleMasks() : split(), join() {
    for (int c = 0; c < 3; ++c)
      for (int v = 0; v < 3; ++v)
        for (int i = 0; i < 16; ++i) {
          const int src = 3 * i + c;  // byte of pixel i, channel c
          split[c][v][i] = int8_t(src / 16 == v ? src % 16 : -128);
          const int out = 16 * v + i;  // output byte
          join[v][c][i] = int8_t(out % 3 == c ? out / 3 : -128);
        }
  }
};
constexpr ShuffleMasks kMasks;

inline __m128i mask(const int8_t *m) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(m)); }

inline void split3(const uint8_t *p, __m128i out[3]) {
  const __m128i v[3] = {_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)),
                        _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16)),
                        _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 32))};
  for (int c = 0; c < 3; ++c)
    out[c] = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(v[0], mask(kMasks.split[c][0])),
                                       _mm_shuffle_epi8(v[1], mask(kMasks.split[c][1]))),
                          _mm_shuffle_epi8(v[2], mask(kMasks.split[c][2])));
}

inline void join3(uint8_t *p, const __m128i in[3]) {
  for (int v = 0; v < 3; ++v) {
    const __m128i o = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(in[0], mask(kMasks.join[v][0])),
                                                _mm_shuffle_epi8(in[1], mask(kMasks.join[v][1]))),
                                   _mm_shuffle_epi8(in[2], mask(kMasks.join[v][2])));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p + 16 * v), o);
  }
}

// 16 int32 in two registers (lanes [0-3|8-11] and [4-7|12-15]) to 16 bytes in order, saturated.
inline __m128i pack_u8(__m256i lo, __m256i hi) {
  const __m256i w = _mm256_packs_epi32(lo, hi);
  const __m256i b = _mm256_permute4x64_epi64(_mm256_packus_epi16(w, w), 0xD8);
  return _mm256_castsi256_si128(b);
}

inline __m256i pair(int16_t a, int16_t b) {
  return _mm256_set1_epi32(int32_t(uint32_t(uint16_t(a)) | (uint32_t(uint16_t(b)) << 16)));
}

}  // namespace

void ORU_FORM(bgr_to_gray_row)(uint8_t *dst, const uint8_t *bgr, int32_t n) {
  const __m256i wbg = pair(1868, 9617), wr1 = pair(4899, 8192), one = _mm256_set1_epi16(1);
  int32_t x = 0;
  for (; x + 16 <= n; x += 16) {
    __m128i c[3];
    split3(bgr + 3 * x, c);
    const __m256i b = _mm256_cvtepu8_epi16(c[0]), g = _mm256_cvtepu8_epi16(c[1]), r = _mm256_cvtepu8_epi16(c[2]);
    const __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(b, g), wbg),
                                        _mm256_madd_epi16(_mm256_unpacklo_epi16(r, one), wr1));
    const __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(b, g), wbg),
                                        _mm256_madd_epi16(_mm256_unpackhi_epi16(r, one), wr1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + x),
                     pack_u8(_mm256_srli_epi32(lo, 14), _mm256_srli_epi32(hi, 14)));
  }
  bgr_to_gray_row_plain(dst + x, bgr + 3 * x, n - x);
}

void ORU_FORM(yuv420_to_bgr_rows)(uint8_t *d0, uint8_t *d1, const uint8_t *y0, const uint8_t *y1,
                                  const uint8_t *u, const uint8_t *v, int32_t n) {
  const __m256i wb = pair(9535, 16531), wg = pair(9535, -3203), wgv = pair(-6660, 0), wr = pair(9535, 13074);
  const __m256i bias = _mm256_set1_epi32(4096 - 152560), c128 = _mm256_set1_epi16(128), zero = _mm256_setzero_si256();
  int32_t x = 0;
  for (; x + 16 <= n; x += 16) {
    const __m128i u8 = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(u + (x >> 1)));
    const __m128i v8 = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(v + (x >> 1)));
    const __m256i uu = _mm256_sub_epi16(_mm256_cvtepu8_epi16(_mm_unpacklo_epi8(u8, u8)), c128);
    const __m256i vv = _mm256_sub_epi16(_mm256_cvtepu8_epi16(_mm_unpacklo_epi8(v8, v8)), c128);
    const __m256i v0lo = _mm256_unpacklo_epi16(vv, zero), v0hi = _mm256_unpackhi_epi16(vv, zero);
    const uint8_t *ys[2] = {y0, y1};
    uint8_t *ds[2] = {d0, d1};
    for (int r = 0; r < 2; ++r) {
      const __m256i yy = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(ys[r] + x)));
      const __m256i yulo = _mm256_unpacklo_epi16(yy, uu), yuhi = _mm256_unpackhi_epi16(yy, uu);
      const __m256i yvlo = _mm256_unpacklo_epi16(yy, vv), yvhi = _mm256_unpackhi_epi16(yy, vv);
      auto fin = [&](__m256i s) { return _mm256_srai_epi32(_mm256_add_epi32(s, bias), 13); };
      __m128i c[3];
      c[0] = pack_u8(fin(_mm256_madd_epi16(yulo, wb)), fin(_mm256_madd_epi16(yuhi, wb)));
      c[1] = pack_u8(fin(_mm256_add_epi32(_mm256_madd_epi16(yulo, wg), _mm256_madd_epi16(v0lo, wgv))),
                     fin(_mm256_add_epi32(_mm256_madd_epi16(yuhi, wg), _mm256_madd_epi16(v0hi, wgv))));
      c[2] = pack_u8(fin(_mm256_madd_epi16(yvlo, wr)), fin(_mm256_madd_epi16(yvhi, wr)));
      join3(ds[r] + 3 * x, c);
    }
  }
  yuv420_to_bgr_rows_plain(d0 + 3 * x, d1 + 3 * x, y0 + x, y1 + x, u + (x >> 1), v + (x >> 1), n - x);
}

void ORU_FORM(bilinear_horizontal_c3)(uint8_t *out, const uint8_t *s, const int32_t *off, const int32_t *wexp,
                                      int32_t n) {
  // Four pixels a step. An 8-byte load two bytes before p holds p0 p1 p2 q0 q1 q2 at
  // bytes 2 to 7 and never reaches past q; the shuffle makes (p, q) 16-bit pairs for
  // one madd with the weight pairs. Loads avoid gathers, which are slow on some cores.
  const __m128i pairs = _mm_setr_epi8(2, 5, 3, 6, 4, 7, 10, 13, 11, 14, 12, 15, -1, -1, -1, -1);
  const __m128i order = _mm_setr_epi8(0, 1, 2, 3, 8, 9, 4, 5, 6, 7, 12, 13, -1, -1, -1, -1);
  const __m256i half = _mm256_set1_epi32(1024);
  auto two = [&](int32_t a, int32_t b) {
    const __m128i lo = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(s + a - 2));
    const __m128d both = _mm_loadh_pd(_mm_castsi128_pd(lo), reinterpret_cast<const double *>(s + b - 2));
    return _mm256_cvtepu8_epi16(_mm_shuffle_epi8(_mm_castpd_si128(both), pairs));
  };
  int32_t x = 0;
  for (; x + 4 <= n; x += 4) {
    const int32_t *o = off + x;
    if (o[0] < 2 || o[1] < 2 || o[2] < 2 || o[3] < 2) {
      bilinear_horizontal_c3_plain(out + 3 * x, s, o, wexp + 3 * x, 4);
      continue;
    }
    const __m256i wab = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(wexp + 3 * x));
    const __m256i wcd = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(wexp + 3 * x + 6));
    const __m256i rab = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(two(o[0], o[1]), wab), half), 11);
    const __m256i rcd = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(two(o[2], o[3]), wcd), half), 11);
    // Lanes: A0 A1 A2 B0 C0 C1 C2 D0 | B1 B2 - - D1 D2 - -, then the twelve bytes in order.
    const __m256i words = _mm256_packs_epi32(rab, rcd);
    const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0x08);
    const __m128i res = _mm_shuffle_epi8(_mm256_castsi256_si128(bytes), order);
    uint8_t *d = out + 3 * x;
    _mm_storel_epi64(reinterpret_cast<__m128i *>(d), res);
    const int32_t tail = _mm_extract_epi32(res, 2);
    std::memcpy(d + 8, &tail, 4);
  }
  bilinear_horizontal_c3_plain(out + 3 * x, s, off + x, wexp + 3 * x, n - x);
}

void ORU_FORM(box2_row_c1)(uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n) {
  const __m256i ones = _mm256_set1_epi8(1), two = _mm256_set1_epi16(2);
  int32_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i s[2];
    for (int h = 0; h < 2; ++h) {
      const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r0 + 2 * i + 32 * h));
      const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(r1 + 2 * i + 32 * h));
      s[h] = _mm256_srli_epi16(
          _mm256_add_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(a, ones), _mm256_maddubs_epi16(b, ones)), two), 2);
    }
    const __m256i p = _mm256_permute4x64_epi64(_mm256_packus_epi16(s[0], s[1]), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i), p);
  }
  box2_row_c1_plain(dst + i, r0 + 2 * i, r1 + 2 * i, n - i);
}

void ORU_FORM(box2_row_c3)(uint8_t *dst, const uint8_t *r0, const uint8_t *r1, int32_t n) {
  // 32 source pixels of each row make 16 destination pixels (48 bytes).
  const __m128i ones = _mm_set1_epi8(1), two = _mm_set1_epi16(2);
  int32_t i = 0;
  for (; i + 48 <= n; i += 48) {
    const int32_t s = 2 * i;
    __m128i a0[3], a1[3], b0[3], b1[3], out[3];
    split3(r0 + s, a0);
    split3(r0 + s + 48, a1);
    split3(r1 + s, b0);
    split3(r1 + s + 48, b1);
    for (int c = 0; c < 3; ++c) {
      const __m128i lo = _mm_srli_epi16(
          _mm_add_epi16(_mm_add_epi16(_mm_maddubs_epi16(a0[c], ones), _mm_maddubs_epi16(b0[c], ones)), two), 2);
      const __m128i hi = _mm_srli_epi16(
          _mm_add_epi16(_mm_add_epi16(_mm_maddubs_epi16(a1[c], ones), _mm_maddubs_epi16(b1[c], ones)), two), 2);
      out[c] = _mm_packus_epi16(lo, hi);
    }
    join3(dst + i, out);
  }
  box2_row_c3_plain(dst + i, r0 + 2 * i, r1 + 2 * i, n - i);
}

#ifndef ORU_X86_WIDE_VERTICAL
void ORU_FORM(bilinear_vertical_row)(uint8_t *dst, const uint8_t *a, const uint8_t *b, int32_t wy, int32_t n) {
  const __m256i w = pair(int16_t(2048 - wy), int16_t(wy)), half = _mm256_set1_epi32(1024);
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m256i va = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(a + i)));
    const __m256i vb = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(b + i)));
    const __m256i lo = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(va, vb), w), half), 11);
    const __m256i hi = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(va, vb), w), half), 11);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i), pack_u8(lo, hi));
  }
  bilinear_vertical_row_plain(dst + i, a + i, b + i, wy, n - i);
}
#endif

}  // namespace oru
