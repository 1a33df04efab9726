// The small multiply bodies, compiled once per instruction set: each file that includes this
// header gets its own copies (internal linkage) and defines one set of forms with
// ORU_DEFINE_SMALL_MUL_FORMS. The loops are written for the compiler's vectoriser; the order of
// additions per element is the same in every form.
#ifndef ORU_MATRIX_SMALL_MATRIX_MUL_IMPL_H
#define ORU_MATRIX_SMALL_MATRIX_MUL_IMPL_H

#include <cstdint>
#include <cstring>

#include "core/oru_report.h"
#include "oru_matrix.h"

namespace oru {

#define ORU_SMALL_MUL_ARGS(T)                                                                   \
  const T *a, int32_t a_rows, int32_t a_cols, int32_t lda, const T *b, int32_t b_free,          \
      int32_t ldb, T *c, int32_t ldc, T alpha, T beta

#define ORU_DECLARE_SMALL_MUL_FORMS(ISA)                                                        \
  void small_mul_ab_real32_##ISA(ORU_SMALL_MUL_ARGS(float));                                    \
  void small_mul_abt_real32_##ISA(ORU_SMALL_MUL_ARGS(float));                                   \
  void small_mul_atb_real32_##ISA(ORU_SMALL_MUL_ARGS(float));                                   \
  void small_mul_atbt_real32_##ISA(ORU_SMALL_MUL_ARGS(float));                                  \
  void small_mul_ab_real64_##ISA(ORU_SMALL_MUL_ARGS(double));                                   \
  void small_mul_abt_real64_##ISA(ORU_SMALL_MUL_ARGS(double));                                  \
  void small_mul_atb_real64_##ISA(ORU_SMALL_MUL_ARGS(double));                                  \
  void small_mul_atbt_real64_##ISA(ORU_SMALL_MUL_ARGS(double));

ORU_DECLARE_SMALL_MUL_FORMS(plain)
ORU_DECLARE_SMALL_MUL_FORMS(avx2)
ORU_DECLARE_SMALL_MUL_FORMS(avx512)

namespace {


// beta 0 clears instead of multiplying, so not-a-number values in C vanish.
template <typename T>
inline void apply_beta(T *row, int32_t n, T beta) {
  if (beta == T(0))
    std::memset(row, 0, sizeof(T) * size_t(n));
  else if (beta != T(1))
    for (int32_t j = 0; j < n; ++j) row[j] *= beta;
}

// Four disjoint rows of C take rows l and l + 1 of B in one pass, so each value of B is
// loaded once for four rows. The caller has made sure the rows don't overlap.
template <typename T>
void four_rows_two_terms(T *__restrict c0, T *__restrict c1, T *__restrict c2, T *__restrict c3,
                         const T *__restrict b0, const T *__restrict b1, const T (&x)[4][2],
                         int32_t n) {
  const T x00 = x[0][0], x01 = x[0][1], x10 = x[1][0], x11 = x[1][1];
  const T x20 = x[2][0], x21 = x[2][1], x30 = x[3][0], x31 = x[3][1];
  for (int32_t j = 0; j < n; ++j) {
    const T u = b0[j], v = b1[j];
    c0[j] = (c0[j] + x00 * u) + x01 * v;
    c1[j] = (c1[j] + x10 * u) + x11 * v;
    c2[j] = (c2[j] + x20 * u) + x21 * v;
    c3[j] = (c3[j] + x30 * u) + x31 * v;
  }
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
  // A small ldc can make rows of C overlap; then each row is updated on its own.
  const bool rows_apart = ldc >= n || ldc <= -int64_t(n);
  int32_t i = 0;
  for (; i + 4 <= m; i += 4) {
    for (int r = 0; r < 4; ++r) apply_beta(c + (i + r) * ldc, n, beta);
    int32_t l = 0;
    for (; l + 2 <= k; l += 2) {
      const T *b0 = b + l * ldb, *b1 = b0 + ldb;
      if (rows_apart) {
        const T x[4][2] = {{coef(i, l), coef(i, l + 1)},
                           {coef(i + 1, l), coef(i + 1, l + 1)},
                           {coef(i + 2, l), coef(i + 2, l + 1)},
                           {coef(i + 3, l), coef(i + 3, l + 1)}};
        T *ci = c + i * ldc;
        four_rows_two_terms(ci, ci + ldc, ci + 2 * ldc, ci + 3 * ldc, b0, b1, x, n);
      } else {
        for (int r = 0; r < 4; ++r) axpy2(c + (i + r) * ldc, coef(i + r, l), b0, coef(i + r, l + 1), b1);
      }
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
  // Plain oru_malloc rather than an inline RAII helper: this body is compiled once per
  // instruction set, and shared inline code must not carry one set's instructions to another.
  T *p = static_cast<T *>(oru_malloc(int64_t(k > 0 ? k : 1) * 8 * int64_t(sizeof(T))));
  if (!p) {
    ORU_REPORT("memory error!");
    return;
  }
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
  oru_free(p);
}

}  // namespace

#define ORU_DEFINE_SMALL_MUL_FORMS_T(T, SUFFIX, ISA)                                            \
  void small_mul_ab_##SUFFIX##_##ISA(ORU_SMALL_MUL_ARGS(T)) {                                   \
    row_update<T>(a, lda, 1, a_rows, a_cols, b, b_free, ldb, c, ldc, alpha, beta);              \
  }                                                                                             \
  void small_mul_atb_##SUFFIX##_##ISA(ORU_SMALL_MUL_ARGS(T)) {                                  \
    row_update<T>(a, 1, lda, a_cols, a_rows, b, b_free, ldb, c, ldc, alpha, beta);              \
  }                                                                                             \
  void small_mul_abt_##SUFFIX##_##ISA(ORU_SMALL_MUL_ARGS(T)) {                                  \
    a_bt<T>(a, a_rows, a_cols, lda, b, b_free, ldb, c, ldc, alpha, beta);                       \
  }                                                                                             \
  void small_mul_atbt_##SUFFIX##_##ISA(ORU_SMALL_MUL_ARGS(T)) {                                 \
    at_bt<T>(a, a_cols, a_rows, lda, b, b_free, ldb, c, ldc, alpha, beta);                      \
  }

#define ORU_DEFINE_SMALL_MUL_FORMS(ISA)                                                         \
  ORU_DEFINE_SMALL_MUL_FORMS_T(float, real32, ISA)                                              \
  ORU_DEFINE_SMALL_MUL_FORMS_T(double, real64, ISA)

}  // namespace oru

#endif
