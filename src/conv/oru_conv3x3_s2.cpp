// 3x3 stride 2 convolution with padding 1, scanned directly over the input: output
// (oy, ox) is centred on input (2 oy, 2 ox); edge windows use only the taps that exist.
#include <algorithm>
#include <cstring>

#include "core/oru_dispatch.h"
#include "core/oru_scratch.h"
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

// Standard 3x3 stride 2 convolution, padding 1: for each output row the three input rows of
// every channel are split once into even and odd padded columns, so that every tap is a
// contiguous load, and all input channels are summed in registers.
uint32_t std_conv3x3_s2(const oru_tensor *output, const oru_tensor *input, const float *w,
                        const oru_conv2d_params &p) {
  using MultiFn = decltype(&conv3x3_s2_multi_plain);
  static const MultiFn multi = pick(ORU_KERNEL_FORMS(conv3x3_s2_multi));
  const int32_t in_w = input->dims[0], in_h = input->dims[1], ic = p.in_channels;
  const int32_t out_w = output->dims[0], out_h = output->dims[1];
  const int64_t len = int64_t(out_w) + 2;  // even[x + 1] is read for x < out_w
  Scratch<float> split(int64_t(ic) * 6 * len, true);
  Scratch<const float *> rows(int64_t(ic) * 6);
  if (!split) return ORU_RET_ERR_MEMORY;
  if (!rows) return ORU_RET_ERR_MEMORY;
  for (int32_t oy = 0; oy < out_h; ++oy) {
    for (int32_t i = 0; i < ic; ++i) {
      const float *in_plane = plane(input, i);
      for (int ky = 0; ky < 3; ++ky) {
        float *even = split.get() + (int64_t(i) * 6 + 2 * ky) * len, *odd = even + len;
        rows[int64_t(i) * 6 + 2 * ky] = even;
        rows[int64_t(i) * 6 + 2 * ky + 1] = odd;
        const int32_t y = 2 * oy - 1 + ky;
        if (y < 0 || y >= in_h) {
          std::memset(even, 0, size_t(2 * len) * sizeof(float));
          continue;
        }
        const float *row = in_plane + int64_t(y) * in_w;
        // Padded column q holds input column q - 1: even[j] = column 2j - 1, odd[j] = column 2j.
        // Bounds apply only at the two ends, so the middle is a plain strided copy.
        const int64_t even_end = std::min<int64_t>(len, (int64_t(in_w) + 2) / 2);  // 2j - 1 < in_w
        const int64_t odd_end = std::min<int64_t>(len, (int64_t(in_w) + 1) / 2);   // 2j < in_w
        even[0] = 0.0f;
        for (int64_t j = 1; j < even_end; ++j) even[j] = row[2 * j - 1];
        for (int64_t j = std::max<int64_t>(even_end, 1); j < len; ++j) even[j] = 0.0f;
        for (int64_t j = 0; j < odd_end; ++j) odd[j] = row[2 * j];
        for (int64_t j = odd_end; j < len; ++j) odd[j] = 0.0f;
      }
    }
    multi(plane(output, 0) + int64_t(oy) * out_w, int64_t(out_w) * out_h, p.out_channels, out_w, rows.get(), ic, w);
  }
  return ORU_RET_OK;
}

}  // namespace oru
