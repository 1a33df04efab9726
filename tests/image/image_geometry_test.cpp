// Quarter turns, mirrors, crops and rotations by an angle against NumPy (np.rot90,
// np.flip, np.pad slicing, and a model of the fixed-point formulas, all exact) and
// OpenCV's warpAffine on interior pixels; the rearrangement kernels against their plain forms.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <random>
#include <sstream>

#include "image/oru_geometry_kernels.h"
#include "image_test_util.h"

using namespace oru_image_test;

namespace {

constexpr int32_t kW = 45, kH = 35;

std::vector<uint8_t> geo_bytes(const std::string &name) {
  auto v = oru_test::read_file(oru_test::data_path("geometry/" + name));
  EXPECT_FALSE(v.empty()) << name;
  return v;
}

// Consecutive slices of a file of concatenated results.
struct Slices {
  std::vector<uint8_t> all;
  size_t at = 0;
  std::vector<uint8_t> next(size_t n) {
    EXPECT_LE(at + n, all.size());
    std::vector<uint8_t> v(all.begin() + long(std::min(at, all.size())), all.begin() + long(std::min(at + n, all.size())));
    at += n;
    return v;
  }
};

struct Sources {
  ImagePtr bgr = image_from(geo_bytes("src_bgr_45x35.raw"), kW, kH, ORU_IMAGE_BGR24);
  ImagePtr grey = image_from(geo_bytes("src_gray_45x35.raw"), kW, kH, ORU_IMAGE_GRAY8);
};

}  // namespace

TEST(ImageGeometry, QuarterTurnsAndMirrorsMatchNumpy) {
  Sources s;
  for (const oru_image *src : {s.bgr.get(), s.grey.get()}) {
    const bool c3 = src->channels == 3;
    Slices want{geo_bytes(c3 ? "quarter_bgr.raw" : "quarter_gray.raw")};
    for (int32_t degrees : {0, 90, 180, 270})
      for (int32_t flip : {0, 1}) {
        const bool swap = degrees % 180 != 0;
        ImagePtr dst = make_image(swap ? kH : kW, swap ? kW : kH, src->format);
        ASSERT_EQ(oru_image_rotation_with_special_degree(dst.get(), src, degrees, flip), 0u);
        const auto expect = want.next(size_t(kW) * kH * src->channels);
        EXPECT_EQ(pixels_of(dst.get()), expect) << "channels " << src->channels << " degrees " << degrees << " flip " << flip;
        if (swap) continue;
        // Half turns and the vertical mirror also run in place.
        ImagePtr same = image_from(pixels_of(src), kW, kH, src->format);
        ASSERT_EQ(oru_image_rotation_with_special_degree(same.get(), same.get(), degrees, flip), 0u);
        EXPECT_EQ(pixels_of(same.get()), expect) << "in place, degrees " << degrees << " flip " << flip;
        if (degrees == 180 && flip) {  // np.fliplr, the horizontal mirror
          ImagePtr mirrored = make_image(kW, kH, src->format);
          ASSERT_EQ(oru_image_horizontal_flip(mirrored.get(), src), 0u);
          EXPECT_EQ(pixels_of(mirrored.get()), expect);
          ASSERT_EQ(oru_image_horizontal_flip(same.get(), same.get()), 0u);
          EXPECT_EQ(pixels_of(same.get()), pixels_of(src));
        }
      }
  }
  ImagePtr dst = make_image(kW, kH, ORU_IMAGE_BGR24);
  EXPECT_EQ(oru_image_rotation_with_special_degree(dst.get(), s.bgr.get(), 45, 0), ORU_RET_ERR_NOT_SUPPORT);
  ImagePtr four = make_image(kW, kH, ORU_IMAGE_FORMAT_3), four_out = make_image(kW, kH, ORU_IMAGE_FORMAT_3);
  EXPECT_EQ(oru_image_rotation_with_special_degree(four_out.get(), four.get(), 90, 0), ORU_RET_ERR_NOT_SUPPORT);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_rotation_with_special_degree(dst.get(), s.bgr.get(), 90, 0), ORU_RET_ERR_PARA);  // not turned
  EXPECT_EQ(oru_image_horizontal_flip(four_out.get(), four.get()), ORU_RET_ERR_PARA);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("can not support!"), std::string::npos);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_horizontal_flip(dst.get(), s.grey.get()), ORU_RET_ERR_PARA);  // formats differ
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Your input params are wrong!"), std::string::npos);
}

