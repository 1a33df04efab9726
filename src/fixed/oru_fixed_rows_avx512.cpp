// AVX-512 forms of the fixed-point row kernels: 512-bit steps of the 1x1 block, the 3x3
// row at stride 1 and the bias tail; stride 2 and the rests through the 256-bit loops
// built with these flags.
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
  int64_t x = 0;
  if (stride == 1) {
    // 32 outputs a step while the loads (columns x to x + 33) stay inside rows of n + 2.
    auto pair = [](int32_t a, int32_t b) {
      return _mm512_set1_epi32(int32_t(uint32_t(uint16_t(a)) | (uint32_t(uint16_t(b)) << 16)));
    };
    const __m512i k[5] = {pair(k9[0], k9[1]), pair(k9[2], k9[3]), pair(k9[4], k9[5]), pair(k9[6], k9[7]),
                          pair(k9[8], 0)};
    const __m512i round = _mm512_set1_epi32(shift > 0 ? int32_t(1u << (shift - 1)) : 0);
    const __m128i s = _mm_cvtsi32_si128(shift);
    const __m512i mask = _mm512_set1_epi32(0xffff), zero = _mm512_setzero_si512();
    for (; x + 32 <= n; x += 32) {
      const int16_t *rows[3] = {r0 + x, r1 + x, r2 + x};
      __m512i a[10];
      for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) a[3 * r + c] = _mm512_loadu_si512(rows[r] + c);
      a[9] = zero;
      __m512i lo = zero, hi = zero;
      for (int t = 0; t < 10; t += 2) {
        lo = _mm512_add_epi32(lo, _mm512_madd_epi16(_mm512_unpacklo_epi16(a[t], a[t + 1]), k[t / 2]));
        hi = _mm512_add_epi32(hi, _mm512_madd_epi16(_mm512_unpackhi_epi16(a[t], a[t + 1]), k[t / 2]));
      }
      lo = _mm512_sra_epi32(_mm512_add_epi32(lo, round), s);
      hi = _mm512_sra_epi32(_mm512_add_epi32(hi, round), s);
      __m512i v = _mm512_packus_epi32(_mm512_and_si512(lo, mask), _mm512_and_si512(hi, mask));
      if (accumulate) v = _mm512_add_epi16(v, _mm512_loadu_si512(out + x));
      _mm512_storeu_si512(out + x, v);
    }
  }
  if (x < n) {
    const int64_t c = x * stride;
    conv3x3_row_x86(out + x, n - x, r0 + c, r1 + c, r2 + c, k9, shift, stride, accumulate);
  }
}

void fx_bias_act_row_avx512(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up,
                            int act, int q_out) {
  const __m512i vb = _mm512_set1_epi32(b), round = _mm512_set1_epi32(down > 0 ? int32_t(1u << (down - 1)) : 0);
  const __m512i three = _mm512_set1_epi32(3 << q_out), six = _mm512_set1_epi32(6 << q_out);
  const __m512i rq = _mm512_set1_epi32(q_out > 0 ? int32_t(1u << (q_out - 1)) : 0), zero = _mm512_setzero_si512();
  const __m128i sx = _mm_cvtsi32_si128(up_x), sd = _mm_cvtsi32_si128(down), su = _mm_cvtsi32_si128(up),
                sq = _mm_cvtsi32_si128(q_out);
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m512i v = _mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(x + i)));
    __m512i t = _mm512_add_epi32(_mm512_sll_epi32(v, sx), vb);
    t = up > 0 ? _mm512_sll_epi32(t, su) : _mm512_sra_epi32(_mm512_add_epi32(t, round), sd);
    if (act == 1) {
      t = _mm512_max_epi32(t, zero);
    } else if (act == 2) {
      const __m512i c = _mm512_min_epi32(_mm512_max_epi32(_mm512_add_epi32(t, three), zero), six);
      const __m512i p = _mm512_sra_epi32(_mm512_add_epi32(_mm512_mullo_epi32(c, t), rq), sq);
      t = _mm512_srai_epi32(_mm512_add_epi32(_mm512_mullo_epi32(p, _mm512_set1_epi32(5461)),
                                             _mm512_set1_epi32(16384)), 15);
    } else if (act == 3) {
      t = _mm512_min_epi32(_mm512_max_epi32(t, zero), six);
    }
    // vpmovdw keeps the low 16 bits of each lane, in order
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(y + i), _mm512_cvtepi32_epi16(t));
  }
  if (i < n) bias_act_row_x86(y + i, x + i, n - i, b, up_x, down, up, act, q_out);
}

}  // namespace oru
