// Matrix with vector: dot product, row-vector broadcasts, matrix-vector products,
// the outer product and transposition.
#include <cstring>
#include <type_traits>

#include "core/oru_report.h"
#include "core/oru_types.h"
#include "matrix/oru_matrix_internal.h"
#include "oru_matrix.h"

namespace oru {
namespace {

bool same_shape(const oru_matrix &a, const oru_matrix &b) {
  return a.rows == b.rows && a.cols == b.cols && a.depth == b.depth;
}

template <typename T, typename Op>
void row_vector_op(const oru_matrix &dst, const oru_matrix &src, const T *vec, Op op) {
  for (int32_t i = 0; i < src.rows; ++i) {
    const T *s = reinterpret_cast<const T *>(static_cast<const char *>(src.data) + src.stride * i);
    T *d = reinterpret_cast<T *>(static_cast<char *>(dst.data) + src.stride * i);
    for (int32_t j = 0; j < src.cols; ++j) d[j] = op(s[j], vec[j]);
  }
}

template <typename Op>
uint32_t row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec, Op op) {
  if (!dst || !src || !vec || !dst->data || !src->data || !vec->data || !same_shape(*dst, *src) ||
      vec->cols != src->cols || dst->type != src->type || vec->type != src->type)
    ORU_FAIL(ORU_RET_ERR_PARA);
  switch (oru::base_of_code(src->type)) {
    case aif32: row_vector_op(*dst, *src, static_cast<const float *>(vec->data), op); return ORU_RET_OK;
    case aif64: row_vector_op(*dst, *src, static_cast<const double *>(vec->data), op); return ORU_RET_OK;
    default: ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  }
}

// Four rows at a time, each with its own running sum taken left to right.
template <typename T>
void mul_vector(T *dst, const T *m, int32_t rows, int32_t cols, const T *v) {
  int32_t i = 0;
  for (; i + 4 <= rows; i += 4) {
    const T *r0 = m + int64_t(i) * cols, *r1 = r0 + cols, *r2 = r1 + cols, *r3 = r2 + cols;
    T s0 = 0, s1 = 0, s2 = 0, s3 = 0;
    int32_t j = 0;
    for (; j + 4 <= cols; j += 4) {
      for (int32_t k = j; k < j + 4; ++k) {
        s0 += r0[k] * v[k];
        s1 += r1[k] * v[k];
        s2 += r2[k] * v[k];
        s3 += r3[k] * v[k];
      }
    }
    for (; j < cols; ++j) {
      s0 += r0[j] * v[j];
      s1 += r1[j] * v[j];
      s2 += r2[j] * v[j];
      s3 += r3[j] * v[j];
    }
    dst[i] = s0;
    dst[i + 1] = s1;
    dst[i + 2] = s2;
    dst[i + 3] = s3;
  }
  for (; i < rows; ++i) {
    const T *r = m + int64_t(i) * cols;
    T s = 0;
    for (int32_t j = 0; j < cols; ++j) s += r[j] * v[j];
    dst[i] = s;
  }
}

// dst = m^T v: rows of m weighted by v and added in storage order, four rows per pass.
template <typename T>
void mul_vector_transposed(T *dst, const T *m, int32_t rows, int32_t cols, const T *v) {
  for (int32_t j = 0; j < cols; ++j) dst[j] = 0;
  int32_t i = 0;
  for (; i + 4 <= rows; i += 4) {
    const T *r0 = m + int64_t(i) * cols, *r1 = r0 + cols, *r2 = r1 + cols, *r3 = r2 + cols;
    const T w0 = v[i], w1 = v[i + 1], w2 = v[i + 2], w3 = v[i + 3];
    for (int32_t j = 0; j < cols; ++j) dst[j] = dst[j] + r0[j] * w0 + r1[j] * w1 + r2[j] * w2 + r3[j] * w3;
  }
  for (; i < rows; ++i) {
    const T *r = m + int64_t(i) * cols;
    const T w = v[i];
    for (int32_t j = 0; j < cols; ++j) dst[j] += r[j] * w;
  }
}

// Tiles of 8 x 8: eight columns of src become eight rows of dst, walked down src's rows.
template <typename T>
void transpose(const T *src, int32_t rows, int32_t cols, int32_t ss, int32_t ds, T *dst) {
  int32_t j = 0;
  for (; j + 8 <= cols; j += 8) {
    int32_t i = 0;
    for (; i + 8 <= rows; i += 8)
      for (int32_t jj = 0; jj < 8; ++jj) {
        T *d = dst + int64_t(j + jj) * ds + i;
        const T *s = src + int64_t(i) * ss + j + jj;
        for (int32_t ii = 0; ii < 8; ++ii) d[ii] = s[int64_t(ii) * ss];
      }
    for (; i < rows; ++i)
      for (int32_t jj = 0; jj < 8; ++jj) dst[int64_t(j + jj) * ds + i] = src[int64_t(i) * ss + j + jj];
  }
  for (; j < cols; ++j)
    for (int32_t i = 0; i < rows; ++i) dst[int64_t(j) * ds + i] = src[int64_t(i) * ss + j];
}

template <typename T>
void transpose_in_place(T *x, int32_t n, int32_t stride) {
  for (int32_t i = 0; i < n; ++i) {
    T *row = x + int64_t(i) * stride;
    int32_t j = i + 1;
    for (; j + 4 <= n; j += 4)
      for (int32_t k = j; k < j + 4; ++k) {
        const T t = row[k];
        row[k] = x[int64_t(k) * stride + i];
        x[int64_t(k) * stride + i] = t;
      }
    for (; j < n; ++j) {
      const T t = row[j];
      row[j] = x[int64_t(j) * stride + i];
      x[int64_t(j) * stride + i] = t;
    }
  }
}

}  // namespace
}  // namespace oru

