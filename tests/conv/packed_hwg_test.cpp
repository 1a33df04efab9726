// The packed HWG kernel family and the layout conversions: every vector form of every member
// against its plain twin on random planes (fused multiply-adds in one order, so bit for bit),
// the exported members and convolutions against the plain form, every conversion against
// NumPy's transposes (tests/oracles/hwg_reference.py), and the refusals with their one report.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <utility>
#include <string>

#include "conv_case_file.h"
#include "core/oru_dispatch.h"
#include "kernels/packed_hwg/oru_hwg_kernels.h"

using namespace conv_test;

namespace {

struct Member {
  const char *name;
  int family, o, i;
  oru::HwgKernel exported;
};

#define M(fam, name, o, i) {#name, oru::fam, oru::hwg_width_index(o), oru::hwg_width_index(i), &name}
const Member kMembers[] = {
    M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o8i8_real32, 8, 8), M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o8i4_real32, 8, 4),
    M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o8i1_real32, 8, 1), M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o4i8_real32, 4, 8),
    M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o4i4_real32, 4, 4), M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o4i1_real32, 4, 1),
    M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o1i8_real32, 1, 8), M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o1i4_real32, 1, 4),
    M(hwg_std_1x1_s1, oru_std_conv2d_1x1_s1_o1i1_real32, 1, 1),
    M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o8i8_real32, 8, 8), M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o8i4_real32, 8, 4),
    M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o8i1_real32, 8, 1), M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o4i8_real32, 4, 8),
    M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o4i4_real32, 4, 4), M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o4i1_real32, 4, 1),
    M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o1i8_real32, 1, 8), M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o1i4_real32, 1, 4),
    M(hwg_std_3x3_s1, oru_std_conv2d_3x3_s1_o1i1_real32, 1, 1),
    M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o8i8_real32, 8, 8), M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o8i4_real32, 8, 4),
    M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o8i1_real32, 8, 1), M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o4i8_real32, 4, 8),
    M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o4i4_real32, 4, 4), M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o4i1_real32, 4, 1),
    M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o1i8_real32, 1, 8), M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o1i4_real32, 1, 4),
    M(hwg_std_3x3_s2, oru_std_conv2d_3x3_s2_o1i1_real32, 1, 1),
    M(hwg_dw_3x3_s1, oru_depthwise_conv2d_3x3_s1_o8i8_real32, 8, 8),
    M(hwg_dw_3x3_s1, oru_depthwise_conv2d_3x3_s1_o4i4_real32, 4, 4),
    M(hwg_dw_3x3_s1, oru_depthwise_conv2d_3x3_s1_o1i1_real32, 1, 1),
    M(hwg_dw_3x3_s2, oru_depthwise_conv2d_3x3_s2_o8i8_real32, 8, 8),
    M(hwg_dw_3x3_s2, oru_depthwise_conv2d_3x3_s2_o4i4_real32, 4, 4),
    M(hwg_dw_3x3_s2, oru_depthwise_conv2d_3x3_s2_o1i1_real32, 1, 1),
};
#undef M

bool same_values(const std::vector<float> &a, const std::vector<float> &b) {
  if (a.size() != b.size()) return false;
  for (size_t k = 0; k < a.size(); ++k)
    if (!(a[k] == b[k])) return false;
  return true;
}

// One random plane pair for a member: the output starts non-zero, so standard members must
// add into it and depthwise ones must overwrite it.
struct Plane {
  int32_t in_w, in_h, out_w, out_h;
  std::vector<float> in, w, out;
};

Plane make_plane(const Member &m, int32_t in_w, int32_t in_h, uint32_t seed) {
  const int o = oru::hwg_width_of(m.o), i = oru::hwg_width_of(m.i);
  const int s = m.family == oru::hwg_std_3x3_s2 || m.family == oru::hwg_dw_3x3_s2 ? 2 : 1;
  const int taps = m.family == oru::hwg_std_1x1_s1 ? 1 : 9;
  const bool dw = m.family >= oru::hwg_dw_3x3_s1;
  Plane p{in_w, in_h, (in_w - 1) / s + 1, (in_h - 1) / s + 1, {}, {}, {}};
  p.in = oru_test::random_values<float>(size_t(in_w) * in_h * i, -2, 2, seed);
  p.w = oru_test::random_values<float>(size_t(dw ? o : o * i) * taps, -1, 1, seed + 1);
  p.out = oru_test::random_values<float>(size_t(p.out_w) * p.out_h * o, -3, 3, seed + 2);
  return p;
}

