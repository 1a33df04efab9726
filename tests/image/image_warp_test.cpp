// Warp maps and warps against a NumPy model of the float formulas (exact) and OpenCV's
// warpAffine / warpPerspective (interior pixels), the homography against
// cv2.findHomography, and the map deformation against a NumPy model of its solve.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "image_test_util.h"

using namespace oru_image_test;

namespace {

std::vector<uint8_t> geo_bytes(const std::string &name) {
  auto v = oru_test::read_file(oru_test::data_path("geometry/" + name));
  EXPECT_FALSE(v.empty()) << name;
  return v;
}

std::vector<std::vector<double>> text_cases(const std::string &name) {
  std::ifstream in(oru_test::data_path("geometry/" + name));
  std::vector<std::vector<double>> cases;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream ls(line);
    cases.emplace_back();
    for (double v; ls >> v;) cases.back().push_back(v);
  }
  EXPECT_FALSE(cases.empty()) << name;
  return cases;
}

// Points of the source quadrilateral or triangle, then of the destination.
const float kWarpPoints[4][16] = {
    {3, 4, 40, 6, 12, 30, 0, 0, 5, 10, 44, 2, 20, 36, 0, 0},
    {0, 0, 44, 0, 0, 34, 0, 0, -6, 4, 50, -3, 4, 40, 0, 0},
    {4, 3, 40, 6, 38, 31, 2, 28, 0, 0, 47, 0, 47, 35, 0, 35},
    {0, 0, 44, 0, 44, 34, 0, 34, 6, 2, 41, 8, 36, 30, 3, 27},
};

double project(const double H[9], double x, double y, int k) {
  const double w = H[6] * x + H[7] * y + H[8];
  return (k == 0 ? H[0] * x + H[1] * y + H[2] : H[3] * x + H[4] * y + H[5]) / w;
}

double transfer_error(const double H[9], const double *src, const double *dst, int n) {
  double e = 0;
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < 2; ++k) e += std::pow(project(H, src[2 * i], src[2 * i + 1], k) - dst[2 * i + k], 2);
  return e;
}

}  // namespace

TEST(ImageWarp, MapsAndWarpsMatchModelAndOpenCv) {
  ImagePtr src = image_from(geo_bytes("src_bgr_45x35.raw"), 45, 35, ORU_IMAGE_BGR24);
  ImagePtr smooth = image_from(geo_bytes("src_smooth_45x35.raw"), 45, 35, ORU_IMAGE_BGR24);
  const auto maps = geo_bytes("warp_maps.raw");
  const auto model = geo_bytes("warp_model.raw"), cv = geo_bytes("warp_cv_smooth.raw");
  const int32_t dw = 48, dh = 36;
  const size_t frame = size_t(dw) * dh * 3;
  for (int c = 0; c < 4; ++c) {
    const int32_t mode = c < 2 ? ORU_MAP_AFFINE : ORU_MAP_PERSPECTIVE;
    oru_map_geometry2d map{};
    ASSERT_EQ(oru_make_map_geometry2d_transformation(&map, kWarpPoints[c], mode), 0u);
    EXPECT_EQ(map.mode, mode);
    EXPECT_EQ(std::memcmp(map.forward, maps.data() + 72 * c, 36), 0) << "forward of case " << c;
    EXPECT_EQ(std::memcmp(map.inverse, maps.data() + 72 * c + 36, 36), 0) << "inverse of case " << c;
    for (int32_t method : {0, 1})
      for (int32_t border : {0, 1}) {
        ImagePtr dst = image_from(std::vector<uint8_t>(frame, 77), dw, dh, ORU_IMAGE_BGR24);
        ASSERT_EQ(oru_image_2d_geometry_transformation_with_border_mode(dst.get(), src.get(), &map, method, border), 0u);
        const size_t at = frame * size_t(4 * c + 2 * method + border);
        EXPECT_EQ(pixels_of(dst.get()), std::vector<uint8_t>(model.begin() + long(at), model.begin() + long(at + frame)))
            << "case " << c << " method " << method << " border " << border;
      }
    // OpenCV on a smooth image: within 2 where the source position is well inside.
    ImagePtr dst = make_image(dw, dh, ORU_IMAGE_BGR24);
    ASSERT_EQ(oru_image_2d_geometry_transformation_with_border_mode(dst.get(), smooth.get(), &map, 1, 0), 0u);
    const auto got = pixels_of(dst.get());
    int compared = 0;
    for (int32_t y = 0; y < dh; ++y)
      for (int32_t x = 0; x < dw; ++x) {
        const float *i = map.inverse;
        const double w = mode ? i[6] * x + i[7] * y + i[8] : 1.0;
        const double xs = (i[0] * x + i[1] * y + i[2]) / w, ys = (i[3] * x + i[4] * y + i[5]) / w;
        if (xs < 1 || ys < 1 || xs > 45 - 3 || ys > 35 - 3) continue;
        ++compared;
        for (int k = 0; k < 3; ++k) {
          const size_t j = (size_t(y) * dw + x) * 3 + k;
          ASSERT_LE(std::abs(int(got[j]) - int(cv[frame * size_t(c) + j])), 2) << "case " << c << " at " << x << "," << y;
        }
      }
    EXPECT_GT(compared, dw * dh / 4) << c;
  }
  // Identity triangle: both matrices are the identity up to the small denominators' e.
  const float same[16] = {0, 0, 10, 0, 0, 10, 0, 0, 0, 0, 10, 0, 0, 10, 0, 0};
  oru_map_geometry2d id{};
  ASSERT_EQ(oru_make_map_geometry2d_transformation(&id, same, ORU_MAP_AFFINE), 0u);
  for (int k = 0; k < 9; ++k) {
    EXPECT_NEAR(id.forward[k], k % 4 == 0 ? 1.0f : 0.0f, 1e-6f);
    EXPECT_NEAR(id.inverse[k], k % 4 == 0 ? 1.0f : 0.0f, 1e-6f);
  }
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_make_map_geometry2d_transformation(&id, same, 2), ORU_RET_ERR_PARA);
  EXPECT_EQ(id.mode, 2);
  EXPECT_EQ(oru_make_map_geometry2d_transformation(nullptr, same, 0), ORU_RET_ERR_PARA);
  ImagePtr grey = make_image(45, 35, ORU_IMAGE_GRAY8);
  EXPECT_EQ(oru_image_2d_geometry_transformation_with_border_mode(grey.get(), grey.get(), &id, 1, 0), ORU_RET_ERR_PARA);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Parameters error!"), std::string::npos);
  // A map mode other than the two: nothing happens.
  ImagePtr dst = image_from(std::vector<uint8_t>(45 * 35 * 3, 5), 45, 35, ORU_IMAGE_BGR24);
  ASSERT_EQ(oru_image_2d_geometry_transformation_with_border_mode(dst.get(), src.get(), &id, 1, 0), 0u);
  EXPECT_EQ(pixels_of(dst.get()), std::vector<uint8_t>(45 * 35 * 3, 5));
}

