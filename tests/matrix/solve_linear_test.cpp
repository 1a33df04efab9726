// Gaussian elimination against NumPy's solutions, the pivot rules and the refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <vector>

#include "gemm_test_util.h"
#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

using gemm_test::view;

struct Case {
  int n = 0, m = 0;
  bool singular = false;
  std::vector<double> a, b, x;
};

std::vector<Case> load_cases() {
  std::ifstream in(oru_test::data_path("matrix/solve_cases.txt"));
  int count = 0;
  in >> count;
  std::vector<Case> cases(count);
  for (Case &c : cases) {
    int s = 0;
    in >> c.n >> c.m >> s;
    c.singular = s != 0;
    c.a.resize(size_t(c.n) * c.n);
    c.b.resize(size_t(c.n) * c.m);
    for (double &v : c.a) in >> v;
    for (double &v : c.b) in >> v;
    if (!c.singular) {
      c.x.resize(c.b.size());
      for (double &v : c.x) in >> v;
    }
  }
  EXPECT_TRUE(in.good()) << "reference data unreadable";
  return cases;
}

// Solves in T with padded rows in a and x; returns the status and fills x (n by m).
template <typename T>
uint32_t solve(const Case &c, std::vector<T> &x_out, std::string *printed = nullptr) {
  const uint32_t type = sizeof(T) == 4 ? aif32 : aif64;
  const int lda = c.n + 3, ldx = c.m + 2;
  std::vector<T> a(size_t(c.n) * lda, T(-7)), b(c.b.begin(), c.b.end()), x(size_t(c.n) * ldx, T(-7));
  for (int i = 0; i < c.n; ++i)
    for (int j = 0; j < c.n; ++j) a[size_t(i) * lda + j] = T(c.a[size_t(i) * c.n + j]);
  const std::vector<T> b0 = b;
  oru_matrix ma = view(a.data(), c.n, c.n, type, lda), mb = view(b.data(), c.n, c.m, type, c.m);
  oru_matrix mx = view(x.data(), c.n, c.m, type, ldx);
  mx.stride = int64_t(ldx) * sizeof(T);
  testing::internal::CaptureStdout();
  const uint32_t status = oru_solve_linear_equation(&mx, &ma, &mb);
  const std::string out = testing::internal::GetCapturedStdout();
  if (printed) *printed = out;
  EXPECT_EQ(b, b0) << "b must stay as it was";
  x_out.assign(size_t(c.n) * c.m, T(0));
  for (int i = 0; i < c.n; ++i)
    for (int j = 0; j < c.m; ++j) x_out[size_t(i) * c.m + j] = x[size_t(i) * ldx + j];
  return status;
}

template <typename T>
void check_against_numpy(double rel_tol) {
  const auto cases = load_cases();
  ASSERT_FALSE(cases.empty());
  int regular = 0, singular = 0;
  for (const Case &c : cases) {
    std::vector<T> x;
    std::string printed;
    const uint32_t status = solve<T>(c, x, &printed);
    if (c.singular) {
      ++singular;
      EXPECT_EQ(status, ORU_RET_ERR_UNKNOWN) << "n=" << c.n;
      EXPECT_EQ(printed, "\nIt's not a full rank matrix\n");
      continue;
    }
    ++regular;
    ASSERT_EQ(status, ORU_RET_OK) << "n=" << c.n;
    EXPECT_EQ(printed, "");
    double scale = 0;
    for (double v : c.x) scale = std::max(scale, std::fabs(v));
    for (size_t e = 0; e < x.size(); ++e) EXPECT_NEAR(double(x[e]), c.x[e], rel_tol * scale) << "n=" << c.n << " e=" << e;
  }
  EXPECT_GT(regular, 10);
  EXPECT_GT(singular, 2);
}

TEST(SolveLinear, Real64MatchesNumPy) { check_against_numpy<double>(1e-12); }
TEST(SolveLinear, Real32MatchesNumPy) { check_against_numpy<float>(2e-5); }

template <typename T>
uint32_t solve_small(std::vector<T> a, std::vector<T> b, int n, int m, std::vector<T> &x, std::vector<T> *a_after = nullptr) {
  const uint32_t type = sizeof(T) == 4 ? aif32 : aif64;
  x.assign(size_t(n) * m, T(0));
  oru_matrix ma = view(a.data(), n, n, type, n), mb = view(b.data(), n, m, type, m), mx = view(x.data(), n, m, type, m);
  const uint32_t status = oru_solve_linear_equation(&mx, &ma, &mb);
  if (a_after) *a_after = a;
  return status;
}

