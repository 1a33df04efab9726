// Plain forms of the sampling row kernels: the reference for the vector forms.
#include "kernels/sampling/oru_sample_kernels.h"

namespace oru {

void sample_hrow_plain(float *dst, const float *src, const int32_t *ofs, const float *a, const float *b,
                       int64_t xmax, int64_t n) {
  int64_t x = 0;
  for (; x < xmax; ++x) dst[x] = a[x] * src[ofs[x]] + b[x] * src[ofs[x] + 1];
  for (; x < n; ++x) dst[x] = src[ofs[x]];
}

void sample_vrow_plain(float *dst, const float *h0, const float *h1, float w0, float w1, int64_t n) {
  for (int64_t x = 0; x < n; ++x) dst[x] = w0 * h0[x] + w1 * h1[x];
}

void sample_pick_row_plain(float *dst, const float *src, const int32_t *ofs, int64_t n) {
  for (int64_t x = 0; x < n; ++x) dst[x] = src[ofs[x]];
}

}  // namespace oru
