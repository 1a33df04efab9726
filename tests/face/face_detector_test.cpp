// The face detector end to end: the weight file, the graph built from it, its raw outputs
// and its final boxes, against OpenCV DNN running the same ONNX network (reference files
// written by tests/oracles/face_reference.py).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "oru_test_util.h"
#include "orucore.h"
#include "ultraface.h"

namespace {

std::string model_path(const std::string &name) { return std::string(ORU_TEST_MODEL_DIR) + "/" + name; }
const std::string kWeights = model_path("ultraface-slim-320.weights");

struct NetDeleter {
  void operator()(ultraface *u) const { ultraface_release(&u); }
};
using Net = std::unique_ptr<ultraface, NetDeleter>;

struct ImageDeleter {
  void operator()(oru_image *m) const { oru_release_matrix(&m); }
};
using Image = std::unique_ptr<oru_image, ImageDeleter>;

std::vector<float> read_floats(const std::string &path) {
  std::vector<uint8_t> bytes = oru_test::read_file(path);
  std::vector<float> v(bytes.size() / 4);
  if (!v.empty()) std::memcpy(v.data(), bytes.data(), v.size() * 4);
  return v;
}

struct Box {
  float x0, y0, x1, y1, score;
};

std::vector<Box> read_boxes(const std::string &path) {
  std::ifstream in(path);
  std::vector<Box> out;
  Box b;
  while (in >> b.x0 >> b.y0 >> b.x1 >> b.y1 >> b.score) out.push_back(b);
  return out;
}

double iou(const Box &a, const Box &b) {
  double iw = std::max(0.0, double(std::min(a.x1, b.x1)) - std::max(a.x0, b.x0));
  double ih = std::max(0.0, double(std::min(a.y1, b.y1)) - std::max(a.y0, b.y0));
  double inter = iw * ih;
  double area_a = double(a.x1 - a.x0) * (a.y1 - a.y0), area_b = double(b.x1 - b.x0) * (b.y1 - b.y0);
  return inter / (area_a + area_b - inter);
}

// The input the oracle fed OpenCV for the raw outputs: faces-1 sampled at integer nearest
// positions, red plane first, (v - 127.5) / 128.
void fill_sampled_input(oru_tensor *input, const oru_image *bgr) {
  float *dst = static_cast<float *>(input->data);
  const int w = bgr->cols, h = bgr->rows, plane = ULTRAFACE_WIDTH * ULTRAFACE_HEIGHT;
  for (int y = 0; y < ULTRAFACE_HEIGHT; ++y) {
    const uint8_t *row = static_cast<const uint8_t *>(bgr->data) + int64_t(y * h / ULTRAFACE_HEIGHT) * bgr->stride;
    for (int x = 0; x < ULTRAFACE_WIDTH; ++x) {
      const uint8_t *px = row + 3 * (x * w / ULTRAFACE_WIDTH);
      for (int c = 0; c < 3; ++c) dst[c * plane + y * ULTRAFACE_WIDTH + x] = (float(px[2 - c]) - 127.5f) / 128.0f;
    }
  }
}

Image load_image(const std::string &name) {
  return Image(oru_create_image_from_file((std::string(ORU_TEST_IMAGE_DIR) + "/" + name).c_str(), 2));
}

class FaceRaw : public ::testing::TestWithParam<uint32_t> {};

TEST_P(FaceRaw, ScoresAndLocationsMatchOpenCvDnnOnTheSameInput) {
  Net net(ultraface_create(kWeights.c_str(), GetParam()));
  ASSERT_TRUE(net);
  Image img = load_image("faces-1.bmp");
  ASSERT_TRUE(img);
  fill_sampled_input(ultraface_input(net.get()), img.get());
  ASSERT_EQ(ultraface_run(net.get()), 0u);
  const std::vector<float> ref_scores = read_floats(oru_test::data_path("face/raw_scores.f32"));
  const std::vector<float> ref_boxes = read_floats(oru_test::data_path("face/raw_boxes.f32"));
  ASSERT_EQ(ref_scores.size(), size_t(2 * ULTRAFACE_PRIORS));
  ASSERT_EQ(ref_boxes.size(), size_t(4 * ULTRAFACE_PRIORS));
  const float *scores = ultraface_scores(net.get());
  const float *locs = ultraface_locations(net.get());
  double worst_score = 0, worst_loc = 0;
  for (size_t i = 0; i < ref_scores.size(); ++i) worst_score = std::max(worst_score, double(std::fabs(scores[i] - ref_scores[i])));
  for (size_t i = 0; i < ref_boxes.size(); ++i) worst_loc = std::max(worst_loc, double(std::fabs(locs[i] - ref_boxes[i])));
  EXPECT_LE(worst_score, 1e-4);
  EXPECT_LE(worst_loc, 1e-4);
  // the two classes of a prior are a probability pair
  for (int i = 0; i < ULTRAFACE_PRIORS; i += 97) EXPECT_NEAR(scores[2 * i] + scores[2 * i + 1], 1.0f, 1e-5f);
}

INSTANTIATE_TEST_SUITE_P(ConvMethods, FaceRaw, ::testing::Values(0u, 1u, 2u, ULTRAFACE_METHOD_PER_LAYER));

// Score tolerance 1e-3, the boxes paired one to one at IoU 0.9. The photographs' reference
// ran OpenCV on the bytes of a NumPy model of the library's resizer (and of its 4:3
// border), so there too the network sees the very input the library gives it.
constexpr double kSameInput = 1e-3;

void expect_same_detections(const std::vector<Box> &ref, const std::vector<Box> &got, double score_tol) {
  EXPECT_EQ(got.size(), ref.size());
  std::vector<bool> used(got.size(), false);
  for (const Box &r : ref) {
    int best = -1;
    double best_iou = 0;
    for (size_t j = 0; j < got.size(); ++j) {
      double v = iou(r, got[j]);
      if (!used[j] && v > best_iou) best_iou = v, best = int(j);
    }
    ASSERT_GE(best, 0) << "no box for reference " << r.x0 << " " << r.y0;
    EXPECT_GE(best_iou, 0.9) << "reference box at " << r.x0 << " " << r.y0;
    EXPECT_NEAR(got[best].score, r.score, score_tol) << "reference box at " << r.x0 << " " << r.y0;
    used[best] = true;
  }
  for (size_t j = 1; j < got.size(); ++j) EXPECT_GE(got[j - 1].score, got[j].score);
}

std::vector<Box> detect(ultraface *net, const oru_image *img, int keep_aspect) {
  std::vector<Box> out(ULTRAFACE_PRIORS);
  int32_t n = ultraface_detect(net, img, 0.7f, 0.3f, keep_aspect, &out[0].x0, ULTRAFACE_PRIORS);
  EXPECT_GE(n, 0);
  out.resize(std::max(n, 0));
  return out;
}

TEST(Face, DecodingAndSuppressionMatchTheReferenceOnTheSameInput) {
  Net net(ultraface_create(kWeights.c_str(), ULTRAFACE_METHOD_PER_LAYER));
  ASSERT_TRUE(net);
  Image img = load_image("faces-1.bmp");
  ASSERT_TRUE(img);
  fill_sampled_input(ultraface_input(net.get()), img.get());
  ASSERT_EQ(ultraface_run(net.get()), 0u);
  std::vector<Box> got(ULTRAFACE_PRIORS);
  int32_t n = ultraface_decode(net.get(), float(img->cols), float(img->rows), 0, 0, 0.7f, 0.3f, &got[0].x0,
                               ULTRAFACE_PRIORS);
  ASSERT_GE(n, 0);
  got.resize(n);
  std::vector<Box> ref = read_boxes(oru_test::data_path("face/faces-1.sampled.boxes.txt"));
  ASSERT_FALSE(ref.empty());
  expect_same_detections(ref, got, kSameInput);
}

TEST(Face, DetectionsOnThreePhotographsMatchTheReference) {
  Net net(ultraface_create(kWeights.c_str(), ULTRAFACE_METHOD_PER_LAYER));
  ASSERT_TRUE(net);
  for (int n = 1; n <= 3; ++n) {
    SCOPED_TRACE("faces-" + std::to_string(n));
    Image img = load_image("faces-" + std::to_string(n) + ".bmp");
    ASSERT_TRUE(img);
    std::vector<Box> ref = read_boxes(oru_test::data_path("face/faces-" + std::to_string(n) + ".boxes.txt"));
    ASSERT_FALSE(ref.empty());
    expect_same_detections(ref, detect(net.get(), img.get(), 0), kSameInput);
  }
}

TEST(Face, PaddedToFourByThreeTheBoxesMapBackToTheImage) {
  Net net(ultraface_create(kWeights.c_str(), ULTRAFACE_METHOD_PER_LAYER));
  ASSERT_TRUE(net);
  Image img = load_image("faces-2.bmp");
  ASSERT_TRUE(img);
  std::vector<Box> ref = read_boxes(oru_test::data_path("face/faces-2.padded-4x3.boxes.txt"));
  ASSERT_FALSE(ref.empty());
  expect_same_detections(ref, detect(net.get(), img.get(), 1), kSameInput);
}

// The shape nodes and the graph loop allocate nothing per frame; the convolution kernels
// still take their short scratch inside each call, at most one block per node, the same
// every run.
TEST(Face, DetectRefusesImagesItWouldMisread) {
  Net net(ultraface_create(kWeights.c_str(), 0));
  ASSERT_TRUE(net);
  std::vector<float> out(5 * 8);
  Image grey(oru_create_image(64, 48, ORU_IMAGE_GRAY8));
  ASSERT_TRUE(grey);
  EXPECT_EQ(ultraface_detect(net.get(), grey.get(), 0.7f, 0.3f, 0, out.data(), 8), -1);
  EXPECT_EQ(ultraface_detect(net.get(), nullptr, 0.7f, 0.3f, 0, out.data(), 8), -1);
  EXPECT_EQ(ultraface_detect(nullptr, grey.get(), 0.7f, 0.3f, 0, out.data(), 8), -1);
  EXPECT_EQ(ultraface_create(kWeights.c_str(), 7), nullptr);  // no such conv method
}

TEST(Face, GraphRunAllocatesNoMoreThanConvolutionScratch) {
  for (uint32_t method : {0u, 2u, ULTRAFACE_METHOD_PER_LAYER}) {
    Net net(ultraface_create(kWeights.c_str(), method));
    ASSERT_TRUE(net);
    ASSERT_EQ(ultraface_run(net.get()), 0u);
    int64_t before = oru_test::malloc_calls();
    ASSERT_EQ(ultraface_run(net.get()), 0u);
    const int64_t first = oru_test::malloc_calls() - before;
    before = oru_test::malloc_calls();
    ASSERT_EQ(ultraface_run(net.get()), 0u);
    const int64_t second = oru_test::malloc_calls() - before;
    EXPECT_EQ(first, second) << "method " << method;
    EXPECT_LE(first, ULTRAFACE_LAYERS) << "method " << method;
  }
}

// The layer list the converter wrote beside the weights is the table the graph is built
// from, and the file is exactly those words plus their digest.
TEST(Face, ConverterLayerListAgreesWithTheGraphTable) {
  std::ifstream in(model_path("ultraface-slim-320.layers.txt"));
  ASSERT_TRUE(in.good());
  std::string line;
  int index = 0, words = 0;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream s(line);
    std::string name;
    int v[11];
    s >> name;
    for (int &x : v) s >> x;
    ASSERT_FALSE(s.fail()) << line;
    const ultraface_layer *l = ultraface_get_layer(index);
    ASSERT_NE(l, nullptr) << "more layers in the list than in the graph";
    EXPECT_EQ(name, l->name);
    const int mine[11] = {l->in_channels, l->out_channels, l->kernel, l->stride, l->pad, l->groups,
                          l->bias,        l->bn,           l->relu,   l->offset, l->count};
    for (int k = 0; k < 11; ++k) EXPECT_EQ(v[k], mine[k]) << name << " field " << k;
    words = v[9] + v[10];
    ++index;
  }
  EXPECT_EQ(index, ULTRAFACE_LAYERS);
  EXPECT_EQ(words, ULTRAFACE_WEIGHT_WORDS);
  EXPECT_EQ(oru_test::read_file(kWeights).size(), size_t(4 * ULTRAFACE_WEIGHT_WORDS + 16));
}