TEST(ImageWarp, HomographyMatchesOpenCv) {
  for (const auto &c : text_cases("homography_cases.txt")) {
    const int n = int(c[0]);
    const double noise = c[1];
    const double *src = &c[2], *dst = &c[2 + 2 * n], *Hcv = &c[2 + 4 * n];
    double H[9] = {0};
    oru_matrix m{};
    oru_set_matrix_header(&m, 3, 3, 1, aif64);
    m.data = H;
    ASSERT_EQ(oru_find_homography_transform(&m, src, dst, n), 0u);
    EXPECT_EQ(H[8], 1.0);
    const double mine = transfer_error(H, src, dst, n), theirs = transfer_error(Hcv, src, dst, n);
    if (noise == 0) {
      for (int i = 0; i < n; ++i)
        for (int k = 0; k < 2; ++k)
          ASSERT_NEAR(project(H, src[2 * i], src[2 * i + 1], k), dst[2 * i + k], 1e-6) << "n " << n << " point " << i;
    } else {
      EXPECT_LE(mine, theirs * 1.01) << "n " << n << " noise " << noise;
    }
  }
  // Degenerate sets leave the result as it was; fewer than four pairs are refused.
  double H[9], before[9];
  for (int k = 0; k < 9; ++k) H[k] = before[k] = 0.5 + k;
  oru_matrix m{};
  oru_set_matrix_header(&m, 3, 3, 1, aif64);
  m.data = H;
  const double line[10] = {0, 1, 1, 3, 2, 5, 3, 7, 4, 9}, target[10] = {5, 5, 6, 7, 2, 1, 8, 8, 3, 0};
  const double equal_x[8] = {2, 0, 2, 1, 2, 2, 2, 3}, repeated[10] = {4, 4, 4, 4, 4, 4, 4, 4, 4, 4};
  EXPECT_EQ(oru_find_homography_transform(&m, line, target, 5), 0u);
  EXPECT_EQ(oru_find_homography_transform(&m, equal_x, target, 4), 0u);
  EXPECT_EQ(oru_find_homography_transform(&m, repeated, target, 5), 0u);
  EXPECT_EQ(std::memcmp(H, before, sizeof(H)), 0);
  EXPECT_EQ(oru_find_homography_transform(&m, line, target, 3), ORU_RET_ERR_PARA);
  oru_matrix small{};
  oru_set_matrix_header(&small, 2, 3, 1, aif64);
  small.data = H;
  EXPECT_EQ(oru_find_homography_transform(&small, line, target, 5), ORU_RET_ERR_PARA);
}

