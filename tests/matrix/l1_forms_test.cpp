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

// The kernels that work in place: the tester's output starts as a copy of the input.
template <typename T, typename Fn>
void check_in_place(Fn plain, Fn form, oru_test::ElementwiseCheck c) {
  c.in_place = false;
  oru_test::check_elementwise<T>(plain, form, c, [](Fn g, T *y, const T *const *x, int64_t n) {
    std::copy(x[0], x[0] + n, y);
    g(y, n);
  });
}

TEST_P(L1Forms, FastExponentialFormsAgreeBitForBit) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::fast_expl), "fast_expl");
  oru_test::ElementwiseCheck c;
  c.lo = -760, c.hi = 760;
  // Where the clamps and the exponent saturation act.
  c.extra = {2048.0, -2048.0, 1e300, -1e300, 709.0, 709.8, -708.4, -709.2, -745.0, 1e-320};
  check_in_place<double>(oru::fast_expl_plain, f, c);
}

TEST_P(L1Forms, SigmoidFormsStayWithinTwoUlpOfTheSystemExponential) {
  ORU_FORM_UNDER_TEST(f, ORU_KERNEL_FORMS(oru::sigmoid_real32), "sigmoid_real32");
  oru_test::ElementwiseCheck c;
  c.lo = -110, c.hi = 95, c.max_ulps = 4, c.abs_tol = 1e-37;
  c.extra = {88.0, 88.72283172607421875, 88.72283935546875, 89.0, 1000.0, -87.0, -103.0, -104.5, -1000.0, 1e-30};
  check_in_place<float>(oru::sigmoid_real32_plain, f, c);
}

// A conversion from S to D, bit for bit; extra: the values where rounding and saturation act.
template <typename S, typename D, typename Fn>
void check_conversion(Fn plain, Fn form, double lo, double hi, std::vector<double> extra) {
  oru_test::ElementwiseCheck c;
  c.lo = lo, c.hi = hi, c.extra = std::move(extra);
  oru_test::check_elementwise<D, S>(plain, form, c, [](Fn g, D *y, const S *const *x, int64_t n) { g(y, x[0], n); });
}

TEST_P(L1Forms, ConversionFormsAgreeBitForBit) {
  ORU_FORM_UNDER_TEST(u8_f32, ORU_KERNEL_FORMS(oru::cvt_ai8u_to_aif32), "cvt_ai8u_to_aif32");
  ORU_FORM_UNDER_TEST(f32_u8, ORU_KERNEL_FORMS(oru::cvt_aif32_to_ai8u), "cvt_aif32_to_ai8u");
  ORU_FORM_UNDER_TEST(f32_f64, ORU_KERNEL_FORMS(oru::cvt_aif32_to_aif64), "cvt_aif32_to_aif64");
  ORU_FORM_UNDER_TEST(f64_f32, ORU_KERNEL_FORMS(oru::cvt_aif64_to_aif32), "cvt_aif64_to_aif32");
  check_conversion<uint8_t, float>(oru::cvt_ai8u_to_aif32_plain, u8_f32, 0, 255.99, {255, 128});
  // Halves decide between the even neighbours; out-of-range values saturate.
  check_conversion<float, uint8_t>(oru::cvt_aif32_to_ai8u_plain, f32_u8, -300, 300,
                                   {0.5, 1.5, 2.5, 254.5, 255.5, -0.5, -0.7, 300.0, -1.0, 1e9, 2147483520.0, 3e9, 5e9, -5e9, 1e19});
  check_conversion<float, double>(oru::cvt_aif32_to_aif64_plain, f32_f64, -1e30, 1e30, {1e-40});
  check_conversion<double, float>(oru::cvt_aif64_to_aif32_plain, f64_f32, -1e30, 1e30, {1e39, 1e-46, 0.1, 1.0 + 1e-8});
}

// Only arm64 has a vector form: the processor's estimate, close to the root but not exact.
TEST_P(L1Forms, EstimateSquareRootStaysClose) {
  using Fn = void (*)(float *, int64_t);
  const oru::KernelForms<Fn> forms{&oru::sqrt_real32_plain, ORU_NO_FORM, ORU_NO_FORM, ORU_NEON_FORM(&oru::sqrt_real32_neon)};
  ORU_FORM_UNDER_TEST(f, forms, "sqrt_real32");
  oru_test::ElementwiseCheck c;
  c.lo = 0, c.hi = 1e6, c.specials = false, c.extra = {0.0}, c.max_ulps = 8;
  check_in_place<float>(oru::sqrt_real32_plain, f, c);
}

}  // namespace
