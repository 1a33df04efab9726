// Image geometry, homography and planar pose against OpenCV, single thread, same binary.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "oru_image.h"
#include "oru_pose.h"

#if ORU_HAVE_OPENCV
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

oru_image *random_image(int32_t w, int32_t h, uint32_t format) {
  oru_image *im = oru_create_image(w, h, format);
  std::mt19937 gen(1);
  uint8_t *p = static_cast<uint8_t *>(im->data);
  for (int64_t i = 0; i < im->stride * h; ++i) p[i] = uint8_t(gen());
  return im;
}

#if ORU_HAVE_OPENCV
struct SingleThread {
  SingleThread() { cv::setNumThreads(1); }
} single_thread;
cv::Mat as_mat(const oru_image *im) {
  return cv::Mat(im->rows, im->cols, im->channels == 3 ? CV_8UC3 : CV_8UC1, im->data, size_t(im->stride));
}
#endif

// ---- quarter turn, mirror, transposition: 1920 x 1080 ----

void BM_Oru_Rotate90_BGR_1920x1080(benchmark::State &s) {
  oru_image *src = random_image(1920, 1080, ORU_IMAGE_BGR24), *dst = oru_create_image(1080, 1920, ORU_IMAGE_BGR24);
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_rotation_with_special_degree(dst, src, 90, 0));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_Rotate90_BGR_1920x1080)->Unit(benchmark::kMillisecond);

void BM_Oru_Mirror_BGR_1920x1080(benchmark::State &s) {
  oru_image *src = random_image(1920, 1080, ORU_IMAGE_BGR24), *dst = oru_create_image(1920, 1080, ORU_IMAGE_BGR24);
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_horizontal_flip(dst, src));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_Mirror_BGR_1920x1080)->Unit(benchmark::kMillisecond);

void BM_Oru_Transpose_Gray_1920x1080(benchmark::State &s) {
  oru_image *src = random_image(1920, 1080, ORU_IMAGE_GRAY8), *dst = oru_create_image(1080, 1920, ORU_IMAGE_GRAY8);
  // 90 degrees read bottom row first is the plain transposition.
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_rotation_with_special_degree(dst, src, 90, 1));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_Transpose_Gray_1920x1080)->Unit(benchmark::kMillisecond);

// ---- affine warp, 640 x 480 BGR, bilinear ----

const float kAffinePoints[16] = {10, 20, 600, 40, 60, 460, 0, 0, 0, 0, 640, 0, 0, 480, 0, 0};

void BM_Oru_WarpAffine_Bilinear_BGR_640x480(benchmark::State &s) {
  oru_image *src = random_image(640, 480, ORU_IMAGE_BGR24), *dst = oru_create_image(640, 480, ORU_IMAGE_BGR24);
  oru_map_geometry2d map{};
  oru_make_map_geometry2d_transformation(&map, kAffinePoints, ORU_MAP_AFFINE);
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_2d_geometry_transformation_with_border_mode(dst, src, &map, 1, 0));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_WarpAffine_Bilinear_BGR_640x480)->Unit(benchmark::kMillisecond);

void BM_Oru_Rotation_Bilinear_BGR_640x480(benchmark::State &s) {
  oru_image *src = random_image(640, 480, ORU_IMAGE_BGR24), *dst = oru_create_image(640, 480, ORU_IMAGE_BGR24);
  const oru_rotation_params p = {17, 320.0f, 240.0f, 1.1f, 1.1f, 1};
  for (auto _ : s) benchmark::DoNotOptimize(oru_image_rotation(dst, src, &p));
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_Oru_Rotation_Bilinear_BGR_640x480)->Unit(benchmark::kMillisecond);

// ---- homography from 100 pairs, planar pose from 50 points ----

struct Pairs {
  std::vector<double> src, dst;
};

Pairs homography_pairs(int n) {
  std::mt19937 gen(3);
  std::uniform_real_distribution<double> u(0, 640);
  std::normal_distribution<double> noise(0, 1);
  const double H[9] = {1.1, 0.2, 30, -0.15, 0.9, 12, 3e-4, -2e-4, 1};
  Pairs p;
  for (int i = 0; i < n; ++i) {
    const double x = u(gen), y = u(gen), w = H[6] * x + H[7] * y + H[8];
    p.src.insert(p.src.end(), {x, y});
    p.dst.push_back((H[0] * x + H[1] * y + H[2]) / w + noise(gen));
    p.dst.push_back((H[3] * x + H[4] * y + H[5]) / w + noise(gen));
  }
  return p;
}

void BM_Oru_Homography_100(benchmark::State &s) {
  const Pairs p = homography_pairs(100);
  double H[9];
  oru_matrix m{};
  oru_set_matrix_header(&m, 3, 3, 1, aif64);
  m.data = H;
  for (auto _ : s) {
    benchmark::DoNotOptimize(oru_find_homography_transform(&m, p.src.data(), p.dst.data(), 100));
    benchmark::DoNotOptimize(H);
  }
}
BENCHMARK(BM_Oru_Homography_100)->Unit(benchmark::kMicrosecond);

const double kCam[9] = {800, 0, 320, 0, 780, 240, 0, 0, 1};

struct Board {
  std::vector<double> obj, img;
};

Board planar_board(int n) {
  std::mt19937 gen(9);
  std::uniform_real_distribution<double> u(-0.5, 0.5);
  std::normal_distribution<double> noise(0, 1);
  // A board turned by about 25 degrees, 3 units in front of the camera.
  const double R[9] = {0.9, -0.1, 0.42, 0.19, 0.96, -0.2, -0.39, 0.25, 0.88}, t[3] = {0.1, -0.05, 3.0};
  Board b;
  for (int i = 0; i < n; ++i) {
    const double X[3] = {u(gen), u(gen), 0};
    double c[3];
    for (int k = 0; k < 3; ++k) c[k] = R[3 * k] * X[0] + R[3 * k + 1] * X[1] + t[k];
    b.obj.insert(b.obj.end(), X, X + 3);
    b.img.push_back(kCam[0] * c[0] / c[2] + kCam[2] + noise(gen));
    b.img.push_back(kCam[4] * c[1] / c[2] + kCam[5] + noise(gen));
  }
  return b;
}

