// Pose from points on one plane (a marker, a board, a document): the direct homography
// from the plane to the normalised image, split into a rotation and a translation, then
// refined by Levenberg-Marquardt on the reprojection error of the caller's 3D points.
// The linear estimate of the general solver breaks down here: a plane leaves its null
// space more than one direction wide.
#include <cfloat>
#include <cmath>
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "image/oru_homography_internal.h"
#include "oru_pose.h"
#include "pose/oru_pose_internal.h"

namespace {

bool elements_are(const oru_matrix *m, int64_t count) { return m && m->data && int64_t(m->rows) * m->cols == count; }

// Element (i, j) of an aif32 or aif64 matrix, widened.
double value(const oru_matrix *m, int32_t i, int32_t j) {
  const char *row = static_cast<const char *>(m->data) + m->stride * i;
  return m->type == aif64 ? reinterpret_cast<const double *>(row)[j] : reinterpret_cast<const float *>(row)[j];
}

oru_matrix view(double *data, int32_t rows, int32_t cols) {
  oru_matrix m{};
  oru_set_matrix_header(&m, rows, cols, 1, aif64);
  m.data = data;
  return m;
}

void cross(double out[3], const double a[3], const double b[3]) {
  out[0] = a[1] * b[2] - a[2] * b[1];
  out[1] = a[2] * b[0] - a[0] * b[2];
  out[2] = a[0] * b[1] - a[1] * b[0];
}

double norm3(const double v[3]) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// Rotation vector of a rotation matrix, also near half a turn where the antisymmetric
// part vanishes.
void rotation_vector(double r[3], const double R[9]) {
  const double c = std::fmax(-1.0, std::fmin(1.0, (R[0] + R[4] + R[8] - 1.0) * 0.5));
  const double theta = std::acos(c);
  const double a[3] = {R[7] - R[5], R[2] - R[6], R[3] - R[1]};
  const double s = std::sin(theta);
  if (s > 1e-6) {
    for (int k = 0; k < 3; ++k) r[k] = a[k] * theta / (2.0 * s);
  } else if (c > 0.0) {
    for (int k = 0; k < 3; ++k) r[k] = a[k] * 0.5;
  } else {
    // Near pi: the axis from the diagonal of (R + I) / 2, signs from the off-diagonals.
    double axis[3];
    for (int k = 0; k < 3; ++k) axis[k] = std::sqrt(std::fmax(0.0, (R[4 * k] + 1.0) * 0.5));
    const int big = axis[0] >= axis[1] && axis[0] >= axis[2] ? 0 : axis[1] >= axis[2] ? 1 : 2;
    for (int k = 0; k < 3; ++k)
      if (k != big && R[3 * big + k] + R[3 * k + big] < 0.0) axis[k] = -axis[k];
    const double n = norm3(axis);
    for (int k = 0; k < 3; ++k) r[k] = axis[k] / n * theta;
  }
}

// The plane's frame: centroid, two in-plane unit vectors and the normal (rows of B),
// right-handed. Statuses: 0, or the refusal of a set that is not a usable plane.
uint32_t plane_frame(double centroid[3], double B[9], const double *obj, int32_t n) {
  for (int k = 0; k < 3; ++k) {
    centroid[k] = 0.0;
    for (int32_t i = 0; i < n; ++i) centroid[k] += obj[3 * i + k];
    centroid[k] /= n;
  }
  double S[9] = {0};
  for (int32_t i = 0; i < n; ++i) {
    const double d[3] = {obj[3 * i] - centroid[0], obj[3 * i + 1] - centroid[1], obj[3 * i + 2] - centroid[2]};
    for (int j = 0; j < 3; ++j)
      for (int k = j; k < 3; ++k) S[3 * j + k] += d[j] * d[k];
  }
  double w[3], v[9];
  oru_matrix wm = view(w, 3, 1), vm = view(v, 3, 3), sm = view(S, 3, 3);
  const uint32_t status = oru_small_symmetrical_matrix_eig(&wm, &vm, &sm, 0);
  if (status != ORU_RET_OK) return status;
  // Rising eigenvalues: w[0] across the plane, w[1] and w[2] along it.
  if (!(w[1] > 1e-12 * w[2]) || !(w[2] > 0.0)) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "points are degenerate!");
  if (w[0] > 1e-4 * w[1]) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "points are not on one plane!");
  const double *e1 = v + 6, *normal = v;
  double e2[3];
  cross(e2, normal, e1);
  for (int k = 0; k < 3; ++k) {
    B[k] = e1[k];
    B[3 + k] = e2[k];
    B[6 + k] = normal[k];
  }
  return ORU_RET_OK;
}