TEST(ImageGeometry, CropsMatchEdgePaddedSlices) {
  Sources s;
  const int32_t crops[4][4] = {{-5, -5, 20, 15}, {30, 25, 20, 15}, {10, 8, 20, 15}, {-7, 20, 60, 21}};
  for (const oru_image *src : {s.bgr.get(), s.grey.get()}) {
    Slices want{geo_bytes(src->channels == 3 ? "crop_bgr.raw" : "crop_gray.raw")};
    for (const auto &c : crops) {
      int32_t origin[2] = {c[0], c[1]};
      const int32_t size[2] = {c[2], c[3]};
      ImagePtr dst = make_image(c[2], c[3], src->format);
      ASSERT_EQ(oru_image_cropped_patch(dst.get(), src, origin, size), 0u);
      EXPECT_EQ(pixels_of(dst.get()), want.next(size_t(c[2]) * c[3] * src->channels)) << c[0] << "," << c[1];
      const int32_t wrong[2] = {c[2] + 1, c[3]};
      EXPECT_EQ(oru_image_cropped_patch(dst.get(), src, origin, wrong), ORU_RET_ERR_PARA);
    }
  }
  // Margins in percent give an even origin and size.
  ImagePtr big = make_image(101, 101, ORU_IMAGE_GRAY8);
  const int32_t margins[4] = {10, 10, 10, 10}, skew[4] = {25, 3, 0, 33};
  int32_t origin[2], size[2];
  ASSERT_EQ(oru_precompute_image_cropped_size(origin, size, big.get(), margins), 0u);
  EXPECT_EQ(origin[0], 10);
  EXPECT_EQ(origin[1], 10);
  EXPECT_EQ(size[0], 80);
  EXPECT_EQ(size[1], 80);
  ASSERT_EQ(oru_precompute_image_cropped_size(origin, size, big.get(), skew), 0u);
  // x0 = rint(25.25) = 25 -> 24, x1 = 101 -> 100; y0 = rint(3.03) = 3 -> 2, y1 = rint(67.67) = 68.
  EXPECT_EQ(origin[0], 24);
  EXPECT_EQ(size[0], 76);
  EXPECT_EQ(origin[1], 2);
  EXPECT_EQ(size[1], 66);
  EXPECT_EQ(oru_precompute_image_cropped_size(origin, size, nullptr, margins), ORU_RET_ERR_PARA);

  // A YUV 4:2:0 patch: luma like grey, chroma from (origin >> 1); the caller's origin halves.
  ImagePtr yuv = make_image(16, 12, ORU_IMAGE_YUV420P), patch = make_image(6, 4, ORU_IMAGE_YUV420P);
  for (int32_t y = 0; y < 12; ++y)
    for (int32_t x = 0; x < 16; ++x) row(yuv.get(), y)[x] = uint8_t(16 * y + x);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 8; ++x) {
      static_cast<uint8_t *>(yuv->plane1)[y * yuv->stride1 + x] = uint8_t(10 * y + x);
      static_cast<uint8_t *>(yuv->plane2)[y * yuv->stride2 + x] = uint8_t(100 + 10 * y + x);
    }
  int32_t yo[2] = {7, 7};
  const int32_t ysize[2] = {6, 4};
  ASSERT_EQ(oru_image_cropped_patch(patch.get(), yuv.get(), yo, ysize), 0u);
  EXPECT_EQ(yo[0], 3);
  EXPECT_EQ(yo[1], 3);
  EXPECT_EQ(row(patch.get(), 0)[0], 16 * 7 + 7);
  EXPECT_EQ(static_cast<uint8_t *>(patch->plane1)[0], 33);
  EXPECT_EQ(static_cast<uint8_t *>(patch->plane2)[patch->stride2 + 2], 100 + 45);
}

