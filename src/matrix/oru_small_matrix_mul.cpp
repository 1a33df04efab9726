// Small products without packing: row updates when B is read by rows, register dot products
// when B is transposed and its rows are the contiguous operand.
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_matrix.h"

namespace oru {
namespace {

// beta 0 clears instead of multiplying, so not-a-number values in C vanish.
template <typename T>
inline void apply_beta(T *row, int32_t n, T beta) {
  if (beta == T(0))
    std::memset(row, 0, sizeof(T) * size_t(n));
  else if (beta != T(1))
    for (int32_t j = 0; j < n; ++j) row[j] *= beta;
}

// C (m by n) = alpha op(A) B + beta C, four rows at a time; op(A)[i][l] = a[i * ra + l * ca].
// The coefficient alpha * op(A)[i][l] is formed once, then row l of B is added to row i of C.
// Rows of C may overlap through a small ldc, so each row is updated by its own loop.
template <typename T>
void row_update(const T *a, int64_t ra, int64_t ca, int32_t m, int32_t k, const T *b, int32_t n,
                int64_t ldb, T *c, int64_t ldc, T alpha, T beta) {
  auto coef = [&](int32_t i, int32_t l) {
    const T v = a[i * ra + l * ca];
    return alpha == T(1) ? v : alpha * v;
  };
  auto axpy2 = [n](T *ci, T x0, const T *b0, T x1, const T *b1) {
    for (int32_t j = 0; j < n; ++j) {
      const T t = ci[j] + x0 * b0[j];
      ci[j] = t + x1 * b1[j];
    }
  };
  auto axpy1 = [n](T *ci, T x0, const T *b0) {
    for (int32_t j = 0; j < n; ++j) ci[j] += x0 * b0[j];
  };
  int32_t i = 0;
  for (; i + 4 <= m; i += 4) {
    for (int r = 0; r < 4; ++r) apply_beta(c + (i + r) * ldc, n, beta);
    int32_t l = 0;
    for (; l + 2 <= k; l += 2) {
      const T *b0 = b + l * ldb, *b1 = b0 + ldb;
      for (int r = 0; r < 4; ++r) axpy2(c + (i + r) * ldc, coef(i + r, l), b0, coef(i + r, l + 1), b1);
    }
    if (l < k)
      for (int r = 0; r < 4; ++r) axpy1(c + (i + r) * ldc, coef(i + r, l), b + l * ldb);
  }
  for (; i < m; ++i) {
    T *ci = c + i * ldc;
    apply_beta(ci, n, beta);
    int32_t l = 0;
    for (; l + 2 <= k; l += 2) axpy2(ci, coef(i, l), b + l * ldb, coef(i, l + 1), b + (l + 1) * ldb);
    if (l < k) axpy1(ci, coef(i, l), b + l * ldb);
  }
}

// alpha meets the finished sum; beta 0 doesn't read C.
template <typename T>
inline void store_dot(T &c, T s, T alpha, T beta) {
  c = beta == T(0) ? alpha * s : alpha * s + beta * c;
}

// C = alpha A B^T + beta C: tiles of 4 rows by 2 columns, eight sums in registers.
template <typename T>
void a_bt(const T *a, int32_t m, int32_t k, int64_t lda, const T *b, int32_t n, int64_t ldb, T *c,
          int64_t ldc, T alpha, T beta) {
  int32_t i = 0;
  for (; i + 4 <= m; i += 4) {
    const T *a0 = a + i * lda, *a1 = a0 + lda, *a2 = a1 + lda, *a3 = a2 + lda;
    int32_t j = 0;
    for (; j + 2 <= n; j += 2) {
      const T *b0 = b + j * ldb, *b1 = b0 + ldb;
      T s00 = 0, s01 = 0, s10 = 0, s11 = 0, s20 = 0, s21 = 0, s30 = 0, s31 = 0;
      for (int32_t l = 0; l < k; ++l) {
        const T x0 = b0[l], x1 = b1[l];
        s00 += a0[l] * x0; s01 += a0[l] * x1;
        s10 += a1[l] * x0; s11 += a1[l] * x1;
        s20 += a2[l] * x0; s21 += a2[l] * x1;
        s30 += a3[l] * x0; s31 += a3[l] * x1;
      }
      T *ct = c + i * ldc + j;
      store_dot(ct[0], s00, alpha, beta); store_dot(ct[1], s01, alpha, beta);
      store_dot(ct[ldc], s10, alpha, beta); store_dot(ct[ldc + 1], s11, alpha, beta);
      store_dot(ct[2 * ldc], s20, alpha, beta); store_dot(ct[2 * ldc + 1], s21, alpha, beta);
      store_dot(ct[3 * ldc], s30, alpha, beta); store_dot(ct[3 * ldc + 1], s31, alpha, beta);
    }
    for (; j < n; ++j) {
      const T *b0 = b + j * ldb;
      T s0 = 0, s1 = 0, s2 = 0, s3 = 0;
      for (int32_t l = 0; l < k; ++l) {
        s0 += a0[l] * b0[l]; s1 += a1[l] * b0[l];
        s2 += a2[l] * b0[l]; s3 += a3[l] * b0[l];
      }
      T *ct = c + i * ldc + j;
      store_dot(ct[0], s0, alpha, beta); store_dot(ct[ldc], s1, alpha, beta);
      store_dot(ct[2 * ldc], s2, alpha, beta); store_dot(ct[3 * ldc], s3, alpha, beta);
    }
  }
  for (; i < m; ++i) {
    const T *ai = a + i * lda;
    for (int32_t j = 0; j < n; ++j) {
      const T *bj = b + j * ldb;
      T s = 0;
      for (int32_t l = 0; l < k; ++l) s += ai[l] * bj[l];
      store_dot(c[i * ldc + j], s, alpha, beta);
    }
  }
}

// C = alpha A^T B^T + beta C. Columns of A are strided, so eight of them at a time are first
// copied side by side into scratch; then tiles of 8 rows by 2 columns keep 16 sums.
template <typename T>
void at_bt(const T *a, int32_t m, int32_t k, int64_t lda, const T *b, int32_t n, int64_t ldb, T *c,
           int64_t ldc, T alpha, T beta) {
  Scratch<T> buf(int64_t(k > 0 ? k : 1) * 8);
  if (!buf) {
    ORU_REPORT("memory error!");
    return;
  }
  T *p = buf.get();
  int32_t i = 0;
  for (; i + 8 <= m; i += 8) {
    for (int32_t l = 0; l < k; ++l)
      for (int t = 0; t < 8; ++t) p[l * 8 + t] = a[l * lda + i + t];
    int32_t j = 0;
    for (; j + 2 <= n; j += 2) {
      const T *b0 = b + j * ldb, *b1 = b0 + ldb;
      T s0[8] = {}, s1[8] = {};
      for (int32_t l = 0; l < k; ++l) {
        const T x0 = b0[l], x1 = b1[l];
        for (int t = 0; t < 8; ++t) {
          s0[t] += p[l * 8 + t] * x0;
          s1[t] += p[l * 8 + t] * x1;
        }
      }
      for (int t = 0; t < 8; ++t) {
        store_dot(c[(i + t) * ldc + j], s0[t], alpha, beta);
        store_dot(c[(i + t) * ldc + j + 1], s1[t], alpha, beta);
      }
    }
    for (; j < n; ++j) {
      const T *b0 = b + j * ldb;
      T s0[8] = {};
      for (int32_t l = 0; l < k; ++l)
        for (int t = 0; t < 8; ++t) s0[t] += p[l * 8 + t] * b0[l];
      for (int t = 0; t < 8; ++t) store_dot(c[(i + t) * ldc + j], s0[t], alpha, beta);
    }
  }
  for (; i < m; ++i) {
    for (int32_t l = 0; l < k; ++l) p[l] = a[l * lda + i];
    for (int32_t j = 0; j < n; ++j) {
      const T *bj = b + j * ldb;
      T s = 0;
      for (int32_t l = 0; l < k; ++l) s += p[l] * bj[l];
      store_dot(c[i * ldc + j], s, alpha, beta);
    }
  }
}

}  // namespace
}  // namespace oru

