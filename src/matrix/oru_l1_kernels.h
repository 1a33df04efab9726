// Forms of the element-wise kernels that have vector twins, and the constant tables
// they share. The exported kernels pick one form once and call it.
#ifndef ORU_MATRIX_L1_KERNELS_H
#define ORU_MATRIX_L1_KERNELS_H

#include <cstdint>

#include "core/oru_dispatch.h"

namespace oru {

// 2^(i/64) / P(0), so that the polynomial's constant term needs no division.
extern const double expTab[64];
extern const uint8_t pop_count_table[256];
// (i - 127.5) / 128: the detector input preparation reads it.
extern const float ai8u_to_aif32_norm[256];

// Constants of the table-driven exponential.
constexpr double kFastExpScale = 92.33248261689366;  // 64 / ln 2
constexpr double kFastExpClamp = 192000.0;
constexpr double kFastExpP5 = 0.13825440165858396;
constexpr double kFastExpP4 = 0.9945944344074722;
constexpr double kFastExpP3 = 5.7396048189422615;
constexpr double kFastExpP2 = 24.841498169168357;
constexpr double kFastExpP1 = 71.67741243389332;
constexpr double kFastExpP0 = 103.4086474621308;

ORU_DECLARE_FORMS(add_real32, float *dst, int64_t n, const float *a, const float *b)
ORU_DECLARE_FORMS(sub_real32, float *dst, int64_t n, const float *a, const float *b)
ORU_DECLARE_FORMS(mul_real32, float *dst, int64_t n, const float *a, const float *b)
ORU_DECLARE_FORMS(div_real32, float *dst, int64_t n, const float *a, const float *b)
ORU_DECLARE_FORMS(add_real64, double *dst, int64_t n, const double *a, const double *b)
ORU_DECLARE_FORMS(sub_real64, double *dst, int64_t n, const double *a, const double *b)
ORU_DECLARE_FORMS(mul_real64, double *dst, int64_t n, const double *a, const double *b)
ORU_DECLARE_FORMS(div_real64, double *dst, int64_t n, const double *a, const double *b)

// x[i] = e^x[i], in place.
ORU_DECLARE_FORMS(fast_expl, double *x, int64_t n)
// x[i] = e / (e + 1) with e = expf(x[i]); the vector forms use the vector exponential of kernels/simd, within 2 ulp.
ORU_DECLARE_FORMS(sigmoid_real32, float *x, int64_t n)
// Only arm64 has a vector form: the estimate-based root its processor offers.
void sqrt_real32_plain(float *x, int64_t n);
void sqrt_real32_neon(float *x, int64_t n);

// Conversions with vector twins.
ORU_DECLARE_FORMS(cvt_ai8u_to_aif32, float *dst, const uint8_t *src, int64_t n)
ORU_DECLARE_FORMS(cvt_aif32_to_ai8u, uint8_t *dst, const float *src, int64_t n)
ORU_DECLARE_FORMS(cvt_aif32_to_aif64, double *dst, const float *src, int64_t n)
ORU_DECLARE_FORMS(cvt_aif64_to_aif32, float *dst, const double *src, int64_t n)

// The scalar step of the exponential, shared by the plain form and the vector tails.
double fast_exp_one(double x);
// The scalar step of float to ai8u: rint, then a clamp on the low 32 bits.
uint8_t f_to_u8(double v);

}  // namespace oru

#endif
