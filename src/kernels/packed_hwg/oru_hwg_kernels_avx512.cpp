// AVX-512 forms of the packed HWG kernels: the 8-lane body with thirty-two registers, so
// more output pixels share each weight load, and the pair form that computes two 8-groups
// of outputs in 16-lane vectors.
#include "kernels/packed_hwg/oru_hwg_kernels_x86.h"
#include "kernels/packed_hwg/oru_hwg_kernels_simd.h"

namespace {

// 16 output lanes: the low 8 belong to the first group's pixel, the high 8 to the second's.
struct X86V16 {
  using T = __m512;
  static constexpr int regs = 1, lanes = 16;
  static T load(const float *p) { return _mm512_loadu_ps(p); }
  static T zero() { return _mm512_setzero_ps(); }
  static T bcast(const float *p) { return _mm512_set1_ps(*p); }
  static T fma(T a, T b, T c) { return _mm512_fmadd_ps(a, b, c); }
  static T add(T a, T b) { return _mm512_add_ps(a, b); }
  static T mul(T a, T b) { return _mm512_mul_ps(a, b); }
  static T set1(float v) { return _mm512_set1_ps(v); }
  static void store(float *p, T v) { _mm512_storeu_ps(p, v); }
  // Zero-masked forms: the same instruction, without the plain forms' undefined source.
  static T max(T a, T b) { return _mm512_maskz_max_ps(0xFFFF, a, b); }
  static T min(T a, T b) { return _mm512_maskz_min_ps(0xFFFF, a, b); }
  // The halves go to the two groups' planes; vector shuffles compile to one extract.
  static void store_out(float *p, int64_t gap, T v) {
    typedef float Full __attribute__((vector_size(64)));
    const Full f = Full(v);
    _mm256_storeu_ps(p, __m256(__builtin_shufflevector(f, f, 0, 1, 2, 3, 4, 5, 6, 7)));
    _mm256_storeu_ps(p + gap, __m256(__builtin_shufflevector(f, f, 8, 9, 10, 11, 12, 13, 14, 15)));
  }
};

// Thirty-two registers; the bias pass in 16-lane vectors.
using Avx512 = X86<32, X86V16>;

}  // namespace

ORU_HWG_FORMS(avx512, Avx512, ORU_HWG_ALL_IN(Avx512, X86V16))
