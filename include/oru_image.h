/* Image processing: the image record, the BMP codec and the pixel operations. */
#ifndef ORU_IMAGE_H
#define ORU_IMAGE_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Image container and BMP codec ==== */

#define ORU_IMAGE_KIND 8u

/* Image format codes; a code is valid below 15. */
#define ORU_IMAGE_BGR24 0u
#define ORU_IMAGE_RGB24 1u
#define ORU_IMAGE_GRAY8 2u
#define ORU_IMAGE_FORMAT_3 3u
#define ORU_IMAGE_FORMAT_4 4u
#define ORU_IMAGE_YUV420P 5u
#define ORU_IMAGE_YUV444P 6u
#define ORU_IMAGE_FORMAT_7 7u
#define ORU_IMAGE_LAB24 8u
#define ORU_IMAGE_FORMAT_9 9u
#define ORU_IMAGE_FORMAT_10 10u
#define ORU_IMAGE_FORMAT_11 11u
#define ORU_IMAGE_FORMAT_12 12u
#define ORU_IMAGE_FORMAT_13 13u
#define ORU_IMAGE_BGR48 14u

/* An image is a matrix record in its image role; release it with oru_release_matrix. */
typedef oru_matrix oru_image;

ORU_API oru_image *oru_create_image(int32_t width, int32_t height, uint32_t format);
ORU_API oru_image *oru_recreate_image(oru_image *image, int32_t width, int32_t height);
ORU_API uint32_t oru_set_image_header(oru_image *image, int32_t width, int32_t height, uint32_t format);
ORU_API uint32_t oru_set_image_data(oru_image *image, uint8_t *data, int64_t size);
/* planes: three plane pointers; sizes: the buffer size of plane 0, or the three row
 * strides for the formats 5, 12 and 13. */
ORU_API uint32_t oru_set_image_header_and_data(oru_image *image, int32_t width, int32_t height,
                                               uint32_t format, uint8_t *const planes[3],
                                               const int32_t sizes[3]);
/* mode 0 keeps the file's kind (grey or BGR), 1 gives grey, anything else BGR. */
ORU_API oru_image *oru_create_image_from_file(const char *path, uint32_t mode);
ORU_API uint32_t oru_image_write_to_file_with_level(const char *path, oru_image *image);

/* ---- end of Image container and BMP codec ---- */

/* ==== Colour-space conversion ==== */

#define ORU_COLOR_BGR2GRAY 0u
#define ORU_COLOR_BGR2RGB 2u
#define ORU_COLOR_RGB2BGR 3u
#define ORU_COLOR_BGR2YUV420P 8u
#define ORU_COLOR_YUV420P2BGR 9u
#define ORU_COLOR_BGR2LAB 13u
#define ORU_COLOR_LAB2BGR 14u
#define ORU_COLOR_BGR2YUV444P 21u
#define ORU_COLOR_YUV444P2BGR 22u

ORU_API uint32_t oru_image_color_space_convert(oru_image *dst, oru_image *src, uint32_t code);
ORU_API uint32_t oru_image_yuv420p_to_bgr24_convert(uint8_t *dst, int32_t dst_stride,
                                                    const uint8_t *const planes[3], int32_t width,
                                                    int32_t height, const int32_t strides[3]);

/* ---- end of Colour-space conversion ---- */

/* ==== Resizers ==== */

#define ORU_RESIZE_NEAREST 0u
#define ORU_RESIZE_BILINEAR 1u

ORU_API uint32_t oru_image_resizer(oru_image *dst, const oru_image *src, uint32_t method);
/* centre: x, y of the crop box in the source; box: its width and height (halved in
 * place for a YUV 4:2:0 source); dsize: the destination's width and height. */
ORU_API uint32_t oru_image_crop_resizer(oru_image *dst, const oru_image *src, const int32_t centre[2],
                                        int32_t box[2], const int32_t dsize[2]);
ORU_API uint32_t gray_image_resizer_bilinear(uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                             int32_t dst_stride, const uint8_t *src, int32_t src_width,
                                             int32_t src_height, int32_t src_stride);
ORU_API uint32_t fast_bilinear_resizer(uint8_t *dst, int32_t dst_width, int32_t dst_height,
                                       int32_t dst_stride, int32_t channels, const uint8_t *src,
                                       int32_t src_width, int32_t src_height, int32_t src_stride,
                                       uint32_t depth);
ORU_API uint32_t resizer2_linear(uint8_t *dst, int32_t dst_width, int32_t dst_height, int32_t dst_stride,
                                 const uint8_t *src, int32_t src_width, int32_t src_height,
                                 int32_t src_stride, int32_t channels);

/* ---- end of Resizers ---- */

/* ==== Rotation, crop, flip and transposition ==== */

/* ---- end of Rotation, crop, flip and transposition ---- */

/* ==== Warp and homography ==== */

/* ---- end of Warp and homography ---- */

/* ==== Control-point map deformation ==== */

/* ---- end of Control-point map deformation ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_IMAGE_H */
