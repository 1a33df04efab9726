/* The 320x240 face detector as a computation graph: the backbone and heads through the
 * block builders, and the heads' NCHW output turned into prior-major records with the
 * shape operators, so that the graph's last nodes are the scores and locations. */
#include "ultraface.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define L(name, in, out, k, s, p, g, b, bn, relu, count) {name, in, out, k, s, p, g, b, bn, relu, 0, count}

/* Mirrors the converter's layer list; offsets are filled in from the counts. */
static ultraface_layer layers[ULTRAFACE_LAYERS] = {
    L("base_net.0.0", 3, 16, 3, 2, 1, 1, 0, 1, 1, 496),
    L("base_net.1.0", 16, 16, 3, 1, 1, 16, 0, 1, 1, 208),
    L("base_net.1.3", 16, 32, 1, 1, 0, 1, 0, 1, 1, 640),
    L("base_net.2.0", 32, 32, 3, 2, 1, 32, 0, 1, 1, 416),
    L("base_net.2.3", 32, 32, 1, 1, 0, 1, 0, 1, 1, 1152),
    L("base_net.3.0", 32, 32, 3, 1, 1, 32, 0, 1, 1, 416),
    L("base_net.3.3", 32, 32, 1, 1, 0, 1, 0, 1, 1, 1152),
    L("base_net.4.0", 32, 32, 3, 2, 1, 32, 0, 1, 1, 416),
    L("base_net.4.3", 32, 64, 1, 1, 0, 1, 0, 1, 1, 2304),
    L("base_net.5.0", 64, 64, 3, 1, 1, 64, 0, 1, 1, 832),
    L("base_net.5.3", 64, 64, 1, 1, 0, 1, 0, 1, 1, 4352),
    L("base_net.6.0", 64, 64, 3, 1, 1, 64, 0, 1, 1, 832),
    L("base_net.6.3", 64, 64, 1, 1, 0, 1, 0, 1, 1, 4352),
    L("base_net.7.0", 64, 64, 3, 1, 1, 64, 0, 1, 1, 832),
    L("base_net.7.3", 64, 64, 1, 1, 0, 1, 0, 1, 1, 4352),
    L("classification_headers.0.0", 64, 64, 3, 1, 1, 64, 1, 0, 1, 640),
    L("classification_headers.0.2", 64, 6, 1, 1, 0, 1, 1, 0, 0, 390),
    L("regression_headers.0.0", 64, 64, 3, 1, 1, 64, 1, 0, 1, 640),
    L("regression_headers.0.2", 64, 12, 1, 1, 0, 1, 1, 0, 0, 780),
    L("base_net.8.0", 64, 64, 3, 2, 1, 64, 0, 1, 1, 832),
    L("base_net.8.3", 64, 128, 1, 1, 0, 1, 0, 1, 1, 8704),
    L("base_net.9.0", 128, 128, 3, 1, 1, 128, 0, 1, 1, 1664),
    L("base_net.9.3", 128, 128, 1, 1, 0, 1, 0, 1, 1, 16896),
    L("base_net.10.0", 128, 128, 3, 1, 1, 128, 0, 1, 1, 1664),
    L("base_net.10.3", 128, 128, 1, 1, 0, 1, 0, 1, 1, 16896),
    L("classification_headers.1.0", 128, 128, 3, 1, 1, 128, 1, 0, 1, 1280),
    L("classification_headers.1.2", 128, 4, 1, 1, 0, 1, 1, 0, 0, 516),
    L("regression_headers.1.0", 128, 128, 3, 1, 1, 128, 1, 0, 1, 1280),
    L("regression_headers.1.2", 128, 8, 1, 1, 0, 1, 1, 0, 0, 1032),
    L("base_net.11.0", 128, 128, 3, 2, 1, 128, 0, 1, 1, 1664),
    L("base_net.11.3", 128, 256, 1, 1, 0, 1, 0, 1, 1, 33792),
    L("base_net.12.0", 256, 256, 3, 1, 1, 256, 0, 1, 1, 3328),
    L("base_net.12.3", 256, 256, 1, 1, 0, 1, 0, 1, 1, 66560),
    L("classification_headers.2.0", 256, 256, 3, 1, 1, 256, 1, 0, 1, 2560),
    L("classification_headers.2.2", 256, 4, 1, 1, 0, 1, 1, 0, 0, 1028),
    L("regression_headers.2.0", 256, 256, 3, 1, 1, 256, 1, 0, 1, 2560),
    L("regression_headers.2.2", 256, 8, 1, 1, 0, 1, 1, 0, 0, 2056),
    L("extras.0.0", 256, 64, 1, 1, 0, 1, 1, 0, 1, 16448),
    L("extras.0.2.0", 64, 64, 3, 2, 1, 64, 1, 0, 1, 640),
    L("extras.0.2.2", 64, 256, 1, 1, 0, 1, 1, 0, 1, 16640),
    L("classification_headers.3", 256, 6, 3, 1, 1, 1, 1, 0, 0, 13830),
    L("regression_headers.3", 256, 12, 3, 1, 1, 1, 1, 0, 0, 27660),
};
#undef L

