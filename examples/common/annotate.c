#include "annotate.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void put_pixel(oru_image *img, int32_t x, int32_t y, const uint8_t c[3]) {
  if (x < 0 || y < 0 || x >= img->cols || y >= img->rows) return;
  uint8_t *p = (uint8_t *)img->data + (int64_t)y * img->stride + 3 * (int64_t)x;
  p[0] = c[0], p[1] = c[1], p[2] = c[2];
}

static void fill_rect(oru_image *img, int32_t x0, int32_t y0, int32_t x1, int32_t y1, const uint8_t c[3]) {
  if (x0 < 0) x0 = 0;
  if (y0 < 0) y0 = 0;
  if (x1 > img->cols) x1 = img->cols;
  if (y1 > img->rows) y1 = img->rows;
  for (int32_t y = y0; y < y1; ++y)
    for (int32_t x = x0; x < x1; ++x) put_pixel(img, x, y, c);
}

void annotate_box(oru_image *img, const float *box, const uint8_t colour[3], int32_t thickness) {
  if (!img || !box || img->format != ORU_IMAGE_BGR24 || thickness < 1) return;
  int32_t w = img->cols, h = img->rows;
  /* boxes far outside the frame must not overflow the integer conversion */
  float b[4];
  for (int k = 0; k < 4; ++k) b[k] = box[k] < -1e6f ? -1e6f : box[k] > 1e6f ? 1e6f : box[k];
  int32_t x0 = (int32_t)b[0], y0 = (int32_t)b[1], x1 = (int32_t)b[2], y1 = (int32_t)b[3];
  if (x0 < 0) x0 = 0;
  if (y0 < 0) y0 = 0;
  if (x1 > w - 1) x1 = w - 1;
  if (y1 > h - 1) y1 = h - 1;
  if (x0 > x1 || y0 > y1) return;
  fill_rect(img, x0, y0, x1 + 1, y0 + thickness, colour);
  fill_rect(img, x0, y1 + 1 - thickness, x1 + 1, y1 + 1, colour);
  fill_rect(img, x0, y0, x0 + thickness, y1 + 1, colour);
  fill_rect(img, x1 + 1 - thickness, y0, x1 + 1, y1 + 1, colour);
}

/* Digits 0 to 9 in 3 x 5 dots, one row a byte, the leftmost dot in bit 2. */
static const uint8_t digit_rows[10][5] = {
    {7, 5, 5, 5, 7}, {2, 6, 2, 2, 7}, {7, 1, 7, 4, 7}, {7, 1, 3, 1, 7}, {5, 5, 7, 1, 1},
    {7, 4, 7, 1, 7}, {7, 4, 7, 5, 7}, {7, 1, 1, 2, 2}, {7, 5, 7, 5, 7}, {7, 5, 7, 1, 7},
};

void annotate_number(oru_image *img, int32_t x, int32_t y, int32_t number, const uint8_t colour[3], int32_t scale) {
  if (!img || img->format != ORU_IMAGE_BGR24 || number < 0 || scale < 1) return;
  char digits[16];
  int n = snprintf(digits, sizeof digits, "%d", (int)number);
  /* each digit is 3 dots wide with one dot of space, and the patch has a dot of margin */
  fill_rect(img, x, y, x + (4 * n + 1) * scale, y + 7 * scale, colour);
  const int luma = 29 * colour[0] + 150 * colour[1] + 77 * colour[2]; /* B, G, R weights / 256 */
  const uint8_t ink[3] = {luma > 128 * 256 ? 0 : 255, luma > 128 * 256 ? 0 : 255, luma > 128 * 256 ? 0 : 255};
  for (int i = 0; i < n; ++i) {
    const uint8_t *rows = digit_rows[digits[i] - '0'];
    for (int32_t r = 0; r < 5; ++r)
      for (int32_t c = 0; c < 3; ++c)
        if (rows[r] & (4 >> c)) {
          int32_t px = x + (1 + 4 * i + c) * scale, py = y + (1 + r) * scale;
          fill_rect(img, px, py, px + scale, py + scale, ink);
        }
  }
}

void annotate_colour_for_id(int32_t id, uint8_t colour[3]) {
  /* twelve saturated colours in an order that keeps neighbours apart, BGR */
  static const uint8_t palette[12][3] = {
      {0, 255, 0},   {255, 64, 0},  {0, 64, 255},  {0, 255, 255}, {255, 0, 255}, {255, 255, 0},
      {0, 160, 255}, {160, 0, 255}, {0, 128, 0},   {255, 160, 0}, {128, 0, 128}, {160, 255, 160},
  };
  const uint8_t *c = palette[(uint32_t)id % 12u];
  colour[0] = c[0], colour[1] = c[1], colour[2] = c[2];
}

int annotate_write_bmp(const char *path, oru_image *image) {
  if (!path || !image) return 1;
  size_t len = strlen(path);
  char *tmp = (char *)malloc(len + 16);
  if (!tmp) return 1;
  snprintf(tmp, len + 16, "%s.tmp.bmp", path);
  int status = 0;
  if (oru_image_write_to_file_with_level(tmp, image) != 0 || rename(tmp, path) != 0) {
    remove(tmp);
    status = 1;
  }
  free(tmp);
  return status;
}