void run_member(oru::HwgKernel k, const Member &m, Plane &p) {
  const int o = oru::hwg_width_of(m.o), i = oru::hwg_width_of(m.i);
  k(p.out.data(), p.out_h, p.out_w * o, p.in.data(), p.in_h, p.in_w * i, p.w.data());
}

TEST(HwgKernels, EveryFormOfEveryMemberMatchesPlainAndTheExportedName) {
  std::mt19937 gen(11);
  std::uniform_int_distribution<int> extent(1, 29);
  int compared = 0;
  for (const Member &m : kMembers) {
    auto forms = oru::hwg_kernel_forms(m.family, m.o, m.i);
    ASSERT_NE(forms.plain, nullptr) << m.name;
    for (int trial = 0; trial < 12; ++trial) {
      const int32_t w = trial < 3 ? trial + 1 : extent(gen), h = trial < 3 ? 3 - trial : extent(gen);
      const Plane base = make_plane(m, w, h, uint32_t(100 * trial + m.family * 10 + m.o * 3 + m.i));
      Plane ref = base;
      run_member(forms.plain, m, ref);
      oru::for_each_runnable_form(forms, [&](oru::Isa isa, oru::HwgKernel fn) {
        Plane got = base;
        run_member(fn, m, got);
        EXPECT_TRUE(same_values(ref.out, got.out)) << m.name << " " << oru::isa_name(isa) << " " << w << "x" << h;
        ++compared;
      });
      Plane exported = base;
      run_member(m.exported, m, exported);
      EXPECT_TRUE(same_values(ref.out, exported.out)) << m.name << " " << w << "x" << h;
    }
  }
  EXPECT_GE(compared, int(sizeof kMembers / sizeof kMembers[0]) * 12);
}

// The all-input-groups kernels of output 8-groups, alone and in pairs, against the plain form
// (member calls one input group after another) on random planes and channel counts.
TEST(HwgKernels, GroupKernelsMatchTheMemberCalls) {
  std::mt19937 gen(23);
  std::uniform_int_distribution<int> extent(1, 26), chans(1, 40);
  int compared = 0;
  for (int pair = 0; pair < 2; ++pair)
    for (int family = 0; family < 3; ++family) {
      auto forms = oru::hwg_group_kernel_forms(pair, family);
      const int s = family == oru::hwg_std_3x3_s2 ? 2 : 1, taps = family == oru::hwg_std_1x1_s1 ? 1 : 9;
      for (int trial = 0; trial < 10; ++trial) {
        const int32_t in_w = trial == 0 ? 1 : extent(gen), in_h = trial == 0 ? 2 : extent(gen);
        const int32_t in_c = trial < 4 ? int32_t(std::vector<int>{1, 13, 8, 33}[size_t(trial)]) : chans(gen);
        const int32_t out_w = (in_w - 1) / s + 1, out_h = (in_h - 1) / s + 1, groups = pair ? 2 : 1;
        const int64_t plane = int64_t(out_w) * out_h * 8;
        const auto in = oru_test::random_values<float>(size_t(in_w) * in_h * in_c, -2, 2, uint32_t(trial + 7));
        const auto w = oru_test::random_values<float>(size_t(groups * 8 * in_c * taps), -1, 1, uint32_t(trial + 9));
        const auto start = oru_test::random_values<float>(size_t(groups * plane + 5), -3, 3, uint32_t(trial));
        std::vector<float> scratch(size_t(taps * in_c * 16)), ref = start;
        const float *w1 = pair ? w.data() + 8 * in_c * taps : nullptr;
        forms.plain(ref.data(), plane + 5, out_h, out_w, in.data(), in_h, in_w, in_c, w.data(), w1, scratch.data());
        oru::for_each_runnable_form(forms, [&](oru::Isa isa, oru::HwgGroupKernel fn) {
          std::vector<float> got = start;
          fn(got.data(), plane + 5, out_h, out_w, in.data(), in_h, in_w, in_c, w.data(), w1, scratch.data());
          EXPECT_TRUE(same_values(ref, got)) << oru::isa_name(isa) << " pair " << pair << " family " << family << " "
                                             << in_w << "x" << in_h << " c " << in_c;
          ++compared;
        });
      }
    }
  EXPECT_GE(compared, 60);
}

