// x86-64 body of the fixed-point row kernels, included by the AVX2 and AVX-512 files (the
// second builds the same 256-bit loops with its own flags). Everything here has internal
// linkage; the plain forms take the tails, so the results are the plain ones bit for bit.
//
// The 32-bit products come from madd over 16-bit pairs: a pair (x, c1) times (w, c2) is
// x * w + c1 * c2, so a product and its rounding term come out of one instruction.
#include <immintrin.h>

namespace {

// low 16 bits of two vectors of 32-bit lanes made by unpacklo / unpackhi, back in order.
inline __m256i low16_in_order(__m256i lo, __m256i hi) {
  const __m256i mask = _mm256_set1_epi32(0xffff);
  return _mm256_packus_epi32(_mm256_and_si256(lo, mask), _mm256_and_si256(hi, mask));
}

inline __m256i pair_of(int32_t a, int32_t b) {
  return _mm256_set1_epi32(int32_t(uint32_t(uint16_t(a)) | (uint32_t(uint16_t(b)) << 16)));
}

template <int OC>
void pointwise_strip(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane, const int16_t *w,
                     int64_t ldw, int64_t ic, __m256i c1, int32_t c2, __m128i shift) {
  __m256i lo[OC], hi[OC];
  for (int o = 0; o < OC; ++o) lo[o] = hi[o] = _mm256_setzero_si256();
  for (int64_t i = 0; i < ic; ++i) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + i * in_plane));
    const __m256i xl = _mm256_unpacklo_epi16(x, c1), xh = _mm256_unpackhi_epi16(x, c1);
    for (int o = 0; o < OC; ++o) {
      const __m256i wo = pair_of(w[o * ldw + i], c2);
      lo[o] = _mm256_add_epi32(lo[o], _mm256_sra_epi32(_mm256_madd_epi16(xl, wo), shift));
      hi[o] = _mm256_add_epi32(hi[o], _mm256_sra_epi32(_mm256_madd_epi16(xh, wo), shift));
    }
  }
  for (int o = 0; o < OC; ++o) {
    __m256i *y = reinterpret_cast<__m256i *>(out + o * out_plane);
    _mm256_storeu_si256(y, _mm256_add_epi16(_mm256_loadu_si256(y), low16_in_order(lo[o], hi[o])));
  }
}

void pointwise_block_x86(int16_t *out, int64_t out_plane, const int16_t *in, int64_t in_plane, const int16_t *w,
                         int64_t ldw, int oc, int64_t ic, int64_t n, int shift) {
  // R = c1 * c2 with both factors in 16 bits: up to a shift of 29.
  if (shift > 29 || oc < 1 || oc > 4 || n < 16) {
    oru::fx_pointwise_block_plain(out, out_plane, in, in_plane, w, ldw, oc, ic, n, shift);
    return;
  }
  const int32_t r = shift > 0 ? int32_t(1u << (shift - 1)) : 0;
  const int32_t c2 = r > (1 << 14) ? (1 << 14) : r;
  const __m256i c1 = _mm256_set1_epi16(int16_t(c2 ? r / c2 : 0));
  const __m128i s = _mm_cvtsi32_si128(shift);
  auto strip = [&](int16_t *y, int64_t y_plane, int64_t p) {
    switch (oc) {
      case 1: pointwise_strip<1>(y, y_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
      case 2: pointwise_strip<2>(y, y_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
      case 3: pointwise_strip<3>(y, y_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
      default: pointwise_strip<4>(y, y_plane, in + p, in_plane, w, ldw, ic, c1, c2, s); break;
    }
  };
  int64_t p = 0;
  for (; p + 16 <= n; p += 16) strip(out + p, out_plane, p);
  if (p < n) {
    // The last 16 pixels once more, into a copy: only the ones not yet done go back.
    const int64_t start = n - 16, done = p - start;
    alignas(32) int16_t tail[4][16];
    for (int o = 0; o < oc; ++o)
      for (int k = 0; k < 16; ++k) tail[o][k] = out[o * out_plane + start + k];
    strip(&tail[0][0], 16, start);
    for (int o = 0; o < oc; ++o)
      for (int64_t k = done; k < 16; ++k) out[o * out_plane + start + k] = tail[o][k];
  }
}

// Sum of the nine taps of 16 outputs at stride 1, as the unpacklo / unpackhi halves.
inline void taps_s1(__m256i &lo, __m256i &hi, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                    const __m256i *k) {
  auto at = [](const int16_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); };
  const __m256i a[9] = {at(r0), at(r0 + 1), at(r0 + 2), at(r1), at(r1 + 1), at(r1 + 2), at(r2), at(r2 + 1), at(r2 + 2)};
  lo = hi = _mm256_setzero_si256();
  for (int t = 0; t < 8; t += 2) {
    lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(a[t], a[t + 1]), k[t / 2]));
    hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(a[t], a[t + 1]), k[t / 2]));
  }
  const __m256i z = _mm256_setzero_si256();
  lo = _mm256_add_epi32(lo, _mm256_madd_epi16(_mm256_unpacklo_epi16(a[8], z), k[4]));
  hi = _mm256_add_epi32(hi, _mm256_madd_epi16(_mm256_unpackhi_epi16(a[8], z), k[4]));
}

