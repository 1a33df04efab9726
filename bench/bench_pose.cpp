// Decompositions, pose solving and random draws against their peers on one core.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "pose/oru_pose_internal.h"
#include "oru_matrix.h"
#include "oru_pose.h"

#ifdef ORU_HAVE_OPENCV
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#endif
#ifdef ORU_HAVE_EIGEN
#include <Eigen/SVD>
#endif

namespace {

template <typename T>
std::vector<T> random_matrix(int n, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  std::vector<T> v(n * n);
  for (T &x : v) x = T(d(gen));
  return v;
}

template <typename T>
void BM_OruSvd(benchmark::State &state) {
  const int n = int(state.range(0));
  auto a = random_matrix<T>(n, 1);
  std::vector<T> u(n * n), v(n * n), w(n);
  oru_matrix am{}, um{}, vm{}, wm{};
  const uint32_t type = sizeof(T) == 4 ? aif32 : aif64;
  oru_set_matrix_header(&am, n, n, 1, type);
  am.data = a.data();
  um.data = u.data();
  vm.data = v.data();
  wm.data = w.data();
  for (auto _ : state) {
    oru_small_matrix_svd(&um, &vm, &wm, &am, 0);
    benchmark::DoNotOptimize(w.data());
  }
}
BENCHMARK_TEMPLATE(BM_OruSvd, double)->Arg(9);
BENCHMARK_TEMPLATE(BM_OruSvd, float)->Arg(3);

#ifdef ORU_HAVE_OPENCV
template <typename T>
void BM_OpenCvSvd(benchmark::State &state) {
  cv::setNumThreads(1);
  const int n = int(state.range(0));
  auto a = random_matrix<T>(n, 1);
  cv::Mat m(n, n, sizeof(T) == 4 ? CV_32F : CV_64F, a.data()), w, u, vt;
  for (auto _ : state) {
    cv::SVD::compute(m, w, u, vt);
    benchmark::DoNotOptimize(w.data);
  }
}
BENCHMARK_TEMPLATE(BM_OpenCvSvd, double)->Arg(9);
BENCHMARK_TEMPLATE(BM_OpenCvSvd, float)->Arg(3);
#endif

#ifdef ORU_HAVE_EIGEN
template <typename T>
void BM_EigenJacobiSvd(benchmark::State &state) {
  const int n = int(state.range(0));
  auto a = random_matrix<T>(n, 1);
  using Mat = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  Mat m = Eigen::Map<Mat>(a.data(), n, n);
  for (auto _ : state) {
    Eigen::JacobiSVD<Mat> svd(m, Eigen::ComputeFullU | Eigen::ComputeFullV);
    benchmark::DoNotOptimize(svd.singularValues().data());
  }
}
BENCHMARK_TEMPLATE(BM_EigenJacobiSvd, double)->Arg(9);
BENCHMARK_TEMPLATE(BM_EigenJacobiSvd, float)->Arg(3);
#endif

// A fixed set of 50-point scenes with 1 px noise, the same for every solver.
struct Scene {
  std::vector<double> obj, img;
  double R[9], t[3];
};
const double kCam[9] = {800, 0, 320, 0, 780, 240, 0, 0, 1};

std::vector<Scene> make_scenes(int count, int n) {
  std::mt19937 gen(77);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::normal_distribution<double> noise(0.0, 1.0);
  std::vector<Scene> scenes;
  while (int(scenes.size()) < count) {
    Scene s;
    double r[3] = {u(gen), u(gen), u(gen)};
    oru_matrix rm{}, Rm{};
    oru_set_matrix_header(&rm, 3, 1, 1, aif64);
    rm.data = r;
    oru_set_matrix_header(&Rm, 3, 3, 1, aif64);
    Rm.data = s.R;
    oru_rodrigues2_jacobian(&Rm, nullptr, &rm);
    s.t[0] = 0.5 * u(gen);
    s.t[1] = 0.5 * u(gen);
    s.t[2] = 6.0 + 2.0 * u(gen);
    bool ok = true;
    for (int i = 0; i < n; ++i) {
      double X[3] = {u(gen), u(gen), u(gen)}, pc[3];
      for (int k = 0; k < 3; ++k) pc[k] = s.R[3 * k] * X[0] + s.R[3 * k + 1] * X[1] + s.R[3 * k + 2] * X[2] + s.t[k];
      ok &= pc[2] > 1.0;
      s.obj.insert(s.obj.end(), X, X + 3);
      s.img.push_back(kCam[0] * pc[0] / pc[2] + kCam[2] + noise(gen));
      s.img.push_back(kCam[4] * pc[1] / pc[2] + kCam[5] + noise(gen));
    }
    if (ok) scenes.push_back(s);
  }
  return scenes;
}

double rotation_error(const double *R1, const double *R2) {
  double tr = 0;
  for (int k = 0; k < 9; ++k) tr += R1[k] * R2[k];
  return std::acos(std::clamp((tr - 1) / 2, -1.0, 1.0));
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// The linear estimate prints two trace lines per call; keep them off the report.
struct QuietStdout {
  int saved;
  QuietStdout() {
    fflush(stdout);
    saved = dup(1);
    int null_fd = open("/dev/null", O_WRONLY);
    dup2(null_fd, 1);
    close(null_fd);
  }
  ~QuietStdout() {
    fflush(stdout);
    dup2(saved, 1);
    close(saved);
  }
};

void BM_OruPnp50(benchmark::State &state) {
  auto scenes = make_scenes(32, 50);
  std::vector<double> errors;
  double R[9], t[3];
  oru_matrix Rm{}, tm{}, om{}, im{}, cm{};
  oru_set_matrix_header(&Rm, 3, 3, 1, aif64);
  Rm.data = R;
  oru_set_matrix_header(&tm, 3, 1, 1, aif64);
  tm.data = t;
  oru_set_matrix_header(&cm, 3, 3, 1, aif64);
  cm.data = const_cast<double *>(kCam);
  oru_set_matrix_header(&om, 50, 3, 1, aif64);
  oru_set_matrix_header(&im, 50, 2, 1, aif64);
  QuietStdout quiet;
  for (auto &s : scenes) {
    om.data = s.obj.data();
    im.data = s.img.data();
    oru_solve_3d_pnp(&Rm, &tm, &om, &im, &cm);
    errors.push_back(rotation_error(R, s.R));
  }
  size_t k = 0;
  for (auto _ : state) {
    auto &s = scenes[k++ % scenes.size()];
    om.data = s.obj.data();
    im.data = s.img.data();
    oru_solve_3d_pnp(&Rm, &tm, &om, &im, &cm);
    benchmark::DoNotOptimize(R);
  }
  state.counters["median_rot_err_mrad"] = 1e3 * median(errors);
}
BENCHMARK(BM_OruPnp50);

#ifdef ORU_HAVE_OPENCV
void BM_OpenCvPnp50(benchmark::State &state) {
  cv::setNumThreads(1);
  const int flags = int(state.range(0));
  auto scenes = make_scenes(32, 50);
  cv::Mat K(3, 3, CV_64F, const_cast<double *>(kCam));
  std::vector<double> errors;
  cv::Mat rvec, tvec, R;
  for (auto &s : scenes) {
    cv::Mat obj(50, 3, CV_64F, s.obj.data()), img(50, 2, CV_64F, s.img.data());
    cv::solvePnP(obj, img, K, cv::noArray(), rvec, tvec, false, flags);
    cv::Rodrigues(rvec, R);
    errors.push_back(rotation_error(R.ptr<double>(), s.R));
  }
  size_t k = 0;
  for (auto _ : state) {
    auto &s = scenes[k++ % scenes.size()];
    cv::Mat obj(50, 3, CV_64F, s.obj.data()), img(50, 2, CV_64F, s.img.data());
    cv::solvePnP(obj, img, K, cv::noArray(), rvec, tvec, false, flags);
    benchmark::DoNotOptimize(rvec.data);
  }
  state.counters["median_rot_err_mrad"] = 1e3 * median(errors);
}
BENCHMARK(BM_OpenCvPnp50)->Arg(cv::SOLVEPNP_ITERATIVE)->Arg(cv::SOLVEPNP_SQPNP);
#endif

void BM_OruRandi(benchmark::State &state) {
  oru_rand_init(5489u);
  for (auto _ : state) {
    uint32_t acc = 0;
    for (int i = 0; i < 1024; ++i) acc += oru_randi();
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_OruRandi);

void BM_StdMt19937(benchmark::State &state) {
  std::mt19937 gen(5489u);
  for (auto _ : state) {
    uint32_t acc = 0;
    for (int i = 0; i < 1024; ++i) acc += gen();
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * 1024);
}
BENCHMARK(BM_StdMt19937);

}  // namespace

BENCHMARK_MAIN();