TEST(Face, ShippedDigestIsCheckedAndATamperedFileIsRefused) {
  std::vector<uint8_t> bytes = oru_test::read_file(kWeights);
  ASSERT_EQ(bytes.size(), size_t(4 * ULTRAFACE_WEIGHT_WORDS + 16));
  std::vector<float> words(ULTRAFACE_WEIGHT_WORDS);
  std::memcpy(words.data(), bytes.data(), words.size() * 4);
  // the converter wrote the digest with Python's hashlib
  uint8_t digest[16];
  ASSERT_EQ(oru_hash_md5_sum(digest, words.data(), int64_t(words.size()) * 4), 0u);
  EXPECT_EQ(std::memcmp(digest, bytes.data() + 4 * ULTRAFACE_WEIGHT_WORDS, 16), 0);
  EXPECT_EQ(oru_cg_load_model(words.data(), ULTRAFACE_WEIGHT_WORDS, kWeights.c_str()), 0u);
  EXPECT_TRUE(Net(ultraface_create(kWeights.c_str(), 0)));

  // one weight of the last layer changed: the digest no longer agrees
  std::vector<uint8_t> bad = bytes;
  bad[4 * (ULTRAFACE_WEIGHT_WORDS - 3)] ^= 0x40;
  const std::string bad_path = oru_test::temp_path("tampered.weights");
  {
    std::ofstream out(bad_path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(bad.data()), std::streamsize(bad.size()));
  }
  EXPECT_EQ(oru_cg_load_model(words.data(), ULTRAFACE_WEIGHT_WORDS, bad_path.c_str()), 1u);
  Net net(ultraface_create(bad_path.c_str(), 2));
  EXPECT_FALSE(net);
  // a file cut short is refused too
  const std::string short_path = oru_test::temp_path("short.weights");
  {
    std::ofstream out(short_path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size() / 2));
  }
  EXPECT_FALSE(Net(ultraface_create(short_path.c_str(), 2)));
  EXPECT_FALSE(Net(ultraface_create(oru_test::temp_path("missing.weights").c_str(), 2)));
  std::remove(bad_path.c_str());
  std::remove(short_path.c_str());
}

}  // namespace