#define ORU_SMALL_MUL(T, SUFFIX)                                                                 \
  ORU_API void oru_small_matrix_mul_matrix_##SUFFIX(const T *a, int32_t a_rows, int32_t a_cols,  \
                                                    int32_t lda, const T *b, int32_t b_free,     \
                                                    int32_t ldb, T *c, int32_t ldc, T alpha,     \
                                                    T beta) {                                    \
    oru::row_update<T>(a, lda, 1, a_rows, a_cols, b, b_free, ldb, c, ldc, alpha, beta);          \
  }                                                                                              \
  ORU_API void oru_small_matrix_t_mul_matrix_##SUFFIX(const T *a, int32_t a_rows, int32_t a_cols, \
                                                      int32_t lda, const T *b, int32_t b_free,   \
                                                      int32_t ldb, T *c, int32_t ldc, T alpha,   \
                                                      T beta) {                                  \
    oru::row_update<T>(a, 1, lda, a_cols, a_rows, b, b_free, ldb, c, ldc, alpha, beta);          \
  }                                                                                              \
  ORU_API void oru_small_matrix_mul_matrix_t_##SUFFIX(const T *a, int32_t a_rows, int32_t a_cols, \
                                                      int32_t lda, const T *b, int32_t b_free,   \
                                                      int32_t ldb, T *c, int32_t ldc, T alpha,   \
                                                      T beta) {                                  \
    oru::a_bt<T>(a, a_rows, a_cols, lda, b, b_free, ldb, c, ldc, alpha, beta);                   \
  }                                                                                              \
  ORU_API void oru_small_matrix_t_mul_matrix_t_##SUFFIX(const T *a, int32_t a_rows,              \
                                                        int32_t a_cols, int32_t lda, const T *b, \
                                                        int32_t b_free, int32_t ldb, T *c,       \
                                                        int32_t ldc, T alpha, T beta) {          \
    oru::at_bt<T>(a, a_cols, a_rows, lda, b, b_free, ldb, c, ldc, alpha, beta);                  \
  }

extern "C" {
ORU_SMALL_MUL(float, real32)
ORU_SMALL_MUL(double, real64)
}
