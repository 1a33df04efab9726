// The image record: creation, re-creation and laying a header over caller buffers.
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "image/oru_image_internal.h"

const uint32_t color_map_mat_data_type[16] = {16, 16, 0, 24, 24, 16, 16, 8, 17, 16, 16, 16, 16, 16, 18, 255};

namespace oru {

void fill_image_header(oru_image *im, int32_t width, int32_t height, uint32_t format) {
  const uint32_t type = color_map_mat_data_type[format];
  std::memset(im, 0, sizeof *im);
  im->kind = ORU_IMAGE_KIND;
  im->type = type;
  im->rows = height;
  im->cols = width;
  im->depth = 1;
  im->stride = int64_t(width) * oru_data_type_bytes[type];
  im->reserved_one = 1;
  im->channel_bytes = oru::channel_bytes(type);
  im->channels = oru_data_type_bytes[32u + type];
  im->format = format;
  switch (format) {
    case ORU_IMAGE_YUV420P:
      im->stride = round_up4(width);
      im->stride1 = im->stride2 = im->stride / 2;
      break;
    case ORU_IMAGE_FORMAT_12:
    case ORU_IMAGE_FORMAT_13:
      im->stride = round_up4(width);
      break;
    case ORU_IMAGE_YUV444P:
      im->stride = im->stride1 = im->stride2 = width;
      break;
    default:
      break;
  }
}

int64_t image_block_bytes(int32_t width, int32_t height, uint32_t format) {
  switch (format) {
    case ORU_IMAGE_YUV420P:
    case ORU_IMAGE_FORMAT_12:
    case ORU_IMAGE_FORMAT_13:
      return round_up4(width) * height * 3 / 2;
    case ORU_IMAGE_YUV444P:
      return int64_t(3) * width * height;
    default:
      return int64_t(width) * oru_data_type_bytes[color_map_mat_data_type[format]] * height;
  }
}

void place_image_planes(oru_image *im) {
  uint8_t *d = static_cast<uint8_t *>(im->data);
  const int64_t area = im->stride * im->rows;
  if (im->format == ORU_IMAGE_YUV420P) {
    im->plane1 = d + area;
    im->plane2 = d + area + area / 4;
  } else if (im->format == ORU_IMAGE_YUV444P) {
    im->plane1 = d + area;
    im->plane2 = d + 2 * area;
  } else {
    im->plane1 = im->plane2 = nullptr;
  }
}

void drop_image(oru_image *im) {
  if (!im) return;
  if (im->owns_data) oru_free(im->data);
  oru_free(im);
}

}  // namespace oru

using namespace oru;

extern "C" {

ORU_API oru_image *oru_create_image(int32_t width, int32_t height, uint32_t format) {
  if (width < 1 || height < 1 || format >= 15) ORU_FAIL_MSG(nullptr, "Your input params are wrong!");
  oru_image *im = alloc_zeroed<oru_image>();
  if (!im) return nullptr;
  fill_image_header(im, width, height, format);
  if (format == ORU_IMAGE_YUV444P) im->channels = -1;
  im->data = oru_malloc(image_block_bytes(width, height, format));
  if (!im->data) {
    oru_free(im);
    return nullptr;
  }
  im->owns_data = 1;
  place_image_planes(im);
  return im;
}

ORU_API oru_image *oru_recreate_image(oru_image *image, int32_t width, int32_t height) {
  if (!image || width < 1 || height < 1) return image;
  const bool resize = width >= 4 && height >= 4;
  if (!resize) ORU_REPORT("error params!");
  if (image->owns_data) oru_free(image->data);
  image->data = nullptr;
  const int32_t w = resize ? width : image->cols, h = resize ? height : image->rows;
  if (resize) {
    const int32_t channels = image->channels;
    fill_image_header(image, w, h, image->format);
    if (image->format == ORU_IMAGE_YUV444P) image->channels = channels;
  }
  image->data = oru_malloc(image_block_bytes(w, h, image->format));
  image->owns_data = image->data != nullptr;
  place_image_planes(image);
  return image;
}

ORU_API uint32_t oru_set_image_header(oru_image *image, int32_t width, int32_t height, uint32_t format) {
  if (!image || width < 4 || height < 4 || format >= 15) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "error params!");
  fill_image_header(image, width, height, format);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_image_data(oru_image *image, uint8_t *data, int64_t size) {
  if (!is_image(image) || !data || size < 16) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "error params!");
  // A record that owns its block would leak it here; the caller must release it first.
  if (image->owns_data && image->data) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "error params!");
  if (image->stride * image->rows * image->depth > size) ORU_FAIL_MSG(ORU_RET_ERR_DATA_LENGTH, "not support!");
  image->data = data;
  image->owns_data = 0;
  switch (image->format) {
    case ORU_IMAGE_YUV420P:
      image->plane1 = data + round_up4(image->cols) * image->rows;
      image->plane2 = static_cast<uint8_t *>(image->plane1) + image->stride1 * image->rows / 2;
      return ORU_RET_OK;
    case ORU_IMAGE_FORMAT_12:
    case ORU_IMAGE_FORMAT_13:
      image->plane1 = image->plane2 = nullptr;
      return ORU_RET_OK;
    case ORU_IMAGE_YUV444P:
      image->plane1 = data + image->stride * image->rows;
      image->plane2 = data + 2 * image->stride * image->rows;
      return ORU_RET_OK;
    case ORU_IMAGE_BGR24:
    case ORU_IMAGE_RGB24:
    case ORU_IMAGE_GRAY8:
      return ORU_RET_OK;
    default:
      return ORU_RET_ERR_DATA_LENGTH;
  }
}

ORU_API uint32_t oru_set_image_header_and_data(oru_image *image, int32_t width, int32_t height,
                                               uint32_t format, uint8_t *const planes[3],
                                               const int32_t sizes[3]) {
  if (!image || width < 1 || height < 1 || !planes || !sizes || !planes[0] || sizes[0] < width)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  if (format == ORU_IMAGE_YUV420P || format == ORU_IMAGE_FORMAT_12 || format == ORU_IMAGE_FORMAT_13) {
    fill_image_header(image, width, height, format);
    image->data = planes[0];
    image->plane1 = planes[1];
    image->plane2 = planes[2];
    image->stride = sizes[0];
    image->stride1 = sizes[1];
    image->stride2 = sizes[2];
    return ORU_RET_OK;
  }
  // Refused sizes are reported but the header is still laid, as far as the format allows.
  if (oru_set_image_header(image, width, height, format) != ORU_RET_OK) {
    if (!image || format >= 15) return ORU_RET_ERR_PARA;
    fill_image_header(image, width, height, format);
  }
  return oru_set_image_data(image, planes[0], sizes[0]);
}

}  // extern "C"