extern "C" {

ORU_API uint32_t oru_dot(void *out, const oru_matrix *a, const oru_matrix *b) {
  int64_t bytes;
  if (!out || !a || !b || !a->data || !b->data || !oru::same_shape(*a, *b) || a->type != b->type ||
      !oru::matrix_storage_bytes(*a, &bytes))
    ORU_FAIL(ORU_RET_ERR_PARA);
  const bool same = a->data == b->data;
  switch (oru::base_of_code(a->type)) {
    case aif32: {
      const float *x = static_cast<const float *>(a->data);
      if (same)
        array1d_power_sum_real32(static_cast<float *>(out), x, bytes / 4);
      else
        *static_cast<float *>(out) = two_arrays_dot_real32(x, static_cast<const float *>(b->data), bytes / 4);
      return ORU_RET_OK;
    }
    case aif64: {
      const double *x = static_cast<const double *>(a->data);
      if (same)
        array1d_power_sum_real64(static_cast<double *>(out), x, bytes / 8);
      else
        *static_cast<double *>(out) = two_arrays_dot_real64(x, static_cast<const double *>(b->data), bytes / 8);
      return ORU_RET_OK;
    }
    default: ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  }
}

ORU_API uint32_t oru_matrix_add_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec) {
  return oru::row_vector(dst, src, vec, [](auto x, auto y) { return x + y; });
}
ORU_API uint32_t oru_matrix_sub_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec) {
  return oru::row_vector(dst, src, vec, [](auto x, auto y) { return x - y; });
}
ORU_API uint32_t oru_matrix_mul_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec) {
  return oru::row_vector(dst, src, vec, [](auto x, auto y) { return x * y; });
}
ORU_API uint32_t oru_matrix_div_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec) {
  return oru::row_vector(dst, src, vec, [](auto x, auto y) { return x / y; });
}

