// The general multiply end to end: the blocked multiply against an emulation of its fixed sum
// order (bit for bit) and against a double-precision reference, the record-level entry with
// its small/large boundary, its alpha and beta cases and its refusals, and OpenBLAS where
// the build found it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "gemm_test_util.h"
#include "oru_matrix.h"
#include "oru_test_util.h"

#if defined(ORU_TEST_HAVE_OPENBLAS)
#include <cblas.h>
#endif

namespace {

using gemm_test::at;
using gemm_test::view;

// One element of C as the large multiply must produce it: per inner block of 512, AB sums
// from zero in rising l, the first block scales C by beta, and alpha * AB is added.
template <typename T>
T emulate(int i, int j, int k, const std::vector<T> &a, int64_t lda, bool ta, const std::vector<T> &b,
          int64_t ldb, bool tb, T c, T alpha, T beta) {
  if (k == 0 || alpha == T(0)) return beta == T(0) ? T(0) : beta == T(1) ? c : c * beta;
  for (int l0 = 0; l0 < k; l0 += 512) {
    T ab = 0;
    for (int l = l0; l < k && l < l0 + 512; ++l) ab += at(a, lda, ta, i, l) * at(b, ldb, tb, l, j);
    const T bb = l0 == 0 ? beta : T(1);
    if (bb == T(0))
      c = T(0);
    else if (bb != T(1))
      c *= bb;
    c += alpha == T(1) ? ab : alpha * ab;
  }
  return c;
}

struct Shape {
  int m, n, k;
};

template <typename T>
void flat_multiply(bool ta, bool tb, int m, int n, int k, const T *a, int lda, const T *b, int ldb,
                   T *c, int ldc, T alpha, T beta) {
  if constexpr (sizeof(T) == 4)
    oru_matrix_mul_real32(ta, tb, m, n, k, a, lda, b, ldb, c, ldc, alpha, beta);
  else
    oru_matrix_mul_real64(ta, tb, m, n, k, a, lda, b, ldb, c, ldc, alpha, beta);
}

template <typename T>
void check_flat_against_emulation_and_reference() {
  std::mt19937 gen(42);
  std::vector<Shape> shapes = {{5, 25, 513}, {513, 3, 7}, {3, 481, 20}, {1, 1, 1030}, {4, 24, 1}, {9, 49, 512}};
  for (int t = 0; t < 40; ++t) shapes.push_back({int(1 + gen() % 70), int(1 + gen() % 70), int(1 + gen() % 70)});
  const double scales[] = {0.0, 1.0, 2.0, -0.75};
  uint32_t seed = 1;
  for (const Shape &s : shapes) {
    const bool ta = gen() & 1, tb = gen() & 1;
    const double alpha = scales[gen() % 4 == 0 ? 0 : 1 + gen() % 3], beta = scales[gen() % 4];
    const int lda = (ta ? s.m : s.k) + int(gen() % 3), ldb = (tb ? s.k : s.n) + int(gen() % 3);
    const int ldc = s.n + int(gen() % 3);
    const auto a = oru_test::random_values<T>(size_t(ta ? s.k : s.m) * lda, -1, 1, seed++);
    const auto b = oru_test::random_values<T>(size_t(tb ? s.n : s.k) * ldb, -1, 1, seed++);
    auto c = oru_test::random_values<T>(size_t(s.m) * ldc, -1, 1, seed++);
    if (beta == 0) c[0] = std::numeric_limits<T>::quiet_NaN();
    const auto ref = gemm_test::reference<T>(s.m, s.n, s.k, a, lda, ta, b, ldb, tb, c, ldc, alpha, beta);
    std::vector<T> got = c;
    flat_multiply<T>(ta, tb, s.m, s.n, s.k, a.data(), lda, b.data(), ldb, got.data(), ldc, T(alpha), T(beta));
    for (int i = 0; i < s.m; ++i) {
      for (int j = 0; j < s.n; ++j) {
        const T e = emulate<T>(i, j, s.k, a, lda, ta, b, ldb, tb, c[size_t(i) * ldc + j], T(alpha), T(beta));
        const T g = got[size_t(i) * ldc + j];
        ASSERT_EQ(std::memcmp(&g, &e, sizeof(T)), 0)
            << "m=" << s.m << " n=" << s.n << " k=" << s.k << " ta=" << ta << " tb=" << tb << " alpha=" << alpha
            << " beta=" << beta << " at " << i << "," << j << ": " << g << " vs " << e;
        ASSERT_NEAR(double(g), ref.value[size_t(i) * s.n + j], ref.bound[size_t(i) * s.n + j]);
      }
      for (int j = s.n; j < ldc; ++j) ASSERT_EQ(got[size_t(i) * ldc + j], c[size_t(i) * ldc + j]) << "padding";
    }
  }
}

TEST(GemmFlat, Real32FollowsBlockOrderAndReference) { check_flat_against_emulation_and_reference<float>(); }
TEST(GemmFlat, Real64FollowsBlockOrderAndReference) { check_flat_against_emulation_and_reference<double>(); }

TEST(GemmFlat, QuickExitsAndAlphaZero) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<float> a(6, nan), b(6, nan), c(4, nan);
  oru_matrix_mul_real32(0, 0, 2, 2, 3, a.data(), 3, b.data(), 2, c.data(), 2, 0.0f, 0.0f);
  for (float v : c) EXPECT_EQ(v, 0.0f);  // cleared without reading A or B
  c = {1, 2, 3, 4};
  oru_matrix_mul_real32(0, 0, 2, 2, 3, a.data(), 3, b.data(), 2, c.data(), 2, 0.0f, 3.0f);
  EXPECT_EQ(c, (std::vector<float>{3, 6, 9, 12}));
  oru_matrix_mul_real32(0, 0, 2, 2, 0, a.data(), 3, b.data(), 2, c.data(), 2, 5.0f, 1.0f);
  EXPECT_EQ(c, (std::vector<float>{3, 6, 9, 12}));
  oru_matrix_mul_real32(0, 0, 2, 2, 0, a.data(), 3, b.data(), 2, c.data(), 2, 5.0f, -1.0f);
  EXPECT_EQ(c, (std::vector<float>{-3, -6, -9, -12}));
  oru_matrix_mul_real32(0, 0, 0, 2, 3, a.data(), 3, b.data(), 2, c.data(), 2, 1.0f, 0.0f);
  EXPECT_EQ(c, (std::vector<float>{-3, -6, -9, -12}));
}

