// Conv method 1: weights packed once at prepare into blocks of channel groups, and the three
// convolutions that walk the group pairs and call one kernel member per pair. Input in CHW
// is interleaved into a temporary first; the output is always left in HWG.
#include <cstring>

#include "conv/oru_conv_internal.h"
#include "conv/oru_packed_hwg_internal.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "core/oru_types.h"
#include "kernels/packed_hwg/oru_hwg_kernels.h"

namespace oru {

namespace {

int32_t dim_or_one(const oru_tensor *t, int k) { return t->ndims > k ? t->dims[k] : 1; }

using MoveFn = decltype(&hwg_interleave_plain);

MoveFn interleave_kernel() {
  static const MoveFn k = pick(ORU_KERNEL_FORMS(hwg_interleave));
  return k;
}

MoveFn deinterleave_kernel() {
  static const MoveFn k = pick(ORU_KERNEL_FORMS(hwg_deinterleave));
  return k;
}

enum class Form { standard, depthwise, pointwise };

// The checks of the three convolutions, in the order the family fixes: the shape, then the
// tensors. Unlike the direct kernels these report, since the refusal is the family's own.
uint32_t check_hwg_args(Form form, const oru_tensor *output, const oru_tensor *input,
                        const oru_conv2d_params *params, const oru_conv2d_hwg_info *info) {
  if (!params) ORU_FAIL(ORU_RET_ERR_PARA);
  const oru_conv2d_params &p = *params;
  if (form == Form::pointwise) {
    if (p.kernel_w != 1 || p.kernel_h != 1 || p.stride_w != 1 || p.stride_h != 1 || p.pad_w != 0)
      ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
  } else {
    if (p.kernel_w != 3 || p.kernel_h != 3) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
    if (!((p.stride_w == 1 && p.stride_h == 1) || (p.stride_w == 2 && p.stride_h == 2)))
      ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);
    if (p.pad_w != 1) ORU_FAIL(ORU_RET_ERR_NOT_SUPPORT);  // the members stand for padding 1
  }
  if (!tensor_usable(output) || !tensor_usable(input) || !info || !tensor_usable(info->packed_weight))
    ORU_FAIL(ORU_RET_ERR_PARA);
  if (dim_or_one(input, 2) != p.in_channels || dim_or_one(output, 2) != p.out_channels || p.in_channels < 1 ||
      p.out_channels < 1)
    ORU_FAIL(ORU_RET_ERR_PARA);
  if ((form == Form::depthwise) != is_depthwise(p) && p.in_channels * int64_t(p.out_channels) > 1)
    ORU_FAIL(ORU_RET_ERR_PARA);
  // The output plane must be the one the members write, or they would run past its end.
  const int32_t s = form == Form::pointwise ? 1 : p.stride_w;
  const int32_t in_w = dim_or_one(input, 0), in_h = dim_or_one(input, 1);
  if (in_w < 1 || in_h < 1 || dim_or_one(output, 0) != (in_w - 1) / s + 1 ||
      dim_or_one(output, 1) != (in_h - 1) / s + 1)
    ORU_FAIL(ORU_RET_ERR_PARA);
  const int64_t words = kernel_count(p) * p.kernel_w * p.kernel_h;
  if (info->packed_weight->total_elements < words || input->total_elements < int64_t(in_w) * in_h * p.in_channels)
    ORU_FAIL(ORU_RET_ERR_PARA);
  return ORU_RET_OK;
}

// The input in HWG: the tensor itself, or a temporary interleaved copy of a CHW input.
class HwgInput {
 public:
  explicit HwgInput(const oru_tensor *input) : input_(input) {}
  ~HwgInput() {
    if (temp_) oru_release_tensor(&temp_);
  }
  uint32_t prepare(int32_t channels) {
    // Fewer than four channels are single-channel groups, which lie as planes already.
    if (input_->channel_layout != ORU_LAYOUT_CHW || channels < 4) return ORU_RET_OK;
    temp_ = oru_create_tensor_from_tensor(input_);
    if (!temp_) ORU_FAIL(ORU_RET_ERR_MEMORY);
    oru_pack_data_chw_to_hwg_real32(static_cast<float *>(temp_->data), static_cast<const float *>(input_->data),
                                    channels, dim_or_one(input_, 1), dim_or_one(input_, 0));
    return ORU_RET_OK;
  }
  const float *data() const { return static_cast<const float *>((temp_ ? temp_ : input_)->data); }

