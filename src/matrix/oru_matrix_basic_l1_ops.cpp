// Element-wise matrix operations: check the records, then hand the whole storage
// (stride * rows * depth bytes, padding included) to one flat kernel.
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_types.h"
#include "matrix/oru_l1_kernels.h"
#include "matrix/oru_matrix_internal.h"
#include "oru_matrix.h"

namespace oru {
namespace {

bool same_shape_and_type(const oru_matrix &a, const oru_matrix &b) {
  return a.rows == b.rows && a.cols == b.cols && a.depth == b.depth && a.type == b.type;
}

// Bytes of storage shared by all the records given: the smallest, so a record whose
// stride differs can't be overrun. False when one of them has no usable storage.
bool common_storage(int64_t *bytes, std::initializer_list<const oru_matrix *> records) {
  int64_t least = INT64_MAX;
  for (const oru_matrix *m : records) {
    int64_t b;
    if (!m->data || !matrix_storage_bytes(*m, &b)) return false;
    least = b < least ? b : least;
  }
  *bytes = least;
  return true;
}


template <typename F32, typename F64>
uint32_t binary(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b, F32 f32, F64 f64) {
  int64_t bytes;
  if (!dst || !a || !b || !same_shape_and_type(*dst, *a) || !same_shape_and_type(*a, *b) ||
      !common_storage(&bytes, {dst, a, b}))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  if (oru::base_of_code(a->type) == aif32)
    f32(static_cast<float *>(dst->data), bytes / 4, static_cast<const float *>(a->data),
        static_cast<const float *>(b->data));
  else if (oru::base_of_code(a->type) == aif64)
    f64(static_cast<double *>(dst->data), bytes / 8, static_cast<const double *>(a->data),
        static_cast<const double *>(b->data));
  else
    ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
  return ORU_RET_OK;
}

// Copies src into dst unless they share storage, then runs the in-place scalar kernel.
template <typename F32, typename F64>
uint32_t scalar_op(oru_matrix *dst, const oru_matrix *src, const void *scalar, F32 f32, F64 f64) {
  int64_t bytes;
  if (!dst || !src || !scalar || !same_shape_and_type(*dst, *src) || !common_storage(&bytes, {dst, src}))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  if (dst->data != src->data) std::memcpy(dst->data, src->data, size_t(bytes));
  if (oru::base_of_code(src->type) == aif32)
    f32(static_cast<float *>(dst->data), bytes / 4, *static_cast<const float *>(scalar));
  else if (oru::base_of_code(src->type) == aif64)
    f64(static_cast<double *>(dst->data), bytes / 8, *static_cast<const double *>(scalar));
  else
    ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
  return ORU_RET_OK;
}

// The whole-storage sum of axis -1. Returns the number of values summed, or -1 for a
// type that has no such sum.
int64_t sum_whole(void *out, const oru_matrix &m, int64_t bytes) {
  switch (oru::base_of_code(m.type)) {
    case ai8u: array1d_sum_ai8u(static_cast<uint32_t *>(out), static_cast<const uint8_t *>(m.data), bytes); return bytes;
    case ai32u: array1d_sum_ai32u(static_cast<uint32_t *>(out), static_cast<const uint32_t *>(m.data), bytes / 4); return bytes / 4;
    case ai32s: array1d_sum_ai32s(static_cast<int32_t *>(out), static_cast<const int32_t *>(m.data), bytes / 4); return bytes / 4;
    case aif32: array1d_sum_real32(static_cast<float *>(out), static_cast<const float *>(m.data), bytes / 4); return bytes / 4;
    case aif64: array1d_sum_real64(static_cast<double *>(out), static_cast<const double *>(m.data), bytes / 8); return bytes / 8;
    default: return -1;
  }
}

// Axes 0 and 1: per-row or per-column sums of the first plane. False for a non-float type.
bool sum_axis(void *out, const oru_matrix &m, int32_t axis) {
  const uint32_t base = oru::base_of_code(m.type);
  if (base == aif32) {
    const int32_t stride = int32_t(m.stride / 4);
    (axis == 1 ? sum_by_coln_real32 : sum_by_row_real32)(static_cast<float *>(out), static_cast<const float *>(m.data),
                                                         m.rows, m.cols, stride);
    return true;
  }
  if (base == aif64) {
    const int32_t stride = int32_t(m.stride / 8);
    (axis == 1 ? sum_by_coln_real64 : sum_by_row_real64)(static_cast<double *>(out),
                                                         static_cast<const double *>(m.data), m.rows, m.cols, stride);
    return true;
  }
  return false;
}

bool valid_axis(int32_t axis) { return axis == 0 || axis == 1 || axis == -1; }

}  // namespace
}  // namespace oru