/* The layer whose output feeds layer i; -1 is the input image. The heads branch off the
 * backbone at layers 14, 24 and 32 and off the extra block at 39. */
static int32_t source_layer(int32_t i) {
  switch (i) {
    case 0: return -1;
    case 17: case 19: return 14;
    case 27: case 29: return 24;
    case 35: case 37: return 32;
    case 41: return 39;
    default: return i - 1;
  }
}

int32_t ultraface_source_node(int32_t index) {
  if (index < 0 || index >= ULTRAFACE_LAYERS) return -1;
  int32_t src = source_layer(index);
  return src < 0 ? ULTRAFACE_NODE_INPUT : ULTRAFACE_NODE_CONV + src;
}

/* The eight heads in the order their nodes are numbered: conv node, channels, class head. */
static const struct { int32_t node, channels, scores; } heads[8] = {
    {ULTRAFACE_NODE_CLS0, 6, 1},  {ULTRAFACE_NODE_REG0, 12, 0}, {ULTRAFACE_NODE_CLS1, 4, 1},
    {ULTRAFACE_NODE_REG1, 8, 0},  {ULTRAFACE_NODE_CLS2, 4, 1},  {ULTRAFACE_NODE_REG2, 8, 0},
    {ULTRAFACE_NODE_CLS3, 6, 1},  {ULTRAFACE_NODE_REG3, 12, 0},
};

struct ultraface {
  oru_cg_handle *graph;
  uint32_t backend;
  float *fixed_scores;    /* fixed point: 4420 x 2 after the softmax */
  float *fixed_locations; /* fixed point: 4420 x 4 */
  float *weights;
  oru_tensor *input;
  oru_tensor *layer_weights[ULTRAFACE_LAYERS];
  oru_tensor *priors;
  oru_image *resized;
  float *decoded;    /* 4420 x 4 */
  float *candidates; /* 4420 x 5 */
  float *kept;       /* 4420 x 5 */
};

static void fill_offsets(void) {
  int32_t offset = 0;
  for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i) {
    layers[i].offset = offset;
    offset += layers[i].count;
  }
}

const ultraface_layer *ultraface_get_layer(int32_t index) {
  if (index < 0 || index >= ULTRAFACE_LAYERS) return NULL;
  fill_offsets();
  return &layers[index];
}

/* Word count a layer needs: kernels, bias, then gamma, beta, mean, var. */
static int32_t expected_words(const ultraface_layer *l) {
  return l->out_channels * (l->in_channels / l->groups) * l->kernel * l->kernel + l->bias * l->out_channels +
         l->bn * 4 * l->out_channels;
}

static int32_t head_first_node(int32_t h) {
  int32_t node = ULTRAFACE_NODE_HEADS;
  for (int32_t k = 0; k < h; ++k) node += 3 + heads[k].channels;
  return node;
}

static uint32_t add_layer_edges(oru_cg_handle *g) {
  uint32_t st = 0;
  for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i) {
    int32_t src = source_layer(i);
    st |= oru_add_one_edge_into_computation_graph(g, src < 0 ? ULTRAFACE_NODE_INPUT : ULTRAFACE_NODE_CONV + src,
                                                  ULTRAFACE_NODE_CONV + i);
    st |= oru_add_one_edge_into_computation_graph(g, ULTRAFACE_NODE_WEIGHT + i, ULTRAFACE_NODE_CONV + i);
  }
  return st;
}

