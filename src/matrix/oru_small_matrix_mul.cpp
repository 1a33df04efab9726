// Small products without packing: row updates when B is read by rows, register dot products
// when B is transposed and its rows are the contiguous operand. The plain forms live here; the
// exported kernels pick the widest form once.
#include "core/oru_dispatch.h"
#include "matrix/oru_small_matrix_mul_impl.h"

namespace oru {

ORU_DEFINE_SMALL_MUL_FORMS(plain)

}  // namespace oru

#define ORU_SMALL_MUL_EXPORT(NAME, FORM, T)                                                     \
  ORU_API void NAME(ORU_SMALL_MUL_ARGS(T)) {                                                    \
    using Fn = decltype(&oru::FORM##_plain);                                                    \
    static const Fn f = oru::pick(oru::KernelForms<Fn>{                                         \
        &oru::FORM##_plain, ORU_AVX2_FORM(&oru::FORM##_avx2), ORU_AVX512_FORM(&oru::FORM##_avx512), \
        ORU_NO_FORM});                                                                          \
    f(a, a_rows, a_cols, lda, b, b_free, ldb, c, ldc, alpha, beta);                             \
  }

extern "C" {
ORU_SMALL_MUL_EXPORT(oru_small_matrix_mul_matrix_real32, small_mul_ab_real32, float)
ORU_SMALL_MUL_EXPORT(oru_small_matrix_mul_matrix_t_real32, small_mul_abt_real32, float)
ORU_SMALL_MUL_EXPORT(oru_small_matrix_t_mul_matrix_real32, small_mul_atb_real32, float)
ORU_SMALL_MUL_EXPORT(oru_small_matrix_t_mul_matrix_t_real32, small_mul_atbt_real32, float)
ORU_SMALL_MUL_EXPORT(oru_small_matrix_mul_matrix_real64, small_mul_ab_real64, double)
ORU_SMALL_MUL_EXPORT(oru_small_matrix_mul_matrix_t_real64, small_mul_abt_real64, double)
ORU_SMALL_MUL_EXPORT(oru_small_matrix_t_mul_matrix_real64, small_mul_atb_real64, double)
ORU_SMALL_MUL_EXPORT(oru_small_matrix_t_mul_matrix_t_real64, small_mul_atbt_real64, double)
}
