// Rotation vectors to matrices with their derivative, and matrices to Euler angles.
#include <cmath>

#include "core/oru_report.h"
#include "pose/oru_pose_internal.h"
#include "oru_pose.h"

namespace {

template <typename T>
void store(void *dst, int i, double v) {
  static_cast<T *>(dst)[i] = T(v);
}

void store_values(const oru_matrix *m, const double *v, int count) {
  for (int i = 0; i < count; ++i) {
    if (m->type == aif64)
      store<double>(m->data, i, v[i]);
    else
      store<float>(m->data, i, v[i]);
  }
}

}  // namespace

uint32_t oru_rodrigues2_jacobian(oru_matrix *dst, oru_matrix *jacobian, const oru_matrix *src) {
  if (!dst || !src || (src->type != aif32 && src->type != aif64)) return ORU_RET_ERR_PARA;
  if (dst->rows != 3 && dst->cols != 3 && dst->stride != 24) return ORU_RET_ERR_PARA;
  if (src->rows != 1 && src->cols != 1) return jacobian ? ORU_RET_ERR_PARA : ORU_RET_OK;

  double r[3];
  for (int i = 0; i < 3; ++i)
    r[i] = src->type == aif64 ? static_cast<const double *>(src->data)[i] : static_cast<const float *>(src->data)[i];

  double R[9], J[27] = {0};
  const double theta = std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]);
  if (theta < 2.220446049250313e-16) {
    for (int k = 0; k < 9; ++k) R[k] = (k % 4 == 0) ? 1.0 : 0.0;
    // First-order term of the exponential: d(R)/d(r_i) is the generator of axis i.
    J[5] = J[15] = J[19] = -1.0;
    J[7] = J[11] = J[21] = 1.0;
  } else {
    const double c = std::cos(theta), s = std::sin(theta), c1 = 1.0 - c, itheta = 1.0 / theta;
    const double n[3] = {r[0] * itheta, r[1] * itheta, r[2] * itheta};
    const double nn[9] = {n[0] * n[0], n[0] * n[1], n[0] * n[2], n[1] * n[0], n[1] * n[1],
                          n[1] * n[2], n[2] * n[0], n[2] * n[1], n[2] * n[2]};
    const double N[9] = {0, -n[2], n[1], n[2], 0, -n[0], -n[1], n[0], 0};
    for (int k = 0; k < 9; ++k) R[k] = (k % 4 == 0 ? c : 0.0) + c1 * nn[k] + s * N[k];

    // d(n n^T)/d(n_i) and d(N)/d(n_i), each as a 9-vector.
    const double D[3][9] = {{2 * n[0], n[1], n[2], n[1], 0, 0, n[2], 0, 0},
                            {0, n[0], 0, n[0], 2 * n[1], n[2], 0, n[2], 0},
                            {0, 0, n[0], 0, 0, n[1], n[0], n[1], 2 * n[2]}};
    const double E[3][9] = {{0, 0, 0, 0, 0, -1, 0, 1, 0}, {0, 0, 1, 0, 0, 0, -1, 0, 0}, {0, -1, 0, 1, 0, 0, 0, 0, 0}};
    for (int i = 0; i < 3; ++i) {
      const double ni = n[i];
      const double a0 = -s * ni, a1 = (s - 2.0 * c1 * itheta) * ni, a2 = c1 * itheta, a3 = (c - s * itheta) * ni,
                   a4 = s * itheta;
      for (int k = 0; k < 9; ++k)
        J[i * 9 + k] = (k % 4 == 0 ? a0 : 0.0) + a1 * nn[k] + a2 * D[i][k] + a3 * N[k] + a4 * E[i][k];
    }
  }
  store_values(dst, R, 9);
  if (jacobian) store_values(jacobian, J, 27);
  return ORU_RET_OK;
}

namespace {

template <typename T>
void rotation_to_angles(T *angles, const T *R) {
  const T sy = std::sqrt(R[0] * R[0] + R[3] * R[3]);
  T x, y, z;
  if (sy >= T(1e-6)) {
    x = std::atan2(R[7], R[8]);
    y = std::atan2(-R[6], sy);
    z = std::atan2(R[3], R[0]);
  } else {
    // Gimbal lock: the rotation about z merges into the one about x.
    x = std::atan2(-R[5], R[4]);
    y = std::atan2(-R[6], sy);
    z = T(0);
  }
  angles[0] = T(x * 180.0 / 3.141592653589793);
  angles[1] = T(y * 180.0 / 3.141592653589793);
  angles[2] = T(z * 180.0 / 3.141592653589793);
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_rotation_to_angles(oru_matrix *angles, const oru_matrix *rotation) {
  if (!angles || !rotation || !angles->data || !rotation->data || angles->type != rotation->type ||
      (angles->type != aif32 && angles->type != aif64) || int64_t(angles->rows) * angles->cols != 3 ||
      (rotation->rows != 3 && rotation->cols != 3) || int64_t(rotation->rows) * rotation->cols != 9)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  if (angles->type == aif64)
    rotation_to_angles(static_cast<double *>(angles->data), static_cast<const double *>(rotation->data));
  else
    rotation_to_angles(static_cast<float *>(angles->data), static_cast<const float *>(rotation->data));
  return ORU_RET_OK;
}

}  // extern "C"