TEST(GemmFlat, PanelBuffersAreTakenOnceForTheCall) {
  const int m = 100, n = 100, k = 1100;  // many tiles and three inner blocks
  const auto a = oru_test::random_values<float>(size_t(m) * k, -1, 1, 3);
  const auto b = oru_test::random_values<float>(size_t(k) * n, -1, 1, 4);
  std::vector<float> c(size_t(m) * n);
  const int64_t before = oru_test::malloc_calls();
  oru_matrix_mul_real32(0, 0, m, n, k, a.data(), k, b.data(), n, c.data(), n, 1.0f, 0.0f);
  EXPECT_EQ(oru_test::malloc_calls() - before, 1);
}

// The exported any-tile multiply with the convolution's kernels and with a tile shape that
// doesn't divide the block, given by a kernel of the test's own.
void tile_3x5(int32_t k, const float *a, const float *b, float *c, int32_t ldc, float alpha, float beta) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 5; ++j) {
      double s = 0;
      for (int l = 0; l < k; ++l) s += double(a[l * 3 + i]) * b[l * 5 + j];
      float &cij = c[i * ldc + j];
      cij = (beta == 0.0f ? 0.0f : beta * cij) + float(alpha * s);
    }
}

TEST(GemmBlocked, AnyTileShapeMatchesReference) {
  struct Case {
    int mr, nr;
    oru_mat_mul_tile_kernel_real32 kernel;
    float alpha;
  };
  const Case cases[] = {{8, 8, mat_mul_8xkx8_kernel, 1.0f},
                        {1, 16, mat_mul_1xkx16_kernel, 1.0f},
                        {3, 5, tile_3x5, 0.5f}};
  const Shape shapes[] = {{1, 1, 1}, {9, 17, 513}, {520, 9, 5}, {7, 530, 3}, {16, 16, 16}, {33, 70, 41}};
  uint32_t seed = 50;
  for (const Case &cs : cases)
    for (const Shape &s : shapes)
      for (float beta : {0.0f, 1.0f}) {
        const int lda = s.k + 1, ldb = s.n + 2, ldc = s.n + 3;
        const auto a = oru_test::random_values<float>(size_t(s.m) * lda, -1, 1, seed++);
        const auto b = oru_test::random_values<float>(size_t(s.k) * ldb, -1, 1, seed++);
        auto c = oru_test::random_values<float>(size_t(s.m) * ldc, -1, 1, seed++);
        const auto ref = gemm_test::reference<float>(s.m, s.n, s.k, a, lda, false, b, ldb, false, c, ldc,
                                                     cs.alpha, beta);
        std::vector<float> got = c;
        blocked_mat_mul_row_major_real32(s.m, s.n, s.k, a.data(), lda, b.data(), ldb, got.data(), ldc, cs.mr,
                                         cs.nr, cs.kernel, cs.alpha, beta);
        for (int i = 0; i < s.m; ++i)
          for (int j = 0; j < ldc; ++j) {
            if (j >= s.n) {
              ASSERT_EQ(got[size_t(i) * ldc + j], c[size_t(i) * ldc + j]) << "padding";
              continue;
            }
            ASSERT_NEAR(got[size_t(i) * ldc + j], ref.value[size_t(i) * s.n + j], ref.bound[size_t(i) * s.n + j])
                << cs.mr << "x" << cs.nr << " m=" << s.m << " n=" << s.n << " k=" << s.k << " beta=" << beta;
          }
      }
}

