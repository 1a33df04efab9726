// Linear pose estimate: the 3 x 4 matrix [R | t] as the null vector of the stacked
// projection constraints, then the nearest rotation.
#include <cmath>
#include <cstdio>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_pose.h"

namespace {

constexpr int32_t kMaxPoints = 128;

// Wraps stack storage in a record for the decomposition calls.
oru_matrix view(double *data, int32_t rows, int32_t cols) {
  oru_matrix m{};
  oru_set_matrix_header(&m, rows, cols, 1, aif64);
  m.data = data;
  return m;
}

// Nearest orthogonal matrix U V^T of a 3 x 3 matrix, through its decomposition.
void nearest_orthogonal(double *out, const double *in) {
  double a[9], u[9], v[9], w[3];
  for (int i = 0; i < 9; ++i) a[i] = in[i];
  oru_matrix am = view(a, 3, 3), um = view(u, 3, 3), vm = view(v, 3, 3), wm = view(w, 3, 1);
  oru_small_matrix_svd(&um, &vm, &wm, &am, 7);
  // Vectors are rows, so U V^T is (rows of u)^T (rows of v).
  oru_small_matrix_t_mul_matrix_real64(u, 3, 3, 3, v, 3, 3, out, 3, 1.0, 0.0);
}

// Rotation vector of a rotation matrix. Near 0 and near pi the antisymmetric part
// vanishes, so the axis comes from the symmetric part there.
void rotation_vector(double *r, const double *R) {
  const double rx = R[7] - R[5], ry = R[2] - R[6], rz = R[3] - R[1];
  const double s = std::sqrt((rx * rx + ry * ry + rz * rz) * 0.25);
  double c = (R[0] + R[4] + R[8] - 1.0) * 0.5;
  c = c > 1.0 ? 1.0 : c < -1.0 ? -1.0 : c;
  const double theta = std::acos(c);
  if (s >= 1e-5) {
    const double k = theta / (2.0 * s);
    r[0] = rx * k;
    r[1] = ry * k;
    r[2] = rz * k;
    return;
  }
  if (c > 0.0) {  // angle near 0: sin(theta) n is theta n to first order
    r[0] = rx * 0.5;
    r[1] = ry * 0.5;
    r[2] = rz * 0.5;
    return;
  }
  // Angle near pi: (R + I) / 2 is n n^T; the largest diagonal entry fixes a safe component.
  double n[3] = {std::sqrt(std::fmax(0.0, (R[0] + 1.0) * 0.5)), std::sqrt(std::fmax(0.0, (R[4] + 1.0) * 0.5)),
                 std::sqrt(std::fmax(0.0, (R[8] + 1.0) * 0.5))};
  int big = n[0] >= n[1] && n[0] >= n[2] ? 0 : n[1] >= n[2] ? 1 : 2;
  for (int i = 0; i < 3; ++i) {
    if (i == big) continue;
    if (R[big * 3 + i] + R[i * 3 + big] < 0.0) n[i] = -n[i];
  }
  for (int i = 0; i < 3; ++i) r[i] = n[i] * theta;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_solve_pnp_dlt(double *params, const oru_matrix *object_points, const oru_matrix *image_points,
                                   const void *reserved, const double *camera) {
  (void)reserved;
  // Missing records would be read below; refuse them rather than crash.
  if (!params || !object_points || !object_points->data || !image_points || !image_points->data || !camera)
    return ORU_RET_ERR_PARA;
  const int32_t n = object_points->rows;
  if (n > kMaxPoints) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "points number is too big!");

  const double fx = camera[0], cx = camera[2], fy = camera[4], cy = camera[5];
  double xy[kMaxPoints][2];
  for (int32_t i = 0; i < n; ++i) {
    const double *p =
        reinterpret_cast<const double *>(static_cast<const char *>(image_points->data) + image_points->stride * i);
    xy[i][0] = p[0] / fx - cx / fx;
    xy[i][1] = p[1] / fy - cy / fy;
  }

  oru::Guard<oru_matrix, oru_release_matrix> L(oru_create_matrix(2 * n, 12, 1, aif64));
  if (!L.get()) return ORU_RET_ERR_MEMORY;
  double *l = static_cast<double *>(L->data);
  for (int32_t i = 0; i < n; ++i) {
    const double *P =
        reinterpret_cast<const double *>(static_cast<const char *>(object_points->data) + object_points->stride * i);
    const double X = P[0], Y = P[1], Z = P[2], x = xy[i][0], y = xy[i][1];
    const double r0[12] = {X, Y, Z, 1, 0, 0, 0, 0, -x * X, -x * Y, -x * Z, -x};
    const double r1[12] = {0, 0, 0, 0, X, Y, Z, 1, -y * X, -y * Y, -y * Z, -y};
    for (int k = 0; k < 12; ++k) {
      l[(2 * i) * 12 + k] = r0[k];
      l[(2 * i + 1) * 12 + k] = r1[k];
    }
  }

  double ll[144], u[144], w[12];
  oru_matrix llm = view(ll, 12, 12), um = view(u, 12, 12), wm = view(w, 12, 1);
  oru_small_mat_transpose_mul_mat(&llm, L.get());
  if (oru_small_matrix_svd(&um, nullptr, &wm, &llm, 3) != ORU_RET_OK) return ORU_RET_ERR_MEMORY;

  double RR[9], tt[3];
  const double *null_vec = u + 11 * 12;  // vector of the smallest value
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) RR[i * 3 + j] = null_vec[i * 4 + j];
    tt[i] = null_vec[i * 4 + 3];
  }
  const double d = RR[0] * (RR[4] * RR[8] - RR[5] * RR[7]) - RR[1] * (RR[3] * RR[8] - RR[5] * RR[6]) +
                   RR[2] * (RR[3] * RR[7] - RR[4] * RR[6]);
  printf("det_v %f\n", d);
  // The null vector's sign is arbitrary; a proper rotation puts the points in front.
  if (d < 0.0) {
    for (double &v : RR) v = -v;
    for (double &v : tt) v = -v;
  }
  double sc = 0.0;
  for (double v : RR) sc += v * v;
  sc = std::sqrt(sc);

  double R[9], R2[9];
  nearest_orthogonal(R, RR);
  double rn = 0.0;
  for (double v : R) rn += v * v;
  const double ratio = std::sqrt(rn) / sc;
  for (int i = 0; i < 3; ++i) params[3 + i] = tt[i] * ratio;
  nearest_orthogonal(R2, R);
  rotation_vector(params, R2);

  printf("sc 1%f r_t_params %f %f %f %f %f %f\n", ratio, params[0], params[1], params[2], params[3], params[4],
         params[5]);
  return ORU_RET_OK;
}

}  // extern "C"
