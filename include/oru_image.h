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

/* Rotation about a centre: the source point (center_x, center_y) lands in the middle of
 * the destination; method 0 nearest, 1 bilinear (11-bit fixed point). */
typedef struct oru_rotation_params {
  int32_t angle;  /* whole degrees */
  float center_x;
  float center_y;
  float scale_x;  /* enlargement along the destination's columns */
  float scale_y;  /* enlargement along the destination's rows */
  int32_t method;
} oru_rotation_params;

/* Size of the bounding box of a width x height image turned by degrees. */
ORU_API uint32_t oru_precompute_rotated_image_size(int32_t *out_width, int32_t *out_height, int32_t width,
                                                   int32_t height, int32_t degrees);
/* BGR/RGB (and other 3-byte pixels), grey and YUV 4:2:0; outside pixels take the fill
 * (0, or 16 for luma and 128 for chroma). */
ORU_API uint32_t oru_image_rotation(oru_image *dst, const oru_image *src, const oru_rotation_params *params);
/* degrees 0, 90 (clockwise), 180 or 270; flip non-zero reads the source bottom row first.
 * For 90 and 270 the destination has width and height swapped (another shape is refused
 * with status 1). 1- and 3-byte pixels; 0 and 180 may work in place. */
ORU_API uint32_t oru_image_rotation_with_special_degree(oru_image *dst, const oru_image *src, int32_t degrees,
                                                        int32_t flip);
/* Even origin (x, y) and size (width, height) of the image within margins given in
 * percent, in the order left, top, right, bottom. */
ORU_API uint32_t oru_precompute_image_cropped_size(int32_t origin[2], int32_t size[2], const oru_image *image,
                                                   const int32_t margins[4]);
/* Copies the size[0] x size[1] rectangle at origin (which may stick out: edges repeat).
 * A YUV 4:2:0 source halves origin in place for the caller. */
ORU_API uint32_t oru_image_cropped_patch(oru_image *dst, const oru_image *src, int32_t origin[2],
                                         const int32_t size[2]);
/* Each row in reversed pixel order; dst may be src. */
ORU_API uint32_t oru_image_horizontal_flip(oru_image *dst, const oru_image *src);
/* The BGR source pasted on a plane in space, seen through a pinhole at the origin.
 * params: three angles in degrees and a point of the plane; null takes a fixed view. */
ORU_API uint32_t oru_image_rotation3d(oru_image *dst, const oru_image *src, const float *params);

/* ---- end of Rotation, crop, flip and transposition ---- */

/* ==== Warp and homography ==== */

#define ORU_MAP_AFFINE 0
#define ORU_MAP_PERSPECTIVE 1

typedef struct oru_map_geometry2d {
  float forward[9]; /* source to destination, row-major 3 x 3 */
  float inverse[9]; /* destination to source */
  int32_t mode;     /* ORU_MAP_AFFINE or ORU_MAP_PERSPECTIVE */
} oru_map_geometry2d;

/* points: source x, y at 0 to 7, destination x, y at 8 to 15; affine reads three pairs,
 * perspective four (corners in the order (0,0), (1,0), (1,1), (0,1) of a unit square). */
ORU_API uint32_t oru_make_map_geometry2d_transformation(oru_map_geometry2d *map, const float points[16],
                                                        int32_t mode);
/* Pulls 3-byte pixels through map->inverse; method 0 nearest, 1 bilinear. border 0
 * writes zeros outside the source, anything else leaves those pixels (affine maps). */
ORU_API uint32_t oru_image_2d_geometry_transformation_with_border_mode(oru_image *dst, const oru_image *src,
                                                                       const oru_map_geometry2d *map,
                                                                       int32_t method, int32_t border);
/* 3 x 3 aif64 result mapping count (>= 4) source points to destination points, given as
 * x, y pairs; normalised linear solution, refined by Levenberg-Marquardt above 4 points.
 * Degenerate point sets leave result as it was. */
ORU_API uint32_t oru_find_homography_transform(oru_matrix *result, const double *src_points,
                                               const double *dst_points, int32_t count);

/* ---- end of Warp and homography ---- */

/* ==== Control-point map deformation ==== */

/* out and in: maps of x, y float pairs in 0 to 1; q: targets, p: control points, n pairs
 * each. Gaussian radial basis of width sigma, lambda on the kernel's diagonal. */
ORU_API uint32_t oru_deformation_rbfmap(oru_matrix *out, const oru_matrix *in, const float *q, const float *p,
                                        int32_t n, float lambda, float sigma);

/* ---- end of Control-point map deformation ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_IMAGE_H */
