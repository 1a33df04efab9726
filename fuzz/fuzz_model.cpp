// Fuzzes the model weight loader: the first byte of the input says how many words to ask
// for, and the whole input is the file.
#include <cstdint>
#include <cstring>

#include "fuzz_file.h"
#include "oru_cg.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *path = fuzz_input_file(data, size);
  if (!path) return 0;
  uint32_t words[256];
  const int32_t count = size > 0 ? int32_t(data[0]) : 0;
  const uint32_t st = oru_cg_load_model(words, count, path);
  // Only 0 and 1 are possible outcomes for a readable file.
  if (st > 1) __builtin_trap();
  return 0;
}
