// Following faces, one thread: detect plus track per frame of the shipped sequence at
// 320x240 and scaled to 640x480, against OpenCV DNN's input preparation and network on
// the same frames; and the tracking step alone with the sequence's 5 faces and with 50
// and 200 synthetic boxes in view.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "frame_tracker.h"
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
constexpr int kFrames = 32;

std::string frame_path(int k) {
  char name[32];
  std::snprintf(name, sizeof name, "/%06d.bmp", k + 1);
  return std::string(ORU_BENCH_SEQUENCE_DIR) + name;
}

// The sequence's frames at 320x240, or scaled to `width` with the library's bilinear
// resizer; empty if a frame can't be read.
std::vector<oru_image *> load_frames(int width) {
  std::vector<oru_image *> frames;
  for (int k = 0; k < kFrames; ++k) {
    oru_image *img = oru_create_image_from_file(frame_path(k).c_str(), 2);
    if (img && img->cols != width) {
      oru_image *big = oru_create_image(width, img->rows * width / img->cols, ORU_IMAGE_BGR24);
      if (big && oru_image_resizer(big, img, ORU_RESIZE_BILINEAR) != 0) oru_release_matrix(&big);
      oru_release_matrix(&img);
      img = big;
    }
    if (!img) {
      for (auto *f : frames) oru_release_matrix(&f);
      return {};
    }
    frames.push_back(img);
  }
  return frames;
}

void BM_DetectAndTrack(benchmark::State &state) {
  std::vector<oru_image *> frames = load_frames(int(state.range(0)));
  ultraface *net = ultraface_create(kWeights, ULTRAFACE_METHOD_PER_LAYER);
  frame_tracker *tracker = frame_tracker_create(10, 3, 0.3f);
  std::vector<float> faces(5 * ULTRAFACE_PRIORS);
  if (frames.empty() || !net || !tracker) {
    state.SkipWithError("cannot read the sequence or build the network");
  } else {
    size_t k = 0;
    int32_t shown = 0;
    for (auto _ : state) {
      int32_t n = ultraface_detect(net, frames[k++ % frames.size()], 0.7f, 0.3f, 0, faces.data(), ULTRAFACE_PRIORS);
      shown = frame_tracker_step(tracker, faces.data(), std::max(n, 0));
    }
    state.counters["tracks"] = shown;
  }
  frame_tracker_release(&tracker);
  ultraface_release(&net);
  for (auto *f : frames) oru_release_matrix(&f);
}
BENCHMARK(BM_DetectAndTrack)->ArgName("width")->Arg(320)->Arg(640)->Unit(benchmark::kMillisecond);

// The tracking step alone on the detections of the sequence's frames (4 or 5 faces).
void BM_TrackSequenceFaces(benchmark::State &state) {
  std::vector<oru_image *> frames = load_frames(320);
  ultraface *net = ultraface_create(kWeights, ULTRAFACE_METHOD_PER_LAYER);
  std::vector<std::vector<float>> detections;
  std::vector<float> faces(5 * ULTRAFACE_PRIORS);
  for (auto *f : frames) {
    int32_t n = net ? ultraface_detect(net, f, 0.7f, 0.3f, 0, faces.data(), ULTRAFACE_PRIORS) : -1;
    if (n >= 0) detections.emplace_back(faces.begin(), faces.begin() + 5 * n);
  }
  ultraface_release(&net);
  for (auto *f : frames) oru_release_matrix(&f);
  frame_tracker *tracker = frame_tracker_create(10, 3, 0.3f);
  if (detections.size() != size_t(kFrames) || !tracker) {
    state.SkipWithError("cannot detect the sequence's faces");
    frame_tracker_release(&tracker);
    return;
  }
  size_t k = 0;
  for (auto _ : state) {
    const std::vector<float> &d = detections[k++ % detections.size()];
    benchmark::DoNotOptimize(frame_tracker_step(tracker, d.data(), int32_t(d.size() / 5)));
  }
  frame_tracker_release(&tracker);
}
BENCHMARK(BM_TrackSequenceFaces)->Unit(benchmark::kMicrosecond);

// The tracking step alone with n face-sized boxes drifting on straight paths, back and
// forth so that none ever jumps, about as densely packed as the faces of a crowd.
void BM_TrackSyntheticFaces(benchmark::State &state) {
  const int n = int(state.range(0));
  const float field = 60.0f * float(std::sqrt(double(n))) + 200.0f;
  std::mt19937 gen(11);
  std::uniform_real_distribution<float> pos(0.0f, field), vel(-1.5f, 1.5f);
  std::vector<float> x(n), y(n), vx(n), vy(n), dets(size_t(5) * n);
  for (int i = 0; i < n; ++i) x[i] = pos(gen), y[i] = pos(gen), vx[i] = vel(gen), vy[i] = vel(gen);
  auto fill = [&](int f) {
    const int t = f % 200 < 100 ? f % 200 : 200 - f % 200;
    for (int i = 0; i < n; ++i) {
      const float cx = x[i] + vx[i] * float(t), cy = y[i] + vy[i] * float(t);
      float *d = &dets[size_t(5) * i];
      d[0] = cx - 10, d[1] = cy - 12, d[2] = cx + 10, d[3] = cy + 12, d[4] = 0.95f;
    }
  };
  frame_tracker *tracker = frame_tracker_create(10, 3, 0.3f);
  int f = 0;
  for (; tracker && f < 5; ++f) {
    fill(f);
    frame_tracker_step(tracker, dets.data(), n);
  }
  int32_t shown = 0;
  for (auto _ : state) {
    state.PauseTiming();
    fill(f++);
    state.ResumeTiming();
    shown = frame_tracker_step(tracker, dets.data(), n);
  }
  state.counters["tracks"] = shown;
  frame_tracker_release(&tracker);
}
BENCHMARK(BM_TrackSyntheticFaces)->ArgName("faces")->Arg(50)->Arg(200)->Unit(benchmark::kMicrosecond);

#ifdef ORU_HAVE_OPENCV
// The peer's share of a frame: input preparation and the network on the same frames,
// without decoding, suppression or tracking, which favours it.
void BM_DetectOpenCvDnn(benchmark::State &state) {
  cv::setNumThreads(1);
  const int width = int(state.range(0));
  std::vector<cv::Mat> frames;
  for (int k = 0; k < kFrames; ++k) {
    cv::Mat img = cv::imread(frame_path(k));
    if (img.empty()) {
      state.SkipWithError("cannot read the sequence");
      return;
    }
    if (img.cols != width) cv::resize(img, img, cv::Size(width, img.rows * width / img.cols), 0, 0, cv::INTER_LINEAR);
    frames.push_back(img);
  }
  cv::dnn::Net net = cv::dnn::readNetFromONNX(kOnnx);
  net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
  std::vector<cv::String> names = {"scores", "boxes"};
  std::vector<cv::Mat> outs;
  size_t k = 0;
  for (auto _ : state) {
    cv::Mat blob = cv::dnn::blobFromImage(frames[k++ % frames.size()], 1.0 / 128,
                                          cv::Size(ULTRAFACE_WIDTH, ULTRAFACE_HEIGHT),
                                          cv::Scalar(127.5, 127.5, 127.5), true);
    net.setInput(blob);
    net.forward(outs, names);
    benchmark::DoNotOptimize(outs[0].data);
  }
}
BENCHMARK(BM_DetectOpenCvDnn)->ArgName("width")->Arg(320)->Arg(640)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
