// Kalman filter: predict and correct sequences against a textbook double-precision filter
// written here (explicit inverse of the innovation covariance, Joseph-free covariance
// update), on random sizes, in aif64 and aif32; the neutral defaults; refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "oru_tracking.h"

namespace {

// Row-major dense double matrix of the reference filter.
struct Mat {
  int r = 0, c = 0;
  std::vector<double> a;
  Mat() = default;
  Mat(int rows, int cols) : r(rows), c(cols), a(size_t(rows) * cols, 0.0) {}
  double &operator()(int i, int j) { return a[size_t(i) * c + j]; }
  double operator()(int i, int j) const { return a[size_t(i) * c + j]; }
};

Mat mul(const Mat &x, const Mat &y) {
  Mat z(x.r, y.c);
  for (int i = 0; i < x.r; ++i)
    for (int k = 0; k < x.c; ++k)
      for (int j = 0; j < y.c; ++j) z(i, j) += x(i, k) * y(k, j);
  return z;
}
Mat tr(const Mat &x) {
  Mat z(x.c, x.r);
  for (int i = 0; i < x.r; ++i)
    for (int j = 0; j < x.c; ++j) z(j, i) = x(i, j);
  return z;
}
Mat add(const Mat &x, const Mat &y, double s = 1) {
  Mat z = x;
  for (size_t k = 0; k < z.a.size(); ++k) z.a[k] += s * y.a[k];
  return z;
}
// Gauss-Jordan inverse with partial pivoting.
Mat inverse(Mat x) {
  const int n = x.r;
  Mat inv(n, n);
  for (int i = 0; i < n; ++i) inv(i, i) = 1;
  for (int k = 0; k < n; ++k) {
    int p = k;
    for (int i = k + 1; i < n; ++i)
      if (std::fabs(x(i, k)) > std::fabs(x(p, k))) p = i;
    for (int j = 0; j < n; ++j) {
      std::swap(x(k, j), x(p, j));
      std::swap(inv(k, j), inv(p, j));
    }
    const double d = x(k, k);
    for (int j = 0; j < n; ++j) {
      x(k, j) /= d;
      inv(k, j) /= d;
    }
    for (int i = 0; i < n; ++i) {
      if (i == k) continue;
      const double f = x(i, k);
      for (int j = 0; j < n; ++j) {
        x(i, j) -= f * x(k, j);
        inv(i, j) -= f * inv(k, j);
      }
    }
  }
  return inv;
}

template <typename T>
T &elem(oru_matrix *m, int i, int j) {
  return reinterpret_cast<T *>(static_cast<uint8_t *>(m->data) + m->stride * i)[j];
}

template <typename T>
void put(oru_matrix *m, const Mat &x) {
  ASSERT_EQ(m->rows, x.r);
  ASSERT_EQ(m->cols, x.c);
  for (int i = 0; i < x.r; ++i)
    for (int j = 0; j < x.c; ++j) elem<T>(m, i, j) = T(x(i, j));
}

// Largest |library - reference| relative to the reference's largest magnitude.
template <typename T>
double rel_error(oru_matrix *m, const Mat &x) {
  double diff = 0, mag = 1e-30;
  for (int i = 0; i < x.r; ++i)
    for (int j = 0; j < x.c; ++j) {
      diff = std::max(diff, std::fabs(double(elem<T>(m, i, j)) - x(i, j)));
      mag = std::max(mag, std::fabs(x(i, j)));
    }
  return diff / mag;
}

Mat random_mat(std::mt19937 &g, int r, int c, double lo, double hi) {
  std::uniform_real_distribution<double> d(lo, hi);
  Mat m(r, c);
  for (auto &v : m.a) v = d(g);
  return m;
}
// Symmetric positive definite: A A^T + diag.
Mat random_spd(std::mt19937 &g, int n, double diag) {
  const Mat a = random_mat(g, n, n, -1, 1);
  Mat s = mul(a, tr(a));
  for (int i = 0; i < n; ++i) s(i, i) += diag;
  return s;
}

template <typename T>
void run_sequences(uint32_t type, double tolerance) {
  std::mt19937 g(type * 7919u);
  for (int trial = 0; trial < 40; ++trial) {
    const int S = 1 + int(g() % 12), M = 1 + int(g() % S), C = int(g() % 4);
    const oru_kalman_params params{S, M, C, int32_t(type)};
    oru_kalman_filter *k = oru_create_kalman_filter_handle(&params);
    ASSERT_NE(k, nullptr);
    // A stable system: transition near the identity, moderate noises.
    Mat F = random_mat(g, S, S, -0.05, 0.05);
    for (int i = 0; i < S; ++i) F(i, i) += 0.95;
    const Mat B = random_mat(g, S, C > 0 ? C : 1, -1, 1), H = random_mat(g, M, S, -1, 1);
    const Mat Q = random_spd(g, S, 0.5), R = random_spd(g, M, 1.0);
    Mat x = random_mat(g, S, 1, -2, 2), P = random_spd(g, S, 1.0);
    put<T>(k->transition, F);
    if (C > 0) put<T>(k->control, B);
    put<T>(k->measurement, H);
    put<T>(k->process_noise, Q);
    put<T>(k->measurement_noise, R);
    put<T>(k->state_post, x);
    put<T>(k->error_cov_post, P);
    oru_matrix *u = oru_create_matrix(C > 0 ? C : 1, 1, 1, type);
    oru_matrix *z = oru_create_matrix(M, 1, 1, type);
    Mat xp, Pp;
    for (int step = 0; step < 25; ++step) {
      const std::string where = "trial " + std::to_string(trial) + " step " + std::to_string(step) + " S=" +
                                std::to_string(S) + " M=" + std::to_string(M) + " C=" + std::to_string(C);
      // Predict, with a control vector when the model has one.
      const Mat uv = random_mat(g, C > 0 ? C : 1, 1, -1, 1);
      put<T>(u, uv);
      xp = mul(F, x);
      if (C > 0) xp = add(xp, mul(B, uv));
      Pp = add(mul(mul(F, P), tr(F)), Q);
      ASSERT_EQ(oru_kalman_filter_predict(C > 0 ? u : nullptr, k), k->state_pre) << where;
      EXPECT_LT(rel_error<T>(k->state_pre, xp), tolerance) << where;
      EXPECT_LT(rel_error<T>(k->error_cov_pre, Pp), tolerance) << where;
      // Until a correction comes, the corrected state is the prediction.
      for (int i = 0; i < S; ++i) EXPECT_EQ(elem<T>(k->state_post, i, 0), elem<T>(k->state_pre, i, 0)) << where;
      for (int i = 0; i < S; ++i)
        for (int j = 0; j < S; ++j) EXPECT_EQ(elem<T>(k->error_cov_post, i, j), elem<T>(k->error_cov_pre, i, j));
      x = xp;
      P = Pp;
      if (step % 5 == 4) continue;  // now and then a frame without measurement
      const Mat zv = add(mul(H, xp), random_mat(g, M, 1, -0.5, 0.5));
      put<T>(z, zv);
      const Mat K = mul(mul(Pp, tr(H)), inverse(add(mul(mul(H, Pp), tr(H)), R)));
      x = add(xp, mul(K, add(zv, mul(H, xp), -1)));
      P = add(Pp, mul(K, mul(H, Pp)), -1);
      ASSERT_EQ(oru_kalman_filter_update(z, k), k->state_post) << where;
      EXPECT_LT(rel_error<T>(k->gain, K), tolerance) << where;
      EXPECT_LT(rel_error<T>(k->state_post, x), tolerance) << where;
      EXPECT_LT(rel_error<T>(k->error_cov_post, P), tolerance) << where;
      // The filter follows the library from here on, so rounding doesn't accumulate
      // between the two and each step is judged on its own.
      for (int i = 0; i < S; ++i) x(i, 0) = double(elem<T>(k->state_post, i, 0));
      for (int i = 0; i < S; ++i)
        for (int j = 0; j < S; ++j) P(i, j) = double(elem<T>(k->error_cov_post, i, j));
    }
    oru_release_matrix(&u);
    oru_release_matrix(&z);
    ASSERT_EQ(oru_release_kalman_filter_handle(&k), ORU_RET_OK);
    EXPECT_EQ(k, nullptr);
  }
}

TEST(KalmanFilter, DoubleSequencesMatchTheReference) { run_sequences<double>(aif64, 1e-10); }

// Single precision: the products and the elimination round at 2^-24 per step, and the
// innovation covariance is well conditioned here, so 1e-4 of the largest entry holds.
TEST(KalmanFilter, FloatSequencesMatchTheReferenceWithinTolerance) { run_sequences<float>(aif32, 1e-4); }

TEST(KalmanFilter, FreshFilterHasNeutralDefaults) {
  const oru_kalman_params params{2, 1, 0, aif32};
  oru_kalman_filter *k = oru_create_kalman_filter_handle(&params);
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(k->control, nullptr);
  EXPECT_EQ(k->state_dim, 2);
  EXPECT_EQ(k->measure_dim, 1);
  EXPECT_EQ(k->type, aif32);
  EXPECT_EQ(k->gain->rows, 2);
  EXPECT_EQ(k->gain->cols, 1);
  EXPECT_EQ(k->temp2->rows, 1);
  EXPECT_EQ(k->temp2->cols, 2);
  EXPECT_EQ(k->temp5->rows, 1);
  EXPECT_EQ(k->temp5->cols, 1);
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j) {
      EXPECT_EQ(elem<float>(k->transition, i, j), i == j ? 1.0f : 0.0f);
      EXPECT_EQ(elem<float>(k->process_noise, i, j), i == j ? 1.0f : 0.0f);
      EXPECT_EQ(elem<float>(k->error_cov_post, i, j), 0.0f);
    }
  EXPECT_EQ(elem<float>(k->measurement_noise, 0, 0), 1.0f);
  EXPECT_EQ(elem<float>(k->measurement, 0, 0), 0.0f);
  // Predict from zero: a zero state, P- = F 0 F^T + Q = I.
  ASSERT_NE(oru_kalman_filter_predict(nullptr, k), nullptr);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(elem<float>(k->state_pre, i, 0), 0.0f);
    for (int j = 0; j < 2; ++j) EXPECT_EQ(elem<float>(k->error_cov_pre, i, j), i == j ? 1.0f : 0.0f);
  }
  oru_release_kalman_filter_handle(&k);
}