static uint32_t add_edges(oru_cg_handle *g) {
  uint32_t st = add_layer_edges(g);
  for (int32_t h = 0; h < 8; ++h) {
    int32_t first = head_first_node(h), c = heads[h].channels;
    int32_t concat = first + 1 + c, last = first + 2 + c;
    st |= oru_add_one_edge_into_computation_graph(g, heads[h].node, first);
    for (int32_t k = 0; k < c; ++k) {
      st |= oru_add_one_edge_into_computation_graph(g, first, first + 1 + k);
      st |= oru_add_one_edge_into_computation_graph(g, first + 1 + k, concat);
    }
    st |= oru_add_one_edge_into_computation_graph(g, concat, last);
    st |= oru_add_one_edge_into_computation_graph(
        g, last, heads[h].scores ? ULTRAFACE_NODE_SCORES_CONCAT : ULTRAFACE_NODE_BOXES);
  }
  st |= oru_add_one_edge_into_computation_graph(g, ULTRAFACE_NODE_SCORES_CONCAT, ULTRAFACE_NODE_SCORES);
  return st;
}

static uint32_t bind_desc(oru_cg_handle *g, int32_t node, int32_t op, oru_tensor *t, const void *params) {
  oru_cg_node_desc desc;
  memset(&desc, 0, sizeof desc);
  desc.op_type = op;
  desc.tensor = t;
  return oru_bind_operator_onto_computation_graph(g, node, &desc, params);
}

static uint32_t bind_backbone_and_heads(oru_cg_handle *g) {
  const int32_t n = ULTRAFACE_NODE_CONV;
  uint32_t st = oru_bind_base_net_conv_bn(3, 16, 2, n + 0, g);
  /* base_net.1 to 7 */
  st |= oru_bind_base_net_conv_dw(16, 32, 1, n + 1, g);
  st |= oru_bind_base_net_conv_dw(32, 32, 2, n + 3, g);
  st |= oru_bind_base_net_conv_dw(32, 32, 1, n + 5, g);
  st |= oru_bind_base_net_conv_dw(32, 64, 2, n + 7, g);
  st |= oru_bind_base_net_conv_dw(64, 64, 1, n + 9, g);
  st |= oru_bind_base_net_conv_dw(64, 64, 1, n + 11, g);
  st |= oru_bind_base_net_conv_dw(64, 64, 1, n + 13, g);
  st |= oru_bind_seperable_conv2d(64, 6, 1, n + 15, g);
  st |= oru_bind_seperable_conv2d(64, 12, 1, n + 17, g);
  /* base_net.8 to 10 */
  st |= oru_bind_base_net_conv_dw(64, 128, 2, n + 19, g);
  st |= oru_bind_base_net_conv_dw(128, 128, 1, n + 21, g);
  st |= oru_bind_base_net_conv_dw(128, 128, 1, n + 23, g);
  st |= oru_bind_seperable_conv2d(128, 4, 1, n + 25, g);
  st |= oru_bind_seperable_conv2d(128, 8, 1, n + 27, g);
  /* base_net.11 and 12 */
  st |= oru_bind_base_net_conv_dw(128, 256, 2, n + 29, g);
  st |= oru_bind_base_net_conv_dw(256, 256, 1, n + 31, g);
  st |= oru_bind_seperable_conv2d(256, 4, 1, n + 33, g);
  st |= oru_bind_seperable_conv2d(256, 8, 1, n + 35, g);
  st |= oru_bind_extra_net(16, 2, n + 37, g);
  st |= oru_bind_std_conv2d(256, 6, 0, n + 40, g);
  st |= oru_bind_std_conv2d(256, 12, 0, n + 41, g);
  return st;
}

/* The kernel family that is fastest for a layer's shape, from the per-layer table of
 * bench_face_layers: im2col + GEMM for the full 3x3 stride 1 convolutions of the last
 * heads (deep inputs on small planes), the direct kernels for everything else (pointwise
 * and stride-2 kernels keep a tile of outputs in registers over all input channels). */
static uint32_t fastest_method(const ultraface_layer *l) {
  return l->groups == 1 && l->kernel > 1 && l->stride == 1 ? 2u : 0u;
}

