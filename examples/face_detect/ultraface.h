/* A 320x240 single-shot face detector built on the library's computation graph:
 * load the weight file, build and prepare the graph once, then detect per frame. */
#ifndef ULTRAFACE_H
#define ULTRAFACE_H

#include <stddef.h>
#include <stdint.h>

#include "orucore.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ULTRAFACE_WIDTH 320
#define ULTRAFACE_HEIGHT 240
#define ULTRAFACE_PRIORS 4420
#define ULTRAFACE_LAYERS 42
/* 32-bit words of the weight file before its digest. */
#define ULTRAFACE_WEIGHT_WORDS 264732

/* Node ids of the graph. Convolution layer i (0..41, in the weight file's order) is node
 * ULTRAFACE_NODE_CONV + i and its weights node ULTRAFACE_NODE_WEIGHT + i; the heads'
 * reordering nodes follow from ULTRAFACE_NODE_HEADS on. */
enum {
  ULTRAFACE_NODE_INPUT = 0,
  ULTRAFACE_NODE_CONV = 1,
  ULTRAFACE_NODE_CLS0 = ULTRAFACE_NODE_CONV + 16, /* head outputs, NCHW */
  ULTRAFACE_NODE_REG0 = ULTRAFACE_NODE_CONV + 18,
  ULTRAFACE_NODE_CLS1 = ULTRAFACE_NODE_CONV + 26,
  ULTRAFACE_NODE_REG1 = ULTRAFACE_NODE_CONV + 28,
  ULTRAFACE_NODE_CLS2 = ULTRAFACE_NODE_CONV + 34,
  ULTRAFACE_NODE_REG2 = ULTRAFACE_NODE_CONV + 36,
  ULTRAFACE_NODE_CLS3 = ULTRAFACE_NODE_CONV + 40,
  ULTRAFACE_NODE_REG3 = ULTRAFACE_NODE_CONV + 41,
  ULTRAFACE_NODE_WEIGHT = ULTRAFACE_NODE_CONV + ULTRAFACE_LAYERS,
  ULTRAFACE_NODE_HEADS = ULTRAFACE_NODE_WEIGHT + ULTRAFACE_LAYERS,
  /* per head: reshape to (1, W*H, C), C one-channel splits, concat to (C, W*H, 1),
   * reshape to (2 | 4, -1); 8 heads with 60 channels in all */
  ULTRAFACE_NODE_SCORES_CONCAT = ULTRAFACE_NODE_HEADS + 8 * 3 + 60, /* (2, 4420) logits */
  ULTRAFACE_NODE_SCORES,                                            /* softmax, in place */
  ULTRAFACE_NODE_BOXES,                                             /* (4, 4420) locations */
  ULTRAFACE_NODE_COUNT
};

/* One convolution layer as the weight file holds it. */
typedef struct ultraface_layer {
  const char *name;
  int32_t in_channels, out_channels, kernel, stride, pad, groups;
  int32_t bias, bn, relu;
  int32_t offset, count; /* in 32-bit words */
} ultraface_layer;

typedef struct ultraface ultraface;

/* The layer table the graph is built from (index 0..ULTRAFACE_LAYERS-1), or null. */
const ultraface_layer *ultraface_get_layer(int32_t index);
/* The node whose output feeds layer index (the input node for the first), or -1. */
int32_t ultraface_source_node(int32_t index);

/* Conv method of ultraface_create that picks the kernel family layer by layer. */
#define ULTRAFACE_METHOD_PER_LAYER 255u

/* Loads and checks the weight file, builds and prepares the graph. conv_method 0 or 2
 * binds the network with the block builders under that method for every layer; 1 and
 * ULTRAFACE_METHOD_PER_LAYER bind the same operators layer by layer: every layer under the
 * packed HWG method but those that feed the heads' shape operators, which keep planes and
 * take the faster of the direct and im2col kernels for their shape.
 * Null on failure, with a one-line reason on stderr. */
ultraface *ultraface_create(const char *weights_path, uint32_t conv_method);

/* Backends of ultraface_create_backend. */
#define ULTRAFACE_BACKEND_FLOAT 0u
#define ULTRAFACE_BACKEND_FIXED 1u

/* Node ids up to which a fixed-point graph has nodes: the input, the 42 convolutions and
 * their weights. Its outputs are the eight heads, read back through their Q. */
#define ULTRAFACE_FIXED_NODES ULTRAFACE_NODE_HEADS

/* As ultraface_create, with the backend. ULTRAFACE_BACKEND_FIXED runs the network on
 * ai16s tensors with conv method 0 (conv_method is not read): the input tensor is ai16s,
 * byte - 127 in Q 7, as the fixed-point SSD transform fills it, and the Q list is read from
 * the file beside the weights with the extension ".q" in place of ".weights" (or appended):
 * text lines "node q", '#' starting a comment, one for every node below
 * ULTRAFACE_FIXED_NODES. Scores and locations come back as floats on both backends: in
 * fixed point the heads are scaled back by their Q and reordered here, and the scores go
 * through a two-way softmax. */
ultraface *ultraface_create_backend(const char *weights_path, uint32_t conv_method, uint32_t backend);
/* The Q list file that ultraface_create_backend reads for a weights file, in a buffer of
 * the caller's; 0 on success, -1 when it doesn't fit. */
int ultraface_q_list_path(char *path, size_t size, const char *weights_path);
uint32_t ultraface_backend(const ultraface *net);
void ultraface_release(ultraface **net);

/* The input tensor (320 x 240 x 3 planes, RGB, (v - 127.5) / 128), to fill by hand. */
oru_tensor *ultraface_input(ultraface *net);
/* Runs the graph on the input tensor as it stands. */
uint32_t ultraface_run(ultraface *net);
/* After a run: 4420 x 2 softmax scores and 4420 x 4 raw locations, prior by prior. */
const float *ultraface_scores(ultraface *net);
const float *ultraface_locations(ultraface *net);
oru_cg_handle *ultraface_graph(ultraface *net);
/* The float words of the weight file, layer by layer at ultraface_layer.offset. */
const float *ultraface_weights(ultraface *net);

/* The whole detector on a BGR image: resize (or pad to 4:3 first with keep_aspect),
 * run, decode, threshold, NMS. Writes up to max_faces records of x0 y0 x1 y1 score in
 * the image's pixels, best first, and gives their number, or -1 on failure. */
int32_t ultraface_detect(ultraface *net, const oru_image *bgr, float threshold, float iou, int keep_aspect,
                         float *faces, int32_t max_faces);

/* The output side alone, on the outputs of the last run: decode, keep scores above
 * threshold, suppress overlaps, and scale to a frame of frame_w x frame_h shifted by
 * (left, top). Same result convention as ultraface_detect. */
int32_t ultraface_decode(ultraface *net, float frame_w, float frame_h, float left, float top, float threshold,
                         float iou, float *faces, int32_t max_faces);

#ifdef __cplusplus
}
#endif

#endif