TEST(KalmanFilter, GainIsOneHalfWithUnitCovariances) {
  // M = S, H = I, R = I and P- = I: K = I (I + I)^-1 = I / 2, and the state moves halfway.
  const oru_kalman_params params{3, 3, 0, aif64};
  oru_kalman_filter *k = oru_create_kalman_filter_handle(&params);
  ASSERT_NE(k, nullptr);
  ASSERT_EQ(oru_set_eye_matrix(k->measurement), ORU_RET_OK);
  for (int i = 0; i < 3; ++i) elem<double>(k->state_post, i, 0) = 2.0 * i;
  ASSERT_NE(oru_kalman_filter_predict(nullptr, k), nullptr);
  oru_matrix *z = oru_create_matrix(3, 1, 1, aif64);
  for (int i = 0; i < 3; ++i) elem<double>(z, i, 0) = 10.0;
  ASSERT_NE(oru_kalman_filter_update(z, k), nullptr);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) EXPECT_DOUBLE_EQ(elem<double>(k->gain, i, j), i == j ? 0.5 : 0.0);
    EXPECT_DOUBLE_EQ(elem<double>(k->state_post, i, 0), (2.0 * i + 10.0) / 2);
    EXPECT_DOUBLE_EQ(elem<double>(k->error_cov_post, i, i), 0.5);
  }
  oru_release_matrix(&z);
  oru_release_kalman_filter_handle(&k);
}