 private:
  const oru_tensor *input_;
  oru_tensor *temp_ = nullptr;
};

uint32_t run_std(Form form, oru_tensor *output, const oru_tensor *input, const oru_conv2d_params *params,
                 const oru_conv2d_hwg_info *info) {
  if (uint32_t st = check_hwg_args(form, output, input, params, info)) return st;
  const oru_conv2d_params &p = *params;
  const int32_t in_w = dim_or_one(input, 0), in_h = dim_or_one(input, 1);
  const int32_t out_w = dim_or_one(output, 0), out_h = dim_or_one(output, 1);
  const int64_t in_plane = int64_t(in_w) * in_h, out_plane = int64_t(out_w) * out_h;
  float *out = static_cast<float *>(output->data);
  HwgInput src(input);
  if (uint32_t st = src.prepare(p.in_channels)) {
    std::memset(out, 0, size_t(out_plane * p.out_channels) * sizeof(float));
    return st;
  }
  const float *in = src.data();
  const int family = form == Form::pointwise ? hwg_std_1x1_s1 : p.stride_w == 1 ? hwg_std_3x3_s1 : hwg_std_3x3_s2;
  // A pointwise member sees the whole plane as one line of pixels.
  const int32_t rows_out = form == Form::pointwise ? 1 : out_h, rows_in = form == Form::pointwise ? 1 : in_h;
  const int64_t cols_out = form == Form::pointwise ? out_plane : out_w;
  const int64_t cols_in = form == Form::pointwise ? in_plane : in_w;
  const int taps = p.kernel_w * p.kernel_h;
  const float *w = static_cast<const float *>(info->packed_weight->data);
  int64_t offset = 0;
  alignas(64) float block[8 * 8 * 9];
  // Output 8-groups go through the all-input-groups kernel where this processor has one
  // (two at a time where its vectors hold both); the rest through one member per block.
  const HwgGroupKernel single = hwg_group_kernel(0, family), pair = hwg_group_kernel(1, family);
  // Those kernels store every output of their groups; the planes of the other groups start
  // cleared, and so does the whole output if the scratch can't be had.
  const int32_t stored = single ? p.out_channels / 8 * 8 : 0;
  std::memset(out + stored * out_plane, 0, size_t(out_plane * (p.out_channels - stored)) * sizeof(float));
  Scratch<float> scratch;
  if (stored > 0 && !scratch.reset(int64_t(taps) * p.in_channels * 16)) {
    std::memset(out, 0, size_t(out_plane * stored) * sizeof(float));
    ORU_FAIL(ORU_RET_ERR_MEMORY);
  }
  for (int32_t o0 = 0; o0 < p.out_channels;) {
    const int go = hwg_group_width(p.out_channels - o0);
    const int64_t group_words = int64_t(go) * p.in_channels * taps;
    float *dst = out + o0 * out_plane;
    if (go == 8 && pair && p.out_channels - o0 >= 16) {
      pair(dst, 8 * out_plane, rows_out, int32_t(cols_out), in, rows_in, int32_t(cols_in), p.in_channels, w + offset,
           w + offset + group_words, scratch.get());
      offset += 2 * group_words;
      o0 += 16;
      continue;
    }
    if (go == 8 && single) {
      single(dst, 0, rows_out, int32_t(cols_out), in, rows_in, int32_t(cols_in), p.in_channels, w + offset, nullptr,
             scratch.get());
      offset += group_words;
      o0 += 8;
      continue;
    }
    for (int32_t i0 = 0; i0 < p.in_channels; i0 += hwg_group_width(p.in_channels - i0)) {
      const int gi = hwg_group_width(p.in_channels - i0);
      const int64_t words = int64_t(go) * gi * taps;
      std::memcpy(block, w + offset, size_t(words) * sizeof(float));
      offset += words;
      hwg_kernel(family, hwg_width_index(go), hwg_width_index(gi))(dst, rows_out, int32_t(cols_out * go),
                                                                   in + i0 * in_plane, rows_in, int32_t(cols_in * gi),
                                                                   block);
    }
    o0 += go;
  }
  output->channel_layout = ORU_LAYOUT_HWG;
  return ORU_RET_OK;
}

}  // namespace

}  // namespace oru

