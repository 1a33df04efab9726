// Every vector form of the convolution row kernels against its plain twin, on random
// lengths that reach every tail. Every form fuses the same multiply-adds in the same order, so they
// must agree bit for bit.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "conv/oru_conv_internal.h"
#include "core/oru_dispatch.h"
#include "oru_test_util.h"

namespace {

std::vector<float> rand_vec(size_t n, uint32_t seed) { return oru_test::random_values<float>(n, -4.0, 4.0, seed); }

// No epilogue, and the bias with each kind of activation (tanh through its scalar lanes).
std::vector<oru::Epilogue> epilogues(const std::vector<float> &bias) {
  std::vector<oru::Epilogue> e{{nullptr, 0}};
  for (int act : {oru::act_none, oru::act_relu, oru::act_hswish, oru::act_relu6, oru::act_leaky, oru::act_tanh})
    e.push_back({bias.data(), act});
  return e;
}

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

TEST(ConvForms, DepthwiseRowsMatchPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::dw3x3_s1_rows);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int64_t n : {1, 3, 8, 15, 16, 17, 33, 40})
      for (int nrows = 1; nrows <= 4; ++nrows) {
        // Input rows need n + 2 readable floats; output rows are n + 1 apart (a guard float).
        std::vector<std::vector<float>> data;
        std::vector<const float *> rows;
        for (int j = 0; j < nrows + 2; ++j) {
          data.push_back(rand_vec(size_t(n + 2), uint32_t(j * 31 + n)));
          rows.push_back(data.back().data());
        }
        auto k = rand_vec(9, uint32_t(n)), bias = rand_vec(1, uint32_t(n + 1));
        for (const oru::Epilogue &e : epilogues(bias)) {
          auto ref = rand_vec(size_t(4 * (n + 1)), 5), got = ref;
          oru::dw3x3_s1_rows_plain(ref.data(), n + 1, nrows, n, rows.data(), k.data(), e);
          fn(got.data(), n + 1, nrows, n, rows.data(), k.data(), e);
          EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " rows " << nrows << " act " << e.act;
        }
      }
  });
}

TEST(ConvForms, DepthwiseStrideTwoRowsAndSplitMatchPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::dw3x3_s2_rows);
  auto splits = ORU_KERNEL_FORMS(oru::deinterleave);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int64_t n : {1, 3, 8, 15, 16, 17, 33, 40})
      for (int nrows = 1; nrows <= 4; ++nrows) {
        // Even columns need n + 1 readable floats, odd ones n; output rows n + 1 apart.
        std::vector<std::vector<float>> data;
        std::vector<const float *> rows;
        for (int j = 0; j < 2 * (2 * nrows + 1); ++j) {
          data.push_back(rand_vec(size_t(j % 2 == 0 ? n + 1 : n), uint32_t(j * 29 + n)));
          rows.push_back(data.back().data());
        }
        auto k = rand_vec(9, uint32_t(n + 7)), bias = rand_vec(1, uint32_t(n + 2));
        for (const oru::Epilogue &e : epilogues(bias)) {
          auto ref = rand_vec(size_t(4 * (n + 1)), 6), got = ref;
          oru::dw3x3_s2_rows_plain(ref.data(), n + 1, nrows, n, rows.data(), k.data(), e);
          fn(got.data(), n + 1, nrows, n, rows.data(), k.data(), e);
          EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " rows " << nrows << " act " << e.act;
        }
      }
  });
  oru::for_each_runnable_form(splits, [&](oru::Isa isa, auto fn) {
    for (int64_t n : {0, 1, 7, 8, 16, 17, 40}) {
      auto src = rand_vec(size_t(2 * n), uint32_t(n));
      std::vector<float> even(size_t(n + 1), 9.0f), odd(size_t(n + 1), 9.0f);
      fn(even.data(), odd.data(), src.data(), n);
      for (int64_t j = 0; j < n; ++j) {
        ASSERT_EQ(even[size_t(j)], src[size_t(2 * j)]) << oru::isa_name(isa) << " n " << n;
        ASSERT_EQ(odd[size_t(j)], src[size_t(2 * j + 1)]) << oru::isa_name(isa) << " n " << n;
      }
      EXPECT_EQ(even[size_t(n)], 9.0f) << oru::isa_name(isa) << " wrote past the end";
      EXPECT_EQ(odd[size_t(n)], 9.0f) << oru::isa_name(isa) << " wrote past the end";
    }
  });
}

TEST(ConvForms, StrideTwoMultiChannelRowMatchesPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::conv3x3_s2_multi);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int64_t n : {1, 2, 4, 7, 8, 9, 15, 16, 17, 33, 64, 79}) {
      for (int64_t ic : {1, 3, 4})
      for (int oc : {1, 2, 3, 5}) {
        // Even rows need n + 1 readable floats, odd rows n.
        std::vector<std::vector<float>> data;
        std::vector<const float *> rows;
        for (int64_t j = 0; j < ic * 6; ++j) {
          data.push_back(rand_vec(size_t(j % 2 == 0 ? n + 1 : n), uint32_t(j * 17 + n)));
          rows.push_back(data.back().data());
        }
        auto k = rand_vec(size_t(oc * ic * 9), uint32_t(ic + 40)), bias = rand_vec(size_t(oc), uint32_t(oc));
        for (const oru::Epilogue &e : epilogues(bias)) {
          // Output rows one float apart more than n: the guard between them must stay.
          auto ref = rand_vec(size_t(oc * (n + 1)), 4), got = ref;
          oru::conv3x3_s2_multi_plain(ref.data(), n + 1, oc, n, rows.data(), ic, k.data(), e);
          fn(got.data(), n + 1, oc, n, rows.data(), ic, k.data(), e);
          EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " n " << n << " ic " << ic << " oc " << oc
                                           << " act " << e.act;
        }
      }
    }
  });
}

TEST(ConvForms, PointwisePlanesMatchPlain) {
  auto forms = ORU_KERNEL_FORMS(oru::pointwise_planes);
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int oc : {1, 3, 4, 7, 8, 9, 17})
      for (int ic : {1, 2, 5, 16})
        for (int64_t n : {1, 3, 8, 15, 16, 17, 33, 47, 48, 50, 97}) {
          // Planes one float longer than n: the guard after each output plane must stay.
          const int64_t plane = n + 1;
          auto in = rand_vec(size_t(ic * plane), uint32_t(n * 3 + ic)), w = rand_vec(size_t(oc * ic), uint32_t(oc));
          auto bias = rand_vec(size_t(oc), uint32_t(ic));
          for (const oru::Epilogue &e : epilogues(bias)) {
            auto ref = rand_vec(size_t(oc * plane), 11), got = ref;
            oru::pointwise_planes_plain(ref.data(), plane, in.data(), plane, w.data(), ic, oc, ic, n, e);
            fn(got.data(), plane, in.data(), plane, w.data(), ic, oc, ic, n, e);
            EXPECT_TRUE(same_bits(ref, got)) << oru::isa_name(isa) << " oc " << oc << " ic " << ic << " n " << n
                                             << " act " << e.act;
          }
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
