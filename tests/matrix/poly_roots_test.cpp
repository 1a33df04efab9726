// Closed-form polynomial roots against numpy.roots and hand-worked cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <fstream>
#include <sstream>
#include <vector>

#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

using cd = std::complex<double>;

// Real roots first, then each complex entry as its conjugate pair.
std::vector<cd> as_root_set(int degree, int real, const double *x) {
  std::vector<cd> r;
  if (degree == 3 && real == 2) return {x[0], x[1], x[1]};
  for (int i = 0; i < real; ++i) r.emplace_back(x[i]);
  for (int i = real; int(r.size()) < degree; i += 2) {
    r.emplace_back(x[i], x[i + 1]);
    r.emplace_back(x[i], -x[i + 1]);
  }
  return r;
}

// Greedy matching: every expected root must have its own close partner.
void expect_same_roots(std::vector<cd> got, const std::vector<cd> &want, double tol, const std::string &what) {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (const cd &w : want) {
    auto best = std::min_element(got.begin(), got.end(),
                                 [&](const cd &a, const cd &b) { return std::abs(a - w) < std::abs(b - w); });
    EXPECT_LE(std::abs(*best - w), tol * std::max(1.0, std::abs(w))) << what << " root " << w;
    got.erase(best);
  }
}

TEST(PolyRoots, MatchNumpyOnRandomAndRepeatedRoots) {
  std::ifstream in(oru_test::data_path("matrix/poly_roots_ref.txt"));
  ASSERT_TRUE(in.good());
  std::string line;
  int cases = 0;
  while (std::getline(in, line)) {
    std::istringstream ls(line);
    double dv;
    ls >> dv;
    int degree = int(dv);
    std::vector<double> c(degree);
    for (double &v : c) ls >> v;
    std::vector<cd> want(degree);
    bool repeated = false;
    for (auto &z : want) {
      double re, im;
      ls >> re >> im;
      z = cd(re, im);
    }
    int clustered = 0;  // roots that have a near twin (numpy spreads a triple root by ~3e-5)
    for (int i = 0; i < degree; ++i) {
      bool twin = false;
      for (int j = 0; j < degree; ++j) twin |= j != i && std::abs(want[i] - want[j]) < 1e-3;
      clustered += twin;
    }
    repeated = clustered > 0;
    double x[4];
    int real = degree == 2 ? oru_solve_p2(x, c[0], c[1])
               : degree == 3 ? oru_solve_p3(x, c[0], c[1], c[2])
                             : oru_solve_p4(x, c[0], c[1], c[2], c[3]);
    if (!repeated) {
      expect_same_roots(as_root_set(degree, real, x), want, 1e-8, line);
    } else {
      // A multiple root is only determined to about a root of the rounding, and the
      // Newton step marks a root where the derivative vanishes exactly with 1e99.
      int markers = 0;
      for (const cd &z : as_root_set(degree, real, x)) {
        if (z.real() == 1e99) {
          ++markers;
          continue;
        }
        double best = 1e300;
        for (const cd &w : want) best = std::min(best, std::abs(z - w));
        EXPECT_LE(best, 2e-4 * std::max(1.0, std::abs(z))) << line;
      }
      EXPECT_LE(markers, clustered) << line;
    }

    bool all_real = std::all_of(want.begin(), want.end(), [](const cd &z) { return z.imag() == 0.0; });
    if (degree == 4 && all_real && !repeated) {
      double f[5] = {1.0, c[0], c[1], c[2], c[3]}, r[4];
      oru_solve_quartic(f, r);
      expect_same_roots({r[0], r[1], r[2], r[3]}, want, 1e-6, "quartic " + line);
    }
    ++cases;
  }
  EXPECT_EQ(cases, 180);
}

TEST(PolyRoots, HandWorkedCases) {
  double x[4];
  ASSERT_EQ(oru_solve_p2(x, -3, 2), 2);
  EXPECT_DOUBLE_EQ(x[0], 1.0);
  EXPECT_DOUBLE_EQ(x[1], 2.0);
  ASSERT_EQ(oru_solve_p2(x, 4, 0), 2);  // b = 0 with a >= 0
  EXPECT_EQ(x[0], 0.0);
  EXPECT_EQ(x[1], -4.0);
  ASSERT_EQ(oru_solve_p2(x, 0, 1), 0);
  EXPECT_EQ(x[0], 0.0);
  EXPECT_EQ(x[1], 1.0);
  ASSERT_EQ(oru_solve_p2(x, 0, 0), 2);
  EXPECT_EQ(x[0], 0.0);
  EXPECT_EQ(x[1], 0.0);

  ASSERT_EQ(oru_solve_p3(x, -3, 3, -1), 2);  // (t - 1)^3
  EXPECT_NEAR(x[0], 1.0, 1e-12);
  ASSERT_EQ(oru_solve_p3(x, 0, 0, -8), 1);
  EXPECT_NEAR(x[0], 2.0, 1e-14);
  EXPECT_NEAR(x[1], -1.0, 1e-14);
  EXPECT_NEAR(std::fabs(x[2]), std::sqrt(3.0), 1e-14);

  ASSERT_EQ(oru_solve_p4(x, 0, -5, 0, 4), 4);
  std::vector<double> r(x, x + 4);
  std::sort(r.begin(), r.end());
  EXPECT_EQ(r, (std::vector<double>{-2, -1, 1, 2}));
  ASSERT_EQ(oru_solve_p4(x, 0, 0, 0, 1), 0);  // t^4 + 1: the eighth roots of unity at odd angles
  const double h = std::sqrt(0.5);
  EXPECT_NEAR(x[0], h, 1e-15);
  EXPECT_NEAR(std::fabs(x[1]), h, 1e-15);
  EXPECT_NEAR(x[2], h, 1e-15);
  EXPECT_NEAR(std::fabs(x[3]), h, 1e-15);

  double f[5] = {1, -10, 35, -50, 24}, q[4];
  oru_solve_quartic(f, q);
  std::sort(q, q + 4);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(q[i], i + 1.0, 1e-9);
  double g[5] = {2, 0, 3, 1, 5};  // no real roots: four finite candidates all the same
  oru_solve_quartic(g, q);
  for (double v : q) EXPECT_TRUE(std::isfinite(v));
  EXPECT_EQ(eps, 1e-14);
}

}  // namespace
