// Feeds arbitrary bytes to the BMP reader in all three modes; any image that comes back
// is walked end to end (so a wrong size shows as an out-of-bounds read) and released.
#include <cstddef>
#include <cstdint>

#include "fuzz_file.h"
#include "oru_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *path = fuzz_input_file(data, size);
  if (!path) return 0;
  for (uint32_t mode = 0; mode < 3; ++mode) {
    oru_image *im = oru_create_image_from_file(path, mode);
    if (!im) continue;
    const uint8_t *p = static_cast<const uint8_t *>(im->data);
    uint32_t sum = 0;
    for (int64_t i = 0; i < im->stride * im->rows; ++i) sum += p[i];
    if (sum == 0xFFFFFFFFu) im->format = ORU_IMAGE_BGR24;  // keeps the walk from being optimised away
    oru_release_matrix(&im);
  }
  return 0;
}