// Rotation and translation of the plane's frame from H ~ [r1 r2 t]: the scale that
// makes r1 and r2 unit on average, its sign that puts the plane in front, and the
// nearest orthonormal pair (symmetric in r1 and r2).
bool split_homography(double Rp[9], double tp[3], const double H[9]) {
  const double h1[3] = {H[0], H[3], H[6]}, h2[3] = {H[1], H[4], H[7]}, h3[3] = {H[2], H[5], H[8]};
  double scale = 2.0 / (norm3(h1) + norm3(h2));
  if (!std::isfinite(scale)) return false;
  if (h3[2] * scale < 0.0) scale = -scale;
  double c[3], d[3];
  for (int k = 0; k < 3; ++k) {
    c[k] = (h1[k] + h2[k]) * scale;
    d[k] = (h1[k] - h2[k]) * scale;
    tp[k] = h3[k] * scale;
  }
  const double nc = norm3(c), nd = norm3(d);
  if (!(nc > 0.0) || !(nd > 0.0)) return false;
  double r1[3], r2[3], r3[3];
  for (int k = 0; k < 3; ++k) {
    r1[k] = (c[k] / nc + d[k] / nd) * M_SQRT1_2;
    r2[k] = (c[k] / nc - d[k] / nd) * M_SQRT1_2;
  }
  cross(r3, r1, r2);
  for (int k = 0; k < 3; ++k) {
    Rp[3 * k] = r1[k];
    Rp[3 * k + 1] = r2[k];
    Rp[3 * k + 2] = r3[k];
  }
  return true;
}