TEST(ImageGeometry, RotationMatchesFixedPointModelAndOpenCv) {
  Sources s;
  ImagePtr smooth = image_from(geo_bytes("src_smooth_45x35.raw"), kW, kH, ORU_IMAGE_BGR24);
  const auto yuv_bytes = geo_bytes("src_yuv_44x36.raw");
  ImagePtr yuv = make_image(44, 36, ORU_IMAGE_YUV420P);
  fill_plane(yuv->data, yuv->stride, yuv_bytes.data(), 44, 36);
  fill_plane(yuv->plane1, yuv->stride1, yuv_bytes.data() + 44 * 36, 22, 18);
  fill_plane(yuv->plane2, yuv->stride2, yuv_bytes.data() + 44 * 36 + 22 * 18, 22, 18);
  Slices bilinear{geo_bytes("rotation_bilinear.raw")}, nearest{geo_bytes("rotation_nearest.raw")},
      cv{geo_bytes("rotation_cv_smooth.raw")}, yuv_want{geo_bytes("rotation_yuv.raw")};
  std::ifstream cases(oru_test::data_path("geometry/rotation_cases.txt"));
  oru_rotation_params p{};
  int32_t dw, dh, count = 0;
  while (cases >> p.angle >> p.center_x >> p.center_y >> p.scale_x >> p.scale_y >> dw >> dh) {
    ++count;
    for (int32_t method : {1, 0}) {
      p.method = method;
      Slices &want = method ? bilinear : nearest;
      for (const oru_image *src : {s.bgr.get(), s.grey.get()}) {
        ImagePtr dst = make_image(dw, dh, src->format);
        ASSERT_EQ(oru_image_rotation(dst.get(), src, &p), 0u);
        EXPECT_EQ(pixels_of(dst.get()), want.next(size_t(dw) * dh * src->channels))
            << "angle " << p.angle << " method " << method << " channels " << src->channels;
      }
      ImagePtr out = make_image(dw, dh, ORU_IMAGE_YUV420P);
      ASSERT_EQ(oru_image_rotation(out.get(), yuv.get(), &p), 0u);
      EXPECT_EQ(read_plane(out->data, out->stride, dw, dh), yuv_want.next(size_t(dw) * dh));
      EXPECT_EQ(read_plane(out->plane1, out->stride1, dw / 2, dh / 2), yuv_want.next(size_t(dw / 2) * (dh / 2)));
      EXPECT_EQ(read_plane(out->plane2, out->stride2, dw / 2, dh / 2), yuv_want.next(size_t(dw / 2) * (dh / 2)));
    }
    // OpenCV samples with 5-bit weights: within 2 on pixels whose whole neighbourhood is inside.
    p.method = 1;
    ImagePtr dst = make_image(dw, dh, ORU_IMAGE_BGR24);
    ASSERT_EQ(oru_image_rotation(dst.get(), smooth.get(), &p), 0u);
    const auto got = pixels_of(dst.get()), ref = cv.next(size_t(dw) * dh * 3);
    const float t = float(p.angle) * 3.1415927f / 180.0f;
    int compared = 0;
    for (int32_t y = 0; y < dh; ++y)
      for (int32_t x = 0; x < dw; ++x) {
        const float u = float(x) - dw * 0.5f, v = float(y) - dh * 0.5f;
        const float xs = p.center_x + u * std::cos(t) / p.scale_x - v * std::sin(t) / p.scale_y;
        const float ys = p.center_y + u * std::sin(t) / p.scale_x + v * std::cos(t) / p.scale_y;
        if (xs < 1 || ys < 1 || xs > kW - 3 || ys > kH - 3) continue;
        ++compared;
        for (int c = 0; c < 3; ++c) {
          const size_t i = (size_t(y) * dw + x) * 3 + c;
          ASSERT_LE(std::abs(int(got[i]) - int(ref[i])), 2) << "angle " << p.angle << " at " << x << "," << y;
        }
      }
    EXPECT_GT(compared, dw * dh / 8);
  }
  EXPECT_EQ(count, 5);

  // Another method leaves the destination alone; a bad pair of types is refused.
  ImagePtr dst = image_from(std::vector<uint8_t>(size_t(kW) * kH * 3, 9), kW, kH, ORU_IMAGE_BGR24);
  p.method = 2;
  ASSERT_EQ(oru_image_rotation(dst.get(), s.bgr.get(), &p), 0u);
  EXPECT_EQ(pixels_of(dst.get()), std::vector<uint8_t>(size_t(kW) * kH * 3, 9));
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_rotation(dst.get(), s.grey.get(), &p), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_image_rotation(dst.get(), s.bgr.get(), nullptr), ORU_RET_ERR_PARA);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Your input params are wrong!"), std::string::npos);

  // Bounding box of a turned rectangle: floor of the float extents.
  for (int32_t degrees : {0, 30, 90, 135, -60, 270}) {
    int32_t w = 0, h = 0;
    ASSERT_EQ(oru_precompute_rotated_image_size(&w, &h, 640, 480, degrees), 0u);
    const double r = degrees * M_PI / 180;
    EXPECT_NEAR(w, std::abs(640 * std::cos(r)) + std::abs(480 * std::sin(r)), 1.0) << degrees;
    EXPECT_NEAR(h, std::abs(640 * std::sin(r)) + std::abs(480 * std::cos(r)), 1.0) << degrees;
  }
  EXPECT_EQ(oru_precompute_rotated_image_size(nullptr, nullptr, 4, 4, 0), ORU_RET_ERR_PARA);
}

