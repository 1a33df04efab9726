// The eight small multiply kernels against a double-precision reference on shapes that hit
// every tile and tail, with their beta rules and padded rows.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "core/oru_dispatch.h"
#include "gemm_test_util.h"
#include "matrix/oru_small_matrix_mul_impl.h"
#include "oru_matrix.h"
#include "oru_form_tester.h"
#include "oru_test_util.h"

namespace {

template <typename T>
using SmallFn = void (*)(const T *, int32_t, int32_t, int32_t, const T *, int32_t, int32_t, T *, int32_t, T, T);

template <typename T>
struct Kernel {
  SmallFn<T> fn;
  bool ta, tb;
  const char *name;
};

template <typename T>
std::vector<Kernel<T>> kernels();
template <>
std::vector<Kernel<float>> kernels() {
  return {{oru_small_matrix_mul_matrix_real32, false, false, "A B"},
          {oru_small_matrix_mul_matrix_t_real32, false, true, "A Bt"},
          {oru_small_matrix_t_mul_matrix_real32, true, false, "At B"},
          {oru_small_matrix_t_mul_matrix_t_real32, true, true, "At Bt"}};
}
template <>
std::vector<Kernel<double>> kernels() {
  return {{oru_small_matrix_mul_matrix_real64, false, false, "A B"},
          {oru_small_matrix_mul_matrix_t_real64, false, true, "A Bt"},
          {oru_small_matrix_t_mul_matrix_real64, true, false, "At B"},
          {oru_small_matrix_t_mul_matrix_t_real64, true, true, "At Bt"}};
}

// Runs kernel on C (m by n, ldc = n + 2) for op(A) m by k and op(B) k by n, and checks the
// result against the reference and the padding against its old value.
template <typename T>
void run_and_check(const Kernel<T> &kr, int m, int n, int k, double alpha, double beta, uint32_t seed,
                   bool nan_c) {
  const int ar = kr.ta ? k : m, ac = kr.ta ? m : k, br = kr.tb ? n : k, bc = kr.tb ? k : n;
  const int lda = ac + 1, ldb = bc + 3, ldc = n + 2;
  const auto a = oru_test::random_values<T>(size_t(ar) * lda + 1, -1, 1, seed);
  const auto b = oru_test::random_values<T>(size_t(br) * ldb + 1, -1, 1, seed + 1);
  auto c = oru_test::random_values<T>(size_t(m) * ldc, -1, 1, seed + 2);
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < ldc; ++j)
      if (j >= n)
        c[size_t(i) * ldc + j] = T(-99);  // padding sentinel
      else if (nan_c)
        c[size_t(i) * ldc + j] = std::numeric_limits<T>::quiet_NaN();
  const auto ref = gemm_test::reference<T>(m, n, k, a, lda, kr.ta, b, ldb, kr.tb, c, ldc, alpha, beta);
  std::vector<T> got = c;
  kr.fn(a.data(), ar, ac, lda, b.data(), kr.tb ? br : bc, ldb, got.data(), ldc, T(alpha), T(beta));
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < ldc; ++j) {
      const T g = got[size_t(i) * ldc + j];
      if (j >= n) {
        ASSERT_EQ(g, T(-99)) << kr.name << " padding written";
        continue;
      }
      ASSERT_NEAR(double(g), ref.value[size_t(i) * n + j], ref.bound[size_t(i) * n + j])
          << kr.name << " m=" << m << " n=" << n << " k=" << k << " alpha=" << alpha << " beta=" << beta;
    }
}

template <typename T>
void check_all_shapes() {
  const int sizes[] = {1, 3, 4, 5, 7, 8, 9, 17};
  uint32_t seed = 1;
  for (const auto &kr : kernels<T>())
    for (int m : sizes)
      for (int n : sizes)
        for (int k : {0, 1, 2, 3, 8, 9, 33}) {
          const double alpha = (seed % 3 == 0) ? 1.0 : -1.25;
          const double beta = (seed % 4 == 0) ? 0.0 : (seed % 4 == 1) ? 1.0 : 2.5;
          run_and_check<T>(kr, m, n, k, alpha, beta, seed, false);
          seed += 3;
        }
}

TEST(SmallMul, Real32AllShapesAgainstReference) { check_all_shapes<float>(); }
TEST(SmallMul, Real64AllShapesAgainstReference) { check_all_shapes<double>(); }

TEST(SmallMul, BetaZeroWipesNotANumbers) {
  uint32_t seed = 900;
  for (const auto &kr : kernels<float>())
    for (int m : {1, 4, 9})
      for (int n : {1, 2, 5}) run_and_check<float>(kr, m, n, 6, 0.5, 0.0, seed += 3, true);
  for (const auto &kr : kernels<double>())
    for (int m : {1, 8, 11}) run_and_check<double>(kr, m, 3, 4, 2.0, 0.0, seed += 3, true);
}

