// Inside view of the image record: the format table, the layout helpers shared by
// the codec, the colour conversions, the resizers and the detector input.
#ifndef ORU_IMAGE_INTERNAL_H
#define ORU_IMAGE_INTERNAL_H

#include <cstdint>

#include "oru_image.h"

// Element type of each format; entry 15 is a stop value and never used.
extern const uint32_t color_map_mat_data_type[16];

namespace oru {

inline bool is_image(const oru_image *im) { return im && (im->kind & 8u) != 0; }
inline int64_t round_up4(int64_t v) { return (v + 3) & ~int64_t(3); }

// Fills a caller-owned record as a header of rows x cols of the format, with no data;
// strides follow the format's layout.
void fill_image_header(oru_image *im, int32_t width, int32_t height, uint32_t format);

// Bytes of the single block an owning image of this size and format holds.
int64_t image_block_bytes(int32_t width, int32_t height, uint32_t format);

// Points plane1/plane2 into the block at data, for the multi-plane formats.
void place_image_planes(oru_image *im);

// Frees an image made inside the library, data and record, on an error path.
void drop_image(oru_image *im);

// The same, in the shape a Guard takes.
inline uint32_t release_image_record(oru_image **im) {
  drop_image(*im);
  *im = nullptr;
  return 0;
}

// Luma of the codec and of the grey conversion; the weights add up to 16384.
inline uint8_t luma_bgr(uint32_t b, uint32_t g, uint32_t r) {
  return uint8_t((1868u * b + 9617u * g + 4899u * r + 8192u) >> 14);
}

}  // namespace oru

#endif
