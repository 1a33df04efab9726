// Conv method 2: kernels packed once as the left matrix, patches filled per output row as
// the right matrix, multiplied by the tile kernels of the general multiply.
#include <cstring>

#include "core/oru_scratch.h"
#include "conv/oru_conv_internal.h"

namespace {

// Mode of a square shape, or -1 for a depthwise shape that has none.
int select_mode(int32_t in_channels, int32_t kernel, int32_t pad, int32_t stride, int32_t groups) {
  struct Shape {
    int32_t k, p, s;
    int mode;
  };
  static const Shape full[] = {{3, 1, 1, 1}, {3, 1, 2, 2}, {5, 2, 1, 3}, {5, 2, 2, 4}, {1, 0, 1, 5}};
  static const Shape depthwise[] = {{3, 1, 1, 6}, {3, 1, 2, 7}, {5, 2, 1, 8}, {5, 2, 2, 9}};
  if (groups == 1) {
    for (const Shape &f : full)
      if (f.k == kernel && f.p == pad && f.s == stride) return f.mode;
    return 0;
  }
  if (groups == in_channels)
    for (const Shape &f : depthwise)
      if (f.k == kernel && f.p == pad && f.s == stride) return f.mode;
  return -1;
}

bool is_depthwise_mode(uint32_t mode) { return mode >= 6 && mode <= 9; }

int64_t round_up(int64_t v, int64_t m) { return (v + m - 1) / m * m; }

}  // namespace

