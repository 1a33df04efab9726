// The table-driven exponential against the system's exp and expf.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <vector>

#include "oru_matrix.h"

namespace {

double fast_exp(double x) {
  oru_fast_expl(&x, 1);
  return x;
}

// Error bound of the fast exponential: the product x * 64 / ln 2 carries a rounding
// error that grows with |x|, the table and polynomial add a few ulp. Relative to exp:
//   |fast(x) - exp(x)| <= (8 + |x|) * 2^-52 * exp(x)    for -700 <= x <= 709.
// Against expf, wherever expf is a normal float, within one float ulp (2^-23).
// At the ends: exactly 0 for x <= -708.5, infinity for x >= 709.79.
TEST(FastExp, ErrorBoundOverTheFloatRange) {
  // Every 4093rd float bit pattern: about a million inputs of every exponent.
  std::vector<double> xs;
  std::vector<float> fs;
  for (uint64_t bits = 0; bits <= 0xFFFFFFFFull; bits += 4093) {
    const uint32_t b = uint32_t(bits);
    float f;
    std::memcpy(&f, &b, 4);
    if (std::isnan(f)) continue;
    fs.push_back(f);
    xs.push_back(f);
  }
  oru_fast_expl(xs.data(), int32_t(xs.size()));
  int64_t checked = 0;
  for (size_t i = 0; i < fs.size(); ++i) {
    const float f = fs[i];
    const double got = xs[i];
    const double x = f;
    if (x >= -700.0 && x <= 709.0) {
      const double ref = std::exp(x);
      ASSERT_LE(std::abs(got - ref), (8.0 + std::abs(x)) * DBL_EPSILON * ref) << "x=" << x;
      ++checked;
    } else if (x <= -708.5) {
      ASSERT_EQ(got, 0.0) << "x=" << x;
    } else if (x >= 709.79) {
      ASSERT_TRUE(std::isinf(got) && got > 0) << "x=" << x;
    } else {
      // The narrow band where the result is subnormal or next to the largest double.
      ASSERT_GE(got, 0.0);
      ASSERT_LE(got, std::exp(x) * (1 + 1e-12)) << "x=" << x;
    }
    const float ref_f = std::exp(f);
    if (std::isnormal(ref_f)) {
      ASSERT_LE(std::abs(got - double(ref_f)), double(ref_f) * FLT_EPSILON) << "x=" << x;
    }
  }
  EXPECT_GT(checked, 100000);
}

TEST(FastExp, TheEnds) {
  EXPECT_NEAR(fast_exp(0.0), 1.0, 2 * DBL_EPSILON);
  EXPECT_NEAR(fast_exp(1.0), 2.718281828459045, 1e-15);
  EXPECT_NEAR(fast_exp(-1.0), 0.36787944117144233, 1e-16);
  EXPECT_EQ(fast_exp(-800.0), 0.0);
  EXPECT_EQ(fast_exp(800.0), INFINITY);
  EXPECT_EQ(fast_exp(2048.0), INFINITY);
  EXPECT_EQ(fast_exp(-2048.0), 0.0);
  EXPECT_EQ(fast_exp(1e300), INFINITY);
  EXPECT_EQ(fast_exp(-1e300), 0.0);
  EXPECT_EQ(fast_exp(INFINITY), INFINITY);
  EXPECT_EQ(fast_exp(-INFINITY), 0.0);
  // Counts of zero or less leave the array alone.
  double x[2] = {1.0, 2.0};
  oru_fast_expl(x, 0);
  oru_fast_expl(x, -3);
  EXPECT_EQ(x[0], 1.0);
  EXPECT_EQ(x[1], 2.0);
}

}  // namespace
