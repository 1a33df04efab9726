// Tile kernels and blocked multiplies behind the general multiply. Each tile kernel has a
// plain form and vector forms of one signature; all of them multiply and add separately and
// sum over l in rising order, so every form gives the same bits.
#ifndef ORU_MATRIX_GEMM_KERNELS_H
#define ORU_MATRIX_GEMM_KERNELS_H

#include <cstdint>

#include "oru_matrix.h"

namespace oru {

// Strided tile kernels of the large multiply: C tile (rows rs_c, columns cs_c elements apart)
// = beta * C + alpha * AB, with AB the product of a packed 4-row panel and a packed panel of B.
using TileStrided32 = void (*)(int32_t k, const float *a, const float *b, float *c, int64_t rs_c,
                               int64_t cs_c, float alpha, float beta);
using TileStrided64 = void (*)(int32_t k, const double *a, const double *b, double *c,
                               int64_t rs_c, int64_t cs_c, double alpha, double beta);

// 4 by 24 floats.
void mat_mul_4xkx24_kernel_plain(int32_t k, const float *a, const float *b, float *c, int64_t rs_c,
                                 int64_t cs_c, float alpha, float beta);
void mat_mul_4xkx24_kernel_avx2(int32_t k, const float *a, const float *b, float *c, int64_t rs_c,
                                int64_t cs_c, float alpha, float beta);
void mat_mul_4xkx24_kernel_avx512(int32_t k, const float *a, const float *b, float *c,
                                  int64_t rs_c, int64_t cs_c, float alpha, float beta);
void mat_mul_4xkx24_kernel_neon(int32_t k, const float *a, const float *b, float *c, int64_t rs_c,
                                int64_t cs_c, float alpha, float beta);

// 4 by 12 doubles.
void mat_mul_4xkx12_kernel_plain(int32_t k, const double *a, const double *b, double *c,
                                 int64_t rs_c, int64_t cs_c, double alpha, double beta);
void mat_mul_4xkx12_kernel_avx2(int32_t k, const double *a, const double *b, double *c,
                                int64_t rs_c, int64_t cs_c, double alpha, double beta);
void mat_mul_4xkx12_kernel_avx512(int32_t k, const double *a, const double *b, double *c,
                                  int64_t rs_c, int64_t cs_c, double alpha, double beta);
void mat_mul_4xkx12_kernel_neon(int32_t k, const double *a, const double *b, double *c,
                                int64_t rs_c, int64_t cs_c, double alpha, double beta);

// Forms of the exported 8 by 8 tile kernel (C = AB or C += AB, alpha unused).
void mat_mul_8xkx8_kernel_plain(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                float alpha, float beta);
void mat_mul_8xkx8_kernel_avx2(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                               float alpha, float beta);
void mat_mul_8xkx8_kernel_avx512(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                 float alpha, float beta);
void mat_mul_8xkx8_kernel_neon(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                               float alpha, float beta);

// Forms of the exported 1 by 16 tile kernel (accumulates straight into c, alpha unused).
void mat_mul_1xkx16_kernel_plain(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                 float alpha, float beta);
void mat_mul_1xkx16_kernel_avx2(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                float alpha, float beta);
void mat_mul_1xkx16_kernel_avx512(int32_t k, const float *a, const float *b, float *c,
                                  int32_t ldc, float alpha, float beta);
void mat_mul_1xkx16_kernel_neon(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                float alpha, float beta);

// The best runnable form of each tile kernel, chosen once. A caller that runs many tiles
// (the im2col convolution) may pass these to mat_mul_kernel_row_major to skip a dispatch per tile.
TileStrided32 tile_4x24_kernel();
TileStrided64 tile_4x12_kernel();
oru_mat_mul_tile_kernel_real32 tile_8x8_kernel();
oru_mat_mul_tile_kernel_real32 tile_1x16_kernel();

// Large multiply with strided operands: element (i, l) of A at a[i * rs_a + l * cs_a], element
// (l, j) of B at b[l * rs_b + j * cs_b]; C row-major with ldc. Blocks of 512 rows, 512 inner,
// 480 columns; 4 by 24 (float) or 4 by 12 (double) tiles. Returns false, C partly updated, when
// the panel buffers can't be had.
bool blocked_mat_mul_row_major_real32(int32_t m, int32_t n, int32_t k, const float *a, int64_t rs_a,
                                      int64_t cs_a, const float *b, int64_t rs_b, int64_t cs_b,
                                      float *c, int64_t ldc, float alpha, float beta);
bool blocked_mat_mul_row_major_real64(int32_t m, int32_t n, int32_t k, const double *a,
                                      int64_t rs_a, int64_t cs_a, const double *b, int64_t rs_b,
                                      int64_t cs_b, double *c, int64_t ldc, double alpha,
                                      double beta);

}  // namespace oru

#endif
