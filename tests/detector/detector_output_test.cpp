// SSD priors against a NumPy model of the layout for every input size; decoding and
// corner form by hand; NMS against a NumPy greedy model and cv2.dnn.NMSBoxes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "oru_detector.h"
#include "oru_test_util.h"

namespace {

template <typename T>
std::vector<T> load(const std::string &name) {
  const auto bytes = oru_test::read_file(oru_test::data_path("detector/" + name));
  EXPECT_FALSE(bytes.empty()) << name;
  std::vector<T> v(bytes.size() / sizeof(T));
  std::memcpy(v.data(), bytes.data(), v.size() * sizeof(T));
  return v;
}

std::vector<std::string> lines(const std::string &name) {
  std::ifstream in(oru_test::data_path("detector/" + name));
  std::vector<std::string> out;
  for (std::string l; std::getline(in, l);)
    if (!l.empty()) out.push_back(l);
  EXPECT_FALSE(out.empty()) << name;
  return out;
}

}  // namespace

TEST(DetectorPriors, EveryInputSizeMatchesModel) {
  for (const std::string &l : lines("priors_index.txt")) {
    std::istringstream in(l);
    int32_t h, w, swapped, count, picked, step;
    in >> h >> w >> swapped >> count >> picked >> step;
    oru_tensor *t = oru_generate_priors(h, w, swapped);
    ASSERT_NE(t, nullptr) << l;
    EXPECT_EQ(t->ndims, 2);
    EXPECT_EQ(t->dims[0], 4);
    EXPECT_EQ(t->dims[1], count) << l;
    EXPECT_EQ(t->type, uint32_t(aif32));
    const float *p = static_cast<const float *>(t->data);
    const auto want = load<float>("priors_" + std::to_string(h) + "x" + std::to_string(w) + "_" +
                                  std::to_string(swapped) + ".f32");
    ASSERT_EQ(int32_t(want.size()), 4 * picked);
    for (int32_t k = 0; k < picked; ++k) {
      const int32_t i = k == picked - 1 ? count - 1 : k * step;
      for (int c = 0; c < 4; ++c) ASSERT_EQ(p[4 * i + c], want[4 * k + c]) << l << " prior " << i << " field " << c;
    }
    oru_release_tensor(&t);
  }
}

TEST(DetectorPriors, CountsAndFirstPriorByHand) {
  oru_tensor *t = oru_generate_priors(240, 320, 0);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->dims[1], 40 * 30 * 3 + 20 * 15 * 2 + 10 * 8 * 2 + 5 * 4 * 3);
  const float *p = static_cast<const float *>(t->data);
  EXPECT_FLOAT_EQ(p[0], 0.5f / 40.0f);
  EXPECT_FLOAT_EQ(p[1], 0.5f / 30.0f);
  EXPECT_FLOAT_EQ(p[2], 10.0f / 320.0f);
  EXPECT_FLOAT_EQ(p[3], 10.0f / 240.0f);
  EXPECT_FLOAT_EQ(p[4 + 2], 16.0f / 320.0f);  // the box sizes of one location are neighbours
  oru_release_tensor(&t);
  t = oru_generate_priors(100, 100, 0);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->dims[1], 708);
  p = static_cast<const float *>(t->data);
  EXPECT_FLOAT_EQ(p[0], 0.5f / 16.0f);
  EXPECT_FLOAT_EQ(p[1], 0.5f / 12.0f);
  // The 256-pixel box on a 100-pixel input is clamped to 1.
  EXPECT_EQ(p[4 * 707 + 2], 1.0f);
  oru_release_tensor(&t);
}

