// The face detector in fixed point against the same detector in float, on the bundled
// photographs: the boxes must match, and the shipped Q list must be what it claims.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "orucore.h"
#include "ultraface.h"

namespace {

const std::string kWeights = std::string(ORU_TEST_MODEL_DIR) + "/ultraface-slim-320.weights";

struct NetDeleter {
  void operator()(ultraface *u) const { ultraface_release(&u); }
};
using Net = std::unique_ptr<ultraface, NetDeleter>;

struct Box {
  float x0, y0, x1, y1, score;
};

double iou(const Box &a, const Box &b) {
  double iw = std::max(0.0, double(std::min(a.x1, b.x1)) - std::max(a.x0, b.x0));
  double ih = std::max(0.0, double(std::min(a.y1, b.y1)) - std::max(a.y0, b.y0));
  double inter = iw * ih;
  double area_a = double(a.x1 - a.x0) * (a.y1 - a.y0), area_b = double(b.x1 - b.x0) * (b.y1 - b.y0);
  return inter / (area_a + area_b - inter);
}

std::vector<Box> detect(ultraface *net, const oru_image *image) {
  std::vector<Box> boxes(ULTRAFACE_PRIORS);
  const int32_t n = ultraface_detect(net, image, 0.7f, 0.3f, 0, &boxes[0].x0, ULTRAFACE_PRIORS);
  EXPECT_GE(n, 0);
  boxes.resize(size_t(std::max(n, 0)));
  return boxes;
}

TEST(FaceFixed, FindsTheFloatDetectorsFacesInTheBundledPhotographs) {
  Net flt(ultraface_create(kWeights.c_str(), ULTRAFACE_METHOD_PER_LAYER));
  Net fix(ultraface_create_backend(kWeights.c_str(), 0, ULTRAFACE_BACKEND_FIXED));
  ASSERT_NE(flt, nullptr);
  ASSERT_NE(fix, nullptr);
  EXPECT_EQ(ultraface_input(fix.get())->type, uint32_t(ai16s));
  double worst_score = 0.0;
  size_t total = 0, matched_total = 0;
  for (const char *name : {"faces-1.bmp", "faces-2.bmp", "faces-3.bmp"}) {
    const std::string path = std::string(ORU_TEST_IMAGE_DIR) + "/" + name;
    oru_image *image = oru_create_image_from_file(path.c_str(), 2);
    ASSERT_NE(image, nullptr) << path;
    const std::vector<Box> want = detect(flt.get(), image), got = detect(fix.get(), image);
    oru_release_matrix(&image);
    ASSERT_FALSE(want.empty()) << name;
    std::vector<bool> used(got.size(), false);
    size_t matched = 0;
    for (const Box &w : want) {
      int best = -1;
      double best_iou = 0.8;
      for (size_t j = 0; j < got.size(); ++j)
        if (!used[j] && iou(w, got[j]) >= best_iou) best_iou = iou(w, got[j]), best = int(j);
      if (best < 0) continue;
      used[size_t(best)] = true;
      ++matched;
      worst_score = std::max(worst_score, std::fabs(double(w.score) - got[size_t(best)].score));
    }
    const size_t extra = got.size() - matched;
    EXPECT_GE(double(matched), 0.95 * double(want.size())) << name << ": " << matched << " of " << want.size();
    EXPECT_LE(double(extra), 0.05 * double(want.size())) << name << ": " << extra << " extra boxes";
    total += want.size();
    matched_total += matched;
  }
  std::printf("fixed point: %zu of %zu float boxes matched at IoU >= 0.8, largest score difference %.5f\n",
              matched_total, total, worst_score);
  RecordProperty("largest_score_difference", std::to_string(worst_score));
  EXPECT_LT(worst_score, 0.05);
}

// A copy of the weights in a folder of its own, with a Q list written by the test.
class QListFiles : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/oru_qlist_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    weights_ = dir_ + "/net.weights";
    ASSERT_EQ(symlink(kWeights.c_str(), weights_.c_str()), 0);
  }
  void TearDown() override {
    std::remove((dir_ + "/net.q").c_str());
    std::remove(weights_.c_str());
    rmdir(dir_.c_str());
  }
  void write_list(int32_t bad_node, int32_t bad_q) {
    std::ofstream out(dir_ + "/net.q");
    out << "# test list\n";
    for (int32_t node = 0; node < ULTRAFACE_FIXED_NODES; ++node)
      if (node != bad_node || bad_q >= -1) out << node << " " << (node == bad_node ? bad_q : 12) << "\n";
  }
  std::string dir_, weights_;
};

TEST_F(QListFiles, MissingOrBadListsAreRefusedAndAGoodOneLoads) {
  char path[4096];
  ASSERT_EQ(ultraface_q_list_path(path, sizeof path, weights_.c_str()), 0);
  EXPECT_EQ(std::string(path), dir_ + "/net.q");
  testing::internal::CaptureStderr();
  EXPECT_EQ(ultraface_create_backend(weights_.c_str(), 0, ULTRAFACE_BACKEND_FIXED), nullptr);  // no list
  write_list(5, 16);
  EXPECT_EQ(ultraface_create_backend(weights_.c_str(), 0, ULTRAFACE_BACKEND_FIXED), nullptr);  // Q 16
  write_list(5, -5);
  EXPECT_EQ(ultraface_create_backend(weights_.c_str(), 0, ULTRAFACE_BACKEND_FIXED), nullptr);  // node missing
  const std::string messages = testing::internal::GetCapturedStderr();
  EXPECT_NE(messages.find("cannot open the Q list"), std::string::npos) << messages;
  EXPECT_NE(messages.find("outside 0 to 15"), std::string::npos) << messages;
  EXPECT_NE(messages.find("misses a node"), std::string::npos) << messages;
  write_list(-1, 0);
  Net net(ultraface_create_backend(weights_.c_str(), 0, ULTRAFACE_BACKEND_FIXED));
  ASSERT_NE(net, nullptr);
  EXPECT_EQ(ultraface_backend(net.get()), ULTRAFACE_BACKEND_FIXED);
  EXPECT_EQ(oru_cg_get_q_from_list(ultraface_graph(net.get()), ULTRAFACE_NODE_CONV + 3), 12u);
}

}  // namespace
