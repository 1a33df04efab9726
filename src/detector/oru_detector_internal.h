// Detector-side helpers that stay inside the library.
#ifndef ORU_DETECTOR_INTERNAL_H
#define ORU_DETECTOR_INTERNAL_H

#include <cstdint>

// Pads a source into a destination at (top, left) with a constant per-channel value.
// The two size arrays are width, height; their widths come back multiplied by channels.
// Status 0, or 2 when the border row can't be had (the destination is then unwritten).
uint32_t copy_make_const_border_uint8(const uint8_t *src, int32_t src_stride, int32_t src_size[2], uint8_t *dst,
                                      int32_t dst_stride, int32_t dst_size[2], int32_t top, int32_t left,
                                      int32_t channels, const uint8_t *value);

namespace oru {
// The value tables of the float transforms: i / 255 and (i - 127.5) / 128.
const float *detector_unit_table();
const float *detector_norm_table();
}  // namespace oru

#endif
