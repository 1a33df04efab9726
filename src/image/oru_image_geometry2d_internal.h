// Plane workers of the rotations and flips that stay inside the library.
#ifndef ORU_IMAGE_GEOMETRY2D_INTERNAL_H
#define ORU_IMAGE_GEOMETRY2D_INTERNAL_H

#include <cstdint>

// One-plane rotation with 11-bit fixed-point bilinear sampling; outside pixels get fill.
void gray_image_rotation_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride,
                                  const uint8_t *src, int32_t src_width, int32_t src_height, int32_t src_stride,
                                  uint8_t fill, float scale_x, float scale_y, float angle, float center_x,
                                  float center_y);
// dst pixel (row j, column i) = src pixel (row i, column j) for a width x height source;
// strides may be negative. Eight source rows at a time, the rest by transpose_wxh_c_code.
void transpose_plane(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width,
                     int32_t height, int32_t channels);
void transpose_wxh_c_code(const uint8_t *src, int64_t src_stride, uint8_t *dst, int64_t dst_stride, int32_t width,
                          int32_t height, int32_t channels);
// Reverses the order of the three-byte pixels of a row.
void mirror_copy_row_c_code_bgr(const uint8_t *src, uint8_t *dst, int32_t width);

#endif
