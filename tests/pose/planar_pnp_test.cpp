// Pose from coplanar points on synthetic scenes against the true pose and OpenCV's
// solvePnP with SOLVEPNP_IPPE (tests/oracles/gen_geometry_refs.py), and its refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include "pose_scenes.h"

namespace {

using PlaneScene = pose_test::Scene;
using pose_test::distance;
using pose_test::rotation_error;
using pose_test::to_matrix;
using pose_test::view;

std::vector<PlaneScene> load_plane_scenes() {
  std::vector<PlaneScene> scenes = pose_test::load_scenes("geometry/planar_scenes.txt", false);
  EXPECT_EQ(scenes.size(), 120u);
  return scenes;
}

template <typename T>
uint32_t solve(const std::vector<double> &obj_d, const std::vector<double> &img_d, const double *cam_d, double R[9],
               double t[3]) {
  std::vector<T> obj(obj_d.begin(), obj_d.end()), img(img_d.begin(), img_d.end()), cam(cam_d, cam_d + 9);
  T Rt[9] = {0}, tt[3] = {0};
  const uint32_t type = sizeof(T) == 4 ? aif32 : aif64;
  const int32_t n = int32_t(img.size() / 2);
  oru_matrix Rm = view(Rt, 3, 3, type), tm = view(tt, 3, 1, type), om = view(obj.data(), int32_t(obj.size() / 3), 3, type),
             im = view(img.data(), n, 2, type), cm = view(cam.data(), 3, 3, type);
  const uint32_t status = oru_solve_planar_pnp(&Rm, &tm, &om, &im, &cm);
  for (int k = 0; k < 9; ++k) R[k] = double(Rt[k]);
  for (int k = 0; k < 3; ++k) t[k] = double(tt[k]);
  return status;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

}  // namespace

TEST(PlanarPnp, ExactScenesRecoverThePoseInAnyPlacementOfThePlane) {
  std::mt19937 gen(5);
  std::normal_distribution<double> normal;
  int checked = 0;
  for (const PlaneScene &s : load_plane_scenes()) {
    if (s.noise != 0) continue;
    double Rtrue[9], R[9], t[3];
    to_matrix(s.r_true, Rtrue);
    ASSERT_EQ(solve<double>(s.obj, s.img, s.cam, R, t), 0u) << "n " << s.n;
    EXPECT_LT(rotation_error(R, Rtrue), 1e-6) << "n " << s.n;
    EXPECT_LT(distance(t, s.t_true), 1e-6) << "n " << s.n;
    ASSERT_EQ(solve<float>(s.obj, s.img, s.cam, R, t), 0u);
    EXPECT_LT(rotation_error(R, Rtrue), 1e-3) << "float, n " << s.n;
    EXPECT_LT(distance(t, s.t_true), 1e-3 * s.t_true[2]) << "float, n " << s.n;
    // The same board moved rigidly in the object frame (X' = Q X + c): the pose becomes
    // R Q^T, t - R Q^T c, and the image stays.
    const double q[3] = {normal(gen), normal(gen), normal(gen)}, c[3] = {normal(gen), normal(gen), normal(gen)};
    double Q[9], Rq[9], tq[3];
    to_matrix(q, Q);
    std::vector<double> moved(s.obj.size());
    for (int i = 0; i < s.n; ++i)
      for (int r = 0; r < 3; ++r)
        moved[3 * size_t(i) + r] = Q[3 * r] * s.obj[3 * size_t(i)] + Q[3 * r + 1] * s.obj[3 * size_t(i) + 1] +
                                   Q[3 * r + 2] * s.obj[3 * size_t(i) + 2] + c[r];
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) Rq[3 * i + j] = Rtrue[3 * i] * Q[3 * j] + Rtrue[3 * i + 1] * Q[3 * j + 1] + Rtrue[3 * i + 2] * Q[3 * j + 2];
    for (int i = 0; i < 3; ++i) tq[i] = s.t_true[i] - (Rq[3 * i] * c[0] + Rq[3 * i + 1] * c[1] + Rq[3 * i + 2] * c[2]);
    ASSERT_EQ(solve<double>(moved, s.img, s.cam, R, t), 0u);
    EXPECT_LT(rotation_error(R, Rq), 1e-6) << "moved, n " << s.n;
    EXPECT_LT(distance(t, tq), 1e-6) << "moved, n " << s.n;
    ++checked;
  }
  EXPECT_EQ(checked, 30);
}