// With the 8 by 8 kernel the sum order is fixed as in the large multiply, alpha aside.
TEST(GemmBlocked, EightByEightFollowsBlockOrder) {
  const Shape s{13, 21, 700};
  const auto a = oru_test::random_values<float>(size_t(s.m) * s.k, -1, 1, 1);
  const auto b = oru_test::random_values<float>(size_t(s.k) * s.n, -1, 1, 2);
  const auto c = oru_test::random_values<float>(size_t(s.m) * s.n, -1, 1, 3);
  for (float beta : {0.0f, 1.0f}) {
    std::vector<float> got = c;
    blocked_mat_mul_row_major_real32(s.m, s.n, s.k, a.data(), s.k, b.data(), s.n, got.data(), s.n, 8, 8,
                                     mat_mul_8xkx8_kernel, 1.0f, beta);
    for (int i = 0; i < s.m; ++i)
      for (int j = 0; j < s.n; ++j)
        ASSERT_EQ(got[size_t(i) * s.n + j],
                  emulate<float>(i, j, s.k, a, s.k, false, b, s.n, false, c[size_t(i) * s.n + j], 1.0f, beta));
  }
}

// ---- The record-level entry ----

template <typename T>
uint32_t mul_add(std::vector<T> &c, int cr, int cc, const std::vector<T> &a, int ar, int ac, bool ta,
                 const std::vector<T> &b, int br, int bc, bool tb, T alpha, T beta) {
  const uint32_t type = sizeof(T) == 4 ? aif32 : aif64;
  oru_matrix mc = view(c.data(), cr, cc, type, cc);
  oru_matrix ma = view(const_cast<T *>(a.data()), ar, ac, type, ac);
  oru_matrix mb = view(const_cast<T *>(b.data()), br, bc, type, bc);
  return oru_matrix_mul_add(&mc, &ma, ta, &mb, tb, &alpha, &beta);
}

// The paths round differently for alpha other than 1 (alpha meets A first on the small path,
// the sum on the large one), which shows which one ran.
TEST(GemmRecords, SmallPathUpTo180000Elements) {
  const float alpha = 0.7f, beta = 0.0f;
  for (int n : {89999, 90000}) {  // 2 + 2n elements: 180000, then the next size with k = 2
    const auto a = oru_test::random_values<float>(2, -1, 1, 11);
    const auto b = oru_test::random_values<float>(size_t(2) * n, -1, 1, 12);
    std::vector<float> small(n, 0.0f), large(n, 0.0f), got(n, 0.0f);
    oru_small_matrix_mul_matrix_real32(a.data(), 1, 2, 2, b.data(), n, n, small.data(), n, alpha, beta);
    oru_matrix_mul_real32(0, 0, 1, n, 2, a.data(), 2, b.data(), n, large.data(), n, alpha, beta);
    ASSERT_NE(small, large) << "data doesn't tell the paths apart";
    ASSERT_EQ(mul_add<float>(got, 1, n, a, 1, 2, false, b, 2, n, false, alpha, beta), ORU_RET_OK);
    EXPECT_EQ(got, n == 89999 ? small : large) << n;
  }
}

