// General multiply: the record-level entry, the large blocked multiply with packed panels,
// the packers and the tile driver that the im2col convolution shares.
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "kernels/gemm/oru_gemm_kernels.h"
#include "oru_matrix.h"

namespace oru {
namespace {

// Block sizes of the large multiply: rows of A, inner dimension, columns of B.
constexpr int32_t kBlockM = 512;
constexpr int32_t kBlockK = 512;
constexpr int32_t kBlockN = 480;
// The exported any-tile multiply blocks all three dimensions by 512.
constexpr int32_t kBlockAny = 512;

// Panels of mr rows: element (i, l) of the block goes to panel[l * mr + i]; rows past m are zero.
template <typename T>
void pack_a(int32_t m, int32_t k, int32_t mr, const T *a, int64_t rs, int64_t cs, T *dst) {
  for (int32_t i0 = 0; i0 < m; i0 += mr) {
    const int32_t rows = m - i0 < mr ? m - i0 : mr;
    const T *src = a + i0 * rs;
    for (int32_t l = 0; l < k; ++l, dst += mr) {
      int32_t i = 0;
      for (; i < rows; ++i) dst[i] = src[i * rs + l * cs];
      for (; i < mr; ++i) dst[i] = T(0);
    }
  }
}

// Panels of nr columns: element (l, j) goes to panel[l * nr + j]; columns past n are zero.
template <typename T>
void pack_b(int32_t k, int32_t n, int32_t nr, const T *b, int64_t rs, int64_t cs, T *dst) {
  for (int32_t j0 = 0; j0 < n; j0 += nr) {
    const int32_t cols = n - j0 < nr ? n - j0 : nr;
    const T *src = b + j0 * cs;
    for (int32_t l = 0; l < k; ++l, dst += nr) {
      const T *row = src + l * rs;
      int32_t j = 0;
      if (cs == 1)
        for (; j < cols; ++j) dst[j] = row[j];
      else
        for (; j < cols; ++j) dst[j] = row[j * cs];
      for (; j < nr; ++j) dst[j] = T(0);
    }
  }
}

// C (m by n) = beta * C, or cleared for beta 0 so that stale not-a-numbers vanish.
template <typename T>
void scale_rows(int32_t m, int32_t n, T *c, int64_t ldc, T beta) {
  for (int32_t i = 0; i < m; ++i) {
    T *row = c + i * ldc;
    if (beta == T(0))
      std::memset(row, 0, sizeof(T) * size_t(n));
    else if (beta != T(1))
      for (int32_t j = 0; j < n; ++j) row[j] *= beta;
  }
}

// Adds a computed edge tile into the valid part of C with the caller's beta.
template <typename T>
void merge_tile(int32_t rows, int32_t cols, const T *tile, int32_t tile_ld, T *c, int64_t ldc,
                T beta) {
  for (int32_t i = 0; i < rows; ++i) {
    T *ci = c + i * ldc;
    const T *ti = tile + i * tile_ld;
    if (beta == T(0))
      for (int32_t j = 0; j < cols; ++j) ci[j] = ti[j];
    else if (beta == T(1))
      for (int32_t j = 0; j < cols; ++j) ci[j] += ti[j];
    else
      for (int32_t j = 0; j < cols; ++j) ci[j] = beta * ci[j] + ti[j];
  }
}

// Runs the mr by nr tiles of one packed block: whole tiles straight into C, edge tiles through
// `tile` (mr * nr elements) and then merged with the caller's beta. kernel(k, panel_a,
// panel_b, c, ldc, beta) multiplies one tile.
template <typename T, typename Kernel>
void run_tiles(int32_t m, int32_t n, int32_t k, const T *packed_a, const T *packed_b, int32_t mr,
               int32_t nr, T *c, int64_t ldc, T beta, T *tile, Kernel kernel) {
  for (int32_t i = 0; i < m; i += mr) {
    const int32_t rows = m - i < mr ? m - i : mr;
    const T *panel_a = packed_a + int64_t(i) * k;
    for (int32_t j = 0; j < n; j += nr) {
      const int32_t cols = n - j < nr ? n - j : nr;
      const T *panel_b = packed_b + int64_t(j) * k;
      T *ct = c + i * ldc + j;
      if (rows == mr && cols == nr) {
        kernel(k, panel_a, panel_b, ct, ldc, beta);
      } else {
        kernel(k, panel_a, panel_b, tile, nr, T(0));
        merge_tile<T>(rows, cols, tile, nr, ct, ldc, beta);
      }
    }
  }
}

// The loop nest of the large multiply: blocks of bm rows, bk inner and bn columns. A block of
// A is packed once for all blocks of B; later inner blocks add to what the first one left.
// pack_a(i0, l0, mb, kb), pack_b(l0, j0, kb, nb), block(i0, j0, mb, nb, kb, beta).
template <typename T, typename PackA, typename PackB, typename Block>
void for_each_block(int32_t m, int32_t n, int32_t k, int32_t bm, int32_t bk, int32_t bn, T beta,
                    PackA pack_a, PackB pack_b, Block block) {
  for (int32_t i0 = 0; i0 < m; i0 += bm) {
    const int32_t mb = m - i0 < bm ? m - i0 : bm;
    for (int32_t l0 = 0; l0 < k; l0 += bk) {
      const int32_t kb = k - l0 < bk ? k - l0 : bk;
      const T beta_block = l0 == 0 ? beta : T(1);
      pack_a(i0, l0, mb, kb);
      for (int32_t j0 = 0; j0 < n; j0 += bn) {
        const int32_t nb = n - j0 < bn ? n - j0 : bn;
        pack_b(l0, j0, kb, nb);
        block(i0, j0, mb, nb, kb, beta_block);
      }
    }
  }
}

template <typename T, int MR, int NR>
using StridedKernel = void (*)(int32_t, const T *, const T *, T *, int64_t, int64_t, T, T);

template <typename T, int MR, int NR>
bool blocked_strided(int32_t m, int32_t n, int32_t k, const T *a, int64_t rs_a, int64_t cs_a,
                     const T *b, int64_t rs_b, int64_t cs_b, T *c, int64_t ldc, T alpha, T beta,
                     StridedKernel<T, MR, NR> kernel) {
  if (m <= 0 || n <= 0) return true;
  if (alpha == T(0) || k <= 0) {
    scale_rows(m, n, c, ldc, beta);
    return true;
  }
  // Fixed-size panel buffers for A and B, taken once for the whole call as one block: a
  // single block of this size stays with the system allocator between calls, where two
  // separate ones get trimmed and faulted in again every time.
  Scratch<T> panels(int64_t(kBlockM) * kBlockK + int64_t(kBlockN) * kBlockK);
  if (!panels) return false;
  T *const buf_a = panels.get();
  T *const buf_b = buf_a + int64_t(kBlockM) * kBlockK;
  alignas(64) T tile[MR * NR];
  auto strided = [&](int32_t kb, const T *pa, const T *pb, T *ct, int64_t ld, T beta_tile) {
    kernel(kb, pa, pb, ct, ld, 1, alpha, beta_tile);
  };
  for_each_block<T>(
      m, n, k, kBlockM, kBlockK, kBlockN, beta,
      [&](int32_t i0, int32_t l0, int32_t mb, int32_t kb) { pack_a(mb, kb, MR, a + i0 * rs_a + l0 * cs_a, rs_a, cs_a, buf_a); },
      [&](int32_t l0, int32_t j0, int32_t kb, int32_t nb) { pack_b(kb, nb, NR, b + l0 * rs_b + j0 * cs_b, rs_b, cs_b, buf_b); },
      [&](int32_t i0, int32_t j0, int32_t mb, int32_t nb, int32_t kb, T beta_block) {
        run_tiles<T>(mb, nb, kb, buf_a, buf_b, MR, NR, c + i0 * ldc + j0, ldc, beta_block, tile, strided);
      });
  return true;
}

// Checks nothing: the record-level entry has done that.
template <typename T>
void matrix_mul_flat(int32_t ta, int32_t tb, int32_t m, int32_t n, int32_t k, const T *a,
                     int32_t lda, const T *b, int32_t ldb, T *c, int32_t ldc, T alpha, T beta,
                     bool (*blocked)(int32_t, int32_t, int32_t, const T *, int64_t, int64_t,
                                     const T *, int64_t, int64_t, T *, int64_t, T, T)) {
  if (m <= 0 || n <= 0) return;
  if (beta == T(1) && (k <= 0 || alpha == T(0))) return;
  if (alpha == T(0)) {
    scale_rows<T>(m, n, c, ldc, beta);
    return;
  }
  const int64_t rs_a = ta ? 1 : lda, cs_a = ta ? lda : 1;
  const int64_t rs_b = tb ? 1 : ldb, cs_b = tb ? ldb : 1;
  blocked(m, n, k, a, rs_a, cs_a, b, rs_b, cs_b, c, ldc, alpha, beta);
}

}  // namespace

bool blocked_mat_mul_row_major_real32(int32_t m, int32_t n, int32_t k, const float *a, int64_t rs_a,
                                      int64_t cs_a, const float *b, int64_t rs_b, int64_t cs_b,
                                      float *c, int64_t ldc, float alpha, float beta) {
  return blocked_strided<float, 4, 24>(m, n, k, a, rs_a, cs_a, b, rs_b, cs_b, c, ldc, alpha, beta,
                                       tile_4x24_kernel());
}

bool blocked_mat_mul_row_major_real64(int32_t m, int32_t n, int32_t k, const double *a,
                                      int64_t rs_a, int64_t cs_a, const double *b, int64_t rs_b,
                                      int64_t cs_b, double *c, int64_t ldc, double alpha,
                                      double beta) {
  return blocked_strided<double, 4, 12>(m, n, k, a, rs_a, cs_a, b, rs_b, cs_b, c, ldc, alpha,
                                        beta, tile_4x12_kernel());
}

}  // namespace oru

