// Pose solvers on synthetic scenes, against the true pose and OpenCV's solvePnP.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include "pose_scenes.h"

namespace {

using pose_test::rotation_error;
using pose_test::Scene;
using pose_test::to_matrix;
using pose_test::view;

std::vector<Scene> load_scenes() { return pose_test::load_scenes("pose/pnp_scenes.txt", true); }

template <typename T>
uint32_t solve(const Scene &s, double R[9], double t[3]) {
  std::vector<T> obj(s.obj.begin(), s.obj.end()), img(s.img.begin(), s.img.end()), cam(s.cam, s.cam + 9);
  T Rt[9], tt[3];
  const uint32_t type = sizeof(T) == 4 ? aif32 : aif64;
  oru_matrix Rm = view(Rt, 3, 3, type), tm = view(tt, 3, 1, type), om = view(obj.data(), s.n, 3, type),
             im = view(img.data(), s.n, 2, type), cm = view(cam.data(), 3, 3, type);
  testing::internal::CaptureStdout();
  uint32_t status = oru_solve_3d_pnp(&Rm, &tm, &om, &im, &cm);
  testing::internal::GetCapturedStdout();
  for (int k = 0; k < 9; ++k) R[k] = Rt[k];
  for (int k = 0; k < 3; ++k) t[k] = tt[k];
  return status;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

TEST(Pnp, ExactNonPlanarScenesRecoverThePose) {
  int checked = 0;
  for (const Scene &s : load_scenes()) {
    if (s.noise != 0 || s.planar) continue;
    double Rtrue[9], R[9], t[3];
    to_matrix(s.r_true, Rtrue);
    const double dist = std::sqrt(s.t_true[0] * s.t_true[0] + s.t_true[1] * s.t_true[1] + s.t_true[2] * s.t_true[2]);
    ASSERT_EQ(solve<double>(s, R, t), 0u);
    EXPECT_LT(rotation_error(R, Rtrue), 1e-4) << "n = " << s.n;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(t[k], s.t_true[k], 1e-4 * dist) << "n = " << s.n;
    ASSERT_EQ(solve<float>(s, R, t), 0u);
    EXPECT_LT(rotation_error(R, Rtrue), 1e-3) << "float, n = " << s.n;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(t[k], s.t_true[k], 1e-3 * dist) << "float, n = " << s.n;
    ++checked;
  }
  EXPECT_EQ(checked, 18);
}

TEST(Pnp, NoisyScenesAreAsAccurateAsOpenCvIterative) {
  std::vector<double> ours, theirs, ours_planar, theirs_planar;
  for (const Scene &s : load_scenes()) {
    if (s.noise == 0) continue;
    double Rtrue[9], Rcv[9], R[9], t[3];
    to_matrix(s.r_true, Rtrue);
    to_matrix(s.r_cv, Rcv);
    ASSERT_EQ(solve<double>(s, R, t), 0u);
    (s.planar ? ours_planar : ours).push_back(rotation_error(R, Rtrue));
    (s.planar ? theirs_planar : theirs).push_back(rotation_error(Rcv, Rtrue));
  }
  const double mo = median(ours), mt = median(theirs);
  std::printf("median rotation error, non-planar: ours %.3g rad, OpenCV %.3g rad (%zu scenes)\n", mo, mt, ours.size());
  std::printf("median rotation error, planar: ours %.3g rad, OpenCV %.3g rad (%zu scenes)\n", median(ours_planar),
              median(theirs_planar), ours_planar.size());
  EXPECT_LE(mo, 1.5 * mt);
}

TEST(Pnp, LinearEstimatePrintsTwoTraceLinesAndLimitsPoints) {
  const Scene s = load_scenes()[0];
  std::vector<double> obj = s.obj, img = s.img;
  oru_matrix om = view(obj.data(), s.n, 3), im = view(img.data(), s.n, 2);
  double params[6];
  testing::internal::CaptureStdout();
  ASSERT_EQ(oru_solve_pnp_dlt(params, &om, &im, nullptr, s.cam), 0u);
  std::string out = testing::internal::GetCapturedStdout();
  std::istringstream lines(out);
  std::string l1, l2, l3;
  std::getline(lines, l1);
  std::getline(lines, l2);
  EXPECT_EQ(l1.rfind("det_v ", 0), 0u) << out;
  EXPECT_EQ(l2.rfind("sc 1", 0), 0u) << out;
  EXPECT_NE(l2.find(" r_t_params "), std::string::npos);
  EXPECT_FALSE(std::getline(lines, l3));
  // The linear estimate alone is already close on exact data.
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(params[3 + k], s.t_true[k], 1e-6);

  std::vector<double> big_obj(129 * 3, 1.0), big_img(129 * 2, 1.0), R(9), t(3);
  oru_matrix bo = view(big_obj.data(), 129, 3), bi = view(big_img.data(), 129, 2), Rm = view(R.data(), 3, 3),
             tm = view(t.data(), 3, 1), cm = view(const_cast<double *>(s.cam), 9, 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_solve_pnp_dlt(params, &bo, &bi, nullptr, s.cam), ORU_RET_ERR_NOT_SUPPORT);
  EXPECT_EQ(oru_solve_3d_pnp(&Rm, &tm, &bo, &bi, &cm), ORU_RET_ERR_NOT_SUPPORT);
  out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("points number is too big!"), std::string::npos);
}

TEST(Pnp, LinearEstimateHandlesAnglesNearZeroAndPi) {
  // There the antisymmetric part of R vanishes and the axis must come from elsewhere.
  std::mt19937 gen(23);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  const double cam[9] = {800, 0, 320, 0, 780, 240, 0, 0, 1};
  const double axis_raw[3] = {0.3, -0.8, 0.52};
  const double an = std::sqrt(0.09 + 0.64 + 0.2704);
  for (double angle : {0.0, 1e-7, M_PI - 1e-7, M_PI}) {
    double r[3], R[9];
    for (int k = 0; k < 3; ++k) r[k] = axis_raw[k] / an * angle;
    to_matrix(r, R);
    const double t[3] = {0.2, -0.1, 6.0};
    std::vector<double> obj, img;
    for (int i = 0; i < 10; ++i) {
      double X[3] = {d(gen), d(gen), d(gen)}, pc[3];
      for (int k = 0; k < 3; ++k) pc[k] = R[3 * k] * X[0] + R[3 * k + 1] * X[1] + R[3 * k + 2] * X[2] + t[k];
      obj.insert(obj.end(), X, X + 3);
      img.push_back(cam[0] * pc[0] / pc[2] + cam[2]);
      img.push_back(cam[4] * pc[1] / pc[2] + cam[5]);
    }
    oru_matrix om = view(obj.data(), 10, 3), im = view(img.data(), 10, 2);
    double params[6], Rdlt[9];
    testing::internal::CaptureStdout();
    ASSERT_EQ(oru_solve_pnp_dlt(params, &om, &im, nullptr, cam), 0u);
    testing::internal::GetCapturedStdout();
    to_matrix(params, Rdlt);
    EXPECT_LT(rotation_error(Rdlt, R), 1e-6) << "angle " << angle;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(params[3 + k], t[k], 1e-6);
  }
}

TEST(Pnp, BadAndDegenerateInputsGiveAStatus) {
  const Scene s = load_scenes()[0];
  std::vector<double> obj = s.obj, img = s.img, R(9), t(4), cam(s.cam, s.cam + 9);
  std::vector<float> camf(s.cam, s.cam + 9);
  oru_matrix om = view(obj.data(), s.n, 3), im = view(img.data(), s.n, 2), Rm = view(R.data(), 3, 3),
             tm = view(t.data(), 3, 1), t4 = view(t.data(), 4, 1), cm = view(cam.data(), 9, 1),
             cf = view(camf.data(), 9, 1, aif32);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_solve_3d_pnp(&Rm, &t4, &om, &im, &cm), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_solve_3d_pnp(&Rm, &tm, &om, &im, &cf), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_solve_3d_pnp(nullptr, &tm, &om, &im, &cm), ORU_RET_ERR_PARA);
  oru_matrix short_img = view(img.data(), s.n - 1, 2);
  EXPECT_EQ(oru_solve_3d_pnp(&Rm, &tm, &om, &short_img, &cm), ORU_RET_ERR_PARA);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("parameters errors!"), std::string::npos);

  // Collinear points, too few points and not-a-number values run to an end.
  std::vector<double> line_obj, line_img;
  for (int i = 0; i < 8; ++i) {
    line_obj.insert(line_obj.end(), {0.1 * i, 0.2 * i, 5.0 + 0.1 * i});
    line_img.insert(line_img.end(), {320 + 10.0 * i, 240 + 20.0 * i});
  }
  oru_matrix lo = view(line_obj.data(), 8, 3), li = view(line_img.data(), 8, 2);
  oru_matrix few_o = view(obj.data(), 3, 3), few_i = view(img.data(), 3, 2);
  std::vector<double> nan_img = img;
  nan_img[3] = NAN;
  oru_matrix ni = view(nan_img.data(), s.n, 2);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_solve_3d_pnp(&Rm, &tm, &lo, &li, &cm), 0u);
  EXPECT_EQ(oru_solve_3d_pnp(&Rm, &tm, &few_o, &few_i, &cm), 0u);
  EXPECT_EQ(oru_solve_3d_pnp(&Rm, &tm, &om, &ni, &cm), 0u);
  testing::internal::GetCapturedStdout();
}