template <typename T>
void check_records_all_transpositions(int m, int n, int k) {
  uint32_t seed = 77;
  for (int ta = 0; ta < 2; ++ta)
    for (int tb = 0; tb < 2; ++tb)
      for (const auto &ab : {std::pair<double, double>{1.0, 0.0}, {-2.0, 1.0}, {0.5, 2.0}}) {
          const double alpha = ab.first, beta = ab.second;
          const int ar = ta ? k : m, ac = ta ? m : k, br = tb ? n : k, bc = tb ? k : n;
          const auto a = oru_test::random_values<T>(size_t(ar) * ac, -1, 1, seed++);
          const auto b = oru_test::random_values<T>(size_t(br) * bc, -1, 1, seed++);
          const auto c = oru_test::random_values<T>(size_t(m) * n, -1, 1, seed++);
          const auto ref = gemm_test::reference<T>(m, n, k, a, ac, ta, b, bc, tb, c, n, alpha, beta);
          std::vector<T> got = c;
          ASSERT_EQ(mul_add<T>(got, m, n, a, ar, ac, ta, b, br, bc, tb, T(alpha), T(beta)), ORU_RET_OK);
          for (size_t e = 0; e < got.size(); ++e)
            ASSERT_NEAR(double(got[e]), ref.value[e], ref.bound[e])
                << "m=" << m << " n=" << n << " k=" << k << " ta=" << ta << " tb=" << tb << " alpha=" << alpha
                << " beta=" << beta << " e=" << e;
        }
}

TEST(GemmRecords, SmallPathAllTranspositions) {
  check_records_all_transpositions<float>(13, 11, 9);
  check_records_all_transpositions<double>(13, 11, 9);
}

TEST(GemmRecords, LargePathAllTranspositions) {
  check_records_all_transpositions<float>(21, 19, 4700);   // 187600 elements, ten inner blocks
  check_records_all_transpositions<double>(21, 19, 4700);
}

// Column views of wider matrices: leading dimensions come from the records' byte strides.
TEST(GemmRecords, ColumnViewsUseTheRowStride) {
  const int m = 9, n = 7, wide = 12;
  for (int k : {5, 13000}) {  // small path, then large (208000 elements)
    const auto abuf = oru_test::random_values<float>(size_t(m) * (k + 3), -1, 1, 32);
    const auto bbuf = oru_test::random_values<float>(size_t(k) * wide, -1, 1, 33);
    const auto cbuf0 = oru_test::random_values<float>(size_t(m) * wide, -1, 1, 34);
    std::vector<float> cbuf = cbuf0;
    oru_matrix fa = view((void *)abuf.data(), m, k + 3, aif32, k + 3), fb = view((void *)bbuf.data(), k, wide, aif32, wide),
               fc = view(cbuf.data(), m, wide, aif32, wide);
    oru_matrix va, vb, vc;
    ASSERT_EQ(oru_get_matrix_cols(&va, &fa, 1, 1 + k), ORU_RET_OK);
    ASSERT_EQ(oru_get_matrix_cols(&vb, &fb, 2, 2 + n), ORU_RET_OK);
    ASSERT_EQ(oru_get_matrix_cols(&vc, &fc, 3, 3 + n), ORU_RET_OK);
    const float alpha = 1.5f, beta = -1.0f;
    ASSERT_EQ(oru_matrix_mul_add(&vc, &va, 0, &vb, 0, &alpha, &beta), ORU_RET_OK);
    for (int i = 0; i < m; ++i)
      for (int j = 0; j < wide; ++j) {
        const float got = cbuf[size_t(i) * wide + j], old = cbuf0[size_t(i) * wide + j];
        if (j < 3 || j >= 3 + n) {
          ASSERT_EQ(got, old) << "outside the view";
          continue;
        }
        double s = 0, sa = 0;
        for (int l = 0; l < k; ++l) {
          const double p = double(abuf[size_t(i) * (k + 3) + 1 + l]) * bbuf[size_t(l) * wide + 2 + (j - 3)];
          s += p;
          sa += std::fabs(p);
        }
        const double e = alpha * s + beta * old;
        ASSERT_NEAR(got, e, (k + 3) * 1.2e-7 * (alpha * sa + std::fabs(old))) << "k=" << k << " " << i << "," << j;
      }
  }
}