TEST(HwgKernels, GroupBiasPassMatchesPlainForEveryActivation) {
  auto forms = ORU_KERNEL_FORMS(oru::hwg_bias_act);
  int compared = 0;
  oru::for_each_runnable_form(forms, [&](oru::Isa isa, auto fn) {
    for (int g : {8, 4})
      for (int act = 0; act <= 6; ++act)
        for (int64_t pixels : {1, 2, 3, 5, 16, 37}) {
          const auto x = oru_test::random_values<float>(size_t(pixels * g), -8, 8, uint32_t(pixels + act));
          const auto b = oru_test::random_values<float>(8, -2, 2, uint32_t(g));
          std::vector<float> ref(x.size()), got(x.size());
          oru::hwg_bias_act_plain(ref.data(), x.data(), b.data(), g, pixels, act);
          fn(got.data(), x.data(), b.data(), g, pixels, act);
          EXPECT_TRUE(same_values(ref, got)) << oru::isa_name(isa) << " g " << g << " act " << act << " " << pixels;
          ++compared;
        }
  });
  EXPECT_GE(compared, 84);
}

TEST(HwgKernels, GroupInterleavingMatchesPlainAndRoundTrips) {
  auto in_forms = ORU_KERNEL_FORMS(oru::hwg_interleave);
  auto out_forms = ORU_KERNEL_FORMS(oru::hwg_deinterleave);
  int compared = 0;
  for (int g : {8, 4})
    for (int64_t plane : {1, 3, 4, 7, 16, 61}) {
      const auto planes = oru_test::random_values<float>(size_t(plane * g), -1, 1, uint32_t(plane * g));
      std::vector<float> ref(planes.size()), back(planes.size());
      oru::hwg_interleave_plain(ref.data(), planes.data(), g, plane);
      oru::for_each_runnable_form(in_forms, [&](oru::Isa isa, auto fn) {
        std::vector<float> got(planes.size());
        fn(got.data(), planes.data(), g, plane);
        EXPECT_EQ(got, ref) << oru::isa_name(isa) << " g " << g << " plane " << plane;
        ++compared;
      });
      oru::for_each_runnable_form(out_forms, [&](oru::Isa isa, auto fn) {
        fn(back.data(), ref.data(), g, plane);
        EXPECT_EQ(back, planes) << oru::isa_name(isa) << " g " << g << " plane " << plane;
      });
    }
  EXPECT_GE(compared, 12);
}

// The arithmetic the family fixes, written out for one o4i4 pixel: the taps per lane by fused
// multiply-add, then the lanes in pairs, then the add into the output.
TEST(HwgKernels, FourByFourSumsLanesInPairsAfterTheTaps) {
  // A 1 x 1 plane: only the centre tap (index 4) reads the input.
  float in[4] = {1e8f, 1.0f, -1e8f, 3.0f}, w[4 * 9 * 4] = {};
  for (int a = 0; a < 4; ++a)
    for (int b = 0; b < 4; ++b) w[(a * 9 + 4) * 4 + b] = 1.0f;
  float out[4] = {0.5f, 0.5f, 0.5f, 0.5f};
  oru_std_conv2d_3x3_s1_o4i4_real32(out, 1, 4, in, 1, 4, w);
  // In pairs (1e8 + 1) + (-1e8 + 3) rounds to 0; a running sum over the lanes would give 3.
  for (float v : out) EXPECT_EQ(v, 0.5f);
}

