// Resizer workers that stay inside the library.
#ifndef ORU_IMAGE_RESIZER_INTERNAL_H
#define ORU_IMAGE_RESIZER_INTERNAL_H

#include <cstdint>

uint32_t resizer_nn(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride, const uint8_t *src,
                    int32_t src_width, int32_t src_height, int32_t src_stride, int32_t channels);
uint32_t resizer_sub_gray_image_nn_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                            int32_t dst_stride, const uint8_t *src, int32_t src_width,
                                            int32_t src_height, int32_t src_stride, int32_t box_width,
                                            int32_t box_height, int32_t left, int32_t top);

namespace oru {

// The three-channel row-table bilinear scheme, for destinations no taller than the source.
uint32_t bgr_resizer_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride,
                              const uint8_t *src, int32_t src_width, int32_t src_height, int32_t src_stride);

// Sub-image sampling of three-byte pixels used by the crop resizer for BGR sources.
uint32_t resizer_sub_bgr_image_nn_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                           int32_t dst_stride, const uint8_t *src, int32_t src_width,
                                           int32_t src_height, int32_t src_stride, int32_t box_width,
                                           int32_t box_height, int32_t left, int32_t top);

}  // namespace oru

#endif
