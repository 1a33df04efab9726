// Every vector form of the fixed-point row kernels against its plain twin on random 16-bit
// data over lengths that reach every tail, all shifts and all block sizes: integer
// arithmetic, so they must agree bit for bit.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "core/oru_dispatch.h"
#include "fixed/oru_fixed_internal.h"

namespace {

std::vector<int16_t> random_i16(size_t n, std::mt19937 &gen, bool full) {
  std::uniform_int_distribution<int> d(full ? -32768 : -3000, full ? 32767 : 3000);
  std::vector<int16_t> v(n);
  for (int16_t &x : v) x = int16_t(d(gen));
  return v;
}

TEST(FixedForms, PointwiseBlockMatchesPlain) {
  std::mt19937 gen(7);
  int seen = 0;
  oru::for_each_runnable_form(ORU_KERNEL_FORMS(oru::fx_pointwise_block), [&](oru::Isa isa, auto fn) {
    ++seen;
    for (int64_t n : {1, 7, 8, 15, 16, 17, 31, 33, 64, 71}) {
      for (int oc = 1; oc <= 4; ++oc) {
        for (int shift : {0, 1, 5, 14, 15, 16, 22, 29, 30}) {
          const int64_t ic = 1 + (n + oc + shift) % 6, plane = n + 3;
          const bool full = (n + shift) % 2 == 0;
          auto in = random_i16(size_t(ic * plane), gen, full), w = random_i16(size_t(oc * (ic + 1)), gen, full);
          auto ref = random_i16(size_t(oc * plane), gen, true), got = ref;
          oru::fx_pointwise_block_plain(ref.data(), plane, in.data(), plane, w.data(), ic + 1, oc, ic, n, shift);
          fn(got.data(), plane, in.data(), plane, w.data(), ic + 1, oc, ic, n, shift);
          EXPECT_EQ(ref, got) << oru::isa_name(isa) << " n " << n << " oc " << oc << " shift " << shift;
        }
      }
    }
  });
  EXPECT_GE(seen, 1);
}

TEST(FixedForms, Conv3x3RowMatchesPlain) {
  std::mt19937 gen(11);
  oru::for_each_runnable_form(ORU_KERNEL_FORMS(oru::fx_conv3x3_row), [&](oru::Isa isa, auto fn) {
    for (int stride : {1, 2}) {
      for (int64_t n = 1; n < 80; n += (n < 20 ? 1 : 9)) {
        for (bool acc : {false, true}) {
          for (int shift : {0, 1, 9, 17, 30}) {
            // Zero-framed rows as the drivers give them: n + 2 at stride 1, 2n + 1 at stride 2.
            const size_t len = size_t(stride == 1 ? n + 2 : 2 * n + 1);
            const bool full = (n + shift) % 2 == 1;
            auto r0 = random_i16(len, gen, full), r1 = random_i16(len, gen, full), r2 = random_i16(len, gen, full);
            auto k = random_i16(9, gen, full);
            auto ref = random_i16(size_t(n), gen, true), got = ref;
            oru::fx_conv3x3_row_plain(ref.data(), n, r0.data(), r1.data(), r2.data(), k.data(), shift, stride, acc);
            fn(got.data(), n, r0.data(), r1.data(), r2.data(), k.data(), shift, stride, acc);
            EXPECT_EQ(ref, got) << oru::isa_name(isa) << " stride " << stride << " n " << n << " acc " << acc
                                << " shift " << shift;
          }
        }
      }
    }
  });
}

TEST(FixedForms, BiasActRowMatchesPlain) {
  std::mt19937 gen(13);
  oru::for_each_runnable_form(ORU_KERNEL_FORMS(oru::fx_bias_act_row), [&](oru::Isa isa, auto fn) {
    for (int64_t n : {1, 5, 8, 15, 16, 17, 33, 47, 64}) {
      for (int act = 0; act <= 3; ++act) {
        for (int rule = 0; rule < 6; ++rule) {
          // Shifts as the bias rule makes them: up_x 0..15, then a right shift or a left one.
          const int up_x = rule * 3 % 16, down = rule % 2 ? rule * 2 : 0, up = rule % 2 ? 0 : rule, q_out = rule * 2 + 1;
          const int32_t b = int32_t(gen()) >> (rule + 8);
          auto x = random_i16(size_t(n), gen, rule % 3 == 0);
          auto ref = random_i16(size_t(n), gen, true), got = ref;
          oru::fx_bias_act_row_plain(ref.data(), x.data(), n, b, up_x, down, up, act, q_out);
          fn(got.data(), x.data(), n, b, up_x, down, up, act, q_out);
          EXPECT_EQ(ref, got) << oru::isa_name(isa) << " n " << n << " act " << act << " rule " << rule;
          // in place, as the convolution tails run it
          auto inplace = x;
          fn(inplace.data(), inplace.data(), n, b, up_x, down, up, act, q_out);
          EXPECT_EQ(ref, inplace) << oru::isa_name(isa) << " in place, n " << n;
        }
      }
    }
  });
}

}  // namespace