/* The same nodes as the builders bind, one layer at a time from the table, so that each
 * convolution can take its own kernel family. The builders take one method per block,
 * and a block pairs a depthwise with a pointwise layer. */
static int is_head_source(int32_t i) {
  for (int32_t h = 0; h < 8; ++h)
    if (heads[h].node == ULTRAFACE_NODE_CONV + i) return 1;
  return 0;
}

/* Fixed point has its kernels under the direct method only. Packed HWG layers hand their
 * interleaved output on to the next layer; the layers that feed the heads' shape operators
 * keep planes. */
static uint32_t layer_method(const ultraface_layer *l, int32_t i, int fixed, int packed) {
  if (fixed) return 0u;
  if (packed && !is_head_source(i)) return 1u;
  return fastest_method(l);
}

static uint32_t bind_layers_each_with_its_method(oru_cg_handle *g, int fixed, int packed) {
  uint32_t st = 0;
  for (int32_t i = 0; i < ULTRAFACE_LAYERS && st == 0; ++i) {
    const ultraface_layer *l = &layers[i];
    oru_conv2d_bn2d_act_params p;
    memset(&p, 0, sizeof p);
    p.conv.in_channels = l->in_channels;
    p.conv.out_channels = l->out_channels;
    p.conv.kernel_w = p.conv.kernel_h = l->kernel;
    p.conv.stride_w = p.conv.stride_h = l->stride;
    p.conv.pad_w = p.conv.pad_h = l->pad;
    p.conv.dilation_w = p.conv.dilation_h = 1;
    p.conv.groups = l->groups;
    p.conv.has_bias = l->bias;
    st = oru_cg_set_conv_method(g, layer_method(l, i, fixed, packed));
    if (st) break;
    const int32_t node = ULTRAFACE_NODE_CONV + i;
    if (l->bn) {
      p.bn_eps = 1e-5f;
      p.act = l->relu ? ORU_ACT_RELU : ORU_ACT_NONE;
      st = bind_desc(g, node, 13, NULL, &p);
    } else if (l->relu) {
      oru_conv2d_act_params a;
      memset(&a, 0, sizeof a);
      a.conv = p.conv;
      a.act = ORU_ACT_RELU;
      st = bind_desc(g, node, 12, NULL, &a);
    } else {
      st = bind_desc(g, node, l->kernel == 1 ? 5 : 3, NULL, &p.conv);
    }
  }
  return st;
}

/* NCHW head (W, H, C) -> records of C / k values per prior, pixel-major, channel-minor:
 * view it as (1, W*H, C), take each channel plane (1, W*H, 1), and interleave them with a
 * concat along dims[0]; then regroup as (k, -1). */
static uint32_t bind_head_reorder(oru_cg_handle *g, int32_t h) {
  int32_t first = head_first_node(h), c = heads[h].channels;
  int32_t ids[12];
  oru_cg_reshape_params flat = {3, {1, -1, c, 0, 0}};
  uint32_t st = bind_desc(g, first, 32, NULL, &flat);
  for (int32_t k = 0; k < c; ++k) {
    oru_cg_split_params split = {0, c, k, 1, 0};
    ids[k] = first + 1 + k;
    st |= bind_desc(g, ids[k], 34, NULL, &split);
  }
  oru_cg_concat_params interleave = {0, c, ids};
  st |= bind_desc(g, first + 1 + c, 33, NULL, &interleave);
  oru_cg_reshape_params records = {2, {heads[h].scores ? 2 : 4, -1, 0, 0, 0}};
  st |= bind_desc(g, first + 2 + c, 32, NULL, &records);
  return st;
}

static uint32_t bind_outputs(oru_cg_handle *g) {
  int32_t score_ids[4], box_ids[4], ns = 0, nb = 0;
  for (int32_t h = 0; h < 8; ++h) {
    int32_t last = head_first_node(h) + 2 + heads[h].channels;
    if (heads[h].scores)
      score_ids[ns++] = last;
    else
      box_ids[nb++] = last;
  }
  /* (k, n_i) pieces along the top dimension simply follow each other */
  oru_cg_concat_params scores = {1, 4, score_ids}, boxes = {1, 4, box_ids};
  uint32_t st = bind_desc(g, ULTRAFACE_NODE_SCORES_CONCAT, 33, NULL, &scores);
  st |= bind_desc(g, ULTRAFACE_NODE_BOXES, 33, NULL, &boxes);
  st |= bind_desc(g, ULTRAFACE_NODE_SCORES, 24, NULL, NULL);
  return st;
}