TEST(ImageWarp, DeformationMatchesModel) {
  const int32_t rows = 25, cols = 33;
  const auto maps = geo_bytes("deformation_maps.raw");
  const size_t frame = size_t(rows) * cols * 2;
  std::vector<float> all(maps.size() / 4);
  std::memcpy(all.data(), maps.data(), maps.size());
  const std::vector<float> ident(all.begin(), all.begin() + long(frame));
  auto map_of = [&](std::vector<float> &v) {
    oru_matrix m{};
    oru_set_matrix_header(&m, rows, cols, 1, aif32 + 8);
    m.stride = int64_t(cols) * 8;
    m.data = v.data();
    return m;
  };
  const auto cases = text_cases("deformation_cases.txt");
  for (size_t c = 0; c < cases.size(); ++c) {
    const int n = int(cases[c][0]);
    const float lambda = float(cases[c][1]), sigma = float(cases[c][2]);
    std::vector<float> p(cases[c].begin() + 3, cases[c].begin() + 3 + 2 * n),
        q(cases[c].begin() + 3 + 2 * n, cases[c].begin() + 3 + 4 * n);
    std::vector<float> in = ident, out(frame, -1.0f);
    oru_matrix mi = map_of(in), mo = map_of(out);
    ASSERT_EQ(oru_deformation_rbfmap(&mo, &mi, q.data(), p.data(), n, lambda, sigma), 0u);
    const float *want = all.data() + frame * (c + 1);
    for (size_t i = 0; i < frame; ++i) ASSERT_NEAR(out[i], want[i], 2e-6f) << "case " << c << " element " << i;
    // Corners stay; the first and last columns keep x, the first and last rows keep y.
    for (int32_t r : {0, rows - 1})
      for (int32_t k : {0, cols - 1})
        for (int e = 0; e < 2; ++e) EXPECT_EQ(out[(size_t(r) * cols + k) * 2 + e], in[(size_t(r) * cols + k) * 2 + e]);
    // A map made of the control points themselves (inside a pinned frame) lands on the
    // targets, up to the regularisation: (K + lambda) w = d leaves lambda |w| behind.
    if (c == 0) {
      std::vector<float> pts(size_t(3) * (n + 2) * 2, 0.5f), moved(pts.size());
      for (int i = 0; i < n; ++i) {
        pts[size_t(n + 2 + 1 + i) * 2] = p[2 * i];
        pts[size_t(n + 2 + 1 + i) * 2 + 1] = p[2 * i + 1];
      }
      oru_matrix a{}, b{};
      oru_set_matrix_header(&a, 3, n + 2, 1, aif32 + 8);
      a.stride = int64_t(n + 2) * 8;
      b = a;
      a.data = pts.data();
      b.data = moved.data();
      ASSERT_EQ(oru_deformation_rbfmap(&b, &a, q.data(), p.data(), n, lambda, sigma), 0u);
      for (int i = 0; i < n; ++i)
        for (int k = 0; k < 2; ++k) EXPECT_NEAR(moved[size_t(n + 3 + i) * 2 + k], q[2 * i + k], 5e-3f) << i;
    }
  }
  // One point, no regularisation: the element at p moves by q - p (E(0) = 1).
  std::vector<float> one = {0.0f, 0.0f, 0.5f, 0.5f, 1.0f, 1.0f}, moved(6);
  oru_matrix a{}, b{};
  oru_set_matrix_header(&a, 1, 3, 1, aif32 + 8);
  a.stride = 24;
  b = a;
  a.data = one.data();
  b.data = moved.data();
  const float p1[2] = {0.5f, 0.5f}, q1[2] = {0.6f, 0.5f};
  ASSERT_EQ(oru_deformation_rbfmap(&b, &a, q1, p1, 1, 0.0f, 0.3f), 0u);
  EXPECT_NEAR(moved[2], 0.6f, 1e-6f);
  // Targets equal to the points leave the map as it is; no points is a failed allocation.
  std::vector<float> in = ident, out(frame);
  oru_matrix mi = map_of(in), mo = map_of(out);
  const float pp[4] = {0.2f, 0.3f, 0.7f, 0.6f};
  ASSERT_EQ(oru_deformation_rbfmap(&mo, &mi, pp, pp, 2, 0.01f, 0.2f), 0u);
  EXPECT_EQ(out, in);
  EXPECT_EQ(oru_deformation_rbfmap(&mo, &mi, pp, pp, 0, 0.01f, 0.2f), ORU_RET_ERR_MEMORY);
}
