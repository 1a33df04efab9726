// Fixed-point convolution on ai16s CHW tensors: the argument checks, the choice of loop by
// shape, the general loops, and the 3x3 and 1x1 drivers around the row kernels.
//
// Each input channel's sum is rescaled by itself and the output is a sum modulo 2^16, so
// the order of channels and rows is free: every loop here equals the general loop exactly.
#include <algorithm>
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "fixed/oru_fixed_internal.h"

namespace oru {
namespace {

int32_t out_extent(int32_t in, int32_t kernel, int32_t stride, int32_t pad) {
  if (in < 1 || kernel < 1 || stride < 1 || pad < 0) return 0;
  const int64_t span = int64_t(in) + 2 * int64_t(pad) - kernel;
  return span < 0 ? 0 : int32_t(span / stride + 1);
}

int64_t kernels_of(const oru_conv2d_params &p, bool depthwise) {
  return depthwise ? int64_t(p.in_channels) : int64_t(p.in_channels) * p.out_channels;
}

// Tensors, channels against the record, the output plane against the shape formula, enough
// weights, and a shift the 32-bit rule can make.
uint32_t check_conv(const oru_tensor *out, int32_t q_out, const oru_tensor *in, int32_t q_in, const oru_tensor *w,
                    int32_t q_w, const oru_conv2d_params *params, bool depthwise) {
  if (!fx_usable(out) || !fx_usable(in) || !fx_usable(w) || !params) return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = *params;
  if (fx_dim(out, 2) != p.out_channels || fx_dim(in, 2) != p.in_channels || p.in_channels < 1 ||
      p.out_channels < 1)
    return ORU_RET_ERR_PARA;
  if (depthwise && p.in_channels != p.out_channels) return ORU_RET_ERR_PARA;
  if (q_out < 0 || q_out > ORU_Q_MAX || q_in < 0 || q_in > ORU_Q_MAX || q_w < 0 || q_w > ORU_Q_MAX)
    return ORU_RET_ERR_PARA;
  const int32_t ow = out_extent(fx_dim(in, 0), p.kernel_w, p.stride_w, p.pad_w);
  const int32_t oh = out_extent(fx_dim(in, 1), p.kernel_h, p.stride_h, p.pad_h);
  if (ow < 1 || oh < 1 || ow != fx_dim(out, 0) || oh != fx_dim(out, 1)) return ORU_RET_ERR_PARA;
  if (w->total_elements < kernels_of(p, depthwise) * p.kernel_w * p.kernel_h) return ORU_RET_ERR_PARA;
  return ORU_RET_OK;
}

struct Geometry {
  int32_t in_w, in_h, out_w, out_h, kw, kh, sw, sh, pw, ph;
};

Geometry geometry(const oru_tensor *out, const oru_tensor *in, const oru_conv2d_params &p) {
  return {fx_dim(in, 0), fx_dim(in, 1), fx_dim(out, 0), fx_dim(out, 1), p.kernel_w, p.kernel_h,
          p.stride_w,    p.stride_h,    p.pad_w,        p.pad_h};
}

// Sum of products of one output element over one input plane, taps outside left out,
// kernel rows outer.
int32_t tap_sum(const int16_t *in, const int16_t *k, const Geometry &g, int32_t oy, int32_t ox) {
  int32_t acc = 0;
  for (int32_t ky = 0; ky < g.kh; ++ky) {
    const int32_t y = oy * g.sh + ky - g.ph;
    if (y < 0 || y >= g.in_h) continue;
    for (int32_t kx = 0; kx < g.kw; ++kx) {
      const int32_t x = ox * g.sw + kx - g.pw;
      if (x < 0 || x >= g.in_w) continue;
      acc = fx_add32(acc, fx_mul32(in[int64_t(y) * g.in_w + x], k[int64_t(ky) * g.kw + kx]));
    }
  }
  return acc;
}

void general_std(const oru_tensor *out, const oru_tensor *in, const int16_t *w, const oru_conv2d_params &p,
                 int32_t shift) {
  const Geometry g = geometry(out, in, p);
  const int64_t out_plane = int64_t(g.out_w) * g.out_h, ksize = int64_t(g.kw) * g.kh;
  std::memset(out->data, 0, size_t(out_plane * p.out_channels) * sizeof(int16_t));
  for (int32_t o = 0; o < p.out_channels; ++o) {
    int16_t *y = fx_plane(out, o);
    for (int32_t i = 0; i < p.in_channels; ++i) {
      const int16_t *x = fx_plane(in, i), *k = w + (int64_t(o) * p.in_channels + i) * ksize;
      for (int32_t oy = 0; oy < g.out_h; ++oy)
        for (int32_t ox = 0; ox < g.out_w; ++ox) {
          int16_t &v = y[int64_t(oy) * g.out_w + ox];
          v = fx_low16(int64_t(v) + fx_rescale(tap_sum(x, k, g, oy, ox), shift));
        }
    }
  }
}

void general_depthwise(const oru_tensor *out, const oru_tensor *in, const int16_t *w, const oru_conv2d_params &p,
                       int32_t shift) {
  const Geometry g = geometry(out, in, p);
  const int64_t ksize = int64_t(g.kw) * g.kh;
  for (int32_t c = 0; c < p.out_channels; ++c) {
    int16_t *y = fx_plane(out, c);
    const int16_t *x = fx_plane(in, c);
    for (int32_t oy = 0; oy < g.out_h; ++oy)
      for (int32_t ox = 0; ox < g.out_w; ++ox)
        y[int64_t(oy) * g.out_w + ox] = fx_low16(fx_rescale(tap_sum(x, w + c * ksize, g, oy, ox), shift));
  }
}

bool is_3x3_pad1(const oru_conv2d_params &p, int32_t stride) {
  return p.kernel_w == 3 && p.kernel_h == 3 && p.pad_w == 1 && p.pad_h == 1 && p.stride_w == stride &&
         p.stride_h == stride;
}

// Copies a plane into a zeroed frame fw wide (at least w + 2) and h + 2 high, one row and
// column in, so that the row kernels read the padding as taps of value 0 (which add nothing
// to a sum).
void pad_plane(int16_t *framed, int64_t fw, const int16_t *in, int32_t w, int32_t h) {
  for (int32_t y = 0; y < h; ++y) std::memcpy(framed + (y + 1) * fw + 1, in + int64_t(y) * w, size_t(w) * 2);
}

// 3x3 convolution with padding 1 and stride 1 or 2, standard or depthwise, through the row
// kernel over zero-framed planes. The frame is wide enough for a whole number of vector
// steps (of 16 outputs), so every row goes through the kernel in full steps, into a row of
// that length whose first out_w values are the output's. Needs shift 0..30.
uint32_t conv3x3(const oru_tensor *out, const oru_tensor *in, const int16_t *w, const oru_conv2d_params &p,
                 int32_t shift, int32_t stride, bool depthwise) {
  const Geometry g = geometry(out, in, p);
  const int64_t n = (int64_t(g.out_w) + 15) / 16 * 16;
  const int64_t fw = std::max(int64_t(g.in_w) + 2, n * stride + 2), fh = int64_t(g.in_h) + 2;
  const int64_t out_plane = int64_t(g.out_w) * g.out_h;
  Scratch<int16_t> framed(fw * fh + n, true);
  if (!depthwise) std::memset(out->data, 0, size_t(out_plane * p.out_channels) * sizeof(int16_t));
  if (!framed) return ORU_RET_ERR_MEMORY;
  int16_t *row_out = framed.get() + fw * fh;
  const FxConv3x3RowFn row = fx_conv3x3_row();
  for (int32_t i = 0; i < p.in_channels; ++i) {
    pad_plane(framed.get(), fw, fx_plane(in, i), g.in_w, g.in_h);
    const int32_t o_first = depthwise ? i : 0, o_last = depthwise ? i + 1 : p.out_channels;
    for (int32_t o = o_first; o < o_last; ++o) {
      const int16_t *k = w + (depthwise ? int64_t(i) : int64_t(o) * p.in_channels + i) * 9;
      int16_t *y = fx_plane(out, o);
      for (int32_t oy = 0; oy < g.out_h; ++oy) {
        const int16_t *r0 = framed.get() + int64_t(oy) * stride * fw;
        int16_t *dst = y + int64_t(oy) * g.out_w;
        if (n == g.out_w) {  // whole steps already: straight into the output
          row(dst, n, r0, r0 + fw, r0 + 2 * fw, k, shift, stride, !depthwise);
          continue;
        }
        if (!depthwise) std::memcpy(row_out, dst, size_t(g.out_w) * 2);
        row(row_out, n, r0, r0 + fw, r0 + 2 * fw, k, shift, stride, !depthwise);
        std::memcpy(dst, row_out, size_t(g.out_w) * 2);
      }
    }
  }
  return ORU_RET_OK;
}

uint32_t pointwise(const oru_tensor *out, const oru_tensor *in, const int16_t *w, const oru_conv2d_params &p,
                   int32_t shift) {
  // As in the float kernel, pixel p of the input feeds pixel p of the output.
  const int64_t out_plane = int64_t(fx_dim(out, 0)) * fx_dim(out, 1);
  const int64_t in_plane = int64_t(fx_dim(in, 0)) * fx_dim(in, 1);
  const int64_t n = out_plane < in_plane ? out_plane : in_plane;
  std::memset(out->data, 0, size_t(out_plane * p.out_channels) * sizeof(int16_t));
  int16_t *y = static_cast<int16_t *>(out->data);
  const int16_t *x = static_cast<const int16_t *>(in->data);
  const FxPointwiseBlockFn block = shift >= 0 ? fx_pointwise_block() : nullptr;
  for (int32_t o = 0; o < p.out_channels; o += 4) {
    const int oc = p.out_channels - o < 4 ? p.out_channels - o : 4;
    if (block) {
      block(y + o * out_plane, out_plane, x, in_plane, w + int64_t(o) * p.in_channels, p.in_channels, oc,
            p.in_channels, n, shift);
      continue;
    }
    for (int j = 0; j < oc; ++j)
      for (int32_t i = 0; i < p.in_channels; ++i)
        for (int64_t q = 0; q < n; ++q) {
          int16_t &v = y[(o + j) * out_plane + q];
          v = fx_low16(int64_t(v) + fx_rescale(fx_mul32(x[i * in_plane + q], w[int64_t(o + j) * p.in_channels + i]),
                                                 shift));
        }
  }
  return ORU_RET_OK;
}

}  // namespace

uint32_t fx_std_conv(oru_tensor *out, int32_t q_out, const oru_tensor *in, int32_t q_in, const oru_tensor *w,
                     int32_t q_w, const oru_conv2d_params *params, bool general_only) {
  if (uint32_t st = check_conv(out, q_out, in, q_in, w, q_w, params, false)) return st;
  const int32_t shift = q_in + q_w - q_out;
  const int16_t *k = static_cast<const int16_t *>(w->data);
  // A 6x6 window over a 6x6 plane is the general loop's single output element.
  if (!general_only && shift >= 0) {
    if (is_3x3_pad1(*params, 2)) return conv3x3(out, in, k, *params, shift, 2, false);
    if (is_3x3_pad1(*params, 1)) return conv3x3(out, in, k, *params, shift, 1, false);
  }
  general_std(out, in, k, *params, shift);
  return ORU_RET_OK;
}

uint32_t fx_depthwise_conv(oru_tensor *out, int32_t q_out, const oru_tensor *in, int32_t q_in, const oru_tensor *w,
                           int32_t q_w, const oru_conv2d_params *params, bool general_only) {
  if (uint32_t st = check_conv(out, q_out, in, q_in, w, q_w, params, true)) return st;
  const int32_t shift = q_in + q_w - q_out;
  const int16_t *k = static_cast<const int16_t *>(w->data);
  if (!general_only && shift >= 0) {
    if (is_3x3_pad1(*params, 2)) return conv3x3(out, in, k, *params, shift, 2, true);
    if (is_3x3_pad1(*params, 1)) return conv3x3(out, in, k, *params, shift, 1, true);
  }
  general_depthwise(out, in, k, *params, shift);
  return ORU_RET_OK;
}

}  // namespace oru

