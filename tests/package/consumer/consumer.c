/* A client built against an installed liborucore, once through find_package and once
 * through pkg-config: it checks the version header against the build's version and makes
 * a few calls through the exported interface. Exit status 0 is a pass. */
#include <stdio.h>
#include <string.h>

#ifdef ORU_CONSUMER_FLAT_INCLUDE
#include "orucore.h"
#else
#include <orucore/orucore.h>
#endif

#if !defined(ORUCORE_VERSION_MAJOR) || ORUCORE_VERSION < 100 * ORUCORE_VERSION_MINOR
#error "the version header gives no usable version"
#endif

static int failures = 0;
#define EXPECT(cond)                                                   \
  do {                                                                 \
    if (!(cond)) {                                                     \
      printf("consumer: failed: %s (line %d)\n", #cond, __LINE__);   \
      ++failures;                                                      \
    }                                                                  \
  } while (0)

int main(int argc, char **argv) {
  if (argc != 3) {
    printf("usage: consumer VERSION WORK_DIR\n");
    return 2;
  }
  EXPECT(strcmp(ORUCORE_VERSION_STRING, argv[1]) == 0);

  /* A BMP written and read back through the installed library. */
  char path[4096];
  snprintf(path, sizeof path, "%s/consumer.bmp", argv[2]);
  oru_image *image = oru_create_image(5, 3, ORU_IMAGE_BGR24);
  EXPECT(image != NULL);
  if (!image) return 1;
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 15; ++x) ((uint8_t *)image->data)[y * image->stride + x] = (uint8_t)(17 * y + x);
  EXPECT(oru_image_write_to_file_with_level(path, image) == ORU_RET_OK);
  oru_image *back = oru_create_image_from_file(path, 0);
  EXPECT(back != NULL && back->cols == 5 && back->rows == 3 && back->format == ORU_IMAGE_BGR24);
  if (back) {
    for (int32_t y = 0; y < 3; ++y)
      EXPECT(memcmp((uint8_t *)back->data + y * back->stride, (uint8_t *)image->data + y * image->stride, 15) == 0);
    EXPECT(oru_release_matrix(&back) == ORU_RET_OK && back == NULL);
  }
  oru_release_matrix(&image);

  /* A refused argument gives its status, not a crash. */
  EXPECT(oru_create_image(0, 3, ORU_IMAGE_BGR24) == NULL);

  if (failures == 0) printf("consumer: liborucore %s works\n", ORUCORE_VERSION_STRING);
  return failures ? 1 : 0;
}
