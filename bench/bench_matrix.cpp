// Element-wise kernels over a million values against Eigen arrays, and MD5 throughput
// against OpenSSL. Each pair runs on the same data in the same process.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "oru_matrix.h"
#ifdef ORU_HAVE_EIGEN
#include <Eigen/Core>
#endif
#ifdef ORU_HAVE_OPENSSL
#include <openssl/md5.h>
#endif

namespace {

constexpr int64_t kCount = 1 << 20;

std::vector<float> ramp_f(int64_t n, float scale) {
  std::vector<float> v(static_cast<size_t>(n));
  for (int64_t i = 0; i < n; ++i) v[size_t(i)] = scale * float((i * 7919) % 2001 - 1000) / 1000.0f;
  return v;
}

void BM_oru_add_f32(benchmark::State &state) {
  auto a = ramp_f(kCount, 3), b = ramp_f(kCount, 2), d = std::vector<float>(size_t(kCount));
  for (auto _ : state) {
    array1d_add_real32(d.data(), kCount, a.data(), b.data());
    benchmark::DoNotOptimize(d.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_oru_add_f32);

void BM_oru_mul_f32(benchmark::State &state) {
  auto a = ramp_f(kCount, 3), b = ramp_f(kCount, 2), d = std::vector<float>(size_t(kCount));
  for (auto _ : state) {
    array1d_mul_real32(d.data(), kCount, a.data(), b.data());
    benchmark::DoNotOptimize(d.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_oru_mul_f32);

void BM_oru_exp_f64(benchmark::State &state) {
  auto src = ramp_f(kCount, 50);
  std::vector<double> x(src.begin(), src.end()), work(x.size());
  for (auto _ : state) {
    std::memcpy(work.data(), x.data(), x.size() * sizeof(double));
    oru_fast_expl(work.data(), int32_t(kCount));
    benchmark::DoNotOptimize(work.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_oru_exp_f64);

void BM_oru_sigmoid_f32(benchmark::State &state) {
  auto src = ramp_f(kCount, 10);
  oru_matrix *in = oru_create_matrix(1024, int32_t(kCount / 1024), 1, aif32);
  oru_matrix *out = oru_create_matrix(1024, int32_t(kCount / 1024), 1, aif32);
  std::memcpy(in->data, src.data(), src.size() * sizeof(float));
  for (auto _ : state) {
    oru_sigmoid(out, in);
    benchmark::DoNotOptimize(out->data);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
  oru_release_matrix(&in);
  oru_release_matrix(&out);
}
BENCHMARK(BM_oru_sigmoid_f32);

#ifdef ORU_HAVE_EIGEN
void BM_eigen_add_f32(benchmark::State &state) {
  auto a0 = ramp_f(kCount, 3), b0 = ramp_f(kCount, 2);
  Eigen::ArrayXf a = Eigen::Map<Eigen::ArrayXf>(a0.data(), kCount), b = Eigen::Map<Eigen::ArrayXf>(b0.data(), kCount),
                 d(kCount);
  for (auto _ : state) {
    d = a + b;
    benchmark::DoNotOptimize(d.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_eigen_add_f32);

void BM_eigen_mul_f32(benchmark::State &state) {
  auto a0 = ramp_f(kCount, 3), b0 = ramp_f(kCount, 2);
  Eigen::ArrayXf a = Eigen::Map<Eigen::ArrayXf>(a0.data(), kCount), b = Eigen::Map<Eigen::ArrayXf>(b0.data(), kCount),
                 d(kCount);
  for (auto _ : state) {
    d = a * b;
    benchmark::DoNotOptimize(d.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_eigen_mul_f32);

void BM_eigen_exp_f64(benchmark::State &state) {
  auto src = ramp_f(kCount, 50);
  Eigen::ArrayXd x(kCount), work(kCount);
  for (int64_t i = 0; i < kCount; ++i) x[i] = src[size_t(i)];
  for (auto _ : state) {
    work = x;
    work = work.exp();
    benchmark::DoNotOptimize(work.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_eigen_exp_f64);

void BM_eigen_sigmoid_f32(benchmark::State &state) {
  auto src = ramp_f(kCount, 10);
  Eigen::ArrayXf x = Eigen::Map<Eigen::ArrayXf>(src.data(), kCount), d(kCount);
  for (auto _ : state) {
    d = x.exp() / (x.exp() + 1.0f);
    benchmark::DoNotOptimize(d.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_eigen_sigmoid_f32);
#endif

std::vector<uint8_t> message(size_t n) {
  std::vector<uint8_t> m(n);
  for (size_t i = 0; i < n; ++i) m[i] = uint8_t(i * 131 + 7);
  return m;
}

void BM_oru_md5(benchmark::State &state) {
  const auto m = message(size_t(state.range(0)));
  uint8_t d[16];
  for (auto _ : state) {
    oru_hash_md5_sum(d, m.data(), int64_t(m.size()));
    benchmark::DoNotOptimize(d);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_oru_md5)->Arg(1 << 20)->Arg(64);

#ifdef ORU_HAVE_OPENSSL
void BM_openssl_md5(benchmark::State &state) {
  const auto m = message(size_t(state.range(0)));
  uint8_t d[16];
  for (auto _ : state) {
    MD5(m.data(), m.size(), d);
    benchmark::DoNotOptimize(d);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_openssl_md5)->Arg(1 << 20)->Arg(64);
#endif

}  // namespace

BENCHMARK_MAIN();