// With one tap the pair add fuses with the second product: (1 + 2^-11) - (1 + 2^-12)^2 keeps
// its -2^-24 instead of rounding the product first and giving 0.
TEST(HwgKernels, OneByOnePairsFuseTheSecondProduct) {
  const float tiny = std::ldexp(1.0f, -24);
  const std::pair<oru::HwgKernel, int> members[] = {{&oru_std_conv2d_1x1_s1_o8i8_real32, 8},
                                                    {&oru_std_conv2d_1x1_s1_o4i4_real32, 4},
                                                    {&oru_std_conv2d_1x1_s1_o1i8_real32, 1},
                                                    {&oru_std_conv2d_1x1_s1_o1i4_real32, 1}};
  for (auto [member, o] : members) {
    const int i = member == &oru_std_conv2d_1x1_s1_o4i4_real32 || member == &oru_std_conv2d_1x1_s1_o1i4_real32 ? 4 : 8;
    std::vector<float> in(size_t(i), 0.0f), w(size_t(o * i), 0.0f), out(size_t(o), 0.0f);
    in[0] = 1.0f + std::ldexp(1.0f, -11);
    in[1] = 1.0f + std::ldexp(1.0f, -12);
    for (int a = 0; a < o; ++a) {
      w[size_t(a * i)] = 1.0f;
      w[size_t(a * i + 1)] = -(1.0f + std::ldexp(1.0f, -12));
    }
    member(out.data(), 1, o, in.data(), 1, i, w.data());
    for (float v : out) EXPECT_EQ(v, -tiny) << o << "x" << i;
  }
}

TEST(HwgPacking, WeightsAndDataFollowTheGroupOrder) {
  // 13 inputs and 5 outputs: blocks o4 x (i8, i4, i1), then o1 x (i8, i4, i1).
  const int ic = 13, oc = 5, taps = 9;
  std::vector<float> src(size_t(ic * oc * taps)), dst(src.size(), -1.0f);
  for (size_t k = 0; k < src.size(); ++k) src[k] = float(k);
  oru_pack_std_weight_chw_to_hwg_real32(dst.data(), src.data(), ic, oc, 3, 3);
  auto w = [&](int o, int i, int t) { return float((o * ic + i) * taps + t); };
  int at = 0;
  for (int o0 : {0, 4})
    for (int i0 : {0, 8, 12}) {
      const int go = o0 == 0 ? 4 : 1, gi = i0 == 0 ? 8 : i0 == 8 ? 4 : 1;
      for (int a = 0; a < go; ++a)
        for (int t = 0; t < taps; ++t)
          for (int b = 0; b < gi; ++b) ASSERT_EQ(dst[size_t(at + (a * taps + t) * gi + b)], w(o0 + a, i0 + b, t));
      at += go * gi * taps;
    }
  // Depthwise: per group, per tap, the group's channels side by side.
  std::vector<float> dsrc(size_t(ic * taps)), ddst(dsrc.size());
  for (size_t k = 0; k < dsrc.size(); ++k) dsrc[k] = float(k);
  oru_pack_depthwise_weight_chw_to_hwg_real32(ddst.data(), dsrc.data(), ic, ic, 3, 3);
  for (int c0 : {0, 8, 12}) {
    const int g = c0 == 0 ? 8 : c0 == 8 ? 4 : 1;
    for (int t = 0; t < taps; ++t)
      for (int j = 0; j < g; ++j) ASSERT_EQ(ddst[size_t(c0 * taps + t * g + j)], float((c0 + j) * taps + t));
  }
}

// The layout cases of NumPy: CHW, NHWC, HWG, NDHWC4 forms of the same data.
std::vector<std::vector<Array>> load_layouts() {
  CaseReader r("hwg/layout_cases.bin", "ORULAY01");
  std::vector<std::vector<Array>> out;
  int32_t count = 0;
  if (!r.ok() || !r.take(&count, 4)) return out;
  for (int32_t k = 0; k < count; ++k) {
    std::vector<Array> set(4);
    for (Array &a : set)
      if (!r.take_array(a)) return out;
    out.push_back(std::move(set));
  }
  return out;
}