TEST(ImageGeometry, PinholeViewOfAPlane) {
  Sources s;
  // Null parameters take the fixed view.
  const float view[6] = {-21.5f, -47.5f, 26.5f, 0.4f, 0.4f, -0.5f};
  ImagePtr a = make_image(40, 30, ORU_IMAGE_BGR24), b = make_image(40, 30, ORU_IMAGE_BGR24);
  ASSERT_EQ(oru_image_rotation3d(a.get(), s.bgr.get(), nullptr), 0u);
  ASSERT_EQ(oru_image_rotation3d(b.get(), s.bgr.get(), view), 0u);
  EXPECT_EQ(pixels_of(a.get()), pixels_of(b.get()));
  // No rotation, the plane at depth 2 through (0.5, 0.5): the ray of (u, v) meets it at
  // (u, v, -2), so the source comes back 1:1 (B points down the rows); the cut toward
  // zero of a position a hair below a whole number may take the pixel before it.
  const float flat[6] = {0, 0, 0, 0.5f, 0.5f, 0};
  ImagePtr c = make_image(kW, kH, ORU_IMAGE_BGR24);
  ASSERT_EQ(oru_image_rotation3d(c.get(), s.bgr.get(), flat), 0u);
  int exact = 0;
  for (int32_t y = 0; y < kH; ++y)
    for (int32_t x = 0; x < kW; ++x) {
      bool found = false;
      for (int32_t dy = 0; dy < 2 && !found; ++dy)
        for (int32_t dx = 0; dx < 2 && !found; ++dx)
          found = y - dy >= 0 && x - dx >= 0 &&
                  std::memcmp(row(c.get(), y) + 3 * x, row(s.bgr.get(), y - dy) + 3 * (x - dx), 3) == 0;
      EXPECT_TRUE(found) << x << "," << y;
      exact += std::memcmp(row(c.get(), y) + 3 * x, row(s.bgr.get(), y) + 3 * x, 3) == 0;
    }
  EXPECT_GT(exact, kW * kH / 2);
  // A plane behind the pinhole leaves everything black.
  const float behind[6] = {0, 0, 0, 0.5f, 0.5f, 4.0f};
  ASSERT_EQ(oru_image_rotation3d(c.get(), s.bgr.get(), behind), 0u);
  EXPECT_EQ(pixels_of(c.get()), std::vector<uint8_t>(size_t(kW) * kH * 3, 0));
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_image_rotation3d(c.get(), s.grey.get(), nullptr), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
}

