// Element-wise and pooling operators against OpenCV DNN layers of the same shape.
// Run single-threaded: cv::setNumThreads(1) is set before the benchmarks start.
#include <benchmark/benchmark.h>

#include <vector>

#include "kernels/activation/oru_act_kernels.h"
#include "kernels/pooling/oru_pool_kernels.h"

#ifdef ORU_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#include <opencv2/dnn/shape_utils.hpp>
#endif

namespace {

std::vector<float> random_floats(size_t n, float lo, float hi) {
  std::vector<float> v(n);
  uint32_t s = 12345u;
  for (auto &x : v) {
    s = s * 1664525u + 1013904223u;
    x = lo + (hi - lo) * float(s >> 8) / float(1u << 24);
  }
  return v;
}

constexpr int kSoftmaxRows = 4420, kSoftmaxLen = 2;
constexpr int kElems = 1 << 20;
constexpr int kPoolC = 64, kPoolW = 80, kPoolH = 60;

void BM_oru_softmax_4420x2(benchmark::State &st) {
  auto x = random_floats(kSoftmaxRows * kSoftmaxLen, -8, 8);
  std::vector<float> y(x.size());
  for (auto _ : st) {
    oru::softmax_rows_f32(y.data(), x.data(), kSoftmaxRows, kSoftmaxLen);
    benchmark::DoNotOptimize(y.data());
  }
}
BENCHMARK(BM_oru_softmax_4420x2);

void BM_oru_sigmoid_1M(benchmark::State &st) {
  auto x = random_floats(kElems, -8, 8);
  std::vector<float> y(x.size());
  for (auto _ : st) {
    oru::sigmoid_f32(y.data(), x.data(), kElems);
    benchmark::DoNotOptimize(y.data());
  }
}
BENCHMARK(BM_oru_sigmoid_1M);

void BM_oru_hswish_1M(benchmark::State &st) {
  auto x = random_floats(kElems, -8, 8);
  std::vector<float> y(x.size());
  for (auto _ : st) {
    oru::hswish_f32(y.data(), x.data(), kElems);
    benchmark::DoNotOptimize(y.data());
  }
}
BENCHMARK(BM_oru_hswish_1M);

void pool_bench(benchmark::State &st, bool is_max, int k_w, int k_h) {
  auto x = random_floats(size_t(kPoolC) * kPoolW * kPoolH, -4, 4);
  const int ow = kPoolW / k_w, oh = kPoolH / k_h;
  std::vector<float> y(size_t(kPoolC) * ow * oh);
  oru::PoolPlanes p{x.data(), y.data(), kPoolW, int64_t(kPoolW) * kPoolH, ow, oh, int64_t(ow) * oh, kPoolC, k_w, k_h};
  for (auto _ : st) {
    is_max ? oru::max_pool2d_f32(p) : oru::avg_pool2d_f32(p);
    benchmark::DoNotOptimize(y.data());
  }
}
void BM_oru_maxpool2x2_64x80x60(benchmark::State &st) { pool_bench(st, true, 2, 2); }
void BM_oru_global_avgpool_64x80x60(benchmark::State &st) { pool_bench(st, false, kPoolW, kPoolH); }
BENCHMARK(BM_oru_maxpool2x2_64x80x60);
BENCHMARK(BM_oru_global_avgpool_64x80x60);

#ifdef ORU_HAVE_OPENCV

// One layer run directly through its forward(), without the network's bookkeeping.
void cv_layer_bench(benchmark::State &st, const char *type, cv::dnn::LayerParams lp, const std::vector<int> &shape) {
  cv::setNumThreads(1);
  lp.type = type;
  lp.name = type;
  cv::Ptr<cv::dnn::Layer> layer = cv::dnn::LayerFactory::createLayerInstance(type, lp);
  cv::Mat in(int(shape.size()), shape.data(), CV_32F);
  auto v = random_floats(in.total(), -8, 8);
  std::copy(v.begin(), v.end(), in.ptr<float>());
  std::vector<cv::Mat> inputs{in}, outputs, internals;
  std::vector<cv::dnn::MatShape> in_shapes{cv::dnn::shape(in)}, out_shapes, int_shapes;
  layer->getMemoryShapes(in_shapes, 1, out_shapes, int_shapes);
  for (auto &s : out_shapes) outputs.emplace_back(int(s.size()), s.data(), CV_32F);
  for (auto &s : int_shapes) internals.emplace_back(int(s.size()), s.data(), CV_32F);
  layer->finalize(inputs, outputs);
  for (auto _ : st) {
    layer->forward(inputs, outputs, internals);
    benchmark::DoNotOptimize(outputs[0].data);
  }
}

void BM_cv_softmax_4420x2(benchmark::State &st) {
  cv::dnn::LayerParams lp;
  lp.set("axis", 1);
  cv_layer_bench(st, "Softmax", lp, {kSoftmaxRows, kSoftmaxLen});
}
void BM_cv_sigmoid_1M(benchmark::State &st) { cv_layer_bench(st, "Sigmoid", {}, {1, kElems}); }
void BM_cv_hswish_1M(benchmark::State &st) { cv_layer_bench(st, "HardSwish", {}, {1, kElems}); }
void BM_cv_maxpool2x2_64x80x60(benchmark::State &st) {
  cv::dnn::LayerParams lp;
  lp.set("pool", "max");
  lp.set("kernel_size", 2);
  lp.set("stride", 2);
  cv_layer_bench(st, "Pooling", lp, {1, kPoolC, kPoolH, kPoolW});
}
void BM_cv_global_avgpool_64x80x60(benchmark::State &st) {
  cv::dnn::LayerParams lp;
  lp.set("pool", "ave");
  lp.set("global_pooling", true);
  cv_layer_bench(st, "Pooling", lp, {1, kPoolC, kPoolH, kPoolW});
}
BENCHMARK(BM_cv_softmax_4420x2);
BENCHMARK(BM_cv_sigmoid_1M);
BENCHMARK(BM_cv_hswish_1M);
BENCHMARK(BM_cv_maxpool2x2_64x80x60);
BENCHMARK(BM_cv_global_avgpool_64x80x60);

#endif

}  // namespace

BENCHMARK_MAIN();