extern "C" {

ORU_API uint32_t oru_add(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b) {
  return oru::binary(dst, a, b, array1d_add_real32, array1d_add_real64);
}
ORU_API uint32_t oru_sub(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b) {
  return oru::binary(dst, a, b, array1d_sub_real32, array1d_sub_real64);
}
ORU_API uint32_t oru_mul(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b) {
  return oru::binary(dst, a, b, array1d_mul_real32, array1d_mul_real64);
}
ORU_API uint32_t oru_div(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b) {
  return oru::binary(dst, a, b, array1d_div_real32, array1d_div_real64);
}

ORU_API uint32_t oru_matrix_mul_scalar(oru_matrix *dst, const oru_matrix *src, const void *scalar) {
  return oru::scalar_op(dst, src, scalar, array1d_mul_scalar_real32, array1d_mul_scalar_real64);
}
ORU_API uint32_t oru_matrix_div_scalar(oru_matrix *dst, const oru_matrix *src, const void *scalar) {
  return oru::scalar_op(dst, src, scalar, array1d_div_scalar_real32, array1d_div_scalar_real64);
}
ORU_API uint32_t oru_matrix_add_scalar(oru_matrix *dst, const oru_matrix *src, const void *scalar) {
  return oru::scalar_op(dst, src, scalar, array1d_add_scalar_real32, array1d_add_scalar_real64);
}

ORU_API uint32_t oru_matrix_add_matrix_mul_scalar(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b,
                                                  const void *scalar) {
  if (!scalar) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  // dst = b * s + a, with the scalar's width following the matrices.
  return oru::binary(
      dst, a, b,
      [scalar](float *d, int64_t n, const float *x, const float *y) {
        array1d_mul_scalar_add_array1d_real32(d, n, y, x, *static_cast<const float *>(scalar));
      },
      [scalar](double *d, int64_t n, const double *x, const double *y) {
        array1d_mul_scalar_add_array1d_real64(d, n, y, x, *static_cast<const double *>(scalar));
      });
}

ORU_API uint32_t oru_sum_with_axes(void *out, const oru_matrix *m, int32_t axis) {
  int64_t bytes;
  if (!out || !m || !oru::valid_axis(axis) || !oru::common_storage(&bytes, {m}))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  if (axis != -1) {
    if (!oru::sum_axis(out, *m, axis)) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
    return ORU_RET_OK;
  }
  if (oru::sum_whole(out, *m, bytes) < 0) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
  return ORU_RET_OK;
}

ORU_API uint32_t oru_mean_with_axes(void *out, const oru_matrix *m, int32_t axis) {
  int64_t bytes;
  if (!out || !m || !oru::valid_axis(axis) || !oru::common_storage(&bytes, {m}))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  const uint32_t base = oru::base_of_code(m->type);
  if (axis != -1) {
    if (!oru::sum_axis(out, *m, axis)) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
    const int64_t count = axis == 0 ? m->rows : m->cols;
    const int32_t divisor = axis == 0 ? m->cols : m->rows;
    if (base == aif32)
      array1d_div_scalar_real32(static_cast<float *>(out), count, float(divisor));
    else
      array1d_div_scalar_real64(static_cast<double *>(out), count, double(divisor));
    return ORU_RET_OK;
  }
  union {
    uint32_t u;
    int32_t s;
    float f;
    double d;
  } sum;
  const int64_t count = oru::sum_whole(&sum, *m, bytes);
  if (count < 0) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
  switch (base) {
    case ai8u:
    case ai32u: *static_cast<float *>(out) = float(sum.u) / float(count); break;
    case ai32s: *static_cast<float *>(out) = float(sum.s) / float(count); break;
    case aif32: *static_cast<float *>(out) = sum.f / float(count); break;
    default: *static_cast<double *>(out) = sum.d / double(count); break;
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_sigmoid(oru_matrix *dst, const oru_matrix *src) {
  int64_t bytes;
  if (!dst || !src || !oru::same_shape_and_type(*dst, *src) || !oru::common_storage(&bytes, {dst, src}))
    ORU_FAIL(ORU_RET_ERR_PARA);
  if (dst->data != src->data) std::memcpy(dst->data, src->data, size_t(bytes));
  if (oru::base_of_code(src->type) == aif32) {
    static const auto kernel = oru::pick(ORU_KERNEL_FORMS(oru::sigmoid_real32));
    kernel(static_cast<float *>(dst->data), bytes / 4);
  } else if (oru::base_of_code(src->type) == aif64) {
    static const auto exp_kernel = oru::pick(ORU_KERNEL_FORMS(oru::fast_expl));
    double *x = static_cast<double *>(dst->data);
    const int64_t n = bytes / 8;
    exp_kernel(x, n);
    for (int64_t i = 0; i < n; ++i) x[i] = x[i] / (x[i] + 1.0);
  } else {
    ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_matrix_fixed_value(oru_matrix *m, const void *value) {
  int64_t bytes;
  if (!m || !value || !oru::common_storage(&bytes, {m})) ORU_FAIL(ORU_RET_ERR_PARA);
  switch (oru::base_of_code(m->type)) {
    case ai8u: {
      uint32_t word;
      std::memcpy(&word, value, sizeof word);
      std::memset(m->data, int(word & 0xFFu), size_t(bytes));
      return ORU_RET_OK;
    }
    case aif32: array1d_set_value_real32(static_cast<float *>(m->data), bytes / 4, *static_cast<const float *>(value)); return ORU_RET_OK;
    case aif64: array1d_set_value_real64(static_cast<double *>(m->data), bytes / 8, *static_cast<const double *>(value)); return ORU_RET_OK;
    default: ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  }
}

ORU_API uint32_t oru_set_matrix_identity(oru_matrix *m) {
  int64_t bytes;
  if (!m || m->rows != m->cols || !oru::common_storage(&bytes, {m})) ORU_FAIL(ORU_RET_ERR_PARA);
  std::memset(m->data, 0, size_t(bytes));
  if (m->type != aif32 && m->type != aif64) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  char *p = static_cast<char *>(m->data);
  const int64_t step = m->stride + oru_data_type_bytes[m->type];
  for (int32_t i = 0; i < m->rows; ++i, p += step) {
    if (m->type == aif32)
      *reinterpret_cast<float *>(p) = 1.0f;
    else
      *reinterpret_cast<double *>(p) = 1.0;
  }
  return ORU_RET_OK;
}

}  // extern "C"
