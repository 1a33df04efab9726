// Closed-form three-point pose: the algebraic method that reduces the problem to a
// quartic in the cosine of one angle. No allocation, no shared state.
#include <cmath>

#include "core/oru_report.h"
#include "oru_matrix.h"
#include "oru_pose.h"

namespace {

struct V3 {
  double x, y, z;
};
inline V3 operator-(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline V3 operator*(V3 a, double s) { return {a.x * s, a.y * s, a.z * s}; }
inline double dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline V3 cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline double norm(V3 a) { return std::sqrt(dot(a, a)); }

// Column c of a row-major 3 x 3 array.
inline V3 column(const double *m, int c) { return {m[c], m[3 + c], m[6 + c]}; }

}  // namespace

extern "C" {

ORU_API int32_t compute_poses(const double *features, const double *world, double *rotations,
                              double *translations) {
  // The result counts solutions: a missing array gets a report and no solution.
  if (!features || !world || !rotations || !translations) ORU_FAIL_MSG(0, oru_error_string[1]);
  const V3 b1 = column(features, 0), b2 = column(features, 1), b3 = column(features, 2);
  const V3 p1 = column(world, 0), p2 = column(world, 1), p3 = column(world, 2);

  V3 u0 = p1 - p2;
  const double nu0 = norm(u0);
  const V3 k1 = u0 * (1.0 / nu0);
  V3 k3 = cross(b1, b2);
  const double nk3 = norm(k3);
  k3 = k3 * (1.0 / nk3);
  const V3 tz = cross(b1, k3);
  const V3 v1 = cross(b1, b3);
  const V3 v2 = cross(b2, b3);
  const V3 u1 = p1 - p3;
  const double u1k1 = dot(u1, k1);
  const double k3b3 = dot(k3, b3);

  double f11 = k3b3;
  double f13 = dot(k3, v1);
  const double f15 = -u1k1 * f11;
  V3 nl = cross(u1, k1);
  const double delta = norm(nl);
  nl = nl * (1.0 / delta);
  f11 *= delta;
  f13 *= delta;

  const double u2k1 = u1k1 - nu0;
  double f21 = dot(tz, v2);
  double f22 = nk3 * k3b3;
  double f23 = dot(k3, v2);
  const double f24 = u2k1 * f22;
  const double f25 = -u2k1 * f21;
  f21 *= delta;
  f22 *= delta;
  f23 *= delta;

  const double g1 = f13 * f22;
  const double g2 = f13 * f25 - f15 * f23;
  const double g3 = f11 * f23 - f13 * f21;
  const double g4 = -f13 * f24;
  const double g5 = f11 * f22;
  const double g6 = f11 * f25 - f15 * f21;
  const double g7 = -f15 * f24;

  const double coeffs[5] = {g5 * g5 + g1 * g1 + g3 * g3, 2.0 * (g5 * g6 + g1 * g2 + g3 * g4),
                            g6 * g6 + 2.0 * g5 * g7 + g2 * g2 + g4 * g4 - g1 * g1 - g3 * g3,
                            2.0 * (g6 * g7 - g1 * g2 - g3 * g4), g7 * g7 - g2 * g2 - g4 * g4};
  double s[4];
  oru_solve_quartic(coeffs, s);
  // Two Newton steps recover the precision the closed form loses.
  for (int step = 0; step < 2; ++step) {
    for (double &x : s) {
      const double p = (((coeffs[0] * x + coeffs[1]) * x + coeffs[2]) * x + coeffs[3]) * x + coeffs[4];
      const double dp = ((4.0 * coeffs[0] * x + 3.0 * coeffs[1]) * x + 2.0 * coeffs[2]) * x + coeffs[3];
      x -= p / dp;
    }
  }

  const V3 kn = cross(k1, nl);
  // [k1 nl kn] as columns, [b1 k3 tz] as rows.
  const double A[9] = {k1.x, nl.x, kn.x, k1.y, nl.y, kn.y, k1.z, nl.z, kn.z};
  const double B[9] = {b1.x, b1.y, b1.z, k3.x, k3.y, k3.z, tz.x, tz.y, tz.z};
  int32_t count = 0;
  for (int r = 0; r < 4; ++r) {
    if (std::fabs(s[r]) > 1.0) continue;
    const double c1 = s[r];
    double s1 = std::sqrt(1.0 - c1 * c1);
    if (!(k3b3 > 0.0)) s1 = -s1;
    const double n3 = s1 / ((g5 * c1 + g6) * c1 + g7);
    const double c3 = (g1 * c1 + g2) * n3;
    const double s3 = (g3 * c1 + g4) * n3;
    const double C[9] = {c3, 0.0, -s3, s1 * s3, c1, s1 * c3, c1 * s3, -s1, c1 * c3};

    double AC[9], Q[9];
    oru_small_matrix_mul_matrix_real64(A, 3, 3, 3, C, 3, 3, AC, 3, 1.0, 0.0);
    oru_small_matrix_mul_matrix_real64(AC, 3, 3, 3, B, 3, 3, Q, 3, 1.0, 0.0);

    double *R = rotations + 9 * count;
    double *t = translations + 3 * count;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) R[i * 3 + j] = Q[j * 3 + i];
    const double k = delta / k3b3 * s1;
    const double pp[3] = {p3.x, p3.y, p3.z}, bb[3] = {b3.x, b3.y, b3.z};
    for (int i = 0; i < 3; ++i) t[i] = k * bb[i] - (R[i * 3] * pp[0] + R[i * 3 + 1] * pp[1] + R[i * 3 + 2] * pp[2]);
    ++count;
  }
  return count;
}

ORU_API uint32_t oru_solve_ap3p(double *rotations, double *translations, const float *object_points,
                                const float *image_points, const float *camera, const void *reserved,
                                uint32_t *count) {
  (void)reserved;
  if (!rotations || !translations || !object_points || !image_points || !camera || !count) return 1;
  const double fx = camera[0], cx = camera[2], fy = camera[4], cy = camera[5];
  double features[9], world[9];
  for (int i = 0; i < 3; ++i) {
    const double x = (image_points[2 * i] - cx) / fx, y = (image_points[2 * i + 1] - cy) / fy;
    const double inv = 1.0 / std::sqrt(x * x + y * y + 1.0);
    features[i] = x * inv;
    features[3 + i] = y * inv;
    features[6 + i] = inv;
    for (int k = 0; k < 3; ++k) world[3 * k + i] = object_points[3 * i + k];
  }
  *count = uint32_t(compute_poses(features, world, rotations, translations));
  return 0;
}

}  // extern "C"
