// Pinhole projection of object points under a pose, with derivatives by the pose.
#include <cstring>

#include "core/oru_scratch.h"
#include "pose/oru_pose_internal.h"

namespace {

inline const double *row_of(const oru_matrix *m, int32_t i) {
  return reinterpret_cast<const double *>(static_cast<const char *>(m->data) + m->stride * i);
}

// The derivatives arrive as views into the optimiser's J, so they are written row by row.
void copy_into_view(oru_matrix *view, const double *packed, int32_t rows) {
  for (int32_t i = 0; i < rows; ++i)
    std::memcpy(static_cast<char *>(view->data) + view->stride * i, packed + 3 * i, 3 * sizeof(double));
}

}  // namespace

void oru_project_points2(const oru_matrix *object_points, const oru_matrix *r, const oru_matrix *t,
                         const oru_matrix *camera, oru_matrix *image_points, oru_matrix *dpdr, oru_matrix *dpdt) {
  double R[9], dRdr[27];
  oru_matrix Rm{}, Jm{};
  oru_set_matrix_header(&Rm, 3, 3, 1, aif64);
  Rm.data = R;
  oru_set_matrix_header(&Jm, 3, 9, 1, aif64);
  Jm.data = dRdr;
  oru_rodrigues2_jacobian(&Rm, &Jm, r);

  const double *tv = static_cast<const double *>(t->data);
  const double *cam = static_cast<const double *>(camera->data);
  const double fx = cam[0], cx = cam[2], fy = cam[4], cy = cam[5];
  const int32_t n = object_points->rows;
  double *out = static_cast<double *>(image_points->data);

  oru::Scratch<double> dr, dt;
  if (dpdr && !dr.reset(int64_t(n) * 6)) dpdr = nullptr;
  if (dpdt && !dt.reset(int64_t(n) * 6)) dpdt = nullptr;

  for (int32_t i = 0; i < n; ++i) {
    const double *X = row_of(object_points, i);
    const double x0 = R[0] * X[0] + R[1] * X[1] + R[2] * X[2] + tv[0];
    const double y0 = R[3] * X[0] + R[4] * X[1] + R[5] * X[2] + tv[1];
    const double z0 = R[6] * X[0] + R[7] * X[1] + R[8] * X[2] + tv[2];
    const double iz = z0 != 0.0 ? 1.0 / z0 : 1.0;
    const double x = x0 * iz, y = y0 * iz;
    out[2 * i] = cx + fx * x;
    out[2 * i + 1] = cy + fy * y;
    if (dpdt) {
      double *a = &dt[6 * int64_t(i)];
      a[0] = fx * iz;
      a[1] = 0.0;
      a[2] = fx * (-x * iz);
      a[3] = 0.0;
      a[4] = fy * iz;
      a[5] = fy * (-y * iz);
    }
    if (dpdr) {
      double *a = &dr[6 * int64_t(i)];
      for (int j = 0; j < 3; ++j) {
        const double *d = dRdr + 9 * j;
        const double dx0 = X[0] * d[0] + X[1] * d[1] + X[2] * d[2];
        const double dy0 = X[0] * d[3] + X[1] * d[4] + X[2] * d[5];
        const double dz0 = X[0] * d[6] + X[1] * d[7] + X[2] * d[8];
        a[j] = fx * iz * (dx0 - x * dz0);
        a[3 + j] = fy * iz * (dy0 - y * dz0);
      }
    }
  }
  if (dpdr) copy_into_view(dpdr, dr.get(), 2 * n);
  if (dpdt) copy_into_view(dpdt, dt.get(), 2 * n);
}
