// Arbitrary bytes as a tensor file: the reader must refuse or load, never crash, leak
// or allocate what a hostile header claims.
#include <cstring>

#include "fuzz_file.h"
#include "oru_matrix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *path = fuzz_input_file(data, size);
  if (!path) return 0;
  oru_tensor *t = oru_create_tensor_from_disk(path);
  if (t) {
    // What loaded must be consistent: its storage covers total_bytes and can be read whole.
    volatile uint8_t sink = 0;
    const auto *bytes = static_cast<const uint8_t *>(t->data);
    for (int64_t i = 0; i < t->total_bytes; i += 4096) sink = sink ^ bytes[i];
    if (t->total_bytes > 0) sink = sink ^ bytes[t->total_bytes - 1];
    (void)sink;
    oru_release_tensor(&t);
  }
  return 0;
}
