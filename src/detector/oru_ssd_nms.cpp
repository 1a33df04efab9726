// Greedy non-maximum suppression by descending score.
#include <cmath>
#include <cstring>
#include <utility>

#include "core/oru_scratch.h"
#include "oru_detector.h"

namespace oru {
namespace {

constexpr int kRecord = 5;

// Sort keys: score descending, and among equal scores the earlier input first, so
// that the result never depends on the sort's path. A NaN score counts as lowest.
struct Key {
  float score;
  int32_t index;
};
inline bool before(const Key &a, const Key &b) { return a.score > b.score || (a.score == b.score && a.index < b.index); }

void insertion_sort(Key *k, int32_t n) {
  for (int32_t i = 1; i < n; ++i) {
    const Key v = k[i];
    int32_t j = i - 1;
    while (j >= 0 && before(v, k[j])) {
      k[j + 1] = k[j];
      --j;
    }
    k[j + 1] = v;
  }
}

const Key &median3(const Key &a, const Key &b, const Key &c) {
  if (before(a, b)) return before(b, c) ? b : (before(a, c) ? c : a);
  return before(a, c) ? a : (before(b, c) ? c : b);
}

// Quicksort with a median-of-three pivot (ninther above 40 keys), insertion sort below 8.
void quick_sort(Key *k, int32_t n) {
  while (n >= 8) {
    Key pivot;
    if (n > 40) {
      const int32_t e = n / 8;
      pivot = median3(median3(k[0], k[e], k[2 * e]), median3(k[n / 2 - e], k[n / 2], k[n / 2 + e]),
                      median3(k[n - 1 - 2 * e], k[n - 1 - e], k[n - 1]));
    } else {
      pivot = median3(k[0], k[n / 2], k[n - 1]);
    }
    // Three-way partition: [0, lt) before the pivot, [lt, gt) equal, [gt, n) after.
    int32_t lt = 0, i = 0, gt = n;
    while (i < gt) {
      if (before(k[i], pivot)) {
        std::swap(k[lt++], k[i++]);
      } else if (before(pivot, k[i])) {
        std::swap(k[i], k[--gt]);
      } else {
        ++i;
      }
    }
    // Recurse into the smaller side, loop on the larger one.
    if (lt < n - gt) {
      quick_sort(k, lt);
      k += gt;
      n -= gt;
    } else {
      quick_sort(k + gt, n - gt);
      n = lt;
    }
  }
  insertion_sort(k, n);
}

inline float overlap(const float *a, const float *b) {
  const float iw = std::fmax(0.0f, std::fmin(a[2], b[2]) - std::fmax(a[0], b[0]));
  const float ih = std::fmax(0.0f, std::fmin(a[3], b[3]) - std::fmax(a[1], b[1]));
  const float inter = iw * ih;
  const float area_a = std::fmax(0.0f, a[2] - a[0]) * std::fmax(0.0f, a[3] - a[1]);
  const float area_b = std::fmax(0.0f, b[2] - b[0]) * std::fmax(0.0f, b[3] - b[1]);
  return inter / (area_a + area_b - inter + 1e-5f);
}

}  // namespace
}  // namespace oru

extern "C" {

ORU_API int32_t oru_ssd_nms(float *output, const float *input, int32_t count, float threshold) {
  using namespace oru;
  if (count < 1 || !output || !input) return 0;
  Scratch<Key> keys(count);
  Scratch<float> list(int64_t(count) * kRecord);
  if (!keys || !list) return 0;
  for (int32_t i = 0; i < count; ++i) {
    const float s = input[i * kRecord + 4];
    keys[i] = {std::isnan(s) ? -INFINITY : s, i};
  }
  quick_sort(keys.get(), count);
  for (int32_t i = 0; i < count; ++i)
    std::memcpy(list.get() + int64_t(i) * kRecord, input + int64_t(keys[i].index) * kRecord, sizeof(float) * kRecord);
  float *b = list.get();
  int32_t n = count;
  for (int32_t i = 0; i < n; ++i) {
    const float *kept = b + int64_t(i) * kRecord;
    int32_t m = i + 1;
    for (int32_t j = i + 1; j < n; ++j) {
      const float *other = b + int64_t(j) * kRecord;
      if (overlap(kept, other) <= threshold) {
        if (m != j) std::memcpy(b + int64_t(m) * kRecord, other, sizeof(float) * kRecord);
        ++m;
      }
    }
    n = m;
  }
  std::memcpy(output, b, sizeof(float) * kRecord * size_t(n));
  return n;
}

}  // extern "C"