namespace {

// The small path covers 180000 elements of A and B together; the sum wraps as 32 bits do.
constexpr int32_t kSmallPathLimit = 180001;

template <typename T>
const T *cdata(const oru_matrix *m) {
  return static_cast<const T *>(m->data);
}

template <typename T>
int32_t ld_of(const oru_matrix *m) {
  return int32_t(m->stride / int64_t(sizeof(T)));
}

using Small32 = void (*)(const float *, int32_t, int32_t, int32_t, const float *, int32_t, int32_t,
                         float *, int32_t, float, float);
using Small64 = void (*)(const double *, int32_t, int32_t, int32_t, const double *, int32_t,
                         int32_t, double *, int32_t, double, double);

template <typename T, typename Small, typename Large>
void run_mul(oru_matrix *c, const oru_matrix *a, bool ta, const oru_matrix *b, bool tb, T alpha,
             T beta, bool small, const Small (&smalls)[4], Large large) {
  const int32_t lda = ld_of<T>(a), ldb = ld_of<T>(b), ldc = ld_of<T>(c);
  if (small) {
    const int32_t b_free = tb ? b->rows : b->cols;
    smalls[(ta ? 2 : 0) + (tb ? 1 : 0)](cdata<T>(a), a->rows, a->cols, lda, cdata<T>(b), b_free,
                                        ldb, static_cast<T *>(c->data), ldc, alpha, beta);
    return;
  }
  const int32_t m = ta ? a->cols : a->rows;
  const int32_t k = ta ? a->rows : a->cols;
  large(ta, tb, m, c->cols, k, cdata<T>(a), lda, cdata<T>(b), ldb, static_cast<T *>(c->data), ldc,
        alpha, beta);
}

}  // namespace

