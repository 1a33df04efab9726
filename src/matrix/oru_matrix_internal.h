// Helpers shared by the matrix units: the size of a record's whole storage, with
// the overflow that hostile sizes can cause caught before anything is allocated.
#ifndef ORU_MATRIX_INTERNAL_H
#define ORU_MATRIX_INTERNAL_H

#include <cstdint>

#include "core/oru_types.h"
#include "oru_matrix.h"

namespace oru {

// stride * rows * depth in bytes; false when a factor is negative or the product
// leaves int64.
inline bool matrix_storage_bytes(const oru_matrix &m, int64_t *bytes) {
  if (m.stride < 0 || m.rows < 0 || m.depth < 0) return false;
  int64_t plane;
  if (__builtin_mul_overflow(m.stride, int64_t(m.rows), &plane)) return false;
  return !__builtin_mul_overflow(plane, int64_t(m.depth), bytes);
}

// The shape class of a rows x cols x depth matrix.
inline uint32_t matrix_kind(int32_t rows, int32_t cols, int32_t depth) {
  if (depth != 1) return ORU_MATRIX_KIND_GENERAL;
  if (rows == 1 && cols == 1) return ORU_MATRIX_KIND_SINGLE;
  if (rows == 1) return ORU_MATRIX_KIND_ROW;
  if (cols == 1) return ORU_MATRIX_KIND_COLUMN;
  return ORU_MATRIX_KIND_GENERAL;
}

// Fills every field a header carries, leaving data, planes and ownership to the caller.
inline void fill_matrix_header(oru_matrix *m, int32_t rows, int32_t cols, int32_t depth, uint32_t type) {
  // The type is masked only so that an unchecked code can't read past the byte table.
  const uint32_t code = type & 31u;
  m->kind = matrix_kind(rows, cols, depth);
  m->type = type;
  m->rows = rows;
  m->cols = cols;
  m->depth = depth;
  m->stride = int64_t(cols) * oru_data_type_bytes[code];
  m->stride1 = 0;
  m->stride2 = 0;
  m->reserved_one = 1;
  m->channel_bytes = oru::channel_bytes(code);
  m->channels = oru_data_type_bytes[32u + code];
  m->format = ORU_MATRIX_FORMAT_PLAIN;
}

}  // namespace oru

#endif
