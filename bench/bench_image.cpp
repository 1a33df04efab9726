// Image and detector I/O against OpenCV and libyuv, single thread, same binary.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "oru_detector.h"

#if ORU_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif
#if ORU_HAVE_LIBYUV
#include <libyuv.h>
#include <libyuv/scale_rgb.h>
#endif

namespace {

oru_image *random_image(int32_t w, int32_t h, uint32_t format) {
  oru_image *im = oru_create_image(w, h, format);
  std::mt19937 gen(1);
  uint8_t *p = static_cast<uint8_t *>(im->data);
  int64_t n = im->stride * h;
  if (format == ORU_IMAGE_YUV420P) n = n * 3 / 2;
  for (int64_t i = 0; i < n; ++i) p[i] = uint8_t(gen());
  return im;
}

#if ORU_HAVE_OPENCV
struct SingleThread {
  SingleThread() { cv::setNumThreads(1); }
} single_thread;
cv::Mat as_mat(const oru_image *im, int type) { return cv::Mat(im->rows, im->cols, type, im->data, size_t(im->stride)); }
#endif

void BM_Oru_Resize_Bilinear_BGR_640x480_to_320x240(benchmark::State &s) {
  oru_image *src = random_image(640, 480, ORU_IMAGE_BGR24), *dst = oru_create_image(320, 240, ORU_IMAGE_BGR24);
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_resizer(dst, src, ORU_RESIZE_BILINEAR));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_Resize_Bilinear_BGR_640x480_to_320x240);

void BM_Oru_Resize_Bilinear_BGR_640x480_to_300x225(benchmark::State &s) {
  oru_image *src = random_image(640, 480, ORU_IMAGE_BGR24), *dst = oru_create_image(300, 225, ORU_IMAGE_BGR24);
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_resizer(dst, src, ORU_RESIZE_BILINEAR));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_Resize_Bilinear_BGR_640x480_to_300x225);

void BM_Oru_BGR_to_Gray_640x480(benchmark::State &s) {
  oru_image *src = random_image(640, 480, ORU_IMAGE_BGR24), *dst = oru_create_image(640, 480, ORU_IMAGE_GRAY8);
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_color_space_convert(dst, src, ORU_COLOR_BGR2GRAY));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_BGR_to_Gray_640x480);

void BM_Oru_I420_to_BGR_640x480(benchmark::State &s) {
  oru_image *src = random_image(640, 480, ORU_IMAGE_YUV420P), *dst = oru_create_image(640, 480, ORU_IMAGE_BGR24);
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_color_space_convert(dst, src, ORU_COLOR_YUV420P2BGR));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_I420_to_BGR_640x480);

std::string bench_path(const char *name) { return std::string("/tmp/oru_bench_") + name; }

void BM_Oru_BMP_Write_1920x1080(benchmark::State &s) {
  oru_image *im = random_image(1920, 1080, ORU_IMAGE_BGR24);
  const std::string path = bench_path("w.bmp");
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_write_to_file_with_level(path.c_str(), im));
  oru_release_matrix(&im);
}
BENCHMARK(BM_Oru_BMP_Write_1920x1080)->Unit(benchmark::kMillisecond);

void BM_Oru_BMP_Read_1920x1080(benchmark::State &s) {
  oru_image *im = random_image(1920, 1080, ORU_IMAGE_BGR24);
  const std::string path = bench_path("r.bmp");
  oru_image_write_to_file_with_level(path.c_str(), im);
  oru_release_matrix(&im);
  for (auto _ : s) {
    oru_image *r = oru_create_image_from_file(path.c_str(), 0);
    benchmark::DoNotOptimize(r);
    oru_release_matrix(&r);
  }
}
BENCHMARK(BM_Oru_BMP_Read_1920x1080)->Unit(benchmark::kMillisecond);

void BM_Oru_SSD_Input_320x240(benchmark::State &s) {
  oru_image *im = random_image(320, 240, ORU_IMAGE_BGR24);
  std::vector<float> out(3 * 320 * 240);
  oru_tensor t{};
  t.data = out.data();
  for (auto _ : s) {
    oru_transform_image_data_for_ssd_detector(&t, im);
    benchmark::DoNotOptimize(out.data());
  }
  oru_release_matrix(&im);
}
BENCHMARK(BM_Oru_SSD_Input_320x240);

void BM_Oru_NMS_4420(benchmark::State &s) {
  oru_tensor *priors = oru_generate_priors(240, 320, 0);
  const int32_t n = priors->dims[1];
  std::vector<float> boxes(size_t(n) * 5), centre(size_t(n) * 4), out(size_t(n) * 5);
  std::mt19937 gen(3);
  std::uniform_real_distribution<float> loc(-1.0f, 1.0f), score(0.0f, 1.0f);
  std::vector<float> locations(size_t(n) * 4);
  for (auto &v : locations) v = loc(gen);
  oru_convert_locations_to_boxes(centre.data(), locations.data(), static_cast<float *>(priors->data), n, 0.1f, 0.2f);
  oru_center_form_to_corner_form(centre.data(), n);
  for (int32_t i = 0; i < n; ++i) {
    std::memcpy(&boxes[5 * size_t(i)], &centre[4 * size_t(i)], 4 * sizeof(float));
    boxes[5 * size_t(i) + 4] = score(gen);
  }
  for (auto _ : s) benchmark::DoNotOptimize(oru_ssd_nms(out.data(), boxes.data(), n, 0.3f));
  oru_release_tensor(&priors);
}
BENCHMARK(BM_Oru_NMS_4420)->Unit(benchmark::kMicrosecond);