// 1 by 1 by 1: alpha 2, beta 3 gives 2 a b + 3 c in each kernel (exact in binary).
TEST(SmallMul, OneByOneAlphaBeta) {
  for (const auto &kr : kernels<float>()) {
    const float a = 1.5f, b = -2.25f;
    float c = 4.0f;
    kr.fn(&a, 1, 1, 1, &b, 1, 1, &c, 1, 2.0f, 3.0f);
    EXPECT_EQ(c, 2.0f * 1.5f * -2.25f + 12.0f) << kr.name;
  }
  for (const auto &kr : kernels<double>()) {
    const double a = 0.5, b = 6.0;
    double c = -1.0;
    kr.fn(&a, 1, 1, 1, &b, 1, 1, &c, 1, 2.0, 3.0);
    EXPECT_EQ(c, 3.0) << kr.name;
  }
}

// An empty sum leaves beta alone: 2 doubles C, 0 clears it, 1 keeps it.
TEST(SmallMul, EmptySumAppliesBetaOnly) {
  const float a[1] = {7.0f}, b[1] = {7.0f};
  for (const auto &kr : kernels<float>())
    for (float beta : {2.0f, 0.0f, 1.0f}) {
      const std::vector<float> c0 = {1, -2, 3, 4, 5, 6};
      std::vector<float> c = c0;
      const int ar = kr.ta ? 0 : 2, ac = kr.ta ? 2 : 0;
      kr.fn(a, ar, ac, 1, b, 3, 1, c.data(), 3, 1.0f, beta);
      for (int e = 0; e < 6; ++e) EXPECT_EQ(c[e], c0[e] * beta) << kr.name;
    }
}

// Every instruction-set form runs the same per-element order as the plain one: equal bits.
#define SMALL_FORMS(FORM)                                                                     \
  oru::KernelForms<decltype(&oru::FORM##_plain)> {                                            \
    &oru::FORM##_plain, ORU_AVX2_FORM(&oru::FORM##_avx2), ORU_AVX512_FORM(&oru::FORM##_avx512), \
        ORU_NO_FORM                                                                           \
  }

template <typename T, typename Fn>
void check_forms(oru::Isa isa_under_test, const oru::KernelForms<Fn> &forms, bool ta, bool tb, const char *name) {
  uint32_t seed = 5000;
  for (int m : {1, 3, 4, 7, 8, 9, 21})
    for (int n : {1, 2, 5, 16, 37})
      for (int k : {0, 1, 2, 5, 17}) {
        const int ar = ta ? k : m, ac = ta ? m : k, br = tb ? n : k, bc = tb ? k : n;
        const int lda = ac + 1, ldb = bc + 2, ldc = n + 1;
        const auto a = oru_test::random_values<T>(size_t(ar) * lda + 1, -1, 1, seed++);
        const auto b = oru_test::random_values<T>(size_t(br) * ldb + 1, -1, 1, seed++);
        const auto c0 = oru_test::random_values<T>(size_t(m) * ldc, -1, 1, seed++);
        const T alpha = T(seed % 2 ? 1.0 : 0.75), beta = T(seed % 3 == 0 ? 0.0 : seed % 3 == 1 ? 1.0 : -2.0);
        std::vector<T> expect = c0;
        forms.plain(a.data(), ar, ac, lda, b.data(), tb ? br : bc, ldb, expect.data(), ldc, alpha, beta);
        oru_test::run_form(forms, isa_under_test, [&](oru::Isa isa, Fn f) {
          std::vector<T> got = c0;
          f(a.data(), ar, ac, lda, b.data(), tb ? br : bc, ldb, got.data(), ldc, alpha, beta);
          ASSERT_EQ(0, std::memcmp(got.data(), expect.data(), got.size() * sizeof(T)))
              << name << " " << oru::isa_name(isa) << " m=" << m << " n=" << n << " k=" << k;
        });
      }
}

class SmallMulForms : public ::testing::TestWithParam<oru::Isa> {};
ORU_FORM_SUITE(SmallMulForms);

TEST_P(SmallMulForms, MatchPlainBits) {
  ORU_SKIP_UNLESS_FORM(SMALL_FORMS(small_mul_ab_real32), "small_mul_ab_real32");
  check_forms<float>(GetParam(), SMALL_FORMS(small_mul_ab_real32), false, false, "A B");
  check_forms<float>(GetParam(), SMALL_FORMS(small_mul_abt_real32), false, true, "A Bt");
  check_forms<float>(GetParam(), SMALL_FORMS(small_mul_atb_real32), true, false, "At B");
  check_forms<float>(GetParam(), SMALL_FORMS(small_mul_atbt_real32), true, true, "At Bt");
  check_forms<double>(GetParam(), SMALL_FORMS(small_mul_ab_real64), false, false, "A B");
  check_forms<double>(GetParam(), SMALL_FORMS(small_mul_abt_real64), false, true, "A Bt");
  check_forms<double>(GetParam(), SMALL_FORMS(small_mul_atb_real64), true, false, "At B");
  check_forms<double>(GetParam(), SMALL_FORMS(small_mul_atbt_real64), true, true, "At Bt");
}

}  // namespace
