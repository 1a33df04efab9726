// Shared pieces of the multiply tests: matrix records over test-owned vectors and an
// independent double-precision reference product.
#ifndef ORU_TESTS_MATRIX_GEMM_TEST_UTIL_H
#define ORU_TESTS_MATRIX_GEMM_TEST_UTIL_H

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "oru_matrix.h"

namespace gemm_test {

// A depth-1 record laid over caller data with ld elements per row.
inline oru_matrix view(void *data, int32_t rows, int32_t cols, uint32_t type, int64_t ld) {
  oru_matrix m{};
  const uint32_t bytes = oru_data_type_bytes[type & 31];
  m.kind = rows == 1 && cols == 1 ? 7 : rows == 1 ? 5 : cols == 1 ? 6 : 4;
  m.type = type;
  m.data = data;
  m.rows = rows;
  m.cols = cols;
  m.depth = 1;
  m.stride = ld * bytes;
  m.owns_data = 0;
  m.reserved_one = 1;
  m.channel_bytes = oru_data_type_bytes[type & 7];
  m.channels = oru_data_type_bytes[32 + (type & 31)];
  m.format = 15;
  return m;
}

// Row-major operand with transposition: op(X)[i][l] = x[i * ld + l], or x[l * ld + i].
template <typename T>
inline T at(const std::vector<T> &x, int64_t ld, bool trans, int64_t i, int64_t l) {
  return trans ? x[l * ld + i] : x[i * ld + l];
}

// Reference alpha op(A) op(B) + beta C in double, and the bound on the rounding error of a
// k-term float or double sum: (k + 2) unit roundoffs of the magnitudes involved.
template <typename T>
struct Reference {
  std::vector<double> value, bound;
};

template <typename T>
Reference<T> reference(int m, int n, int k, const std::vector<T> &a, int64_t lda, bool ta,
                       const std::vector<T> &b, int64_t ldb, bool tb, const std::vector<T> &c,
                       int64_t ldc, double alpha, double beta) {
  Reference<T> r;
  r.value.assign(size_t(m) * n, 0.0);
  r.bound.assign(size_t(m) * n, 0.0);
  const double u = std::numeric_limits<T>::epsilon();
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) {
      double s = 0, sa = 0;
      for (int l = 0; l < k; ++l) {
        const double p = double(at(a, lda, ta, i, l)) * double(at(b, ldb, tb, l, j));
        s += p;
        sa += std::fabs(p);
      }
      const double cij = beta == 0 ? 0.0 : double(c[size_t(i) * ldc + j]);
      r.value[size_t(i) * n + j] = alpha * s + beta * cij;
      r.bound[size_t(i) * n + j] = (k + 3) * u * (std::fabs(alpha) * sa + std::fabs(beta * cij)) + 1e-30;
    }
  return r;
}

}  // namespace gemm_test

#endif
