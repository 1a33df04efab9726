// The model weight file: raw 32-bit words followed by the MD5 digest of their bytes.
// A bad file is a normal outcome for the caller to handle, so nothing here is reported.
#include <cstdio>
#include <cstring>

#include "oru_cg.h"
#include "oru_matrix.h"

namespace {

struct File {
  explicit File(const char *path) : f(std::fopen(path, "rb")) {}
  ~File() {
    if (f) std::fclose(f);
  }
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  FILE *f;
};

// Compares like a bounded string comparison: equal up to 16 bytes or up to the first
// position where both digests hold a zero byte.
bool same_digest(const uint8_t *a, const uint8_t *b) {
  for (int i = 0; i < 16; ++i) {
    if (a[i] != b[i]) return false;
    if (a[i] == 0) return true;
  }
  return true;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_cg_load_model(void *buffer, int32_t word_count, const char *path) {
  if (!buffer || !path || word_count < 0) return ORU_RET_ERR_PARA;
  File file(path);
  if (!file.f) return ORU_RET_ERR_PARA;
  if (std::fread(buffer, 4, size_t(word_count), file.f) < size_t(word_count)) return ORU_RET_ERR_PARA;
  // A digest cut short is not refused here: the comparison decides.
  uint8_t stored[16] = {0};
  (void)std::fread(stored, 1, sizeof stored, file.f);
  uint8_t computed[16] = {0};
  const uint32_t st = oru_hash_md5_sum(computed, buffer, int64_t(word_count) * 4);
  if (st) return st;
  return same_digest(stored, computed) ? ORU_RET_OK : ORU_RET_ERR_PARA;
}

}  // extern "C"
