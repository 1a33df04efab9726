// The reverse-communication Levenberg-Marquardt engine driven by small models with
// known solutions, and the SVD back-substitution it steps with.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>
#include <vector>

#include "oru_pose.h"

namespace {

double *vec(oru_matrix *m) { return static_cast<double *>(m->data); }

// Model with six parameters: y(x) = p0 + p1 x + p2 x^2 + p3 sin(p4 x + p5).
const double kTrue[6] = {0.5, -1.2, 0.3, 2.0, 1.7, 0.4};
double model(const double *p, double x) { return p[0] + p[1] * x + p[2] * x * x + p[3] * std::sin(p[4] * x + p[5]); }

struct CurveFit {
  std::vector<double> xs, ys;
  CurveFit() {
    for (int i = 0; i < 40; ++i) {
      xs.push_back(-2.0 + 0.1 * i);
      ys.push_back(model(kTrue, xs.back()));
    }
  }
  void fill(const double *p, oru_matrix *J, oru_matrix *err) const {
    for (size_t i = 0; i < xs.size(); ++i) {
      const double x = xs[i];
      vec(err)[i] = model(p, x) - ys[i];
      if (!J) continue;
      double *row = vec(J) + 6 * i;
      const double arg = p[4] * x + p[5];
      row[0] = 1;
      row[1] = x;
      row[2] = x * x;
      row[3] = std::sin(arg);
      row[4] = p[3] * std::cos(arg) * x;
      row[5] = p[3] * std::cos(arg);
    }
  }
};

TEST(LmOptimizer, CriteriaAreClampedOrReplacedByDefaults) {
  oru_lm_criteria c = {2u, 5, 0.5};
  oru_lm_optimizer *o = oru_create_lm_optimizer(6, 10, &c, 0);
  ASSERT_NE(o, nullptr);
  EXPECT_EQ(o->criteria.max_iter, 30);
  EXPECT_EQ(o->criteria.epsilon, 2.220446049250313e-16);
  EXPECT_EQ(o->lambda_lg10, -3);
  EXPECT_EQ(o->state, 1u);
  EXPECT_EQ(o->prev_err_norm, DBL_MAX);
  EXPECT_EQ(oru_release_lm_optimizer(&o), 0u);
  EXPECT_EQ(o, nullptr);
  EXPECT_EQ(oru_release_lm_optimizer(&o), 1u);
  EXPECT_EQ(oru_release_lm_optimizer(nullptr), 1u);

  for (auto [given, want] : {std::pair<int, int>{0, 1}, {5000, 1000}, {7, 7}}) {
    c = {1u, given, -1.0};
    o = oru_create_lm_optimizer(2, 0, &c, 0);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->criteria.max_iter, want);
    EXPECT_EQ(o->criteria.epsilon, 0.0);
    EXPECT_EQ(o->J, nullptr);
    EXPECT_EQ(o->err, nullptr);
    oru_release_lm_optimizer(&o);
  }
  EXPECT_EQ(oru_create_lm_optimizer(0, 3, &c, 0), nullptr);
  EXPECT_EQ(oru_create_lm_optimizer(3, 3, nullptr, 0), nullptr);
}

TEST(LmOptimizer, FitsANonlinearCurveAndThenStops) {
  CurveFit fit;
  oru_lm_criteria c = {3u, 100, 1e-12};
  oru_lm_optimizer *o = oru_create_lm_optimizer(6, int32_t(fit.xs.size()), &c, 0);
  ASSERT_NE(o, nullptr);
  const double start[6] = {0.3, -1.0, 0.5, 1.6, 1.5, 0.6};
  for (int i = 0; i < 6; ++i) vec(o->param)[i] = start[i];
  int calls = 0;
  for (;;) {
    oru_matrix *p = nullptr, *J = nullptr, *err = nullptr;
    uint32_t go = oru_lm_optimizer_update(&p, &J, &err, o);
    ASSERT_NE(p, nullptr);
    if (!go || !err) break;
    fit.fill(vec(p), J, err);
    ASSERT_LT(++calls, 1000);
  }
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(vec(o->param)[i], kTrue[i], 1e-8) << i;
  EXPECT_EQ(o->state, 0u);
  // After the end: result 0, the parameters, no order to compute anything.
  oru_matrix *p = nullptr, *J = o->J, *err = o->err;
  EXPECT_EQ(oru_lm_optimizer_update(&p, &J, &err, o), 0u);
  EXPECT_EQ(p, o->param);
  EXPECT_EQ(J, nullptr);
  EXPECT_EQ(err, nullptr);
  oru_release_lm_optimizer(&o);
}

TEST(LmOptimizer, MaskedParameterKeepsItsValue) {
  CurveFit fit;
  oru_lm_criteria c = {3u, 50, 1e-12};
  oru_lm_optimizer *o = oru_create_lm_optimizer(6, int32_t(fit.xs.size()), &c, 0);
  ASSERT_NE(o, nullptr);
  const double start[6] = {0.3, -1.0, 0.5, 1.6, 1.5, 0.3999999999999};
  for (int i = 0; i < 6; ++i) vec(o->param)[i] = start[i];
  static_cast<uint8_t *>(o->mask->data)[5] = 0;
  for (;;) {
    oru_matrix *p = nullptr, *J = nullptr, *err = nullptr;
    if (!oru_lm_optimizer_update(&p, &J, &err, o) || !err) break;
    EXPECT_EQ(vec(p)[5], start[5]);
    fit.fill(vec(p), J, err);
  }
  EXPECT_EQ(vec(o->param)[5], start[5]);
  for (int i = 0; i < 5; ++i) EXPECT_NEAR(vec(o->param)[i], kTrue[i], 1e-6) << i;
  oru_release_lm_optimizer(&o);
}

