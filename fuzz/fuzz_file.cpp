#include "fuzz_file.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

const char *fuzz_input_file(const uint8_t *data, size_t size) {
  static char path[256];
  if (!path[0]) {
    const char *dir = std::getenv("TMPDIR");
    std::snprintf(path, sizeof path, "%s/oru_fuzz_%d.bin", dir ? dir : "/tmp", int(getpid()));
  }
  FILE *f = std::fopen(path, "wb");
  if (!f) return nullptr;
  const bool ok = std::fwrite(data, 1, size, f) == size;
  std::fclose(f);
  return ok ? path : nullptr;
}
