// Rodrigues and projection derivatives against central differences; Euler angles
// against rotations built from known angles.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "pose/oru_pose_internal.h"
#include "oru_pose.h"

namespace {

oru_matrix view(double *data, int32_t rows, int32_t cols, int64_t stride_elems = 0) {
  oru_matrix m{};
  oru_set_matrix_header(&m, rows, cols, 1, aif64);
  m.data = data;
  if (stride_elems) m.stride = stride_elems * 8;
  return m;
}

void rodrigues(const double r[3], double R[9], double J[27] = nullptr) {
  double rv[3] = {r[0], r[1], r[2]};
  oru_matrix rm = view(rv, 3, 1), Rm = view(R, 3, 3), Jm = view(J, 3, 9);
  ASSERT_EQ(oru_rodrigues2_jacobian(&Rm, J ? &Jm : nullptr, &rm), 0u);
}

TEST(Rodrigues, JacobianMatchesCentralDifferences) {
  std::mt19937 gen(3);
  std::uniform_real_distribution<double> d(-2.0, 2.0);
  for (int trial = 0; trial < 50; ++trial) {
    double r[3] = {d(gen), d(gen), d(gen)};
    if (trial == 0) {  // small angle
      r[0] = r[1] = 0.0;
      r[2] = 1e-3;
    }
    double R[9], J[27];
    rodrigues(r, R, J);
    // Orthonormal with determinant 1.
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) {
        double dot = R[3 * i] * R[3 * j] + R[3 * i + 1] * R[3 * j + 1] + R[3 * i + 2] * R[3 * j + 2];
        EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, 1e-14);
      }
    const double h = 1e-6;
    for (int i = 0; i < 3; ++i) {
      double rp[3] = {r[0], r[1], r[2]}, rm[3] = {r[0], r[1], r[2]}, Rp[9], Rm[9];
      rp[i] += h;
      rm[i] -= h;
      rodrigues(rp, Rp);
      rodrigues(rm, Rm);
      for (int k = 0; k < 9; ++k) EXPECT_NEAR(J[9 * i + k], (Rp[k] - Rm[k]) / (2 * h), 1e-8) << i << "," << k;
    }
  }
}

TEST(Rodrigues, KnownRotationsAndZeroVector) {
  double r[3] = {0, 0, M_PI / 2}, R[9], J[27];
  rodrigues(r, R, J);
  const double want[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
  for (int k = 0; k < 9; ++k) EXPECT_NEAR(R[k], want[k], 1e-15);

  double z[3] = {0, 0, 0};
  rodrigues(z, R, J);
  for (int k = 0; k < 9; ++k) EXPECT_EQ(R[k], k % 4 == 0 ? 1.0 : 0.0);
  // At zero the derivative is the generator of each axis: compare with a tiny finite step.
  for (int i = 0; i < 3; ++i) {
    double rp[3] = {0, 0, 0}, Rp[9];
    rp[i] = 1e-7;
    rodrigues(rp, Rp);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(J[9 * i + k], (Rp[k] - (k % 4 == 0)) / 1e-7, 1e-6);
  }

  // Float destination, float source; a source that is not a vector leaves dst alone.
  float rf[3] = {0.1f, -0.2f, 0.3f}, Rf[9];
  oru_matrix rfm{}, Rfm{};
  oru_set_matrix_header(&rfm, 1, 3, 1, aif32);
  rfm.data = rf;
  oru_set_matrix_header(&Rfm, 3, 3, 1, aif32);
  Rfm.data = Rf;
  ASSERT_EQ(oru_rodrigues2_jacobian(&Rfm, nullptr, &rfm), 0u);
  double rd[3] = {0.1f, -0.2f, 0.3f}, Rd[9];
  rodrigues(rd, Rd);
  for (int k = 0; k < 9; ++k) EXPECT_EQ(Rf[k], float(Rd[k]));
  rfm.type = ai32s;
  EXPECT_EQ(oru_rodrigues2_jacobian(&Rfm, nullptr, &rfm), 1u);
}

struct Scene {
  std::vector<double> obj, r, t, cam;
};

void project(Scene &s, std::vector<double> &img, double *dpdr = nullptr, double *dpdt = nullptr, int64_t stride = 3) {
  const int n = int(s.obj.size() / 3);
  img.assign(2 * n, 0.0);
  oru_matrix om = view(s.obj.data(), n, 3), rm = view(s.r.data(), 3, 1), tm = view(s.t.data(), 3, 1),
             cm = view(s.cam.data(), 9, 1), im = view(img.data(), n, 2), drm = view(dpdr, 2 * n, 3, stride),
             dtm = view(dpdt, 2 * n, 3, stride);
  oru_project_points2(&om, &rm, &tm, &cm, &im, dpdr ? &drm : nullptr, dpdt ? &dtm : nullptr);
}

TEST(ProjectPoints, PinholeAndDerivativesMatchDifferences) {
  std::mt19937 gen(5);
  std::uniform_real_distribution<double> d(-1.0, 1.0);
  Scene s;
  s.cam = {700, 0, 310, 0, 650, 250, 0, 0, 1};
  s.r = {0.3, -0.5, 0.2};
  s.t = {0.1, -0.2, 6.0};
  const int n = 9;
  for (int i = 0; i < 3 * n; ++i) s.obj.push_back(d(gen));

  // Stride 6: the derivatives land in alternate column blocks of a wider matrix, as in J.
  std::vector<double> img, J(2 * n * 6, -99.0);
  project(s, img, J.data(), J.data() + 3, 6);
  double R[9];
  rodrigues(s.r.data(), R);
  for (int i = 0; i < n; ++i) {
    const double *X = &s.obj[3 * i];
    double pc[3];
    for (int k = 0; k < 3; ++k) pc[k] = R[3 * k] * X[0] + R[3 * k + 1] * X[1] + R[3 * k + 2] * X[2] + s.t[k];
    EXPECT_NEAR(img[2 * i], 700 * pc[0] / pc[2] + 310, 1e-10);
    EXPECT_NEAR(img[2 * i + 1], 650 * pc[1] / pc[2] + 250, 1e-10);
  }
  const double h = 1e-6;
  for (int j = 0; j < 6; ++j) {
    Scene sp = s, sm = s;
    (j < 3 ? sp.r[j] : sp.t[j - 3]) += h;
    (j < 3 ? sm.r[j] : sm.t[j - 3]) -= h;
    std::vector<double> ip, im;
    project(sp, ip);
    project(sm, im);
    for (int e = 0; e < 2 * n; ++e) EXPECT_NEAR(J[e * 6 + j], (ip[e] - im[e]) / (2 * h), 1e-5) << e << "," << j;
  }
}

TEST(ProjectPoints, PointInTheCameraPlaneUsesUnitDepth) {
  Scene s;
  s.cam = {100, 0, 10, 0, 200, 20, 0, 0, 1};
  s.r = {0, 0, 0};
  s.t = {0, 0, 0};
  s.obj = {2, 3, 0};
  std::vector<double> img;
  project(s, img);
  EXPECT_EQ(img[0], 10 + 100 * 2.0);
  EXPECT_EQ(img[1], 20 + 200 * 3.0);
}

// R = Rz(z) Ry(y) Rx(x), built directly from the three elementary rotations.
void euler_matrix(double x, double y, double z, double *R) {
  const double cx = std::cos(x), sx = std::sin(x), cy = std::cos(y), sy = std::sin(y), cz = std::cos(z),
               sz = std::sin(z);
  const double Rx[9] = {1, 0, 0, 0, cx, -sx, 0, sx, cx}, Ry[9] = {cy, 0, sy, 0, 1, 0, -sy, 0, cy},
               Rz[9] = {cz, -sz, 0, sz, cz, 0, 0, 0, 1};
  double T[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) T[3 * i + j] = Ry[3 * i] * Rx[j] + Ry[3 * i + 1] * Rx[3 + j] + Ry[3 * i + 2] * Rx[6 + j];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) R[3 * i + j] = Rz[3 * i] * T[j] + Rz[3 * i + 1] * T[3 + j] + Rz[3 * i + 2] * T[6 + j];
}

