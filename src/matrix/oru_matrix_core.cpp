// The matrix record: creation, views on foreign data, header words and release.
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "matrix/oru_matrix_internal.h"
#include "oru_matrix.h"

extern "C" {

ORU_API oru_matrix *oru_create_matrix_header(int32_t rows, int32_t cols, int32_t depth, uint32_t type) {
  if (rows < 1 || cols < 1 || depth < 1 || type >= 32) ORU_FAIL_MSG(nullptr, "parameters error!");
  oru_matrix *m = oru::alloc_zeroed<oru_matrix>();
  if (!m) ORU_FAIL_MSG(nullptr, "memory error!");
  oru::fill_matrix_header(m, rows, cols, depth, type);
  m->data = nullptr;
  m->owns_data = 1;
  return m;
}

ORU_API uint32_t oru_creat_matrix_data(oru_matrix *matrix) {
  if (!matrix || matrix->data) return ORU_RET_ERR_PARA;
  int64_t bytes;
  if (!oru::matrix_storage_bytes(*matrix, &bytes)) return ORU_RET_ERR_MEMORY;
  matrix->data = oru_malloc(bytes);
  return matrix->data ? ORU_RET_OK : ORU_RET_ERR_MEMORY;
}

ORU_API oru_matrix *oru_create_matrix(int32_t rows, int32_t cols, int32_t depth, uint32_t type) {
  oru::Guard<oru_matrix, oru_release_matrix> m(oru_create_matrix_header(rows, cols, depth, type));
  if (!m.get()) return nullptr;
  if (oru_creat_matrix_data(m.get()) != ORU_RET_OK) ORU_FAIL_MSG(nullptr, "Allocating memory failure! ");
  return m.dismiss();
}

ORU_API uint32_t oru_set_matrix_header(oru_matrix *matrix, int32_t rows, int32_t cols, int32_t depth,
                                       uint32_t type) {
  if (!matrix || rows < 1 || cols < 1 || depth < 1) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  oru::fill_matrix_header(matrix, rows, cols, depth, type);
  matrix->data = nullptr;
  matrix->owns_data = 0;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_matrix_data(oru_matrix *matrix, void *data, int64_t length) {
  if (!matrix || !data) ORU_FAIL(ORU_RET_ERR_PARA);
  int64_t bytes;
  // A size that doesn't even fit in 64 bits is more than any buffer holds.
  if (!oru::matrix_storage_bytes(*matrix, &bytes) || bytes > length) ORU_FAIL(ORU_RET_ERR_DATA_LENGTH);
  if (matrix->owns_data && matrix->data != data) oru_free(matrix->data);
  matrix->data = data;
  matrix->owns_data = 0;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_matrix_reference_value(oru_matrix *matrix, uint32_t value) {
  if (!matrix) return ORU_RET_ERR_PARA;
  matrix->owns_data = value;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_eye_matrix(oru_matrix *matrix) {
  int64_t bytes;
  if (!matrix || !matrix->data || !oru::matrix_storage_bytes(*matrix, &bytes)) ORU_FAIL(ORU_RET_ERR_PARA);
  std::memset(matrix->data, 0, size_t(bytes));
  const uint32_t base = oru::base_of_code(matrix->type);
  if (base != ai8u && base != ai32u && base != ai32s && base != aif32 && base != aif64)
    ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
  const int32_t n = matrix->rows < matrix->cols ? matrix->rows : matrix->cols;
  const int64_t step = matrix->stride + oru_data_type_bytes[matrix->type & 31u];
  char *p = static_cast<char *>(matrix->data);
  for (int32_t i = 0; i < n; ++i, p += step) {
    switch (base) {
      case ai8u: *reinterpret_cast<uint8_t *>(p) = 1; break;
      case aif32: *reinterpret_cast<float *>(p) = 1.0f; break;
      case aif64: *reinterpret_cast<double *>(p) = 1.0; break;
      default: *reinterpret_cast<int32_t *>(p) = 1; break;
    }
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_get_matrix_cols(oru_matrix *dst, const oru_matrix *src, int32_t first, int32_t last) {
  if (!dst || !src || first < 0 || first >= last || last > src->cols || src->depth != 1)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  oru::fill_matrix_header(dst, src->rows, last - first, 1, src->type);
  dst->owns_data = 0;
  dst->stride = src->stride;
  // A header without storage gives a view without storage, not an offset from null.
  dst->data = src->data ? static_cast<char *>(src->data) + int64_t(src->channel_bytes) * first : nullptr;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_release_matrix_no_error(oru_matrix **matrix) {
  if (!matrix || !*matrix) return ORU_RET_OK;
  if ((*matrix)->owns_data && (*matrix)->data) oru_free((*matrix)->data);
  oru_free(*matrix);
  *matrix = nullptr;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_release_matrix(oru_matrix **matrix) {
  if (!matrix || !*matrix) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  return oru_release_matrix_no_error(matrix);
}

ORU_API uint32_t oru_write_matrix_header_to_buffer(uint32_t *words, int32_t *count, const oru_matrix *matrix) {
  if (!words || !matrix) {
    if (count) *count = 0;
    return ORU_RET_ERR_PARA;
  }
  words[0] = matrix->kind;
  words[1] = matrix->type;
  words[2] = uint32_t(matrix->rows);
  words[3] = uint32_t(matrix->cols);
  words[4] = uint32_t(matrix->depth);
  words[5] = matrix->owns_data;
  words[6] = matrix->reserved_one;
  words[7] = matrix->channel_bytes;
  words[8] = uint32_t(matrix->channels);
  words[9] = matrix->format;
  std::memcpy(words + 10, &matrix->stride, sizeof(int64_t));
  if (count) *count = ORU_MATRIX_HEADER_WORDS;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_read_matrix_header_from_buffer(oru_matrix *matrix, const uint32_t *words) {
  if (!matrix || !words) return ORU_RET_ERR_PARA;
  matrix->kind = words[0];
  matrix->type = words[1];
  matrix->rows = int32_t(words[2]);
  matrix->cols = int32_t(words[3]);
  matrix->depth = int32_t(words[4]);
  matrix->owns_data = words[5];
  matrix->reserved_one = words[6];
  matrix->channel_bytes = words[7];
  matrix->channels = int32_t(words[8]);
  matrix->format = words[9];
  // The stored stride may come from another machine's padding; a packed one is rebuilt.
  matrix->stride = int64_t(matrix->cols) * oru_data_type_bytes[matrix->type & 31u];
  return ORU_RET_OK;
}

ORU_API uint32_t oru_packed_tensor_into_row_vector(oru_matrix *matrix, const oru_tensor *tensor) {
  if (!matrix || !tensor) return ORU_RET_ERR_PARA;
  if (tensor->total_elements > INT32_MAX) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  const uint32_t status = oru_set_matrix_header(matrix, 1, int32_t(tensor->total_elements), 1, tensor->type);
  if (status != ORU_RET_OK) return status;
  return oru_set_matrix_data(matrix, tensor->data, tensor->total_bytes);
}

}  // extern "C"
