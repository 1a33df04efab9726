// AVX-512 forms of the packed HWG kernels: the 8-lane body with thirty-two registers, so
// more output pixels share each weight load, and the pair form that computes two 8-groups
// of outputs in 16-lane vectors.
#include "kernels/packed_hwg/oru_hwg_kernels_x86.h"
#include "kernels/packed_hwg/oru_hwg_kernels_simd.h"

ORU_HWG_FORMS(avx512, X86<32>)

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
  // Halves joined and split by vector shuffles, which compile to one insert or extract.
  typedef float Half __attribute__((vector_size(32)));
  static T load_out(const float *p, int64_t gap) {
    const Half lo = Half(_mm256_loadu_ps(p)), hi = Half(_mm256_loadu_ps(p + gap));
    return T(__builtin_shufflevector(lo, hi, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  }
  static void store_out(float *p, int64_t gap, T v) {
    typedef float Full __attribute__((vector_size(64)));
    const Full f = Full(v);
    _mm256_storeu_ps(p, __m256(__builtin_shufflevector(f, f, 0, 1, 2, 3, 4, 5, 6, 7)));
    _mm256_storeu_ps(p + gap, __m256(__builtin_shufflevector(f, f, 8, 9, 10, 11, 12, 13, 14, 15)));
  }
};

template <int K, int S, int I>
void pair_member(float *out, int64_t gap, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                 int32_t in_row, const float *w0, const float *w1) {
  const StdVecOut<X86<32>, X86V16, K, S, 8, I> tile(w0, w1, gap);
  walk_plane<K, S, I>(tile, out, out_h, out_row, in, in_h, in_row);
}

}  // namespace

namespace oru {
const HwgPairTable hwg_pair_kernels_avx512 = {
    {&pair_member<1, 1, 8>, &pair_member<1, 1, 4>, &pair_member<1, 1, 1>},
    {&pair_member<3, 1, 8>, &pair_member<3, 1, 4>, &pair_member<3, 1, 1>},
    {&pair_member<3, 2, 8>, &pair_member<3, 2, 4>, &pair_member<3, 2, 1>}};
}  // namespace oru
