// Linear Kalman filter on matrix records. Every step is a call of the matrix library, so
// the filter runs in the handle's float type with the library's own rounding, and the
// correction solves with the innovation covariance instead of inverting it.
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_tracking.h"

namespace {

// The fifteen matrices in the order of the record, so that creation and release walk them alike.
oru_matrix **matrix_slot(oru_kalman_filter *k, int index) {
  oru_matrix **slots[] = {&k->state_pre,     &k->state_post,  &k->transition,        &k->control,
                          &k->measurement,   &k->process_noise, &k->measurement_noise, &k->error_cov_pre,
                          &k->gain,          &k->error_cov_post, &k->temp1,            &k->temp2,
                          &k->temp3,         &k->temp4,       &k->temp5};
  return slots[index];
}
constexpr int kMatrixCount = 15;

void release_matrices(oru_kalman_filter *k) {
  for (int i = 0; i < kMatrixCount; ++i) oru_release_matrix_no_error(matrix_slot(k, i));
}

// A plain copy of src's elements into dst, which has the same shape; row by row, since
// the caller's measurement may have padded rows.
void copy_matrix(oru_matrix *dst, const oru_matrix *src) {
  const size_t row_bytes = size_t(src->cols) * oru_data_type_bytes[src->type & 31u];
  if (int64_t(row_bytes) == src->stride && src->stride == dst->stride) {
    std::memcpy(dst->data, src->data, row_bytes * size_t(src->rows));
    return;
  }
  for (int32_t r = 0; r < src->rows; ++r)
    std::memcpy(static_cast<uint8_t *>(dst->data) + dst->stride * r,
                static_cast<const uint8_t *>(src->data) + src->stride * r, row_bytes);
}

// alpha and beta of oru_matrix_mul_add in the handle's element type.
struct Scalars {
  float f[2] = {1.0f, -1.0f};
  double d[2] = {1.0, -1.0};
  const void *one(int32_t type) const { return type == aif64 ? static_cast<const void *>(&d[0]) : &f[0]; }
  const void *minus_one(int32_t type) const { return type == aif64 ? static_cast<const void *>(&d[1]) : &f[1]; }
};

}  // namespace

extern "C" {

ORU_API oru_kalman_filter *oru_create_kalman_filter_handle(const oru_kalman_params *params) {
  if (!params || (params->type != aif32 && params->type != aif64) || params->state_dim < 1 ||
      params->measure_dim < 1 || params->control_dim < 0)
    ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  auto *k = oru::alloc_zeroed<oru_kalman_filter>();
  if (!k) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  k->state_dim = params->state_dim;
  k->measure_dim = params->measure_dim;
  k->control_dim = params->control_dim;
  k->type = params->type;
  const int32_t s = params->state_dim, m = params->measure_dim, c = params->control_dim;
  const int32_t shapes[kMatrixCount][2] = {{s, 1}, {s, 1}, {s, s}, {s, c}, {m, s}, {s, s}, {m, m}, {s, s},
                                           {s, m}, {s, s}, {s, s}, {m, s}, {m, m}, {m, s}, {m, 1}};
  for (int i = 0; i < kMatrixCount; ++i) {
    if (shapes[i][1] == 0) continue;  // no control matrix without a control vector
    oru_matrix *mat = oru_create_matrix(shapes[i][0], shapes[i][1], 1, uint32_t(params->type));
    if (!mat) {
      release_matrices(k);
      oru_free(k);
      ORU_FAIL_MSG(nullptr, oru_error_string[2]);
    }
    std::memset(mat->data, 0, size_t(mat->stride) * size_t(mat->rows));
    *matrix_slot(k, i) = mat;
  }
  oru_set_eye_matrix(k->transition);
  oru_set_eye_matrix(k->process_noise);
  oru_set_eye_matrix(k->measurement_noise);
  return k;
}

ORU_API uint32_t oru_release_kalman_filter_handle(oru_kalman_filter **handle) {
  if (!handle || !*handle) return ORU_RET_ERR_PARA;
  release_matrices(*handle);
  oru_free(*handle);
  *handle = nullptr;
  return ORU_RET_OK;
}

// A matrix call that fails ends the step where it stands, with the callee's status reported.
#define ORU_KALMAN_STEP(call)            \
  do {                                   \
    const uint32_t status_ = (call);     \
    if (status_ != ORU_RET_OK) {         \
      ORU_REPORT_STATUS(status_);        \
      return nullptr;                    \
    }                                    \
  } while (0)

ORU_API oru_matrix *oru_kalman_filter_predict(const oru_matrix *control, oru_kalman_filter *handle) {
  if (!handle) ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  oru_kalman_filter *k = handle;
  const Scalars sc;
  ORU_KALMAN_STEP(oru_matrix_mul(k->state_pre, k->transition, 0, k->state_post, 0));
  if (control)
    ORU_KALMAN_STEP(oru_matrix_mul_add(k->state_pre, k->control, 0, control, 0, sc.one(k->type), sc.one(k->type)));
  ORU_KALMAN_STEP(oru_matrix_mul(k->temp1, k->transition, 0, k->error_cov_post, 0));
  ORU_KALMAN_STEP(oru_matrix_mul(k->error_cov_pre, k->temp1, 0, k->transition, 1));
  ORU_KALMAN_STEP(oru_add(k->error_cov_pre, k->error_cov_pre, k->process_noise));
  // A filter that gets no measurement carries on from its prediction.
  copy_matrix(k->state_post, k->state_pre);
  copy_matrix(k->error_cov_post, k->error_cov_pre);
  return k->state_pre;
}

ORU_API oru_matrix *oru_kalman_filter_update(const oru_matrix *measurement, oru_kalman_filter *handle) {
  if (!handle || !measurement) ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  oru_kalman_filter *k = handle;
  // The measurement is copied element by element, so it must have the filter's shape and type.
  if (!measurement->data || measurement->rows != k->measure_dim || measurement->cols != 1 ||
      measurement->type != uint32_t(k->type) || measurement->stride < int64_t(oru_data_type_bytes[k->type]))
    ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  const Scalars sc;
  ORU_KALMAN_STEP(oru_matrix_mul(k->temp2, k->measurement, 0, k->error_cov_pre, 0));
  ORU_KALMAN_STEP(oru_matrix_mul(k->temp3, k->temp2, 0, k->measurement, 1));
  ORU_KALMAN_STEP(oru_add(k->temp3, k->temp3, k->measurement_noise));
  // K^T solves (H P H^T + R) K^T = H P; the innovation covariance is never inverted.
  ORU_KALMAN_STEP(oru_solve_linear_equation(k->temp4, k->temp3, k->temp2));
  ORU_KALMAN_STEP(oru_matrix_transposition(k->gain, k->temp4));
  copy_matrix(k->temp5, measurement);
  ORU_KALMAN_STEP(oru_matrix_mul_add(k->temp5, k->measurement, 0, k->state_pre, 0, sc.minus_one(k->type),
                                     sc.one(k->type)));
  copy_matrix(k->state_post, k->state_pre);
  ORU_KALMAN_STEP(oru_matrix_mul_add(k->state_post, k->gain, 0, k->temp5, 0, sc.one(k->type), sc.one(k->type)));
  copy_matrix(k->error_cov_post, k->error_cov_pre);
  ORU_KALMAN_STEP(oru_matrix_mul_add(k->error_cov_post, k->gain, 0, k->temp2, 0, sc.minus_one(k->type),
                                     sc.one(k->type)));
  return k->state_post;
}

#undef ORU_KALMAN_STEP

}  // extern "C"
