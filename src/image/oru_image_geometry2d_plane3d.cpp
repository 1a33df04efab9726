// The source pasted on a plane in space and seen through a pinhole at the origin: each
// destination pixel's ray is cut with the plane, and the hit is looked up in the source.
#include <cmath>
#include <cstring>

#include "core/oru_report.h"
#include "image/oru_image_internal.h"

using namespace oru;

namespace {

struct Vec3 {
  float x, y, z;
};

// Determinant of the 3 x 3 matrix with the rows p, q, r.
float det3(const Vec3 &p, const Vec3 &q, const Vec3 &r) {
  return p.x * (q.y * r.z - q.z * r.y) - p.y * (q.x * r.z - q.z * r.x) + p.z * (q.x * r.y - q.y * r.x);
}

// The view taken when the caller gives no parameters.
constexpr float kDefaultView[6] = {-21.5f, -47.5f, 26.5f, 0.4f, 0.4f, -0.5f};

}  // namespace

extern "C" {

ORU_API uint32_t oru_image_rotation3d(oru_image *dst, const oru_image *src, const float *params) {
  if (!is_image(dst) || !is_image(src) || !dst->data || !src->data || dst->type != src->type ||
      src->format != ORU_IMAGE_BGR24)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const float *p = params ? params : kDefaultView;
  const float t0 = p[0] * 6.2831855f / 360.0f, t1 = p[1] * 6.2831855f / 360.0f, t2 = p[2] * 6.2831855f / 360.0f;
  const Vec3 O = {p[3] - 0.5f, p[4] - 0.5f, p[5] - 2.0f};
  const float s0 = std::sin(t0), c0 = std::cos(t0), s1 = std::sin(t1), c1 = std::cos(t1), s2 = std::sin(t2),
              c2 = std::cos(t2);
  const Vec3 A = {c1 * c2, -c0 * s2 - s0 * s1 * c2, s0 * s2 - c0 * s1 * c2};
  const Vec3 B = {c1 * s2, c0 * c2 - s0 * s1 * s2, -s0 * c2 - c0 * s1 * s2};
  const float oab = det3(O, A, B);
  const int32_t sw = src->cols, sh = src->rows;
  for (int32_t r = 0; r < dst->rows; ++r) {
    uint8_t *d = static_cast<uint8_t *>(dst->data) + dst->stride * r;
    const float v = float(r) / float(dst->rows) - 0.5f;
    for (int32_t c = 0; c < dst->cols; ++c, d += 3) {
      const float u = float(c) / float(dst->cols) - 0.5f;
      const float norm = std::sqrt(u * u + v * v + 4.0f);
      const Vec3 D = {u / norm, v / norm, -2.0f / norm};
      const float delta = det3(D, A, B);
      d[0] = d[1] = d[2] = 0;
      // The plane must be hit in front of the pinhole.
      if (delta == 0.0f || oab / delta <= 0.0f) continue;
      const float fx = (det3(D, B, O) / delta + 0.5f) * float(sw);
      const float fy = (det3(D, O, A) / delta + 0.5f) * float(sh);
      if (!(fx > -1.0f && fy > -1.0f && fx < float(sw) && fy < float(sh))) continue;
      std::memcpy(d, static_cast<const uint8_t *>(src->data) + src->stride * int32_t(fy) + 3 * int64_t(int32_t(fx)), 3);
    }
  }
  return ORU_RET_OK;
}

}  // extern "C"