void BM_Oru_PlanarPose_50(benchmark::State &s) {
  Board b = planar_board(50);
  double R[9], t[3];
  oru_matrix Rm{}, tm{}, om{}, im{}, cm{};
  oru_set_matrix_header(&Rm, 3, 3, 1, aif64);
  Rm.data = R;
  oru_set_matrix_header(&tm, 3, 1, 1, aif64);
  tm.data = t;
  oru_set_matrix_header(&cm, 3, 3, 1, aif64);
  cm.data = const_cast<double *>(kCam);
  oru_set_matrix_header(&om, 50, 3, 1, aif64);
  om.data = b.obj.data();
  oru_set_matrix_header(&im, 50, 2, 1, aif64);
  im.data = b.img.data();
  for (auto _ : s) {
    benchmark::DoNotOptimize(oru_solve_planar_pnp(&Rm, &tm, &om, &im, &cm));
    benchmark::DoNotOptimize(R);
  }
}
BENCHMARK(BM_Oru_PlanarPose_50)->Unit(benchmark::kMicrosecond);

#if ORU_HAVE_OPENCV

void BM_OpenCV_Rotate90_BGR_1920x1080(benchmark::State &s) {
  oru_image *src = random_image(1920, 1080, ORU_IMAGE_BGR24), *dst = oru_create_image(1080, 1920, ORU_IMAGE_BGR24);
  cv::Mat a = as_mat(src), b = as_mat(dst);
  for (auto _ : s) cv::rotate(a, b, cv::ROTATE_90_CLOCKWISE);
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_OpenCV_Rotate90_BGR_1920x1080)->Unit(benchmark::kMillisecond);

void BM_OpenCV_Mirror_BGR_1920x1080(benchmark::State &s) {
  oru_image *src = random_image(1920, 1080, ORU_IMAGE_BGR24), *dst = oru_create_image(1920, 1080, ORU_IMAGE_BGR24);
  cv::Mat a = as_mat(src), b = as_mat(dst);
  for (auto _ : s) cv::flip(a, b, 1);
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_OpenCV_Mirror_BGR_1920x1080)->Unit(benchmark::kMillisecond);

void BM_OpenCV_Transpose_Gray_1920x1080(benchmark::State &s) {
  oru_image *src = random_image(1920, 1080, ORU_IMAGE_GRAY8), *dst = oru_create_image(1080, 1920, ORU_IMAGE_GRAY8);
  cv::Mat a = as_mat(src), b = as_mat(dst);
  for (auto _ : s) cv::transpose(a, b);
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_OpenCV_Transpose_Gray_1920x1080)->Unit(benchmark::kMillisecond);

void BM_OpenCV_WarpAffine_Bilinear_BGR_640x480(benchmark::State &s) {
  oru_image *src = random_image(640, 480, ORU_IMAGE_BGR24), *dst = oru_create_image(640, 480, ORU_IMAGE_BGR24);
  oru_map_geometry2d map{};
  oru_make_map_geometry2d_transformation(&map, kAffinePoints, ORU_MAP_AFFINE);
  cv::Mat a = as_mat(src), b = as_mat(dst);
  const cv::Mat M = (cv::Mat_<double>(2, 3) << map.inverse[0], map.inverse[1], map.inverse[2], map.inverse[3],
                     map.inverse[4], map.inverse[5]);
  for (auto _ : s)
    cv::warpAffine(a, b, M, b.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT, cv::Scalar());
  oru_release_matrix(&src);
  oru_release_matrix(&dst);
}
BENCHMARK(BM_OpenCV_WarpAffine_Bilinear_BGR_640x480)->Unit(benchmark::kMillisecond);

void BM_OpenCV_Homography_100(benchmark::State &s) {
  const Pairs p = homography_pairs(100);
  std::vector<cv::Point2d> a, b;
  for (int i = 0; i < 100; ++i) {
    a.emplace_back(p.src[2 * i], p.src[2 * i + 1]);
    b.emplace_back(p.dst[2 * i], p.dst[2 * i + 1]);
  }
  for (auto _ : s) benchmark::DoNotOptimize(cv::findHomography(a, b, 0));
}
BENCHMARK(BM_OpenCV_Homography_100)->Unit(benchmark::kMicrosecond);

void BM_OpenCV_PlanarPose_IPPE_50(benchmark::State &s) {
  Board bd = planar_board(50);
  std::vector<cv::Point3d> obj;
  std::vector<cv::Point2d> img;
  for (int i = 0; i < 50; ++i) {
    obj.emplace_back(bd.obj[3 * i], bd.obj[3 * i + 1], bd.obj[3 * i + 2]);
    img.emplace_back(bd.img[2 * i], bd.img[2 * i + 1]);
  }
  const cv::Mat K = (cv::Mat_<double>(3, 3) << 800, 0, 320, 0, 780, 240, 0, 0, 1);
  cv::Mat r, t;
  for (auto _ : s) benchmark::DoNotOptimize(cv::solvePnP(obj, img, K, cv::noArray(), r, t, false, cv::SOLVEPNP_IPPE));
}
BENCHMARK(BM_OpenCV_PlanarPose_IPPE_50)->Unit(benchmark::kMicrosecond);

#endif

}  // namespace

BENCHMARK_MAIN();
