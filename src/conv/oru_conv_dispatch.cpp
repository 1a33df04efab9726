// Public direct CHW kernels: check the arguments, then pick the loop that fits the shape.
#include <cstdio>
#include <cstring>

#include "core/oru_dispatch.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "conv/oru_conv_internal.h"

namespace oru {
uint32_t std_conv3x3_s1(const oru_tensor *output, const oru_tensor *input, const float *w,
                        const oru_conv2d_params &p);
uint32_t std_conv3x3_s2(const oru_tensor *output, const oru_tensor *input, const float *w,
                        const oru_conv2d_params &p);
void conv3x3_s1_plane_ring(float *const *outs, int n_out, const float *in, const float *const *k9s, int32_t w,
                           int32_t h, float *slots, int64_t slot_len, bool accumulate);
}  // namespace oru

namespace {

bool is_3x3_pad1(const oru_conv2d_params &p) {
  return p.kernel_w == 3 && p.kernel_h == 3 && p.pad_w == 1 && p.pad_h == 1;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_tensor_std_conv2d_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                           const oru_conv2d_params *params, const uint32_t *conv_workers) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, false);
  if (st) return st;
  const oru_conv2d_params &p = *params;
  const float *w = static_cast<const float *>(weight->data);
  if (is_3x3_pad1(p) && p.stride_w == 2 && p.stride_h == 2) return oru::std_conv3x3_s2(output, input, w, p);
  // Short planes gain nothing from the ring; the general loop is the plain scan there.
  if (is_3x3_pad1(p) && p.stride_w == 1 && p.stride_h == 1 && output->dims[1] > 5)
    return oru::std_conv3x3_s1(output, input, w, p);
  return oru_tensor_std_conv2d_general_chw(output, input, weight, params, conv_workers);
}

ORU_API uint32_t oru_tensor_depthwise_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *conv_workers) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, false);
  if (st) return st;
  const oru_conv2d_params &p = *params;
  if (!oru::is_depthwise(p)) {
    if (is_3x3_pad1(p) && p.stride_w == 2 && p.stride_h == 2) printf("ORU_ERROR: %s\n", oru_error_string[oru::message_index(ORU_RET_ERR_PARA)]);
    return ORU_RET_ERR_PARA;
  }
  const float *w = static_cast<const float *>(weight->data);
  int32_t in_w = input->dims[0], in_h = input->dims[1], out_w = output->dims[0], out_h = output->dims[1];
  if (is_3x3_pad1(p) && p.stride_w == 2 && p.stride_h == 2) {
    for (int32_t c = 0; c < p.out_channels; ++c)
      oru::conv3x3_s2_plane(oru::plane(output, c), oru::plane(input, c), w + int64_t(c) * 9, in_w, in_h, out_w, out_h,
                            false);
    return ORU_RET_OK;
  }
  if (is_3x3_pad1(p) && p.stride_w == 1 && p.stride_h == 1) {
    int64_t slot_len = int64_t(in_w) + 10;
    oru::Scratch<float> slots(6 * slot_len, true);
    if (!slots) return ORU_RET_ERR_MEMORY;
    for (int32_t c = 0; c < p.out_channels; ++c) {
      float *out = oru::plane(output, c);
      const float *k = w + int64_t(c) * 9;
      oru::conv3x3_s1_plane_ring(&out, 1, oru::plane(input, c), &k, in_w, in_h, slots.get(), slot_len, false);
    }
    return ORU_RET_OK;
  }
  // 5x5 and every other shape: the general loop computes the same sum.
  return oru_tensor_depthwise_conv2d_general_chw(output, input, weight, params, conv_workers);
}

ORU_API uint32_t oru_tensor_pointwise_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, false);
  if (st) return st;
  const oru_conv2d_params &p = *params;
  // Pixel p of the output reads pixel p of the input: only 1x1, stride 1, no padding fits.
  if (p.kernel_w != 1 || p.kernel_h != 1 || p.stride_w != 1 || p.stride_h != 1 || p.pad_w != 0 || p.pad_h != 0)
    return ORU_RET_ERR_PARA;
  const float *w = static_cast<const float *>(weight->data);
  const float *in = static_cast<const float *>(input->data);
  float *out = static_cast<float *>(output->data);
  int32_t ic = p.in_channels, oc = p.out_channels;
  int64_t n = int64_t(output->dims[0]) * output->dims[1];
  if (n == 1) {
    // A 1x1 plane is a matrix-vector product.
    for (int32_t o = 0; o < oc; ++o) {
      const float *wo = w + int64_t(o) * ic;
      float s;
      if (ic >= 4) {
        float part[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        int32_t i = 0;
        for (; i + 4 <= ic; i += 4)
          for (int j = 0; j < 4; ++j) part[j] += wo[i + j] * in[i + j];
        s = part[0] + part[1];
        s += part[2];
        s += part[3];
        for (; i < ic; ++i) s += wo[i] * in[i];
      } else {
        s = 0.0f;
        for (int32_t i = 0; i < ic; ++i) s += wo[i] * in[i];
      }
      out[o] = s;
    }
    return ORU_RET_OK;
  }
  using PlanesFn = decltype(&oru::pointwise_planes_plain);
  static const PlanesFn planes = oru::pick(ORU_KERNEL_FORMS(oru::pointwise_planes));
  planes(out, n, in, n, w, ic, oc, ic, n);
  return ORU_RET_OK;
}

}  // extern "C"
