// Every vector form of the element-wise kernels against its plain twin, on lengths
// that hit every tail and on unaligned starts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "core/oru_dispatch.h"
#include "matrix/oru_l1_kernels.h"
#include "oru_form_tester.h"
#include "oru_test_util.h"

namespace {

std::vector<int64_t> lengths() {
  std::vector<int64_t> n;
  for (int64_t i = 0; i <= 70; ++i) n.push_back(i);
  for (int64_t i : {127, 128, 129, 255, 1000, 1031}) n.push_back(i);
  return n;
}

template <typename T>
std::vector<T> values(size_t n, uint32_t seed, double lo = -100.0, double hi = 100.0) {
  return oru_test::random_values<T>(n, lo, hi, seed);
}

template <typename T>
bool same_bits(T a, T b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0 || (std::isnan(a) && std::isnan(b));
}

// The binary kernels through the form tester, one test per instruction set: swept lengths
// and offsets, special values, dst aliasing the first operand, a guard past the end.
class L1Forms : public ::testing::TestWithParam<oru::Isa> {};
ORU_FORM_SUITE(L1Forms);

template <typename T, typename Fn>
void check_binary(Fn plain, Fn form, double max_ulps = 0, bool specials = true) {
  oru_test::ElementwiseCheck c;
  c.inputs = 2, c.any_nan = true, c.max_ulps = max_ulps, c.specials = specials;
  oru_test::check_elementwise<T>(plain, form, c, [](Fn f, T *y, const T *const *x, int64_t n) { f(y, n, x[0], x[1]); });
}

#define ORU_CHECK_BINARY(T, k, ...)                            \
  do {                                                         \
    ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::k), #k);      \
    check_binary<T>(oru::k##_plain, f, ##__VA_ARGS__);         \
  } while (0)

TEST_P(L1Forms, FloatBitForBit) {
  ORU_CHECK_BINARY(float, add_real32);
  ORU_CHECK_BINARY(float, sub_real32);
  ORU_CHECK_BINARY(float, mul_real32);
#if defined(__aarch64__)
  // The reciprocal estimate with three refinement steps lands within a few ulp.
  ORU_CHECK_BINARY(float, div_real32, 4, false);
#else
  ORU_CHECK_BINARY(float, div_real32);
#endif
}

TEST_P(L1Forms, DoubleBitForBit) {
  ORU_CHECK_BINARY(double, add_real64);
  ORU_CHECK_BINARY(double, sub_real64);
  ORU_CHECK_BINARY(double, mul_real64);
  ORU_CHECK_BINARY(double, div_real64);
}

TEST_P(L1Forms, FastExponentialFormsAgreeBitForBit) {
  ORU_SKIP_UNLESS_FORM(ORU_KERNEL_FORMS(oru::fast_expl), "fast_expl");
  const auto forms = ORU_KERNEL_FORMS(oru::fast_expl);
  oru_test::run_form(forms, GetParam(), [&](oru::Isa isa, auto f) {
    uint32_t seed = 100;
    for (int64_t n : lengths()) {
      auto x = values<double>(size_t(n), seed++, -760.0, 760.0);
      // The special inputs where the clamps and the exponent saturation act.
      const double specials[] = {0.0, -0.0, 2048.0, -2048.0, 1e300, -1e300, 709.0, 709.8, -708.4, -709.2, -745.0,
                                 INFINITY, -INFINITY, NAN, 1e-320, 5e-324};
      for (size_t i = 0; i < x.size(); i += 3) x[i] = specials[(i / 3) % (sizeof specials / sizeof *specials)];
      auto want = x, got = x;
      forms.plain(want.data(), n);
      f(got.data(), n);
      for (int64_t i = 0; i < n; ++i)
        ASSERT_TRUE(same_bits(got[size_t(i)], want[size_t(i)]))
            << oru::isa_name(isa) << " x=" << x[size_t(i)] << ": " << got[size_t(i)] << " vs " << want[size_t(i)];
    }
  });
}

// In place only; the tester's output starts as a copy of the input.
TEST_P(L1Forms, SigmoidFormsStayWithinTwoUlpOfTheSystemExponential) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::sigmoid_real32), "sigmoid_real32");
  using Fn = decltype(f);
  oru_test::ElementwiseCheck c;
  c.lo = -110, c.hi = 95, c.max_ulps = 4, c.abs_tol = 1e-37, c.in_place = false;
  c.extra = {88.0, 88.72283172607421875, 88.72283935546875, 89.0, 1000.0, -87.0, -103.0, -104.5, -1000.0, 1e-30};
  oru_test::check_elementwise<float>(oru::sigmoid_real32_plain, f, c, [](Fn g, float *y, const float *const *x, int64_t n) {
    std::copy(x[0], x[0] + n, y);
    g(y, n);
  });
}

