// AVX-512 forms of the fixed-point row kernels: the 1x1 block in 512-bit strips of 32
// pixels, the rest through the 256-bit loops built with these flags.
// GCC 12 flags the deliberately undefined pass-through operand inside its own AVX-512 headers.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include "fixed/oru_fixed_internal.h"
#include "fixed/oru_fixed_rows_x86.inl"

namespace oru {
namespace {

template <int OC>
void pointwise_strip512(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane, const int16_t *w,
                        int64_t ldw, int64_t ic, __m512i c1, int32_t c2, __m128i shift) {
  __m512i lo[OC], hi[OC];
  for (int o = 0; o < OC; ++o) lo[o] = hi[o] = _mm512_setzero_si512();
  for (int64_t i = 0; i < ic; ++i) {
    const __m512i x = _mm512_loadu_si512(in + i * in_plane);
    const __m512i xl = _mm512_unpacklo_epi16(x, c1), xh = _mm512_unpackhi_epi16(x, c1);
    for (int o = 0; o < OC; ++o) {
      const __m512i wo = _mm512_set1_epi32(int32_t(uint32_t(uint16_t(w[o * ldw + i])) | (uint32_t(uint16_t(c2)) << 16)));
      lo[o] = _mm512_add_epi32(lo[o], _mm512_sra_epi32(_mm512_madd_epi16(xl, wo), shift));
      hi[o] = _mm512_add_epi32(hi[o], _mm512_sra_epi32(_mm512_madd_epi16(xh, wo), shift));
    }
  }
  const __m512i mask = _mm512_set1_epi32(0xffff);
  for (int o = 0; o < OC; ++o) {
    int16_t *y = out + o * out_plane;
    // unpack and pack both work within 128-bit lanes, so the pixels come back in order
    const __m512i sum = _mm512_packus_epi32(_mm512_and_si512(lo[o], mask), _mm512_and_si512(hi[o], mask));
    _mm512_storeu_si512(y, _mm512_add_epi16(_mm512_loadu_si512(y), sum));
  }
}

}  // namespace

void fx_pointwise_block_avx512(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane,
                               const int16_t *w, int64_t ldw, int oc, int64_t ic, int64_t n, int shift) {
  int64_t p = 0;
  if (shift <= 29 && oc >= 1 && oc <= 4) {
    const int32_t r = shift > 0 ? int32_t(1u << (shift - 1)) : 0;
    const int32_t c2 = r > (1 << 14) ? (1 << 14) : r;
    const __m512i c1 = _mm512_set1_epi16(int16_t(c2 ? r / c2 : 0));
    const __m128i s = _mm_cvtsi32_si128(shift);
    for (; p + 32 <= n; p += 32) {
      switch (oc) {
        case 1: pointwise_strip512<1>(out + p, out_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
        case 2: pointwise_strip512<2>(out + p, out_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
        case 3: pointwise_strip512<3>(out + p, out_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
        default: pointwise_strip512<4>(out + p, out_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
      }
    }
    // The rest, of fewer than 32 pixels, in 256-bit strips when there are 16 pixels to
    // overlap with (the 256-bit body takes its tail from the pixels before it).
    if (p < n && n >= 16) {
      const int64_t start = n - p >= 16 ? p : n - 16;
      const int64_t done = p - start;
      if (done == 0) {
        pointwise_block_x86(out + p, out_plane, in + p, in_plane, w, ldw, oc, ic, n - p, shift);
      } else {
        alignas(32) int16_t tail[4][16];
        for (int o = 0; o < oc; ++o)
          for (int k = 0; k < 16; ++k) tail[o][k] = out[o * out_plane + start + k];
        pointwise_block_x86(&tail[0][0], 16, in + start, in_plane, w, ldw, oc, ic, 16, shift);
        for (int o = 0; o < oc; ++o)
          for (int64_t k = done; k < 16; ++k) out[o * out_plane + start + k] = tail[o][k];
      }
      return;
    }
  }
  if (p < n) pointwise_block_x86(out + p, out_plane, in + p, in_plane, w, ldw, oc, ic, n - p, shift);
}

void fx_conv3x3_row_avx512(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                           const int16_t *k9, int shift, int stride, bool accumulate) {
  conv3x3_row_x86(out, n, r0, r1, r2, k9, shift, stride, accumulate);
}

void fx_bias_act_row_avx512(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up,
                            int act, int q_out) {
  bias_act_row_x86(y, x, n, b, up_x, down, up, act, q_out);
}

}  // namespace oru