TEST(LmOptimizer, GrowingErrorRaisesDampingDecadeByDecade) {
  oru_lm_criteria c = {3u, 3, 0.0};
  oru_lm_optimizer *o = oru_create_lm_optimizer(6, 2, &c, 0);
  ASSERT_NE(o, nullptr);
  for (int i = 0; i < 6; ++i) vec(o->param)[i] = 1.0 + i;
  double level = 1.0;
  std::vector<int> lambdas;
  for (int call = 0; call < 200; ++call) {
    oru_matrix *p = nullptr, *J = nullptr, *err = nullptr;
    if (!oru_lm_optimizer_update(&p, &J, &err, o) || !err) break;
    if (!J && o->iters == 0) lambdas.push_back(o->lambda_lg10);
    vec(err)[0] = level;  // every evaluation is worse than the one before
    vec(err)[1] = 0.0;
    level *= 2.0;
    if (J)
      for (int k = 0; k < 12; ++k) vec(J)[k] = (k % 7 == 0) ? 1.0 : 0.1 * k;
  }
  // The first trial runs at -3; each worse one retries one decade higher, up to 16.
  ASSERT_GE(lambdas.size(), 20u);
  for (int k = 0; k < 20; ++k) EXPECT_EQ(lambdas[k], -3 + k) << k;
  EXPECT_EQ(o->iters, 3);
  oru_release_lm_optimizer(&o);
}

TEST(LmOptimizer, AccumulatedFormSolvesALinearLeastSquaresProblem) {
  // y = A p with A of 30 x 4; the caller accumulates the upper triangle of A^T A.
  std::mt19937 gen(8);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  const double truth[4] = {1.5, -2.0, 0.25, 3.0};
  std::vector<double> A(30 * 4), y(30);
  for (int i = 0; i < 30; ++i) {
    y[i] = 0;
    for (int j = 0; j < 4; ++j) {
      A[i * 4 + j] = d(gen);
      y[i] += A[i * 4 + j] * truth[j];
    }
  }
  oru_lm_criteria c = {1u, 50, 1e-14};
  oru_lm_optimizer *o = oru_create_lm_optimizer(4, 0, &c, 0);
  ASSERT_NE(o, nullptr);
  int rounds = 0;
  for (;;) {
    oru_matrix *p = nullptr, *JtJ = nullptr, *JtErr = nullptr;
    double *norm = nullptr;
    if (!oru_lm_optimizer_update_alt(&p, &JtJ, &JtErr, &norm, o)) break;
    ASSERT_NE(norm, nullptr);
    double sq = 0;
    for (int i = 0; i < 30; ++i) {
      double r = -y[i];
      for (int j = 0; j < 4; ++j) r += A[i * 4 + j] * vec(p)[j];
      sq += r * r;
      if (JtJ) {
        for (int a = 0; a < 4; ++a) {
          vec(JtErr)[a] += A[i * 4 + a] * r;
          for (int b = a; b < 4; ++b) vec(JtJ)[a * 4 + b] += A[i * 4 + a] * A[i * 4 + b];
        }
      }
    }
    *norm = std::sqrt(sq);
    ASSERT_LT(++rounds, 500);
  }
  for (int j = 0; j < 4; ++j) EXPECT_NEAR(vec(o->param)[j], truth[j], 1e-9);
  oru_matrix *p = nullptr, *JtJ = nullptr, *JtErr = nullptr;
  double *norm = nullptr;
  EXPECT_EQ(oru_lm_optimizer_update_alt(&p, &JtJ, &JtErr, &norm, o), 0u);
  oru_release_lm_optimizer(&o);
}

TEST(LmOptimizer, TransposeProductMatchesDefinition) {
  std::mt19937 gen(2);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  std::vector<double> src(7 * 5), dst(25);
  for (double &v : src) v = d(gen);
  oru_matrix s{}, t{}, bad{};
  oru_set_matrix_header(&s, 7, 5, 1, aif64);
  s.data = src.data();
  oru_set_matrix_header(&t, 5, 5, 1, aif64);
  t.data = dst.data();
  ASSERT_EQ(oru_small_mat_transpose_mul_mat(&t, &s), 0u);
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 5; ++j) {
      double acc = 0;
      for (int k = 0; k < 7; ++k) acc += src[k * 5 + i] * src[k * 5 + j];
      EXPECT_NEAR(dst[i * 5 + j], acc, 1e-14);
    }
  oru_set_matrix_header(&bad, 4, 5, 1, aif64);
  bad.data = dst.data();
  EXPECT_EQ(oru_small_mat_transpose_mul_mat(&bad, &s), 1u);
}

}  // namespace
