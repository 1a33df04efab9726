// The MD5 compression step, kept inside the library.
#ifndef ORU_MATRIX_MD5_H
#define ORU_MATRIX_MD5_H

#include <cstdint>

namespace oru {

// Folds one 64-byte block into the four chaining words.
void permute(uint32_t state[4], const uint8_t block[64]);

}  // namespace oru

#endif
