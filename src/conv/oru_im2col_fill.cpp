// Filling the patch panels of one output row: column j of a panel is output position
// (oy, ox0 + j), row r = (c * k + ky) * k + kx holds in(c, oy s + ky - p, (ox0 + j) s + kx - p),
// zero outside the input. A panel stores element (r, j) at panel[r * nr + j].
#include <cstring>

#include "conv/oru_conv_internal.h"

namespace oru {

namespace {

// The panel width is a constant here so that whole-panel copies become a few vector moves.
template <int NR>
void fill_row_panels(float *dst, const float *in, int32_t channels, int32_t in_w, int32_t in_h, int32_t k,
                     int32_t s, int32_t p, int32_t oy, int32_t out_w) {
  const int64_t rows = int64_t(channels) * k * k;
  for (int32_t ox0 = 0, b = 0; ox0 < out_w; ox0 += NR, ++b) {
    float *panel = dst + int64_t(b) * rows * NR;
    const int32_t cnt = out_w - ox0 < NR ? out_w - ox0 : NR;
    for (int32_t c = 0; c < channels; ++c) {
      const float *plane_c = in + int64_t(c) * in_w * in_h;
      for (int32_t ky = 0; ky < k; ++ky) {
        float *block = panel + (int64_t(c) * k + ky) * k * NR;
        const int32_t y = oy * s + ky - p;
        if (y < 0 || y >= in_h) {
          // A kernel row above or below the input: all its k rows are zero.
          std::memset(block, 0, size_t(k) * NR * sizeof(float));
          continue;
        }
        const float *row = plane_c + int64_t(y) * in_w;
        for (int32_t kx = 0; kx < k; ++kx) {
          float *d = block + int64_t(kx) * NR;
          const int32_t x0 = ox0 * s + kx - p;
          if (cnt == NR && x0 >= 0 && x0 + (NR - 1) * s < in_w) {
            if (s == 1)
              std::memcpy(d, row + x0, NR * sizeof(float));  // a fixed size: a few vector moves
            else
              for (int j = 0; j < NR; ++j) d[j] = row[x0 + j * s];
            continue;
          }
          for (int32_t j = 0; j < cnt; ++j) {
            const int32_t x = x0 + j * s;
            d[j] = x >= 0 && x < in_w ? row[x] : 0.0f;
          }
          // The columns of a last, partial panel are zero so the tile multiplies clean values.
          for (int32_t j = cnt; j < NR; ++j) d[j] = 0.0f;
        }
      }
    }
  }
}

}  // namespace

void im2col_fill_row_panels(float *dst, const float *in, int32_t channels, int32_t in_w, int32_t in_h, int32_t k,
                            int32_t s, int32_t p, int32_t oy, int32_t out_w, int32_t nr) {
  if (nr == 8)
    fill_row_panels<8>(dst, in, channels, in_w, in_h, k, s, p, oy, out_w);
  else
    fill_row_panels<16>(dst, in, channels, in_w, in_h, k, s, p, oy, out_w);
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
