/* face_track FRAMES_DIR [-o OUT_DIR] [--mot OUT.txt] [--threshold 0.7] [--iou 0.3]
 *            [--max-age N] [--min-hits N] [--fixed] [--model PATH]
 * Finds the faces in every .bmp frame of FRAMES_DIR, in name order, follows them with the
 * library's SORT tracker and writes the tracks shown in each frame in the MOT text
 * format, "frame,id,x,y,w,h,score,-1,-1,-1" (frames and ids from 1, pixels of the
 * frame), to OUT.txt or standard output. -o writes every frame, under its own name,
 * with the tracks drawn and numbered. --threshold is the detector's least face score,
 * --iou the overlap a detection needs to continue a track. The closing line
 * "frames: N, tracks: T, mean detect+track per frame: X ms" goes to standard output, or
 * to standard error when the tracks themselves go to standard output. */
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "annotate.h"
#include "frame_tracker.h"
#include "ultraface.h"

#ifndef ULTRAFACE_DEFAULT_MODEL
#define ULTRAFACE_DEFAULT_MODEL "models/ultraface/ultraface-slim-320.weights"
#endif

#define MAX_FACES ULTRAFACE_PRIORS

typedef struct options {
  const char *frames_dir, *out_dir, *mot_path, *model;
  float threshold, iou;
  int max_age, min_hits, fixed, model_given;
} options;

static int usage(void) {
  fprintf(stderr,
          "usage: face_track FRAMES_DIR [-o OUT_DIR] [--mot OUT.txt] [--threshold 0.7] [--iou 0.3] "
          "[--max-age N] [--min-hits N] [--fixed] [--model PATH]\n");
  return 1;
}

static int parse(int argc, char **argv, options *o) {
  memset(o, 0, sizeof *o);
  o->model = ULTRAFACE_DEFAULT_MODEL;
  o->threshold = 0.7f, o->iou = 0.3f, o->max_age = 10, o->min_hits = 3;
  for (int i = 1; i < argc; ++i) {
    const char *a = argv[i];
    int has_value = i + 1 < argc;
    if (!strcmp(a, "-o") && has_value) o->out_dir = argv[++i];
    else if (!strcmp(a, "--mot") && has_value) o->mot_path = argv[++i];
    else if (!strcmp(a, "--threshold") && has_value) o->threshold = strtof(argv[++i], NULL);
    else if (!strcmp(a, "--iou") && has_value) o->iou = strtof(argv[++i], NULL);
    else if (!strcmp(a, "--max-age") && has_value) o->max_age = atoi(argv[++i]);
    else if (!strcmp(a, "--min-hits") && has_value) o->min_hits = atoi(argv[++i]);
    else if (!strcmp(a, "--model") && has_value) o->model = argv[++i], o->model_given = 1;
    else if (!strcmp(a, "--fixed")) o->fixed = 1;
    else if (a[0] == '-' || o->frames_dir) return 0;
    else o->frames_dir = a;
  }
  return o->frames_dir && o->max_age >= 0 && o->min_hits >= 1 && o->iou >= 0.0f && o->iou < 1.0f;
}

static double now_ms(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec * 1e3 + (double)t.tv_nsec * 1e-6;
}

static int by_name(const void *a, const void *b) { return strcmp(*(char *const *)a, *(char *const *)b); }

static void free_names(char **names, int32_t n) {
  for (int32_t i = 0; names && i < n; ++i) free(names[i]);
  free(names);
}

/* The .bmp files of dir, full paths in name order, through the library's listing, which
 * wants the folder with its separator and gives the entries in the system's order. The
 * folder is opened here first so that a bad one gets this program's message. */
static int list_frames(const char *dir, char ***names_out, int32_t *count_out) {
  DIR *d = opendir(dir);
  if (!d) {
    fprintf(stderr, "face_track: %s: cannot open the folder: %s\n", dir, strerror(errno));
    return 0;
  }
  closedir(d);
  size_t len = strlen(dir);
  char *folder = (char *)malloc(len + 2);
  oru_darray *list = oru_create_darray(&oru_darray_str_type);
  if (!folder || !list) {
    free(folder);
    oru_release_darray(&list);
    fprintf(stderr, "face_track: out of memory\n");
    return 0;
  }
  memcpy(folder, dir, len + 1);
  if (len == 0 || folder[len - 1] != '/') strcat(folder, "/");
  uint32_t st = oru_get_specfic_files_for_given_dir(list, folder, "*.bmp");
  free(folder);
  int32_t n = st == 0 ? (int32_t)list->size : 0;
  char **names = n > 0 ? (char **)calloc((size_t)n, sizeof(char *)) : NULL;
  for (int32_t i = 0; names && i < n; ++i) {
    names[i] = strdup(((char **)list->data)[i]);
    if (!names[i]) {
      free_names(names, n);
      names = NULL;
    }
  }
  oru_release_darray(&list);
  if (st != 0 || (n > 0 && !names)) {
    fprintf(stderr, "face_track: %s: cannot list the folder\n", dir);
    return 0;
  }
  if (n == 0) {
    fprintf(stderr, "face_track: %s: no .bmp frames\n", dir);
    return 0;
  }
  qsort(names, (size_t)n, sizeof(char *), by_name);
  *names_out = names;
  *count_out = n;
  return 1;
}

