// The loops that serve any kernel, stride, padding and dilation: the reference sum with
// every tap tested against the input bounds. The specialised loops must agree with them.
#include <cstring>

#include "conv/oru_conv_internal.h"

namespace {

struct Geometry {
  int32_t in_w, in_h, out_w, out_h, kw, kh, sw, sh, pw, ph, dw, dh;
};

Geometry geometry(const oru_tensor *out, const oru_tensor *in, const oru_conv2d_params &p, bool dilated) {
  return {in->dims[0], in->ndims > 1 ? in->dims[1] : 1, out->dims[0], out->ndims > 1 ? out->dims[1] : 1,
          p.kernel_w, p.kernel_h, p.stride_w, p.stride_h, p.pad_w, p.pad_h,
          dilated ? p.dilation_w : 1, dilated ? p.dilation_h : 1};
}

// Tap sum of one output element over one input plane, kernel rows outer.
inline float tap_sum(const float *in, const float *k, const Geometry &g, int32_t oy, int32_t ox) {
  float s = 0.0f;
  for (int32_t ky = 0; ky < g.kh; ++ky) {
    int32_t y = oy * g.sh + ky * g.dh - g.ph;
    if (y < 0 || y >= g.in_h) continue;
    const float *row = in + int64_t(y) * g.in_w;
    const float *krow = k + int64_t(ky) * g.kw;
    for (int32_t kx = 0; kx < g.kw; ++kx) {
      int32_t x = ox * g.sw + kx * g.dw - g.pw;
      if (x < 0 || x >= g.in_w) continue;
      s += row[x] * krow[kx];
    }
  }
  return s;
}

// Full convolution: output cleared, then each input channel's tap sum added in ascending order.
void full_conv(const oru_tensor *output, const oru_tensor *input, const float *w, const oru_conv2d_params &p,
               const Geometry &g) {
  int64_t out_plane = int64_t(g.out_w) * g.out_h;
  std::memset(output->data, 0, size_t(out_plane) * p.out_channels * sizeof(float));
  int64_t ksize = int64_t(g.kw) * g.kh;
  for (int32_t o = 0; o < p.out_channels; ++o) {
    float *out = oru::plane(output, o);
    for (int32_t i = 0; i < p.in_channels; ++i) {
      const float *in = oru::plane(input, i);
      const float *k = w + (int64_t(o) * p.in_channels + i) * ksize;
      for (int32_t oy = 0; oy < g.out_h; ++oy)
        for (int32_t ox = 0; ox < g.out_w; ++ox) out[int64_t(oy) * g.out_w + ox] += tap_sum(in, k, g, oy, ox);
    }
  }
}

void depthwise_conv(const oru_tensor *output, const oru_tensor *input, const float *w,
                    const oru_conv2d_params &p, const Geometry &g) {
  int64_t ksize = int64_t(g.kw) * g.kh;
  for (int32_t c = 0; c < p.out_channels; ++c) {
    float *out = oru::plane(output, c);
    const float *in = oru::plane(input, c);
    for (int32_t oy = 0; oy < g.out_h; ++oy)
      for (int32_t ox = 0; ox < g.out_w; ++ox) out[int64_t(oy) * g.out_w + ox] = tap_sum(in, w + c * ksize, g, oy, ox);
  }
}

}  // namespace

extern "C" {

uint32_t oru_tensor_std_conv2d_general_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                           const oru_conv2d_params *params, const uint32_t *) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, false);
  if (st) return st;
  full_conv(output, input, static_cast<const float *>(weight->data), *params, geometry(output, input, *params, false));
  return ORU_RET_OK;
}

uint32_t oru_tensor_depthwise_conv2d_general_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, false);
  if (st) return st;
  if (!oru::is_depthwise(*params)) return ORU_RET_ERR_PARA;
  depthwise_conv(output, input, static_cast<const float *>(weight->data), *params,
                 geometry(output, input, *params, false));
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_dilated_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                               const oru_tensor *weight, const oru_conv2d_params *params,
                                               const uint32_t *) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, true);
  if (st) return st;
  Geometry g = geometry(output, input, *params, true);
  const float *w = static_cast<const float *>(weight->data);
  if (oru::is_depthwise(*params))
    depthwise_conv(output, input, w, *params, g);
  else if (params->groups == 1)
    full_conv(output, input, w, *params, g);
  else
    return ORU_RET_ERR_PARA;  // grouped convolutions between full and depthwise aren't served
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_transposed_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                  const oru_tensor *weight, const oru_conv2d_params *params) {
  if (!oru::tensor_usable(output) || !oru::tensor_usable(input) || !oru::tensor_usable(weight) || !params)
    return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = *params;
  if (output->ndims < 3 || input->ndims < 3 || output->dims[2] != p.out_channels || input->dims[2] != p.in_channels)
    return ORU_RET_ERR_PARA;
  if (p.kernel_w < 1 || p.kernel_h < 1 || p.stride_w < 1 || p.stride_h < 1 || p.pad_w < 0 || p.pad_h < 0)
    return ORU_RET_ERR_PARA;
  if (weight->total_elements < int64_t(p.in_channels) * p.out_channels * p.kernel_w * p.kernel_h)
    return ORU_RET_ERR_PARA;
  int32_t in_w = input->dims[0], in_h = input->dims[1];
  int32_t out_w = output->dims[0], out_h = output->dims[1];
  // Extent of the input once spread by stride - 1 zeros between neighbours.
  int64_t span_w = int64_t(in_w) + int64_t(in_w - 1) * (p.stride_w - 1);
  int64_t span_h = int64_t(in_h) + int64_t(in_h - 1) * (p.stride_h - 1);
  int64_t ksize = int64_t(p.kernel_w) * p.kernel_h;
  const float *w = static_cast<const float *>(weight->data);
  std::memset(output->data, 0, size_t(int64_t(out_w) * out_h * p.out_channels) * sizeof(float));
  for (int32_t o = 0; o < p.out_channels; ++o) {
    float *out = oru::plane(output, o);
    for (int32_t i = 0; i < p.in_channels; ++i) {
      const float *in = oru::plane(input, i);
      const float *k = w + (int64_t(o) * p.in_channels + i) * ksize;
      for (int32_t y = 0; y < out_h; ++y)
        for (int32_t x = 0; x < out_w; ++x) {
          float s = 0.0f;
          for (int32_t ky = 0; ky < p.kernel_h; ++ky) {
            int64_t yy = int64_t(y) + p.pad_h - p.kernel_h + 1 + ky;
            if (yy < 0 || yy >= span_h || yy % p.stride_h) continue;
            const float *row = in + (yy / p.stride_h) * in_w;
            for (int32_t kx = 0; kx < p.kernel_w; ++kx) {
              int64_t xx = int64_t(x) + p.pad_w - p.kernel_w + 1 + kx;
              if (xx < 0 || xx >= span_w || xx % p.stride_w) continue;
              s += row[xx / p.stride_w] * k[ky * p.kernel_w + kx];
            }
          }
          out[int64_t(y) * out_w + x] += s;
        }
    }
  }
  return ORU_RET_OK;
}

}  // extern "C"
