/* face_detect IMAGE.bmp [-o OUT.bmp] [--threshold 0.7] [--iou 0.3] [--repeat N]
 *             [--keep-aspect] [--model PATH] [--method auto|0|1|2]
 * Prints one "x0 y0 x1 y1 score" line per face, best first, in the image's pixels, and
 * draws the boxes on a copy of the image. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "ultraface.h"

#ifndef ULTRAFACE_DEFAULT_MODEL
#define ULTRAFACE_DEFAULT_MODEL "models/ultraface/ultraface-slim-320.weights"
#endif

#define MAX_FACES ULTRAFACE_PRIORS

static int usage(void) {
  fprintf(stderr,
          "usage: face_detect IMAGE.bmp [-o OUT.bmp] [--threshold 0.7] [--iou 0.3] [--repeat N] "
          "[--keep-aspect] [--model PATH] [--method auto|0|1|2]\n");
  return 1;
}

static double now_ms(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec * 1e3 + (double)t.tv_nsec * 1e-6;
}

static int by_value(const void *a, const void *b) {
  double x = *(const double *)a, y = *(const double *)b;
  return (x > y) - (x < y);
}

/* A BMP starts with "BM"; anything else is refused before the decoder sees it, so the
 * message can say what is wrong. */
static int looks_like_bmp(const char *path, const char **why) {
  FILE *f = fopen(path, "rb");
  if (!f) {
    *why = "cannot open";
    return 0;
  }
  unsigned char magic[2] = {0, 0};
  size_t n = fread(magic, 1, 2, f);
  fclose(f);
  if (n != 2 || magic[0] != 'B' || magic[1] != 'M') {
    *why = "not a BMP file";
    return 0;
  }
  return 1;
}

static void draw_box(oru_image *img, const float *r) {
  int32_t w = img->cols, h = img->rows;
  int32_t x0 = (int32_t)r[0], y0 = (int32_t)r[1], x1 = (int32_t)r[2], y1 = (int32_t)r[3];
  if (x0 < 0) x0 = 0;
  if (y0 < 0) y0 = 0;
  if (x1 > w - 1) x1 = w - 1;
  if (y1 > h - 1) y1 = h - 1;
  if (x0 > x1 || y0 > y1) return;
  uint8_t *base = (uint8_t *)img->data;
  for (int32_t t = 0; t < 2; ++t) {
    for (int32_t x = x0; x <= x1; ++x) {
      for (int32_t k = 0; k < 2; ++k) {
        int32_t y = k ? y1 - t : y0 + t;
        if (y < 0 || y >= h) continue;
        uint8_t *p = base + (int64_t)y * img->stride + 3 * x;
        p[0] = 0, p[1] = 255, p[2] = 0;
      }
    }
    for (int32_t y = y0; y <= y1; ++y) {
      for (int32_t k = 0; k < 2; ++k) {
        int32_t x = k ? x1 - t : x0 + t;
        if (x < 0 || x >= w) continue;
        uint8_t *p = base + (int64_t)y * img->stride + 3 * x;
        p[0] = 0, p[1] = 255, p[2] = 0;
      }
    }
  }
}

