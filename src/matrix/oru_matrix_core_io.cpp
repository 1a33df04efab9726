// The matrix file "Morvex MatrixV1.0" and the export of a matrix's data as raw bytes or text.
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "core/oru_types.h"
#include "matrix/oru_matrix_internal.h"
#include "oru_matrix.h"

namespace {

constexpr char kMagic[] = "Morvex MatrixV1.0";
constexpr size_t kMagicField = 32;
constexpr size_t kHeaderBytes = ORU_MATRIX_HEADER_WORDS * sizeof(uint32_t);

// A header may claim more data than a short file holds. Such a claim is trusted only
// up to this size, so that a hostile header can't make the reader take gigabytes.
constexpr int64_t kUntrustedClaimLimit = int64_t(16) << 20;

struct FileCloser {
  FILE *f;
  ~FileCloser() {
    if (f) std::fclose(f);
  }
};

// Bytes between the current position and the end, or -1 when the stream can't seek.
int64_t remaining_bytes(FILE *f) {
  const long here = std::ftell(f);
  if (here < 0 || std::fseek(f, 0, SEEK_END) != 0) return -1;
  const long end = std::ftell(f);
  if (end < 0 || std::fseek(f, here, SEEK_SET) != 0) return -1;
  return int64_t(end) - int64_t(here);
}

// One row of text: groups of four with one call each while four remain, then singles.
template <typename T>
void write_text_row(FILE *f, const T *row, int32_t cols) {
  int32_t j = 0;
  if constexpr (std::is_same_v<T, float>) {
    for (; j + 4 <= cols; j += 4)
      std::fprintf(f, "%12.8f, %12.8f, %12.8f, %12.8f, ", double(row[j]), double(row[j + 1]),
                   double(row[j + 2]), double(row[j + 3]));
    for (; j < cols; ++j) std::fprintf(f, "%12.8f, ", double(row[j]));
  } else if constexpr (std::is_same_v<T, double>) {
    for (; j + 4 <= cols; j += 4)
      std::fprintf(f, "%20.16lf, %20.16f, %20.16f, %20.16f, ", row[j], row[j + 1], row[j + 2], row[j + 3]);
    for (; j < cols; ++j) std::fprintf(f, "%20.16f, ", row[j]);
  } else {
    // Integers are widened to an int; a 32-bit unsigned value is read as signed.
    for (; j + 4 <= cols; j += 4)
      std::fprintf(f, "%8d, %8d, %8d, %8d, ", int(row[j]), int(row[j + 1]), int(row[j + 2]), int(row[j + 3]));
    for (; j < cols; ++j) std::fprintf(f, "%8d, ", int(row[j]));
  }
}

uint32_t export_text(const char *path, const oru_matrix &m) {
  if (m.channels != 1) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
  FileCloser file{std::fopen(path, "w")};
  if (!file.f) return ORU_RET_ERR_OPEN_FILE;
  oru::visit_base(m.type, [&](auto tag) {
    using T = typename decltype(tag)::type;
    // ai32u is printed through int32_t so that large values come out negative, like a cast would.
    using Shown = std::conditional_t<std::is_same_v<T, uint32_t>, int32_t, T>;
    const char *base = static_cast<const char *>(m.data);
    for (int32_t plane = 0; plane < m.depth; ++plane) {
      for (int32_t r = 0; r < m.rows; ++r) {
        const char *row = base + m.stride * (int64_t(plane) * m.rows + r);
        write_text_row(file.f, reinterpret_cast<const Shown *>(row), m.cols);
        std::fputc('\n', file.f);
      }
      std::fputc('\n', file.f);
    }
  });
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_write_matrix_to_disk(const char *path, const oru_matrix *matrix) {
  int64_t bytes;
  if (!path || !matrix || !matrix->data || !oru::matrix_storage_bytes(*matrix, &bytes)) return ORU_RET_ERR_PARA;
  FileCloser file{std::fopen(path, "wb")};
  if (!file.f) ORU_FAIL(ORU_RET_ERR_OPEN_FILE);
  char magic[kMagicField] = {};
  std::memcpy(magic, kMagic, sizeof kMagic - 1);
  uint32_t words[ORU_MATRIX_HEADER_WORDS];
  oru_write_matrix_header_to_buffer(words, nullptr, matrix);
  std::fwrite(magic, 1, kMagicField, file.f);
  std::fwrite(words, 1, kHeaderBytes, file.f);
  if (std::fwrite(matrix->data, 1, size_t(bytes), file.f) != size_t(bytes)) ORU_FAIL_MSG(ORU_RET_ERR_UNKNOWN, "error!");
  return ORU_RET_OK;
}

ORU_API oru_matrix *oru_create_matrix_from_disk(const char *path) {
  if (!path) return nullptr;
  FileCloser file{std::fopen(path, "rb")};
  if (!file.f) ORU_FAIL_MSG(nullptr, "Opening file errors!");
  char magic[kMagicField];
  if (std::fread(magic, 1, kMagicField, file.f) != kMagicField || std::memcmp(magic, kMagic, sizeof kMagic) != 0)
    return nullptr;
  uint32_t words[ORU_MATRIX_HEADER_WORDS];
  if (std::fread(words, 1, kHeaderBytes, file.f) != kHeaderBytes) return nullptr;
  const int32_t rows = int32_t(words[2]), cols = int32_t(words[3]), depth = int32_t(words[4]);
  const uint32_t type = words[1];

  // Size the claim before allocating: it may overflow, or promise far more than the file has.
  oru_matrix probe{};
  if (rows >= 1 && cols >= 1 && depth >= 1 && type < 32) {
    oru::fill_matrix_header(&probe, rows, cols, depth, type);
    int64_t claimed;
    const int64_t present = remaining_bytes(file.f);
    if (!oru::matrix_storage_bytes(probe, &claimed) ||
        (claimed > kUntrustedClaimLimit && (present < 0 || claimed > present)))
      ORU_FAIL_MSG(nullptr, "memory error!");
  }
  oru::Guard<oru_matrix, oru_release_matrix> m(oru_create_matrix(rows, cols, depth, type));
  if (!m.get()) ORU_FAIL_MSG(nullptr, "memory error!");
  m->kind = words[0];
  m->format = words[9];
  int64_t bytes = 0;
  oru::matrix_storage_bytes(*m.get(), &bytes);
  if (std::fread(m->data, 1, size_t(bytes), file.f) != size_t(bytes)) ORU_REPORT("error!");
  return m.dismiss();
}

ORU_API uint32_t oru_export_data_to_file(const char *path, const oru_matrix *matrix, int32_t text) {
  int64_t bytes;
  if (!matrix || !matrix->data || !oru::matrix_storage_bytes(*matrix, &bytes))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  if (!path) path = "data.dat";
  if (text != 0) return export_text(path, *matrix);

  FileCloser file{std::fopen(path, "wb")};
  if (!file.f) ORU_FAIL(ORU_RET_ERR_OPEN_FILE);
  // A planar 4:2:0 frame is one luma plane and two quarter-size chroma planes.
  constexpr uint32_t kFormatYuv420Planar = 5;
  if (matrix->format == kFormatYuv420Planar)
    bytes = int64_t(float(matrix->rows) * float(matrix->cols) * 1.5f);
  if (std::fwrite(matrix->data, 1, size_t(bytes), file.f) != size_t(bytes))
    ORU_REPORT(oru_error_string[oru::message_index(ORU_RET_ERR_DATA_LENGTH)]);
  std::fflush(file.f);
  return ORU_RET_OK;
}

}  // extern "C"