TEST(ImageGeometryKernels, VectorFormsMatchPlain) {
  using namespace oru;
  std::mt19937 gen(11);
  auto bytes = [&](size_t n) {
    std::vector<uint8_t> v(n);
    for (auto &b : v) b = uint8_t(gen());
    return v;
  };
  const auto m1 = ORU_KERNEL_FORMS(mirror_row_c1), m3 = ORU_KERNEL_FORMS(mirror_row_c3);
  const auto t1 = ORU_KERNEL_FORMS(transpose8_c1), t3 = ORU_KERNEL_FORMS(transpose8_c3);
  const auto warp = ORU_KERNEL_FORMS(warp_affine_bilinear_c3);
  const auto rot1 = ORU_KERNEL_FORMS(rotate_bilinear_row_c1), rot3 = ORU_KERNEL_FORMS(rotate_bilinear_row_c3);
  const auto rbf = ORU_KERNEL_FORMS(rbf_map_row);
  for (int32_t n : {0, 1, 5, 6, 7, 11, 15, 16, 17, 31, 32, 33, 47, 63, 64, 65, 100, 257}) {
    for (int ch : {1, 3}) {
      const auto &forms = ch == 1 ? m1 : m3;
      const auto src = bytes(size_t(n) * ch);
      std::vector<uint8_t> want(size_t(n) * ch + 4, 0xA5);
      forms.plain(want.data(), src.data(), n);
      for_each_runnable_form(forms, [&](Isa isa, auto fn) {
        std::vector<uint8_t> got(size_t(n) * ch + 4, 0xA5);
        fn(got.data(), src.data(), n);
        EXPECT_EQ(got, want) << "mirror " << isa_name(isa) << " n=" << n << " c" << ch;
      });
      // Eight rows of n pixels, walked downwards and upwards, into padded destination rows.
      const auto &tf = ch == 1 ? t1 : t3;
      const int64_t ss = int64_t(n) * ch + 5, ds = 8 * ch + 3;
      const auto block = bytes(size_t(8 * ss));
      for (bool up : {false, true}) {
        const uint8_t *s0 = up ? block.data() + 7 * ss : block.data();
        const int64_t stride = up ? -ss : ss;
        std::vector<uint8_t> want_t(size_t(n) * ds, 0x3C);
        tf.plain(s0, stride, want_t.data(), ds, n);
        for_each_runnable_form(tf, [&](Isa isa, auto fn) {
          std::vector<uint8_t> got(size_t(n) * ds, 0x3C);
          fn(s0, stride, got.data(), ds, n);
          EXPECT_EQ(got, want_t) << "transpose " << isa_name(isa) << " n=" << n << " c" << ch << " up " << up;
        });
      }
    }
    // Random affine maps over a random source; many rows land partly inside.
    const int32_t sw = 3 + int32_t(gen() % 40), sh = 2 + int32_t(gen() % 30);
    const auto src = bytes(size_t(sw) * 3 * sh + 7);
    std::uniform_real_distribution<float> a(-1.5f, 1.5f), shift(-10.0f, 30.0f);
    // Radial-basis rows: coordinates a little outside 0 to 1 (and a NaN) so that the caps
    // and clamps act, displacements large enough to reach the clamps; compared bit for bit.
    {
      std::uniform_real_distribution<float> coord(-0.2f, 1.3f), weight(-0.5f, 0.5f);
      const int32_t points = 1 + n % 7;
      std::vector<float> in(2 * size_t(n)), pts(2 * size_t(points)), w(2 * size_t(points));
      for (auto &v : in) v = coord(gen);
      if (n > 3) in[3] = std::nanf("");
      for (auto &v : pts) v = coord(gen);
      for (auto &v : w) v = weight(gen);
      const float a = 1.0f / (0.05f + 0.3f * float(n % 4));
      std::vector<float> want_m(2 * size_t(n) + 2, -7.0f);
      rbf.plain(want_m.data(), in.data(), n, pts.data(), w.data(), points, a);
      for_each_runnable_form(rbf, [&](Isa isa, auto fn) {
        std::vector<float> got(2 * size_t(n) + 2, -7.0f);
        fn(got.data(), in.data(), n, pts.data(), w.data(), points, a);
        EXPECT_EQ(std::memcmp(got.data(), want_m.data(), got.size() * sizeof(float)), 0) << "rbf " << isa_name(isa) << " n=" << n;
      });
    }
    // Fixed-point rows that start outside, cross the source and leave it again.
    std::uniform_int_distribution<int32_t> start(-20 * 2048, 50 * 2048), step(-3000, 3000);
    for (int trial = 0; trial < 4; ++trial)
      for (int ch : {1, 3}) {
        const auto &forms = ch == 1 ? rot1 : rot3;
        const int32_t x = start(gen), y = start(gen) / 2, sx = step(gen), sy = step(gen), fill = int32_t(gen() % 256);
        std::vector<uint8_t> want_r(size_t(n) * ch + 2, 0x11);
        forms.plain(want_r.data(), src.data(), int64_t(sw) * 3, sw, sh, x, y, sx, sy, n, fill);
        for_each_runnable_form(forms, [&](Isa isa, auto fn) {
          std::vector<uint8_t> got(size_t(n) * ch + 2, 0x11);
          fn(got.data(), src.data(), int64_t(sw) * 3, sw, sh, x, y, sx, sy, n, fill);
          EXPECT_EQ(got, want_r) << "rotation row " << isa_name(isa) << " n=" << n << " c" << ch << " trial " << trial;
        });
      }
    for (int trial = 0; trial < 4; ++trial) {
      const float inv[6] = {a(gen), a(gen) * 0.5f, shift(gen), a(gen) * 0.5f, a(gen), shift(gen)};
      const int32_t y = int32_t(gen() % 40), x0 = int32_t(gen() % 5);
      for (int32_t zero : {0, 1}) {
        const auto init = bytes(size_t(x0 + n) * 3 + 3);
        auto want_w = init;
        warp.plain(want_w.data(), src.data(), int64_t(sw) * 3, sw, sh, inv, y, x0, n, zero);
        for_each_runnable_form(warp, [&](Isa isa, auto fn) {
          auto got = init;
          fn(got.data(), src.data(), int64_t(sw) * 3, sw, sh, inv, y, x0, n, zero);
          EXPECT_EQ(got, want_w) << "warp " << isa_name(isa) << " n=" << n << " trial " << trial << " zero " << zero;
        });
      }
    }
  }
}
