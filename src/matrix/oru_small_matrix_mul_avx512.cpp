// AVX-512 forms of the small multiply: the shared bodies, vectorised by the compiler for this
// instruction set (separate multiply and add, as everywhere).
#include "matrix/oru_small_matrix_mul_impl.h"

namespace oru {

ORU_DEFINE_SMALL_MUL_FORMS(avx512)

}  // namespace oru