// Sum of the nine taps of 8 outputs at stride 2: the pairs (2x, 2x + 1) are neighbours in
// memory, so madd takes them straight from a load; the third tap, 2x + 2, is the second of
// the pair (2x + 1, 2x + 2), whose first takes a zero weight. Reads columns 0 to 16.
inline __m256i taps_s2(const int16_t *r0, const int16_t *r1, const int16_t *r2, const __m256i *k) {
  auto at = [](const int16_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); };
  const int16_t *rows[3] = {r0, r1, r2};
  __m256i acc = _mm256_setzero_si256();
  for (int r = 0; r < 3; ++r) {
    acc = _mm256_add_epi32(acc, _mm256_madd_epi16(at(rows[r]), k[2 * r]));
    acc = _mm256_add_epi32(acc, _mm256_madd_epi16(at(rows[r] + 1), k[2 * r + 1]));
  }
  return acc;
}

// 16 outputs at stride 1 from rows readable for 18 columns.
inline __m256i step_s1(const int16_t *r0, const int16_t *r1, const int16_t *r2, const __m256i *k, __m256i round,
                       __m128i s) {
  __m256i lo, hi;
  taps_s1(lo, hi, r0, r1, r2, k);
  lo = _mm256_sra_epi32(_mm256_add_epi32(lo, round), s);
  hi = _mm256_sra_epi32(_mm256_add_epi32(hi, round), s);
  return low16_in_order(lo, hi);
}

