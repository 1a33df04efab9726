// Full pose solver: the linear estimate refined by Levenberg-Marquardt on the
// reprojection error.
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "pose/oru_pose_internal.h"
#include "oru_pose.h"

namespace {

bool elements_are(const oru_matrix *m, int64_t count) {
  return m && m->data && int64_t(m->rows) * m->cols == count;
}

// Widens an aif32 matrix into a new packed aif64 one.
oru_matrix *widened(const oru_matrix *src) {
  oru_matrix *dst = oru_create_matrix(src->rows, src->cols, 1, aif64);
  if (!dst) return nullptr;
  double *d = static_cast<double *>(dst->data);
  for (int32_t i = 0; i < src->rows; ++i) {
    const float *s = reinterpret_cast<const float *>(static_cast<const char *>(src->data) + src->stride * i);
    for (int32_t j = 0; j < src->cols; ++j) d[int64_t(i) * src->cols + j] = s[j];
  }
  return dst;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_solve_3d_pnp(oru_matrix *rotation, oru_matrix *translation, const oru_matrix *object_points,
                                  const oru_matrix *image_points, const oru_matrix *camera) {
  if (!elements_are(rotation, 9) || !elements_are(translation, 3) || rotation->type != translation->type ||
      !object_points || !object_points->data || object_points->cols != 3 || !image_points || !image_points->data ||
      image_points->cols != 2 || image_points->rows != object_points->rows ||
      image_points->type != object_points->type || !elements_are(camera, 9) || camera->type != object_points->type ||
      (object_points->type != aif32 && object_points->type != aif64))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters errors!");

  const int32_t n = object_points->rows;
  double cam[9];
  oru::Guard<oru_matrix, oru_release_matrix> obj64, img64;
  const oru_matrix *obj = object_points, *img = image_points;
  if (object_points->type == aif64) {
    std::memcpy(cam, camera->data, sizeof(cam));
  } else {
    for (int i = 0; i < 9; ++i) cam[i] = static_cast<const float *>(camera->data)[i];
    obj64.reset(widened(object_points));
    img64.reset(widened(image_points));
    // The creation has reported the failure already.
    if (!obj64.get() || !img64.get()) return ORU_RET_ERR_MEMORY;
    obj = obj64.get();
    img = img64.get();
  }

  double pose[6];
  uint32_t status = oru_solve_pnp_dlt(pose, obj, img, nullptr, cam);
  if (status != ORU_RET_OK) return status;

  const oru_lm_criteria criteria = {3u, 20, 1.1920928955078125e-07};
  oru::Guard<oru_lm_optimizer, oru_release_lm_optimizer> lm(oru_create_lm_optimizer(6, 2 * n, &criteria, 0));
  if (!lm.get()) ORU_FAIL(ORU_RET_ERR_MEMORY);
  std::memcpy(lm->param->data, pose, sizeof(pose));

  oru_matrix rv{}, tv{}, camm{}, dpdr{}, dpdt{};
  oru_set_matrix_header(&rv, 3, 1, 1, aif64);
  rv.data = pose;
  oru_set_matrix_header(&tv, 3, 1, 1, aif64);
  tv.data = pose + 3;
  oru_set_matrix_header(&camm, 9, 1, 1, aif64);
  camm.data = cam;
  // Measured positions, packed, for the residual.
  const int64_t count = int64_t(img->rows) * img->cols;
  for (;;) {
    oru_matrix *param = nullptr, *J = nullptr, *err = nullptr;
    uint32_t go = oru_lm_optimizer_update(&param, &J, &err, lm.get());
    std::memcpy(pose, param->data, sizeof(pose));
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

  for (int i = 0; i < 3; ++i) {
    if (translation->type == aif64)
      static_cast<double *>(translation->data)[i] = pose[3 + i];
    else
      static_cast<float *>(translation->data)[i] = float(pose[3 + i]);
  }
  return oru_rodrigues2_jacobian(rotation, nullptr, &rv);
}

}  // extern "C"
