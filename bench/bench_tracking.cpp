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

// One frame of the one-call update with 50 live tracks and 50 detections: 50 objects
// drifting on straight paths, so that every frame pairs every track.
void BM_SortUpdate50(benchmark::State &state) {
  const oru_sort_params params{3, 3, 0.3f, 0.0f};
  oru_sort_handle *h = oru_create_sort_handle(&params);
  std::mt19937 gen(5);
  std::uniform_real_distribution<float> pos(0, 1000), vel(-2, 2);
  std::vector<float> x(50), y(50), vx(50), vy(50), dets(250);
  for (int k = 0; k < 50; ++k) {
    x[k] = pos(gen);
    y[k] = pos(gen);
    vx[k] = vel(gen);
    vy[k] = vel(gen);
  }
  auto fill = [&](int f) {
    for (int k = 0; k < 50; ++k) {
      // Back and forth along the path, so that no object ever jumps.
      const int t = f % 400 < 200 ? f % 400 : 400 - f % 400;
      const float cx = x[k] + vx[k] * float(t), cy = y[k] + vy[k] * float(t);
      float *d = &dets[5 * k];
      d[0] = cx - 10;
      d[1] = cy - 20;
      d[2] = cx + 10;
      d[3] = cy + 20;
      d[4] = 0.9f;
    }
  };
  int f = 0;
  fill(f++);
  oru_track_info *info = oru_sort_update(dets.data(), 50, h);
  oru_release_track_info(&info);
  for (auto _ : state) {
    fill(f++);
    info = oru_sort_update(dets.data(), 50, h);
    benchmark::DoNotOptimize(info);
    oru_release_track_info(&info);
  }
  state.counters["tracks"] = double(h->count);
  state.SetItemsProcessed(int64_t(state.iterations()));
  oru_release_sort_handle(&h);
}
BENCHMARK(BM_SortUpdate50)->Unit(benchmark::kMicrosecond);

// Predict plus correct of the tracker's own 7-state, 4-measurement aif32 filter.
void BM_KalmanStep7(benchmark::State &state) {
  const float box[4] = {100, 100, 140, 180};
  oru_kalman_box_tracker *t = oru_create_kalman_box_tracker(box, 0);
  oru_matrix *z = oru_create_matrix(4, 1, 1, aif32);
  float *zv = static_cast<float *>(z->data);
  zv[0] = 120;
  zv[1] = 140;
  zv[2] = 3200;
  zv[3] = 0.5f;
  for (auto _ : state) {
    benchmark::DoNotOptimize(oru_kalman_filter_predict(nullptr, t->filter));
    zv[0] += 0.5f;
    benchmark::DoNotOptimize(oru_kalman_filter_update(z, t->filter));
  }
  oru_release_matrix(&z);
  oru_release_kalman_box_tracker(&t);
}
BENCHMARK(BM_KalmanStep7)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
