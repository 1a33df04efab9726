// Per-call cost of running a graph, against a peer network runtime doing the same
// one-layer ReLU network; and the aligned allocator against the system's.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "oru_cg.h"

#ifdef ORU_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#endif

namespace {

// dims (W, H, C) = (n, 1, 1) for the shapes below: 4 is the per-call overhead case.
void BM_OruReluGraph(benchmark::State &state) {
  const int32_t n = int32_t(state.range(0));
  const int32_t dims[3] = {n, 1, 1};
  oru_tensor *x = oru_create_tensor(3, dims, aif32);
  oru_cg_handle *g = oru_create_computation_graph_handle(nullptr);
  const oru_cg_node_desc input = {ORU_CG_OP_INPUT, x};
  const oru_cg_node_desc relu = {ORU_CG_OP_RELU, nullptr};
  oru_add_one_edge_into_computation_graph(g, 0, 1);
  oru_computation_graph_topo_sort(g);
  oru_bind_operator_onto_computation_graph(g, 0, &input, nullptr);
  oru_bind_operator_onto_computation_graph(g, 1, &relu, nullptr);
  if (oru_prepare_inference_computation(g) != ORU_RET_OK) state.SkipWithError("prepare failed");
  std::vector<float> frame(static_cast<size_t>(n));
  for (int32_t i = 0; i < n; ++i) frame[size_t(i)] = float(i % 7) - 3.0f;
  for (auto _ : state) {
    std::memcpy(x->data, frame.data(), frame.size() * sizeof(float));  // a new frame each call
    oru_computation_graph_inference(g);
    benchmark::DoNotOptimize(oru_get_computation_node_inference_data(g, 1)->data);
  }
  state.SetItemsProcessed(state.iterations() * n);
  oru_release_computation_graph_handle(&g);
  oru_release_tensor(&x);
}
BENCHMARK(BM_OruReluGraph)->Arg(4)->Arg(1 << 16);

#ifdef ORU_HAVE_OPENCV
void BM_OpenCvDnnRelu(benchmark::State &state) {
  cv::setNumThreads(1);
  const int n = int(state.range(0));
  cv::dnn::Net net;
  cv::dnn::LayerParams lp;
  lp.name = "relu";
  lp.type = "ReLU";
  net.addLayerToPrev(lp.name, lp.type, lp);
  net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
  net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
  const int shape[4] = {1, 1, 1, n};
  cv::Mat blob(4, shape, CV_32F);
  for (int i = 0; i < n; ++i) blob.ptr<float>()[i] = float(i % 7) - 3.0f;
  cv::Mat out;
  net.setInput(blob);
  net.forward(out);  // first call sets the network up
  for (auto _ : state) {
    net.setInput(blob);
    net.forward(out);
    benchmark::DoNotOptimize(out.data);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_OpenCvDnnRelu)->Arg(4)->Arg(1 << 16);
#endif

void BM_OruMallocFree(benchmark::State &state) {
  const int64_t size = state.range(0);
  for (auto _ : state) {
    void *p = oru_malloc(size);
    benchmark::DoNotOptimize(p);
    oru_free(p);
  }
}
BENCHMARK(BM_OruMallocFree)->RangeMultiplier(4)->Range(64, 1 << 20);

void BM_SystemMallocFree(benchmark::State &state) {
  const size_t size = size_t(state.range(0));
  for (auto _ : state) {
    void *p = std::malloc(size);
    benchmark::DoNotOptimize(p);
    std::free(p);
  }
}
BENCHMARK(BM_SystemMallocFree)->RangeMultiplier(4)->Range(64, 1 << 20);

}  // namespace

BENCHMARK_MAIN();