extern "C" {

ORU_API oru_conv2d_hwg_info *oru_create_conv2d_hwg_calc_info(const oru_tensor *input, const oru_tensor *weight,
                                                             const oru_conv2d_params *params,
                                                             const uint32_t *conv_workers) {
  if (!input || !weight || !params || !conv_workers || !weight->data) return nullptr;
  const oru_conv2d_params &p = *params;
  const int64_t words = oru::kernel_count(p) * p.kernel_w * p.kernel_h;
  if (p.in_channels < 1 || p.out_channels < 1 || p.kernel_w < 1 || p.kernel_h < 1 ||
      oru::base_of_code(weight->type) != aif32 || weight->total_elements < words)
    return nullptr;
  auto *info = static_cast<oru_conv2d_hwg_info *>(oru_calloc(1, sizeof(oru_conv2d_hwg_info)));
  if (!info) return nullptr;
  info->workers = *conv_workers < 1 ? 1 : *conv_workers > 16 ? 16 : *conv_workers;
  info->packed_weight = oru_create_tensor_from_tensor(weight);
  if (!info->packed_weight) {
    oru_free(info);
    return nullptr;
  }
  float *dst = static_cast<float *>(info->packed_weight->data);
  const float *src = static_cast<const float *>(weight->data);
  // Words behind the kernels (the bias) are carried over unchanged.
  std::memcpy(dst, src, size_t(weight->total_elements) * sizeof(float));
  if (oru::is_depthwise(p))
    oru_pack_depthwise_weight_chw_to_hwg_real32(dst, src, p.in_channels, p.out_channels, p.kernel_h, p.kernel_w);
  else
    oru_pack_std_weight_chw_to_hwg_real32(dst, src, p.in_channels, p.out_channels, p.kernel_h, p.kernel_w);
  return info;
}

ORU_API uint32_t oru_release_conv2d_hwg_calc_info(oru_conv2d_hwg_info **info) {
  if (!info || !*info) return ORU_RET_ERR_PARA;
  if ((*info)->packed_weight) oru_release_tensor(&(*info)->packed_weight);
  oru_free(*info);
  *info = nullptr;
  return ORU_RET_OK;
}

ORU_API void oru_pack_std_weight_chw_to_hwg_real32(float *destination, const float *source, int32_t in_channels,
                                                   int32_t out_channels, int32_t kernel_h, int32_t kernel_w) {
  if (!destination || !source || in_channels < 1 || out_channels < 1 || kernel_h < 1 || kernel_w < 1) return;
  const int64_t taps = int64_t(kernel_h) * kernel_w;
  int64_t at = 0;
  for (int32_t o0 = 0; o0 < out_channels; o0 += oru::hwg_group_width(out_channels - o0)) {
    const int go = oru::hwg_group_width(out_channels - o0);
    for (int32_t i0 = 0; i0 < in_channels; i0 += oru::hwg_group_width(in_channels - i0)) {
      const int gi = oru::hwg_group_width(in_channels - i0);
      for (int a = 0; a < go; ++a)
        for (int64_t t = 0; t < taps; ++t)
          for (int b = 0; b < gi; ++b)
            destination[at + (a * taps + t) * gi + b] = source[((o0 + a) * int64_t(in_channels) + i0 + b) * taps + t];
      at += go * gi * taps;
    }
  }
}

ORU_API void oru_pack_depthwise_weight_chw_to_hwg_real32(float *destination, const float *source,
                                                         int32_t in_channels, int32_t out_channels, int32_t kernel_h,
                                                         int32_t kernel_w) {
  if (!destination || !source || in_channels < 1 || kernel_h < 1 || kernel_w < 1) return;
  (void)out_channels;
  const int64_t taps = int64_t(kernel_h) * kernel_w;
  for (int32_t c = 0; c < in_channels; c += oru::hwg_group_width(in_channels - c)) {
    const int g = oru::hwg_group_width(in_channels - c);
    for (int64_t t = 0; t < taps; ++t)
      for (int j = 0; j < g; ++j) destination[c * taps + t * g + j] = source[(c + j) * taps + t];
  }
}

ORU_API void oru_pack_data_chw_to_hwg_real32(float *destination, const float *source, int32_t channels,
                                             int32_t height, int32_t width) {
  if (!destination || !source || channels < 1 || height < 1 || width < 1) return;
  const int64_t plane = int64_t(height) * width;
  for (int32_t c = 0; c < channels; c += oru::hwg_group_width(channels - c)) {
    const int g = oru::hwg_group_width(channels - c);
    if (g == 1)
      std::memcpy(destination + c * plane, source + c * plane, size_t(plane) * sizeof(float));
    else
      oru::interleave_kernel()(destination + c * plane, source + c * plane, g, plane);
  }
}

ORU_API void oru_pack_data_hwg_to_chw_real32(float *destination, const float *source, int32_t channels,
                                             int32_t height, int32_t width) {
  if (!destination || !source || channels < 1 || height < 1 || width < 1) return;
  const int64_t plane = int64_t(height) * width;
  for (int32_t c = 0; c < channels; c += oru::hwg_group_width(channels - c)) {
    const int g = oru::hwg_group_width(channels - c);
    if (g == 1)
      std::memcpy(destination + c * plane, source + c * plane, size_t(plane) * sizeof(float));
    else
      oru::deinterleave_kernel()(destination + c * plane, source + c * plane, g, plane);
  }
}

static uint32_t pack_tensor(oru_tensor *destination, const oru_tensor *source, bool to_hwg) {
  if (!destination || !source || !destination->data || !source->data ||
      destination->total_bytes != source->total_bytes || source->ndims < 1)
    return ORU_RET_ERR_PARA;
  const int32_t w = source->dims[0], h = source->ndims > 1 ? source->dims[1] : 1;
  const int32_t c = source->ndims > 2 ? source->dims[2] : 1;
  if (int64_t(w) * h * c * int64_t(sizeof(float)) > source->total_bytes) return ORU_RET_ERR_PARA;
  float *d = static_cast<float *>(destination->data);
  const float *s = static_cast<const float *>(source->data);
  if (to_hwg)
    oru_pack_data_chw_to_hwg_real32(d, s, c, h, w);
  else
    oru_pack_data_hwg_to_chw_real32(d, s, c, h, w);
  destination->channel_layout = to_hwg ? ORU_LAYOUT_HWG : ORU_LAYOUT_CHW;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_pack_data_chw_to_hwg(oru_tensor *destination, const oru_tensor *source) {
  return pack_tensor(destination, source, true);
}

ORU_API uint32_t oru_tensor_pack_data_hwg_to_chw(oru_tensor *destination, const oru_tensor *source) {
  return pack_tensor(destination, source, false);
}

ORU_API uint32_t oru_tensor_std_conv2d_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *,
                                           const oru_conv2d_params *params, const oru_conv2d_hwg_info *info) {
  return oru::run_std(oru::Form::standard, output, input, params, info);
}

ORU_API uint32_t oru_tensor_pointwise_conv2d_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *,
                                                 const oru_conv2d_params *params, const oru_conv2d_hwg_info *info) {
  return oru::run_std(oru::Form::pointwise, output, input, params, info);
}

