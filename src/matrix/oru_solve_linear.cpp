// Gaussian elimination with row pivoting, in place on the caller's records.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "oru_matrix.h"

namespace {

template <typename T>
inline T *row_of(const oru_matrix *m, int32_t i) {
  return reinterpret_cast<T *>(static_cast<char *>(m->data) + int64_t(i) * m->stride);
}

// Absolute thresholds: the unit roundoff of the element type, not scaled by the matrix.
template <typename T> constexpr T pivot_eps();
template <> constexpr float pivot_eps<float>() { return 1.1920929e-7f; }
template <> constexpr double pivot_eps<double>() { return 2.220446049250313e-16; }

template <typename T>
uint32_t eliminate(oru_matrix *x, oru_matrix *a) {
  const int32_t n = a->rows, m = x->cols;
  for (int32_t k = 0; k < n; ++k) {
    // The strict comparison keeps the topmost row among equal magnitudes.
    int32_t p = k;
    for (int32_t i = k + 1; i < n; ++i)
      if (std::fabs(row_of<T>(a, i)[k]) > std::fabs(row_of<T>(a, p)[k])) p = i;
    if (std::fabs(row_of<T>(a, p)[k]) < pivot_eps<T>()) {
      std::puts("\nIt's not a full rank matrix");
      return ORU_RET_ERR_UNKNOWN;
    }
    T *ak = row_of<T>(a, k);
    T *xk = row_of<T>(x, k);
    if (p != k) {
      // Columns left of k are never read again, so only the rest of the row moves.
      T *ap = row_of<T>(a, p);
      T *xp = row_of<T>(x, p);
      for (int32_t j = k; j < n; ++j) std::swap(ak[j], ap[j]);
      for (int32_t j = 0; j < m; ++j) std::swap(xk[j], xp[j]);
    }
    const T d = T(-1) / ak[k];
    ak[k] = -d;
    for (int32_t i = k + 1; i < n; ++i) {
      T *ai = row_of<T>(a, i);
      T *xi = row_of<T>(x, i);
      const T alpha = ai[k] * d;
      for (int32_t j = k + 1; j < n; ++j) ai[j] += alpha * ak[j];
      for (int32_t j = 0; j < m; ++j) xi[j] += alpha * xk[j];
    }
  }
  // The diagonal holds reciprocals of the pivots, so back substitution multiplies.
  for (int32_t i = n - 1; i >= 0; --i) {
    const T *ai = row_of<T>(a, i);
    T *xi = row_of<T>(x, i);
    for (int32_t j = 0; j < m; ++j) {
      T s = xi[j];
      for (int32_t r = i + 1; r < n; ++r) s -= ai[r] * row_of<T>(x, r)[j];
      xi[j] = s * ai[i];
    }
  }
  return ORU_RET_OK;
}

}  // namespace

extern "C" ORU_API uint32_t oru_solve_linear_equation(oru_matrix *x, oru_matrix *a,
                                                      const oru_matrix *b) {
  if (!x || !a || !b) return ORU_RET_ERR_PARA;
  if (x->type != a->type || x->type != b->type) return ORU_RET_ERR_PARA;
  if (a->rows != a->cols || x->rows != a->rows || b->rows != a->rows || x->cols != b->cols)
    return ORU_RET_ERR_PARA;
  if (x->data != b->data) {
    if (x->stride == b->stride) {
      std::memmove(x->data, b->data, size_t(b->stride * b->rows * b->depth));
    } else {
      // Rows of different pitch: a copy of the raw block would misplace rows and could
      // run past x, so the rows go one by one.
      const size_t row_bytes = size_t(b->cols) * oru_data_type_bytes[b->type & 31];
      for (int32_t i = 0; i < b->rows; ++i)
        std::memmove(static_cast<char *>(x->data) + int64_t(i) * x->stride,
                     static_cast<const char *>(b->data) + int64_t(i) * b->stride, row_bytes);
    }
  }
  switch (oru::base_of_code(a->type)) {
    case aif32: return eliminate<float>(x, a);
    case aif64: return eliminate<double>(x, a);
    default: ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  }
}
