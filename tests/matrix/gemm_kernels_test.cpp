// Tile kernels and packers: every vector form against the plain form, bit for bit, and the
// plain forms and packers against the panel layouts and sum order they promise.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "core/oru_dispatch.h"
#include "kernels/gemm/oru_gemm_kernels.h"
#include "oru_form_tester.h"
#include "oru_test_util.h"

namespace {

template <typename T>
bool same_bits(const std::vector<T> &x, const std::vector<T> &y) {
  return x.size() == y.size() && std::memcmp(x.data(), y.data(), x.size() * sizeof(T)) == 0;
}

const int kLengths[] = {0, 1, 2, 3, 5, 7, 8, 16, 31, 64, 70, 513};
const double kScales[] = {0.0, 1.0, -0.5, 2.5};

// The strided 4-row kernels: every form, every alpha and beta case, C dense and strided.
class GemmTileForms : public ::testing::TestWithParam<oru::Isa> {};
ORU_FORM_SUITE(GemmTileForms);

template <typename T, int NR, typename Fn>
void check_strided_form(Fn plain, Fn f) {
  uint32_t seed = 1;
  for (int k : kLengths)
    for (int64_t cs : {1, 3})
      for (double alpha : kScales)
        for (double beta : kScales) {
          const auto a = oru_test::random_values<T>(size_t(k) * 4 + 1, -1, 1, seed++);
          const auto b = oru_test::random_values<T>(size_t(k) * NR + 1, -1, 1, seed++);
          const int64_t rs = NR * cs + 5;
          auto c0 = oru_test::random_values<T>(size_t(rs) * 4, -2, 2, seed++);
          c0[1] = std::numeric_limits<T>::quiet_NaN();  // beta 0 must not read it
          std::vector<T> expect = c0;
          plain(k, a.data(), b.data(), expect.data(), rs, cs, T(alpha), T(beta));
          std::vector<T> got = c0;
          f(k, a.data(), b.data(), got.data(), rs, cs, T(alpha), T(beta));
          ASSERT_TRUE(same_bits(got, expect)) << "k=" << k << " cs=" << cs << " alpha=" << alpha << " beta=" << beta;
        }
}

TEST_P(GemmTileForms, Strided4x24MatchesPlainBits) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::mat_mul_4xkx24_kernel), "mat_mul_4xkx24_kernel");
  check_strided_form<float, 24>(oru::mat_mul_4xkx24_kernel_plain, f);
}

TEST_P(GemmTileForms, Strided4x12MatchesPlainBits) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::mat_mul_4xkx12_kernel), "mat_mul_4xkx12_kernel");
  check_strided_form<double, 12>(oru::mat_mul_4xkx12_kernel_plain, f);
}

template <int MR, int NR, typename Fn>
void check_conv_form(Fn plain, Fn f) {
  uint32_t seed = 100;
  for (int k : kLengths)
    for (float beta : {0.0f, 1.0f}) {
      const auto a = oru_test::random_values<float>(size_t(k) * MR + 1, -1, 1, seed++);
      const auto b = oru_test::random_values<float>(size_t(k) * NR + 1, -1, 1, seed++);
      const int ldc = NR + 3;
      auto c0 = oru_test::random_values<float>(size_t(ldc) * MR, -2, 2, seed++);
      if (beta == 0.0f) c0[0] = std::numeric_limits<float>::quiet_NaN();
      std::vector<float> expect = c0;
      plain(k, a.data(), b.data(), expect.data(), ldc, 1.0f, beta);
      std::vector<float> got = c0;
      f(k, a.data(), b.data(), got.data(), ldc, 1.0f, beta);
      ASSERT_TRUE(same_bits(got, expect)) << "k=" << k << " beta=" << beta;
    }
}

TEST_P(GemmTileForms, ConvTilesMatchPlainBits) {
  ORU_FORM_UNDER_TEST(f8, ORU_KERNEL_FORMS(oru::mat_mul_8xkx8_kernel), "mat_mul_8xkx8_kernel");
  ORU_FORM_UNDER_TEST(f16, ORU_KERNEL_FORMS(oru::mat_mul_1xkx16_kernel), "mat_mul_1xkx16_kernel");
  check_conv_form<8, 8>(oru::mat_mul_8xkx8_kernel_plain, f8);
  check_conv_form<1, 16>(oru::mat_mul_1xkx16_kernel_plain, f16);
}

