// The sampling row kernels written once over a vector type V with a gather; each vector
// file instantiates them with its own V (internal to that file).
#ifndef ORU_KERNELS_SAMPLE_KERNELS_SIMD_H
#define ORU_KERNELS_SAMPLE_KERNELS_SIMD_H

#include "kernels/sampling/oru_sample_kernels.h"

namespace {

template <class V>
void sample_hrow_t(float *dst, const float *src, const int32_t *ofs, const float *a, const float *b, int64_t xmax,
                   int64_t n) {
  int64_t x = 0;
  for (; x + V::W <= xmax; x += V::W) {
    const typename V::I idx = V::load_index(ofs + x);
    const typename V::T p0 = V::gather(src, idx), p1 = V::gather(src + 1, idx);
    V::store(dst + x, V::add(V::mul(V::load(a + x), p0), V::mul(V::load(b + x), p1)));
  }
  for (; x + V::W <= n && x >= xmax; x += V::W) V::store(dst + x, V::gather(src, V::load_index(ofs + x)));
  if (x < n) {
    const int64_t done = x;
    oru::sample_hrow_plain(dst + done, src, ofs + done, a + done, b + done, xmax > done ? xmax - done : 0, n - done);
  }
}

template <class V>
void sample_pick_row_t(float *dst, const float *src, const int32_t *ofs, int64_t n) {
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) V::store(dst + x, V::gather(src, V::load_index(ofs + x)));
  if (x < n) oru::sample_pick_row_plain(dst + x, src, ofs + x, n - x);
}

template <class V>
void sample_vrow_t(float *dst, const float *h0, const float *h1, float w0, float w1, int64_t n) {
  const typename V::T a = V::set1(w0), b = V::set1(w1);
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) V::store(dst + x, V::add(V::mul(a, V::load(h0 + x)), V::mul(b, V::load(h1 + x))));
  if (x < n) oru::sample_vrow_plain(dst + x, h0 + x, h1 + x, w0, w1, n - x);
}

}  // namespace

#define ORU_SAMPLE_FORMS(suffix, V)                                                                            \
  namespace oru {                                                                                              \
  void sample_hrow_##suffix(float *dst, const float *src, const int32_t *ofs, const float *a, const float *b,   \
                            int64_t xmax, int64_t n) {                                                         \
    sample_hrow_t<V>(dst, src, ofs, a, b, xmax, n);                                                            \
  }                                                                                                            \
  void sample_vrow_##suffix(float *dst, const float *h0, const float *h1, float w0, float w1, int64_t n) {      \
    sample_vrow_t<V>(dst, h0, h1, w0, w1, n);                                                                  \
  }                                                                                                            \
  void sample_pick_row_##suffix(float *dst, const float *src, const int32_t *ofs, int64_t n) {                 \
    sample_pick_row_t<V>(dst, src, ofs, n);                                                                    \
  }                                                                                                            \
  }

#endif
