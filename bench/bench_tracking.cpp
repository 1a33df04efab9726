// Tracking: the assignment on square random costs, a SORT frame with 50 live tracks and
// 50 detections, and one predict plus correct of the tracker's 7-state filter.
// SciPy is the peer for the assignment; bench/lsa_scipy_timing.py times it on the same
// kind of matrices (uniform costs in [0, 1)).
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "oru_tracking.h"

namespace {

std::vector<float> uniform_costs(int n, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<float> dist(0.0f, 1.0f);
  std::vector<float> v(size_t(n) * n);
  for (auto &x : v) x = dist(gen);
  return v;
}

oru_matrix view(std::vector<float> &v, int rows, int cols) {
  oru_matrix m{};
  m.kind = 4;
  m.type = aif32;
  m.data = v.data();
  m.rows = rows;
  m.cols = cols;
  m.depth = 1;
  m.stride = int64_t(cols) * 4;
  m.reserved_one = 1;
  m.channel_bytes = 4;
  m.channels = 1;
  m.format = 15;
  return m;
}

void BM_Assignment(benchmark::State &state) {
  const int n = int(state.range(0));
  // Several matrices in turn, so that one lucky instance doesn't set the figure.
  std::vector<std::vector<float>> costs;
  for (uint32_t s = 0; s < 8; ++s) costs.push_back(uniform_costs(n, 100 + s));
  std::vector<oru_matrix> views;
  for (auto &c : costs) views.push_back(view(c, n, n));
  size_t k = 0;
  for (auto _ : state) {
    oru_linear_sum_assignment *a = oru_create_linear_sum_assignment(&views[k++ % views.size()], 0);
    benchmark::DoNotOptimize(a);
    oru_release_linear_sum_assignment(&a);
  }
}
BENCHMARK(BM_Assignment)->Arg(50)->Arg(200)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