extern "C" {

ORU_API uint32_t oru_conv2d_im2col_gemm_info_init(int32_t in_channels, int32_t out_channels, int32_t in_w,
                                                  int32_t in_h, int32_t kernel, int32_t pad, int32_t stride,
                                                  int32_t groups, uint32_t conv_workers, oru_im2col_gemm_info *info) {
  if (!info) return ORU_RET_ERR_PARA;
  if (in_channels < 1 || out_channels < 1 || kernel < 1 || stride < 1 || pad < 0) return ORU_RET_ERR_PARA;
  if (int64_t(in_w) + 2 * pad < kernel || int64_t(in_h) + 2 * pad < kernel) return ORU_RET_ERR_PARA;
  int mode = select_mode(in_channels, kernel, pad, stride, groups);
  if (mode < 0 || (mode >= 6 && out_channels != in_channels)) return ORU_RET_ERR_PARA;
  std::memset(info, 0, sizeof *info);
  info->out_w = (in_w + 2 * pad - kernel) / stride + 1;
  info->out_h = (in_h + 2 * pad - kernel) / stride + 1;
  info->mode = uint32_t(mode);
  info->conv_workers = conv_workers;
  info->packed_rows = kernel * kernel * in_channels;
  if (mode >= 6) {
    info->packed_cols = 1;
    return ORU_RET_OK;
  }
  info->mr = 8;
  info->nr = 8;
  info->kernel = mat_mul_8xkx8_kernel;
  info->gemm_n = info->out_w * info->out_h;
  info->gemm_k = kernel * kernel * in_channels;
  info->k_len = info->gemm_k;
  info->m = out_channels;
  info->packed_cols = mode == 0 ? out_channels : int32_t(round_up(out_channels, 8));
  return ORU_RET_OK;
}

ORU_API uint32_t oru_conv2d_ker2row_pack_for_im2col_gemm(float *destination, const float *kernels,
                                                         const oru_im2col_gemm_info *info) {
  if (!destination || !kernels || !info) return ORU_RET_ERR_PARA;
  if (info->mode >= 1 && info->mode <= 5)
    copy_a_blocked(info->m, info->k_len, 8, kernels, info->k_len, destination);
  else
    std::memcpy(destination, kernels, size_t(int64_t(info->packed_rows) * info->packed_cols) * sizeof(float));
  return ORU_RET_OK;
}

ORU_API oru_im2col_gemm_info *oru_create_im2col_gemm_calc_info(const oru_tensor *input, const oru_tensor *weight,
                                                               const oru_conv2d_params *params,
                                                               const uint32_t *conv_workers) {
  if (!input || !weight || !params || !conv_workers || !weight->data || input->ndims < 2) return nullptr;
  const oru_conv2d_params &p = *params;
  if (p.kernel_w != p.kernel_h || p.pad_w != p.pad_h || p.stride_w != p.stride_h || p.dilation_w != 1 ||
      p.dilation_h != 1)
    return nullptr;
  oru::Scratch<oru_im2col_gemm_info> info(1, true);
  if (!info) return nullptr;
  if (oru_conv2d_im2col_gemm_info_init(p.in_channels, p.out_channels, input->dims[0], input->dims[1], p.kernel_w,
                                       p.pad_w, p.stride_w, p.groups, *conv_workers, info.get()))
    return nullptr;
  // The weight tensor must hold every kernel that gets packed.
  int64_t kernels = (is_depthwise_mode(info[0].mode) ? 1 : int64_t(p.out_channels)) * info[0].packed_rows;
  if (weight->total_elements < kernels) return nullptr;
  oru::Scratch<float> packed(int64_t(info[0].packed_rows) * info[0].packed_cols);
  if (!packed) return nullptr;
  oru_conv2d_ker2row_pack_for_im2col_gemm(packed.get(), static_cast<const float *>(weight->data), info.get());
  info[0].packed = packed.release();
  return info.release();
}

ORU_API uint32_t oru_release_im2col_gemm_calc_info(oru_im2col_gemm_info **info) {
  if (!info || !*info || !(*info)->packed) return ORU_RET_ERR_PARA;
  oru_free((*info)->packed);
  oru_free(*info);
  *info = nullptr;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_conv2d_im2col_gemm(float *output, const float *packed, const float *input, int32_t in_channels,
                                        int32_t out_channels, int32_t in_w, int32_t in_h, int32_t kernel, int32_t pad,
                                        int32_t stride, const oru_im2col_gemm_info *info) {
  if (!output || !packed || !input || !info) return ORU_RET_ERR_PARA;
  const int32_t out_w = info->out_w, out_h = info->out_h;
  const int64_t plane = int64_t(out_w) * out_h;
  const int64_t workers = info->conv_workers > 0 ? info->conv_workers : 1;
  const uint32_t mode = info->mode;
  if (is_depthwise_mode(mode)) {
    const int32_t taps = kernel * kernel;
    oru::Scratch<float> panels(workers * round_up(out_w, 16) * taps);
    if (!panels) return ORU_RET_ERR_MEMORY;
    for (int32_t c = 0; c < in_channels; ++c) {
      const float *in_c = input + int64_t(c) * in_w * in_h;
      for (int32_t oy = 0; oy < out_h; ++oy) {
        oru::im2col_fill_row_panels(panels.get(), in_c, 1, in_w, in_h, kernel, stride, pad, oy, out_w, 16);
        mat_mul_kernel_row_major(1, out_w, taps, output + int64_t(c) * plane + int64_t(oy) * out_w, int32_t(plane),
                                 packed + int64_t(c) * taps, panels.get(), 1, 16, mat_mul_1xkx16_kernel, 1.0f, 0.0f);
      }
    }
    return ORU_RET_OK;
  }
  if (mode >= 1 && mode <= 5) {
    oru::Scratch<float> panels(workers * round_up(out_w, 8) * info->k_len);
    if (!panels) return ORU_RET_ERR_MEMORY;
    for (int32_t oy = 0; oy < out_h; ++oy) {
      if (mode == 5)
        copy_b_blocked(in_channels, out_w, 8, input + int64_t(oy) * in_w, in_w * in_h, panels.get());
      else
        oru::im2col_fill_row_panels(panels.get(), input, in_channels, in_w, in_h, kernel, stride, pad, oy, out_w, 8);
      mat_mul_kernel_row_major(out_channels, out_w, info->k_len, output + int64_t(oy) * out_w, int32_t(plane), packed,
                               panels.get(), 8, 8, info->kernel, 1.0f, 0.0f);
    }
    return ORU_RET_OK;
  }
  // Any other shape: the whole patch matrix, then the blocked multiply.
  oru::Scratch<float> patches(int64_t(info->gemm_k) * info->gemm_n);
  if (!patches) return ORU_RET_ERR_MEMORY;
  oru::im2col_fill_matrix(patches.get(), input, in_channels, in_w, in_h, kernel, stride, pad, out_w, out_h);
  blocked_mat_mul_row_major_real32(info->m, info->gemm_n, info->gemm_k, packed, info->gemm_k, patches.get(),
                                   info->gemm_n, output, info->gemm_n, 8, 8, mat_mul_8xkx8_kernel, 1.0f, 0.0f);
  return ORU_RET_OK;
}

}  // extern "C"

namespace {

// The tensor forms: arguments present, and tensors that agree with the record, so that a
// mismatched tensor can't be read or written past its end.
uint32_t run_tensor_form(oru_tensor *output, const oru_tensor *input, const oru_tensor *weight,
                         const oru_conv2d_params *params, const oru_im2col_gemm_info *info, int32_t kernel,
                         int32_t pad, int32_t stride) {
  if (!output || !input || !weight || !params || !info || !output->data || !input->data || !info->packed)
    return ORU_RET_ERR_PARA;
  if (output->ndims < 3 || input->ndims < 3 || output->dims[0] != info->out_w || output->dims[1] != info->out_h ||
      output->dims[2] != params->out_channels || input->dims[2] != params->in_channels)
    return ORU_RET_ERR_PARA;
  if (oru::conv_out_extent(input->dims[0], kernel, stride, pad, 1) != info->out_w ||
      oru::conv_out_extent(input->dims[1], kernel, stride, pad, 1) != info->out_h)
    return ORU_RET_ERR_PARA;
  bool depthwise_record = is_depthwise_mode(info->mode);
  if (depthwise_record ? info->packed_rows != kernel * kernel * params->in_channels
                       : info->m != params->out_channels || info->k_len != kernel * kernel * params->in_channels)
    return ORU_RET_ERR_PARA;
  return oru_conv2d_im2col_gemm(static_cast<float *>(output->data), info->packed,
                                static_cast<const float *>(input->data), params->in_channels, params->out_channels,
                                input->dims[0], input->dims[1], kernel, pad, stride, info);
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_tensor_std_conv2d_im2col_gemm(oru_tensor *output, const oru_tensor *input,
                                                   const oru_tensor *weight, const oru_conv2d_params *params,
                                                   const oru_im2col_gemm_info *info) {
  if (!params) return ORU_RET_ERR_PARA;
  return run_tensor_form(output, input, weight, params, info, params->kernel_w, params->pad_w, params->stride_w);
}

ORU_API uint32_t oru_tensor_pointwise_conv2d_im2col_gemm(oru_tensor *output, const oru_tensor *input,
                                                         const oru_tensor *weight, const oru_conv2d_params *params,
                                                         const oru_im2col_gemm_info *info) {
  return run_tensor_form(output, input, weight, params, info, 1, 0, 1);
}

ORU_API uint32_t oru_tensor_depthwise_conv2d_im2col_gemm(oru_tensor *output, const oru_tensor *input,
                                                         const oru_tensor *weight, const oru_conv2d_params *params,
                                                         const oru_im2col_gemm_info *info) {
  if (!params) return ORU_RET_ERR_PARA;
  return run_tensor_form(output, input, weight, params, info, params->kernel_w, params->pad_w, params->stride_w);
}

}  // extern "C"