void ultraface_release(ultraface **net) {
  if (!net || !*net) return;
  ultraface *u = *net;
  *net = NULL;
  if (u->graph) oru_release_computation_graph_handle(&u->graph);
  for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i)
    if (u->layer_weights[i]) oru_release_tensor(&u->layer_weights[i]);
  if (u->input) oru_release_tensor(&u->input);
  if (u->priors) oru_release_tensor(&u->priors);
  if (u->resized) oru_release_matrix(&u->resized);
  free(u->weights);
  free(u->decoded);
  free(u->candidates);
  free(u->kept);
  free(u->fixed_scores);
  free(u->fixed_locations);
  free(u);
}

static ultraface *fail(ultraface *u, const char *what, const char *path) {
  fprintf(stderr, "ultraface: %s%s%s\n", what, path ? ": " : "", path ? path : "");
  ultraface_release(&u);
  return NULL;
}

static int32_t *load_q_list(const char *weights_path, const char **why);

/* The fixed-point graph: the input, the convolutions and their weights, all under the
 * direct method. The heads' reordering and the softmax work on floats, so they are done
 * after the run, on the heads scaled back by their Q. */
static ultraface *build_fixed(ultraface *u, const char *weights_path) {
  const char *why = NULL;
  int32_t *q_list = load_q_list(weights_path, &why);
  if (!q_list) return fail(u, why, weights_path);
  oru_cg_params params = {256, 1, 0, 0, ORU_CG_BACKEND_FIXED};
  u->graph = oru_create_computation_graph_handle(&params);
  if (!u->graph) {
    oru_free(q_list);
    return fail(u, "cannot create the graph", NULL);
  }
  if (oru_cg_set_ptr_q_list(u->graph, q_list) != 0) {
    oru_free(q_list);
    return fail(u, "cannot set the Q list", NULL);
  }
  if (add_layer_edges(u->graph) != 0 || oru_computation_graph_topo_sort(u->graph) != 0)
    return fail(u, "cannot build the graph", NULL);
  uint32_t st = bind_desc(u->graph, ULTRAFACE_NODE_INPUT, 0, u->input, NULL);
  for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i)
    st |= bind_desc(u->graph, ULTRAFACE_NODE_WEIGHT + i, 2, u->layer_weights[i], NULL);
  st |= bind_layers_each_with_its_method(u->graph, 1, 0);
  if (st != 0) return fail(u, "cannot bind the graph", NULL);
  if (oru_prepare_inference_computation(u->graph) != 0) return fail(u, "cannot prepare the graph", NULL);
  return u;
}

/* Fixed point after a run: each head (W, H, C) in its Q, scaled back and laid out as the
 * float graph's records, prior by prior (pixel-major, anchor-minor); scores softmaxed. */
static uint32_t gather_fixed_heads(ultraface *u) {
  int32_t score_at = 0, box_at = 0;
  for (int32_t h = 0; h < 8; ++h) {
    const oru_tensor *t = oru_get_computation_node_inference_data(u->graph, heads[h].node);
    const int32_t q = (int32_t)oru_cg_get_q_from_list(u->graph, heads[h].node);
    if (!t || !t->data || t->type != ai16s || q < 0 || q > 15 || t->dims[2] != heads[h].channels)
      return ORU_RET_ERR_PARA;
    const int32_t c = heads[h].channels, plane = t->dims[0] * t->dims[1];
    float *dst = heads[h].scores ? u->fixed_scores + score_at : u->fixed_locations + box_at;
    const int32_t room = heads[h].scores ? 2 * ULTRAFACE_PRIORS - score_at : 4 * ULTRAFACE_PRIORS - box_at;
    if (plane * c > room) return ORU_RET_ERR_PARA;
    const int16_t *v = (const int16_t *)t->data;
    const float scale = 1.0f / (float)(1 << q);
    for (int32_t p = 0; p < plane; ++p)
      for (int32_t k = 0; k < c; ++k) dst[p * c + k] = (float)v[k * plane + p] * scale;
    if (heads[h].scores)
      score_at += plane * c;
    else
      box_at += plane * c;
  }
  if (score_at != 2 * ULTRAFACE_PRIORS || box_at != 4 * ULTRAFACE_PRIORS) return ORU_RET_ERR_PARA;
  for (int32_t i = 0; i < ULTRAFACE_PRIORS; ++i) {
    float *s = u->fixed_scores + 2 * i;
    const float m = s[0] > s[1] ? s[0] : s[1];
    double e[2] = {(double)(s[0] - m), (double)(s[1] - m)};
    oru_fast_expl(e, 2); /* the library's exp keeps this file free of libm */
    s[0] = (float)(e[0] / (e[0] + e[1]));
    s[1] = (float)(e[1] / (e[0] + e[1]));
  }
  return 0;
}