// Levenberg-Marquardt on the reprojection error, the pose as rotation vector and translation.
uint32_t refine(double pose[6], const oru_matrix *obj, const oru_matrix *img, double cam[9]) {
  // The general solver's criteria: the start is close, so a few steps settle it.
  const oru_lm_criteria criteria = {3u, 20, 1.1920928955078125e-07};
  oru::Guard<oru_lm_optimizer, oru_release_lm_optimizer> lm(oru_create_lm_optimizer(6, 2 * obj->rows, &criteria, 0));
  if (!lm.get()) ORU_FAIL(ORU_RET_ERR_MEMORY);
  std::memcpy(lm->param->data, pose, 6 * sizeof(double));
  oru_matrix rv = view(pose, 3, 1), tv = view(pose + 3, 3, 1), camm = view(cam, 9, 1), dpdr{}, dpdt{};
  const int64_t count = int64_t(img->rows) * img->cols;
  for (;;) {
    oru_matrix *param = nullptr, *J = nullptr, *err = nullptr;
    const uint32_t go = oru_lm_optimizer_update(&param, &J, &err, lm.get());
    std::memcpy(pose, param->data, 6 * sizeof(double));
    if (!go || !err) break;
    if (J) {
      oru_get_matrix_cols(&dpdr, J, 0, 3);
      oru_get_matrix_cols(&dpdt, J, 3, 6);
    }
    oru_project_points2(obj, &rv, &tv, &camm, err, J ? &dpdr : nullptr, J ? &dpdt : nullptr);
    double *e = static_cast<double *>(err->data);
    const double *m = static_cast<const double *>(img->data);
    for (int64_t i = 0; i < count; ++i) e[i] -= m[i];
  }
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_solve_planar_pnp(oru_matrix *rotation, oru_matrix *translation, const oru_matrix *object_points,
                                      const oru_matrix *image_points, const oru_matrix *camera) {
  if (!elements_are(rotation, 9) || !elements_are(translation, 3) || rotation->type != translation->type ||
      (rotation->type != aif32 && rotation->type != aif64) || !object_points || !object_points->data ||
      object_points->cols != 3 || !image_points || !image_points->data || image_points->cols != 2 ||
      image_points->rows != object_points->rows || image_points->type != object_points->type ||
      !elements_are(camera, 9) || camera->type != object_points->type ||
      (object_points->type != aif32 && object_points->type != aif64))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters errors!");
  const int32_t n = object_points->rows;
  if (n < 4) ORU_FAIL_MSG(ORU_RET_ERR_DATA_LENGTH, "at least four points are needed!");
  double cam[9];
  for (int k = 0; k < 9; ++k) cam[k] = value(camera, k / camera->cols, k % camera->cols);
  const double fx = cam[0], cx = cam[2], fy = cam[4], cy = cam[5];
  if (!(fx != 0.0) || !(fy != 0.0)) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters errors!");

  // Packed doubles: object points, image points, plane coordinates, normalised image points.
  oru::Scratch<double> work(9 * int64_t(n));
  if (!work) ORU_FAIL(ORU_RET_ERR_MEMORY);
  double *obj = work.get(), *img = obj + 3 * int64_t(n), *plane = img + 2 * int64_t(n), *norm = plane + 2 * int64_t(n);
  for (int32_t i = 0; i < n; ++i) {
    for (int k = 0; k < 3; ++k) obj[3 * i + k] = value(object_points, i, k);
    for (int k = 0; k < 2; ++k) img[2 * i + k] = value(image_points, i, k);
    norm[2 * i] = (img[2 * i] - cx) / fx;
    norm[2 * i + 1] = (img[2 * i + 1] - cy) / fy;
  }
  double centroid[3], B[9];
  uint32_t status = plane_frame(centroid, B, obj, n);
  if (status != ORU_RET_OK) return status;
  for (int32_t i = 0; i < n; ++i) {
    const double d[3] = {obj[3 * i] - centroid[0], obj[3 * i + 1] - centroid[1], obj[3 * i + 2] - centroid[2]};
    plane[2 * i] = B[0] * d[0] + B[1] * d[1] + B[2] * d[2];
    plane[2 * i + 1] = B[3] * d[0] + B[4] * d[1] + B[5] * d[2];
  }

  // The direct homography is enough for a start: the refinement below minimises the
  // reprojection error itself, so the homography's own refinement would be wasted.
  double H[9], Rp[9], tp[3];
  if (!oru::homography_direct_solution(H, plane, norm, n) || !split_homography(Rp, tp, H))
    ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "points are degenerate!");

  // Object frame: X -> Rp B (X - centroid) + tp = R X + t.
  double R[9], pose[6];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) R[3 * i + j] = Rp[3 * i] * B[j] + Rp[3 * i + 1] * B[3 + j] + Rp[3 * i + 2] * B[6 + j];
  rotation_vector(pose, R);
  for (int i = 0; i < 3; ++i)
    pose[3 + i] = tp[i] - (R[3 * i] * centroid[0] + R[3 * i + 1] * centroid[1] + R[3 * i + 2] * centroid[2]);

  oru_matrix om = view(obj, n, 3), im = view(img, n, 2);
  status = refine(pose, &om, &im, cam);
  if (status != ORU_RET_OK) return status;
  for (int i = 0; i < 3; ++i) {
    if (translation->type == aif64)
      static_cast<double *>(translation->data)[i] = pose[3 + i];
    else
      static_cast<float *>(translation->data)[i] = float(pose[3 + i]);
  }
  oru_matrix rv = view(pose, 3, 1);
  return oru_rodrigues2_jacobian(rotation, nullptr, &rv);
}

}  // extern "C"