int main(int argc, char **argv) {
  const char *image_path = NULL, *out_path = NULL, *model = ULTRAFACE_DEFAULT_MODEL;
  float threshold = 0.7f, iou = 0.3f;
  int repeat = 0, keep_aspect = 0, model_given = 0, method = (int)ULTRAFACE_METHOD_PER_LAYER;
  for (int i = 1; i < argc; ++i) {
    const char *a = argv[i];
    int has_value = i + 1 < argc;
    if (!strcmp(a, "-o") && has_value) out_path = argv[++i];
    else if (!strcmp(a, "--threshold") && has_value) threshold = strtof(argv[++i], NULL);
    else if (!strcmp(a, "--iou") && has_value) iou = strtof(argv[++i], NULL);
    else if (!strcmp(a, "--repeat") && has_value) repeat = atoi(argv[++i]);
    else if (!strcmp(a, "--model") && has_value) model = argv[++i], model_given = 1;
    else if (!strcmp(a, "--method") && has_value) {
      const char *m = argv[++i];
      method = !strcmp(m, "auto") ? (int)ULTRAFACE_METHOD_PER_LAYER : !strcmp(m, "0") ? 0 : !strcmp(m, "1") ? 1 : !strcmp(m, "2") ? 2 : -1;
    }
    else if (!strcmp(a, "--keep-aspect")) keep_aspect = 1;
    else if (a[0] == '-' || image_path) return usage();
    else image_path = a;
  }
  if (!image_path || repeat < 0 || method < 0) return usage();

  /* A model given as a relative path that isn't there is also looked up beside the
   * source tree, so the default works from the repository root and the build folder. */
  struct stat st;
  if (!model_given && stat(model, &st) != 0) {
#ifdef ULTRAFACE_SOURCE_MODEL
    model = ULTRAFACE_SOURCE_MODEL;
#endif
  }

  const char *why = NULL;
  if (!looks_like_bmp(image_path, &why)) {
    fprintf(stderr, "face_detect: %s: %s\n", image_path, why);
    return 1;
  }
  oru_image *image = oru_create_image_from_file(image_path, 2);
  if (!image) {
    fprintf(stderr, "face_detect: %s: cannot decode the BMP file\n", image_path);
    return 1;
  }
  ultraface *net = ultraface_create(model, (uint32_t)method);
  float *faces = (float *)malloc(sizeof(float) * 5 * MAX_FACES);
  if (!net || !faces) {
    free(faces);
    ultraface_release(&net);
    oru_release_matrix(&image);
    return 1;
  }
  int32_t n = ultraface_detect(net, image, threshold, iou, keep_aspect, faces, MAX_FACES);
  int status = 0;
  if (n < 0) {
    fprintf(stderr, "face_detect: %s: detection failed\n", image_path);
    status = 1;
  }
  if (status == 0 && repeat > 0) {
    double *times = (double *)malloc(sizeof(double) * (size_t)repeat);
    if (times) {
      ultraface_run(net); /* warm-up */
      for (int r = 0; r < repeat; ++r) {
        double t0 = now_ms();
        ultraface_run(net);
        times[r] = now_ms() - t0;
      }
      qsort(times, (size_t)repeat, sizeof(double), by_value);
      double median = repeat % 2 ? times[repeat / 2] : 0.5 * (times[repeat / 2 - 1] + times[repeat / 2]);
      printf("inference: min %.3f ms, median %.3f ms over %d runs\n", times[0], median, repeat);
      free(times);
    }
  }
  if (status == 0 && out_path) {
    for (int32_t i = 0; i < n; ++i) draw_box(image, faces + 5 * i);
    /* written under a temporary name and renamed, so a failed write leaves no partial file */
    size_t len = strlen(out_path);
    char *tmp = (char *)malloc(len + 16);
    if (!tmp) {
      status = 1;
    } else {
      snprintf(tmp, len + 16, "%s.tmp.bmp", out_path);
      if (oru_image_write_to_file_with_level(tmp, image) != 0 || rename(tmp, out_path) != 0) {
        remove(tmp);
        fprintf(stderr, "face_detect: %s: cannot write the output image\n", out_path);
        status = 1;
      }
      free(tmp);
    }
  }
  /* faces are printed once the image is written, so a failed run prints only its error */
  for (int32_t i = 0; status == 0 && i < n; ++i)
    printf("%.2f %.2f %.2f %.2f %.4f\n", faces[5 * i], faces[5 * i + 1], faces[5 * i + 2], faces[5 * i + 3],
           faces[5 * i + 4]);
  free(faces);
  ultraface_release(&net);
  oru_release_matrix(&image);
  return status;
}
