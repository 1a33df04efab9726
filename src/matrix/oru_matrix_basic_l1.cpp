// Flat element-wise kernels over packed float arrays, and the reductions.
#include <cstring>

#include "matrix/oru_l1_kernels.h"
#include "oru_matrix.h"

namespace oru {
namespace {

struct Add { template <typename T> T operator()(T a, T b) const { return a + b; } };
struct Sub { template <typename T> T operator()(T a, T b) const { return a - b; } };
struct Mul { template <typename T> T operator()(T a, T b) const { return a * b; } };
struct Div { template <typename T> T operator()(T a, T b) const { return a / b; } };

template <typename Op, typename T>
void binary_plain(T *dst, int64_t n, const T *a, const T *b) {
  const Op op;
  for (int64_t i = 0; i < n; ++i) dst[i] = op(a[i], b[i]);
}

// Sums in whole groups of four with separate running sums, joined after the last
// whole group; the remaining elements follow. Vector forms reproduce this order.
template <typename T, typename Term>
T reduce_by_four(int64_t n, Term term) {
  T s0 = 0, s1 = 0, s2 = 0, s3 = 0;
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    s0 += term(i);
    s1 += term(i + 1);
    s2 += term(i + 2);
    s3 += term(i + 3);
  }
  T s = (s0 + s1) + (s2 + s3);
  for (; i < n; ++i) s += term(i);
  return s;
}

// Both sums of reduce_by_four in one pass over the array, each in the same order.
template <typename T>
void sum_and_squares(T *sum, T *sum_sq, const T *x, int64_t n) {
  T s0 = 0, s1 = 0, s2 = 0, s3 = 0, q0 = 0, q1 = 0, q2 = 0, q3 = 0;
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    s0 += x[i];
    s1 += x[i + 1];
    s2 += x[i + 2];
    s3 += x[i + 3];
    q0 += x[i] * x[i];
    q1 += x[i + 1] * x[i + 1];
    q2 += x[i + 2] * x[i + 2];
    q3 += x[i + 3] * x[i + 3];
  }
  T s = (s0 + s1) + (s2 + s3), q = (q0 + q1) + (q2 + q3);
  for (; i < n; ++i) {
    s += x[i];
    q += x[i] * x[i];
  }
  *sum = s;
  *sum_sq = q;
}

// Integer sums wrap at 32 bits; unsigned arithmetic makes that well defined.
template <typename T>
uint32_t wrapping_sum(const T *x, int64_t n) {
  uint32_t s = 0;
  for (int64_t i = 0; i < n; ++i) s += uint32_t(int32_t(x[i]));
  return s;
}

template <typename T>
void sum_by_coln(T *out, const T *data, int32_t rows, int32_t cols, int32_t stride) {
  if (rows < 1 || cols < 1) return;
  std::memcpy(out, data, sizeof(T) * size_t(cols));
  for (int32_t i = 1; i < rows; ++i) {
    const T *row = data + int64_t(i) * stride;
    for (int32_t j = 0; j < cols; ++j) out[j] += row[j];
  }
}

template <typename T>
void sum_by_row(T *out, const T *data, int32_t rows, int32_t cols, int32_t stride) {
  for (int32_t i = 0; i < rows; ++i) {
    const T *row = data + int64_t(i) * stride;
    out[i] = reduce_by_four<T>(cols, [row](int64_t j) { return row[j]; });
  }
}

template <typename T>
T abs_of(T v) { return v < 0 ? -v : v; }

}  // namespace

