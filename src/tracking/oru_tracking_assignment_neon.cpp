// NEON form of the assignment's relaxation step: four columns per step in two vectors,
// a plain tail.
#include <arm_neon.h>

#include <limits>

#include "tracking/oru_tracking_internal.h"

namespace oru {

int32_t lsa_relax_neon(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                       double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                       double *lowest) {
  const float64x2_t vmin = vdupq_n_f64(min_val);
  const float64x2_t vu = vdupq_n_f64(u_row);
  const int32x4_t vrow = vdupq_n_s32(row);
  float64x2_t low0 = vdupq_n_f64(std::numeric_limits<double>::infinity());
  float64x2_t low1 = low0;
  int32_t j = 0;
  for (; j + 4 <= nc; j += 4) {
    const float64x2_t r0 = vsubq_f64(vsubq_f64(vaddq_f64(vmin, vld1q_f64(crow + j)), vu), vld1q_f64(v + j));
    const float64x2_t r1 = vsubq_f64(vsubq_f64(vaddq_f64(vmin, vld1q_f64(crow + j + 2)), vu), vld1q_f64(v + j + 2));
    const float64x2_t s0 = vld1q_f64(shortest + j);
    const float64x2_t s1 = vld1q_f64(shortest + j + 2);
    const uint64x2_t b0 = vcltq_f64(r0, s0);
    const uint64x2_t b1 = vcltq_f64(r1, s1);
    const float64x2_t n0 = vbslq_f64(b0, r0, s0);
    const float64x2_t n1 = vbslq_f64(b1, r1, s1);
    vst1q_f64(shortest + j, n0);
    vst1q_f64(shortest + j + 2, n1);
    // The four 64-bit masks narrowed to 32-bit lanes select the new path rows.
    const uint32x4_t m = vcombine_u32(vmovn_u64(b0), vmovn_u64(b1));
    vst1q_s32(path + j, vbslq_s32(m, vrow, vld1q_s32(path + j)));
    low0 = vminq_f64(low0, n0);
    low1 = vminq_f64(low1, n1);
  }
  double best = vminvq_f64(vminq_f64(low0, low1));
  for (; j < nc; ++j) {
    const double r = min_val + crow[j] - u_row - v[j];
    if (r < shortest[j]) {
      path[j] = row;
      shortest[j] = r;
    }
    if (shortest[j] < best) best = shortest[j];
  }
  *lowest = best;

  const float64x2_t vbest = vdupq_n_f64(best);
  LsaPick pick;
  j = 0;
  for (; j + 2 <= nc; j += 2) {
    const uint64x2_t eq = vceqq_f64(vld1q_f64(shortest + j), vbest);
    if (vgetq_lane_u64(eq, 0)) pick.offer(j, rank, row4col);
    if (vgetq_lane_u64(eq, 1)) pick.offer(j + 1, rank, row4col);
  }
  if (j < nc && shortest[j] == best) pick.offer(j, rank, row4col);
  return pick.column();
}

}  // namespace oru