// Sum of squared reprojection errors of the pose (R, t).
double reprojection(const PlaneScene &s, const double R[9], const double t[3]) {
  double e = 0;
  for (int i = 0; i < s.n; ++i) {
    const double *X = &s.obj[3 * size_t(i)];
    double c[3];
    for (int r = 0; r < 3; ++r) c[r] = R[3 * r] * X[0] + R[3 * r + 1] * X[1] + R[3 * r + 2] * X[2] + t[r];
    const double u = s.cam[0] * c[0] / c[2] + s.cam[2], v = s.cam[4] * c[1] / c[2] + s.cam[5];
    e += (u - s.img[2 * size_t(i)]) * (u - s.img[2 * size_t(i)]) + (v - s.img[2 * size_t(i) + 1]) * (v - s.img[2 * size_t(i) + 1]);
  }
  return e;
}

TEST(PlanarPnp, NoisyScenesAreAsAccurateAsIppe) {
  // Every scene: a reprojection error no worse than IPPE's (the refinement reaches a
  // minimum at least as deep). Over all noisy scenes: median pose errors within 10 % of IPPE's.
  std::vector<double> ours_r, ippe_r, ours_t, ippe_t;
  for (const PlaneScene &s : load_plane_scenes()) {
    if (s.noise == 0) continue;
    double Rtrue[9], Ripp[9], R[9], t[3];
    to_matrix(s.r_true, Rtrue);
    to_matrix(s.r_cv, Ripp);
    ASSERT_EQ(solve<double>(s.obj, s.img, s.cam, R, t), 0u);
    EXPECT_LE(reprojection(s, R, t), reprojection(s, Ripp, s.t_cv) * (1 + 1e-9)) << "n " << s.n << " noise " << s.noise;
    ours_r.push_back(rotation_error(R, Rtrue));
    ippe_r.push_back(rotation_error(Ripp, Rtrue));
    ours_t.push_back(distance(t, s.t_true));
    ippe_t.push_back(distance(s.t_cv, s.t_true));
  }
  const double mr = median(ours_r), ir = median(ippe_r), mt = median(ours_t), it = median(ippe_t);
  std::printf("%zu scenes: median rotation error %.3g (IPPE %.3g) rad, translation %.3g (IPPE %.3g)\n", ours_r.size(),
              mr, ir, mt, it);
  EXPECT_LE(mr, 1.1 * ir);
  EXPECT_LE(mt, 1.1 * it);
}

TEST(PlanarPnp, RefusesWhatFixesNoPose) {
  const PlaneScene s = load_plane_scenes()[40];
  double R[9], t[3];
  auto expect_refusal = [&](const std::vector<double> &obj, const std::vector<double> &img, uint32_t status,
                            const char *message) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(solve<double>(obj, img, s.cam, R, t), status) << message;
    EXPECT_NE(testing::internal::GetCapturedStdout().find(message), std::string::npos) << message;
  };
  // Three points.
  expect_refusal(std::vector<double>(s.obj.begin(), s.obj.begin() + 9), std::vector<double>(s.img.begin(), s.img.begin() + 6),
                 ORU_RET_ERR_DATA_LENGTH, "at least four points are needed!");
  // Off the plane by a tenth of the board.
  std::vector<double> bent = s.obj;
  for (int i = 0; i < s.n; i += 2) bent[3 * size_t(i) + 2] += 0.1;
  expect_refusal(bent, s.img, ORU_RET_ERR_NOT_SUPPORT, "points are not on one plane!");
  // On one line, and all in one place.
  std::vector<double> line(s.obj.size()), same(s.obj.size(), 0.25);
  for (int i = 0; i < s.n; ++i) {
    line[3 * size_t(i)] = 0.1 * i;
    line[3 * size_t(i) + 1] = 0.05 * i - 0.2;
    line[3 * size_t(i) + 2] = 0;
  }
  expect_refusal(line, s.img, ORU_RET_ERR_NOT_SUPPORT, "points are degenerate!");
  expect_refusal(same, s.img, ORU_RET_ERR_NOT_SUPPORT, "points are degenerate!");
  // Image points that all coincide: no homography.
  expect_refusal(s.obj, std::vector<double>(s.img.size(), 100.0), ORU_RET_ERR_NOT_SUPPORT, "points are degenerate!");
  // Null and mismatched records.
  std::vector<double> obj = s.obj, img = s.img, cam(s.cam, s.cam + 9);
  double Rt[9], tt[4];
  oru_matrix Rm = view(Rt, 3, 3), tm = view(tt, 4, 1), om = view(obj.data(), s.n, 3), im = view(img.data(), s.n, 2),
             cm = view(cam.data(), 3, 3);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_solve_planar_pnp(&Rm, &tm, &om, &im, &cm), ORU_RET_ERR_PARA);
  tm = view(tt, 3, 1);
  EXPECT_EQ(oru_solve_planar_pnp(&Rm, &tm, &om, nullptr, &cm), ORU_RET_ERR_PARA);
  oru_matrix cf = view(cam.data(), 3, 3, aif32);
  EXPECT_EQ(oru_solve_planar_pnp(&Rm, &tm, &om, &im, &cf), ORU_RET_ERR_PARA);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("parameters errors!"), std::string::npos);
}