static const char *base_name(const char *path) {
  const char *slash = strrchr(path, '/');
  return slash ? slash + 1 : path;
}

/* A BMP starts with "BM"; anything else is refused before the decoder sees it. */
static oru_image *read_frame(const char *path) {
  FILE *f = fopen(path, "rb");
  if (!f) {
    fprintf(stderr, "face_track: %s: cannot open\n", path);
    return NULL;
  }
  unsigned char magic[2] = {0, 0};
  size_t n = fread(magic, 1, 2, f);
  fclose(f);
  if (n != 2 || magic[0] != 'B' || magic[1] != 'M') {
    fprintf(stderr, "face_track: %s: not a BMP file\n", path);
    return NULL;
  }
  oru_image *img = oru_create_image_from_file(path, 2);
  if (!img) fprintf(stderr, "face_track: %s: cannot decode the BMP file\n", path);
  return img;
}

/* The graph announces its backend on standard output, which here may carry the tracks,
 * and standard error is for this program's own one-line messages: for the time of the
 * set-up, standard output goes nowhere. */
static ultraface *create_detector(const options *o) {
  fflush(stdout);
  int saved = dup(1);
  int null_fd = open("/dev/null", O_WRONLY);
  if (saved >= 0 && null_fd >= 0) dup2(null_fd, 1);
  if (null_fd >= 0) close(null_fd);
  ultraface *net = NULL;
#ifdef ULTRAFACE_BACKEND_FIXED
  if (o->fixed) net = ultraface_create_backend(o->model, 0u, ULTRAFACE_BACKEND_FIXED);
  else
#endif
    net = ultraface_create(o->model, ULTRAFACE_METHOD_PER_LAYER);
  fflush(stdout);
  if (saved >= 0) {
    dup2(saved, 1);
    close(saved);
  }
  return net;
}

/* A growing text buffer: the tracks are written out only once every frame went well. */
typedef struct text {
  char *data;
  size_t size, capacity;
} text;

static int append_track(text *t, int32_t frame, int32_t id, const float *box, float score) {
  if (t->capacity - t->size < 128) {
    size_t c = t->capacity ? 2 * t->capacity : 1 << 16;
    char *p = (char *)realloc(t->data, c);
    if (!p) return 0;
    t->data = p, t->capacity = c;
  }
  int n = snprintf(t->data + t->size, t->capacity - t->size, "%d,%d,%.2f,%.2f,%.2f,%.2f,%.4f,-1,-1,-1\n", (int)frame,
                   (int)id, box[0], box[1], box[2] - box[0], box[3] - box[1], score);
  if (n < 0 || (size_t)n >= t->capacity - t->size) return 0;
  t->size += (size_t)n;
  return 1;
}

/* Under a temporary name, then renamed: a failed write leaves no partial file. */
static int write_text_file(const char *path, const text *t) {
  size_t len = strlen(path);
  char *tmp = (char *)malloc(len + 8);
  if (!tmp) return 0;
  snprintf(tmp, len + 8, "%s.tmp", path);
  FILE *f = fopen(tmp, "wb");
  int ok = f && fwrite(t->data ? t->data : "", 1, t->size, f) == t->size;
  if (f && fclose(f) != 0) ok = 0;
  if (!ok || rename(tmp, path) != 0) {
    remove(tmp);
    ok = 0;
  }
  free(tmp);
  return ok;
}

static char *join_path(const char *dir, const char *name) {
  size_t n = strlen(dir) + strlen(name) + 2;
  char *p = (char *)malloc(n);
  if (p) snprintf(p, n, "%s/%s", dir, name);
  return p;
}

static void draw_tracks(oru_image *frame, const frame_tracker *tracker, int32_t shown) {
  for (int32_t i = 0; i < shown; ++i) {
    const float *b = frame_tracker_boxes(tracker) + 4 * i;
    const int32_t id = frame_tracker_ids(tracker)[i] + 1;
    uint8_t colour[3];
    annotate_colour_for_id(id, colour);
    annotate_box(frame, b, colour, 2);
    /* the number sits on the box's top edge, or inside it at the top of the frame */
    int32_t x = (int32_t)b[0], y = (int32_t)b[1] - 14;
    if (x < 0) x = 0;
    if (y < 0) y = (int32_t)b[1] > 0 ? (int32_t)b[1] : 0;
    annotate_number(frame, x, y, id, colour, 2);
  }
}

/* Marks an id as seen; gives 1 the first time. */
static int first_sighting(uint8_t **seen, int32_t *capacity, int32_t id) {
  if (id >= *capacity) {
    int32_t c = *capacity ? *capacity : 256;
    while (c <= id) c *= 2;
    uint8_t *p = (uint8_t *)realloc(*seen, (size_t)c);
    if (!p) return -1;
    memset(p + *capacity, 0, (size_t)(c - *capacity));
    *seen = p, *capacity = c;
  }
  if ((*seen)[id]) return 0;
  (*seen)[id] = 1;
  return 1;
}

