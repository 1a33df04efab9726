// AVX2 form of the assignment's relaxation step: four columns per step, a plain tail.
#include "kernels/simd/oru_simd_avx2.h"

#include <limits>

#include "tracking/oru_tracking_internal.h"

namespace oru {

int32_t lsa_relax_avx2(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                       double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                       double *lowest) {
  const __m256d vmin = _mm256_set1_pd(min_val);
  const __m256d vu = _mm256_set1_pd(u_row);
  const __m128i vrow = _mm_set1_epi32(row);
  // Picks the low half of each 64-bit mask lane, giving one 32-bit mask lane per column.
  const __m256i narrow = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
  __m256d low = _mm256_set1_pd(std::numeric_limits<double>::infinity());
  int32_t j = 0;
  for (; j + 4 <= nc; j += 4) {
    const __m256d r = _mm256_sub_pd(_mm256_sub_pd(_mm256_add_pd(vmin, _mm256_loadu_pd(crow + j)), vu),
                                    _mm256_loadu_pd(v + j));
    const __m256d s = _mm256_loadu_pd(shortest + j);
    const __m256d better = _mm256_cmp_pd(r, s, _CMP_LT_OQ);
    const __m256d s2 = _mm256_blendv_pd(s, r, better);
    _mm256_storeu_pd(shortest + j, s2);
    const __m128i m32 = _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_castpd_si256(better), narrow));
    const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i *>(path + j));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(path + j), _mm_blendv_epi8(p, vrow, m32));
    low = _mm256_min_pd(low, s2);
  }
  __m128d l2 = _mm_min_pd(_mm256_castpd256_pd128(low), _mm256_extractf128_pd(low, 1));
  l2 = _mm_min_sd(l2, _mm_unpackhi_pd(l2, l2));
  double best = _mm_cvtsd_f64(l2);
  for (; j < nc; ++j) {
    const double r = min_val + crow[j] - u_row - v[j];
    if (r < shortest[j]) {
      path[j] = row;
      shortest[j] = r;
    }
    if (shortest[j] < best) best = shortest[j];
  }
  *lowest = best;

  const __m256d vbest = _mm256_set1_pd(best);
  LsaPick pick;
  j = 0;
  for (; j + 4 <= nc; j += 4) {
    unsigned eq = unsigned(_mm256_movemask_pd(_mm256_cmp_pd(_mm256_loadu_pd(shortest + j), vbest, _CMP_EQ_OQ)));
    while (eq) {
      pick.offer(j + __builtin_ctz(eq), rank, row4col);
      eq &= eq - 1;
    }
  }
  for (; j < nc; ++j)
    if (shortest[j] == best) pick.offer(j, rank, row4col);
  return pick.column();
}

}  // namespace oru
