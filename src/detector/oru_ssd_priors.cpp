// SSD prior boxes, location decoding and the change of box form.
#include <cmath>

#include "detector/oru_ssd_internal.h"
#include "oru_detector.h"

namespace oru {
namespace {

constexpr int32_t kMaps = 4;
constexpr int32_t kBoxCount[kMaps] = {3, 2, 2, 3};
constexpr float kBoxSizes[kMaps][3] = {{10, 16, 24}, {32, 48, 0}, {64, 96, 0}, {128, 192, 256}};

struct MapSizes {
  int32_t height, width;
  int32_t map_w[kMaps], map_h[kMaps];
};
// The input sizes the detector is trained for; the last row serves every other size.
constexpr MapSizes kSizes[] = {
    {120, 160, {20, 10, 5, 3}, {15, 8, 4, 2}},
    {180, 240, {30, 15, 8, 4}, {23, 12, 6, 3}},
    {240, 320, {40, 20, 10, 5}, {30, 15, 8, 4}},
    {360, 480, {60, 30, 15, 8}, {45, 23, 12, 6}},
    {480, 640, {80, 40, 20, 10}, {60, 30, 15, 8}},
    {960, 1280, {160, 80, 40, 20}, {120, 60, 30, 15}},
    {0, 0, {16, 8, 4, 2}, {12, 6, 3, 2}},
};

const MapSizes &sizes_for(int32_t height, int32_t width) {
  const int n = int(sizeof kSizes / sizeof kSizes[0]);
  for (int i = 0; i < n - 1; ++i)
    if (kSizes[i].height == height && kSizes[i].width == width) return kSizes[i];
  return kSizes[n - 1];
}

inline float unit_clamp(float v) { return v < 0.0f ? 0.0f : v > 1.0f ? 1.0f : v; }

}  // namespace

int32_t ssd_prior_count(int32_t height, int32_t width) {
  const MapSizes &m = sizes_for(height, width);
  int32_t n = 0;
  for (int i = 0; i < kMaps; ++i) n += m.map_w[i] * m.map_h[i] * kBoxCount[i];
  return n;
}

void ssd_fill_priors(float *p, int32_t height, int32_t width, int32_t swapped) {
  const MapSizes &m = sizes_for(height, width);
  const float W = float(swapped ? height : width), H = float(swapped ? width : height);
  for (int i = 0; i < kMaps; ++i) {
    const float shrink_w = float(width) / float(m.map_w[i]), shrink_h = float(height) / float(m.map_h[i]);
    const int32_t cols = swapped ? m.map_h[i] : m.map_w[i], rows = swapped ? m.map_w[i] : m.map_h[i];
    const float sx = W / shrink_w, sy = H / shrink_h;
    for (int32_t j = 0; j < rows; ++j)
      for (int32_t k = 0; k < cols; ++k)
        for (int b = 0; b < kBoxCount[i]; ++b) {
          const float size = kBoxSizes[i][b];
          p[0] = unit_clamp((float(k) + 0.5f) / sx);
          p[1] = unit_clamp((float(j) + 0.5f) / sy);
          p[2] = unit_clamp(size / W);
          p[3] = unit_clamp(size / H);
          p += 4;
        }
  }
}

}  // namespace oru

extern "C" {

ORU_API oru_tensor *oru_generate_priors(int32_t height, int32_t width, int32_t swapped) {
  const int32_t dims[2] = {4, oru::ssd_prior_count(height, width)};
  oru_tensor *t = oru_create_tensor(2, dims, aif32);
  if (t) oru::ssd_fill_priors(static_cast<float *>(t->data), height, width, swapped);
  return t;
}

ORU_API void oru_convert_locations_to_boxes(float *boxes, const float *locations, const float *priors,
                                            int32_t count, float center_variance, float size_variance) {
  for (int32_t i = 0; i < count; ++i) {
    const float *l = locations + 4 * i, *p = priors + 4 * i;
    float *b = boxes + 4 * i;
    b[0] = l[0] * center_variance * p[2] + p[0];
    b[1] = l[1] * center_variance * p[3] + p[1];
    b[2] = std::exp(l[2] * size_variance) * p[2];
    b[3] = std::exp(l[3] * size_variance) * p[3];
  }
}

ORU_API void oru_center_form_to_corner_form(float *boxes, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    float *b = boxes + 4 * i;
    const float cx = b[0], cy = b[1], hw = b[2] * 0.5f, hh = b[3] * 0.5f;
    b[0] = cx - hw;
    b[1] = cy - hh;
    b[2] = cx + hw;
    b[3] = cy + hh;
  }
}

}  // extern "C"
