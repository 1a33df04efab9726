// Q selection and float <-> ai16s conversion against an independent model of the rounding
// rule: half-way cases to the even integer, then the low 16 bits as a two's complement value.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "oru_fixed.h"
#include "oru_test_util.h"

namespace {

// A tensor record laid over test-owned storage, filled by hand so these tests need only
// the record layout.
oru_tensor make(void *data, int32_t n, uint32_t type) {
  oru_tensor t;
  std::memset(&t, 0, sizeof t);
  t.kind = 16;
  t.type = type;
  t.data = data;
  t.dims[0] = n;
  t.ndims = 1;
  t.element_bytes = type == aif32 ? 4 : 2;
  t.total_elements = n;
  t.total_bytes = int64_t(n) * t.element_bytes;
  return t;
}

// Round half to even without rint: floor, then look at the fraction.
double round_half_even(double v) {
  const double f = std::floor(v);
  const double frac = v - f;
  if (frac > 0.5) return f + 1;
  if (frac < 0.5) return f;
  return std::fmod(f, 2.0) == 0.0 ? f : f + 1;
}

int16_t model_to_fixed(float x, int q) {
  const float p = x * float(1 << q);
  const double r = round_half_even(double(p));
  double m = std::fmod(r, 65536.0);
  if (m < 0) m += 65536.0;
  const int v = int(m);
  return int16_t(v >= 32768 ? v - 65536 : v);
}

int32_t calc_q(std::vector<float> v) {
  oru_tensor t = make(v.data(), int32_t(v.size()), aif32);
  int32_t q = -7;
  const uint32_t st = oru_tensor_calc_q(&q, &t, 0, int32_t(v.size()));
  return st == ORU_RET_OK ? q : -int32_t(st);
}

TEST(QFormat, CalcQPicksTheLargestQThatHolds) {
  EXPECT_EQ(calc_q({1.0f, 0.25f}), 14);  // Q15 stops just below 1
  EXPECT_EQ(calc_q({-1.0f, 0.25f}), 15);
  EXPECT_EQ(calc_q({0.9f, -0.1f}), 15);
  EXPECT_EQ(calc_q({0.0f, 0.0f}), 15);
  EXPECT_EQ(calc_q({3.5f}), 13);
  EXPECT_EQ(calc_q({-4.0f}), 13);
  EXPECT_EQ(calc_q({4.0f}), 12);
  EXPECT_EQ(calc_q({32767.0f}), 0);
  EXPECT_EQ(calc_q({-32768.0f}), 0);
  EXPECT_EQ(calc_q({40000.0f}), -int32_t(ORU_RET_ERR_PARA));
  EXPECT_EQ(calc_q({}), -int32_t(ORU_RET_ERR_PARA));
}

TEST(QFormat, CalcQRangeAndRefusals) {
  std::vector<float> v = {100.0f, 0.5f, -0.75f, 2.0f};
  oru_tensor t = make(v.data(), 4, aif32);
  int32_t q = -7;
  // Only elements 1 and 2: the extreme is -0.75.
  EXPECT_EQ(oru_tensor_calc_q(&q, &t, 1, 2), ORU_RET_OK);
  EXPECT_EQ(q, 15);
  // A count beyond the tensor is cut to it.
  EXPECT_EQ(oru_tensor_calc_q(&q, &t, 0, 1000), ORU_RET_OK);
  EXPECT_EQ(q, 8);
  EXPECT_EQ(oru_tensor_calc_q(nullptr, &t, 0, 4), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_calc_q(&q, nullptr, 0, 4), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_calc_q(&q, &t, -1, 4), ORU_RET_ERR_PARA);
  t.type = aif64;
  EXPECT_EQ(oru_tensor_calc_q(&q, &t, 0, 4), ORU_RET_ERR_PARA);
  EXPECT_EQ(q, 8) << "a refusal stores nothing";
}

TEST(QFormat, ToFixedMatchesTheRoundingModel) {
  auto x = oru_test::random_values<float>(4000, -2.0, 2.0, 3u);
  // Exact half-way points and values that overflow 16 bits.
  const float special[] = {0.5f, 1.5f, 2.5f, -0.5f, -1.5f, -2.5f, 1.0f, 1.5f, -1.0f, 1.99997f, 3.0f, 7.9f, -8.5f};
  x.insert(x.end(), std::begin(special), std::end(special));
  auto wide = oru_test::random_values<float>(500, -70000.0, 70000.0, 4u);
  x.insert(x.end(), wide.begin(), wide.end());
  const int32_t n = int32_t(x.size());
  for (int q : {0, 1, 7, 14, 15}) {
    std::vector<int16_t> y(x.size(), 0);
    oru_tensor src = make(x.data(), n, aif32), dst = make(y.data(), n, ai16s);
    ASSERT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&dst, &src, 0, n, q), ORU_RET_OK);
    for (int32_t i = 0; i < n; ++i) ASSERT_EQ(y[size_t(i)], model_to_fixed(x[size_t(i)], q)) << "q=" << q << " x=" << x[size_t(i)];
  }
}

