// Reader of the PyTorch reference cases (tests/oracles/conv_reference.py) and small tensor
// helpers shared by the kernel and the graph tests of convolution.
#ifndef ORU_TESTS_CONV_CASE_FILE_H
#define ORU_TESTS_CONV_CASE_FILE_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "oru_case_reader.h"
#include "oru_test_util.h"
#include "orucore.h"

namespace conv_test {

using Array = oru_test::CaseArray<float>;
using oru_test::CaseReader;

struct Case {
  int32_t kind = 0;  // 0 convolution, 1 transposed, 2 conv + batch norm + act, 3 conv + act
  oru_conv2d_params params{};
  int32_t act = 0;
  float bn_eps = 0.0f;
  Array input, weight, expected;
};

inline std::vector<Case> load_cases(const char *file = "conv/conv_cases.bin") {
  CaseReader r(file, "ORUCONV1");
  std::vector<Case> cases;
  int32_t count = 0;
  if (!r.ok() || !r.take(&count, 4)) return cases;
  for (int32_t i = 0; i < count; ++i) {
    Case c;
    if (!r.take(&c.kind, 4) || !r.take(&c.params, sizeof c.params) || !r.take(&c.act, 4) || !r.take(&c.bn_eps, 4) ||
        !r.take_array(c.input) || !r.take_array(c.weight) || !r.take_array(c.expected))
      break;
    cases.push_back(std::move(c));
  }
  return cases;
}

struct TensorDeleter {
  void operator()(oru_tensor *t) const { oru_release_tensor(&t); }
};
using TensorPtr = std::unique_ptr<oru_tensor, TensorDeleter>;

inline TensorPtr make_tensor(const std::vector<int32_t> &dims, const std::vector<float> &values = {}) {
  TensorPtr t(oru_create_tensor(int32_t(dims.size()), dims.data(), aif32));
  if (t && !values.empty()) std::memcpy(t->data, values.data(), values.size() * sizeof(float));
  return t;
}

inline std::vector<float> values_of(const oru_tensor *t) {
  const float *p = static_cast<const float *>(t->data);
  return std::vector<float>(p, p + t->total_elements);
}

// Largest error relative to 1 + |reference| over the two arrays; infinity on a size mismatch.
inline double max_rel_error(const std::vector<float> &got, const std::vector<float> &ref) {
  if (got.size() != ref.size()) return INFINITY;
  double worst = 0.0;
  for (size_t i = 0; i < ref.size(); ++i) {
    double e = std::fabs(double(got[i]) - ref[i]) / (1.0 + std::fabs(double(ref[i])));
    if (!(e <= worst)) worst = e;  // NaN counts as the worst
  }
  return worst;
}

// Number of error reports in captured standard output.
inline int reports_in(const std::string &out) {
  int n = 0;
  for (size_t at = out.find("Error occurred: "); at != std::string::npos; at = out.find("Error occurred: ", at + 1)) ++n;
  return n;
}

inline std::string describe(const Case &c) {
  const oru_conv2d_params &p = c.params;
  char buf[200];
  std::snprintf(buf, sizeof buf, "kind %d ic %d oc %d k %dx%d s %d,%d p %d,%d d %d g %d bias %d act %d in %dx%d",
                c.kind, p.in_channels, p.out_channels, p.kernel_w, p.kernel_h, p.stride_w, p.stride_h, p.pad_w,
                p.pad_h, p.dilation_w, p.groups, p.has_bias, c.act, c.input.dims[0], c.input.dims[1]);
  return buf;
}

}  // namespace conv_test

#endif