TEST(GemmRecords, MulIsAlphaOneBetaZero) {
  const int m = 5, n = 6, k = 7;
  const auto a = oru_test::random_values<double>(m * k, -1, 1, 1);
  const auto b = oru_test::random_values<double>(k * n, -1, 1, 2);
  std::vector<double> c(m * n, std::numeric_limits<double>::quiet_NaN());
  oru_matrix mc = view(c.data(), m, n, aif64, n), ma = view((void *)a.data(), m, k, aif64, k),
             mb = view((void *)b.data(), k, n, aif64, n);
  ASSERT_EQ(oru_matrix_mul(&mc, &ma, 0, &mb, 0), ORU_RET_OK);
  const auto ref = gemm_test::reference<double>(m, n, k, a, k, false, b, n, false, c, n, 1.0, 0.0);
  for (int e = 0; e < m * n; ++e) EXPECT_NEAR(c[e], ref.value[e], ref.bound[e]);
}

TEST(GemmRecords, Refusals) {
  std::vector<float> a(12, 1.0f), b(12, 1.0f), c(16, 5.0f);
  const float one = 1.0f, zero = 0.0f;
  oru_matrix ma = view(a.data(), 3, 4, aif32, 4), mb = view(b.data(), 3, 4, aif32, 4), mc = view(c.data(), 3, 3, aif32, 3);

  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_matrix_mul_add(&mc, &ma, 0, &mb, 0, &one, &zero), ORU_RET_ERR_PARA);  // 4 against 3
  EXPECT_EQ(oru_matrix_mul_add(&mc, &ma, 1, &mb, 1, &one, &zero), ORU_RET_ERR_PARA);  // 3 against 4
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "a shape mismatch is silent";
  EXPECT_EQ(c, std::vector<float>(16, 5.0f));
  EXPECT_EQ(oru_matrix_mul_add(&mc, &ma, 0, &mb, 1, &one, &zero), ORU_RET_OK);  // A B^T
  EXPECT_EQ(c[0], 4.0f);

  oru_matrix two = view(c.data(), 2, 2, aif32 + 8, 4);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_matrix_mul_add(&two, &two, 0, &two, 0, &one, &zero), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_matrix_mul_add(nullptr, &ma, 0, &mb, 0, &one, &zero), ORU_RET_ERR_PARA);
  oru_matrix md = view(c.data(), 3, 3, aif64, 3);
  EXPECT_EQ(oru_matrix_mul_add(&md, &ma, 0, &mb, 1, &one, &zero), ORU_RET_ERR_PARA);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Error occurred: ORU_RET_ERR_PARA \n", 0), 0u) << out;

  std::vector<int32_t> ia(4, 1);
  oru_matrix mi = view(ia.data(), 2, 2, ai32s, 2);
  const int32_t ione = 1, izero = 0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_matrix_mul_add(&mi, &mi, 0, &mi, 0, &ione, &izero), ORU_RET_ERR_NOT_SUPPORT);
  out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Error occurred: ORU_RET_ERR_NOT_SUPPORT \n", 0), 0u) << out;
}

#if defined(ORU_TEST_HAVE_OPENBLAS)
TEST(GemmPeers, AgreesWithOpenBlas) {
  openblas_set_num_threads(1);
  std::mt19937 gen(9);
  for (int t = 0; t < 12; ++t) {
    const int m = 1 + gen() % 300, n = 1 + gen() % 300, k = 1 + gen() % 700;
    const bool ta = gen() & 1, tb = gen() & 1;
    const int lda = ta ? m : k, ldb = tb ? k : n;
    const auto a = oru_test::random_values<float>(size_t(m) * k, -1, 1, t);
    const auto b = oru_test::random_values<float>(size_t(k) * n, -1, 1, t + 50);
    const auto c = oru_test::random_values<float>(size_t(m) * n, -1, 1, t + 99);
    std::vector<float> ours = c, theirs = c;
    oru_matrix_mul_real32(ta, tb, m, n, k, a.data(), lda, b.data(), ldb, ours.data(), n, 1.5f, 0.5f);
    cblas_sgemm(CblasRowMajor, ta ? CblasTrans : CblasNoTrans, tb ? CblasTrans : CblasNoTrans, m, n, k, 1.5f,
                a.data(), lda, b.data(), ldb, 0.5f, theirs.data(), n);
    const auto ref = gemm_test::reference<float>(m, n, k, a, lda, ta, b, ldb, tb, c, n, 1.5, 0.5);
    for (size_t e = 0; e < ours.size(); ++e) ASSERT_NEAR(ours[e], theirs[e], 2 * ref.bound[e]) << e;
  }
}
#endif

}  // namespace