ORU_API uint32_t oru_matrix_mul_vector(oru_matrix *dst, const oru_matrix *m, int32_t transposed, const oru_matrix *vec) {
  auto is_vector = [](const oru_matrix *v) {
    return v->kind == ORU_MATRIX_KIND_COLUMN || v->kind == ORU_MATRIX_KIND_SINGLE;
  };
  if (!dst || !m || !vec || !dst->data || !m->data || !vec->data || m->channels != 1 || m->depth != 1 ||
      !is_vector(dst) || !is_vector(vec) || dst->type != m->type || vec->type != m->type)
    ORU_FAIL(ORU_RET_ERR_PARA);
  const int32_t in = transposed ? m->rows : m->cols;
  const int32_t out = transposed ? m->cols : m->rows;
  // A length that doesn't fit is refused without a report; dst must hold the result too.
  if (vec->rows != in || dst->rows < out) return ORU_RET_ERR_PARA;
  return oru::visit_base(m->type, [&](auto tag) -> uint32_t {
    using T = typename decltype(tag)::type;
    if constexpr (std::is_floating_point_v<T>) {
      auto *d = static_cast<T *>(dst->data);
      const auto *a = static_cast<const T *>(m->data);
      const auto *v = static_cast<const T *>(vec->data);
      if (transposed)
        oru::mul_vector_transposed(d, a, m->rows, m->cols, v);
      else
        oru::mul_vector(d, a, m->rows, m->cols, v);
      return ORU_RET_OK;
    } else {
      ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
    }
  });
}

ORU_API uint32_t oru_two_vector_outproduct(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b) {
  if (!dst || !a || !b || !dst->data || !a->data || !b->data || a->cols != 1 || b->rows != 1 ||
      a->type != b->type || dst->type != a->type || dst->rows != a->rows || dst->cols != b->cols)
    ORU_FAIL(ORU_RET_ERR_PARA);
  return oru::visit_base(a->type, [&](auto tag) -> uint32_t {
    using T = typename decltype(tag)::type;
    if constexpr (std::is_floating_point_v<T>) {
      const T *row = static_cast<const T *>(b->data);
      for (int32_t i = 0; i < a->rows; ++i) {
        const T ai = *reinterpret_cast<const T *>(static_cast<const char *>(a->data) + a->stride * i);
        T *d = reinterpret_cast<T *>(static_cast<char *>(dst->data) + dst->stride * i);
        for (int32_t j = 0; j < b->cols; ++j) d[j] = ai * row[j];
      }
      return ORU_RET_OK;
    } else {
      ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "Can not support data type!");
    }
  });
}

ORU_API uint32_t oru_matrix_transposition(oru_matrix *dst, const oru_matrix *src) {
  if (!dst || !src || !dst->data || !src->data || dst->depth != 1 || src->depth != 1 || src->channels != 1)
    ORU_FAIL(ORU_RET_ERR_PARA);
  if (dst->type != src->type || dst->rows != src->cols || dst->cols != src->rows) ORU_FAIL(ORU_RET_ERR_PARA);
  const uint32_t base = oru::base_of_code(src->type);
  const bool in_place = dst->data == src->data;
  if (in_place && src->rows != src->cols) ORU_FAIL(ORU_RET_ERR_PARA);
  // Only the width of an element matters: 32-bit integers move as floats do.
  if (base == ai32u || base == ai32s || base == aif32) {
    if (in_place)
      array2d_inplace_trans_real32(static_cast<float *>(dst->data), src->rows, src->cols);
    else
      array2d_transposition_real32(static_cast<const float *>(src->data), src->rows, src->cols, src->cols, dst->cols,
                                   static_cast<float *>(dst->data));
    return ORU_RET_OK;
  }
  if (base == aif64) {
    if (in_place)
      array2d_inplace_trans_real64(static_cast<double *>(dst->data), src->rows, src->cols);
    else
      array2d_transposition_real64(static_cast<const double *>(src->data), src->rows, src->cols, src->cols, dst->cols,
                                   static_cast<double *>(dst->data));
    return ORU_RET_OK;
  }
  ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
}

ORU_API void array2d_transposition_real32(const float *src, int32_t rows, int32_t cols, int32_t src_stride,
                                          int32_t dst_stride, float *dst) {
  oru::transpose(src, rows, cols, src_stride, dst_stride, dst);
}
ORU_API void array2d_transposition_real64(const double *src, int32_t rows, int32_t cols, int32_t src_stride,
                                          int32_t dst_stride, double *dst) {
  oru::transpose(src, rows, cols, src_stride, dst_stride, dst);
}
ORU_API void array2d_inplace_trans_real32(float *x, int32_t n, int32_t stride) { oru::transpose_in_place(x, n, stride); }
ORU_API void array2d_inplace_trans_real64(double *x, int32_t n, int32_t stride) { oru::transpose_in_place(x, n, stride); }

}  // extern "C"