int ultraface_q_list_path(char *path, size_t size, const char *weights_path) {
  if (!path || !weights_path) return -1;
  size_t n = strlen(weights_path);
  const char *ext = ".weights";
  size_t e = strlen(ext);
  if (n >= e && strcmp(weights_path + n - e, ext) == 0) n -= e;
  if (n + 3 > size) return -1;
  memcpy(path, weights_path, n);
  memcpy(path + n, ".q", 3);
  return 0;
}

/* The Q list of the fixed-point graph in memory of the library's, every node below
 * ULTRAFACE_FIXED_NODES given once, each Q from 0 to 15; null with a reason otherwise. */
static int32_t *load_q_list(const char *weights_path, const char **why) {
  char path[4096];
  if (ultraface_q_list_path(path, sizeof path, weights_path) != 0) {
    *why = "Q list path too long";
    return NULL;
  }
  FILE *f = fopen(path, "r");
  if (!f) {
    *why = "cannot open the Q list";
    return NULL;
  }
  int32_t *list = (int32_t *)oru_calloc(256, sizeof(int32_t));
  if (!list) {
    fclose(f);
    *why = "out of memory";
    return NULL;
  }
  for (int32_t i = 0; i < 256; ++i) list[i] = -1;
  char line[256];
  *why = NULL;
  while (!*why && fgets(line, sizeof line, f)) {
    const char *p = line;
    while (*p == ' ' || *p == '\t') ++p;
    if (*p == '#' || *p == '\n' || *p == '\r' || *p == 0) continue;
    int node, q;
    char rest;
    if (sscanf(p, "%d %d %c", &node, &q, &rest) != 2 || node < 0 || node >= ULTRAFACE_FIXED_NODES ||
        list[node] != -1)
      *why = "malformed Q list";
    else if (q < 0 || q > 15)
      *why = "Q list value outside 0 to 15";
    else
      list[node] = q;
  }
  fclose(f);
  for (int32_t i = 0; i < ULTRAFACE_FIXED_NODES && !*why; ++i)
    if (list[i] < 0) *why = "Q list misses a node";
  if (*why) {
    oru_free(list);
    return NULL;
  }
  return list;
}

ultraface *ultraface_create(const char *weights_path, uint32_t conv_method) {
  return ultraface_create_backend(weights_path, conv_method, ULTRAFACE_BACKEND_FLOAT);
}

uint32_t ultraface_backend(const ultraface *net) { return net ? net->backend : ULTRAFACE_BACKEND_FLOAT; }