TEST(LayoutConversions, EveryDirectionEqualsNumPyAndRoundTripsExactly) {
  auto cases = load_layouts();
  ASSERT_EQ(cases.size(), 7u);
  for (const auto &set : cases) {
    const Array &chw = set[0], &nhwc = set[1], &hwg = set[2], &ndhwc4 = set[3];
    SCOPED_TRACE(::testing::Message() << "C " << chw.dims[2] << " H " << chw.dims[1] << " W " << chw.dims[0]);
    TensorPtr src = make_tensor(chw.dims, chw.values), a = make_tensor(chw.dims), b = make_tensor(chw.dims);
    // CHW -> NHWC, CHW -> HWG and back, HWG -> NHWC.
    ASSERT_EQ(oru_tensor_convert_NCHW2NHWC(a.get(), src.get()), 0u);
    EXPECT_EQ(values_of(a.get()), nhwc.values);
    EXPECT_EQ(a->channel_layout, ORU_LAYOUT_NHWC);
    ASSERT_EQ(oru_tensor_pack_data_chw_to_hwg(a.get(), src.get()), 0u);
    EXPECT_EQ(values_of(a.get()), hwg.values);
    EXPECT_EQ(a->channel_layout, ORU_LAYOUT_HWG);
    ASSERT_EQ(oru_tensor_pack_data_hwg_to_chw(b.get(), a.get()), 0u);
    EXPECT_EQ(values_of(b.get()), chw.values);
    EXPECT_EQ(b->channel_layout, ORU_LAYOUT_CHW);
    ASSERT_EQ(oru_tensor_convert_NHWG2NCHW(b.get(), a.get()), 0u);
    EXPECT_EQ(values_of(b.get()), chw.values);
    ASSERT_EQ(oru_tensor_convert_NHWG2NHWC(b.get(), a.get()), 0u);
    EXPECT_EQ(values_of(b.get()), nhwc.values);
    EXPECT_EQ(b->channel_layout, ORU_LAYOUT_NHWC);
    // CHW -> NDHWC4 with zero lanes, and back with the channel count.
    TensorPtr slices = make_tensor(ndhwc4.dims), back = make_tensor(chw.dims);
    ASSERT_EQ(oru_tensor_convert_NCHW2NDHWC4_real32(slices.get(), src.get()), 0u);
    EXPECT_EQ(values_of(slices.get()), ndhwc4.values);
    EXPECT_EQ(slices->channel_layout, ORU_LAYOUT_NDHWC4);
    ASSERT_EQ(oru_tensor_convert_NDHWC42NCHW_real32(back.get(), slices.get(), chw.dims[2]), 0u);
    EXPECT_EQ(values_of(back.get()), chw.values);
    EXPECT_EQ(back->channel_layout, ORU_LAYOUT_CHW);
    // Refusals change nothing: a source in the wrong layout, a channel count that doesn't fit.
    std::vector<float> before = values_of(b.get());
    EXPECT_EQ(oru_tensor_convert_NHWG2NCHW(b.get(), src.get()), ORU_RET_ERR_PARA);
    EXPECT_EQ(oru_tensor_convert_NCHW2NHWC(b.get(), a.get()), ORU_RET_ERR_PARA);
    EXPECT_EQ(oru_tensor_convert_NDHWC42NCHW_real32(back.get(), slices.get(), chw.dims[2] + 1), ORU_RET_ERR_PARA);
    EXPECT_EQ(oru_tensor_convert_NCHW2NDHWC4_real32(slices.get(), a.get()), ORU_RET_ERR_PARA);
    EXPECT_EQ(values_of(b.get()), before);
  }
  TensorPtr one = make_tensor({2, 2, 1}), two = make_tensor({2, 2, 2});
  EXPECT_EQ(oru_tensor_pack_data_chw_to_hwg(one.get(), two.get()), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_pack_data_chw_to_hwg(nullptr, two.get()), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_tensor_convert_NCHW2NHWC(one.get(), two.get()), ORU_RET_ERR_PARA);
}

oru_conv2d_params hwg_params(int ic, int oc, int k, int s, bool dw) {
  oru_conv2d_params p{};
  p.in_channels = ic;
  p.out_channels = oc;
  p.kernel_w = p.kernel_h = k;
  p.stride_w = p.stride_h = s;
  p.pad_w = p.pad_h = k / 2;
  p.dilation_w = p.dilation_h = 1;
  p.groups = dw ? ic : 1;
  return p;
}

