// The converted face network (models/ultraface/ultraface-slim-320.net, written by
// tools/onnx_convert.py) against the hand-bound graph: the same scores and boxes bit for
// bit under each conv method, and the same faces through the whole detector.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "face_model.h"
#include "orucore.h"
#include "ultraface.h"

namespace {

const std::string kPrefix = std::string(ORU_TEST_MODEL_DIR) + "/ultraface-slim-320";

class ConvertedFace : public ::testing::TestWithParam<uint32_t> {};

TEST_P(ConvertedFace, SameScoresAndBoxesBitForBitAsTheHandBoundGraph) {
  const uint32_t method = GetParam();
  ultraface *hand = ultraface_create((kPrefix + ".weights").c_str(), method);
  face_model *conv = face_model_create(kPrefix.c_str(), 320, 240, int32_t(method));
  ASSERT_NE(hand, nullptr);
  ASSERT_NE(conv, nullptr);
  ASSERT_EQ(face_model_prior_count(conv), ULTRAFACE_PRIORS);
  oru_tensor *a = ultraface_input(hand), *b = face_model_input(conv);
  ASSERT_EQ(a->total_elements, b->total_elements);
  std::mt19937 rng(20 + method);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (int64_t i = 0; i < a->total_elements; ++i) static_cast<float *>(a->data)[i] = u(rng);
  std::memcpy(b->data, a->data, size_t(a->total_bytes));
  ASSERT_EQ(ultraface_run(hand), 0u);
  ASSERT_EQ(face_model_run(conv), 0u);
  EXPECT_EQ(std::memcmp(ultraface_scores(hand), face_model_scores(conv), 2 * ULTRAFACE_PRIORS * 4), 0);
  EXPECT_EQ(std::memcmp(ultraface_locations(hand), face_model_locations(conv), 4 * ULTRAFACE_PRIORS * 4), 0);

  oru_image *image = oru_create_image_from_file((std::string(ORU_TEST_IMAGE_DIR) + "/faces-1.bmp").c_str(), 2);
  ASSERT_NE(image, nullptr);
  std::vector<float> fa(5 * 64), fb(5 * 64);
  const int32_t na = ultraface_detect(hand, image, 0.7f, 0.3f, 1, fa.data(), 64);
  const int32_t nb = face_model_detect(conv, image, 0.7f, 0.3f, 1, fb.data(), 64);
  EXPECT_GT(na, 0);
  ASSERT_EQ(na, nb);
  EXPECT_EQ(std::memcmp(fa.data(), fb.data(), size_t(na) * 20), 0);
  oru_release_matrix(&image);
  face_model_release(&conv);
  ultraface_release(&hand);
}

INSTANTIATE_TEST_SUITE_P(Methods, ConvertedFace, ::testing::Values(0u, 2u, ULTRAFACE_METHOD_PER_LAYER));

TEST(ConvertedFace, AnotherInputSizeIsRefusedWithItsReason) {
  testing::internal::CaptureStderr();
  face_model *m = face_model_create(kPrefix.c_str(), 640, 480, ORU_CG_NET_METHOD_FROM_FILE);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(m, nullptr);
  EXPECT_NE(said.find("converted for 320x240"), std::string::npos) << said;
  EXPECT_TRUE(face_model_exists(kPrefix.c_str()));
  EXPECT_FALSE(face_model_exists((kPrefix + ".weights").c_str()));
}

}  // namespace
