// Filling the patch panels of one output row: column j of a panel is output position
// (oy, ox0 + j), row r = (c * k + ky) * k + kx holds in(c, oy s + ky - p, (ox0 + j) s + kx - p),
// zero outside the input. A panel stores element (r, j) at panel[r * nr + j].
#include <cstring>

#include "conv/oru_conv_internal.h"

namespace oru {

namespace {

// The panel width is a constant here so that whole-panel copies become a few vector moves.
// Each input row is first copied once behind and before p zeros (row_buf, in_w + 2p floats),
// so the copies into the panels need no bound tests.
template <int NR>
void fill_row_panels(float *dst, const float *in, int32_t channels, int32_t in_w, int32_t in_h, int32_t k,
                     int32_t s, int32_t p, int32_t oy, int32_t out_w, float *row_buf) {
  const int64_t rows = int64_t(channels) * k * k;
  const int64_t panel_size = rows * NR;
  for (int32_t c = 0; c < channels; ++c) {
    const float *plane_c = in + int64_t(c) * in_w * in_h;
    for (int32_t ky = 0; ky < k; ++ky) {
      const int64_t block_at = (int64_t(c) * k + ky) * k * NR;
      const int32_t y = oy * s + ky - p;
      if (y < 0 || y >= in_h) {
        // A kernel row above or below the input: all its k rows are zero, in every panel.
        for (int32_t ox0 = 0, b = 0; ox0 < out_w; ox0 += NR, ++b)
          std::memset(dst + b * panel_size + block_at, 0, size_t(k) * NR * sizeof(float));
        continue;
      }
      std::memcpy(row_buf + p, plane_c + int64_t(y) * in_w, size_t(in_w) * sizeof(float));
      for (int32_t ox0 = 0, b = 0; ox0 < out_w; ox0 += NR, ++b) {
        float *block = dst + b * panel_size + block_at;
        const int32_t cnt = out_w - ox0 < NR ? out_w - ox0 : NR;
        for (int32_t kx = 0; kx < k; ++kx) {
          float *d = block + int64_t(kx) * NR;
          const float *src = row_buf + int64_t(ox0) * s + kx;
          if (cnt == NR && s == 1) {
            std::memcpy(d, src, NR * sizeof(float));  // a fixed size: a few vector moves
            continue;
          }
          for (int32_t j = 0; j < cnt; ++j) d[j] = src[int64_t(j) * s];
          // The columns of a last, partial panel are zero so the tile multiplies clean values.
          for (int32_t j = cnt; j < NR; ++j) d[j] = 0.0f;
        }
      }
    }
  }
}

}  // namespace

void im2col_fill_row_panels(float *dst, const float *in, int32_t channels, int32_t in_w, int32_t in_h, int32_t k,
                            int32_t s, int32_t p, int32_t oy, int32_t out_w, int32_t nr, float *row_buf) {
  if (nr == 8)
    fill_row_panels<8>(dst, in, channels, in_w, in_h, k, s, p, oy, out_w, row_buf);
  else
    fill_row_panels<16>(dst, in, channels, in_w, in_h, k, s, p, oy, out_w, row_buf);
}

void im2col_fill_matrix(float *dst, const float *in, int32_t channels, int32_t in_w, int32_t in_h, int32_t k,
                        int32_t s, int32_t p, int32_t out_w, int32_t out_h) {
  const int64_t n = int64_t(out_w) * out_h;
  for (int32_t c = 0; c < channels; ++c) {
    const float *plane_c = in + int64_t(c) * in_w * in_h;
    for (int32_t ky = 0; ky < k; ++ky)
      for (int32_t kx = 0; kx < k; ++kx) {
        float *d = dst + ((int64_t(c) * k + ky) * k + kx) * n;
        for (int32_t oy = 0; oy < out_h; ++oy) {
          int32_t y = oy * s + ky - p;
          for (int32_t ox = 0; ox < out_w; ++ox) {
            int32_t x = ox * s + kx - p;
            d[int64_t(oy) * out_w + ox] = y >= 0 && y < in_h && x >= 0 && x < in_w ? plane_c[int64_t(y) * in_w + x] : 0.0f;
          }
        }
      }
  }
}

}  // namespace oru