// 8 outputs at stride 2 from rows readable for 17 columns.
inline __m128i step_s2(const int16_t *r0, const int16_t *r1, const int16_t *r2, const __m256i *k, __m256i round,
                       __m128i s) {
  const __m256i t = _mm256_sra_epi32(_mm256_add_epi32(taps_s2(r0, r1, r2, k), round), s);
  const __m256i m = _mm256_and_si256(t, _mm256_set1_epi32(0xffff));
  return _mm_packus_epi32(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
}

void conv3x3_row_x86(int16_t *out, int64_t n, const int16_t *r0, const int16_t *r1, const int16_t *r2,
                     const int16_t *k9, int shift, int stride, bool accumulate) {
  if (stride != 1 && stride != 2) {
    oru::fx_conv3x3_row_plain(out, n, r0, r1, r2, k9, shift, stride, accumulate);
    return;
  }
  const __m128i s = _mm_cvtsi32_si128(shift);
  const __m256i round = _mm256_set1_epi32(shift > 0 ? int32_t(1u << (shift - 1)) : 0);
  const int64_t step = stride == 1 ? 16 : 8;
  // A full step reads columns up to x + 17 (stride 1) or 2x + 16 (stride 2): inside rows of
  // n + 2 or 2n + 1 while x + 16 <= n, or x + 8 <= n.
  const int64_t full = stride == 1 ? n - 15 : n - 7;
  const __m256i k1[5] = {pair_of(k9[0], k9[1]), pair_of(k9[2], k9[3]), pair_of(k9[4], k9[5]),
                         pair_of(k9[6], k9[7]), pair_of(k9[8], 0)};
  const __m256i k2[6] = {pair_of(k9[0], k9[1]), pair_of(0, k9[2]), pair_of(k9[3], k9[4]),
                         pair_of(0, k9[5]),     pair_of(k9[6], k9[7]), pair_of(0, k9[8])};
  // One step at x, from rows a0..a2, into y (which holds the old outputs when accumulating).
  auto one_step = [&](int16_t *y, const int16_t *a0, const int16_t *a1, const int16_t *a2) {
    if (stride == 1) {
      __m256i v = step_s1(a0, a1, a2, k1, round, s);
      __m256i *p = reinterpret_cast<__m256i *>(y);
      if (accumulate) v = _mm256_add_epi16(v, _mm256_loadu_si256(p));
      _mm256_storeu_si256(p, v);
    } else {
      __m128i v = step_s2(a0, a1, a2, k2, round, s);
      __m128i *p = reinterpret_cast<__m128i *>(y);
      if (accumulate) v = _mm_add_epi16(v, _mm_loadu_si128(p));
      _mm_storeu_si128(p, v);
    }
  };
  int64_t x = 0;
  for (; x < full; x += step) {
    const int64_t c = x * stride;
    one_step(out + x, r0 + c, r1 + c, r2 + c);
  }
  if (x < n) {
    // The rest through zero-filled copies of the rows' ends and of the outputs.
    const int64_t m = n - x, c = x * stride, cols = (m - 1) * stride + 3;
    alignas(32) int16_t rows[3][48] = {}, y[16] = {};
    const int16_t *src[3] = {r0 + c, r1 + c, r2 + c};
    for (int r = 0; r < 3; ++r)
      for (int64_t j = 0; j < cols; ++j) rows[r][j] = src[r][j];
    for (int64_t j = 0; j < m; ++j) y[j] = out[x + j];
    one_step(y, rows[0], rows[1], rows[2]);
    for (int64_t j = 0; j < m; ++j) out[x + j] = y[j];
  }
}

// 8 lanes of the bias tail.
inline __m256i bias_act8(__m256i x, __m256i b, __m128i up_x, __m128i down, __m128i up, bool left, __m256i round,
                         int act, __m256i three, __m256i six, __m256i rq, __m128i q) {
  __m256i t = _mm256_add_epi32(_mm256_sll_epi32(x, up_x), b);
  t = left ? _mm256_sll_epi32(t, up) : _mm256_sra_epi32(_mm256_add_epi32(t, round), down);
  const __m256i zero = _mm256_setzero_si256();
  if (act == 1) {
    t = _mm256_max_epi32(t, zero);
  } else if (act == 2) {
    const __m256i c = _mm256_min_epi32(_mm256_max_epi32(_mm256_add_epi32(t, three), zero), six);
    const __m256i p = _mm256_sra_epi32(_mm256_add_epi32(_mm256_mullo_epi32(c, t), rq), q);
    t = _mm256_srai_epi32(_mm256_add_epi32(_mm256_mullo_epi32(p, _mm256_set1_epi32(5461)), _mm256_set1_epi32(16384)),
                          15);
  } else if (act == 3) {
    t = _mm256_min_epi32(_mm256_max_epi32(t, zero), six);
  }
  return t;
}

void bias_act_row_x86(int16_t *y, const int16_t *x, int64_t n, int32_t b, int up_x, int down, int up, int act,
                      int q_out) {
  const __m256i vb = _mm256_set1_epi32(b), round = _mm256_set1_epi32(down > 0 ? int32_t(1u << (down - 1)) : 0);
  const __m256i three = _mm256_set1_epi32(3 << q_out), six = _mm256_set1_epi32(6 << q_out);
  const __m256i rq = _mm256_set1_epi32(q_out > 0 ? int32_t(1u << (q_out - 1)) : 0);
  const __m128i sx = _mm_cvtsi32_si128(up_x), sd = _mm_cvtsi32_si128(down), su = _mm_cvtsi32_si128(up),
                sq = _mm_cvtsi32_si128(q_out);
  const bool left = up > 0;
  auto step = [&](int16_t *dst, const int16_t *src) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src));
    const __m256i lo = bias_act8(_mm256_cvtepi16_epi32(_mm256_castsi256_si128(v)), vb, sx, sd, su, left, round, act,
                                 three, six, rq, sq);
    const __m256i hi = bias_act8(_mm256_cvtepi16_epi32(_mm256_extracti128_si256(v, 1)), vb, sx, sd, su, left, round,
                                 act, three, six, rq, sq);
    const __m256i mask = _mm256_set1_epi32(0xffff);
    const __m256i packed = _mm256_packus_epi32(_mm256_and_si256(lo, mask), _mm256_and_si256(hi, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst), _mm256_permute4x64_epi64(packed, 0xd8));
  };
  int64_t i = 0;
  for (; i + 16 <= n; i += 16) step(y + i, x + i);
  if (i < n) {
    alignas(32) int16_t tail[16] = {};
    for (int64_t j = i; j < n; ++j) tail[j - i] = x[j];
    step(tail, tail);
    for (int64_t j = i; j < n; ++j) y[j] = tail[j - i];
  }
}

}  // namespace
