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

// The working list in columns: the overlap test of one box against all later ones is
// then a straight loop the compiler vectorises, with the same operations per pair.
struct Columns {
  float *x0, *y0, *x1, *y1, *area;
  int32_t *index;
};

inline float lesser(float a, float b) { return a < b ? a : b; }
inline float greater(float a, float b) { return a > b ? a : b; }

// keep[j] for j in [from, n): the overlap with box i is at most the threshold.
void overlap_test(const Columns &c, int32_t i, int32_t from, int32_t n, float threshold, uint8_t *keep) {
  const float ax0 = c.x0[i], ay0 = c.y0[i], ax1 = c.x1[i], ay1 = c.y1[i], aa = c.area[i];
  for (int32_t j = from; j < n; ++j) {
    const float iw = greater(0.0f, lesser(ax1, c.x1[j]) - greater(ax0, c.x0[j]));
    const float ih = greater(0.0f, lesser(ay1, c.y1[j]) - greater(ay0, c.y0[j]));
    const float inter = iw * ih;
    keep[j] = inter / (aa + c.area[j] - inter + 1e-5f) <= threshold;
  }
}

}  // namespace
}  // namespace oru

extern "C" {

ORU_API int32_t oru_ssd_nms(float *output, const float *input, int32_t count, float threshold) {
  using namespace oru;
  if (count < 1 || !output || !input) return 0;
  Scratch<Key> keys(count);
  if (!keys) return 0;
  for (int32_t i = 0; i < count; ++i) {
    const float s = input[i * kRecord + 4];
    keys[i] = {std::isnan(s) ? -INFINITY : s, i};
  }
  quick_sort(keys.get(), count);
  Scratch<float> cols(int64_t(count) * 5);
  Scratch<int32_t> index(count);
  Scratch<uint8_t> keep(count);
  if (!cols || !index || !keep) return 0;
  Columns c{cols.get(), cols.get() + count, cols.get() + 2 * int64_t(count), cols.get() + 3 * int64_t(count),
            cols.get() + 4 * int64_t(count), index.get()};
  for (int32_t k = 0; k < count; ++k) {
    const float *b = input + int64_t(keys[k].index) * kRecord;
    c.x0[k] = b[0];
    c.y0[k] = b[1];
    c.x1[k] = b[2];
    c.y1[k] = b[3];
    c.area[k] = greater(0.0f, b[2] - b[0]) * greater(0.0f, b[3] - b[1]);
    c.index[k] = keys[k].index;
  }
  int32_t n = count;
  for (int32_t i = 0; i < n; ++i) {
    overlap_test(c, i, i + 1, n, threshold, keep.get());
    // Close the list up, keeping the order.
    int32_t m = i + 1;
    for (int32_t j = i + 1; j < n; ++j) {
      if (!keep[j]) continue;
      if (m != j) {
        c.x0[m] = c.x0[j];
        c.y0[m] = c.y0[j];
        c.x1[m] = c.x1[j];
        c.y1[m] = c.y1[j];
        c.area[m] = c.area[j];
        c.index[m] = c.index[j];
      }
      ++m;
    }
    n = m;
  }
  for (int32_t k = 0; k < n; ++k)
    std::memcpy(output + int64_t(k) * kRecord, input + int64_t(c.index[k]) * kRecord, sizeof(float) * kRecord);
  return n;
}

}  // extern "C"