int main(int argc, char **argv) {
  options o;
  if (!parse(argc, argv, &o)) return usage();
#ifndef ULTRAFACE_BACKEND_FIXED
  if (o.fixed) {
    fprintf(stderr, "face_track: the fixed-point network is not available in this build\n");
    return 1;
  }
#endif
  /* a model given as a relative path that isn't there is also looked up beside the
   * source tree, so the default works from the repository root and the build folder */
  struct stat st;
  if (!o.model_given && stat(o.model, &st) != 0) {
#ifdef ULTRAFACE_SOURCE_MODEL
    o.model = ULTRAFACE_SOURCE_MODEL;
#endif
  }

  char **frames = NULL;
  int32_t frame_count = 0;
  if (!list_frames(o.frames_dir, &frames, &frame_count)) return 1;

  /* drawing over the frames being read would destroy the input */
  char *in_real = realpath(o.frames_dir, NULL), *out_real = o.out_dir ? realpath(o.out_dir, NULL) : NULL;
  const int same_folder = in_real && out_real && !strcmp(in_real, out_real);
  free(in_real);
  free(out_real);
  if (same_folder) {
    fprintf(stderr, "face_track: %s: the output folder is the frames folder\n", o.out_dir);
    free_names(frames, frame_count);
    return 1;
  }
  int made_out_dir = 0;
  if (o.out_dir && stat(o.out_dir, &st) != 0) {
    if (mkdir(o.out_dir, 0777) != 0) {
      fprintf(stderr, "face_track: %s: cannot make the output folder\n", o.out_dir);
      free_names(frames, frame_count);
      return 1;
    }
    made_out_dir = 1;
  }

  ultraface *net = create_detector(&o);
  frame_tracker *tracker = frame_tracker_create(o.max_age, o.min_hits, o.iou);
  float *faces = (float *)malloc(sizeof(float) * 5 * MAX_FACES);
  text mot = {NULL, 0, 0};
  uint8_t *seen = NULL;
  int32_t seen_capacity = 0, tracks = 0, written = 0;
  double busy_ms = 0.0;
  int ok = net && tracker && faces;
  if (!ok && net) fprintf(stderr, "face_track: out of memory\n");

  for (int32_t f = 0; ok && f < frame_count; ++f) {
    oru_image *frame = read_frame(frames[f]);
    if (!frame) {
      ok = 0;
      break;
    }
    const double t0 = now_ms();
    int32_t n = ultraface_detect(net, frame, o.threshold, 0.3f, 0, faces, MAX_FACES);
    int32_t shown = n < 0 ? -1 : frame_tracker_step(tracker, faces, n);
    busy_ms += now_ms() - t0;
    if (shown < 0) {
      fprintf(stderr, "face_track: %s: %s failed\n", frames[f], n < 0 ? "detection" : "tracking");
      ok = 0;
    }
    for (int32_t i = 0; ok && i < shown; ++i) {
      const int32_t id = frame_tracker_ids(tracker)[i];
      int first = first_sighting(&seen, &seen_capacity, id);
      ok = first >= 0 && append_track(&mot, f + 1, id + 1, frame_tracker_boxes(tracker) + 4 * i,
                                      frame_tracker_scores(tracker)[i]);
      tracks += first > 0;
      if (!ok) fprintf(stderr, "face_track: out of memory\n");
    }
    if (ok && o.out_dir) {
      draw_tracks(frame, tracker, shown);
      char *path = join_path(o.out_dir, base_name(frames[f]));
      if (!path || annotate_write_bmp(path, frame) != 0) {
        fprintf(stderr, "face_track: %s: cannot write the annotated frame\n", path ? path : o.out_dir);
        ok = 0;
      } else {
        written = f + 1;
      }
      free(path);
    }
    oru_release_matrix(&frame);
  }

  if (ok && o.mot_path && !write_text_file(o.mot_path, &mot)) {
    fprintf(stderr, "face_track: %s: cannot write the tracks\n", o.mot_path);
    ok = 0;
  }
  if (ok) {
    if (!o.mot_path) fwrite(mot.data ? mot.data : "", 1, mot.size, stdout);
    fprintf(o.mot_path ? stdout : stderr, "frames: %d, tracks: %d, mean detect+track per frame: %.3f ms\n",
            (int)frame_count, (int)tracks, busy_ms / frame_count);
  } else {
    /* a failed run leaves none of its annotated frames behind */
    for (int32_t f = 0; f < written; ++f) {
      char *path = join_path(o.out_dir, base_name(frames[f]));
      if (path) remove(path);
      free(path);
    }
    if (made_out_dir) rmdir(o.out_dir);
  }
  free(seen);
  free(mot.data);
  free(faces);
  frame_tracker_release(&tracker);
  ultraface_release(&net);
  free_names(frames, frame_count);
  return ok ? 0 : 1;
}
