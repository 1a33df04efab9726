/* The C side of the tracker comparison: reads frames of detections from standard input
 * ("frame N" then one "x0 y0 x1 y1 score" line per detection), runs oru_sort_update on
 * each, and prints "frame" followed by the live tracks' ids in the library's order.
 *   oru_sort_scene MAX_AGE MIN_HITS IOU < scene.txt */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orucore.h"

#define MAX_DETECTIONS 256

static void print_frame(oru_sort_handle *handle, const float *detections, int32_t count) {
  oru_track_info *info = oru_sort_update(count ? detections : NULL, count, handle);
  if (!info) {
    printf("failed\n");
    exit(1);
  }
  printf("frame");
  for (int32_t k = 0; k < info->count; ++k) printf(" %d", info->ids[k]);
  printf("\n");
  oru_release_track_info(&info);
}

int main(int argc, char **argv) {
  if (argc != 4) return 2;
  const oru_sort_params params = {atoi(argv[1]), atoi(argv[2]), strtof(argv[3], NULL), 0.0f};
  oru_sort_handle *handle = oru_create_sort_handle(&params);
  if (!handle) return 1;
  static float detections[5 * MAX_DETECTIONS];
  int32_t count = 0, started = 0;
  char line[256];
  while (fgets(line, sizeof line, stdin)) {
    if (!strncmp(line, "frame", 5)) {
      if (started) print_frame(handle, detections, count);
      started = 1;
      count = 0;
    } else if (count < MAX_DETECTIONS) {
      float *d = detections + 5 * count;
      if (sscanf(line, "%f %f %f %f %f", d, d + 1, d + 2, d + 3, d + 4) == 5) ++count;
    }
  }
  if (started) print_frame(handle, detections, count);
  oru_release_sort_handle(&handle);
  return 0;
}
