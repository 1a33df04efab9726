// Least squares through the SVD: hand cases, the threshold, and the Moore-Penrose
// conditions for the pseudo-inverse.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "decomposition_ref.h"
#include "oru_matrix.h"

namespace {

using oru_test::view_of;

template <typename T>
std::vector<T> solve_via_svd(std::vector<T> a, int n, std::vector<T> b, int nb) {
  std::vector<T> u(n * n), v(n * n), w(n), x(n * nb);
  oru_matrix am = view_of(a, n, n), um = view_of(u, n, n), vm = view_of(v, n, n), wm = view_of(w, n, 1),
             bm = view_of(b, n, nb), xm = view_of(x, n, nb);
  EXPECT_EQ(oru_small_matrix_svd(&um, &vm, &wm, &am, 0), 0u);
  EXPECT_EQ(oru_solve_linear_equation_by_svd(&xm, &bm, &um, &wm, &vm, 6), 0u);
  return x;
}

TEST(SvdSolve, RankOneSystemGivesMinimumNorm) {
  auto x = solve_via_svd<double>({1, 0, 0, 0}, 2, {2, 3}, 1);
  EXPECT_EQ(x[0], 2.0);
  EXPECT_EQ(x[1], 0.0);
}

TEST(SvdSolve, ThresholdIsTwoEpsilonsOfTheSum) {
  for (double small : {1e-17, 1e-15}) {
    std::vector<double> u = {1, 0, 0, 1}, w = {1, small}, b = {1, 1}, x(2);
    oru_matrix um = view_of(u, 2, 2), wm = view_of(w, 2, 1), bm = view_of(b, 2, 1), xm = view_of(x, 2, 1);
    ASSERT_EQ(oru_solve_linear_equation_by_svd(&xm, &bm, &um, &wm, &um, 6), 0u);
    EXPECT_EQ(x[0], 1.0);
    EXPECT_EQ(x[1], small < 4.44e-16 ? 0.0 : 1.0 / small);
  }
}

template <typename T>
void full_rank_systems(double tol) {
  std::mt19937 gen(4);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  for (int n : {1, 3, 6, 12}) {
    for (int nb : {1, 3}) {
      std::vector<T> a(n * n), b(n * nb);
      for (T &v : a) v = T(d(gen));
      for (int i = 0; i < n; ++i) a[i * n + i] += T(n);  // well conditioned
      for (T &v : b) v = T(d(gen));
      auto x = solve_via_svd<T>(a, n, b, nb);
      for (int i = 0; i < n; ++i)
        for (int c = 0; c < nb; ++c) {
          double acc = 0;
          for (int k = 0; k < n; ++k) acc += double(a[i * n + k]) * x[k * nb + c];
          EXPECT_NEAR(acc, b[i * nb + c], tol) << n << " " << nb;
        }
    }
  }
}

TEST(SvdSolve, FullRankSystemsDouble) { full_rank_systems<double>(1e-12); }
TEST(SvdSolve, FullRankSystemsFloat) { full_rank_systems<float>(1e-4); }

TEST(SvdSolve, WithoutRightHandSideGivesThePseudoInverse) {
  // Rank 2 in 4 x 4: the four Penrose conditions hold for X = A+.
  const int n = 4;
  std::vector<double> p = {1, 2, 0, -1}, q = {0, 1, 3, 1}, a(n * n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) a[i * n + j] = p[i] * p[j] + 2 * q[i] * q[j];
  std::vector<double> u(n * n), v(n * n), w(n), x(n * n);
  std::vector<double> none;
  oru_matrix am = view_of(a, n, n), um = view_of(u, n, n), vm = view_of(v, n, n), wm = view_of(w, n, 1),
             xm = view_of(x, n, n), bm = view_of(none, n, 1);
  bm.data = nullptr;
  ASSERT_EQ(oru_small_matrix_svd(&um, &vm, &wm, &am, 0), 0u);
  ASSERT_EQ(oru_solve_linear_equation_by_svd(&xm, &bm, &um, &wm, &vm, 6), 0u);
  auto mul = [](const std::vector<double> &l, const std::vector<double> &r) {
    std::vector<double> o(n * n, 0.0);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j)
        for (int k = 0; k < n; ++k) o[i * n + j] += l[i * n + k] * r[k * n + j];
    return o;
  };
  auto axa = mul(mul(a, x), a), xax = mul(mul(x, a), x), ax = mul(a, x), xa = mul(x, a);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      EXPECT_NEAR(axa[i * n + j], a[i * n + j], 1e-12);
      EXPECT_NEAR(xax[i * n + j], x[i * n + j], 1e-12);
      EXPECT_NEAR(ax[i * n + j], ax[j * n + i], 1e-12);
      EXPECT_NEAR(xa[i * n + j], xa[j * n + i], 1e-12);
    }
}

TEST(SvdSolve, RefusesMissingArguments) {
  std::vector<double> u = {1, 0, 0, 1}, w = {1, 1}, b = {1, 1}, x(2);
  oru_matrix um = view_of(u, 2, 2), wm = view_of(w, 2, 1), bm = view_of(b, 2, 1), xm = view_of(x, 2, 1);
  EXPECT_EQ(oru_solve_linear_equation_by_svd(nullptr, &bm, &um, &wm, &um, 6), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_solve_linear_equation_by_svd(&xm, &bm, &um, nullptr, &um, 6), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_solve_linear_equation_by_svd(&xm, &bm, nullptr, &wm, nullptr, 6), ORU_RET_ERR_PARA);
}

}  // namespace