extern "C" {

ORU_API void oru_matrix_mul_real32(int32_t transpose_a, int32_t transpose_b, int32_t m, int32_t n,
                                   int32_t k, const float *a, int32_t lda, const float *b,
                                   int32_t ldb, float *c, int32_t ldc, float alpha, float beta) {
  oru::matrix_mul_flat<float>(transpose_a, transpose_b, m, n, k, a, lda, b, ldb, c, ldc, alpha,
                              beta, oru::blocked_mat_mul_row_major_real32);
}

ORU_API void oru_matrix_mul_real64(int32_t transpose_a, int32_t transpose_b, int32_t m, int32_t n,
                                   int32_t k, const double *a, int32_t lda, const double *b,
                                   int32_t ldb, double *c, int32_t ldc, double alpha,
                                   double beta) {
  oru::matrix_mul_flat<double>(transpose_a, transpose_b, m, n, k, a, lda, b, ldb, c, ldc, alpha,
                               beta, oru::blocked_mat_mul_row_major_real64);
}

ORU_API uint32_t oru_matrix_mul_add(oru_matrix *c, const oru_matrix *a, int32_t transpose_a,
                                    const oru_matrix *b, int32_t transpose_b, const void *alpha,
                                    const void *beta) {
  if (!c || !a || !b || !alpha || !beta || c->type != a->type || c->type != b->type ||
      oru_data_type_bytes[32 + (c->type & 31)] != 1)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "ORU_RET_ERR_PARA");
  const bool ta = transpose_a != 0, tb = transpose_b != 0;
  const int32_t inner_a = ta ? a->rows : a->cols;
  const int32_t inner_b = tb ? b->cols : b->rows;
  if (inner_a != inner_b) return ORU_RET_ERR_PARA;
  const uint32_t total = uint32_t(a->rows) * uint32_t(a->cols) + uint32_t(b->rows) * uint32_t(b->cols);
  const bool small = int32_t(total) < kSmallPathLimit;
  switch (oru::base_of_code(c->type)) {
    case aif32: {
      static const Small32 smalls[4] = {
          oru_small_matrix_mul_matrix_real32, oru_small_matrix_mul_matrix_t_real32,
          oru_small_matrix_t_mul_matrix_real32, oru_small_matrix_t_mul_matrix_t_real32};
      run_mul<float>(c, a, ta, b, tb, *static_cast<const float *>(alpha),
                     *static_cast<const float *>(beta), small, smalls, oru_matrix_mul_real32);
      return ORU_RET_OK;
    }
    case aif64: {
      static const Small64 smalls[4] = {
          oru_small_matrix_mul_matrix_real64, oru_small_matrix_mul_matrix_t_real64,
          oru_small_matrix_t_mul_matrix_real64, oru_small_matrix_t_mul_matrix_t_real64};
      run_mul<double>(c, a, ta, b, tb, *static_cast<const double *>(alpha),
                      *static_cast<const double *>(beta), small, smalls, oru_matrix_mul_real64);
      return ORU_RET_OK;
    }
    default:
      ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "ORU_RET_ERR_NOT_SUPPORT");
  }
}

