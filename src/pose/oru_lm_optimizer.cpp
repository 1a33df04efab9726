// Reverse-communication Levenberg-Marquardt engine: it owns the parameters and the
// normal equations and tells the caller, call by call, what to compute next.
#include <cfloat>
#include <cmath>
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_pose.h"

namespace {

enum : uint32_t { kDone = 0, kStarted = 1, kCalcJ = 2, kCheckErr = 3 };
constexpr int32_t kLambdaMax = 16;
constexpr int32_t kLambdaMin = -16;

inline double *col(oru_matrix *m) { return static_cast<double *>(m->data); }

inline double &el(oru_matrix *m, int32_t i, int32_t j) {
  return reinterpret_cast<double *>(static_cast<char *>(m->data) + m->stride * i)[j];
}

void zero(oru_matrix *m) {
  if (m) std::memset(m->data, 0, size_t(m->stride * m->rows * m->depth));
}

void copy(oru_matrix *dst, const oru_matrix *src) {
  std::memcpy(dst->data, src->data, size_t(src->stride * src->rows * src->depth));
}

double norm2(const oru_matrix *m) {
  const double *v = static_cast<const double *>(m->data);
  double s = 0.0;
  for (int32_t i = 0; i < m->rows; ++i) s += v[i] * v[i];
  return std::sqrt(s);
}

bool present(const oru_matrix *m) { return m && m->data; }

// Every matrix that the creation makes whatever nerrs is; a record that didn't come from
// oru_create_lm_optimizer may lack them.
bool has_storage(const oru_lm_optimizer *o) {
  return o && present(o->mask) && present(o->prev_param) && present(o->param) && present(o->JtJ) &&
         present(o->JtJN) && present(o->JtErr) && present(o->JtJV) && present(o->JtJW);
}

// Relative change of the pose-sized head of the parameter vector.
double relative_change(oru_lm_optimizer *o) {
  const int32_t count = o->param->rows < 6 ? o->param->rows : 6;
  const double *p = col(o->param), *q = col(o->prev_param);
  double d = 0.0, base = 0.0;
  for (int32_t i = 0; i < count; ++i) {
    d += (p[i] - q[i]) * (p[i] - q[i]);
    base += q[i] * q[i];
  }
  return std::sqrt(d) / std::sqrt(base);
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_small_mat_transpose_mul_mat(oru_matrix *dst, const oru_matrix *src) {
  if (!dst || !src) ORU_FAIL_MSG(ORU_RET_ERR_PARA, oru_error_string[1]);
  const int32_t n = src->cols;
  if (dst->rows != dst->cols || dst->rows != n) return ORU_RET_ERR_PARA;
  if (n > 0 && (!dst->data || (src->rows > 0 && !src->data))) ORU_FAIL_MSG(ORU_RET_ERR_PARA, oru_error_string[1]);
  for (int32_t i = 0; i < n; ++i) {
    double *d = reinterpret_cast<double *>(static_cast<char *>(dst->data) + dst->stride * i);
    for (int32_t j = 0; j < n; ++j) d[j] = 0.0;
    for (int32_t k = 0; k < src->rows; ++k) {
      const double *s = reinterpret_cast<const double *>(static_cast<const char *>(src->data) + src->stride * k);
      const double f = s[i];
      for (int32_t j = 0; j < n; ++j) d[j] += f * s[j];
    }
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_release_lm_optimizer(oru_lm_optimizer **optimizer) {
  if (!optimizer || !*optimizer) return ORU_RET_ERR_PARA;
  oru_lm_optimizer *o = *optimizer;
  oru_matrix **all[] = {&o->mask, &o->prev_param, &o->param, &o->J,    &o->err,
                        &o->JtJ,  &o->JtJN,       &o->JtErr, &o->JtJV, &o->JtJW};
  for (oru_matrix **m : all) oru_release_matrix_no_error(m);
  oru_free(o);
  *optimizer = nullptr;
  return ORU_RET_OK;
}

ORU_API oru_lm_optimizer *oru_create_lm_optimizer(int32_t nparams, int32_t nerrs, const oru_lm_criteria *criteria,
                                                  uint32_t complete_symm_flag) {
  if (nparams < 1 || !criteria) return nullptr;
  oru::Guard<oru_lm_optimizer, oru_release_lm_optimizer> o(
      static_cast<oru_lm_optimizer *>(oru_calloc(1, sizeof(oru_lm_optimizer))));
  if (!o.get()) return nullptr;
  o->prev_err_norm = DBL_MAX;
  o->lambda_lg10 = -3;
  o->criteria = *criteria;
  if (criteria->type & 1u) {
    o->criteria.max_iter = criteria->max_iter < 1 ? 1 : criteria->max_iter > 1000 ? 1000 : criteria->max_iter;
    o->criteria.epsilon = criteria->epsilon < 0.0 ? 0.0 : criteria->epsilon;
  } else {
    o->criteria.max_iter = 30;
    o->criteria.epsilon = DBL_EPSILON;
  }
  o->state = kStarted;
  o->iters = 0;
  o->complete_symm_flag = complete_symm_flag;

  o->mask = oru_create_matrix(nparams, 1, 1, ai8u);
  o->prev_param = oru_create_matrix(nparams, 1, 1, aif64);
  o->param = oru_create_matrix(nparams, 1, 1, aif64);
  if (nerrs > 0) {
    o->J = oru_create_matrix(nerrs, nparams, 1, aif64);
    o->err = oru_create_matrix(nerrs, 1, 1, aif64);
    if (!o->J || !o->err) return nullptr;
  }
  o->JtJ = oru_create_matrix(nparams, nparams, 1, aif64);
  o->JtJN = oru_create_matrix(nparams, nparams, 1, aif64);
  o->JtErr = oru_create_matrix(nparams, 1, 1, aif64);
  o->JtJV = oru_create_matrix(nparams, nparams, 1, aif64);
  o->JtJW = oru_create_matrix(nparams, 1, 1, aif64);
  if (!o->mask || !o->prev_param || !o->param || !o->JtJ || !o->JtJN || !o->JtErr || !o->JtJV || !o->JtJW)
    return nullptr;
  std::memset(o->mask->data, 1, size_t(nparams));
  zero(o->prev_param);
  zero(o->param);
  zero(o->JtJ);
  zero(o->JtErr);
  return o.dismiss();
}

ORU_API uint32_t oru_lm_optimizer_step(oru_lm_optimizer *o) {
  if (!has_storage(o)) ORU_FAIL_MSG(ORU_RET_ERR_PARA, oru_error_string[1]);
  const int32_t n = o->param->rows;
  const uint8_t *mask = static_cast<const uint8_t *>(o->mask->data);
  const double lambda = std::exp(o->lambda_lg10 * 2.302585092994046);

  for (int32_t i = 0; i < n; ++i) {
    if (mask[i]) continue;
    for (int32_t j = 0; j < n; ++j) {
      el(o->JtJ, i, j) = 0.0;
      el(o->JtJ, j, i) = 0.0;
    }
    col(o->JtErr)[i] = 0.0;
  }
  if (!o->err) {
    // Callers of the accumulated form fill one triangle; the flag says which.
    for (int32_t i = 0; i < n; ++i)
      for (int32_t j = i + 1; j < n; ++j) {
        if (o->complete_symm_flag)
          el(o->JtJ, i, j) = el(o->JtJ, j, i);
        else
          el(o->JtJ, j, i) = el(o->JtJ, i, j);
      }
  }
  copy(o->JtJN, o->JtJ);
  // Damping relative to the diagonal keeps the step invariant to parameter scales.
  for (int32_t i = 0; i < n; ++i) el(o->JtJN, i, i) *= 1.0 + lambda;

  // The pseudo-inverse keeps the step defined when JtJN is singular.
  oru_small_matrix_svd(nullptr, o->JtJV, o->JtJW, o->JtJN, 5);
  oru_solve_linear_equation_by_svd(o->param, o->JtErr, o->JtJV, o->JtJW, o->JtJV, 6);

  double *p = col(o->param);
  const double *q = col(o->prev_param);
  for (int32_t i = 0; i < n; ++i) p[i] = mask[i] ? q[i] - p[i] : q[i];
  return ORU_RET_OK;
}

ORU_API uint32_t oru_lm_optimizer_update(oru_matrix **param, oru_matrix **J, oru_matrix **err,
                                         oru_lm_optimizer *o) {
  // The result orders the caller to go on or not, it isn't a status: a refusal hands out
  // nothing and gives 0, the end, so that no caller's loop goes on with it.
  if (J) *J = nullptr;
  if (err) *err = nullptr;
  if (!param || !J || !err || !has_storage(o) || !present(o->J) || !present(o->err)) {
    if (param) *param = nullptr;
    ORU_FAIL_MSG(0, oru_error_string[1]);
  }
  switch (o->state) {
    case kDone:
      *param = o->param;
      return 0;
    case kStarted:
      zero(o->J);
      zero(o->err);
      *param = o->param;
      *J = o->J;
      *err = o->err;
      o->state = kCalcJ;
      return 1;
    case kCalcJ:
      oru_small_mat_transpose_mul_mat(o->JtJ, o->J);
      oru_matrix_mul_vector(o->JtErr, o->J, 1, o->err);
      copy(o->prev_param, o->param);
      oru_lm_optimizer_step(o);
      if (o->iters == 0) o->prev_err_norm = norm2(o->err);
      zero(o->err);
      *param = o->param;
      *err = o->err;
      o->state = kCheckErr;
      return 1;
    default:
      break;
  }

  o->err_norm = norm2(o->err);
  if (o->err_norm > o->prev_err_norm) {
    // Worse: retry from the same point with ten times the damping.
    if (o->lambda_lg10++ < kLambdaMax) {
      oru_lm_optimizer_step(o);
      zero(o->err);
      *param = o->param;
      *err = o->err;
      return 1;
    }
  }
  o->lambda_lg10 = o->lambda_lg10 - 1 < kLambdaMin ? kLambdaMin : o->lambda_lg10 - 1;
  ++o->iters;
  *param = o->param;
  if (o->iters < o->criteria.max_iter && !(relative_change(o) < o->criteria.epsilon)) {
    o->prev_err_norm = o->err_norm;
    zero(o->J);
    *J = o->J;
    *err = o->err;
    o->state = kCalcJ;
    return 1;
  }
  o->state = kDone;
  return 1;
}

ORU_API uint32_t oru_lm_optimizer_update_alt(oru_matrix **param, oru_matrix **JtJ, oru_matrix **JtErr,
                                             double **err_norm, oru_lm_optimizer *o) {
  if (JtJ) *JtJ = nullptr;
  if (JtErr) *JtErr = nullptr;
  if (err_norm) *err_norm = nullptr;
  if (!param || !JtJ || !JtErr || !err_norm || !has_storage(o)) {  // refused as in the other form
    if (param) *param = nullptr;
    ORU_FAIL_MSG(0, oru_error_string[1]);
  }
  switch (o->state) {
    case kDone:
      *param = o->param;
      return 0;
    case kStarted:
      zero(o->JtJ);
      zero(o->JtErr);
      o->err_norm = 0.0;
      *param = o->param;
      *JtJ = o->JtJ;
      *JtErr = o->JtErr;
      *err_norm = &o->err_norm;
      o->state = kCalcJ;
      return 1;
    case kCalcJ:
      copy(o->prev_param, o->param);
      oru_lm_optimizer_step(o);
      o->prev_err_norm = o->err_norm;
      o->err_norm = 0.0;
      *param = o->param;
      *err_norm = &o->err_norm;
      o->state = kCheckErr;
      return 1;
    default:
      break;
  }

  if (o->err_norm > o->prev_err_norm) {
    if (o->lambda_lg10++ < kLambdaMax) {
      oru_lm_optimizer_step(o);
      o->err_norm = 0.0;
      *param = o->param;
      *err_norm = &o->err_norm;
      return 1;
    }
  }
  o->lambda_lg10 = o->lambda_lg10 - 1 < kLambdaMin ? kLambdaMin : o->lambda_lg10 - 1;
  ++o->iters;
  *param = o->param;
  const int32_t n = o->param->rows;
  const double *p = col(o->param), *q = col(o->prev_param);
  double d = 0.0, base = 0.0;
  for (int32_t i = 0; i < n; ++i) {
    d += (p[i] - q[i]) * (p[i] - q[i]);
    base += q[i] * q[i];
  }
  const double change = std::sqrt(d / (base + DBL_MIN));
  if (o->iters < o->criteria.max_iter && !(change < o->criteria.epsilon)) {
    o->prev_err_norm = o->err_norm;
    zero(o->JtJ);
    zero(o->JtErr);
    *JtJ = o->JtJ;
    *JtErr = o->JtErr;
    *err_norm = &o->err_norm;
    o->state = kCalcJ;
    return 1;
  }
  o->state = kDone;
  return 0;
}

}  // extern "C"
