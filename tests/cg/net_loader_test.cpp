// Network files through the exported loader: a small valid network against a direct
// computation, then one table of malformed network and weight files, each of which must
// give its status and exactly one report naming the line, and leave nothing behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "oru_cg_net.h"
#include "oru_test_util.h"

namespace {

const char kGoodNet[] =
    "orunet 1\n"
    "backend 0\n"
    "conv_method 2\n"
    "weights 21\n"
    "# id op name inputs params weights\n"
    "0 input in - 5,4,2 -\n"
    "1 conv2d_act conv 0 2,3,1,1,1,1,0,0,0,0,1,1,1,1,1 0:9\n"
    "2 bn2d norm 1 0.001 9:12\n"
    "3 reshape rows 1 3,20 -\n"
    "4 softmax out 3 - -\n";

// Weights: 3 x 2 kernels, 3 biases, then gamma, beta, mean and var of the 3 channels.
std::vector<float> good_weights() {
  std::vector<float> w = {0.5f, -1.0f, 0.25f, 2.0f, -0.75f, 0.1f, 0.2f, -0.3f, 0.05f};
  for (int i = 0; i < 12; ++i) w.push_back(1.0f + 0.1f * float(i));
  return w;
}

std::vector<uint8_t> weight_file(const std::vector<float> &w) {
  std::vector<uint8_t> bytes(w.size() * 4 + 16);
  std::memcpy(bytes.data(), w.data(), w.size() * 4);
  oru_hash_md5_sum(bytes.data() + w.size() * 4, w.data(), int64_t(w.size()) * 4);
  return bytes;
}

std::string write(const std::string &name, const std::string &bytes) {
  const std::string path = oru_test::temp_path(name);
  FILE *f = std::fopen(path.c_str(), "wb");
  if (f) {
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  return path;
}

std::string as_string(const std::vector<uint8_t> &b) { return std::string(b.begin(), b.end()); }

std::string replace(std::string s, const std::string &from, const std::string &to) {
  const size_t at = s.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) s.replace(at, from.size(), to);
  return s;
}

struct Loaded {
  uint32_t status;
  std::string printed;
  oru_cg_net *net;
};

Loaded load(const std::string &net_text, const std::string &weights, int32_t method = ORU_CG_NET_METHOD_FROM_FILE) {
  const std::string np = write("loader.net", net_text), wp = write("loader.weights", weights);
  Loaded r{0, "", nullptr};
  testing::internal::CaptureStdout();
  r.status = oru_cg_load_network(&r.net, np.c_str(), wp.c_str(), method);
  r.printed = testing::internal::GetCapturedStdout();
  return r;
}

TEST(NetLoader, SmallNetworkMatchesADirectComputation) {
  // relu6 in place of the batch norm keeps the direct computation short
  const std::string text = replace(
      replace(replace(kGoodNet, "2 bn2d norm 1 0.001 9:12\n", "2 relu6 clamp 1 - -\n"), "weights 21", "weights 9"),
      "3 reshape rows 1", "3 reshape rows 2");
  std::vector<float> w = good_weights();
  w.resize(9);
  Loaded r = load(text, as_string(weight_file(w)));
  ASSERT_EQ(r.status, 0u) << r.printed;
  oru_tensor *in = oru_cg_network_input(r.net, "in");
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(oru_cg_network_input(r.net, "conv"), nullptr);
  EXPECT_EQ(oru_cg_network_find_node(r.net, "out"), 4);
  EXPECT_EQ(oru_cg_network_find_node(r.net, "nothing"), -1);
  EXPECT_STREQ(oru_cg_network_node_name(r.net, 1), "conv");
  ASSERT_EQ(oru_prepare_inference_computation(oru_cg_network_graph(r.net)), 0u);
  const std::vector<float> x = oru_test::random_values<float>(40, -3.0, 3.0, 7);
  std::memcpy(in->data, x.data(), 40 * 4);
  ASSERT_EQ(oru_computation_graph_inference(oru_cg_network_graph(r.net)), 0u);
  const oru_tensor *out = oru_cg_network_output(r.net, "out");
  ASSERT_NE(out, nullptr);
  ASSERT_EQ(out->total_elements, 60);
  // conv: 3 channels of 20 pixels, relu then relu6; then softmax over consecutive triples
  std::vector<double> y(60);
  for (int o = 0; o < 3; ++o)
    for (int p = 0; p < 20; ++p)
      y[o * 20 + p] =
          std::min(6.0, std::max(0.0, double(w[o * 2]) * x[p] + double(w[o * 2 + 1]) * x[20 + p] + double(w[6 + o])));
  for (int r3 = 0; r3 < 20; ++r3) {
    double s = 0;
    for (int k = 0; k < 3; ++k) s += std::exp(y[r3 * 3 + k]);
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(static_cast<const float *>(out->data)[r3 * 3 + k], std::exp(y[r3 * 3 + k]) / s, 1e-6);
  }
  EXPECT_EQ(oru_cg_release_network(&r.net), 0u);
  EXPECT_EQ(r.net, nullptr);
  EXPECT_EQ(oru_cg_release_network(&r.net), 1u);
}

// A malformed file: its mutation, the status, and the line the report must name.
struct Bad {
  const char *what;
  std::function<std::string(std::string)> net;
  uint32_t status;
  int line;
};

TEST(NetLoader, EveryMalformationIsOneReportNamingTheLine) {
  const std::string weights = as_string(weight_file(good_weights()));
  {
    Loaded ok = load(kGoodNet, weights);
    ASSERT_EQ(ok.status, 0u) << ok.printed;
    EXPECT_EQ(ok.printed.find("Error"), std::string::npos) << ok.printed;
    oru_cg_release_network(&ok.net);
  }
  auto sub = [](const char *from, const char *to) { return [=](std::string s) { return replace(s, from, to); }; };
  const std::string long_name(80, 'n');
  const Bad cases[] = {
      {"wrong magic", sub("orunet 1", "orunet 2"), 1, 1},
      {"empty file", [](std::string) { return std::string("# nothing\n"); }, 1, 1},
      {"missing header", sub("weights 21\n", ""), 1, 5},
      {"unknown header key", sub("backend 0", "backends 0"), 1, 2},
      {"header given twice", sub("weights 21", "backend 0"), 1, 4},
      {"bad backend", sub("backend 0", "backend 3"), 1, 2},
      {"bad conv method", sub("conv_method 2", "conv_method fast"), 1, 3},
      {"header after a node", [](std::string s) { return s + "backend 0\n"; }, 1, 11},
      {"unknown operator", sub("bn2d norm", "bn3d norm"), 4, 8},
      {"too few fields", sub(" 0:9\n", "\n"), 1, 7},
      {"too many fields", sub(" 0:9\n", " 0:9 extra\n"), 1, 7},
      {"ids out of order", sub("2 bn2d", "5 bn2d"), 1, 8},
      {"dangling input", sub("3 reshape rows 1", "3 reshape rows 9"), 1, 9},
      {"input that is not a number", sub("3 reshape rows 1", "3 reshape rows x"), 1, 9},
      {"node taking its own output", sub("3 reshape rows 1", "3 reshape rows 3"), 1, 9},
      {"cycle", sub("3 reshape rows 1 3,20", "3 reshape rows 4 3,20"), 1, 9},
      {"too many inputs", sub("4 softmax out 3", "4 softmax out 3,2"), 1, 10},
      {"an input with inputs", sub("0 input in -", "0 input in 1"), 1, 6},
      {"duplicate name", sub("out 3", "rows 3"), 1, 10},
      {"duplicate name, reported on its later line", sub("in -", "out -"), 1, 10},
      {"name too long", sub("norm", long_name.c_str()), 1, 8},
      {"parameter not a number", sub("0.001", "1e-3x"), 1, 8},
      {"integer parameter with a fraction", sub("2,3,1,1,1,1", "2,3,1.5,1,1,1"), 1, 7},
      {"too few parameters", sub("2,3,1,1,1,1,0,0,0,0,1,1,1,1,1", "2,3,1,1,1,1,0,0,0,0,1,1,1,1"), 1, 7},
      {"zero stride", sub("2,3,1,1,1,1,0,0", "2,3,1,1,0,1,0,0"), 1, 7},
      {"activation code out of range", sub("1,1,1,1,1 0:9", "1,1,1,1,9 0:9"), 1, 7},
      {"weight count against the parameters", sub("0:9", "0:8"), 1, 7},
      {"weights beyond the file", sub("9:12", "12:12"), 1, 8},
      {"malformed weight range", sub("9:12", "9-12"), 1, 8},
      {"missing weights", sub(" 0:9", " -"), 1, 7},
      {"weights where none are taken", sub("out 3 - -", "out 3 - 0:1"), 1, 10},
      {"batch norm weights not in quarters", sub("9:12", "9:11"), 1, 8},
      {"bad input dimension", sub("5,4,2", "5,0,2"), 1, 6},
      {"input too large", sub("5,4,2", "8192,8192,2"), 1, 6},
      {"node connected to nothing", [](std::string s) { return s + "5 input lone - 3 -\n"; }, 1, 11},
      {"zero byte", [](std::string s) { return s + std::string(1, '\0'); }, 1, 0},
  };
  for (const Bad &c : cases) {
    SCOPED_TRACE(c.what);
    Loaded r = load(c.net(kGoodNet), weights);
    EXPECT_EQ(r.status, c.status) << r.printed;
    EXPECT_EQ(r.net, nullptr);
    if (r.net) oru_cg_release_network(&r.net);
    const std::string at = "loader.net:" + std::to_string(c.line) + ":";
    EXPECT_NE(r.printed.find(at), std::string::npos) << r.printed;
    size_t reports = 0;
    for (size_t p = r.printed.find("Error occurred"); p != std::string::npos;
         p = r.printed.find("Error occurred", p + 1))
      ++reports;
    EXPECT_EQ(reports, 1u) << r.printed;
  }
}

TEST(NetLoader, WeightFilesOfTheWrongLengthOrDigestAndMissingFiles) {
  const std::vector<uint8_t> good = weight_file(good_weights());
  struct Case {
    const char *what;
    std::string bytes;
    uint32_t status;
    const char *says;
  } cases[] = {
      {"one word short", as_string(good).substr(4), ORU_RET_ERR_DATA_LENGTH, "loader.weights:0:"},
      {"one byte long", as_string(good) + "x", ORU_RET_ERR_DATA_LENGTH, "loader.weights:0:"},
      {"a weight changed",
       [&] {
         std::string s = as_string(good);
         s[5] ^= 1;
         return s;
       }(),
       ORU_RET_ERR_PARA, "MD5"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    Loaded r = load(kGoodNet, c.bytes);
    EXPECT_EQ(r.status, c.status) << r.printed;
    EXPECT_EQ(r.net, nullptr);
    EXPECT_NE(r.printed.find(c.says), std::string::npos) << r.printed;
  }
  oru_cg_net *net = nullptr;
  const std::string np = write("loader.net", kGoodNet);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_cg_load_network(&net, np.c_str(), "/nonexistent/x.weights", -1), ORU_RET_ERR_OPEN_FILE);
  EXPECT_EQ(oru_cg_load_network(&net, "/nonexistent/x.net", np.c_str(), -1), ORU_RET_ERR_OPEN_FILE);
  EXPECT_EQ(oru_cg_load_network(&net, np.c_str(), np.c_str(), 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_cg_load_network(nullptr, np.c_str(), np.c_str(), -1), ORU_RET_ERR_PARA);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(net, nullptr);
}

TEST(NetLoader, ConvMethodsFromTheFileOrTheCallerReachTheConvolutions) {
  const std::string weights = as_string(weight_file(good_weights()));
  for (int32_t method : {ORU_CG_NET_METHOD_FROM_FILE, 0, 2, ORU_CG_NET_METHOD_PER_LAYER}) {
    Loaded r = load(kGoodNet, weights, method);
    ASSERT_EQ(r.status, 0u) << r.printed;
    const auto *conv = static_cast<const oru_conv2d_act_context *>(oru_cg_network_graph(r.net)->contexts[1]);
    // The file says 2; per layer, this 1x1 convolution takes the direct kernels.
    const uint32_t want = method == ORU_CG_NET_METHOD_FROM_FILE || method == 2 ? 2u : 0u;
    EXPECT_EQ(conv->conv_method, want) << method;
    oru_cg_release_network(&r.net);
  }
}

}  // namespace
