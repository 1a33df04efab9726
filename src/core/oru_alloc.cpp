// All library memory: 32-byte aligned blocks whose two header words hold the raw
// pointer (at -16) and the requested size (at -8).
#include <cstdlib>
#include <cstring>

#include "oru_core.h"

namespace {

constexpr int64_t kOverhead = 48;

inline void **raw_slot(void *p) { return reinterpret_cast<void **>(static_cast<char *>(p) - 16); }
inline int64_t *size_slot(void *p) { return reinterpret_cast<int64_t *>(static_cast<char *>(p) - 8); }

}  // namespace

extern "C" {

ORU_API void *oru_malloc(int64_t size) {
  if (size < 1 || size > INT64_MAX - kOverhead) return nullptr;
  char *raw = static_cast<char *>(std::malloc(static_cast<size_t>(size + kOverhead)));
  if (!raw) return nullptr;
  void *p = reinterpret_cast<void *>((reinterpret_cast<uintptr_t>(raw) + 47) & ~uintptr_t(31));
  *raw_slot(p) = raw;
  *size_slot(p) = size;
  return p;
}

ORU_API void *oru_calloc(int64_t count, int64_t size) {
  if (count < 1 || size < 1 || count > INT64_MAX / size) return nullptr;
  void *p = oru_malloc(count * size);
  if (p) std::memset(p, 0, static_cast<size_t>(count * size));
  return p;
}

ORU_API void *oru_realloc(void *pointer, int64_t size) {
  if (!pointer) return oru_malloc(size);
  const int64_t recorded = *size_slot(pointer);
  if (recorded >= size) return pointer;  // blocks never shrink
  void *grown = oru_malloc(size);
  if (!grown) return nullptr;
  std::memcpy(grown, pointer, static_cast<size_t>(recorded));
  oru_free(pointer);
  return grown;
}

ORU_API void oru_free(void *pointer) {
  if (!pointer) return;
  void *raw = *raw_slot(pointer);
  if (raw) std::free(raw);
}

}  // extern "C"
