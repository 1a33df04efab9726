// Q numbers: choosing the Q of a float tensor, and conversion between aif32 and ai16s.
// These refusals are silent: the graph's prepare reports on their behalf.
#include <cmath>
#include <cstdint>

#include "oru_fixed.h"

namespace {

bool is_type(const oru_tensor *t, uint32_t type) { return t->type == type; }

// Low 16 bits of an integral double of any size; a NaN gives 0.
int16_t low16(double r) {
  if (std::isnan(r) || std::isinf(r)) return 0;
  const double m = std::fmod(r, 65536.0);
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(static_cast<int32_t>(m))));
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_tensor_calc_q(int32_t *q, const oru_tensor *tensor, int32_t first, int32_t count) {
  if (!q || !tensor || first < 0 || !is_type(tensor, aif32)) return ORU_RET_ERR_PARA;
  int64_t n = count < tensor->total_elements ? count : tensor->total_elements;
  // Never read past the tensor, whatever first and count say.
  if (n > tensor->total_elements - first) n = tensor->total_elements - first;
  if (n > 0 && !tensor->data) return ORU_RET_ERR_PARA;
  const float *x = static_cast<const float *>(tensor->data) + first;
  float lo = 3.4028235e38f, hi = 1.1754944e-38f;
  for (int64_t i = 0; i < n; ++i) {
    if (x[i] < lo) lo = x[i];
    if (x[i] > hi) hi = x[i];
  }
  const float m = std::fabs(lo) > std::fabs(hi) ? lo : hi;
  for (int32_t i = 0; i <= ORU_Q_MAX; ++i) {
    const int32_t qq = ORU_Q_MAX - i;
    const float low = -static_cast<float>(std::ldexp(1.0, i));
    const float high = static_cast<float>(std::ldexp(1.0, i) - std::ldexp(1.0, -qq));
    if (m >= low && m <= high) {
      *q = qq;
      return ORU_RET_OK;
    }
  }
  return ORU_RET_ERR_PARA;
}

ORU_API uint32_t oru_tensor_transform_data_from_real32_to_fpi16(oru_tensor *dst, const oru_tensor *src,
                                                                 int32_t first, int32_t count, int32_t q) {
  if (!dst || !src || count > src->total_elements || count > dst->total_elements || q < 0 || q > ORU_Q_MAX ||
      !is_type(src, aif32) || !is_type(dst, ai16s))
    return ORU_RET_ERR_PARA;
  if (count < 1) return ORU_RET_OK;
  if (first < 0 || first + int64_t(count) > src->total_elements || first + int64_t(count) > dst->total_elements ||
      !src->data || !dst->data)
    return ORU_RET_ERR_PARA;
  const float s = static_cast<float>(std::ldexp(1.0, q));
  const float *x = static_cast<const float *>(src->data);
  int16_t *y = static_cast<int16_t *>(dst->data);
  for (int64_t i = first; i < first + int64_t(count); ++i) {
    const float p = x[i] * s;
    // No clamp: a value outside the Q's range wraps, as the fixed-point kernels expect.
    y[i] = low16(std::rint(static_cast<double>(p)));
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_transform_data_from_fpi16_to_real32(oru_tensor *dst, const oru_tensor *src,
                                                                 int32_t count, int32_t q) {
  if (!dst || !src || count > src->total_elements || count > dst->total_elements || q < 0 || q > ORU_Q_MAX ||
      !is_type(src, ai16s) || !is_type(dst, aif32))
    return ORU_RET_ERR_PARA;
  if (count < 1) return ORU_RET_OK;
  if (!src->data || !dst->data) return ORU_RET_ERR_PARA;
  const float scale = static_cast<float>(1.0 / std::ldexp(1.0, q));
  const int16_t *x = static_cast<const int16_t *>(src->data);
  float *y = static_cast<float *>(dst->data);
  for (int32_t i = 0; i < count; ++i) y[i] = static_cast<float>(x[i]) * scale;
  return ORU_RET_OK;
}

}  // extern "C"
