// Every vector form of the convolution row kernels against its plain twin, on random
// lengths that reach every tail. Multiplies and adds are separate in all forms, so they
// must agree bit for bit.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "conv/oru_conv_internal.h"
#include "core/oru_dispatch.h"
#include "oru_test_util.h"

namespace {

std::vector<float> rand_vec(size_t n, uint32_t seed) { return oru_test::random_values<float>(n, -4.0, 4.0, seed); }

bool same_bits(const std::vector<float> &a, const std::vector<float> &b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

TEST(ConvForms, StrideOneRowMatchesPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::conv3x3_s1_row);
  int seen = 0;
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    ++seen;
    for (int64_t n = 1; n < 70; n += (n < 20 ? 1 : 7)) {
      for (bool acc : {false, true}) {
        auto r0 = rand_vec(size_t(n + 2), uint32_t(n)), r1 = rand_vec(size_t(n + 2), uint32_t(n + 100)),
             r2 = rand_vec(size_t(n + 2), uint32_t(n + 200)), k = rand_vec(9, 5);
        auto ref = rand_vec(size_t(n), 9), got = ref;
        oru::conv3x3_s1_row_plain(ref.data(), n, r0.data(), r1.data(), r2.data(), k.data(), acc);
        fn(got.data(), n, r0.data(), r1.data(), r2.data(), k.data(), acc);
        EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " acc " << acc;
      }
    }
  });
  EXPECT_GE(seen, 1);
}

TEST(ConvForms, MultiChannelRowsMatchPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::conv3x3_s1_multi);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int64_t n : {1, 3, 4, 7, 8, 15, 16, 17, 31, 33, 40}) {
      for (int64_t ic : {1, 2, 5}) {
        for (int nrows = 1; nrows <= 4; ++nrows) {
          // Six readable rows of n + 2 floats per input channel.
          std::vector<std::vector<float>> data;
          std::vector<const float *> rows;
          for (int64_t j = 0; j < ic * 6; ++j) {
            data.push_back(rand_vec(size_t(n + 2), uint32_t(j * 31 + n)));
            rows.push_back(data.back().data());
          }
          auto k = rand_vec(size_t(ic * 9), uint32_t(ic));
          auto ref = rand_vec(size_t(4 * n), 3), got = ref;
          oru::conv3x3_s1_multi_plain(ref.data(), n, nrows, n, rows.data(), ic, k.data());
          fn(got.data(), n, nrows, n, rows.data(), ic, k.data());
          EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " ic " << ic << " rows " << nrows;
        }
      }
    }
  });
}

TEST(ConvForms, StrideTwoMultiChannelRowMatchesPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::conv3x3_s2_multi);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int64_t n : {1, 2, 4, 7, 8, 9, 15, 16, 17, 33}) {
      for (int64_t ic : {1, 3, 4}) {
        // Even rows need n + 1 readable floats, odd rows n.
        std::vector<std::vector<float>> data;
        std::vector<const float *> rows;
        for (int64_t j = 0; j < ic * 6; ++j) {
          data.push_back(rand_vec(size_t(j % 2 == 0 ? n + 1 : n), uint32_t(j * 17 + n)));
          rows.push_back(data.back().data());
        }
        auto k = rand_vec(size_t(ic * 9), uint32_t(ic + 40));
        auto ref = rand_vec(size_t(n), 4), got = ref;
        oru::conv3x3_s2_multi_plain(ref.data(), n, rows.data(), ic, k.data());
        fn(got.data(), n, rows.data(), ic, k.data());
        EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " ic " << ic;
      }
    }
  });
}

TEST(ConvForms, StrideTwoRowMatchesPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::conv3x3_s2_row);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int64_t n = 1; n < 70; n += (n < 20 ? 1 : 7)) {
      for (bool acc : {false, true}) {
        // Exactly 2n + 1 readable floats per row: the forms must not read past them.
        std::vector<float> r0 = rand_vec(size_t(2 * n + 1), uint32_t(n)), r1 = rand_vec(size_t(2 * n + 1), 77),
                           r2 = rand_vec(size_t(2 * n + 1), 78), k = rand_vec(9, 6);
        auto ref = rand_vec(size_t(n), 10), got = ref;
        oru::conv3x3_s2_row_plain(ref.data(), n, r0.data(), r1.data(), r2.data(), k.data(), acc);
        fn(got.data(), n, r0.data(), r1.data(), r2.data(), k.data(), acc);
        EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n;
      }
    }
  });
}

TEST(ConvForms, PointwiseBlockMatchesPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::pointwise_block);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int oc = 1; oc <= 4; ++oc)
      for (int ic = 1; ic <= 4; ++ic)
        for (int64_t n : {1, 3, 4, 7, 8, 15, 16, 17, 33, 50}) {
          auto in = rand_vec(size_t(4 * n), uint32_t(n * 3 + ic)), w = rand_vec(16, uint32_t(oc));
          auto ref = rand_vec(size_t(4 * n), 11), got = ref;
          oru::pointwise_block_plain(ref.data(), n, in.data(), n, w.data(), 4, oc, ic, n);
          fn(got.data(), n, in.data(), n, w.data(), 4, oc, ic, n);
          EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " oc " << oc << " ic " << ic << " n " << n;
        }
  });
}

TEST(ConvForms, BiasActivationLineMatchesPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::bias_act_line);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int act = 0; act <= 7; ++act)
      for (int64_t n : {1, 4, 8, 15, 16, 31, 32, 33, 47, 100}) {
        auto x = rand_vec(size_t(n), uint32_t(n + act));
        x[0] = -0.0f;
        if (n > 2) x[2] = -3.0f;
        std::vector<float> ref(static_cast<size_t>(n)), got(static_cast<size_t>(n));
        oru::bias_act_line_plain(ref.data(), x.data(), 0.25f, n, act);
        fn(got.data(), x.data(), 0.25f, n, act);
        EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " act " << act << " n " << n;
        // In place gives the same.
        fn(x.data(), x.data(), 0.25f, n, act);
        EXPECT_TRUE(same_bits(ref, x)) << oru::isa_name(isa) << " in place, act " << act;
      }
  });
}

}  // namespace
