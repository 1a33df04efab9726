// One track of the multi-object tracker: a constant-velocity Kalman filter on the state
// (cx, cy, area, aspect, vx, vy, v_area) measured by (cx, cy, area, aspect).
#include <cmath>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "tracking/oru_tracking_internal.h"

namespace oru {

namespace {

// Degenerate boxes (x1 <= x0, NaN sizes) are taken as 1e-7 wide rather than negative.
inline float at_least_tiny(float v) { return v > 1e-7f ? v : 1e-7f; }

}  // namespace

void box_to_measurement(const float *box, float *z) {
  const float w = at_least_tiny(box[2] - box[0]);
  const float h = at_least_tiny(box[3] - box[1]);
  z[0] = box[0] + w / 2.0f;
  z[1] = box[1] + h / 2.0f;
  z[2] = w * h;
  z[3] = w / h;
}

void state_to_box(const float *x, float *box) {
  const float w = at_least_tiny(std::sqrt(x[2] * x[3]));
  const float h = x[2] / w;
  box[0] = x[0] - w / 2.0f;
  box[1] = x[1] - h / 2.0f;
  box[2] = w + box[0];
  box[3] = h + box[1];
}

}  // namespace oru

namespace {

float *elements(const oru_matrix *m) { return static_cast<float *>(m->data); }

// Element (r, c) of a packed aif32 matrix of the filter.
float &at(oru_matrix *m, int r, int c) { return elements(m)[r * m->cols + c]; }

// A tracker record that didn't come from oru_create_kalman_box_tracker may lack the filter
// and the matrices that the track reads directly.
bool has_storage(const oru_kalman_box_tracker *t) {
  return t->filter && t->filter->state_post && t->filter->state_post->data && t->measurement &&
         t->measurement->data;
}

}  // namespace

extern "C" {

ORU_API oru_kalman_box_tracker *oru_create_kalman_box_tracker(const float *box, int32_t id) {
  if (!box) ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  const oru_kalman_params params{7, 4, 0, aif32};
  auto *t = oru::alloc_zeroed<oru_kalman_box_tracker>();
  if (!t) ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  t->filter = oru_create_kalman_filter_handle(&params);
  t->measurement = oru_create_matrix(4, 1, 1, aif32);
  if (!t->filter || !t->measurement) {
    oru_release_kalman_box_tracker(&t);
    ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  }
  oru_kalman_filter *k = t->filter;
  // Constant velocity in centre and area; the aspect has no velocity.
  at(k->transition, 0, 4) = 1.0f;
  at(k->transition, 1, 5) = 1.0f;
  at(k->transition, 2, 6) = 1.0f;
  static const float cov_post[7] = {10, 10, 10, 10, 10000, 10000, 10000};
  static const float process[7] = {1, 1, 1, 1, 0.01f, 0.01f, 0.0001f};
  for (int i = 0; i < 4; ++i) {
    at(k->measurement, i, i) = 1.0f;
    at(k->measurement_noise, i, i) = 0.01f;
  }
  for (int i = 0; i < 7; ++i) {
    at(k->error_cov_post, i, i) = cov_post[i];
    at(k->process_noise, i, i) = process[i];
  }
  float *x = elements(k->state_post);
  oru::box_to_measurement(box, x);
  x[4] = x[5] = x[6] = 0.0f;
  t->time_since_update = 0;
  t->id = id;
  t->hits = 1;
  t->hit_streak = 1;
  t->age = 0;
  return t;
}

ORU_API uint32_t oru_release_kalman_box_tracker(oru_kalman_box_tracker **tracker) {
  if (!tracker || !*tracker) return ORU_RET_ERR_PARA;
  oru_release_kalman_filter_handle(&(*tracker)->filter);
  oru_release_matrix_no_error(&(*tracker)->measurement);
  oru_free(*tracker);
  *tracker = nullptr;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_kalman_box_tracker_predict(float *out_box, oru_kalman_box_tracker *tracker) {
  if (!out_box || !tracker) return ORU_RET_ERR_PARA;
  if (!has_storage(tracker)) ORU_FAIL_MSG(ORU_RET_ERR_PARA, oru_error_string[1]);
  float *post = elements(tracker->filter->state_post);
  // An area about to go through zero stops shrinking instead.
  if (post[2] + post[6] <= 0.0f) post[6] = 0.0f;
  oru_matrix *pre = oru_kalman_filter_predict(nullptr, tracker->filter);
  if (!pre) return ORU_RET_ERR_UNKNOWN;
  tracker->age += 1;
  if (tracker->time_since_update >= 1) tracker->hit_streak = 0;
  tracker->time_since_update += 1;
  // The prediction goes through a box and back, so the clamps also shape the state the
  // next correction starts from.
  float *x = elements(pre);
  float box[4];
  oru::state_to_box(x, box);
  oru::box_to_measurement(box, x);
  oru::state_to_box(x, out_box);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_kalman_box_tracker_update(const float *box, oru_kalman_box_tracker *tracker) {
  if (!box || !tracker) return ORU_RET_ERR_PARA;
  if (!has_storage(tracker)) ORU_FAIL_MSG(ORU_RET_ERR_PARA, oru_error_string[1]);
  tracker->time_since_update = 0;
  tracker->hits += 1;
  tracker->hit_streak += 1;
  oru::box_to_measurement(box, elements(tracker->measurement));
  if (!oru_kalman_filter_update(tracker->measurement, tracker->filter)) return ORU_RET_ERR_UNKNOWN;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_kalman_box_tracker_get_state(float *out_box, const oru_kalman_box_tracker *tracker) {
  if (!out_box || !tracker) return ORU_RET_ERR_PARA;
  if (!has_storage(tracker)) ORU_FAIL_MSG(ORU_RET_ERR_PARA, oru_error_string[1]);
  oru::state_to_box(elements(tracker->filter->state_post), out_box);
  return ORU_RET_OK;
}

}  // extern "C"
