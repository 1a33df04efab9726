/* calibrate_q IMAGE.bmp... [-o OUT.q] [--model PATH] [--keep-aspect]
 * Calibrates the fixed-point face network: runs the float network over the images,
 * prepared as face_detect prepares them, takes each node's largest magnitude over all of
 * them, and turns it into a Q by the rule the library uses for weights (the largest Q
 * that holds it). A convolution node's magnitude also covers its convolution before the
 * bias: the fixed-point kernels store that sum in the node's Q before the bias comes, so
 * it must not wrap either. Writes the Q list that ultraface_create_backend reads ("node q" lines);
 * by default beside the weights. The input node gets Q 7: the fixed-point SSD transform
 * stores byte - 127, which is the float input (byte - 127.5) / 128 in Q 7. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ultraface.h"

#ifndef ULTRAFACE_DEFAULT_MODEL
#define ULTRAFACE_DEFAULT_MODEL "models/ultraface/ultraface-slim-320.weights"
#endif

#define INPUT_Q 7

static float largest_magnitude(const oru_tensor *t) {
  float m = 0.0f;
  const float *x = (const float *)t->data;
  for (int64_t i = 0; i < t->total_elements; ++i) {
    float a = x[i] < 0.0f ? -x[i] : x[i];
    if (a > m) m = a;
  }
  return m;
}

/* The library's own rule, on a tensor holding m and -m. */
static int q_of(float m, int32_t *q) {
  float both[2] = {m, -m};
  int32_t dims[1] = {2};
  oru_tensor *t = oru_create_tensor_header(1, dims, aif32);
  if (!t || oru_set_tensor_data(t, both, sizeof both) != 0) {
    if (t) oru_release_tensor(&t);
    return -1;
  }
  uint32_t st = oru_tensor_calc_q(q, t, 0, 2);
  oru_release_tensor(&t);
  return st == 0 ? 0 : -1;
}

/* Largest magnitude of layer i's convolution without its bias (batch norm folded into the
 * kernels) on the input the float network gave it in the last run; -1 on failure. */
static float before_bias(ultraface *net, int32_t i, float *kernels) {
  const ultraface_layer *l = ultraface_get_layer(i);
  oru_cg_handle *g = ultraface_graph(net);
  const int32_t source = ultraface_source_node(i);
  const oru_tensor *in = source == ULTRAFACE_NODE_INPUT ? ultraface_input(net)
                                                        : oru_get_computation_node_inference_data(g, source);
  if (!ultraface_weights(net) || !in) return -1.0f;
  const int32_t kk = l->kernel * l->kernel, per_out = (l->in_channels / l->groups) * kk;
  const float *w = ultraface_weights(net) + l->offset;
  const float *bn = w + l->out_channels * per_out + l->bias * l->out_channels;
  for (int32_t o = 0; o < l->out_channels; ++o) {
    const float scale = l->bn ? bn[o] / sqrtf(bn[3 * l->out_channels + o] + 1e-5f) : 1.0f;
    for (int32_t j = 0; j < per_out; ++j) kernels[o * per_out + j] = w[o * per_out + j] * scale;
  }
  oru_conv2d_params p;
  memset(&p, 0, sizeof p);
  p.in_channels = l->in_channels;
  p.out_channels = l->out_channels;
  p.kernel_w = p.kernel_h = l->kernel;
  p.stride_w = p.stride_h = l->stride;
  p.pad_w = p.pad_h = l->pad;
  p.dilation_w = p.dilation_h = 1;
  p.groups = l->groups;
  int32_t kdims[1] = {l->out_channels * per_out};
  int32_t odims[4] = {(in->dims[0] + 2 * l->pad - l->kernel) / l->stride + 1,
                      (in->dims[1] + 2 * l->pad - l->kernel) / l->stride + 1, l->out_channels, 1};
  oru_tensor *k = oru_create_tensor_header(1, kdims, aif32);
  oru_tensor *out = oru_create_tensor(in->ndims < 4 ? in->ndims : 4, odims, aif32);
  float m = -1.0f;
  if (k && out && oru_set_tensor_data(k, kernels, (int64_t)kdims[0] * 4) == 0) {
    uint32_t st = l->groups > 1 ? oru_tensor_depthwise_conv2d_chw(out, in, k, &p, NULL)
                  : l->kernel == 1 ? oru_tensor_pointwise_conv2d_chw(out, in, k, &p, NULL)
                                   : oru_tensor_std_conv2d_chw(out, in, k, &p, NULL);
    if (st == 0) m = largest_magnitude(out);
  }
  if (k) oru_release_tensor(&k);
  if (out) oru_release_tensor(&out);
  return m;
}

