// Fixed-point kernels of the operators other than convolution: add, batch norm 1-D,
// linear, average pooling, concat, ReLU, h-swish and the affine sampler. 32-bit integer
// arithmetic (64 where a product or a window sum needs it); the low 16 bits are stored.
#include <cmath>
#include <cstring>

#include "fixed/oru_fixed_internal.h"

namespace oru {
namespace {

// A tensor these kernels can read: data of 16-bit signed elements (a float tensor in a
// fixed-point graph is refused, not read as pairs of halves).
bool has_data(const oru_tensor *t) { return t && t->data && t->type == ai16s; }

// Right shift by n, or left shift by -n, without a rounding term.
inline int64_t shift_plain(int64_t v, int32_t n) {
  return n >= 0 ? (v >> n) : int64_t(uint64_t(v) << -n);
}

}  // namespace
}  // namespace oru

using namespace oru;

extern "C" {

ORU_API uint32_t oru_tensor_add_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *a, int32_t q_a,
                                      const oru_tensor *b, int32_t q_b) {
  if (!has_data(output) || !has_data(a) || !has_data(b)) return ORU_RET_ERR_PARA;
  if (!fx_q_ok(q_out) || !fx_q_ok(q_a) || !fx_q_ok(q_b)) return ORU_RET_ERR_PARA;
  for (int k = 0; k < 3; ++k)
    if (a->dims[k] != output->dims[k]) return ORU_RET_ERR_PARA;
  const FxSumRule rule = fx_sum_rule(q_a, q_b, q_out);
  const int16_t *x = static_cast<const int16_t *>(a->data), *y = static_cast<const int16_t *>(b->data);
  int16_t *o = static_cast<int16_t *>(output->data);
  if (a->total_elements == b->total_elements) {
    if (output->total_elements < a->total_elements) return ORU_RET_ERR_PARA;
    for (int64_t i = 0; i < a->total_elements; ++i) o[i] = fx_low16(fx_sum(x[i], y[i], rule));
    return ORU_RET_OK;
  }
  // Otherwise b holds one value per channel, added to every element of its plane.
  const int32_t channels = a->dims[2];
  if (output->ndims != 3 || b->total_elements != channels) return ORU_RET_ERR_PARA;
  const int64_t plane = int64_t(a->dims[0]) * a->dims[1];
  for (int32_t c = 0; c < channels; ++c)
    for (int64_t i = 0; i < plane; ++i) o[c * plane + i] = fx_low16(fx_sum(x[c * plane + i], y[c], rule));
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_batchnorm1d_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                              int32_t q_in, const oru_tensor *weights, int32_t q_gamma,
                                              int32_t q_beta, int32_t q_mean, int32_t q_var,
                                              const oru_cg_bn_params *params) {
  if (!has_data(output) || !has_data(input) || !has_data(weights)) return ORU_RET_ERR_PARA;
  if (q_out < 0 || q_in < 0 || q_gamma < 0 || q_beta < 0 || q_mean < 0 || q_var < 0) return ORU_RET_ERR_PARA;
  if (!fx_q_ok(q_out) || !fx_q_ok(q_in) || !fx_q_ok(q_gamma) || !fx_q_ok(q_beta) || !fx_q_ok(q_mean) || !fx_q_ok(q_var))
    return ORU_RET_ERR_PARA;
  if (output->ndims != input->ndims) return ORU_RET_ERR_PARA;
  for (int32_t k = 0; k < output->ndims; ++k)
    if (output->dims[k] != input->dims[k]) return ORU_RET_ERR_PARA;
  const int64_t n = weights->total_elements / 4, count = output->total_elements;
  if (count > n || count > input->total_elements) return ORU_RET_ERR_PARA;
  const float eps = params ? params->eps : 1e-5f;
  const int32_t e = int32_t(std::ldexp(1.0, 2 * q_var) * eps);
  const bool in_above = q_in >= q_mean;
  const int32_t q = in_above ? q_gamma + q_in - q_var : q_gamma + q_mean - q_var;
  // The result's Q must reach the beta's; otherwise nothing is computed.
  if (in_above ? q < q_beta : q <= q_beta) return ORU_RET_OK;
  const int16_t *x = static_cast<const int16_t *>(input->data), *w = static_cast<const int16_t *>(weights->data);
  const int16_t *gamma = w, *beta = w + n, *mean = w + 2 * n, *var = w + 3 * n;
  int16_t *y = static_cast<int16_t *>(output->data);
  for (int64_t i = 0; i < count; ++i) {
    const int32_t v = fx_add32(fx_shl32(var[i], q_var), e);
    int32_t c, s;
    if (in_above) {
      c = x[i] - fx_shl32(mean[i], q_in - q_mean);
      s = int32_t(std::sqrt(float(v)));
    } else {
      c = fx_shl32(x[i], q_mean - q_in) - mean[i];
      s = int32_t(std::sqrt(double(v)));
    }
    // A zero root (variance and eps both below the Q's step) contributes no scaled term.
    const int64_t scaled = s != 0 ? (int64_t(c) * gamma[i]) / s : 0;
    y[i] = fx_low16(shift_plain(int64_t(fx_shl32(beta[i], q - q_beta)) + scaled, q - q_out));
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_linear_bias_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                              int32_t q_in, const oru_tensor *weights, int32_t q_w,
                                              const oru_cg_linear_params *params) {
  if (!has_data(output) || !has_data(input) || !has_data(weights) || !params) return ORU_RET_ERR_PARA;
  if (input->ndims != 2 || output->ndims != 2) return ORU_RET_ERR_PARA;
  if (!fx_q_ok(q_out) || !fx_q_ok(q_in) || !fx_q_ok(q_w)) return ORU_RET_ERR_PARA;
  const int64_t n_in = input->dims[0], n_out = output->dims[0];
  const int64_t bias_at = int64_t(params->in_features) * params->out_features;
  if (n_in * n_out > bias_at || weights->total_elements < bias_at + n_out || input->total_elements < n_in)
    return ORU_RET_ERR_PARA;
  const int32_t s = q_in + q_w - q_out;
  const int16_t *x = static_cast<const int16_t *>(input->data), *w = static_cast<const int16_t *>(weights->data);
  int16_t *y = static_cast<int16_t *>(output->data);
  for (int64_t o = 0; o < n_out; ++o) {
    int32_t sum = 0;
    // Each product is rounded by itself.
    for (int64_t i = 0; i < n_in; ++i) sum = fx_add32(sum, fx_rescale(fx_mul32(x[i], w[o * n_in + i]), s));
    const int32_t b = w[bias_at + o];
    sum = fx_add32(sum, q_out <= q_w ? b >> (q_w - q_out) : fx_shl32(b, q_out - q_w));
    y[o] = fx_low16(sum);
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_avg_pool2d_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                             int32_t q_in, int32_t k) {
  if (!has_data(output) || !has_data(input)) return ORU_RET_ERR_PARA;
  if (!fx_q_ok(q_out) || q_in < 0 || q_in > 31 || fx_dim(input, 2) != fx_dim(output, 2) || k < 1)
    return ORU_RET_ERR_PARA;
  const int32_t w = fx_dim(input, 0), h = fx_dim(input, 1), channels = fx_dim(output, 2);
  const int32_t ow = fx_dim(output, 0), oh = fx_dim(output, 1);
  const int64_t in_row = input->pitches[0] ? input->pitches[0] / 2 : w;
  const int64_t in_plane = input->pitches[1] ? input->pitches[1] / 2 : in_row * h;
  const int64_t out_row = output->pitches[0] ? output->pitches[0] / 2 : ow;
  const int64_t out_plane = output->pitches[1] ? output->pitches[1] / 2 : out_row * oh;
  const int16_t *x = static_cast<const int16_t *>(input->data);
  int16_t *y = static_cast<int16_t *>(output->data);
  const int64_t area = int64_t(k) * k;
  for (int32_t c = 0; c < channels; ++c)
    // Whole windows only, and never past the output's own plane.
    for (int32_t oy = 0; oy < oh && int64_t(oy + 1) * k <= h; ++oy)
      for (int32_t ox = 0; ox < ow && int64_t(ox + 1) * k <= w; ++ox) {
        int64_t sum = 0;
        for (int32_t dy = 0; dy < k; ++dy) {
          const int16_t *row = x + c * in_plane + (int64_t(oy) * k + dy) * in_row + int64_t(ox) * k;
          for (int32_t dx = 0; dx < k; ++dx) sum += row[dx];
        }
        y[c * out_plane + oy * out_row + ox] = fx_low16(shift_plain(sum / area, q_in - q_out));
      }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_concat_fpi16(oru_tensor *output, int32_t, oru_tensor *const *inputs,
                                         const int32_t *q_inputs, int32_t axis, int32_t count) {
  if (!has_data(output) || !inputs || !q_inputs || count < 1) return ORU_RET_ERR_PARA;
  if (axis < 0 || axis >= output->ndims || output->ndims > 5) return ORU_RET_ERR_PARA;
  int64_t sum = 0;
  for (int32_t k = 0; k < count; ++k) {
    const oru_tensor *t = inputs[k];
    if (!has_data(t) || q_inputs[k] > ORU_Q_MAX || t->ndims != output->ndims) return ORU_RET_ERR_PARA;
    for (int32_t d = 0; d < output->ndims; ++d)
      if (d != axis && t->dims[d] != output->dims[d]) return ORU_RET_ERR_PARA;
    sum += t->dims[axis];
  }
  if (sum != output->dims[axis]) return ORU_RET_ERR_PARA;
  // The values are copied as they stand: the inputs are expected to share the output's Q.
  int64_t outer = 1;
  for (int32_t d = axis + 1; d < output->ndims; ++d) outer *= output->dims[d];
  int16_t *o = static_cast<int16_t *>(output->data);
  for (int64_t q = 0; q < outer; ++q)
    for (int32_t k = 0; k < count; ++k) {
      int64_t chunk = 1;
      for (int32_t d = 0; d <= axis; ++d) chunk *= inputs[k]->dims[d];
      std::memcpy(o, static_cast<const int16_t *>(inputs[k]->data) + q * chunk, size_t(chunk) * 2);
      o += chunk;
    }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_relu_fpi16(oru_tensor *output, int32_t, const oru_tensor *input, int32_t,
                                       const void *, const void *, const void *, const void *arg3) {
  if (!has_data(output) || !has_data(input) || !arg3) return ORU_RET_ERR_PARA;
  for (int k = 0; k < 3; ++k)
    if (fx_dim(output, k) != fx_dim(input, k)) return ORU_RET_ERR_PARA;
  const int64_t n = output->total_elements < input->total_elements ? output->total_elements : input->total_elements;
  const int16_t *x = static_cast<const int16_t *>(input->data);
  int16_t *y = static_cast<int16_t *>(output->data);
  for (int64_t i = 0; i < n; ++i) y[i] = x[i] > 0 ? x[i] : int16_t(0);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_hswish_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input,
                                         int32_t q_in) {
  if (!has_data(output) || !has_data(input) || !fx_q_ok(q_in) || !fx_q_ok(q_out)) return ORU_RET_ERR_PARA;
  if (input->total_elements < output->total_elements) return ORU_RET_ERR_PARA;
  const int32_t one = 1 << q_in, shift = q_in - q_out + 15, r = fx_round_term(shift);
  const int16_t *x = static_cast<const int16_t *>(input->data);
  int16_t *y = static_cast<int16_t *>(output->data);
  for (int64_t i = 0; i < output->total_elements; ++i) {
    int32_t c = x[i] + 3 * one;
    c = c < 0 ? 0 : (c > 6 * one ? 6 * one : c);
    const int32_t p = fx_add32(fx_mul32(c, x[i]), one / 2) >> q_in;
    y[i] = fx_low16(fx_add32(fx_mul32(p, 5461), r) >> shift);  // 5461 is 1/6 in Q15
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_affine_fpi16(oru_tensor *output, int32_t q_out, const oru_tensor *input, int32_t q_in,
                                         const oru_tensor *matrix, int32_t q_matrix,
                                         const oru_cg_affine_params *params) {
  if (!has_data(output) || !has_data(input) || !has_data(matrix) || !params) return ORU_RET_ERR_PARA;
  if (matrix->total_elements != 6 || !fx_q_ok(q_matrix) || !fx_q_ok(q_in) || !fx_q_ok(q_out)) return ORU_RET_ERR_PARA;
  const int32_t w = fx_dim(input, 0), h = fx_dim(input, 1), ow = fx_dim(output, 0), oh = fx_dim(output, 1);
  const int32_t channels = fx_dim(output, 2);
  if (ow < 1 || oh < 1 || w < 1 || h < 1) return ORU_RET_OK;
  if (fx_dim(input, 2) < channels) return ORU_RET_ERR_PARA;
  const int16_t *m = static_cast<const int16_t *>(matrix->data);
  const int32_t q = q_matrix, one = 1 << q, half = one >> 1, sx = one / ow, sy = one / oh;
  const int32_t t0 = m[0], t1 = m[1], t2 = m[2], t3 = m[3], t4 = m[4], t5 = m[5];
  const int32_t last = q_in - q_out + q;
  const int16_t *src = static_cast<const int16_t *>(input->data);
  int16_t *dst = static_cast<int16_t *>(output->data);
  for (int32_t ch = 0; ch < channels; ++ch) {
    const int16_t *plane = src + int64_t(ch) * w * h;
    auto at = [&](int32_t x, int32_t y) -> int32_t {
      return (x < 0 || y < 0 || x >= w || y >= h) ? 0 : plane[int64_t(y) * w + x];
    };
    for (int32_t y = 0; y < oh; ++y)
      for (int32_t x = 0; x < ow; ++x) {
        const int32_t u = (2 * x + 1) * sx - one, v = (2 * y + 1) * sy - one;
        const int32_t gx = fx_add32(fx_add32((half + fx_mul32(u, t0)) >> q, t2), (half + fx_mul32(v, t1)) >> q);
        const int32_t gy = fx_add32(fx_add32((half + fx_mul32(u, t3)) >> q, t5), (half + fx_mul32(v, t4)) >> q);
        // Source position in Q q.
        const int32_t px = fx_mul32(half + (gx >> 1), w) - half, py = fx_mul32(half + (gy >> 1), h) - half;
        const int32_t x0 = px >> q, y0 = py >> q, x1 = x0 + 1, y1 = y0 + 1;
        const int32_t a = fx_shl32(x1, q) - px, b = px - fx_shl32(x0, q);
        const int32_t c = fx_shl32(y1, q) - py, d = py - fx_shl32(y0, q);
        int32_t sum = half;
        sum = fx_add32(sum, fx_mul32((half + d * a) >> q, at(x0, y1)));
        sum = fx_add32(sum, fx_mul32((half + c * a) >> q, at(x0, y0)));
        sum = fx_add32(sum, fx_mul32((half + c * b) >> q, at(x1, y0)));
        sum = fx_add32(sum, fx_mul32((half + d * b) >> q, at(x1, y1)));
        // The rounding term stays half of one, whatever the shift.
        dst[int64_t(ch) * ow * oh + int64_t(y) * ow + x] = fx_low16(shift_plain(sum, last));
      }
  }
  return ORU_RET_OK;
}

}  // extern "C"
