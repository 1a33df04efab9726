// Workers of the colour conversions that stay inside the library.
#ifndef ORU_IMAGE_COLOR_INTERNAL_H
#define ORU_IMAGE_COLOR_INTERNAL_H

#include <cstdint>

void convert_yuv420tobgr24_c(int32_t width, int32_t height, uint8_t *dst, int32_t dst_stride, const uint8_t *y,
                             const uint8_t *u, const uint8_t *v, int32_t y_stride, int32_t u_stride,
                             int32_t v_stride);
void convert_rgb24tobrg24_c(int32_t width, int32_t height, const uint8_t *src, int32_t stride, uint8_t *dst);

// The process-wide Lab tables, built once by init_lab_tabs.
struct LabTables {
  bool initialized;
  uint16_t sRGBGammaTab_b[256];
  uint16_t LabCbrtTab_b[3072];
  float sRGBInvGammaTab[1024 * 4];
};
extern LabTables init_lab_tabs_state;
void init_lab_tabs();

namespace oru {
// The cube root the Lab tables are built with (exponent split and a rational fit).
float lab_cbrt(float x);
}  // namespace oru

#endif