TEST(Ap3p, OneOfTheSolutionsIsTheTruePose) {
  int checked = 0;
  for (const Scene &s : load_scenes()) {
    if (s.noise != 0 || s.planar) continue;
    float obj[9], img[6], cam[9];
    for (int k = 0; k < 9; ++k) {
      obj[k] = float(s.obj[k]);
      cam[k] = float(s.cam[k]);
    }
    // Image positions from the float points, so the data is exact at float precision.
    double Rtrue[9];
    to_matrix(s.r_true, Rtrue);
    for (int i = 0; i < 3; ++i) {
      double pc[3];
      for (int k = 0; k < 3; ++k)
        pc[k] = Rtrue[3 * k] * obj[3 * i] + Rtrue[3 * k + 1] * obj[3 * i + 1] + Rtrue[3 * k + 2] * obj[3 * i + 2] +
                s.t_true[k];
      img[2 * i] = float(cam[0] * pc[0] / pc[2] + cam[2]);
      img[2 * i + 1] = float(cam[4] * pc[1] / pc[2] + cam[5]);
    }
    double Rs[36], ts[12];
    uint32_t count = 99;
    ASSERT_EQ(oru_solve_ap3p(Rs, ts, obj, img, cam, nullptr, &count), 0u);
    ASSERT_GE(count, 1u);
    ASSERT_LE(count, 4u);
    double best = 1e9;
    int best_i = 0;
    // Candidates from complex quartic roots come back as their real parts, so only the
    // best one is known to be a rotation.
    for (uint32_t i = 0; i < count; ++i) {
      double e = rotation_error(Rs + 9 * i, Rtrue);
      if (e < best) {
        best = e;
        best_i = int(i);
      }
    }
    const double *B = Rs + 9 * best_i;
    double det = B[0] * (B[4] * B[8] - B[5] * B[7]) - B[1] * (B[3] * B[8] - B[5] * B[6]) +
                 B[2] * (B[3] * B[7] - B[4] * B[6]);
    EXPECT_NEAR(det, 1.0, 1e-6);
    EXPECT_LT(best, 1e-4);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(ts[3 * best_i + k], s.t_true[k], 1e-3);
    ++checked;
  }
  EXPECT_GT(checked, 0);
  double R[36], t[12];
  uint32_t count;
  float p[9] = {0}, q[6] = {0}, c[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  EXPECT_EQ(oru_solve_ap3p(R, t, nullptr, q, c, nullptr, &count), 1u);
  EXPECT_EQ(oru_solve_ap3p(R, t, p, q, c, nullptr, nullptr), 1u);
  // Collinear points leave the problem without a unique answer; the call still ends.
  float line[9] = {0, 0, 5, 1, 1, 6, 2, 2, 7}, pix[6] = {320, 240, 400, 300, 450, 340};
  float cam[9] = {800, 0, 320, 0, 780, 240, 0, 0, 1};
  count = 99;
  EXPECT_EQ(oru_solve_ap3p(R, t, line, pix, cam, nullptr, &count), 0u);
  EXPECT_LE(count, 4u);
}

}  // namespace
