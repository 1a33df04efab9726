// Moves tensor data between channel layouts: CHW planes, interleaved NHWC, the grouped HWG
// of conv method 1 and the four-channel slices of NDHWC4. Elements move as 32-bit words.
#include <cstring>

#include "conv/oru_packed_hwg_internal.h"
#include "core/oru_types.h"
#include "oru_conv.h"

namespace {

using Word = uint32_t;

bool three_dims(const oru_tensor *t) { return t && t->ndims >= 3; }

// W, H and C of a tensor's first three dims, as 64-bit counts.
struct Shape {
  int64_t w, h, c;
  explicit Shape(const oru_tensor *t) : w(t->dims[0]), h(t->dims[1]), c(t->dims[2]) {}
  int64_t plane() const { return w * h; }
};

uint32_t check_pair(const oru_tensor *destination, const oru_tensor *source, uint32_t layout) {
  if (!destination || !source || !destination->data || !source->data) return ORU_RET_ERR_PARA;
  if (!three_dims(destination) || !three_dims(source)) return ORU_RET_ERR_PARA;
  if (destination->total_elements != source->total_elements || source->channel_layout != layout)
    return ORU_RET_ERR_PARA;
  if (destination->element_bytes != sizeof(Word) || source->element_bytes != sizeof(Word)) return ORU_RET_ERR_PARA;
  const Shape s(source);
  if (s.w < 0 || s.h < 0 || s.c < 0 || s.plane() * s.c > source->total_elements) return ORU_RET_ERR_PARA;
  return ORU_RET_OK;
}

// The HWG groups of a source in turn; each lane of a pixel goes to the destination index
// that to(c, q) gives for channel c and pixel q.
template <typename To>
void walk_hwg(Word *d, const Word *s, const Shape &sh, To to) {
  const int64_t plane = sh.plane();
  for (int64_t c = 0; c < sh.c; c += oru::hwg_group_width(int32_t(sh.c - c))) {
    const int g = oru::hwg_group_width(int32_t(sh.c - c));
    const Word *grp = s + c * plane;
    for (int64_t q = 0; q < plane; ++q)
      for (int j = 0; j < g; ++j) d[to(c + j, q)] = grp[q * g + j];
  }
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_tensor_convert_NCHW2NHWC(oru_tensor *destination, const oru_tensor *source) {
  if (uint32_t st = check_pair(destination, source, ORU_LAYOUT_CHW)) return st;
  const Shape sh(source);
  const Word *s = static_cast<const Word *>(source->data);
  Word *d = static_cast<Word *>(destination->data);
  const int64_t plane = sh.plane();
  for (int64_t q = 0; q < plane; ++q)
    for (int64_t c = 0; c < sh.c; ++c) *d++ = s[c * plane + q];
  destination->channel_layout = ORU_LAYOUT_NHWC;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_convert_NHWG2NCHW(oru_tensor *destination, const oru_tensor *source) {
  if (uint32_t st = check_pair(destination, source, ORU_LAYOUT_HWG)) return st;
  const Shape sh(source);
  const int64_t plane = sh.plane();
  walk_hwg(static_cast<Word *>(destination->data), static_cast<const Word *>(source->data), sh,
           [plane](int64_t c, int64_t q) { return c * plane + q; });
  destination->channel_layout = ORU_LAYOUT_CHW;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_convert_NHWG2NHWC(oru_tensor *destination, const oru_tensor *source) {
  if (uint32_t st = check_pair(destination, source, ORU_LAYOUT_HWG)) return st;
  const Shape sh(source);
  const int64_t channels = sh.c;
  walk_hwg(static_cast<Word *>(destination->data), static_cast<const Word *>(source->data), sh,
           [channels](int64_t c, int64_t q) { return q * channels + c; });
  destination->channel_layout = ORU_LAYOUT_NHWC;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_convert_NCHW2NDHWC4_real32(oru_tensor *destination, const oru_tensor *source) {
  if (!destination || !source || destination->type != aif32 || source->type != aif32) return ORU_RET_ERR_PARA;
  if (!three_dims(destination) || !three_dims(source) || source->channel_layout != ORU_LAYOUT_CHW)
    return ORU_RET_ERR_PARA;
  const Shape sh(source);
  if (sh.w < 0 || sh.h < 0 || sh.c < 0) return ORU_RET_ERR_PARA;
  const int64_t slices = (sh.c + 3) / 4, plane = sh.plane();
  if (destination->total_elements != 4 * slices * plane) return ORU_RET_ERR_PARA;
  if (slices > 0 && plane > 0) {
    if (!destination->data || !source->data || sh.c * plane > source->total_elements) return ORU_RET_ERR_PARA;
    const float *s = static_cast<const float *>(source->data);
    float *d = static_cast<float *>(destination->data);
    for (int64_t k = 0; k < slices; ++k)
      for (int64_t q = 0; q < plane; ++q)
        for (int64_t j = 0; j < 4; ++j) {
          const int64_t c = 4 * k + j;
          *d++ = c < sh.c ? s[c * plane + q] : 0.0f;
        }
  }
  destination->channel_layout = ORU_LAYOUT_NDHWC4;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_tensor_convert_NDHWC42NCHW_real32(oru_tensor *destination, const oru_tensor *source,
                                                       int32_t channels) {
  if (!destination || !source || destination->type != aif32 || source->type != aif32) return ORU_RET_ERR_PARA;
  if (!three_dims(destination) || !three_dims(source) || source->dims[0] != 4 ||
      source->channel_layout != ORU_LAYOUT_NDHWC4 || channels < 0)
    return ORU_RET_ERR_PARA;
  const int64_t w = source->dims[1], h = source->dims[2], slices = source->ndims > 3 ? source->dims[3] : 1;
  const int64_t plane = w * h;
  if (destination->total_elements != plane * channels || channels > 4 * slices) return ORU_RET_ERR_PARA;
  if (plane * channels == 0) return ORU_RET_OK;
  if (!destination->data || !source->data || 4 * slices * plane > source->total_elements) return ORU_RET_ERR_PARA;
  const float *s = static_cast<const float *>(source->data);
  float *d = static_cast<float *>(destination->data);
  for (int64_t k = 0; k < slices; ++k)
    for (int64_t j = 0; j < 4 && 4 * k + j < channels; ++j) {
      const float *lane = s + k * 4 * plane + j;
      float *dst = d + (4 * k + j) * plane;
      for (int64_t q = 0; q < plane; ++q) dst[q] = lane[4 * q];
    }
  return ORU_RET_OK;
}

}  // extern "C"
