// The last step of every strided tile form, written once: C = (beta 0: 0, beta 1: C, else
// beta * C) + (alpha 1: AB, else alpha * AB), in the plain form's order. The vector step
// takes any traits of the vector recipe with zero, set1, mul and add.
#ifndef ORU_KERNELS_GEMM_FINISH_H
#define ORU_KERNELS_GEMM_FINISH_H

#include <cstdint>

namespace oru {
namespace simd {
namespace {

template <typename T>
inline void finish_scalar(T &c, T ab, T alpha, T beta) {
  if (beta == T(0))
    c = T(0);
  else if (beta != T(1))
    c *= beta;
  if (alpha == T(1))
    c += ab;
  else
    c += alpha * ab;
}

// A whole tile AB (MR by NR) into C with rows rs_c and columns cs_c elements apart.
template <typename T, int MR, int NR>
inline void finish_strided(T *c, int64_t rs_c, int64_t cs_c, const T (&ab)[MR][NR], T alpha, T beta) {
  for (int i = 0; i < MR; ++i)
    for (int j = 0; j < NR; ++j) finish_scalar(c[i * rs_c + j * cs_c], ab[i][j], alpha, beta);
}

template <typename S, typename T>
inline typename S::V finish(typename S::V c, typename S::V ab, T alpha, T beta) {
  if (beta == T(0))
    c = S::zero();
  else if (beta != T(1))
    c = S::mul(c, S::set1(beta));
  if (alpha != T(1)) ab = S::mul(ab, S::set1(alpha));
  return S::add(c, ab);
}

}  // namespace
}  // namespace simd
}  // namespace oru

#endif
