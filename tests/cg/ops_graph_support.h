// Test helpers for operators run through the graph API: reference case files and a small
// graph builder that owns its client tensors.
#ifndef ORU_TESTS_CG_OPS_GRAPH_SUPPORT_H
#define ORU_TESTS_CG_OPS_GRAPH_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "oru_cg.h"
#include "oru_test_util.h"

namespace ops_test {

struct Array {
  std::vector<int32_t> dims;
  std::vector<float> values;
};

// Reads tests/data/ops/<name>.bin as written by tests/oracles/ops_reference.py.
inline std::vector<Array> load_case(const std::string &name) {
  const auto bytes = oru_test::read_file(oru_test::data_path("ops/" + name + ".bin"));
  std::vector<Array> out;
  size_t at = 0;
  auto word = [&]() {
    int32_t v = 0;
    if (at + 4 <= bytes.size()) std::memcpy(&v, bytes.data() + at, 4);
    at += 4;
    return v;
  };
  const int32_t count = word();
  for (int32_t i = 0; i < count && at < bytes.size(); ++i) {
    Array a;
    const int32_t nd = word();
    int64_t n = 1;
    for (int32_t k = 0; k < nd; ++k) {
      a.dims.push_back(word());
      n *= a.dims.back();
    }
    a.values.resize(size_t(n));
    if (at + size_t(n) * 4 <= bytes.size()) std::memcpy(a.values.data(), bytes.data() + at, size_t(n) * 4);
    at += size_t(n) * 4;
    out.push_back(std::move(a));
  }
  return out;
}

// A graph with client tensors it releases after the handle.
class Net {
 public:
  explicit Net(int32_t max_nodes = 64, uint32_t backend = 0) {
    oru_cg_params p{uint32_t(max_nodes), 1, 0, 0, backend};
    h = oru_create_computation_graph_handle(&p);
  }
  ~Net() {
    if (h) oru_release_computation_graph_handle(&h);
    for (auto *t : tensors) oru_release_tensor(&t);
  }
  Net(const Net &) = delete;
  Net &operator=(const Net &) = delete;

  void edge(int32_t from, int32_t to) { ASSERT_EQ(oru_add_one_edge_into_computation_graph(h, from, to), 0u); }
  uint32_t sort() { return oru_computation_graph_topo_sort(h); }

  oru_tensor *tensor(const std::vector<int32_t> &dims, const std::vector<float> &values) {
    oru_tensor *t = oru_create_tensor(int32_t(dims.size()), dims.data(), aif32);
    if (t && !values.empty()) std::memcpy(t->data, values.data(), values.size() * 4);
    tensors.push_back(t);
    return t;
  }
  oru_tensor *tensor(const Array &a) { return tensor(a.dims, a.values); }

  uint32_t bind_tensor(int32_t node, int32_t op, oru_tensor *t) {
    oru_cg_node_desc d{op, t};
    return oru_bind_operator_onto_computation_graph(h, node, &d, nullptr);
  }
  uint32_t bind_op(int32_t node, int32_t op, const void *params = nullptr) {
    oru_cg_node_desc d{op, nullptr};
    return oru_bind_operator_onto_computation_graph(h, node, &d, params);
  }
  uint32_t prepare() { return oru_prepare_inference_computation(h); }
  uint32_t run() { return oru_computation_graph_inference(h); }
  oru_tensor *out(int32_t node) { return oru_get_computation_node_inference_data(h, node); }

  oru_cg_handle *h = nullptr;
  std::vector<oru_tensor *> tensors;
};

inline std::vector<float> values_of(const oru_tensor *t) {
  if (!t || !t->data) return {};
  const float *p = static_cast<const float *>(t->data);
  return std::vector<float>(p, p + t->total_elements);
}

inline std::vector<int32_t> dims_of(const oru_tensor *t) {
  if (!t) return {};
  return std::vector<int32_t>(t->dims, t->dims + t->ndims);
}

inline void expect_close(const oru_tensor *got, const Array &want, double tol, const char *what) {
  ASSERT_NE(got, nullptr) << what;
  EXPECT_EQ(dims_of(got), want.dims) << what;
  const auto v = values_of(got);
  ASSERT_EQ(v.size(), want.values.size()) << what;
  for (size_t i = 0; i < v.size(); ++i)
    ASSERT_NEAR(v[i], want.values[i], tol * (1.0 + std::abs(double(want.values[i])))) << what << " at " << i;
}

}  // namespace ops_test

#endif
