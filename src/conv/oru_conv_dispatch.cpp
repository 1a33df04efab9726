// Public direct CHW kernels: check the arguments, then pick the loop that fits the shape.
// The same drivers serve the fused operators, which hand them a bias and an activation to
// apply as the sums are stored (an epilogue); loops that can't do that get a separate pass.
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
                        const oru_conv2d_params &p, Epilogue e);
uint32_t depthwise_conv3x3_s2(const oru_tensor *output, const oru_tensor *input, const float *w,
                              const oru_conv2d_params &p, Epilogue e);
void depthwise_plane3x3_s1(float *out, const float *in, const float *k9, int32_t w, int32_t h, float *slots,
                           int64_t slot_len, Epilogue e);
}  // namespace oru

namespace {

constexpr oru::Epilogue kNoEpilogue{nullptr, 0};

bool is_3x3_pad1(const oru_conv2d_params &p) {
  return p.kernel_w == 3 && p.kernel_h == 3 && p.pad_w == 1 && p.pad_h == 1;
}

// The epilogue as a pass over the whole output, for loops that store plain sums.
uint32_t finish_after(uint32_t st, const oru_tensor *output, int32_t channels, oru::Epilogue e) {
  if (st || !e.bias) return st;
  using LineFn = decltype(&oru::bias_act_line_plain);
  static const LineFn line = oru::pick(ORU_KERNEL_FORMS(oru::bias_act_line));
  const int64_t n = int64_t(output->dims[0]) * output->dims[1];
  for (int32_t c = 0; c < channels; ++c) line(oru::plane(output, c), oru::plane(output, c), e.bias[c], n, e.act);
  return ORU_RET_OK;
}

uint32_t std_conv_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                      const oru_conv2d_params *params, const uint32_t *conv_workers, oru::Epilogue e) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, false);
  if (st) return st;
  const oru_conv2d_params &p = *params;
  const float *w = static_cast<const float *>(weight->data);
  if (is_3x3_pad1(p) && p.stride_w == 2 && p.stride_h == 2) return oru::std_conv3x3_s2(output, input, w, p, e);
  // Short planes gain nothing from the ring; the general loop is the plain scan there.
  if (is_3x3_pad1(p) && p.stride_w == 1 && p.stride_h == 1 && output->dims[1] > 5)
    return finish_after(oru::std_conv3x3_s1(output, input, w, p), output, p.out_channels, e);
  return finish_after(oru_tensor_std_conv2d_general_chw(output, input, weight, params, conv_workers), output,
                      p.out_channels, e);
}

uint32_t depthwise_conv_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                            const oru_conv2d_params *params, const uint32_t *conv_workers, oru::Epilogue e) {
  uint32_t st = oru::check_direct_args(output, input, weight, params, false);
  if (st) return st;
  const oru_conv2d_params &p = *params;
  if (!oru::is_depthwise(p)) {
    if (is_3x3_pad1(p) && p.stride_w == 2 && p.stride_h == 2) printf("ORU_ERROR: %s\n", oru_error_string[oru::message_index(ORU_RET_ERR_PARA)]);
    return ORU_RET_ERR_PARA;
  }
  const float *w = static_cast<const float *>(weight->data);
  int32_t in_w = input->dims[0], in_h = input->dims[1];
  if (is_3x3_pad1(p) && p.stride_w == 2 && p.stride_h == 2) return oru::depthwise_conv3x3_s2(output, input, w, p, e);
  if (is_3x3_pad1(p) && p.stride_w == 1 && p.stride_h == 1) {
    int64_t slot_len = int64_t(in_w) + 10;
    oru::Scratch<float> slots(6 * slot_len, true);
    if (!slots) return ORU_RET_ERR_MEMORY;
    for (int32_t c = 0; c < p.out_channels; ++c)
      oru::depthwise_plane3x3_s1(oru::plane(output, c), oru::plane(input, c), w + int64_t(c) * 9, in_w, in_h,
                                 slots.get(), slot_len, {e.bias ? e.bias + c : nullptr, e.act});
    return ORU_RET_OK;
  }
  // 5x5 and every other shape: the general loop computes the same sum.
  return finish_after(oru_tensor_depthwise_conv2d_general_chw(output, input, weight, params, conv_workers), output,
                      p.out_channels, e);
}

uint32_t pointwise_conv_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                            const oru_conv2d_params *params, oru::Epilogue e) {
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
      out[o] = oru::finish_scalar(s, e, o);
    }
    return ORU_RET_OK;
  }
  using PlanesFn = decltype(&oru::pointwise_planes_plain);
  static const PlanesFn planes = oru::pick(ORU_KERNEL_FORMS(oru::pointwise_planes));
  planes(out, n, in, n, w, ic, oc, ic, n, e);
  return ORU_RET_OK;
}

}  // namespace

namespace oru {

uint32_t direct_conv_bias_act_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                  const oru_conv2d_params *params, const uint32_t *conv_workers, int act) {
  if (!params || !tensor_usable(weight)) return ORU_RET_ERR_PARA;
  const oru_conv2d_params &p = *params;
  const int64_t offset = int64_t(p.kernel_w) * p.kernel_h * kernel_count(p);
  if (p.kernel_w < 0 || p.kernel_h < 0 || weight->total_elements < offset + p.out_channels) return ORU_RET_ERR_PARA;
  const Epilogue e{static_cast<const float *>(weight->data) + offset, act};
  if (p.groups == 1)
    return p.kernel_w == 1 && p.kernel_h == 1 ? pointwise_conv_chw(output, input, weight, params, e)
                                              : std_conv_chw(output, input, weight, params, conv_workers, e);
  if (is_depthwise(p)) return depthwise_conv_chw(output, input, weight, params, conv_workers, e);
  // A grouping no kernel serves: only the bias pass runs, as for the unfused path.
  return bias_act_chw(output, output, weight, params, act);
}

}  // namespace oru

extern "C" {

ORU_API uint32_t oru_tensor_std_conv2d_chw(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                                           const oru_conv2d_params *params, const uint32_t *conv_workers) {
  return std_conv_chw(output, input, weight, params, conv_workers, kNoEpilogue);
}

ORU_API uint32_t oru_tensor_depthwise_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *conv_workers) {
  return depthwise_conv_chw(output, input, weight, params, conv_workers, kNoEpilogue);
}

ORU_API uint32_t oru_tensor_pointwise_conv2d_chw(oru_tensor *output, const oru_tensor *input,
                                                 const oru_tensor *weight, const oru_conv2d_params *params,
                                                 const uint32_t *) {
  return pointwise_conv_chw(output, input, weight, params, kNoEpilogue);
}

}  // extern "C"
