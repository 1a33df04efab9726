// 3x3 stride 2 convolution with padding 1, scanned directly over the input: output
// (oy, ox) is centred on input (2 oy, 2 ox); edge windows use only the taps that exist.
#include "core/oru_dispatch.h"
#include "conv/oru_conv_internal.h"

namespace oru {

namespace {

// Tap sum of a window that may hang over the edge, in the same tap order as the row kernel.
float edge_sum(const float *in, const float *k9, int32_t in_w, int32_t in_h, int32_t oy, int32_t ox) {
  float s = 0.0f;
  bool first = true;
  for (int ky = 0; ky < 3; ++ky) {
    int32_t y = 2 * oy - 1 + ky;
    if (y < 0 || y >= in_h) continue;
    for (int kx = 0; kx < 3; ++kx) {
      int32_t x = 2 * ox - 1 + kx;
      if (x < 0 || x >= in_w) continue;
      float p = in[int64_t(y) * in_w + x] * k9[ky * 3 + kx];
      s = first ? p : s + p;
      first = false;
    }
  }
  return s;
}

}  // namespace

void conv3x3_s2_plane(float *out, const float *in, const float *k9, int32_t in_w, int32_t in_h, int32_t out_w,
                      int32_t out_h, bool accumulate) {
  using RowFn = decltype(&conv3x3_s2_row_plain);
  static const RowFn row = pick(ORU_KERNEL_FORMS(conv3x3_s2_row));
  // Columns 1 .. last_full have their whole window inside the input.
  int32_t last_full = (in_w - 2) / 2;
  if (last_full > out_w - 1) last_full = out_w - 1;
  for (int32_t oy = 0; oy < out_h; ++oy) {
    float *o = out + int64_t(oy) * out_w;
    bool inner_row = oy >= 1 && 2 * oy + 1 < in_h;
    int32_t x = 0;
    if (inner_row && last_full >= 1) {
      float s = edge_sum(in, k9, in_w, in_h, oy, 0);
      o[0] = accumulate ? o[0] + s : s;
      const float *r0 = in + int64_t(2 * oy - 1) * in_w + 1;
      row(o + 1, last_full, r0, r0 + in_w, r0 + 2 * int64_t(in_w), k9, accumulate);
      x = last_full + 1;
    }
    for (; x < out_w; ++x) {
      float s = edge_sum(in, k9, in_w, in_h, oy, x);
      o[x] = accumulate ? o[x] + s : s;
    }
  }
}

}  // namespace oru
