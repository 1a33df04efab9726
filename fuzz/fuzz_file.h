// The readers under fuzz take a path, so each input is first written to a file.
#ifndef ORU_FUZZ_FILE_H
#define ORU_FUZZ_FILE_H

#include <cstddef>
#include <cstdint>

// Writes the bytes to this process's scratch file and returns its path (null on failure).
const char *fuzz_input_file(const uint8_t *data, size_t size);

#endif