struct InfoDeleter {
  void operator()(oru_conv2d_hwg_info *i) const { oru_release_conv2d_hwg_calc_info(&i); }
};
using InfoPtr = std::unique_ptr<oru_conv2d_hwg_info, InfoDeleter>;

TEST(HwgConvolution, RefusesShapesOutsideTheFamilyWithOneReport) {
  TensorPtr in = make_tensor({6, 5, 3}, oru_test::random_values<float>(90, -1, 1, 4)), out = make_tensor({6, 5, 4});
  TensorPtr w = make_tensor({3 * 4 * 25}, oru_test::random_values<float>(300, -1, 1, 5));
  const uint32_t workers = 40;
  struct Refusal {
    oru_conv2d_params p;
    int form;  // 0 standard, 1 depthwise, 2 pointwise
    uint32_t status;
  };
  oru_conv2d_params five = hwg_params(3, 4, 5, 1, false), three = hwg_params(3, 4, 3, 3, false),
                    unequal = hwg_params(3, 4, 3, 1, false), padded = hwg_params(3, 4, 3, 1, false),
                    wrong_c = hwg_params(5, 4, 3, 1, false), point_s2 = hwg_params(3, 4, 1, 2, false);
  unequal.stride_h = 2;
  padded.pad_w = 0;
  const Refusal refusals[] = {{five, 0, ORU_RET_ERR_NOT_SUPPORT},     {three, 0, ORU_RET_ERR_NOT_SUPPORT},
                              {unequal, 0, ORU_RET_ERR_NOT_SUPPORT},  {padded, 0, ORU_RET_ERR_NOT_SUPPORT},
                              {five, 1, ORU_RET_ERR_NOT_SUPPORT},     {point_s2, 2, ORU_RET_ERR_NOT_SUPPORT},
                              {wrong_c, 0, ORU_RET_ERR_PARA},         {hwg_params(3, 4, 3, 1, false), 1, ORU_RET_ERR_PARA}};
  for (const Refusal &r : refusals) {
    InfoPtr info(oru_create_conv2d_hwg_calc_info(in.get(), w.get(), &r.p, &workers));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->workers, 16u);
    std::vector<float> before = values_of(out.get());
    testing::internal::CaptureStdout();
    uint32_t st = r.form == 0   ? oru_tensor_std_conv2d_hwg(out.get(), in.get(), w.get(), &r.p, info.get())
                  : r.form == 1 ? oru_tensor_depthwise_conv2d_hwg(out.get(), in.get(), w.get(), &r.p, info.get())
                                : oru_tensor_pointwise_conv2d_hwg(out.get(), in.get(), w.get(), &r.p, info.get());
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(st, r.status) << r.p.kernel_w << " " << r.p.stride_w << " form " << r.form;
    EXPECT_EQ(reports_in(printed), 1) << printed;
    EXPECT_EQ(values_of(out.get()), before);
  }
  oru_conv2d_params ok = hwg_params(3, 4, 3, 1, false);
  // Elements other than aif32: refused with one report, the output untouched.
  const int32_t dims[3] = {6, 5, 3};
  oru_tensor *doubles = oru_create_tensor(3, dims, aif64);
  InfoPtr info(oru_create_conv2d_hwg_calc_info(in.get(), w.get(), &ok, &workers));
  std::vector<float> before = values_of(out.get());
  testing::internal::CaptureStdout();
  const uint32_t st = oru_tensor_std_conv2d_hwg(out.get(), doubles, w.get(), &ok, info.get());
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(st, ORU_RET_ERR_PARA);
  EXPECT_EQ(reports_in(printed), 1);
  EXPECT_EQ(values_of(out.get()), before);
  oru_release_tensor(&doubles);
  EXPECT_EQ(oru_create_conv2d_hwg_calc_info(in.get(), nullptr, &ok, &workers), nullptr);
  EXPECT_EQ(oru_tensor_std_conv2d_hwg(out.get(), in.get(), w.get(), nullptr, nullptr), ORU_RET_ERR_PARA);
  oru_conv2d_hwg_info *none = nullptr;
  EXPECT_EQ(oru_release_conv2d_hwg_calc_info(&none), ORU_RET_ERR_PARA);
}

}  // namespace