template <typename S, typename D, typename Fn>
void check_conversion(oru::Isa isa_under_test, const oru::KernelForms<Fn> &forms, double lo, double hi, std::vector<S> specials) {
  oru_test::run_form(forms, isa_under_test, [&](oru::Isa isa, Fn f) {
    uint32_t seed = 300;
    for (int64_t n : lengths()) {
      std::vector<S> src = values<S>(size_t(n) + 1, seed++, lo, hi);
      for (size_t i = 1; i < src.size(); i += 4) src[i] = specials[(i / 4) % specials.size()];
      std::vector<D> want(size_t(n) + 1, D(9)), got(size_t(n) + 1, D(9));
      forms.plain(want.data() + 1, src.data() + 1, n);
      f(got.data() + 1, src.data() + 1, n);
      ASSERT_EQ(got[0], D(9));
      for (int64_t i = 1; i <= n; ++i)
        ASSERT_TRUE(same_bits(got[size_t(i)], want[size_t(i)]))
            << oru::isa_name(isa) << " n=" << n << " src=" << double(src[size_t(i)]);
    }
  });
}

TEST_P(L1Forms, ConversionFormsAgreeBitForBit) {
  ORU_SKIP_UNLESS_FORM(ORU_KERNEL_FORMS(oru::cvt_ai8u_to_aif32), "cvt_ai8u_to_aif32");
  check_conversion<uint8_t, float>(GetParam(), ORU_KERNEL_FORMS(oru::cvt_ai8u_to_aif32), 0, 255.99, {0, 255, 128});
  // Halves decide between the even neighbours; out-of-range values saturate.
  check_conversion<float, uint8_t>(GetParam(), ORU_KERNEL_FORMS(oru::cvt_aif32_to_ai8u), -300, 300,
                                   {0.5f, 1.5f, 2.5f, 254.5f, 255.5f, -0.5f, -0.7f, 300.0f, -1.0f, NAN, 1e9f});
  check_conversion<float, double>(GetParam(), ORU_KERNEL_FORMS(oru::cvt_aif32_to_aif64), -1e30, 1e30, {NAN, INFINITY, 1e-40f});
  check_conversion<double, float>(GetParam(), ORU_KERNEL_FORMS(oru::cvt_aif64_to_aif32), -1e30, 1e30,
                                  {NAN, 1e39, 1e-46, 0.1, 1.0 + 1e-8});
}

#if defined(__aarch64__)
TEST(L1Forms, EstimateSquareRootOnArmStaysClose) {
  uint32_t seed = 400;
  for (int64_t n : lengths()) {
    auto x = values<float>(size_t(n), seed++, 0.0, 1e6);
    for (size_t i = 0; i < x.size(); i += 7) x[i] = 0.0f;
    auto want = x, got = x;
    oru::sqrt_real32_plain(want.data(), n);
    oru::sqrt_real32_neon(got.data(), n);
    for (int64_t i = 0; i < n; ++i) ASSERT_NEAR(got[size_t(i)], want[size_t(i)], want[size_t(i)] * 5e-7f) << n;
  }
}
#endif

}  // namespace
