// Inside of the convolution operators: their forward functions (reached only through the
// handle's table), the batch-norm folding, and what the plain and fused operators share.
#ifndef ORU_CG_CONV_INTERNAL_H
#define ORU_CG_CONV_INTERNAL_H

#include <cstdint>
#include <cstring>

#include "oru_cg.h"

extern "C" {
uint32_t oru_cg_std_conv2d(void *context);
uint32_t oru_cg_depthwise_conv2d(void *context);
uint32_t oru_cg_conv2d_1x1(void *context);
uint32_t oru_cg_dilated_conv2d(void *context);
uint32_t oru_cg_transposed_conv2d(void *context);
uint32_t oru_cg_conv2d_act(void *context);
uint32_t oru_cg_conv2d_bn2d_act(void *context);

// Folds the batch norm behind a convolution into its kernels and bias; writes nothing
// (and returns ORU_RET_ERR_PARA) unless both tensors fit the layout.
uint32_t oru_tensor_fuse_conv2d_bn2d_weight(oru_tensor *destination, const oru_tensor *source,
                                            const oru_conv2d_bn2d_act_params *params);
}

namespace oru {

// Output extent of the plain operators (with dilation), or 0 when it can't be made.
int32_t conv_op_out_extent(int32_t in, int32_t kernel, int32_t stride, int32_t pad, int32_t dilation);

// Finds a convolution node's input and weight among its in-edges; the last of each kind wins.
void conv_resolve_inputs(oru_cg_handle *h, int32_t node, oru_tensor **input, oru_tensor **weight);

// The operator's output tensor: the input's ndims, type and channel layout, the given plane
// and channel count; a header only on an external device unless storage is forced.
oru_tensor *conv_make_output(const oru_tensor *input, int32_t out_w, int32_t out_h, int32_t channels,
                             uint32_t dev_type, bool force_storage);

// Fixed point has kernels under the direct method only: a node asking for another method is
// refused at init_context rather than left to run float kernels on ai16s data.
inline bool conv_unbuilt_method(const oru_cg_handle *h) {
  return h->backend == ORU_CG_BACKEND_FIXED && h->conv_method != ORU_CG_CONV_DIRECT_CHW;
}

// Fixed point at prepare: q_in from the list at the node's data source, q_out at the node;
// a value outside 0 to 15 (or no list) is refused with one report.
uint32_t conv_fixed_q(oru_cg_handle *h, int32_t node, int32_t *q_in, int32_t *q_out);

// Fixed point at prepare: the Q of the first count elements of float weights, and an ai16s
// copy of the tensor's shape holding those elements in that Q (the rest zero). On failure
// *converted stays null.
uint32_t conv_fixed_weights(const oru_tensor *weight, int64_t count, oru_tensor **converted, int32_t *q_weight);

// Copies a node's parameters and the handle's convolution settings into its fresh context.
template <typename Ctx>
void conv_fill_context(Ctx *c, const void *params, const oru_cg_handle *h, uint32_t backend) {
  std::memcpy(&c->params, params, sizeof c->params);
  c->conv_method = h->conv_method;
  c->conv_workers = h->conv_workers;
  c->backend = backend;
  c->dev_type = h->dev_type;
}

// The packed kernels of conv method 2 or 1, made once at prepare; null for method 0 or on failure.
void *conv_make_calc_info(uint32_t method, const oru_tensor *input, const oru_tensor *weight,
                          const oru_conv2d_params *params, const uint32_t *conv_workers);

// The input of a direct or im2col convolution as CHW planes: the tensor itself, or, when a
// packed HWG node left it interleaved, a temporary copy laid out as planes for this run.
class ConvChwInput {
 public:
  explicit ConvChwInput(const oru_tensor *input) : input_(input) {}
  ~ConvChwInput() {
    if (temp_) oru_release_tensor(&temp_);
  }
  ConvChwInput(const ConvChwInput &) = delete;
  ConvChwInput &operator=(const ConvChwInput &) = delete;
  // ORU_RET_ERR_MEMORY when the copy can't be made.
  uint32_t prepare();
  const oru_tensor *get() const { return temp_ ? temp_ : input_; }
  bool converted() const { return temp_ != nullptr; }

 private:
  const oru_tensor *input_;
  oru_tensor *temp_ = nullptr;
};

// Releases what conv_make_calc_info made for the method; null is fine.
void conv_release_calc_info(void *calc_info, uint32_t method);

}  // namespace oru

#endif
