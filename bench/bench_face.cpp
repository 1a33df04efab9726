// The 320x240 face network on one core: the library's graph (conv methods 0, 1 and 2)
// against OpenCV DNN running the same ONNX file, and the whole detector from a 640x480
// BMP file to boxes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <vector>

#include "orucore.h"
#include "ultraface.h"

#ifdef ORU_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

const char *kWeights = ORU_BENCH_MODEL_DIR "/ultraface-slim-320.weights";
const char *kOnnx = ORU_BENCH_MODEL_DIR "/version-slim-320_without_postprocessing.onnx";
const char *kImage = ORU_BENCH_IMAGE_DIR "/faces-3.bmp";  // 640 x 480

void BM_FaceInference(benchmark::State &state) {
  ultraface *net = ultraface_create(kWeights, uint32_t(state.range(0)));
  if (!net) {
    state.SkipWithError("cannot build the network");
    return;
  }
  oru_tensor *in = ultraface_input(net);
  float *x = static_cast<float *>(in->data);
  for (int64_t i = 0; i < in->total_elements; ++i) x[i] = float(i % 251) / 125.0f - 1.0f;
  ultraface_run(net);
  for (auto _ : state) benchmark::DoNotOptimize(ultraface_run(net));
  ultraface_release(&net);
}
BENCHMARK(BM_FaceInference)->ArgName("method")->Arg(ULTRAFACE_METHOD_PER_LAYER)->Arg(1)->Arg(2)->Arg(0)->Unit(benchmark::kMillisecond);

// The same network loaded from the shipped network file instead of bound by hand.
const char *kNet = ORU_BENCH_MODEL_DIR "/ultraface-slim-320.net";

void BM_FaceInferenceConverted(benchmark::State &state) {
  oru_cg_net *net = nullptr;
  if (oru_cg_load_network(&net, kNet, kWeights, int32_t(state.range(0))) != 0 ||
      oru_prepare_inference_computation(oru_cg_network_graph(net)) != 0) {
    oru_cg_release_network(&net);
    state.SkipWithError("cannot load the network");
    return;
  }
  oru_tensor *in = oru_cg_network_input(net, "input");
  float *x = static_cast<float *>(in->data);
  for (int64_t i = 0; i < in->total_elements; ++i) x[i] = float(i % 251) / 125.0f - 1.0f;
  oru_cg_handle *g = oru_cg_network_graph(net);
  oru_computation_graph_inference(g);
  for (auto _ : state) benchmark::DoNotOptimize(oru_computation_graph_inference(g));
  oru_cg_release_network(&net);
}
BENCHMARK(BM_FaceInferenceConverted)->ArgName("method")->Arg(ORU_CG_NET_METHOD_PER_LAYER)->Arg(2)->Arg(0)
    ->Unit(benchmark::kMillisecond);

// Start-up: read and check the files, bind, prepare; against building the graph by hand.
void BM_FaceLoadAndPrepareConverted(benchmark::State &state) {
  for (auto _ : state) {
    oru_cg_net *net = nullptr;
    uint32_t st = oru_cg_load_network(&net, kNet, kWeights, ORU_CG_NET_METHOD_PER_LAYER);
    if (!st) st = oru_prepare_inference_computation(oru_cg_network_graph(net));
    oru_cg_release_network(&net);
    if (st) state.SkipWithError("cannot load the network");
  }
}
BENCHMARK(BM_FaceLoadAndPrepareConverted)->Unit(benchmark::kMillisecond);

void BM_FaceCreateHandBound(benchmark::State &state) {
  for (auto _ : state) {
    ultraface *net = ultraface_create(kWeights, ULTRAFACE_METHOD_PER_LAYER);
    if (!net) state.SkipWithError("cannot build the network");
    ultraface_release(&net);
  }
}
BENCHMARK(BM_FaceCreateHandBound)->Unit(benchmark::kMillisecond);

void BM_FaceEndToEnd640x480(benchmark::State &state) {
  ultraface *net = ultraface_create(kWeights, ULTRAFACE_METHOD_PER_LAYER);
  if (!net) {
    state.SkipWithError("cannot build the network");
    return;
  }
  std::vector<float> faces(5 * ULTRAFACE_PRIORS);
  int32_t n = 0;
  for (auto _ : state) {
    oru_image *img = oru_create_image_from_file(kImage, 2);
    n = img ? ultraface_detect(net, img, 0.7f, 0.3f, 0, faces.data(), ULTRAFACE_PRIORS) : -1;
    oru_release_matrix(&img);
  }
  state.counters["faces"] = n;
  ultraface_release(&net);
}
BENCHMARK(BM_FaceEndToEnd640x480)->Unit(benchmark::kMillisecond);

#ifdef ORU_HAVE_OPENCV
void BM_FaceInferenceOpenCvDnn(benchmark::State &state) {
  cv::setNumThreads(1);
  cv::dnn::Net net = cv::dnn::readNetFromONNX(kOnnx);
  net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
  int sizes[4] = {1, 3, ULTRAFACE_HEIGHT, ULTRAFACE_WIDTH};
  cv::Mat blob(4, sizes, CV_32F);
  float *x = blob.ptr<float>();
  for (size_t i = 0; i < blob.total(); ++i) x[i] = float(i % 251) / 125.0f - 1.0f;
  std::vector<cv::String> names = {"scores", "boxes"};
  std::vector<cv::Mat> outs;
  net.setInput(blob);
  net.forward(outs, names);
  for (auto _ : state) {
    net.setInput(blob);
    net.forward(outs, names);
    benchmark::DoNotOptimize(outs[0].data);
  }
}
BENCHMARK(BM_FaceInferenceOpenCvDnn)->Unit(benchmark::kMillisecond);

// OpenCV's side of the end to end figure: decode, resize, blob, network; the NMS of the
// boxes is left out, which favours the peer slightly.
void BM_FaceEndToEnd640x480OpenCvDnn(benchmark::State &state) {
  cv::setNumThreads(1);
  cv::dnn::Net net = cv::dnn::readNetFromONNX(kOnnx);
  net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
  std::vector<cv::String> names = {"scores", "boxes"};
  std::vector<cv::Mat> outs;
  for (auto _ : state) {
    cv::Mat img = cv::imread(kImage);
    cv::Mat blob = cv::dnn::blobFromImage(img, 1.0 / 128, cv::Size(ULTRAFACE_WIDTH, ULTRAFACE_HEIGHT),
                                          cv::Scalar(127.5, 127.5, 127.5), true);
    net.setInput(blob);
    net.forward(outs, names);
    benchmark::DoNotOptimize(outs[0].data);
  }
}
BENCHMARK(BM_FaceEndToEnd640x480OpenCvDnn)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
