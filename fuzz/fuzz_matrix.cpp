// The matrix file reader against arbitrary bytes: it must refuse or return a record
// that can be released, and never take memory for sizes the file can't back.
#include <cstddef>
#include <cstdint>

#include "fuzz_file.h"
#include "oru_matrix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *path = fuzz_input_file(data, size);
  if (!path) return 0;
  oru_matrix *m = oru_create_matrix_from_disk(path);
  if (m) {
    // Touch the whole storage so that a wrong size shows up as an overflow.
    volatile uint8_t sink = 0;
    const int64_t bytes = m->stride * m->rows * m->depth;
    for (int64_t i = 0; i < bytes; i += 61) sink = sink ^ static_cast<uint8_t *>(m->data)[i];
    oru_release_matrix(&m);
  }
  return 0;
}
