// Jacobi SVD against numpy.linalg.svd, plus reconstruction and orthogonality checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "decomposition_ref.h"
#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

using oru_test::read_line_values;
using oru_test::view_of;

struct SvdCase {
  int rows, cols;
  std::vector<double> a, s, u, vt;
};

std::vector<SvdCase> load_svd_cases() {
  std::ifstream in(oru_test::data_path("matrix/svd_ref.txt"));
  std::vector<SvdCase> cases;
  while (in.peek() != EOF) {
    auto dims = read_line_values(in);
    if (dims.size() != 2) break;
    SvdCase c{int(dims[0]), int(dims[1]), read_line_values(in), read_line_values(in), read_line_values(in),
              read_line_values(in)};
    cases.push_back(c);
  }
  return cases;
}

template <typename T>
struct SvdResult {
  std::vector<T> u, v, w;
  int left_count, right_count;
};

template <typename T>
SvdResult<T> run_svd(std::vector<T> &a, int rows, int cols, uint32_t flags) {
  const int big = std::max(rows, cols), small = std::min(rows, cols);
  const int count = (flags & 1u) ? big : small;
  SvdResult<T> r;
  r.left_count = rows >= cols ? count : small;
  r.right_count = rows >= cols ? small : count;
  r.u.assign(size_t(r.left_count) * rows, T(-7));
  r.v.assign(size_t(r.right_count) * cols, T(-7));
  r.w.assign(small, T(-7));
  oru_matrix am = view_of(a, rows, cols), um = view_of(r.u, r.left_count, rows),
             vm = view_of(r.v, r.right_count, cols), wm = view_of(r.w, small, 1);
  EXPECT_EQ(oru_small_matrix_svd(&um, &vm, &wm, &am, flags), 0u);
  return r;
}

template <typename T>
double max_orthonormality_error(const std::vector<T> &rows, int count, int len) {
  double worst = 0;
  for (int i = 0; i < count; ++i)
    for (int j = 0; j <= i; ++j) {
      double d = 0;
      for (int k = 0; k < len; ++k) d += double(rows[i * len + k]) * double(rows[j * len + k]);
      worst = std::max(worst, std::fabs(d - (i == j ? 1.0 : 0.0)));
    }
  return worst;
}

template <typename T>
void check_against_numpy(double tol, double vec_tol) {
  auto cases = load_svd_cases();
  ASSERT_EQ(cases.size(), 19u);
  for (const auto &c : cases) {
    const int small = std::min(c.rows, c.cols);
    std::vector<T> a(c.a.begin(), c.a.end());
    const std::vector<T> a_before = a;
    for (uint32_t flags : {0u, 1u}) {
      SCOPED_TRACE(testing::Message() << c.rows << "x" << c.cols << " flags " << flags);
      auto r = run_svd(a, c.rows, c.cols, flags);
      EXPECT_EQ(a, a_before);
      const double smax = c.s[0];
      for (int i = 0; i < small; ++i) EXPECT_NEAR(r.w[i], c.s[i], tol * smax) << "value " << i;
      for (int i = 0; i + 1 < small; ++i) EXPECT_GE(r.w[i], r.w[i + 1]);

      // Reconstruction from the first `small` vector pairs.
      double worst = 0;
      for (int i = 0; i < c.rows; ++i)
        for (int j = 0; j < c.cols; ++j) {
          double acc = 0;
          for (int k = 0; k < small; ++k) acc += double(r.w[k]) * r.u[k * c.rows + i] * r.v[k * c.cols + j];
          worst = std::max(worst, std::fabs(acc - c.a[i * c.cols + j]));
        }
      EXPECT_LE(worst, 4 * tol * smax);
      EXPECT_LE(max_orthonormality_error(r.u, r.left_count, c.rows), 4 * tol);
      EXPECT_LE(max_orthonormality_error(r.v, r.right_count, c.cols), 4 * tol);

      // Vectors of well separated, non-zero values agree with numpy up to sign.
      for (int k = 0; k < small; ++k) {
        double gap = smax;  // a lone value counts as well separated
        for (int j = 0; j < small; ++j)
          if (j != k) gap = std::min(gap, std::fabs(c.s[j] - c.s[k]));
        if (gap < 1e-2 * smax || c.s[k] < 1e-2 * smax) continue;
        double du = 0, dv = 0, sign = 0;
        for (int i = 0; i < c.rows; ++i) sign += r.u[k * c.rows + i] * c.u[i * small + k];
        sign = sign < 0 ? -1 : 1;
        for (int i = 0; i < c.rows; ++i) du = std::max(du, std::fabs(r.u[k * c.rows + i] - sign * c.u[i * small + k]));
        for (int j = 0; j < c.cols; ++j) dv = std::max(dv, std::fabs(r.v[k * c.cols + j] - sign * c.vt[k * c.cols + j]));
        EXPECT_LE(du, vec_tol * smax / gap) << "left vector " << k;
        EXPECT_LE(dv, vec_tol * smax / gap) << "right vector " << k;
      }
    }
    // Values alone: no vectors, same values.
    std::vector<T> w(small);
    oru_matrix am = view_of(a, c.rows, c.cols), wm = view_of(w, small, 1);
    ASSERT_EQ(oru_small_matrix_svd(nullptr, nullptr, &wm, &am, 0), 0u);
    for (int i = 0; i < small; ++i) EXPECT_NEAR(w[i], c.s[i], tol * c.s[0]);
  }
}