int main(int argc, char **argv) {
  const char *model = ULTRAFACE_DEFAULT_MODEL, *out_path = NULL, *images[64];
  int n_images = 0, keep_aspect = 0;
  for (int i = 1; i < argc; ++i) {
    if (!strcmp(argv[i], "--model") && i + 1 < argc) model = argv[++i];
    else if (!strcmp(argv[i], "-o") && i + 1 < argc) out_path = argv[++i];
    else if (!strcmp(argv[i], "--keep-aspect")) keep_aspect = 1;
    else if (argv[i][0] != '-' && n_images < 64) images[n_images++] = argv[i];
    else n_images = 0, i = argc;
  }
  if (n_images == 0) {
    fprintf(stderr, "usage: calibrate_q IMAGE.bmp... [-o OUT.q] [--model PATH] [--keep-aspect]\n");
    return 1;
  }
  char default_out[4096];
  if (!out_path) {
    if (ultraface_q_list_path(default_out, sizeof default_out, model) != 0) return 1;
    out_path = default_out;
  }
  /* the float run reads every node's output as planes: the direct kernels keep them so,
   * and they are the kernels the fixed-point graph runs */
  ultraface *net = ultraface_create(model, 0);
  if (!net) return 1;
  float largest[ULTRAFACE_FIXED_NODES];
  memset(largest, 0, sizeof largest);
  float faces[5 * 64];
  float *kernels = (float *)malloc(sizeof(float) * ULTRAFACE_WEIGHT_WORDS);
  if (!kernels) {
    ultraface_release(&net);
    return 1;
  }
  for (int k = 0; k < n_images; ++k) {
    oru_image *image = oru_create_image_from_file(images[k], 2);
    if (!image) {
      fprintf(stderr, "calibrate_q: cannot read %s\n", images[k]);
      ultraface_release(&net);
      return 1;
    }
    int32_t n = ultraface_detect(net, image, 0.7f, 0.3f, keep_aspect, faces, 64);
    oru_release_matrix(&image);
    if (n < 0) {
      fprintf(stderr, "calibrate_q: the network failed on %s\n", images[k]);
      ultraface_release(&net);
      return 1;
    }
    for (int32_t node = 0; node < ULTRAFACE_FIXED_NODES; ++node) {
      const oru_tensor *t = oru_get_computation_node_inference_data(ultraface_graph(net), node);
      if (!t || !t->data || t->type != aif32) continue;
      float m = largest_magnitude(t);
      if (m > largest[node]) largest[node] = m;
    }
    for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i) {
      float m = before_bias(net, i, kernels);
      if (m < 0.0f) {
        fprintf(stderr, "calibrate_q: cannot run layer %d alone\n", i);
        free(kernels);
        ultraface_release(&net);
        return 1;
      }
      if (m > largest[ULTRAFACE_NODE_CONV + i]) largest[ULTRAFACE_NODE_CONV + i] = m;
    }
  }
  free(kernels);
  FILE *f = fopen(out_path, "w");
  if (!f) {
    fprintf(stderr, "calibrate_q: cannot write %s\n", out_path);
    ultraface_release(&net);
    return 1;
  }
  fprintf(f, "# Q of each node's output for the fixed-point face network: the largest Q that holds\n"
             "# the node's largest magnitude over %d calibration image(s). node q\n", n_images);
  int failed = 0;
  for (int32_t node = 0; node < ULTRAFACE_FIXED_NODES && !failed; ++node) {
    int32_t q = INPUT_Q;
    if (node != ULTRAFACE_NODE_INPUT && q_of(largest[node], &q) != 0) failed = 1;
    else fprintf(f, "%d %d\n", node, q);
  }
  if (fclose(f) != 0 || failed) {
    fprintf(stderr, "calibrate_q: cannot write the Q list (a magnitude beyond Q 0?)\n");
    remove(out_path);
    ultraface_release(&net);
    return 1;
  }
  ultraface_release(&net);
  printf("%s\n", out_path);
  return 0;
}
