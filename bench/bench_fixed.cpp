// The fixed-point backend on one core: the face network in fixed point against the same
// network in float (its fastest methods) in this binary, and the fixed-point 3x3 and
// depthwise kernels against XNNPACK's 8-bit convolution of the same shape.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "orucore.h"
#include "ultraface.h"

#ifdef ORU_HAVE_XNNPACK
#include <xnnpack.h>
#endif

namespace {

const char *kWeights = ORU_BENCH_MODEL_DIR "/ultraface-slim-320.weights";
const char *kImage = ORU_BENCH_IMAGE_DIR "/faces-3.bmp";

// The network's run alone, on the input the detector prepared from a photograph.
void BM_FaceNetwork(benchmark::State &state) {
  const uint32_t backend = uint32_t(state.range(0));
  ultraface *net = ultraface_create_backend(kWeights, ULTRAFACE_METHOD_PER_LAYER, backend);
  oru_image *image = oru_create_image_from_file(kImage, 2);
  std::vector<float> faces(5 * 64);
  if (!net || !image || ultraface_detect(net, image, 0.7f, 0.3f, 0, faces.data(), 64) < 0) {
    state.SkipWithError("cannot build or run the network");
  } else {
    for (auto _ : state) benchmark::DoNotOptimize(ultraface_run(net));
  }
  if (image) oru_release_matrix(&image);
  ultraface_release(&net);
  state.SetLabel(backend == ULTRAFACE_BACKEND_FIXED ? "fixed point" : "float");
}
BENCHMARK(BM_FaceNetwork)->ArgName("backend")->Arg(ULTRAFACE_BACKEND_FLOAT)->Arg(ULTRAFACE_BACKEND_FIXED)
    ->Unit(benchmark::kMillisecond);

struct Shape {
  int w, h, ic, oc, s, groups;
};
// 3x3 shapes of the face network: its first layer, and depthwise layers at three scales.
const Shape kShapes[] = {{320, 240, 3, 16, 2, 1}, {160, 120, 16, 16, 1, 16}, {80, 60, 32, 32, 2, 32},
                         {40, 30, 64, 64, 1, 64}, {20, 15, 128, 128, 1, 128}};

int out_extent(int n, int s) { return (n + 2 - 3) / s + 1; }

void set_counters(benchmark::State &state, const Shape &s) {
  const double macs = double(out_extent(s.w, s.s)) * out_extent(s.h, s.s) * s.oc * (s.ic / s.groups) * 9;
  state.counters["GMAC/s"] = benchmark::Counter(macs * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
  state.SetLabel(std::to_string(s.w) + "x" + std::to_string(s.h) + " " + std::to_string(s.ic) + "->" +
                 std::to_string(s.oc) + " s" + std::to_string(s.s) + (s.groups > 1 ? " depthwise" : ""));
}

std::vector<int16_t> random_i16(size_t n, int lim, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> d(-lim, lim);
  std::vector<int16_t> v(n);
  for (int16_t &x : v) x = int16_t(d(gen));
  return v;
}

void BM_FixedConv3x3(benchmark::State &state) {
  const Shape &s = kShapes[state.range(0)];
  const bool dw = s.groups > 1;
  int32_t in_dims[3] = {s.w, s.h, s.ic}, out_dims[3] = {out_extent(s.w, s.s), out_extent(s.h, s.s), s.oc};
  const int32_t nw = (dw ? s.ic : s.ic * s.oc) * 9 + s.oc;
  oru_tensor *in = oru_create_tensor(3, in_dims, ai16s), *out = oru_create_tensor(3, out_dims, ai16s);
  oru_tensor *w = oru_create_tensor(1, &nw, ai16s);
  auto xv = random_i16(size_t(in->total_elements), 4000, 1), wv = random_i16(size_t(nw), 8000, 2);
  std::copy(xv.begin(), xv.end(), static_cast<int16_t *>(in->data));
  std::copy(wv.begin(), wv.end(), static_cast<int16_t *>(w->data));
  oru_conv2d_params p{};
  p.in_channels = s.ic;
  p.out_channels = s.oc;
  p.kernel_w = p.kernel_h = 3;
  p.stride_w = p.stride_h = s.s;
  p.pad_w = p.pad_h = 1;
  p.dilation_w = p.dilation_h = 1;
  p.groups = s.groups;
  const uint32_t workers = 1;
  for (auto _ : state) {
    const uint32_t st = dw ? oru_tensor_depthwise_conv2d_chw_fpi16(out, 12, in, 12, w, 14, &p, &workers)
                           : oru_tensor_std_conv2d_chw_fpi16(out, 12, in, 12, w, 14, &p, &workers);
    if (st) state.SkipWithError("convolution failed");
    benchmark::DoNotOptimize(out->data);
  }
  set_counters(state, s);
  oru_release_tensor(&in);
  oru_release_tensor(&out);
  oru_release_tensor(&w);
}
BENCHMARK(BM_FixedConv3x3)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);

#ifdef ORU_HAVE_XNNPACK
void BM_xnnpack_qs8(benchmark::State &state) {
  const Shape &s = kShapes[state.range(0)];
  if (xnn_initialize(nullptr) != xnn_status_success) {
    state.SkipWithError("xnn_initialize");
    return;
  }
  const size_t gi = size_t(s.ic / s.groups), go = size_t(s.oc / s.groups);
  std::mt19937 gen(3);
  std::uniform_int_distribution<int> d(-100, 100);
  std::vector<int8_t> x(size_t(s.w * s.h * s.ic)), k(size_t(s.oc) * gi * 9),
      y(size_t(out_extent(s.w, s.s) * out_extent(s.h, s.s) * s.oc));
  for (int8_t &v : x) v = int8_t(d(gen));
  for (int8_t &v : k) v = int8_t(d(gen));
  std::vector<int32_t> b(size_t(s.oc), 0);
  xnn_operator_t op = nullptr;
  if (xnn_create_convolution2d_nhwc_qs8(1, 1, 1, 1, 3, 3, uint32_t(s.s), uint32_t(s.s), 1, 1, uint32_t(s.groups), gi,
                                        go, size_t(s.ic), size_t(s.oc), 0, 0.05f, 0.01f, k.data(), b.data(), 0, 0.1f,
                                        -128, 127, 0, &op) != xnn_status_success ||
      xnn_setup_convolution2d_nhwc_qs8(op, 1, size_t(s.h), size_t(s.w), x.data(), y.data(), nullptr) !=
          xnn_status_success) {
    state.SkipWithError("xnnpack qs8 convolution setup");
    return;
  }
  for (auto _ : state) {
    xnn_run_operator(op, nullptr);
    benchmark::DoNotOptimize(y.data());
  }
  set_counters(state, s);
  xnn_delete_operator(op);
}
BENCHMARK(BM_xnnpack_qs8)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace

BENCHMARK_MAIN();
