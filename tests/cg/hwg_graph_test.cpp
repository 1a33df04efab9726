// Conv method 1 and the sampling operator end to end through the graph: every served shape
// against PyTorch (tests/oracles/hwg_reference.py) with the input in CHW and in HWG, the three
// methods against each other, a chain that interleaves once, refusals with one report, and
// sampling against PyTorch's interpolate and a NumPy model of the library's border arithmetic.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "../conv/conv_case_file.h"
#include "kernels/sampling/oru_sample_kernels.h"

using namespace conv_test;

namespace {

struct GraphDeleter {
  void operator()(oru_cg_handle *h) const { oru_release_computation_graph_handle(&h); }
};
using GraphPtr = std::unique_ptr<oru_cg_handle, GraphDeleter>;

// The input (node 0) through a chain of operators (nodes 1 to n), then the weight nodes of the
// operators that have weights, in order (node ids must run from 0 without gaps).
struct Chain {
  GraphPtr graph;
  TensorPtr input;
  std::vector<TensorPtr> weights;
  uint32_t bind_status = 0, prepare_status = 0;

  // One conv method for the whole graph, or one per operator (methods.size() == ops.size()).
  Chain(uint32_t method, TensorPtr in, const std::vector<int32_t> &ops, const std::vector<const void *> &params,
        const std::vector<std::vector<float>> &words, const std::vector<uint32_t> &methods = {}) {
    graph.reset(oru_create_computation_graph_handle(nullptr));
    input = std::move(in);
    int32_t next = int32_t(ops.size()) + 1;
    for (const auto &w : words) weight_ids.push_back(w.empty() ? -1 : next++);
    oru_cg_handle *h = graph.get();
    EXPECT_EQ(oru_cg_set_conv_method(h, method), 0u);
    for (size_t k = 0; k < ops.size(); ++k) {
      const int32_t node = int32_t(1 + k);
      EXPECT_EQ(oru_add_one_edge_into_computation_graph(h, k == 0 ? 0 : node - 1, node), 0u);
      if (!words[k].empty()) {
        EXPECT_EQ(oru_add_one_edge_into_computation_graph(h, weight_node(k), node), 0u);
      }
    }
    EXPECT_EQ(oru_computation_graph_topo_sort(h), 0u);
    oru_cg_node_desc in_desc{ORU_CG_OP_INPUT, input.get()};
    EXPECT_EQ(oru_bind_operator_onto_computation_graph(h, 0, &in_desc, nullptr), 0u);
    for (size_t k = 0; k < ops.size(); ++k) {
      if (!words[k].empty()) {
        weights.push_back(make_tensor({int32_t(words[k].size())}, words[k]));
        oru_cg_node_desc w_desc{ORU_CG_OP_WEIGHT, weights.back().get()};
        EXPECT_EQ(oru_bind_operator_onto_computation_graph(h, weight_node(k), &w_desc, nullptr), 0u);
      }
      if (!methods.empty()) {
        EXPECT_EQ(oru_cg_set_conv_method(h, methods[k]), 0u);
      }
      oru_cg_node_desc op_desc{ops[k], nullptr};
      const uint32_t st = oru_bind_operator_onto_computation_graph(h, int32_t(1 + k), &op_desc, params[k]);
      if (st && !bind_status) bind_status = st;
    }
    if (bind_status == 0) prepare_status = oru_prepare_inference_computation(h);
  }
  std::vector<int32_t> weight_ids;
  int32_t weight_node(size_t k) const { return weight_ids[k]; }
  oru_tensor *output(int32_t node) { return oru_get_computation_node_inference_data(graph.get(), node); }
  uint32_t run() { return oru_computation_graph_inference(graph.get()); }
};

int32_t op_for(const Case &c) {
  if (c.kind == 2) return ORU_CG_OP_CONV2D_BN2D_ACT;
  if (c.kind == 3) return ORU_CG_OP_CONV2D_ACT;
  if (c.params.groups > 1) return ORU_CG_OP_DEPTHWISE_CONV2D;
  if (c.params.kernel_w == 1) return ORU_CG_OP_POINTWISE_CONV2D;
  return ORU_CG_OP_STD_CONV2D;
}

struct Record {
  oru_conv2d_params conv;
  int32_t act_word[2];
};

Record record_of(const Case &c) {
  Record r{};
  r.conv = c.params;
  if (c.kind == 2) {
    std::memcpy(&r.act_word[0], &c.bn_eps, 4);
    r.act_word[1] = c.act;
  } else {
    r.act_word[0] = c.act;
  }
  return r;
}

// A CHW tensor, or its HWG form with layout 3.
TensorPtr input_in(const Array &a, bool hwg) {
  TensorPtr chw = make_tensor(a.dims, a.values);
  if (!hwg) return chw;
  TensorPtr t = make_tensor(a.dims);
  EXPECT_EQ(oru_tensor_pack_data_chw_to_hwg(t.get(), chw.get()), 0u);
  return t;
}

// The values of an HWG output in CHW order.
std::vector<float> chw_values_of(const oru_tensor *hwg) {
  TensorPtr t = make_tensor(std::vector<int32_t>(hwg->dims, hwg->dims + hwg->ndims));
  EXPECT_EQ(oru_tensor_convert_NHWG2NCHW(t.get(), hwg), 0u);
  return values_of(t.get());
}

TEST(HwgGraph, EveryServedShapeMatchesPyTorchFromChwAndHwgInput) {
  const std::vector<Case> cases = load_cases("hwg/hwg_cases.bin");
  ASSERT_EQ(cases.size(), 96u);
  for (const Case &c : cases) {
    for (bool hwg_in : {false, true}) {
      SCOPED_TRACE(describe(c) + (hwg_in ? " from HWG" : " from CHW"));
      Record rec = record_of(c);
      Chain g(1, input_in(c.input, hwg_in), {op_for(c)}, {&rec}, {c.weight.values});
      ASSERT_EQ(g.bind_status, 0u);
      ASSERT_EQ(g.prepare_status, 0u);
      ASSERT_EQ(g.run(), 0u);
      oru_tensor *out = g.output(1);
      ASSERT_NE(out, nullptr);
      EXPECT_EQ(out->channel_layout, ORU_LAYOUT_HWG);
      ASSERT_EQ(std::vector<int32_t>(out->dims, out->dims + 3), c.expected.dims);
      EXPECT_LT(max_rel_error(chw_values_of(out), c.expected.values), 2e-5);
    }
  }
}

// Methods 0, 1 and 2 on random shapes that all three serve, with bias.
TEST(HwgGraph, ThreeMethodsAgree) {
  std::mt19937 gen(17);
  std::uniform_int_distribution<int> extent(1, 21), chans(1, 20);
  for (int trial = 0; trial < 50; ++trial) {
    const int kind = trial % 5;  // 3x3 s1, 3x3 s2, depthwise s1, depthwise s2, pointwise
    const bool dw = kind == 2 || kind == 3;
    oru_conv2d_params p{};
    p.in_channels = chans(gen);
    p.out_channels = dw ? p.in_channels : chans(gen);
    p.kernel_w = p.kernel_h = kind == 4 ? 1 : 3;
    p.stride_w = p.stride_h = kind == 1 || kind == 3 ? 2 : 1;
    p.pad_w = p.pad_h = p.kernel_w / 2;
    p.dilation_w = p.dilation_h = 1;
    p.groups = dw ? p.in_channels : 1;
    p.has_bias = 1;
    const int w = extent(gen), h = extent(gen), ic = p.in_channels, oc = p.out_channels;
    Array in{{w, h, ic}, oru_test::random_values<float>(size_t(w * h * ic), -1, 1, 70 + trial)};
    std::vector<float> words =
        oru_test::random_values<float>(size_t((dw ? ic : ic * oc) * p.kernel_w * p.kernel_h + oc), -1, 1, 9 + trial);
    const int32_t op = dw ? ORU_CG_OP_DEPTHWISE_CONV2D : kind == 4 ? ORU_CG_OP_POINTWISE_CONV2D : ORU_CG_OP_STD_CONV2D;
    SCOPED_TRACE(::testing::Message() << "kind " << kind << " " << w << "x" << h << " ic " << ic << " oc " << oc);
    std::vector<float> results[3];
    for (uint32_t method : {0u, 1u, 2u}) {
      Chain g(method, make_tensor(in.dims, in.values), {op}, {&p}, {words});
      ASSERT_EQ(g.prepare_status, 0u);
      ASSERT_EQ(g.run(), 0u);
      results[method] = method == 1 ? chw_values_of(g.output(1)) : values_of(g.output(1));
    }
    EXPECT_LT(max_rel_error(results[1], results[0]), 1e-5);
    EXPECT_LT(max_rel_error(results[1], results[2]), 1e-5);
  }
}

oru_conv2d_params conv3(int ic, int oc, int s, bool dw) {
  oru_conv2d_params p{};
  p.in_channels = ic;
  p.out_channels = oc;
  p.kernel_w = p.kernel_h = 3;
  p.stride_w = p.stride_h = s;
  p.pad_w = p.pad_h = 1;
  p.dilation_w = p.dilation_h = 1;
  p.groups = dw ? ic : 1;
  p.has_bias = 1;
  return p;
}

TEST(HwgGraph, ChainInterleavesOnceAndMatchesTheDirectMethod) {
  oru_conv2d_params a = conv3(3, 13, 2, false), b = conv3(13, 13, 1, true), c = conv3(13, 6, 1, false);
  c.kernel_w = c.kernel_h = 1;
  c.pad_w = c.pad_h = 0;
  const std::vector<std::vector<float>> words = {oru_test::random_values<float>(3 * 13 * 9 + 13, -1, 1, 1),
                                                 oru_test::random_values<float>(13 * 9 + 13, -1, 1, 2),
                                                 oru_test::random_values<float>(13 * 6 + 6, -1, 1, 3)};
  Array in{{17, 12, 3}, oru_test::random_values<float>(17 * 12 * 3, -1, 1, 4)};
  const std::vector<int32_t> ops = {ORU_CG_OP_STD_CONV2D, ORU_CG_OP_DEPTHWISE_CONV2D, ORU_CG_OP_POINTWISE_CONV2D};
  Chain hwg(1, make_tensor(in.dims, in.values), ops, {&a, &b, &c}, words);
  Chain direct(0, make_tensor(in.dims, in.values), ops, {&a, &b, &c}, words);
  ASSERT_EQ(hwg.prepare_status, 0u);
  ASSERT_EQ(direct.prepare_status, 0u);
  ASSERT_EQ(hwg.run(), 0u);
  ASSERT_EQ(direct.run(), 0u);
  EXPECT_EQ(hwg.input->channel_layout, ORU_LAYOUT_CHW);
  for (int32_t node : {1, 2, 3}) {
    EXPECT_EQ(hwg.output(node)->channel_layout, ORU_LAYOUT_HWG) << node;
    EXPECT_EQ(direct.output(node)->channel_layout, ORU_LAYOUT_CHW) << node;
    EXPECT_LT(max_rel_error(chw_values_of(hwg.output(node)), values_of(direct.output(node))), 1e-5) << node;
  }
  // A second run from the same input gives the same bits.
  std::vector<float> first = values_of(hwg.output(3));
  ASSERT_EQ(hwg.run(), 0u);
  EXPECT_EQ(values_of(hwg.output(3)), first);
}

// Direct and im2col nodes behind a packed node take its interleaved output as planes.
TEST(HwgGraph, MixedMethodsReadInterleavedInputAsPlanes) {
  oru_conv2d_params a = conv3(5, 13, 1, false), b = conv3(13, 13, 2, true), c = conv3(13, 9, 1, false);
  struct {
    oru_conv2d_params conv;
    int32_t act;
  } fused{c, 2};
  const std::vector<std::vector<float>> words = {oru_test::random_values<float>(5 * 13 * 9 + 13, -1, 1, 11),
                                                 oru_test::random_values<float>(13 * 9 + 13, -1, 1, 12),
                                                 oru_test::random_values<float>(13 * 9 * 9 + 9, -1, 1, 13)};
  Array in{{11, 9, 5}, oru_test::random_values<float>(11 * 9 * 5, -1, 1, 14)};
  const std::vector<int32_t> ops = {ORU_CG_OP_STD_CONV2D, ORU_CG_OP_DEPTHWISE_CONV2D, ORU_CG_OP_CONV2D_ACT};
  Chain direct(0, make_tensor(in.dims, in.values), ops, {&a, &b, &fused}, words);
  ASSERT_EQ(direct.run(), 0u);
  for (const std::vector<uint32_t> &methods : {std::vector<uint32_t>{1, 0, 2}, std::vector<uint32_t>{1, 2, 0},
                                               std::vector<uint32_t>{1, 1, 0}, std::vector<uint32_t>{1, 1, 2}}) {
    SCOPED_TRACE(::testing::Message() << methods[0] << methods[1] << methods[2]);
    Chain mixed(2, make_tensor(in.dims, in.values), ops, {&a, &b, &fused}, words, methods);
    ASSERT_EQ(mixed.prepare_status, 0u);
    ASSERT_EQ(mixed.run(), 0u);
    for (int32_t node : {1, 2, 3}) {
      const oru_tensor *out = mixed.output(node);
      EXPECT_EQ(out->channel_layout, methods[size_t(node - 1)] == 1 ? ORU_LAYOUT_HWG : ORU_LAYOUT_CHW) << node;
      std::vector<float> got = out->channel_layout == ORU_LAYOUT_HWG ? chw_values_of(out) : values_of(out);
      EXPECT_LT(max_rel_error(got, values_of(direct.output(node))), 1e-5) << node;
    }
  }
}

TEST(HwgGraph, ShapesOutsideTheFamilyAreRefusedAtTheFirstRunWithOneReport) {
  Array in{{9, 7, 4}, oru_test::random_values<float>(9 * 7 * 4, -1, 1, 5)};
  oru_conv2d_params five = conv3(4, 5, 1, false), s3 = conv3(4, 5, 3, false), dil = conv3(4, 5, 1, false);
  five.kernel_w = five.kernel_h = 5;
  five.pad_w = five.pad_h = 2;
  dil.dilation_w = dil.dilation_h = 2;
  dil.pad_w = dil.pad_h = 2;
  oru_conv2d_params dw5 = five;
  dw5.out_channels = dw5.groups = 4;
  struct Refusal {
    int32_t op;
    oru_conv2d_params p;
    uint32_t status;
  } refusals[] = {{ORU_CG_OP_STD_CONV2D, five, ORU_RET_ERR_NOT_SUPPORT},
                  {ORU_CG_OP_STD_CONV2D, s3, ORU_RET_ERR_NOT_SUPPORT},
                  {ORU_CG_OP_DEPTHWISE_CONV2D, dw5, ORU_RET_ERR_NOT_SUPPORT},
                  {ORU_CG_OP_CONV2D_ACT, five, ORU_RET_ERR_NOT_SUPPORT},
                  {ORU_CG_OP_STD_CONV2D, dil, ORU_RET_ERR_NOT_SUPPORT}};
  for (const Refusal &r : refusals) {
    SCOPED_TRACE(::testing::Message() << "op " << r.op << " k " << r.p.kernel_w << " s " << r.p.stride_w);
    const size_t n = size_t(r.p.groups > 1 ? 4 : 4 * r.p.out_channels) * r.p.kernel_w * r.p.kernel_h;
    Record rec{r.p, {1, 0}};
    Chain g(1, make_tensor(in.dims, in.values), {r.op}, {&rec},
            {oru_test::random_values<float>(n + size_t(r.p.out_channels), -1, 1, 6)});
    ASSERT_EQ(g.bind_status, 0u);
    ASSERT_EQ(g.prepare_status, 0u);
    testing::internal::CaptureStdout();
    const uint32_t st = g.run();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(st, r.status);
    EXPECT_EQ(reports_in(printed), 1) << printed;
  }
}

// ---- Sampling ----

struct SampleCase {
  int32_t mode, align;
  float scale_w, scale_h;
  Array input, torch_ref, model;
};

std::vector<SampleCase> load_samples() {
  CaseReader r("hwg/sample_cases.bin", "ORUSMP01");
  std::vector<SampleCase> out;
  int32_t count = 0;
  if (!r.ok() || !r.take(&count, 4)) return out;
  for (int32_t k = 0; k < count; ++k) {
    SampleCase s;
    if (!r.take(&s.mode, 4) || !r.take(&s.align, 4) || !r.take(&s.scale_w, 4) || !r.take(&s.scale_h, 4) ||
        !r.take_array(s.input) || !r.take_array(s.torch_ref) || !r.take_array(s.model))
      break;
    out.push_back(std::move(s));
  }
  return out;
}

TEST(SampleGraph, MatchesInterpolateAndTheModelOfItsBorders) {
  const auto cases = load_samples();
  ASSERT_EQ(cases.size(), 16u);
  for (const SampleCase &s : cases) {
    SCOPED_TRACE(::testing::Message() << "mode " << s.mode << " align " << s.align << " scale " << s.scale_w << ","
                                      << s.scale_h << " in " << s.input.dims[0] << "x" << s.input.dims[1]);
    oru_cg_sample_params p{s.mode, s.scale_w, s.scale_h, 0, s.align};
    Chain g(2, make_tensor(s.input.dims, s.input.values), {ORU_CG_OP_SAMPLE}, {&p}, {{}});
    ASSERT_EQ(g.bind_status, 0u);
    ASSERT_EQ(g.prepare_status, 0u);
    ASSERT_EQ(g.run(), 0u);
    oru_tensor *out = g.output(1);
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(std::vector<int32_t>(out->dims, out->dims + 3), s.model.dims);
    const std::vector<float> got = values_of(out);
    const double torch_tol = s.align == 1 ? 1e-4 : s.mode == 0 ? 0.0 : 1e-5;
    int compared = 0;
    for (size_t k = 0; k < got.size(); ++k) {
      EXPECT_NEAR(got[k], s.model.values[k], 1e-6) << k;
      if (std::isnan(s.torch_ref.values[k])) continue;
      EXPECT_NEAR(got[k], s.torch_ref.values[k], torch_tol) << k;
      ++compared;
    }
    EXPECT_GT(compared, int(got.size()) / 3);
  }
}

// The row kernels of bilinear sampling: every form against the plain one, bit for bit, with
// the single-neighbour tail starting anywhere in the row.
TEST(SampleKernels, EveryFormMatchesPlain) {
  std::mt19937 gen(5);
  int compared = 0;
  for (int64_t n : {1, 5, 8, 16, 17, 40, 67}) {
    const int64_t wi = n / 2 + 2;
    std::uniform_int_distribution<int32_t> col(0, int32_t(wi - 2));
    std::vector<int32_t> ofs(static_cast<size_t>(n));
    for (auto &o : ofs) o = col(gen);
    const auto src = oru_test::random_values<float>(size_t(wi), -4, 4, uint32_t(n));
    const auto a = oru_test::random_values<float>(size_t(n), 0, 1, uint32_t(n + 1));
    const auto b = oru_test::random_values<float>(size_t(n), 0, 1, uint32_t(n + 2));
    const auto h0 = oru_test::random_values<float>(size_t(n), -4, 4, uint32_t(n + 3));
    for (int64_t xmax : {int64_t(0), n / 3, n}) {
      std::vector<float> ref(static_cast<size_t>(n)), vref(static_cast<size_t>(n));
      oru::sample_hrow_plain(ref.data(), src.data(), ofs.data(), a.data(), b.data(), xmax, n);
      oru::sample_vrow_plain(vref.data(), ref.data(), h0.data(), 0.375f, 0.625f, n);
      oru::for_each_runnable_form(ORU_KERNEL_FORMS(oru::sample_hrow), [&](oru::Isa isa, auto fn) {
        std::vector<float> got(static_cast<size_t>(n));
        fn(got.data(), src.data(), ofs.data(), a.data(), b.data(), xmax, n);
        EXPECT_EQ(got, ref) << oru::isa_name(isa) << " n " << n << " xmax " << xmax;
        ++compared;
      });
      oru::for_each_runnable_form(ORU_KERNEL_FORMS(oru::sample_vrow), [&](oru::Isa isa, auto fn) {
        std::vector<float> got(static_cast<size_t>(n));
        fn(got.data(), ref.data(), h0.data(), 0.375f, 0.625f, n);
        EXPECT_EQ(got, vref) << oru::isa_name(isa) << " n " << n;
      });
      std::vector<float> picked(static_cast<size_t>(n));
      oru::sample_pick_row_plain(picked.data(), src.data(), ofs.data(), n);
      oru::for_each_runnable_form(ORU_KERNEL_FORMS(oru::sample_pick_row), [&](oru::Isa isa, auto fn) {
        std::vector<float> got(static_cast<size_t>(n));
        fn(got.data(), src.data(), ofs.data(), n);
        EXPECT_EQ(got, picked) << oru::isa_name(isa) << " n " << n;
      });
    }
  }
  EXPECT_GE(compared, 21);
}

TEST(SampleGraph, ShapesModesAndRefusals) {
  Array in{{4, 3, 2}, oru_test::random_values<float>(24, -1, 1, 8)};
  // Scale 2 on 4 x 3 gives 8 x 6, and nearest repeats each pixel twice each way.
  oru_cg_sample_params twice{0, 2.0f, 2.0f, 0, 0};
  Chain g(2, make_tensor(in.dims, in.values), {ORU_CG_OP_SAMPLE}, {&twice}, {{}});
  ASSERT_EQ(g.run(), 0u);
  const oru_tensor *out = g.output(1);
  ASSERT_EQ(std::vector<int32_t>(out->dims, out->dims + 3), (std::vector<int32_t>{8, 6, 2}));
  const float *o = static_cast<const float *>(out->data);
  for (int c = 0; c < 2; ++c)
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 8; ++x) ASSERT_EQ(o[(c * 6 + y) * 8 + x], in.values[size_t((c * 3 + y / 2) * 4 + x / 2)]);
  // 0.5 on 5 x 3 truncates to 2 x 1.
  oru_cg_sample_params half{1, 0.5f, 0.5f, 0, 0};
  Array odd{{5, 3, 1}, oru_test::random_values<float>(15, -1, 1, 9)};
  Chain h(2, make_tensor(odd.dims, odd.values), {ORU_CG_OP_SAMPLE}, {&half}, {{}});
  ASSERT_EQ(h.prepare_status, 0u);
  EXPECT_EQ(h.output(1)->dims[0], 2);
  EXPECT_EQ(h.output(1)->dims[1], 1);
  // Mode 3 at bind and mode 2 at run give status 4, each with one report.
  oru_cg_sample_params three{3, 1.0f, 1.0f, 0, 0}, two{2, 1.0f, 1.0f, 0, 0};
  testing::internal::CaptureStdout();
  Chain bad(2, make_tensor(in.dims, in.values), {ORU_CG_OP_SAMPLE}, {&three}, {{}});
  Chain later(2, make_tensor(in.dims, in.values), {ORU_CG_OP_SAMPLE}, {&two}, {{}});
  const uint32_t run_status = later.run();
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(bad.bind_status, ORU_RET_ERR_NOT_SUPPORT);
  EXPECT_EQ(later.bind_status, 0u);
  EXPECT_EQ(run_status, ORU_RET_ERR_NOT_SUPPORT);
  EXPECT_EQ(reports_in(printed), 2) << printed;
  // Null record, wrong node and a context of another kind.
  EXPECT_EQ(oru_init_sample_context(g.graph.get(), 5, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_sample_inference_data(nullptr, 2), nullptr);
  EXPECT_EQ(oru_init_sample_context_inference(nullptr, 2), ORU_RET_ERR_PARA);
  void *none = nullptr;
  EXPECT_EQ(oru_uninit_sample_context(&none), ORU_RET_ERR_PARA);
}

}  // namespace