void add_real32_plain(float *d, int64_t n, const float *a, const float *b) { binary_plain<Add>(d, n, a, b); }
void sub_real32_plain(float *d, int64_t n, const float *a, const float *b) { binary_plain<Sub>(d, n, a, b); }
void mul_real32_plain(float *d, int64_t n, const float *a, const float *b) { binary_plain<Mul>(d, n, a, b); }
void div_real32_plain(float *d, int64_t n, const float *a, const float *b) { binary_plain<Div>(d, n, a, b); }
void add_real64_plain(double *d, int64_t n, const double *a, const double *b) { binary_plain<Add>(d, n, a, b); }
void sub_real64_plain(double *d, int64_t n, const double *a, const double *b) { binary_plain<Sub>(d, n, a, b); }
void mul_real64_plain(double *d, int64_t n, const double *a, const double *b) { binary_plain<Mul>(d, n, a, b); }
void div_real64_plain(double *d, int64_t n, const double *a, const double *b) { binary_plain<Div>(d, n, a, b); }

}  // namespace oru

// One exported binary kernel: the best form, chosen on the first call.
#define ORU_BINARY_KERNEL(op, T, suffix)                                                \
  ORU_API void array1d_##op##_##suffix(T *dst, int64_t n, const T *a, const T *b) {     \
    static const auto kernel = oru::pick(ORU_KERNEL_FORMS(oru::op##_##suffix));         \
    if (n > 0) kernel(dst, n, a, b);                                                    \
  }

extern "C" {

ORU_BINARY_KERNEL(add, float, real32)
ORU_BINARY_KERNEL(sub, float, real32)
ORU_BINARY_KERNEL(mul, float, real32)
ORU_BINARY_KERNEL(div, float, real32)
ORU_BINARY_KERNEL(add, double, real64)
ORU_BINARY_KERNEL(sub, double, real64)
ORU_BINARY_KERNEL(mul, double, real64)
ORU_BINARY_KERNEL(div, double, real64)

ORU_API void array1d_mul_scalar_real32(float *x, int64_t n, float s) {
  for (int64_t i = 0; i < n; ++i) x[i] *= s;
}
ORU_API void array1d_mul_scalar_real64(double *x, int64_t n, double s) {
  for (int64_t i = 0; i < n; ++i) x[i] *= s;
}
ORU_API void array1d_div_scalar_real32(float *x, int64_t n, float s) {
  for (int64_t i = 0; i < n; ++i) x[i] /= s;
}
ORU_API void array1d_div_scalar_real64(double *x, int64_t n, double s) {
  for (int64_t i = 0; i < n; ++i) x[i] /= s;
}
// An addition, as the name says.
ORU_API void array1d_add_scalar_real32(float *x, int64_t n, float s) {
  for (int64_t i = 0; i < n; ++i) x[i] += s;
}
ORU_API void array1d_add_scalar_real64(double *x, int64_t n, double s) {
  for (int64_t i = 0; i < n; ++i) x[i] += s;
}
ORU_API void array1d_mul_scalar_add_array1d_real32(float *dst, int64_t n, const float *a, const float *b, float s) {
  for (int64_t i = 0; i < n; ++i) dst[i] = a[i] * s + b[i];
}
ORU_API void array1d_mul_scalar_add_array1d_real64(double *dst, int64_t n, const double *a, const double *b,
                                                   double s) {
  for (int64_t i = 0; i < n; ++i) dst[i] = a[i] * s + b[i];
}
ORU_API void array1d_set_value_real32(float *dst, int64_t n, float v) {
  for (int64_t i = 0; i < n; ++i) dst[i] = v;
}
ORU_API void array1d_set_value_real64(double *dst, int64_t n, double v) {
  for (int64_t i = 0; i < n; ++i) dst[i] = v;
}

ORU_API void array1d_sum_real32(float *out, const float *x, int64_t n) {
  *out = oru::reduce_by_four<float>(n, [x](int64_t i) { return x[i]; });
}
ORU_API void array1d_sum_real64(double *out, const double *x, int64_t n) {
  *out = oru::reduce_by_four<double>(n, [x](int64_t i) { return x[i]; });
}
ORU_API void array1d_sum_ai32s(int32_t *out, const int32_t *x, int64_t n) { *out = int32_t(oru::wrapping_sum(x, n)); }
ORU_API void array1d_sum_ai32u(uint32_t *out, const uint32_t *x, int64_t n) { *out = oru::wrapping_sum(x, n); }
ORU_API void array1d_sum_ai16s(int32_t *out, const int16_t *x, int64_t n) { *out = int32_t(oru::wrapping_sum(x, n)); }
ORU_API void array1d_sum_ai8u(uint32_t *out, const uint8_t *x, int64_t n) { *out = oru::wrapping_sum(x, n); }

ORU_API void array1d_power_sum_real32(float *out, const float *x, int64_t n) {
  *out = oru::reduce_by_four<float>(n, [x](int64_t i) { return x[i] * x[i]; });
}
ORU_API void array1d_power_sum_real64(double *out, const double *x, int64_t n) {
  *out = oru::reduce_by_four<double>(n, [x](int64_t i) { return x[i] * x[i]; });
}
ORU_API void array1d_sum_power_real32(float *sum, float *sum_sq, const float *x, int64_t n) {
  oru::sum_and_squares(sum, sum_sq, x, n);
}
ORU_API void array1d_sum_power_real64(double *sum, double *sum_sq, const double *x, int64_t n) {
  oru::sum_and_squares(sum, sum_sq, x, n);
}

ORU_API float two_arrays_dot_real32(const float *a, const float *b, int64_t n) {
  return oru::reduce_by_four<float>(n, [a, b](int64_t i) { return a[i] * b[i]; });
}
ORU_API double two_arrays_dot_real64(const double *a, const double *b, int64_t n) {
  return oru::reduce_by_four<double>(n, [a, b](int64_t i) { return a[i] * b[i]; });
}
ORU_API float two_arrays_l2_distance_real32(const float *a, const float *b, int32_t n) {
  return oru::reduce_by_four<float>(n, [a, b](int64_t i) { const float d = a[i] - b[i]; return d * d; });
}
ORU_API double two_arrays_l2_distance_real64(const double *a, const double *b, int32_t n) {
  return oru::reduce_by_four<double>(n, [a, b](int64_t i) { const double d = a[i] - b[i]; return d * d; });
}
ORU_API float two_arrays_l1_distance_real32(const float *a, const float *b, int32_t n) {
  return oru::reduce_by_four<float>(n, [a, b](int64_t i) { return oru::abs_of(a[i] - b[i]); });
}
ORU_API double two_arrays_l1_distance_real64(const double *a, const double *b, int32_t n) {
  return oru::reduce_by_four<double>(n, [a, b](int64_t i) { return oru::abs_of(a[i] - b[i]); });
}

ORU_API uint32_t oru_hamming_dist_u8(const uint8_t *a, const uint8_t *b, int32_t n) {
  uint32_t count = 0;
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    uint64_t wa[2], wb[2];
    std::memcpy(wa, a + i, 16);
    std::memcpy(wb, b + i, 16);
    count += uint32_t(__builtin_popcountll(wa[0] ^ wb[0]) + __builtin_popcountll(wa[1] ^ wb[1]));
  }
  for (; i < n; ++i) count += oru::pop_count_table[a[i] ^ b[i]];
  return count;
}

ORU_API void sum_by_coln_real32(float *out, const float *data, int32_t rows, int32_t cols, int32_t stride) {
  oru::sum_by_coln(out, data, rows, cols, stride);
}
ORU_API void sum_by_coln_real64(double *out, const double *data, int32_t rows, int32_t cols, int32_t stride) {
  oru::sum_by_coln(out, data, rows, cols, stride);
}
ORU_API void sum_by_row_real32(float *out, const float *data, int32_t rows, int32_t cols, int32_t stride) {
  oru::sum_by_row(out, data, rows, cols, stride);
}
ORU_API void sum_by_row_real64(double *out, const double *data, int32_t rows, int32_t cols, int32_t stride) {
  oru::sum_by_row(out, data, rows, cols, stride);
}

}  // extern "C"
