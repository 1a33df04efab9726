// General multiply against OpenBLAS (one thread) and Eigen: square SGEMM and DGEMM from 64 to
// 1024, and the im2col product of a 3x3 convolution at 80x60 with 32 to 32 channels
// (M 32, K 288, N 4800). Figures are GFLOP/s; compare peers within one run.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "oru_matrix.h"

#if defined(ORU_HAVE_OPENBLAS)
#include <cblas.h>
#endif
#if defined(ORU_HAVE_EIGEN)
#include <Eigen/Core>
#endif

namespace {

template <typename T>
std::vector<T> filled(size_t n, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(-1, 1);
  std::vector<T> v(n);
  for (auto &x : v) x = T(dist(gen));
  return v;
}

void set_flops(benchmark::State &state, double m, double n, double k) {
  state.counters["GFLOPS"] =
      benchmark::Counter(2 * m * n * k, benchmark::Counter::kIsIterationInvariantRate, benchmark::Counter::kIs1000);
}

oru_matrix record(void *data, int32_t rows, int32_t cols, uint32_t type) {
  oru_matrix r{};
  r.kind = 4;
  r.type = type;
  r.data = data;
  r.rows = rows;
  r.cols = cols;
  r.depth = 1;
  r.stride = int64_t(cols) * oru_data_type_bytes[type];
  r.reserved_one = 1;
  r.channel_bytes = oru_data_type_bytes[type & 7];
  r.channels = 1;
  r.format = 15;
  return r;
}

// Through the record entry, which picks the small or the blocked path by size.
template <typename T>
void run_ours(benchmark::State &state, int m, int n, int k) {
  auto a = filled<T>(size_t(m) * k, 1), b = filled<T>(size_t(k) * n, 2);
  std::vector<T> c(size_t(m) * n);
  const uint32_t type = sizeof(T) == 4 ? aif32 : aif64;
  oru_matrix ma = record(a.data(), m, k, type), mb = record(b.data(), k, n, type), mc = record(c.data(), m, n, type);
  for (auto _ : state) {
    oru_matrix_mul(&mc, &ma, 0, &mb, 0);
    benchmark::DoNotOptimize(c.data());
  }
  set_flops(state, m, n, k);
}

void BM_Sgemm_Oru(benchmark::State &state) {
  const int s = int(state.range(0));
  run_ours<float>(state, s, s, s);
}
void BM_Dgemm_Oru(benchmark::State &state) {
  const int s = int(state.range(0));
  run_ours<double>(state, s, s, s);
}
void BM_Im2col_Oru(benchmark::State &state) { run_ours<float>(state, 32, 4800, 288); }

// The convolution's own route: 8 by 8 tiles through the exported any-tile multiply.
void BM_Im2col_Oru8x8(benchmark::State &state) {
  const int m = 32, n = 4800, k = 288;
  auto a = filled<float>(size_t(m) * k, 1), b = filled<float>(size_t(k) * n, 2);
  std::vector<float> c(size_t(m) * n);
  for (auto _ : state) {
    blocked_mat_mul_row_major_real32(m, n, k, a.data(), k, b.data(), n, c.data(), n, 8, 8, mat_mul_8xkx8_kernel,
                                     1.0f, 0.0f);
    benchmark::DoNotOptimize(c.data());
  }
  set_flops(state, m, n, k);
}

BENCHMARK(BM_Sgemm_Oru)->RangeMultiplier(2)->Range(64, 1024);
BENCHMARK(BM_Dgemm_Oru)->RangeMultiplier(2)->Range(64, 1024);
BENCHMARK(BM_Im2col_Oru);
BENCHMARK(BM_Im2col_Oru8x8);

#if defined(ORU_HAVE_OPENBLAS)
template <typename T>
void run_openblas(benchmark::State &state, int m, int n, int k) {
  openblas_set_num_threads(1);
  auto a = filled<T>(size_t(m) * k, 1), b = filled<T>(size_t(k) * n, 2);
  std::vector<T> c(size_t(m) * n);
  for (auto _ : state) {
    if constexpr (sizeof(T) == 4)
      cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1.0f, a.data(), k, b.data(), n, 0.0f,
                  c.data(), n);
    else
      cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1.0, a.data(), k, b.data(), n, 0.0,
                  c.data(), n);
    benchmark::DoNotOptimize(c.data());
  }
  set_flops(state, m, n, k);
}
void BM_Sgemm_OpenBlas(benchmark::State &state) {
  const int s = int(state.range(0));
  run_openblas<float>(state, s, s, s);
}
void BM_Dgemm_OpenBlas(benchmark::State &state) {
  const int s = int(state.range(0));
  run_openblas<double>(state, s, s, s);
}
void BM_Im2col_OpenBlas(benchmark::State &state) { run_openblas<float>(state, 32, 4800, 288); }
BENCHMARK(BM_Sgemm_OpenBlas)->RangeMultiplier(2)->Range(64, 1024);
BENCHMARK(BM_Dgemm_OpenBlas)->RangeMultiplier(2)->Range(64, 1024);
BENCHMARK(BM_Im2col_OpenBlas);
#endif

#if defined(ORU_HAVE_EIGEN)
template <typename T>
void run_eigen(benchmark::State &state, int m, int n, int k) {
  using Mat = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  Eigen::setNbThreads(1);
  auto a = filled<T>(size_t(m) * k, 1), b = filled<T>(size_t(k) * n, 2);
  std::vector<T> c(size_t(m) * n);
  Eigen::Map<const Mat> ma(a.data(), m, k), mb(b.data(), k, n);
  Eigen::Map<Mat> mc(c.data(), m, n);
  for (auto _ : state) {
    mc.noalias() = ma * mb;
    benchmark::DoNotOptimize(c.data());
  }
  set_flops(state, m, n, k);
}
void BM_Sgemm_Eigen(benchmark::State &state) {
  const int s = int(state.range(0));
  run_eigen<float>(state, s, s, s);
}
void BM_Dgemm_Eigen(benchmark::State &state) {
  const int s = int(state.range(0));
  run_eigen<double>(state, s, s, s);
}
void BM_Im2col_Eigen(benchmark::State &state) { run_eigen<float>(state, 32, 4800, 288); }
BENCHMARK(BM_Sgemm_Eigen)->RangeMultiplier(2)->Range(64, 1024);
BENCHMARK(BM_Dgemm_Eigen)->RangeMultiplier(2)->Range(64, 1024);
BENCHMARK(BM_Im2col_Eigen);
#endif

}  // namespace

BENCHMARK_MAIN();
