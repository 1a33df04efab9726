/* face_detect IMAGE.bmp [-o OUT.bmp] [--threshold 0.7] [--iou 0.3] [--repeat N]
 *             [--keep-aspect] [--model PATH] [--method auto|0|1|2] [--input-size WxH] [--fixed]
 * Prints one "x0 y0 x1 y1 score" line per face, best first, in the image's pixels, and
 * draws the boxes on a copy of the image. --model PATH names a converted model when
 * PATH.net exists (PATH.net beside PATH.weights), else the weight file of the built-in
 * graph. --fixed runs the built-in graph in 16-bit fixed point with the Q list shipped
 * beside the weights. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "annotate.h"
#include "face_model.h"
#include "ultraface.h"

#ifndef ULTRAFACE_DEFAULT_MODEL
#define ULTRAFACE_DEFAULT_MODEL "models/ultraface/ultraface-slim-320.weights"
#endif

#define MAX_FACES ULTRAFACE_PRIORS

static int usage(void) {
  fprintf(stderr,
          "usage: face_detect IMAGE.bmp [-o OUT.bmp] [--threshold 0.7] [--iou 0.3] [--repeat N] "
          "[--keep-aspect] [--model PATH] [--method auto|0|1|2] [--input-size WxH] [--fixed]\n"
          "  --model PATH: a converted model if PATH.net exists (PATH.net and PATH.weights;\n"
          "                PATH may be given as PATH.net), else the weight file of the built-in\n"
          "                320x240 graph; by default the shipped converted face network\n"
          "  --input-size: the input size a converted model was made for (default: its own)\n"
          "  --fixed:      the built-in graph in 16-bit fixed point\n");
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

int main(int argc, char **argv) {
  const char *image_path = NULL, *out_path = NULL, *model = ULTRAFACE_DEFAULT_MODEL;
  float threshold = 0.7f, iou = 0.3f;
  int repeat = 0, keep_aspect = 0, model_given = 0, method = (int)ULTRAFACE_METHOD_PER_LAYER, method_given = 0;
  int input_w = 0, input_h = 0;
  uint32_t backend = ULTRAFACE_BACKEND_FLOAT;
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
      method = !strcmp(m, "auto") ? (int)ULTRAFACE_METHOD_PER_LAYER
               : !strcmp(m, "0")  ? 0
               : !strcmp(m, "1")  ? 1
               : !strcmp(m, "2")  ? 2
                                  : -1;
      method_given = 1;
    } else if (!strcmp(a, "--input-size") && has_value) {
      if (sscanf(argv[++i], "%dx%d", &input_w, &input_h) != 2 || input_w < 1 || input_h < 1) return usage();
    }
    else if (!strcmp(a, "--keep-aspect")) keep_aspect = 1;
    else if (!strcmp(a, "--fixed")) backend = ULTRAFACE_BACKEND_FIXED;
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
  /* a converted model when MODEL.net exists, else the built-in graph over MODEL's weights;
   * by default the shipped network file beside the default weights, which gives the
   * built-in graph's results bit for bit at the same speed */
  ultraface *net = NULL;
  face_model *converted = NULL;
  char prefix[4096];
  snprintf(prefix, sizeof prefix, "%s", model);
  size_t plen = strlen(prefix);
  if (!model_given && plen > 8 && !strcmp(prefix + plen - 8, ".weights")) prefix[plen - 8] = '\0';
  if (model_given && plen > 4 && !strcmp(prefix + plen - 4, ".net")) prefix[plen - 4] = '\0';
  if (backend == ULTRAFACE_BACKEND_FIXED || method == 1) {
    /* a network file carries no Q list, and the packed method needs the built-in graph's
     * choice of which layers keep planes: both run the built-in graph */
    net = ultraface_create_backend(model, (uint32_t)method, backend);
  } else if (face_model_exists(prefix)) {
    converted = face_model_create(prefix, input_w, input_h, method_given ? method : ORU_CG_NET_METHOD_FROM_FILE);
  } else if (input_w && (input_w != ULTRAFACE_WIDTH || input_h != ULTRAFACE_HEIGHT)) {
    fprintf(stderr, "face_detect: the built-in graph takes 320x240; give a converted model for other sizes\n");
    oru_release_matrix(&image);
    return 1;
  } else {
    net = ultraface_create(model, (uint32_t)method);
  }
  float *faces = (float *)malloc(sizeof(float) * 5 * MAX_FACES);
  if ((!net && !converted) || !faces) {
    free(faces);
    face_model_release(&converted);
    ultraface_release(&net);
    oru_release_matrix(&image);
    return 1;
  }
  int32_t n = converted ? face_model_detect(converted, image, threshold, iou, keep_aspect, faces, MAX_FACES)
                        : ultraface_detect(net, image, threshold, iou, keep_aspect, faces, MAX_FACES);
  int status = 0;
  if (n < 0) {
    fprintf(stderr, "face_detect: %s: detection failed\n", image_path);
    status = 1;
  }
  if (status == 0 && repeat > 0) {
    double *times = (double *)malloc(sizeof(double) * (size_t)repeat);
    if (times) {
      if (converted) face_model_run(converted); else ultraface_run(net); /* warm-up */
      for (int r = 0; r < repeat; ++r) {
        double t0 = now_ms();
        if (converted) face_model_run(converted); else ultraface_run(net);
        times[r] = now_ms() - t0;
      }
      qsort(times, (size_t)repeat, sizeof(double), by_value);
      double median = repeat % 2 ? times[repeat / 2] : 0.5 * (times[repeat / 2 - 1] + times[repeat / 2]);
      printf("inference: min %.3f ms, median %.3f ms over %d runs\n", times[0], median, repeat);
      free(times);
    }
  }
  if (status == 0 && out_path) {
    static const uint8_t green[3] = {0, 255, 0};
    for (int32_t i = 0; i < n; ++i) annotate_box(image, faces + 5 * i, green, 2);
    if (annotate_write_bmp(out_path, image) != 0) {
      fprintf(stderr, "face_detect: %s: cannot write the output image\n", out_path);
      status = 1;
    }
  }
  /* faces are printed once the image is written, so a failed run prints only its error */
  for (int32_t i = 0; status == 0 && i < n; ++i)
    printf("%.2f %.2f %.2f %.2f %.4f\n", faces[5 * i], faces[5 * i + 1], faces[5 * i + 2], faces[5 * i + 3],
           faces[5 * i + 4]);
  free(faces);
  face_model_release(&converted);
  ultraface_release(&net);
  oru_release_matrix(&image);
  return status;
}