ultraface *ultraface_create_backend(const char *weights_path, uint32_t conv_method, uint32_t backend) {
  if (!weights_path || backend > ULTRAFACE_BACKEND_FIXED) return NULL;
  const int fixed = backend == ULTRAFACE_BACKEND_FIXED;
  ultraface *u = (ultraface *)calloc(1, sizeof *u);
  if (!u) return NULL;
  fill_offsets();
  u->weights = (float *)malloc(sizeof(float) * ULTRAFACE_WEIGHT_WORDS);
  u->decoded = (float *)malloc(sizeof(float) * 4 * ULTRAFACE_PRIORS);
  u->candidates = (float *)malloc(sizeof(float) * 5 * ULTRAFACE_PRIORS);
  u->kept = (float *)malloc(sizeof(float) * 5 * ULTRAFACE_PRIORS);
  u->backend = backend;
  if (fixed) {
    u->fixed_scores = (float *)malloc(sizeof(float) * 2 * ULTRAFACE_PRIORS);
    u->fixed_locations = (float *)malloc(sizeof(float) * 4 * ULTRAFACE_PRIORS);
    if (!u->fixed_scores || !u->fixed_locations) return fail(u, "out of memory", NULL);
  }
  if (!u->weights || !u->decoded || !u->candidates || !u->kept) return fail(u, "out of memory", NULL);
  if (oru_cg_load_model(u->weights, ULTRAFACE_WEIGHT_WORDS, weights_path) != 0)
    return fail(u, "cannot load the weights (missing, short or wrong digest)", weights_path);

  int32_t in_dims[4] = {ULTRAFACE_WIDTH, ULTRAFACE_HEIGHT, 3, 1};
  u->input = oru_create_tensor(4, in_dims, fixed ? ai16s : aif32);
  u->priors = oru_generate_priors(ULTRAFACE_HEIGHT, ULTRAFACE_WIDTH, 0);
  u->resized = oru_create_image(ULTRAFACE_WIDTH, ULTRAFACE_HEIGHT, ORU_IMAGE_BGR24);
  if (!u->input || !u->priors || !u->resized) return fail(u, "out of memory", NULL);
  if (u->priors->total_elements != 4 * ULTRAFACE_PRIORS) return fail(u, "unexpected prior table", NULL);

  for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i) {
    const ultraface_layer *l = &layers[i];
    if (expected_words(l) != l->count) return fail(u, "inconsistent layer table", l->name);
    int32_t dims[1] = {l->count};
    u->layer_weights[i] = oru_create_tensor_header(1, dims, 6);
    if (!u->layer_weights[i] ||
        oru_set_tensor_data(u->layer_weights[i], u->weights + l->offset, (int64_t)l->count * 4) != 0)
      return fail(u, "cannot lay the weights out", l->name);
  }

  if (fixed) return build_fixed(u, weights_path);
  u->graph = oru_create_computation_graph_handle(NULL);
  if (!u->graph) return fail(u, "cannot create the graph", NULL);
  /* the per-layer choice keeps the chains of convolutions in the packed layout, which the
   * per-layer table of bench_face_layers shows fastest as a whole */
  const int packed = conv_method == 1 || conv_method == ULTRAFACE_METHOD_PER_LAYER;
  const int per_layer = packed;
  if (!per_layer && oru_cg_set_conv_method(u->graph, conv_method) != 0)
    return fail(u, "unknown conv method", NULL);
  if (add_edges(u->graph) != 0 || oru_computation_graph_topo_sort(u->graph) != 0)
    return fail(u, "cannot build the graph", NULL);
  uint32_t st = bind_desc(u->graph, ULTRAFACE_NODE_INPUT, 0, u->input, NULL);
  for (int32_t i = 0; i < ULTRAFACE_LAYERS; ++i)
    st |= bind_desc(u->graph, ULTRAFACE_NODE_WEIGHT + i, 2, u->layer_weights[i], NULL);
  st |= per_layer ? bind_layers_each_with_its_method(u->graph, 0, packed) : bind_backbone_and_heads(u->graph);
  for (int32_t h = 0; h < 8; ++h) st |= bind_head_reorder(u->graph, h);
  st |= bind_outputs(u->graph);
  if (st != 0) return fail(u, "cannot bind the graph", NULL);
  if (oru_prepare_inference_computation(u->graph) != 0) return fail(u, "cannot prepare the graph", NULL);
  const oru_tensor *scores = oru_get_computation_node_inference_data(u->graph, ULTRAFACE_NODE_SCORES);
  const oru_tensor *boxes = oru_get_computation_node_inference_data(u->graph, ULTRAFACE_NODE_BOXES);
  if (!scores || !boxes || scores->total_elements != 2 * ULTRAFACE_PRIORS ||
      boxes->total_elements != 4 * ULTRAFACE_PRIORS)
    return fail(u, "unexpected output shapes", NULL);
  return u;
}

