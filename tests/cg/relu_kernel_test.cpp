#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "kernels/activation/oru_cg_relu_kernel.h"
#include "core/oru_dispatch.h"

namespace {

uint32_t bits(float x) {
  uint32_t b;
  std::memcpy(&b, &x, 4);
  return b;
}

// Values that exercise every branch: signed zeros, NaNs of both signs, infinities, denormals.
std::vector<float> hostile_values(size_t n, uint32_t seed) {
  std::mt19937 gen(seed);
  const float specials[] = {0.0f, -0.0f, std::numeric_limits<float>::quiet_NaN(),
                            -std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(), 1e-45f, -1e-45f, 3.4e38f, -3.4e38f};
  std::uniform_real_distribution<float> dist(-100.0f, 100.0f);
  std::vector<float> v(n);
  for (auto &x : v) x = gen() % 4 == 0 ? specials[gen() % 10] : dist(gen);
  return v;
}

TEST(ReluKernel, EveryFormMatchesThePlainFormBitForBit) {
  const auto forms = ORU_KERNEL_FORMS(oru::relu_f32);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int n = 0; n <= 300; ++n) {
      for (int offset : {0, 1, 3}) {  // misaligned starts as well
        const auto src = hostile_values(size_t(n + offset), uint32_t(n * 7 + offset));
        std::vector<float> want(size_t(n + offset), 42.0f), got(size_t(n + offset) + 1, 42.0f);
        oru::relu_f32_plain(want.data() + offset, src.data() + offset, n);
        fn(got.data() + offset, src.data() + offset, n);
        for (int i = 0; i < n + offset; ++i)
          ASSERT_EQ(bits(got[size_t(i)]), bits(want[size_t(i)])) << oru::isa_name(isa) << " n=" << n << " i=" << i;
        ASSERT_EQ(got[size_t(n + offset)], 42.0f) << "wrote past the end: " << oru::isa_name(isa);
        // In place gives the same.
        std::vector<float> inplace(src);
        fn(inplace.data() + offset, inplace.data() + offset, n);
        for (int i = offset; i < n + offset; ++i) ASSERT_EQ(bits(inplace[size_t(i)]), bits(want[size_t(i)]));
      }
    }
  });
}

TEST(ReluKernel, PlainFormGivesPositiveZeroForNegativesNegativeZeroAndNaN) {
  const float in[] = {-1.0f, -0.0f, std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity(),
                      2.5f, std::numeric_limits<float>::infinity(), 1e-45f};
  float out[7];
  oru::relu_f32_plain(out, in, 7);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(bits(out[i]), 0u) << i;
  EXPECT_EQ(out[4], 2.5f);
  EXPECT_EQ(out[5], std::numeric_limits<float>::infinity());
  EXPECT_EQ(out[6], 1e-45f);
}

}  // namespace
