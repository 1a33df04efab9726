// 3x3 stride 2 convolution with padding 1: output (oy, ox) is centred on input (2 oy, 2 ox).
// Input rows are split into even and odd columns with zeros around the input, so every
// tap is a contiguous load and edge windows need no special case.
#include <algorithm>
#include <cstring>

#include "core/oru_dispatch.h"
#include "core/oru_scratch.h"
#include "conv/oru_conv_internal.h"

namespace oru {

namespace {

using SplitFn = decltype(&deinterleave_plain);

// A padded input row split into its even and odd columns: padded column q holds input
// column q - 1, so even[j] = column 2j - 1 and odd[j] = column 2j, zeros outside the row.
void split_padded_row(float *even, float *odd, const float *row, int32_t in_w, int64_t len) {
  static const SplitFn split = pick(ORU_KERNEL_FORMS(deinterleave));
  const int64_t pairs = std::min<int64_t>(in_w / 2, len - 1);
  even[0] = 0.0f;
  split(odd, even + 1, row, pairs);
  int64_t odd_end = pairs, even_end = pairs + 1;
  if ((in_w & 1) && odd_end < len) odd[odd_end++] = row[in_w - 1];
  for (int64_t j = odd_end; j < len; ++j) odd[j] = 0.0f;
  for (int64_t j = even_end; j < len; ++j) even[j] = 0.0f;
}

}  // namespace

// Standard 3x3 stride 2 convolution, padding 1: for each output row the three input rows of
// every channel are split once into even and odd padded columns, so that every tap is a
// contiguous load, and all input channels are summed in registers.
uint32_t std_conv3x3_s2(const oru_tensor *output, const oru_tensor *input, const float *w,
                        const oru_conv2d_params &p, Epilogue e) {
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
        split_padded_row(even, odd, row, in_w, len);
      }
    }
    multi(plane(output, 0) + int64_t(oy) * out_w, int64_t(out_w) * out_h, p.out_channels, out_w, rows.get(), ic, w, e);
  }
  return ORU_RET_OK;
}

// Depthwise 3x3 stride 2, padding 1: per channel, blocks of four output rows read the
// nine input rows 2oy-1 .. 2oy+7 split into even and odd columns, zeros outside the input.
uint32_t depthwise_conv3x3_s2(const oru_tensor *output, const oru_tensor *input, const float *w,
                              const oru_conv2d_params &p, Epilogue e) {
  using RowsFn = decltype(&dw3x3_s2_rows_plain);
  static const RowsFn rows4 = pick(ORU_KERNEL_FORMS(dw3x3_s2_rows));
  const int32_t in_w = input->dims[0], in_h = input->dims[1];
  const int32_t out_w = output->dims[0], out_h = output->dims[1];
  const int64_t len = int64_t(out_w) + 2;  // even[x + 1] is read for x < out_w
  Scratch<float> split(18 * len, false);
  if (!split) return ORU_RET_ERR_MEMORY;
  const float *rows[18];
  for (int j = 0; j < 18; ++j) rows[j] = split.get() + j * len;
  for (int32_t c = 0; c < p.out_channels; ++c) {
    const float *in_plane = plane(input, c);
    float *out_plane = plane(output, c);
    for (int32_t oy = 0; oy < out_h; oy += 4) {
      const int nrows = out_h - oy < 4 ? out_h - oy : 4;
      for (int j = 0; j < 2 * nrows + 1; ++j) {
        float *even = split.get() + 2 * j * len, *odd = even + len;
        const int32_t y = 2 * oy - 1 + j;
        if (y < 0 || y >= in_h)
          std::memset(even, 0, size_t(2 * len) * sizeof(float));
        else
          split_padded_row(even, odd, in_plane + int64_t(y) * in_w, in_w, len);
      }
      rows4(out_plane + int64_t(oy) * out_w, out_w, nrows, out_w, rows, w + int64_t(c) * 9,
            {e.bias ? e.bias + c : nullptr, e.act});
    }
  }
  return ORU_RET_OK;
}

}  // namespace oru