TEST(RotationToAngles, RecoversAnglesOfComposedRotations) {
  std::mt19937 gen(11);
  std::uniform_real_distribution<double> d(-80.0, 80.0), e(-170.0, 170.0);
  for (int trial = 0; trial < 30; ++trial) {
    double ang[3] = {e(gen), d(gen), e(gen)}, R[9], out[3];
    euler_matrix(ang[0] * M_PI / 180, ang[1] * M_PI / 180, ang[2] * M_PI / 180, R);
    oru_matrix am = view(out, 3, 1), Rm = view(R, 3, 3);
    ASSERT_EQ(oru_rotation_to_angles(&am, &Rm), 0u);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(out[k], ang[k], 1e-9);

    float Rf[9], of[3];
    for (int k = 0; k < 9; ++k) Rf[k] = float(R[k]);
    oru_matrix afm{}, Rfm{};
    oru_set_matrix_header(&afm, 1, 3, 1, aif32);
    afm.data = of;
    oru_set_matrix_header(&Rfm, 3, 3, 1, aif32);
    Rfm.data = Rf;
    ASSERT_EQ(oru_rotation_to_angles(&afm, &Rfm), 0u);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(of[k], ang[k], 1e-3);
  }
  double I[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1}, out[3];
  oru_matrix am = view(out, 3, 1), Im = view(I, 3, 3);
  ASSERT_EQ(oru_rotation_to_angles(&am, &Im), 0u);
  EXPECT_EQ(out[0], 0.0);
  EXPECT_EQ(out[1], 0.0);
  EXPECT_EQ(out[2], 0.0);
  // Gimbal lock: 90 degrees about y folds z into x.
  double Ry[9] = {0, 0, 1, 0, 1, 0, -1, 0, 0};
  oru_matrix Rym = view(Ry, 3, 3);
  ASSERT_EQ(oru_rotation_to_angles(&am, &Rym), 0u);
  EXPECT_NEAR(out[1], 90.0, 1e-12);
  EXPECT_EQ(out[2], 0.0);
  oru_matrix bad = view(I, 2, 2);
  EXPECT_EQ(oru_rotation_to_angles(&am, &bad), 1u);
  EXPECT_EQ(oru_rotation_to_angles(nullptr, &Im), 1u);
}

}  // namespace