ORU_API uint32_t oru_tensor_depthwise_conv2d_hwg(oru_tensor *output, const oru_tensor *input, const oru_tensor *,
                                                 const oru_conv2d_params *params, const oru_conv2d_hwg_info *info) {
  using namespace oru;
  if (uint32_t st = check_hwg_args(Form::depthwise, output, input, params, info)) return st;
  const oru_conv2d_params &p = *params;
  const int32_t in_w = dim_or_one(input, 0), in_h = dim_or_one(input, 1);
  const int32_t out_w = dim_or_one(output, 0), out_h = dim_or_one(output, 1);
  const int64_t in_plane = int64_t(in_w) * in_h, out_plane = int64_t(out_w) * out_h;
  HwgInput src(input);
  if (uint32_t st = src.prepare(p.in_channels)) return st;
  const float *in = src.data();
  float *out = static_cast<float *>(output->data);
  const float *w = static_cast<const float *>(info->packed_weight->data);
  const int family = p.stride_w == 1 ? hwg_dw_3x3_s1 : hwg_dw_3x3_s2;
  alignas(64) float block[8 * 9];
  for (int32_t c = 0; c < p.in_channels; c += hwg_group_width(p.in_channels - c)) {
    const int g = hwg_group_width(p.in_channels - c);
    std::memcpy(block, w + c * 9, size_t(g) * 9 * sizeof(float));
    const int k = hwg_width_index(g);
    hwg_kernel(family, k, k)(out + c * out_plane, out_h, out_w * g, in + c * in_plane, in_h, in_w * g, block);
  }
  output->channel_layout = ORU_LAYOUT_HWG;
  return ORU_RET_OK;
}

}  // extern "C"