TEST(QFormat, ToFixedHandPicked) {
  float x[] = {0.5f, 2.5f, 1.5f, 3.5f};
  int16_t y[4] = {0, 0, 0, 0};
  oru_tensor src = make(x, 4, aif32), dst = make(y, 4, ai16s);
  ASSERT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&dst, &src, 0, 1, 1), ORU_RET_OK);
  EXPECT_EQ(y[0], 1);
  ASSERT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&dst, &src, 1, 2, 0), ORU_RET_OK);
  EXPECT_EQ(y[1], 2);  // ties to even
  EXPECT_EQ(y[2], 2);
  EXPECT_EQ(y[3], 0) << "outside first..first+count-1";
  // 1.5 at Q15 is 49152, which wraps to 49152 - 65536.
  ASSERT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&dst, &src, 2, 1, 15), ORU_RET_OK);
  EXPECT_EQ(y[2], int16_t(49152 - 65536));
}

TEST(QFormat, ConversionRefusals) {
  float x[4] = {};
  int16_t y[4] = {};
  oru_tensor f = make(x, 4, aif32), s = make(y, 4, ai16s);
  EXPECT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&s, &f, 0, 4, 16), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&s, &f, 0, 4, -1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&s, &f, 0, 5, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&f, &s, 0, 4, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(nullptr, &f, 0, 4, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&s, &f, 0, 0, 3), ORU_RET_OK);
  EXPECT_EQ(oru_tensor_transform_data_from_fpi16_to_real32(&f, &s, 4, 16), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_fpi16_to_real32(&s, &f, 4, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_fpi16_to_real32(&f, &s, 5, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_transform_data_from_fpi16_to_real32(&f, nullptr, 4, 3), ORU_RET_ERR_PARA);
}

TEST(QFormat, ToFloatScalesByPowerOfTwo) {
  std::vector<int16_t> v = {0, 1, -1, 32767, -32768, 12345, -2};
  const int32_t n = int32_t(v.size());
  for (int q : {0, 3, 15}) {
    std::vector<float> y(v.size(), 9.0f);
    oru_tensor src = make(v.data(), n, ai16s), dst = make(y.data(), n, aif32);
    ASSERT_EQ(oru_tensor_transform_data_from_fpi16_to_real32(&dst, &src, n, q), ORU_RET_OK);
    for (int32_t i = 0; i < n; ++i) EXPECT_EQ(double(y[size_t(i)]), std::ldexp(double(v[size_t(i)]), -q));
  }
}

TEST(QFormat, RoundTripWithinHalfAStep) {
  auto x = oru_test::random_values<float>(1000, -3.9, 3.9, 8u);
  std::vector<float> w = x;
  oru_tensor t = make(w.data(), 1000, aif32);
  int32_t q = -1;
  ASSERT_EQ(oru_tensor_calc_q(&q, &t, 0, 1000), ORU_RET_OK);
  EXPECT_EQ(q, 13);
  std::vector<int16_t> s(1000);
  std::vector<float> back(1000);
  oru_tensor st = make(s.data(), 1000, ai16s), bt = make(back.data(), 1000, aif32);
  ASSERT_EQ(oru_tensor_transform_data_from_real32_to_fpi16(&st, &t, 0, 1000, q), ORU_RET_OK);
  ASSERT_EQ(oru_tensor_transform_data_from_fpi16_to_real32(&bt, &st, 1000, q), ORU_RET_OK);
  for (int i = 0; i < 1000; ++i) EXPECT_LE(std::fabs(back[size_t(i)] - x[size_t(i)]), std::ldexp(0.5, -q) + 1e-7);
}

}  // namespace