ORU_API uint32_t oru_matrix_mul(oru_matrix *c, const oru_matrix *a, int32_t transpose_a,
                                const oru_matrix *b, int32_t transpose_b) {
  // alpha 1 and beta 0 in the matrices' own type; a double of the right width covers both.
  const float one32 = 1.0f, zero32 = 0.0f;
  const double one64 = 1.0, zero64 = 0.0;
  const bool wide = c && oru::base_of_code(c->type) == aif64;
  return oru_matrix_mul_add(c, a, transpose_a, b, transpose_b, wide ? static_cast<const void *>(&one64) : &one32,
                            wide ? static_cast<const void *>(&zero64) : &zero32);
}

ORU_API void copy_a_blocked(int32_t m, int32_t k, int32_t mr, const float *a, int32_t lda,
                            float *destination) {
  oru::pack_a<float>(m, k, mr, a, lda, 1, destination);
}

ORU_API void copy_b_blocked(int32_t k, int32_t n, int32_t nr, const float *b, int32_t ldb,
                            float *destination) {
  oru::pack_b<float>(k, n, nr, b, ldb, 1, destination);
}

ORU_API void mat_mul_kernel_row_major(int32_t m, int32_t n, int32_t k, float *c, int32_t ldc,
                                      const float *packed_a, const float *packed_b, int32_t mr,
                                      int32_t nr, oru_mat_mul_tile_kernel_real32 kernel,
                                      float alpha, float beta) {
  if (m <= 0 || n <= 0 || mr <= 0 || nr <= 0) return;
  // Edge tiles go through a local tile; the usual shapes fit on the stack, others take one
  // buffer for the whole call.
  alignas(64) float local[1024];
  oru::Scratch<float> big;
  float *tile = local;
  if (int64_t(mr) * nr > 1024 && (m % mr || n % nr)) {
    if (!big.reset(int64_t(mr) * nr)) return;
    tile = big.get();
  }
  oru::run_tiles<float>(m, n, k, packed_a, packed_b, mr, nr, c, ldc, beta, tile,
                        [&](int32_t kb, const float *pa, const float *pb, float *ct, int64_t ld, float beta_tile) {
                          kernel(kb, pa, pb, ct, int32_t(ld), alpha, beta_tile);
                        });
}

ORU_API void blocked_mat_mul_row_major_real32(int32_t m, int32_t n, int32_t k, const float *a,
                                              int32_t lda, const float *b, int32_t ldb, float *c,
                                              int32_t ldc, int32_t mr, int32_t nr,
                                              oru_mat_mul_tile_kernel_real32 kernel, float alpha,
                                              float beta) {
  using oru::kBlockAny;
  if (m < 1 || n < 1 || k < 1 || mr < 1 || nr < 1 || !kernel) return;
  // A block rounded up to whole panels when the tile doesn't divide the block.
  const int64_t rows_a = kBlockAny % mr ? kBlockAny + mr - kBlockAny % mr : kBlockAny;
  const int64_t cols_b = kBlockAny % nr ? kBlockAny + nr - kBlockAny % nr : kBlockAny;
  // Both panel buffers in one block, which the system allocator keeps between calls.
  oru::Scratch<float> panels(rows_a * kBlockAny + cols_b * kBlockAny);
  if (!panels) return;
  float *const buf_a = panels.get();
  float *const buf_b = buf_a + rows_a * kBlockAny;
  oru::for_each_block<float>(
      m, n, k, kBlockAny, kBlockAny, kBlockAny, beta,
      [&](int32_t i0, int32_t l0, int32_t mb, int32_t kb) { copy_a_blocked(mb, kb, mr, a + int64_t(i0) * lda + l0, lda, buf_a); },
      [&](int32_t l0, int32_t j0, int32_t kb, int32_t nb) { copy_b_blocked(kb, nb, nr, b + int64_t(l0) * ldb + j0, ldb, buf_b); },
      [&](int32_t i0, int32_t j0, int32_t mb, int32_t nb, int32_t kb, float beta_block) {
        mat_mul_kernel_row_major(mb, nb, kb, c + int64_t(i0) * ldc + j0, ldc, buf_a, buf_b, mr, nr, kernel, alpha,
                                 beta_block);
      });
}

}  // extern "C"
