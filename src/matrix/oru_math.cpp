// The table-driven exponential, the float sigmoid step and the square roots.
#include <cmath>
#include <cstring>

#include "matrix/oru_l1_kernels.h"
#include "oru_matrix.h"

namespace oru {

double fast_exp_one(double x) {
  uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  // Beyond |x| >= 2048 the product below could leave int32; pin y to a value that
  // still saturates the exponent to infinity or zero.
  const uint32_t biased = uint32_t(bits >> 52) & 0x7FFu;
  const double y = biased > 1033 ? ((bits >> 63) ? -kFastExpClamp : kFastExpClamp) : x * kFastExpScale;
  const int32_t k = int32_t(std::lrint(y));
  const double r = (y - double(k)) * 0.015625;
  const int32_t e = (k >> 6) + 1023;
  const uint64_t field = uint32_t(e) >= 2048u ? (k < -65472 ? 0u : 2047u) : uint64_t(e);
  const uint64_t scale_bits = field << 52;
  double scale;
  std::memcpy(&scale, &scale_bits, sizeof scale);
  const double p = ((((kFastExpP5 * r + kFastExpP4) * r + kFastExpP3) * r + kFastExpP2) * r + kFastExpP1) * r +
                   kFastExpP0;
  return expTab[k & 63] * scale * p;
}

void fast_expl_plain(double *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) x[i] = fast_exp_one(x[i]);
}

void sigmoid_real32_plain(float *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) {
    const float e = std::exp(x[i]);
    x[i] = e / (e + 1.0f);
  }
}

void sqrt_real32_plain(float *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) x[i] = std::sqrt(x[i]);
}

}  // namespace oru

extern "C" {

ORU_API void oru_fast_expl(double *x, int32_t n) {
  static const auto kernel = oru::pick(ORU_KERNEL_FORMS(oru::fast_expl));
  if (n > 0) kernel(x, n);
}

ORU_API void oru_array1d_sqrt_real32(float *x, int64_t n) {
  using Fn = void (*)(float *, int64_t);
  static const Fn kernel =
      oru::pick(oru::KernelForms<Fn>{&oru::sqrt_real32_plain, ORU_NO_FORM, ORU_NO_FORM,
                                     ORU_NEON_FORM(&oru::sqrt_real32_neon)});
  if (n > 0) kernel(x, n);
}

ORU_API void oru_array1d_sqrt_real64(double *x, int64_t n) {
  for (int64_t i = 0; i < n; ++i) x[i] = std::sqrt(x[i]);
}

}  // extern "C"
