/* A face detector from a converted network (OUT.net beside OUT.weights) instead of the
 * built-in graph: any SSD-style detector whose graph ends in the nodes "scores" (N x 2)
 * and "boxes" (N x 4) over the priors of its input size. */
#ifndef FACE_MODEL_H
#define FACE_MODEL_H

#include <stdint.h>

#include "orucore.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct face_model face_model;

/* True when PREFIX.net exists: PREFIX names a converted model rather than a weight file. */
int face_model_exists(const char *prefix);

/* Loads PREFIX.net and PREFIX.weights and prepares the graph. width and height, when
 * above 0, must be the input size the model was converted for. conv_method is passed to
 * the loader (ORU_CG_NET_METHOD_FROM_FILE, ORU_CG_NET_METHOD_PER_LAYER, 0 to 2).
 * Null on failure, with a one-line reason on stderr. */
face_model *face_model_create(const char *prefix, int32_t width, int32_t height, int32_t conv_method);
void face_model_release(face_model **model);

oru_cg_net *face_model_net(face_model *model);
oru_tensor *face_model_input(face_model *model);
uint32_t face_model_run(face_model *model);
const float *face_model_scores(face_model *model);
const float *face_model_locations(face_model *model);
int32_t face_model_prior_count(const face_model *model);

/* As ultraface_detect: writes up to max_faces records x0 y0 x1 y1 score in the image's
 * pixels, best first, and gives their number, or -1 on failure. */
int32_t face_model_detect(face_model *model, const oru_image *bgr, float threshold, float iou, int keep_aspect,
                          float *faces, int32_t max_faces);

#ifdef __cplusplus
}
#endif

#endif
