// 3x3 stride 1 standard convolution with padding 1 over a ring of padded input rows:
// each input row is copied once, with zero margins, so the inner loop tests no bound.
#include <cstring>

#include "core/oru_dispatch.h"
#include "core/oru_scratch.h"
#include "conv/oru_conv_internal.h"

namespace oru {

namespace {

using RowFn = decltype(&conv3x3_s1_row_plain);

RowFn row_kernel() {
  static const RowFn k = pick(ORU_KERNEL_FORMS(conv3x3_s1_row));
  return k;
}

}  // namespace

// A ring of six padded rows of one input plane; slot of input row r is (r + 1) mod 6.
class RowRing {
 public:
  RowRing(float *slots, int64_t slot_len, const float *plane, int32_t w, int32_t h)
      : slots_(slots), len_(slot_len), plane_(plane), w_(w), h_(h) {}

  float *slot(int32_t row) const { return slots_ + int64_t((row + 1 + 6) % 6) * len_; }

  // Copies input row r into its slot behind a one-float zero margin; zeros outside the input.
  void load(int32_t r) const {
    float *s = slot(r);
    if (r < 0 || r >= h_) {
      std::memset(s, 0, size_t(len_) * sizeof(float));
      return;
    }
    std::memcpy(s + 1, plane_ + int64_t(r) * w_, size_t(w_) * sizeof(float));
  }

  // Row pointers for output rows oy .. oy+3: input rows oy-1 .. oy+4.
  void table(int32_t oy, const float *rows[6]) const {
    for (int j = 0; j < 6; ++j) rows[j] = slot(oy - 1 + j);
  }

 private:
  float *slots_;
  int64_t len_;
  const float *plane_;
  int32_t w_, h_;
};

// One depthwise channel: 3x3 convolution of a plane with padding 1 through a ring the
// caller owns, four output rows a step sharing their input loads, finished through e.
// The ring slots must be zero beyond the row (they are cleared once and rows only ever
// overwrite the same span).
void depthwise_plane3x3_s1(float *out, const float *in, const float *k9, int32_t w, int32_t h, float *slots,
                           int64_t slot_len, Epilogue e) {
  using RowsFn = decltype(&dw3x3_s1_rows_plain);
  static const RowsFn rows4 = pick(ORU_KERNEL_FORMS(dw3x3_s1_rows));
  RowRing ring(slots, slot_len, in, w, h);
  ring.load(-1);
  ring.load(0);
  const float *rows[6];
  for (int32_t oy = 0; oy < h; oy += 4) {
    const int nrows = h - oy < 4 ? h - oy : 4;
    for (int32_t r = oy + 1; r <= oy + nrows; ++r) ring.load(r);
    ring.table(oy, rows);
    rows4(out + int64_t(oy) * w, w, nrows, w, rows, k9, e);
  }
}

// All input channels share one ring of six padded rows each, so a block of four output
// rows of one output channel is summed over every input channel in registers and written
// once. Per element the order is that of the channel-by-channel loops: input channels
// ascending, each nine-tap sum formed before it is added.
uint32_t std_conv3x3_s1(const oru_tensor *output, const oru_tensor *input, const float *w,
                        const oru_conv2d_params &p) {
  using MultiFn = decltype(&conv3x3_s1_multi_plain);
  static const MultiFn multi = pick(ORU_KERNEL_FORMS(conv3x3_s1_multi));
  const int32_t in_w = input->dims[0], in_h = input->dims[1], ic = p.in_channels;
  const int64_t slot_len = int64_t(in_w) + 10;
  Scratch<float> slots(int64_t(ic) * 6 * slot_len, true);
  Scratch<const float *> rows(int64_t(ic) * 6);
  if (!slots || !rows) return ORU_RET_ERR_MEMORY;
  auto ring = [&](int32_t i) { return RowRing(slots.get() + int64_t(i) * 6 * slot_len, slot_len, plane(input, i), in_w, in_h); };
  for (int32_t i = 0; i < ic; ++i) {
    ring(i).load(-1);
    ring(i).load(0);
  }
  for (int32_t oy = 0; oy < in_h; oy += 4) {
    const int nrows = in_h - oy < 4 ? in_h - oy : 4;
    for (int32_t i = 0; i < ic; ++i) {
      RowRing r = ring(i);
      for (int32_t y = oy + 1; y <= oy + nrows; ++y) r.load(y);
      r.table(oy, rows.get() + int64_t(i) * 6);
    }
    for (int32_t o = 0; o < p.out_channels; ++o)
      multi(plane(output, o) + int64_t(oy) * in_w, in_w, nrows, in_w, rows.get(), ic, w + int64_t(o) * ic * 9);
  }
  return ORU_RET_OK;
}

}  // namespace oru

extern "C" void oru_std_conv2d_3x3_s1_4cols_real32(float *out, int32_t width, const float *const *rows,
                                                   const float *weights) {
  auto row = oru::row_kernel();
  for (int r = 0; r < 4; ++r) row(out + int64_t(r) * width, width, rows[r], rows[r + 1], rows[r + 2], weights, true);
}