oru_tensor *ultraface_input(ultraface *net) { return net ? net->input : NULL; }
oru_cg_handle *ultraface_graph(ultraface *net) { return net ? net->graph : NULL; }
const float *ultraface_weights(ultraface *net) { return net ? net->weights : NULL; }

uint32_t ultraface_run(ultraface *net) {
  if (!net) return ORU_RET_ERR_PARA;
  uint32_t st = oru_computation_graph_inference(net->graph);
  if (st == 0 && net->backend == ULTRAFACE_BACKEND_FIXED) st = gather_fixed_heads(net);
  return st;
}

const float *ultraface_scores(ultraface *net) {
  if (net && net->backend == ULTRAFACE_BACKEND_FIXED) return net->fixed_scores;
  const oru_tensor *t = net ? oru_get_computation_node_inference_data(net->graph, ULTRAFACE_NODE_SCORES) : NULL;
  return t ? (const float *)t->data : NULL;
}

const float *ultraface_locations(ultraface *net) {
  if (net && net->backend == ULTRAFACE_BACKEND_FIXED) return net->fixed_locations;
  const oru_tensor *t = net ? oru_get_computation_node_inference_data(net->graph, ULTRAFACE_NODE_BOXES) : NULL;
  return t ? (const float *)t->data : NULL;
}

int32_t ultraface_detect(ultraface *net, const oru_image *bgr, float threshold, float iou, int keep_aspect,
                         float *faces, int32_t max_faces) {
  /* the input transform takes byte 2 of a pixel as red */
  if (!net || !bgr || !faces || max_faces < 0 || bgr->format != ORU_IMAGE_BGR24) return -1;
  int32_t top = 0, bottom = 0, left = 0, right = 0;
  oru_image *padded = NULL;
  const oru_image *source = bgr;
  if (keep_aspect) {
    padded = oru_create_border_image(&top, &bottom, &left, &right, bgr,
                                     (float)ULTRAFACE_HEIGHT / (float)ULTRAFACE_WIDTH);
    if (!padded) return -1;
    source = padded;
  }
  const float frame_w = (float)source->cols, frame_h = (float)source->rows;
  uint32_t st = oru_image_resizer(net->resized, source, ORU_RESIZE_BILINEAR);
  if (padded) oru_release_matrix(&padded);
  if (st != 0) return -1;
  if (net->backend == ULTRAFACE_BACKEND_FIXED)
    oru_transform_image_data_for_ssd_detector_fp16(net->input, net->resized);
  else
    oru_transform_image_data_for_ssd_detector(net->input, net->resized);
  if (ultraface_run(net) != 0) return -1;

  return ultraface_decode(net, frame_w, frame_h, (float)left, (float)top, threshold, iou, faces, max_faces);
}

int32_t ultraface_decode(ultraface *net, float frame_w, float frame_h, float left, float top, float threshold,
                         float iou, float *faces, int32_t max_faces) {
  if (!net || !faces || max_faces < 0) return -1;
  const float *scores = ultraface_scores(net);
  oru_convert_locations_to_boxes(net->decoded, ultraface_locations(net), (const float *)net->priors->data,
                                 ULTRAFACE_PRIORS, 0.1f, 0.2f);
  oru_center_form_to_corner_form(net->decoded, ULTRAFACE_PRIORS);
  int32_t n = 0;
  for (int32_t i = 0; i < ULTRAFACE_PRIORS; ++i) {
    if (!(scores[2 * i + 1] > threshold)) continue;
    memcpy(net->candidates + 5 * n, net->decoded + 4 * i, 4 * sizeof(float));
    net->candidates[5 * n + 4] = scores[2 * i + 1];
    ++n;
  }
  int32_t kept = n > 0 ? oru_ssd_nms(net->kept, net->candidates, n, iou) : 0;
  if (kept > max_faces) kept = max_faces;
  for (int32_t i = 0; i < kept; ++i) {
    const float *r = net->kept + 5 * i;
    faces[5 * i + 0] = r[0] * frame_w - left;
    faces[5 * i + 1] = r[1] * frame_h - top;
    faces[5 * i + 2] = r[2] * frame_w - left;
    faces[5 * i + 3] = r[3] * frame_h - top;
    faces[5 * i + 4] = r[4];
  }
  return kept;
}