extern "C" {

ORU_API uint32_t oru_tensor_std_conv2d_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                 int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                 const oru_conv2d_params *params, const uint32_t *) {
  return oru::fx_std_conv(output, q_out, input, q_in, weight, q_weight, params, false);
}

uint32_t oru_tensor_std_conv2d_general_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                 int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                 const oru_conv2d_params *params, const uint32_t *) {
  return oru::fx_std_conv(output, q_out, input, q_in, weight, q_weight, params, true);
}

ORU_API uint32_t oru_tensor_depthwise_conv2d_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                       int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                       const oru_conv2d_params *params, const uint32_t *) {
  return oru::fx_depthwise_conv(output, q_out, input, q_in, weight, q_weight, params, false);
}

uint32_t oru_tensor_depthwise_conv2d_general_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                       int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                       const oru_conv2d_params *params, const uint32_t *) {
  return oru::fx_depthwise_conv(output, q_out, input, q_in, weight, q_weight, params, true);
}

ORU_API uint32_t oru_tensor_pointwise_conv2d_chw_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                                       int32_t q_in, const oru_tensor *weight, int32_t q_weight,
                                                       const oru_conv2d_params *params, const uint32_t *) {
  if (!oru::fx_usable(output) || !oru::fx_usable(input) || !oru::fx_usable(weight) || !params)
    return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = *params;
  if (oru::fx_dim(output, 2) != p.out_channels || oru::fx_dim(input, 2) != p.in_channels || p.in_channels < 1 ||
      p.out_channels < 1 || weight->total_elements < int64_t(p.in_channels) * p.out_channels)
    return ORU_RET_ERR_PARA;
  if (q_out < 0 || q_out > ORU_Q_MAX || q_in < 0 || q_in > ORU_Q_MAX || q_weight < 0 || q_weight > ORU_Q_MAX)
    return ORU_RET_ERR_PARA;
  return oru::pointwise(output, input, static_cast<const int16_t *>(weight->data), p, q_in + q_weight - q_out);
}

}  // extern "C"
