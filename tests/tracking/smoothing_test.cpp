// Smoothing factor, exponential step and one-euro step, against a double-precision
// filter written here and against the limits that the filter's definition fixes.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "oru_tracking.h"

namespace {

TEST(Smoothing, FactorIsTheLowPassCoefficient) {
  EXPECT_EQ(oru_get_smooth_factor(0.0f, 30.0f), 0.0f);
  EXPECT_EQ(oru_get_smooth_factor(0.1f, 0.0f), 0.0f);
  // r = 2 pi f te; alpha = r / (1 + r). The shortened constant differs from 2 pi by ~1e-7
  // relative, far below float resolution of the result.
  for (float te : {1.0f / 120, 1.0f / 30, 0.5f})
    for (float f : {0.1f, 1.0f, 7.5f}) {
      const double r = 2 * M_PI * f * te;
      EXPECT_NEAR(oru_get_smooth_factor(te, f), r / (1 + r), 1e-6) << te << " " << f;
    }
  // r = 1 exactly gives one half: te = 1 / 6.2831852, cutoff 1.
  EXPECT_FLOAT_EQ(oru_get_smooth_factor(float(1 / 6.2831852), 1.0f), 0.5f);
}

TEST(Smoothing, ExponentialStepMixesByTheFactor) {
  EXPECT_EQ(oru_get_exponential_smoothing(1.0f, 3.5f, -2.0f), 3.5f);
  EXPECT_EQ(oru_get_exponential_smoothing(0.0f, 3.5f, -2.0f), -2.0f);
  EXPECT_EQ(oru_get_exponential_smoothing(0.25f, 4.0f, 8.0f), 7.0f);
}

// One step of the one-euro filter in double precision.
double euro_step(double te, double d_cutoff, double min_cutoff, double beta, double x, double px, double pdx,
                 double *dx_out) {
  auto factor = [te](double cutoff) {
    const double r = 2 * M_PI * cutoff * te;
    return r / (r + 1);
  };
  const double ad = factor(d_cutoff);
  const double dx = ad * (x - px) / te + (1 - ad) * pdx;
  *dx_out = dx;
  const double a = factor(min_cutoff + beta * std::fabs(dx));
  return a * x + (1 - a) * px;
}

TEST(Smoothing, OneEuroFollowsADoubleReferenceOnANoisySignal) {
  const oru_one_euro_params p{1.0f / 60, 1.0f, 1.5f, 0.5f};
  std::mt19937 gen(5);
  std::normal_distribution<double> noise(0, 0.05);
  float x_prev = 0, dx_prev = 0;
  double rx = 0, rdx = 0;
  double err_raw = 0, err_smooth = 0;
  for (int k = 1; k < 600; ++k) {
    const double truth = std::sin(k * 0.002);
    const double sample = truth + noise(gen);
    float dx;
    const float y = oru_one_euro_filter_v2(&p, &dx, float(sample), x_prev, dx_prev);
    double rdx_new;
    const double ry = euro_step(p.te, p.d_cutoff, p.min_cutoff, p.beta, double(float(sample)), rx, rdx, &rdx_new);
    ASSERT_NEAR(y, ry, 2e-5) << "step " << k;
    ASSERT_NEAR(dx, rdx_new, 2e-3 * (1 + std::fabs(rdx_new))) << "step " << k;
    x_prev = y;
    dx_prev = dx;
    rx = ry;
    rdx = rdx_new;
    if (k > 60) {
      err_raw += (sample - truth) * (sample - truth);
      err_smooth += (y - truth) * (y - truth);
    }
  }
  // The filter does smooth: less error than the raw samples.
  EXPECT_LT(err_smooth, 0.5 * err_raw);
}

TEST(Smoothing, OneEuroEdgeCases) {
  const oru_one_euro_params p{0.1f, 1.0f, 1.0f, 0.5f};
  float dx = 99;
  EXPECT_EQ(oru_one_euro_filter_v2(&p, &dx, 4.25f, 4.25f, 0.0f), 4.25f);
  EXPECT_EQ(dx, 0.0f);
  // A null derivative pointer is allowed; the result is the same.
  float with_dx;
  const float a = oru_one_euro_filter_v2(&p, &with_dx, 2.0f, 1.0f, 0.5f);
  EXPECT_EQ(oru_one_euro_filter_v2(&p, nullptr, 2.0f, 1.0f, 0.5f), a);
  EXPECT_GT(a, 1.0f);
  EXPECT_LT(a, 2.0f);
  // No parameters: the sample passes through and the derivative is left alone.
  dx = 7;
  EXPECT_EQ(oru_one_euro_filter_v2(nullptr, &dx, 3.0f, 1.0f, 0.0f), 3.0f);
  EXPECT_EQ(dx, 7.0f);
  // A larger beta follows a jump more closely.
  const oru_one_euro_params slow{0.1f, 1.0f, 0.1f, 0.0f}, fast{0.1f, 1.0f, 0.1f, 5.0f};
  EXPECT_LT(oru_one_euro_filter_v2(&slow, nullptr, 10.0f, 0.0f, 0.0f),
            oru_one_euro_filter_v2(&fast, nullptr, 10.0f, 0.0f, 0.0f));
}

}  // namespace
