/* Detector support: SSD priors, box decoding, non-maximum suppression and input preparation. */
#ifndef ORU_DETECTOR_H
#define ORU_DETECTOR_H

#include "oru_image.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== SSD priors, box decoding and NMS ==== */

/* Prior boxes (centre x, centre y, width, height; relative) for an input of
 * height x width, a tensor of dims {4, count} of aif32; swapped non-zero takes the
 * input as turned by a quarter. Release with oru_release_tensor. */
ORU_API oru_tensor *oru_generate_priors(int32_t height, int32_t width, int32_t swapped);
ORU_API void oru_convert_locations_to_boxes(float *boxes, const float *locations, const float *priors,
                                            int32_t count, float center_variance, float size_variance);
ORU_API void oru_center_form_to_corner_form(float *boxes, int32_t count);
/* Records of five floats x0, y0, x1, y1, score; returns the number kept. */
ORU_API int32_t oru_ssd_nms(float *output, const float *input, int32_t count, float threshold);

/* ---- end of SSD priors, box decoding and NMS ---- */

/* ==== Detector input preparation ==== */

ORU_API void oru_transform_image_data_for_pfld_detector(oru_tensor *tensor, const oru_image *image);
ORU_API void oru_transform_image_data_for_pfld_detector_rgb24(oru_tensor *tensor, const oru_image *image);
ORU_API void oru_transform_image_data_for_pfld_detector_fp16(oru_tensor *tensor, const oru_image *image);
ORU_API void oru_transform_image_data_for_pfld_detector_rgb24_fp16(oru_tensor *tensor,
                                                                   const oru_image *image);
ORU_API void oru_transform_image_data_for_ssd_detector(oru_tensor *tensor, const oru_image *image);
ORU_API void oru_transform_image_data_for_ssd_detector_rgb24(oru_tensor *tensor, const oru_image *image);
ORU_API void oru_transform_image_data_for_ssd_detector_fp16(oru_tensor *tensor, const oru_image *image);
ORU_API void oru_transform_image_data_for_ssd_detector_rgb24_fp16(oru_tensor *tensor,
                                                                  const oru_image *image);
ORU_API oru_image *oru_create_border_image(int32_t *top, int32_t *bottom, int32_t *left, int32_t *right,
                                           const oru_image *image, float ratio);
ORU_API uint32_t oru_image_cropped_patch_with_border(oru_image *dst, const int32_t dst_origin[2],
                                                     const oru_image *src, const int32_t src_origin[2],
                                                     const int32_t size[2]);
ORU_API uint32_t oru_convert_rgba_to_rgb(uint8_t *dst, const uint8_t *src, int32_t width, int32_t height);

/* ---- end of Detector input preparation ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_DETECTOR_H */