// The plain forms follow the written order: AB from zero in rising l, then C scaled and AB
// (times alpha) added; the 1 by 16 kernel instead accumulates straight into C.
TEST(GemmTileKernels, PlainFormsFollowTheSumOrder) {
  const int k = 37;
  const auto a = oru_test::random_values<float>(k * 8, -1, 1, 7);
  const auto b = oru_test::random_values<float>(k * 24, -1, 1, 8);
  const auto c0 = oru_test::random_values<float>(4 * 24, -1, 1, 9);
  for (float alpha : {1.0f, 0.3f})
    for (float beta : {0.0f, 1.0f, -1.5f}) {
      std::vector<float> c = c0;
      oru::mat_mul_4xkx24_kernel_plain(k, a.data(), b.data(), c.data(), 24, 1, alpha, beta);
      for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 24; ++j) {
          float ab = 0.0f;
          for (int l = 0; l < k; ++l) ab += a[l * 4 + i] * b[l * 24 + j];
          float e = beta == 0.0f ? 0.0f : beta == 1.0f ? c0[i * 24 + j] : c0[i * 24 + j] * beta;
          e += alpha == 1.0f ? ab : alpha * ab;
          ASSERT_EQ(c[i * 24 + j], e) << i << "," << j;
        }
    }
  std::vector<float> c = c0;
  mat_mul_1xkx16_kernel(k, a.data(), b.data(), c.data(), 0, 1.0f, 1.0f);
  for (int j = 0; j < 16; ++j) {
    float e = c0[j];
    for (int l = 0; l < k; ++l) e += a[l] * b[l * 16 + j];
    EXPECT_EQ(c[j], e);
  }
  c = c0;
  mat_mul_8xkx8_kernel(k, a.data(), b.data(), c.data(), 8, 1.0f, 0.0f);
  for (int i = 0; i < 8; ++i)
    for (int j = 0; j < 8; ++j) {
      float ab = 0.0f;
      for (int l = 0; l < k; ++l) ab += a[l * 8 + i] * b[l * 8 + j];
      EXPECT_EQ(c[i * 8 + j], ab);
    }
}

TEST(GemmPackers, PanelsFollowTheLayoutAndPadWithZeros) {
  std::mt19937 gen(5);
  for (int trial = 0; trial < 60; ++trial) {
    const int m = 1 + gen() % 70, k = 1 + gen() % 70, mr = 1 + gen() % 13;
    const int lda = k + gen() % 4;
    const auto a = oru_test::random_values<float>(size_t(m) * lda, -1, 1, trial);
    const int panels = (m + mr - 1) / mr;
    std::vector<float> dst(size_t(panels) * mr * k, -7.0f);
    copy_a_blocked(m, k, mr, a.data(), lda, dst.data());
    for (int p = 0; p < panels; ++p)
      for (int l = 0; l < k; ++l)
        for (int i = 0; i < mr; ++i) {
          const int row = p * mr + i;
          ASSERT_EQ(dst[size_t(p) * mr * k + l * mr + i], row < m ? a[size_t(row) * lda + l] : 0.0f);
        }
    const int n = 1 + gen() % 70, nr = 1 + gen() % 29, ldb = n + gen() % 4;
    const auto b = oru_test::random_values<float>(size_t(k) * ldb, -1, 1, trial + 1000);
    const int qpanels = (n + nr - 1) / nr;
    std::vector<float> dstb(size_t(qpanels) * nr * k, -7.0f);
    copy_b_blocked(k, n, nr, b.data(), ldb, dstb.data());
    for (int q = 0; q < qpanels; ++q)
      for (int l = 0; l < k; ++l)
        for (int j = 0; j < nr; ++j) {
          const int col = q * nr + j;
          ASSERT_EQ(dstb[size_t(q) * nr * k + l * nr + j], col < n ? b[size_t(l) * ldb + col] : 0.0f);
        }
  }
}

}  // namespace
