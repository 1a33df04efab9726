// Plain forms of the tile kernels: the reference every vector form must match bit for bit.
#include "kernels/gemm/oru_gemm_kernels.h"

#include "core/oru_dispatch.h"
#include "kernels/gemm/oru_gemm_finish.h"

namespace oru {
namespace {

// AB starts at zero and sums in rising l; C is then scaled (or cleared) and AB added, with
// alpha applied only when it isn't 1, so the vector forms can follow the same steps.
template <typename T, int MR, int NR>
void tile_strided(int32_t k, const T *a, const T *b, T *c, int64_t rs_c, int64_t cs_c, T alpha,
                  T beta) {
  T ab[MR][NR] = {};
  for (int32_t l = 0; l < k; ++l)
    for (int i = 0; i < MR; ++i)
      for (int j = 0; j < NR; ++j) ab[i][j] += a[l * MR + i] * b[l * NR + j];
  simd::finish_strided(c, rs_c, cs_c, ab, alpha, beta);
}

}  // namespace

void mat_mul_4xkx24_kernel_plain(int32_t k, const float *a, const float *b, float *c, int64_t rs_c,
                                 int64_t cs_c, float alpha, float beta) {
  tile_strided<float, 4, 24>(k, a, b, c, rs_c, cs_c, alpha, beta);
}

void mat_mul_4xkx12_kernel_plain(int32_t k, const double *a, const double *b, double *c,
                                 int64_t rs_c, int64_t cs_c, double alpha, double beta) {
  tile_strided<double, 4, 12>(k, a, b, c, rs_c, cs_c, alpha, beta);
}

void mat_mul_8xkx8_kernel_plain(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                float, float beta) {
  float ab[8][8] = {};
  for (int32_t l = 0; l < k; ++l)
    for (int i = 0; i < 8; ++i)
      for (int j = 0; j < 8; ++j) ab[i][j] += a[l * 8 + i] * b[l * 8 + j];
  for (int i = 0; i < 8; ++i) {
    float *ci = c + int64_t(i) * ldc;
    for (int j = 0; j < 8; ++j) {
      if (beta == 0.0f) ci[j] = 0.0f;
      ci[j] += ab[i][j];
    }
  }
}

void mat_mul_1xkx16_kernel_plain(int32_t k, const float *a, const float *b, float *c, int32_t,
                                 float, float beta) {
  if (beta == 0.0f)
    for (int j = 0; j < 16; ++j) c[j] = 0.0f;
  for (int32_t l = 0; l < k; ++l)
    for (int j = 0; j < 16; ++j) c[j] += a[l] * b[l * 16 + j];
}

TileStrided32 tile_4x24_kernel() {
  static const TileStrided32 k = pick(ORU_KERNEL_FORMS(mat_mul_4xkx24_kernel));
  return k;
}

TileStrided64 tile_4x12_kernel() {
  static const TileStrided64 k = pick(ORU_KERNEL_FORMS(mat_mul_4xkx12_kernel));
  return k;
}

oru_mat_mul_tile_kernel_real32 tile_8x8_kernel() {
  static const oru_mat_mul_tile_kernel_real32 k = pick(ORU_KERNEL_FORMS(mat_mul_8xkx8_kernel));
  return k;
}

oru_mat_mul_tile_kernel_real32 tile_1x16_kernel() {
  static const oru_mat_mul_tile_kernel_real32 k = pick(ORU_KERNEL_FORMS(mat_mul_1xkx16_kernel));
  return k;
}

}  // namespace oru

extern "C" {

ORU_API void mat_mul_8xkx8_kernel(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                  float alpha, float beta) {
  oru::tile_8x8_kernel()(k, a, b, c, ldc, alpha, beta);
}

ORU_API void mat_mul_1xkx16_kernel(int32_t k, const float *a, const float *b, float *c,
                                   int32_t ldc, float alpha, float beta) {
  oru::tile_1x16_kernel()(k, a, b, c, ldc, alpha, beta);
}

}  // extern "C"
