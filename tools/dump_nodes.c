/* dump_nodes IMAGE.bmp OUTDIR [--model PATH] [--method 0|2] [--keep-aspect] [--fixed] [--node N]...
 * Runs the face network once on the image, prepared as face_detect prepares it, and
 * writes tensor files: input.tensor, one <layer name>.tensor per convolution (after its
 * batch norm and activation), scores.tensor, boxes.tensor, and node_<N>.tensor for each
 * --node. With --fixed the network runs in fixed point: the layer files hold the ai16s
 * outputs, q_list.txt gives "name q" for each, and scores and boxes are the floats that
 * the detector decodes. tools/compare_layers.py reads them back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ultraface.h"

#ifndef ULTRAFACE_DEFAULT_MODEL
#define ULTRAFACE_DEFAULT_MODEL "models/ultraface/ultraface-slim-320.weights"
#endif

static int dump(const char *dir, const char *name, const oru_tensor *t) {
  char path[1024];
  snprintf(path, sizeof path, "%s/%s.tensor", dir, name);
  if (!t || oru_write_tensor_to_disk(path, t) != 0) {
    fprintf(stderr, "dump_nodes: cannot write %s\n", path);
    return 1;
  }
  return 0;
}

/* The detector's float records (k per prior) as a (k, priors) tensor, as the float graph
 * gives them. */
static int dump_floats(const char *dir, const char *name, const float *values, int32_t k) {
  int32_t dims[2] = {k, ULTRAFACE_PRIORS};
  oru_tensor *t = values ? oru_create_tensor_header(2, dims, aif32) : NULL;
  int status = !t || oru_set_tensor_data(t, (void *)values, (int64_t)k * ULTRAFACE_PRIORS * 4) != 0;
  if (!status) status = dump(dir, name, t);
  if (t) oru_release_tensor(&t);
  return status;
}

static int dump_q_list(const char *dir, oru_cg_handle *g) {
  char path[1024];
  snprintf(path, sizeof path, "%s/q_list.txt", dir);
  FILE *f = fopen(path, "w");
  if (!f) return 1;
  fprintf(f, "input %d\n", (int)oru_cg_get_q_from_list(g, ULTRAFACE_NODE_INPUT));
  for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i)
    fprintf(f, "%s %d\n", ultraface_get_layer(i)->name, (int)oru_cg_get_q_from_list(g, ULTRAFACE_NODE_CONV + i));
  return fclose(f) != 0;
}

int main(int argc, char **argv) {
  const char *image_path = NULL, *dir = NULL, *model = ULTRAFACE_DEFAULT_MODEL;
  int method = 2, keep_aspect = 0, model_given = 0, extra[64], n_extra = 0, fixed = 0;
  for (int i = 1; i < argc; ++i) {
    if (!strcmp(argv[i], "--model") && i + 1 < argc) model = argv[++i], model_given = 1;
    else if (!strcmp(argv[i], "--method") && i + 1 < argc) method = atoi(argv[++i]);
    else if (!strcmp(argv[i], "--node") && i + 1 < argc && n_extra < 64) extra[n_extra++] = atoi(argv[++i]);
    else if (!strcmp(argv[i], "--keep-aspect")) keep_aspect = 1;
    else if (!strcmp(argv[i], "--fixed")) fixed = 1;
    else if (argv[i][0] != '-' && !image_path) image_path = argv[i];
    else if (argv[i][0] != '-' && !dir) dir = argv[i];
    else image_path = NULL, dir = NULL, i = argc;
  }
  if (!image_path || !dir) {
    fprintf(stderr, "usage: dump_nodes IMAGE.bmp OUTDIR [--model PATH] [--method 0|2] [--keep-aspect] [--fixed] [--node N]...\n");
    return 1;
  }
#ifdef ULTRAFACE_SOURCE_MODEL
  /* the default path is relative to the repository; fall back to the source tree's copy */
  FILE *probe = fopen(model, "rb");
  if (probe) fclose(probe);
  else if (!model_given) model = ULTRAFACE_SOURCE_MODEL;
#endif
  oru_image *image = oru_create_image_from_file(image_path, 2);
  if (!image) {
    fprintf(stderr, "dump_nodes: %s: cannot read the BMP file\n", image_path);
    return 1;
  }
  ultraface *net =
      ultraface_create_backend(model, (uint32_t)method, fixed ? ULTRAFACE_BACKEND_FIXED : ULTRAFACE_BACKEND_FLOAT);
  float *faces = (float *)malloc(sizeof(float) * 5 * ULTRAFACE_PRIORS);
  int status = !net || !faces;
  if (!status && ultraface_detect(net, image, 0.7f, 0.3f, keep_aspect, faces, ULTRAFACE_PRIORS) < 0) status = 1;
  if (!status) {
    oru_cg_handle *g = ultraface_graph(net);
    status |= dump(dir, "input", ultraface_input(net));
    for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i)
      status |= dump(dir, ultraface_get_layer(i)->name,
                     oru_get_computation_node_inference_data(g, ULTRAFACE_NODE_CONV + i));
    if (fixed) {
      status |= dump_floats(dir, "scores", ultraface_scores(net), 2);
      status |= dump_floats(dir, "boxes", ultraface_locations(net), 4);
      status |= dump_q_list(dir, g);
    } else {
      status |= dump(dir, "scores", oru_get_computation_node_inference_data(g, ULTRAFACE_NODE_SCORES));
      status |= dump(dir, "boxes", oru_get_computation_node_inference_data(g, ULTRAFACE_NODE_BOXES));
    }
    for (int k = 0; k < n_extra; ++k) {
      char name[32];
      snprintf(name, sizeof name, "node_%d", extra[k]);
      status |= dump(dir, name, oru_get_computation_node_inference_data(g, extra[k]));
    }
  }
  free(faces);
  ultraface_release(&net);
  oru_release_matrix(&image);
  return status;
}