TEST(DetectorDecode, ZeroLocationGivesThePriorAndCornersByHand) {
  const float priors[8] = {0.5f, 0.25f, 0.2f, 0.4f, 0.1f, 0.9f, 0.05f, 0.1f};
  const float zero[8] = {};
  float boxes[8];
  oru_convert_locations_to_boxes(boxes, zero, priors, 2, 0.1f, 0.2f);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(boxes[i], priors[i]);
  const float loc[4] = {1.0f, -2.0f, 0.5f, -1.0f};
  oru_convert_locations_to_boxes(boxes, loc, priors, 1, 0.1f, 0.2f);
  EXPECT_FLOAT_EQ(boxes[0], 1.0f * 0.1f * 0.2f + 0.5f);
  EXPECT_FLOAT_EQ(boxes[1], -2.0f * 0.1f * 0.4f + 0.25f);
  EXPECT_FLOAT_EQ(boxes[2], std::exp(0.1f) * 0.2f);
  EXPECT_FLOAT_EQ(boxes[3], std::exp(-0.2f) * 0.4f);
  float c[4] = {0.5f, 0.5f, 0.2f, 0.6f};
  oru_center_form_to_corner_form(c, 1);
  EXPECT_FLOAT_EQ(c[0], 0.4f);
  EXPECT_FLOAT_EQ(c[1], 0.2f);
  EXPECT_FLOAT_EQ(c[2], 0.6f);
  EXPECT_FLOAT_EQ(c[3], 0.8f);
  oru_center_form_to_corner_form(c, 0);  // nothing to do
  EXPECT_FLOAT_EQ(c[0], 0.4f);
}

TEST(DetectorNms, MatchesNumpyAndOpenCvOnBoxesWithTies) {
  for (const std::string &l : lines("nms_index.txt")) {
    std::istringstream in(l);
    int32_t id, n, kept, cv_kept;
    float thr;
    in >> id >> n >> thr >> kept >> cv_kept;
    const auto boxes = load<float>("nms_in_" + std::to_string(id) + ".f32");
    const auto keep = load<int32_t>("nms_keep_" + std::to_string(id) + ".i32");
    const auto cvk = load<int32_t>("nms_cv_" + std::to_string(id) + ".i32");
    ASSERT_EQ(int32_t(boxes.size()), 5 * n);
    std::vector<float> out(boxes.size(), -7.0f);
    const int32_t got = oru_ssd_nms(out.data(), boxes.data(), n, thr);
    ASSERT_EQ(got, kept) << l;
    ASSERT_EQ(int32_t(keep.size()), kept);
    ASSERT_EQ(cvk.size(), keep.size()) << "the two oracles disagree on " << l;
    for (int32_t k = 0; k < got; ++k) {
      EXPECT_EQ(0, std::memcmp(&out[5 * k], &boxes[5 * keep[k]], 5 * sizeof(float))) << l << " rank " << k;
      EXPECT_EQ(0, std::memcmp(&out[5 * k], &boxes[5 * cvk[k]], 5 * sizeof(float))) << l << " rank " << k;
    }
    EXPECT_EQ(out[5 * got], -7.0f);  // nothing written past the kept records
  }
}

TEST(DetectorNms, SmallCases) {
  const float same[10] = {0.1f, 0.1f, 0.5f, 0.5f, 0.9f, 0.1f, 0.1f, 0.5f, 0.5f, 0.8f};
  float out[10];
  EXPECT_EQ(oru_ssd_nms(out, same, 2, 0.5f), 1);
  EXPECT_EQ(out[4], 0.9f);
  const float apart[10] = {0.0f, 0.0f, 0.1f, 0.1f, 0.3f, 0.5f, 0.5f, 0.6f, 0.6f, 0.7f};
  EXPECT_EQ(oru_ssd_nms(out, apart, 2, 0.0f), 2);
  EXPECT_EQ(out[4], 0.7f);  // descending score
  // The 1e-5 keeps the overlap of identical boxes below 1.
  EXPECT_EQ(oru_ssd_nms(out, same, 2, 1.0f), 2);
  EXPECT_EQ(oru_ssd_nms(out, same, 1, 0.5f), 1);
  EXPECT_EQ(oru_ssd_nms(out, same, 0, 0.5f), 0);
  // A box with x1 < x0 has no area and overlaps nothing.
  const float inverted[10] = {0.5f, 0.1f, 0.1f, 0.5f, 0.9f, 0.1f, 0.1f, 0.5f, 0.5f, 0.8f};
  EXPECT_EQ(oru_ssd_nms(out, inverted, 2, 0.0f), 2);
}
