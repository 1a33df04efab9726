// Synthetic pose scenes written by the oracle scripts (one line each: point count, for the
// PnP scenes a planar flag, noise, fx fy cx cy, the true rotation vector and translation,
// OpenCV's, then the object and image points) and the rotation helpers the pose tests share.
#ifndef ORU_TESTS_POSE_SCENES_H
#define ORU_TESTS_POSE_SCENES_H

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "oru_pose.h"
#include "oru_test_util.h"
#include "pose/oru_pose_internal.h"

namespace pose_test {

struct Scene {
  int n = 0;
  bool planar = false;
  double noise = 0;
  double cam[9] = {0};
  double r_true[3], t_true[3], r_cv[3], t_cv[3];  // r_cv, t_cv: OpenCV's solution
  std::vector<double> obj, img;
};

// with_planar_flag: the PnP scene files carry a planar flag after the point count.
inline std::vector<Scene> load_scenes(const char *file, bool with_planar_flag) {
  std::ifstream in(oru_test::data_path(file));
  std::vector<Scene> scenes;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream ls(line);
    Scene s;
    double n, planar = 1, fx, fy, cx, cy;
    ls >> n;
    if (with_planar_flag) ls >> planar;
    ls >> s.noise >> fx >> fy >> cx >> cy;
    s.n = int(n);
    s.planar = planar != 0;
    s.cam[0] = fx;
    s.cam[2] = cx;
    s.cam[4] = fy;
    s.cam[5] = cy;
    s.cam[8] = 1;
    for (double *v : {s.r_true, s.t_true, s.r_cv, s.t_cv})
      for (int k = 0; k < 3; ++k) ls >> v[k];
    s.obj.resize(3 * size_t(s.n));
    s.img.resize(2 * size_t(s.n));
    for (double &v : s.obj) ls >> v;
    for (double &v : s.img) ls >> v;
    scenes.push_back(s);
  }
  return scenes;
}

inline oru_matrix view(void *data, int32_t rows, int32_t cols, uint32_t type = aif64) {
  oru_matrix m{};
  oru_set_matrix_header(&m, rows, cols, 1, type);
  m.data = data;
  return m;
}

inline void to_matrix(const double r[3], double R[9]) {
  double rv[3] = {r[0], r[1], r[2]};
  oru_matrix rm = view(rv, 3, 1), Rm = view(R, 3, 3);
  oru_rodrigues2_jacobian(&Rm, nullptr, &rm);
}

// Angle of R1^T R2.
inline double rotation_error(const double *R1, const double *R2) {
  double tr = 0;
  for (int k = 0; k < 9; ++k) tr += R1[k] * R2[k];
  return std::acos(std::clamp((tr - 1) / 2, -1.0, 1.0));
}

inline double distance(const double *a, const double *b) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

}  // namespace pose_test

#endif