#if ORU_HAVE_OPENCV
void BM_OpenCV_Resize_Bilinear_BGR_640x480_to_320x240(benchmark::State &s) {
  oru_image *im = random_image(640, 480, ORU_IMAGE_BGR24);
  cv::Mat src = as_mat(im, CV_8UC3), dst;
  for (auto _ : s) cv::resize(src, dst, cv::Size(320, 240), 0, 0, cv::INTER_LINEAR);
  oru_release_matrix(&im);
}
BENCHMARK(BM_OpenCV_Resize_Bilinear_BGR_640x480_to_320x240);

void BM_OpenCV_Resize_Bilinear_BGR_640x480_to_300x225(benchmark::State &s) {
  oru_image *im = random_image(640, 480, ORU_IMAGE_BGR24);
  cv::Mat src = as_mat(im, CV_8UC3), dst;
  for (auto _ : s) cv::resize(src, dst, cv::Size(300, 225), 0, 0, cv::INTER_LINEAR);
  oru_release_matrix(&im);
}
BENCHMARK(BM_OpenCV_Resize_Bilinear_BGR_640x480_to_300x225);

void BM_OpenCV_BGR_to_Gray_640x480(benchmark::State &s) {
  oru_image *im = random_image(640, 480, ORU_IMAGE_BGR24);
  cv::Mat src = as_mat(im, CV_8UC3), dst;
  for (auto _ : s) cv::cvtColor(src, dst, cv::COLOR_BGR2GRAY);
  oru_release_matrix(&im);
}
BENCHMARK(BM_OpenCV_BGR_to_Gray_640x480);

void BM_OpenCV_I420_to_BGR_640x480(benchmark::State &s) {
  oru_image *im = random_image(640, 480, ORU_IMAGE_YUV420P);
  cv::Mat src(480 * 3 / 2, 640, CV_8UC1, im->data), dst;
  for (auto _ : s) cv::cvtColor(src, dst, cv::COLOR_YUV2BGR_I420);
  oru_release_matrix(&im);
}
BENCHMARK(BM_OpenCV_I420_to_BGR_640x480);

void BM_OpenCV_BMP_Write_1920x1080(benchmark::State &s) {
  oru_image *im = random_image(1920, 1080, ORU_IMAGE_BGR24);
  cv::Mat m = as_mat(im, CV_8UC3);
  const std::string path = bench_path("cvw.bmp");
  for (auto _ : s) benchmark::DoNotOptimize(cv::imwrite(path, m));
  oru_release_matrix(&im);
}
BENCHMARK(BM_OpenCV_BMP_Write_1920x1080)->Unit(benchmark::kMillisecond);

void BM_OpenCV_BMP_Read_1920x1080(benchmark::State &s) {
  oru_image *im = random_image(1920, 1080, ORU_IMAGE_BGR24);
  const std::string path = bench_path("cvr.bmp");
  cv::imwrite(path, as_mat(im, CV_8UC3));
  oru_release_matrix(&im);
  for (auto _ : s) benchmark::DoNotOptimize(cv::imread(path, cv::IMREAD_UNCHANGED));
}
BENCHMARK(BM_OpenCV_BMP_Read_1920x1080)->Unit(benchmark::kMillisecond);
#endif

#if ORU_HAVE_LIBYUV
void BM_Libyuv_I420_to_RGB24_640x480(benchmark::State &s) {
  oru_image *im = random_image(640, 480, ORU_IMAGE_YUV420P);
  std::vector<uint8_t> out(640 * 480 * 3);
  const uint8_t *y = static_cast<uint8_t *>(im->data), *u = static_cast<uint8_t *>(im->plane1),
                *v = static_cast<uint8_t *>(im->plane2);
  for (auto _ : s) libyuv::I420ToRGB24(y, 640, u, 320, v, 320, out.data(), 640 * 3, 640, 480);
  oru_release_matrix(&im);
}
BENCHMARK(BM_Libyuv_I420_to_RGB24_640x480);

void BM_Libyuv_RGB24_to_J400_640x480(benchmark::State &s) {
  oru_image *im = random_image(640, 480, ORU_IMAGE_BGR24);
  std::vector<uint8_t> out(640 * 480);
  for (auto _ : s)
    libyuv::RGB24ToJ400(static_cast<uint8_t *>(im->data), 640 * 3, out.data(), 640, 640, 480);
  oru_release_matrix(&im);
}
BENCHMARK(BM_Libyuv_RGB24_to_J400_640x480);

void BM_Libyuv_RGBScale_Bilinear_640x480_to_320x240(benchmark::State &s) {
  oru_image *im = random_image(640, 480, ORU_IMAGE_BGR24);
  std::vector<uint8_t> out(320 * 240 * 3);
  for (auto _ : s)
    libyuv::RGBScale(static_cast<uint8_t *>(im->data), 640 * 3, 640, 480, out.data(), 320 * 3, 320, 240,
                     libyuv::kFilterBilinear);
  oru_release_matrix(&im);
}
BENCHMARK(BM_Libyuv_RGBScale_Bilinear_640x480_to_320x240);
#endif

}  // namespace

BENCHMARK_MAIN();
