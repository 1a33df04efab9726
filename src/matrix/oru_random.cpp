// The one process-wide pseudo-random generator (32-bit Mersenne Twister), the normal
// deviates drawn from it, and a permutation built on it.
#include <cmath>
#include <cstdint>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_matrix.h"

namespace {

constexpr int kStateWords = 624;
constexpr int kLag = 397;

// Process-wide by design: every draw in the library comes from this one stream.
uint64_t rnd_mt[kStateWords];
uint32_t rnd_mti = kStateWords + 1;  // 625: nothing seeded yet
// 626: a seed is waiting in pending_seed. Filling the state costs more than a small
// decomposition, and the decompositions reseed on every call, so the fill waits for a draw.
constexpr uint32_t kSeedPending = kStateWords + 2;
uint32_t pending_seed = 0;

void fill_state(uint32_t seed) {
  rnd_mt[0] = seed;
  for (int i = 1; i < kStateWords; ++i) {
    uint32_t prev = uint32_t(rnd_mt[i - 1]);
    rnd_mt[i] = uint32_t(1812433253u * (prev ^ (prev >> 30)) + uint32_t(i));
  }
}
bool spare_ready = false;
double spare_value = 0.0;

void regenerate() {
  static const uint32_t mag01[2] = {0u, 0x9908b0dfu};
  constexpr uint32_t upper = 0x80000000u;
  constexpr uint32_t lower = 0x7fffffffu;
  int k = 0;
  for (; k < kStateWords - kLag; ++k) {
    uint32_t y = (uint32_t(rnd_mt[k]) & upper) | (uint32_t(rnd_mt[k + 1]) & lower);
    rnd_mt[k] = uint32_t(rnd_mt[k + kLag]) ^ (y >> 1) ^ mag01[y & 1u];
  }
  for (; k < kStateWords - 1; ++k) {
    uint32_t y = (uint32_t(rnd_mt[k]) & upper) | (uint32_t(rnd_mt[k + 1]) & lower);
    rnd_mt[k] = uint32_t(rnd_mt[k + kLag - kStateWords]) ^ (y >> 1) ^ mag01[y & 1u];
  }
  uint32_t y = (uint32_t(rnd_mt[kStateWords - 1]) & upper) | (uint32_t(rnd_mt[0]) & lower);
  rnd_mt[kStateWords - 1] = uint32_t(rnd_mt[kLag - 1]) ^ (y >> 1) ^ mag01[y & 1u];
  rnd_mti = 0;
}

// Marsaglia polar method: two deviates per accepted pair, the second kept for the next call.
double next_standard_normal() {
  if (spare_ready) {
    spare_ready = false;
    return spare_value;
  }
  // 2 / (2^32 - 1) puts both ends of the integer range exactly on -1 and 1.
  constexpr double scale = 4.656612874161595e-10;
  double u, v, x;
  do {
    u = double(oru_randi()) * scale - 1.0;
    v = double(oru_randi()) * scale - 1.0;
    x = u * u + v * v;
  } while (x >= 1.0 || x <= 1e-10);
  double m = std::sqrt(-2.0 * std::log(x) / x);
  spare_value = v * m;
  spare_ready = true;
  return u * m;
}

template <typename T>
void fill_normal(T *data, int64_t count, double mean, double std) {
  for (int64_t i = 0; i < count; ++i) data[i] = T(mean + std * next_standard_normal());
}

}  // namespace

extern "C" {

ORU_API void oru_rand_init(uint32_t seed) {
  pending_seed = seed;
  rnd_mti = kSeedPending;
}

ORU_API uint32_t oru_randi(void) {
  if (rnd_mti >= uint32_t(kStateWords)) {
    if (rnd_mti == uint32_t(kStateWords) + 1) fill_state(5489u);
    if (rnd_mti == kSeedPending) fill_state(pending_seed);
    regenerate();
  }
  uint32_t y = uint32_t(rnd_mt[rnd_mti++]);
  y ^= y >> 11;
  y ^= (y << 7) & 0x9d2c5680u;
  y ^= (y << 15) & 0xefc60000u;
  y ^= y >> 18;
  return y;
}

ORU_API double oru_get_one_randn(double mean, double std) { return mean + std * next_standard_normal(); }

ORU_API uint32_t oru_random_norm(oru_matrix *m, const void *mean, const void *std) {
  if (!m || !m->data || !mean || !std) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const int64_t bytes = m->stride * m->rows * m->depth;
  switch (oru::base_of_code(m->type)) {
    case aif32:
      fill_normal(static_cast<float *>(m->data), bytes / 4, *static_cast<const float *>(mean),
                  *static_cast<const float *>(std));
      return ORU_RET_OK;
    case aif64:
      fill_normal(static_cast<double *>(m->data), bytes / 8, *static_cast<const double *>(mean),
                  *static_cast<const double *>(std));
      return ORU_RET_OK;
    default:
      ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "Current version can not support!");
  }
}

ORU_API uint32_t oru_randperm(int32_t *out, int32_t n) {
  if (!out || n < 2) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  // A fixed seed makes the permutation a function of n alone.
  oru_rand_init(100u);
  oru::Scratch<int32_t> temp(n);
  if (!temp) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, "Allocating memory failure! ");
  for (int32_t i = 0; i < n; ++i) temp[i] = i;
  for (int32_t k = n, o = 0; k >= 1; --k, ++o) {
    uint32_t j = oru_randi() % uint32_t(k);
    out[o] = temp[j];
    temp[j] = temp[k - 1];
  }
  return ORU_RET_OK;
}

}  // extern "C"