TEST(SolveLinear, HandWorkedSystems) {
  std::vector<double> x, a;
  ASSERT_EQ(solve_small<double>({4}, {8}, 1, 1, x), ORU_RET_OK);
  EXPECT_EQ(x[0], 2.0);
  ASSERT_EQ(solve_small<double>({0, 1, 1, 0}, {3, 5}, 2, 1, x), ORU_RET_OK);
  EXPECT_EQ(x, (std::vector<double>{5, 3}));
  // Row 1 has the larger magnitude in column 0: its pivot 2 leaves 1 / -2 on the diagonal.
  ASSERT_EQ(solve_small<double>({1, 2, -2, 1}, {5, 0}, 2, 1, x, &a), ORU_RET_OK);
  EXPECT_EQ(a[0], -0.5);
  EXPECT_EQ(a[1], 1.0);
  EXPECT_NEAR(x[0], 1.0, 1e-15);
  EXPECT_NEAR(x[1], 2.0, 1e-15);
  // Equal magnitudes: row 0 keeps the pivot.
  ASSERT_EQ(solve_small<double>({2, 1, -2, 1}, {4, 0}, 2, 1, x, &a), ORU_RET_OK);
  EXPECT_EQ(a[0], 0.5);
  EXPECT_EQ(a[1], 1.0);
  EXPECT_NEAR(x[0], 1.0, 1e-15);
  EXPECT_NEAR(x[1], 2.0, 1e-15);
}

TEST(SolveLinear, RankTestIsStrictAndAbsolute) {
  std::vector<double> x;
  testing::internal::CaptureStdout();
  EXPECT_EQ(solve_small<double>({1, 2, 2, 4}, {1, 2}, 2, 1, x), ORU_RET_ERR_UNKNOWN);
  EXPECT_EQ(solve_small<double>({0, 0, 0, 0}, {1, 2}, 2, 1, x), ORU_RET_ERR_UNKNOWN);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nIt's not a full rank matrix\n\nIt's not a full rank matrix\n");
  const float eps32 = std::ldexp(1.0f, -23);
  std::vector<float> xf;
  ASSERT_EQ(solve_small<float>({eps32}, {1.0f}, 1, 1, xf), ORU_RET_OK);
  EXPECT_EQ(xf[0], std::ldexp(1.0f, 23));
  testing::internal::CaptureStdout();
  EXPECT_EQ(solve_small<float>({std::nextafter(eps32, 0.0f)}, {1.0f}, 1, 1, xf), ORU_RET_ERR_UNKNOWN);
  testing::internal::GetCapturedStdout();
  const double eps64 = std::ldexp(1.0, -52);
  ASSERT_EQ(solve_small<double>({eps64}, {1.0}, 1, 1, x), ORU_RET_OK);
  testing::internal::CaptureStdout();
  EXPECT_EQ(solve_small<double>({std::nextafter(eps64, 0.0)}, {1.0}, 1, 1, x), ORU_RET_ERR_UNKNOWN);
  testing::internal::GetCapturedStdout();
}

TEST(SolveLinear, SolutionInPlaceOfB) {
  std::vector<double> a = {2, 1, 1, 3}, b = {3, 5, 5, 10};  // x = [[0.8, 1], [1.4, 3]]
  oru_matrix ma = view(a.data(), 2, 2, aif64, 2), mb = view(b.data(), 2, 2, aif64, 2);
  ASSERT_EQ(oru_solve_linear_equation(&mb, &ma, &mb), ORU_RET_OK);
  EXPECT_NEAR(b[0], 0.8, 1e-15);
  EXPECT_NEAR(b[1], 1.0, 1e-15);
  EXPECT_NEAR(b[2], 1.4, 1e-15);
  EXPECT_NEAR(b[3], 3.0, 1e-15);
}

TEST(SolveLinear, Refusals) {
  std::vector<double> a = {1, 0, 0, 1}, b = {1, 2, 3, 4}, x(6, -1.0);
  oru_matrix ma = view(a.data(), 2, 2, aif64, 2), mb = view(b.data(), 2, 2, aif64, 2);
  oru_matrix mx3 = view(x.data(), 2, 3, aif64, 3);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_solve_linear_equation(&mx3, &ma, &mb), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_solve_linear_equation(nullptr, &ma, &mb), ORU_RET_ERR_PARA);
  oru_matrix mx = view(x.data(), 2, 2, aif32, 2);
  EXPECT_EQ(oru_solve_linear_equation(&mx, &ma, &mb), ORU_RET_ERR_PARA);
  oru_matrix wide = view(a.data(), 1, 4, aif64, 4), mx1 = view(x.data(), 1, 2, aif64, 2);
  EXPECT_EQ(oru_solve_linear_equation(&mx1, &wide, &mb), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(x, std::vector<double>(6, -1.0)) << "nothing touched";

  std::vector<int32_t> ia = {1, 0, 0, 1}, ib = {5, 6}, ix = {0, 0};
  oru_matrix mia = view(ia.data(), 2, 2, ai32s, 2), mib = view(ib.data(), 2, 1, ai32s, 1),
             mix = view(ix.data(), 2, 1, ai32s, 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_solve_linear_equation(&mix, &mia, &mib), ORU_RET_ERR_NOT_SUPPORT);
  EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("Error occurred: Current version can not support! \n", 0), 0u);
  EXPECT_EQ(ix, ib) << "x holds the copy of b";
}

}  // namespace
