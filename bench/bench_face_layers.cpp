// Where the face network's time goes, layer by layer: for each convolution node its time,
// its FLOPs, its GFLOP/s and the fraction of this core's peak, measured in the same run by
// a loop of independent vector multiply-adds (fused and separate). Every later change to
// the kernels can be judged against this table.
//   bench_face_layers [--method auto|0|1|2] [--runs N]   then the usual benchmark flags
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "orucore.h"
#include "ultraface.h"

namespace {

const char *kWeights = ORU_BENCH_MODEL_DIR "/ultraface-slim-320.weights";

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// Peak float throughput of one core, from eight independent accumulator chains so that
// latency never limits it. fused: a*b+c in one instruction; else a multiply and an add.
#if defined(__x86_64__)
__attribute__((target("avx2,fma"))) double peak_gflops_avx2(bool fused) {
  __m256 acc[8], m = _mm256_set1_ps(0.999999f), a = _mm256_set1_ps(1e-7f);
  for (auto &v : acc) v = _mm256_set1_ps(1.0f);
  const long iters = 20000000;
  const auto t0 = Clock::now();
  for (long i = 0; i < iters; ++i)
    for (auto &v : acc) v = fused ? _mm256_fmadd_ps(v, m, a) : _mm256_add_ps(_mm256_mul_ps(v, m), a);
  const double s = seconds_since(t0);
  float sink[8];
  __m256 t = acc[0];
  for (int k = 1; k < 8; ++k) t = _mm256_add_ps(t, acc[k]);
  _mm256_storeu_ps(sink, t);
  benchmark::DoNotOptimize(sink);
  return 2.0 * 8 * 8 * double(iters) / s * 1e-9;
}
__attribute__((target("avx512f"))) double peak_gflops_avx512(bool fused) {
  __m512 acc[8], m = _mm512_set1_ps(0.999999f), a = _mm512_set1_ps(1e-7f);
  for (auto &v : acc) v = _mm512_set1_ps(1.0f);
  const long iters = 20000000;
  const auto t0 = Clock::now();
  for (long i = 0; i < iters; ++i)
    for (auto &v : acc) v = fused ? _mm512_fmadd_ps(v, m, a) : _mm512_add_ps(_mm512_mul_ps(v, m), a);
  const double s = seconds_since(t0);
  float sink[16];
  _mm512_storeu_ps(sink, _mm512_add_ps(acc[0], acc[7]));
  benchmark::DoNotOptimize(sink);
  return 2.0 * 16 * 8 * double(iters) / s * 1e-9;
}
double peak_gflops(bool fused) {
  return __builtin_cpu_supports("avx512f") ? peak_gflops_avx512(fused) : peak_gflops_avx2(fused);
}
#elif defined(__aarch64__)
double peak_gflops(bool fused) {
  float32x4_t acc[8], m = vdupq_n_f32(0.999999f), a = vdupq_n_f32(1e-7f);
  for (auto &v : acc) v = vdupq_n_f32(1.0f);
  const long iters = 20000000;
  const auto t0 = Clock::now();
  for (long i = 0; i < iters; ++i)
    for (auto &v : acc) v = fused ? vfmaq_f32(a, v, m) : vaddq_f32(vmulq_f32(v, m), a);
  const double s = seconds_since(t0);
  float sink = vaddvq_f32(acc[0]) + vaddvq_f32(acc[7]);
  benchmark::DoNotOptimize(sink);
  return 2.0 * 4 * 8 * double(iters) / s * 1e-9;
}
#else
double peak_gflops(bool) { return 0.0; }
#endif

uint32_t g_method = ULTRAFACE_METHOD_PER_LAYER;
int g_runs = 200;

ultraface *make_network(uint32_t method) {
  ultraface *net = ultraface_create(kWeights, method);
  if (!net) return nullptr;
  oru_tensor *in = ultraface_input(net);
  float *x = static_cast<float *>(in->data);
  for (int64_t i = 0; i < in->total_elements; ++i) x[i] = float(i % 251) / 125.0f - 1.0f;
  ultraface_run(net);
  return net;
}

struct NodeTime {
  int32_t node;
  double seconds = 0.0;
};

// Runs the graph's nodes one by one, as the graph's own loop does, timing each.
std::vector<NodeTime> time_nodes(oru_cg_handle *g, int runs) {
  const int64_t n = g->nodes->size;
  std::vector<NodeTime> t;
  for (int64_t k = 0; k < n; ++k)
    if (g->forward[g->topo_order[k]]) t.push_back({g->topo_order[k]});
  std::vector<double> best(t.size(), 1e30);
  for (int r = 0; r < runs; ++r)
    for (size_t k = 0; k < t.size(); ++k) {
      const auto t0 = Clock::now();
      g->forward[t[k].node](g->contexts[t[k].node]);
      best[k] = std::min(best[k], seconds_since(t0));
    }
  for (size_t k = 0; k < t.size(); ++k) t[k].seconds = best[k];
  return t;
}

void print_table(uint32_t method, int runs) {
  ultraface *net = make_network(method);
  if (!net) {
    std::fprintf(stderr, "cannot build the face network from %s\n", kWeights);
    return;
  }
  oru_cg_handle *g = ultraface_graph(net);
  const double peak_sep = peak_gflops(false), peak_fma = peak_gflops(true);
  std::printf("Face network, conv method %s, best of %d runs per node\n",
              method == ULTRAFACE_METHOD_PER_LAYER ? "per layer" : std::to_string(method).c_str(), runs);
  std::printf("core peak: %.1f GFLOP/s with separate multiply and add, %.1f fused\n\n", peak_sep, peak_fma);
  std::printf("%-22s %-16s %8s %8s %9s %8s %8s\n", "layer", "output CxHxW", "us", "MFLOP", "GFLOP/s",
              "%peak", "%fused");
  double conv_total = 0.0, other_total = 0.0, flops_total = 0.0;
  for (const NodeTime &nt : time_nodes(g, runs)) {
    const int32_t layer = nt.node - ULTRAFACE_NODE_CONV;
    if (layer < 0 || layer >= ULTRAFACE_LAYERS) {
      other_total += nt.seconds;
      continue;
    }
    const ultraface_layer *l = ultraface_get_layer(layer);
    const oru_tensor *out = oru_get_computation_node_inference_data(g, nt.node);
    const double pixels = double(out->dims[0]) * double(out->dims[1]);
    const double flops =
        2.0 * l->out_channels * pixels * (l->in_channels / l->groups) * double(l->kernel) * l->kernel;
    const double gf = flops / nt.seconds * 1e-9;
    char shape[32];
    std::snprintf(shape, sizeof shape, "%dx%dx%d", int(out->dims[2]), int(out->dims[1]), int(out->dims[0]));
    std::printf("%-22s %-16s %8.1f %8.2f %9.1f %7.0f%% %7.0f%%\n", l->name, shape, nt.seconds * 1e6, flops * 1e-6,
                gf, peak_sep > 0 ? 100.0 * gf / peak_sep : 0.0, peak_fma > 0 ? 100.0 * gf / peak_fma : 0.0);
    conv_total += nt.seconds;
    flops_total += flops;
  }
  std::printf("\nconvolutions: %.3f ms, %.1f MFLOP, %.1f GFLOP/s; other nodes: %.3f ms; sum %.3f ms\n\n",
              conv_total * 1e3, flops_total * 1e-6, flops_total / conv_total * 1e-9, other_total * 1e3,
              (conv_total + other_total) * 1e3);
  ultraface_release(&net);
}

void BM_FaceNetwork(benchmark::State &state) {
  ultraface *net = make_network(uint32_t(state.range(0)));
  if (!net) {
    state.SkipWithError("cannot build the network");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(ultraface_run(net));
  ultraface_release(&net);
}
BENCHMARK(BM_FaceNetwork)->ArgName("method")->Arg(ULTRAFACE_METHOD_PER_LAYER)->Arg(0)->Arg(1)->Arg(2)->Unit(
    benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
  std::vector<char *> rest{argv[0]};
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--method") && i + 1 < argc) {
      ++i;
      g_method = std::strcmp(argv[i], "auto") ? uint32_t(std::atoi(argv[i])) : ULTRAFACE_METHOD_PER_LAYER;
    } else if (!std::strcmp(argv[i], "--runs") && i + 1 < argc) {
      g_runs = std::max(1, std::atoi(argv[++i]));
    } else {
      rest.push_back(argv[i]);
    }
  }
  print_table(g_method, g_runs);
  int n = int(rest.size());
  benchmark::Initialize(&n, rest.data());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
