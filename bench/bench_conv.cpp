// Convolution on one core: conv methods 0 (direct CHW), 1 (packed HWG, input already in HWG
// as in a chain of such layers) and 2 (im2col plus GEMM) with bias, against XNNPACK and
// OpenCV DNN on the same shapes, in the same run.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "orucore.h"

#ifdef ORU_HAVE_XNNPACK
#include <xnnpack.h>
#endif
#ifdef ORU_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#endif

namespace {

struct Shape {
  int ic, oc, k, s, groups, w, h;
  int out_w() const { return (w + 2 * (k / 2) - k) / s + 1; }
  int out_h() const { return (h + 2 * (k / 2) - k) / s + 1; }
  double flops() const { return 2.0 * oc * out_w() * out_h() * (ic / groups) * k * k; }
};

const Shape kShapes[] = {
    {32, 32, 3, 1, 1, 80, 60},    // 0: conv 3x3 s1
    {64, 64, 3, 1, 64, 80, 60},   // 1: depthwise 3x3
    {64, 128, 1, 1, 1, 40, 30},   // 2: pointwise
    {3, 16, 3, 2, 1, 320, 240},   // 3: conv 3x3 s2, the first layer of a detector
};

std::vector<float> random_floats(size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (float &x : v) x = d(gen);
  return v;
}

oru_conv2d_params params_of(const Shape &s) {
  oru_conv2d_params p{};
  p.in_channels = s.ic;
  p.out_channels = s.oc;
  p.kernel_w = p.kernel_h = s.k;
  p.stride_w = p.stride_h = s.s;
  p.pad_w = p.pad_h = s.k / 2;
  p.dilation_w = p.dilation_h = 1;
  p.groups = s.groups;
  p.has_bias = 1;
  return p;
}

size_t weight_count(const Shape &s) { return size_t(s.oc) * (s.ic / s.groups) * s.k * s.k; }

void set_counters(benchmark::State &state, const Shape &s) {
  state.counters["GFLOP/s"] = benchmark::Counter(s.flops() * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

// The library through its kernels, as a graph node of the method would call them.
void BM_oru(benchmark::State &state) {
  const Shape &s = kShapes[state.range(0)];
  const int method = int(state.range(1));
  oru_conv2d_params p = params_of(s);
  int32_t in_dims[3] = {s.w, s.h, s.ic}, out_dims[3] = {s.out_w(), s.out_h(), s.oc};
  int32_t w_dims[1] = {int32_t(weight_count(s) + size_t(s.oc))};
  oru_tensor *in = oru_create_tensor(3, in_dims, aif32), *out = oru_create_tensor(3, out_dims, aif32);
  oru_tensor *w = oru_create_tensor(1, w_dims, aif32);
  std::vector<float> x = random_floats(size_t(in->total_elements), 1), k = random_floats(size_t(w->total_elements), 2);
  std::memcpy(in->data, x.data(), x.size() * 4);
  std::memcpy(w->data, k.data(), k.size() * 4);
  uint32_t workers = 1;
  oru_im2col_gemm_info *info = method == 2 ? oru_create_im2col_gemm_calc_info(in, w, &p, &workers) : nullptr;
  oru_conv2d_hwg_info *hwg = method == 1 ? oru_create_conv2d_hwg_calc_info(in, w, &p, &workers) : nullptr;
  oru_tensor *in_hwg = nullptr;
  if (method == 1) {
    in_hwg = oru_create_tensor(3, in_dims, aif32);
    oru_tensor_pack_data_chw_to_hwg(in_hwg, in);
  }
  const bool depthwise = s.groups > 1, pointwise = s.k == 1;
  for (auto _ : state) {
    uint32_t st;
    if (method == 1) {
      st = depthwise ? oru_tensor_depthwise_conv2d_hwg(out, in_hwg, w, &p, hwg)
           : pointwise ? oru_tensor_pointwise_conv2d_hwg(out, in_hwg, w, &p, hwg)
                       : oru_tensor_std_conv2d_hwg(out, in_hwg, w, &p, hwg);
      st |= oru_tensor_bias_hwg(out, out, w, &p, &workers);
      if (st) state.SkipWithError("convolution failed");
      benchmark::DoNotOptimize(out->data);
      continue;
    }
    if (method == 0)
      st = depthwise ? oru_tensor_depthwise_conv2d_chw(out, in, w, &p, &workers)
           : pointwise ? oru_tensor_pointwise_conv2d_chw(out, in, w, &p, &workers)
                       : oru_tensor_std_conv2d_chw(out, in, w, &p, &workers);
    else
      st = depthwise ? oru_tensor_depthwise_conv2d_im2col_gemm(out, in, w, &p, info)
           : pointwise ? oru_tensor_pointwise_conv2d_im2col_gemm(out, in, w, &p, info)
                       : oru_tensor_std_conv2d_im2col_gemm(out, in, w, &p, info);
    st |= oru_tensor_bias_chw(out, out, w, &p, &workers);
    if (st) state.SkipWithError("convolution failed");
    benchmark::DoNotOptimize(out->data);
  }
  set_counters(state, s);
  if (info) oru_release_im2col_gemm_calc_info(&info);
  if (hwg) oru_release_conv2d_hwg_calc_info(&hwg);
  if (in_hwg) oru_release_tensor(&in_hwg);
  oru_release_tensor(&in);
  oru_release_tensor(&out);
  oru_release_tensor(&w);
}

#ifdef ORU_HAVE_XNNPACK
void BM_xnnpack(benchmark::State &state) {
  const Shape &s = kShapes[state.range(0)];
  if (xnn_initialize(nullptr) != xnn_status_success) {
    state.SkipWithError("xnn_initialize");
    return;
  }
  const uint32_t pad = uint32_t(s.k / 2), gi = uint32_t(s.ic / s.groups), go = uint32_t(s.oc / s.groups);
  std::vector<float> x = random_floats(size_t(s.w * s.h * s.ic), 1), k = random_floats(weight_count(s), 2),
                     b = random_floats(size_t(s.oc), 3), y(size_t(s.out_w() * s.out_h() * s.oc));
  xnn_operator_t op = nullptr;
  if (xnn_create_convolution2d_nhwc_f32(pad, pad, pad, pad, uint32_t(s.k), uint32_t(s.k), uint32_t(s.s),
                                        uint32_t(s.s), 1, 1, uint32_t(s.groups), gi, go, size_t(s.ic), size_t(s.oc),
                                        k.data(), b.data(), -INFINITY, INFINITY, 0, &op) != xnn_status_success ||
      xnn_setup_convolution2d_nhwc_f32(op, 1, size_t(s.h), size_t(s.w), x.data(), y.data(), nullptr) !=
          xnn_status_success) {
    state.SkipWithError("xnnpack convolution setup");
    return;
  }
  for (auto _ : state) {
    xnn_run_operator(op, nullptr);
    benchmark::DoNotOptimize(y.data());
  }
  set_counters(state, s);
  xnn_delete_operator(op);
}
#endif

#ifdef ORU_HAVE_OPENCV
void BM_opencv_dnn(benchmark::State &state) {
  const Shape &s = kShapes[state.range(0)];
  cv::setNumThreads(1);
  cv::dnn::LayerParams lp;
  lp.name = "conv";
  lp.type = "Convolution";
  lp.set("kernel_size", s.k);
  lp.set("pad", s.k / 2);
  lp.set("stride", s.s);
  lp.set("num_output", s.oc);
  lp.set("group", s.groups);
  lp.set("bias_term", true);
  int wshape[4] = {s.oc, s.ic / s.groups, s.k, s.k};
  cv::Mat wm(4, wshape, CV_32F), bm(1, s.oc, CV_32F);
  std::vector<float> k = random_floats(weight_count(s), 2), b = random_floats(size_t(s.oc), 3);
  std::memcpy(wm.data, k.data(), k.size() * 4);
  std::memcpy(bm.data, b.data(), b.size() * 4);
  lp.blobs = {wm, bm};
  cv::dnn::Net net;
  net.addLayerToPrev(lp.name, lp.type, lp);
  net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
  int ishape[4] = {1, s.ic, s.h, s.w};
  cv::Mat input(4, ishape, CV_32F);
  std::vector<float> x = random_floats(size_t(s.w * s.h * s.ic), 1);
  std::memcpy(input.data, x.data(), x.size() * 4);
  net.setInput(input);
  cv::Mat out = net.forward();  // the first pass allocates and picks its kernels
  for (auto _ : state) {
    net.setInput(input);
    out = net.forward();
    benchmark::DoNotOptimize(out.data);
  }
  set_counters(state, s);
}
#endif

void shape_args(benchmark::internal::Benchmark *b) {
  b->ArgNames({"shape"});
  for (int i = 0; i < 4; ++i) b->Arg(i);
}

}  // namespace

BENCHMARK(BM_oru)->ArgNames({"shape", "method"})->ArgsProduct({{0, 1, 2, 3}, {0, 1, 2}})->Unit(benchmark::kMicrosecond);
#ifdef ORU_HAVE_XNNPACK
BENCHMARK(BM_xnnpack)->Apply(shape_args)->Unit(benchmark::kMicrosecond);
#endif
#ifdef ORU_HAVE_OPENCV
BENCHMARK(BM_opencv_dnn)->Apply(shape_args)->Unit(benchmark::kMicrosecond);
#endif

BENCHMARK_MAIN();
