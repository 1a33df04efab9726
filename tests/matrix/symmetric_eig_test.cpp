// Jacobi eigen decomposition of symmetric matrices against numpy.linalg.eigh.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "decomposition_ref.h"
#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

using oru_test::read_line_values;
using oru_test::view_of;

template <typename T>
void check_against_numpy(double tol) {
  std::ifstream in(oru_test::data_path("matrix/eigh_ref.txt"));
  ASSERT_TRUE(in.good());
  int cases = 0;
  while (in.peek() != EOF) {
    auto nv = read_line_values(in);
    if (nv.size() != 1) break;
    const int n = int(nv[0]);
    auto a_ref = read_line_values(in), w_ref = read_line_values(in), v_ref = read_line_values(in);
    SCOPED_TRACE(testing::Message() << "n = " << n << " case " << cases);
    // numpy lists rising; the float form lists falling.
    const bool falling = sizeof(T) == 4;
    std::vector<int> order(n);
    for (int i = 0; i < n; ++i) order[i] = falling ? n - 1 - i : i;

    std::vector<T> a(a_ref.begin(), a_ref.end()), w(n), v(size_t(n) * n);
    const std::vector<T> a_before = a;
    oru_matrix am = view_of(a, n, n), wm = view_of(w, n, 1), vm = view_of(v, n, n);
    ASSERT_EQ(oru_small_symmetrical_matrix_eig(&wm, &vm, &am, 1), 0u);
    EXPECT_EQ(a, a_before);
    double scale = 0;
    for (double x : w_ref) scale = std::max(scale, std::fabs(x));
    for (int i = 0; i < n; ++i) EXPECT_NEAR(w[i], w_ref[order[i]], tol * scale) << "value " << i;
    for (int i = 0; i < n; ++i) {
      // A v_i = w_i v_i, and v_i matches numpy's vector up to sign.
      double resid = 0, dot = 0, norm = 0;
      for (int r = 0; r < n; ++r) {
        double acc = 0;
        for (int c = 0; c < n; ++c) acc += a_ref[r * n + c] * v[i * n + c];
        resid = std::max(resid, std::fabs(acc - double(w[i]) * v[i * n + r]));
        dot += v[i * n + r] * v_ref[order[i] * n + r];
        norm += double(v[i * n + r]) * v[i * n + r];
      }
      EXPECT_LE(resid, 10 * tol * scale) << "vector " << i;
      EXPECT_NEAR(norm, 1.0, 10 * tol);
      EXPECT_NEAR(std::fabs(dot), 1.0, 1e3 * tol) << "vector " << i;
    }
    // Without keep_input the work runs in a, and w is filled all the same.
    std::vector<T> w2(n);
    oru_matrix w2m = view_of(w2, 1, n);
    ASSERT_EQ(oru_small_symmetrical_matrix_eig(&w2m, nullptr, &am, 0), 0u);
    for (int i = 0; i < n; ++i) EXPECT_NEAR(w2[i], w[i], tol * scale);
    ++cases;
  }
  EXPECT_EQ(cases, 10);
}

TEST(SymmetricEig, DoubleMatchesNumpyRising) { check_against_numpy<double>(1e-12); }
TEST(SymmetricEig, FloatMatchesNumpyFalling) { check_against_numpy<float>(1e-5); }

TEST(SymmetricEig, HandWorkedCases) {
  std::vector<double> a = {5}, w(1), v(1);
  oru_matrix am = view_of(a, 1, 1), wm = view_of(w, 1, 1), vm = view_of(v, 1, 1);
  ASSERT_EQ(oru_small_symmetrical_matrix_eig(&wm, &vm, &am, 1), 0u);
  EXPECT_EQ(w[0], 5.0);
  EXPECT_EQ(v[0], 1.0);

  std::vector<float> d = {1, 0, 0, 0, 3, 0, 0, 0, 2}, fw(3), fv(9);
  oru_matrix dm = view_of(d, 3, 3), fwm = view_of(fw, 3, 1), fvm = view_of(fv, 3, 3);
  ASSERT_EQ(oru_small_symmetrical_matrix_eig(&fwm, &fvm, &dm, 1), 0u);
  EXPECT_EQ(fw, (std::vector<float>{3, 2, 1}));
  EXPECT_EQ(fv, (std::vector<float>{0, 1, 0, 0, 0, 1, 1, 0, 0}));

  // Only the upper triangle is read: garbage below the diagonal changes nothing.
  std::vector<double> b = {2, 1, 99, 2}, bw(2), bv(4);
  oru_matrix bm = view_of(b, 2, 2), bwm = view_of(bw, 2, 1), bvm = view_of(bv, 2, 2);
  ASSERT_EQ(oru_small_symmetrical_matrix_eig(&bwm, &bvm, &bm, 0), 0u);
  EXPECT_NEAR(bw[0], 1.0, 1e-15);
  EXPECT_NEAR(bw[1], 3.0, 1e-15);
  const double h = std::sqrt(0.5);
  EXPECT_NEAR(std::fabs(bv[0]), h, 1e-15);
  EXPECT_NEAR(bv[0] * bv[1], -0.5, 1e-15);
  EXPECT_NEAR(bv[2] * bv[3], 0.5, 1e-15);
  EXPECT_EQ(b[1], 0.0);  // the pivot was cleared in place
}

TEST(SymmetricEig, RefusesBadArguments) {
  std::vector<double> a = {1, 2, 2, 1}, w(2), v(4);
  std::vector<float> vf(4);
  oru_matrix am = view_of(a, 2, 2), wm = view_of(w, 2, 1), vm = view_of(v, 2, 2), vfm = view_of(vf, 2, 2);
  EXPECT_EQ(oru_small_symmetrical_matrix_eig(nullptr, &vm, &am, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_small_symmetrical_matrix_eig(&wm, &vm, nullptr, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_small_symmetrical_matrix_eig(&wm, &vfm, &am, 1), ORU_RET_ERR_PARA);
  oru_matrix w3 = view_of(w, 3, 1);
  EXPECT_EQ(oru_small_symmetrical_matrix_eig(&w3, &vm, &am, 1), ORU_RET_ERR_PARA);
  oru_matrix ai = am;
  ai.type = ai32s;
  EXPECT_EQ(oru_small_symmetrical_matrix_eig(&wm, nullptr, &ai, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_symmetrical_matrix_eig(&wm, &vm, &am, 1), ORU_RET_ERR_NOT_SUPPORT);
}

}  // namespace