TEST(JacobiSvd, DoubleMatchesNumpy) { check_against_numpy<double>(1e-12, 1e-11); }
TEST(JacobiSvd, FloatMatchesNumpy) { check_against_numpy<float>(1e-5, 1e-5); }

TEST(JacobiSvd, DiagonalNeedsNoRotation) {
  std::vector<double> a = {1, 0, 0, 0, 3, 0, 0, 0, 2};
  auto r = run_svd(a, 3, 3, 0);
  EXPECT_EQ(r.w, (std::vector<double>{3, 2, 1}));
  EXPECT_EQ(r.u, (std::vector<double>{0, 1, 0, 0, 0, 1, 1, 0, 0}));
  EXPECT_EQ(r.v, r.u);
}

TEST(JacobiSvd, SignStaysWithTheLeftVector) {
  std::vector<double> a = {-2};
  auto r = run_svd(a, 1, 1, 0);
  EXPECT_EQ(r.w[0], 2.0);
  EXPECT_EQ(r.u[0], -1.0);
  EXPECT_EQ(r.v[0], 1.0);
}

TEST(JacobiSvd, ZeroMatrixCompletesDeterministically) {
  std::vector<float> a(9, 0.0f);
  auto r1 = run_svd(a, 3, 3, 0);
  auto r2 = run_svd(a, 3, 3, 0);
  EXPECT_EQ(r1.w, (std::vector<float>{0, 0, 0}));
  EXPECT_EQ(r1.v, (std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
  EXPECT_LE(max_orthonormality_error(r1.u, 3, 3), 1e-6);
  EXPECT_EQ(r1.u, r2.u);
}

TEST(JacobiSvd, FullLeftBasisOfTallMatrix) {
  std::vector<double> a = {1, 2, 3, 4, 5, 6, 7, 9};
  auto full = run_svd(a, 4, 2, 1);
  EXPECT_EQ(full.left_count, 4);
  EXPECT_LE(max_orthonormality_error(full.u, 4, 4), 1e-13);
  auto thin = run_svd(a, 4, 2, 0);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(thin.u[i], full.u[i]);
  // Flag bit 0 without u changes nothing.
  std::vector<double> v(4), w(2);
  oru_matrix am = view_of(a, 4, 2), vm = view_of(v, 2, 2), wm = view_of(w, 2, 1);
  ASSERT_EQ(oru_small_matrix_svd(nullptr, &vm, &wm, &am, 1), 0u);
  EXPECT_EQ(v, thin.v);
}

TEST(JacobiSvd, VectorsReseedTheSharedStream) {
  std::vector<double> a = {4, 1, 2, 3};  // full rank: no completion draws
  oru_rand_init(1u);
  (void)oru_randi();
  run_svd(a, 2, 2, 0);
  std::mt19937 ref(305419896u);
  EXPECT_EQ(oru_randi(), ref());
  // Without vectors the stream is left alone.
  oru_rand_init(1u);
  std::vector<double> w(2);
  oru_matrix am = view_of(a, 2, 2), wm = view_of(w, 2, 1);
  ASSERT_EQ(oru_small_matrix_svd(nullptr, nullptr, &wm, &am, 0), 0u);
  std::mt19937 ref1(1u);
  EXPECT_EQ(oru_randi(), ref1());
}

TEST(JacobiSvd, NotANumberGoesThroughWithoutHanging) {
  std::vector<double> a = {1, NAN, 3, 4};
  auto r = run_svd(a, 2, 2, 0);
  EXPECT_EQ(r.w.size(), 2u);
}

}  // namespace
