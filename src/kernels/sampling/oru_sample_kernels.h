// Row kernels of the bilinear sampling operator: the horizontal pass over one input row and
// the vertical blend of two filtered rows. Products and sums stay separate and in the plain
// form's order, so every form gives the same bits.
#ifndef ORU_KERNELS_SAMPLE_KERNELS_H
#define ORU_KERNELS_SAMPLE_KERNELS_H

#include <cstdint>

#include "core/oru_dispatch.h"

namespace oru {

// dst[x] = a[x] * src[ofs[x]] + b[x] * src[ofs[x] + 1] for x below xmax, then src[ofs[x]].
void sample_hrow_plain(float *dst, const float *src, const int32_t *ofs, const float *a, const float *b,
                       int64_t xmax, int64_t n);
void sample_hrow_avx2(float *dst, const float *src, const int32_t *ofs, const float *a, const float *b,
                      int64_t xmax, int64_t n);
void sample_hrow_avx512(float *dst, const float *src, const int32_t *ofs, const float *a, const float *b,
                        int64_t xmax, int64_t n);
void sample_hrow_neon(float *dst, const float *src, const int32_t *ofs, const float *a, const float *b,
                      int64_t xmax, int64_t n);

// dst[x] = w0 * h0[x] + w1 * h1[x].
void sample_vrow_plain(float *dst, const float *h0, const float *h1, float w0, float w1, int64_t n);
void sample_vrow_avx2(float *dst, const float *h0, const float *h1, float w0, float w1, int64_t n);
void sample_vrow_avx512(float *dst, const float *h0, const float *h1, float w0, float w1, int64_t n);
void sample_vrow_neon(float *dst, const float *h0, const float *h1, float w0, float w1, int64_t n);

// dst[x] = src[ofs[x]]: one row of nearest sampling.
void sample_pick_row_plain(float *dst, const float *src, const int32_t *ofs, int64_t n);
void sample_pick_row_avx2(float *dst, const float *src, const int32_t *ofs, int64_t n);
void sample_pick_row_avx512(float *dst, const float *src, const int32_t *ofs, int64_t n);
void sample_pick_row_neon(float *dst, const float *src, const int32_t *ofs, int64_t n);

}  // namespace oru

#endif