TEST(KalmanFilter, RefusalsReportAndGiveNull) {
  for (const oru_kalman_params bad : {oru_kalman_params{2, 1, 0, 16}, oru_kalman_params{2, 1, 0, ai16s},
                                      oru_kalman_params{0, 1, 0, aif32}, oru_kalman_params{2, 0, 0, aif32},
                                      oru_kalman_params{2, 1, -1, aif64}}) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(oru_create_kalman_filter_handle(&bad), nullptr);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Your input params are wrong!"), std::string::npos);
  }
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_kalman_filter_handle(nullptr), nullptr);
  EXPECT_EQ(oru_kalman_filter_predict(nullptr, nullptr), nullptr);
  const oru_kalman_params params{2, 2, 0, aif32};
  oru_kalman_filter *k = oru_create_kalman_filter_handle(&params);
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(oru_kalman_filter_update(nullptr, k), nullptr);
  // A measurement of the wrong length or type is refused before anything is written.
  oru_matrix *z3 = oru_create_matrix(3, 1, 1, aif32);
  oru_matrix *z64 = oru_create_matrix(2, 1, 1, aif64);
  EXPECT_EQ(oru_kalman_filter_update(z3, k), nullptr);
  EXPECT_EQ(oru_kalman_filter_update(z64, k), nullptr);
  // A control vector without a control matrix fails in the multiply.
  EXPECT_EQ(oru_kalman_filter_predict(z3, k), nullptr);
  testing::internal::GetCapturedStdout();
  oru_release_matrix(&z3);
  oru_release_matrix(&z64);
  EXPECT_EQ(oru_release_kalman_filter_handle(&k), ORU_RET_OK);
  EXPECT_EQ(oru_release_kalman_filter_handle(&k), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_release_kalman_filter_handle(nullptr), ORU_RET_ERR_PARA);
}

}  // namespace
