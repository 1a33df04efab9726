/* The face detector over a converted network: the graph comes from the network file, the
 * rest (resize, input transform, prior decoding, NMS) is the same as for the built-in one. */
#include "face_model.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct face_model {
  oru_cg_net *net;
  oru_tensor *input;     /* the network's, (W, H, 3) */
  oru_tensor *priors;
  oru_image *resized;
  int32_t width, height, priors_n;
  float *decoded;    /* priors_n x 4 */
  float *candidates; /* priors_n x 5 */
  float *kept;       /* priors_n x 5 */
};

static char *with_suffix(const char *prefix, const char *suffix) {
  size_t n = strlen(prefix) + strlen(suffix) + 1;
  char *s = (char *)malloc(n);
  if (s) snprintf(s, n, "%s%s", prefix, suffix);
  return s;
}

int face_model_exists(const char *prefix) {
  char *path = prefix ? with_suffix(prefix, ".net") : NULL;
  FILE *f = path ? fopen(path, "rb") : NULL;
  free(path);
  if (!f) return 0;
  fclose(f);
  return 1;
}

void face_model_release(face_model **model) {
  if (!model || !*model) return;
  face_model *m = *model;
  *model = NULL;
  if (m->net) oru_cg_release_network(&m->net);
  if (m->priors) oru_release_tensor(&m->priors);
  if (m->resized) oru_release_matrix(&m->resized);
  free(m->decoded);
  free(m->candidates);
  free(m->kept);
  free(m);
}

static face_model *fail(face_model *m, const char *what, const char *prefix) {
  fprintf(stderr, "face_model: %s: %s\n", prefix, what);
  face_model_release(&m);
  return NULL;
}

/* The first input node of the file. */
static oru_tensor *find_input(const oru_cg_net *net) {
  for (int32_t i = 0; i < oru_cg_network_node_count(net); ++i) {
    oru_tensor *t = oru_cg_network_input(net, oru_cg_network_node_name(net, i));
    if (t) return t;
  }
  return NULL;
}

face_model *face_model_create(const char *prefix, int32_t width, int32_t height, int32_t conv_method) {
  if (!prefix) return NULL;
  face_model *m = (face_model *)calloc(1, sizeof *m);
  char *net_path = with_suffix(prefix, ".net"), *weights_path = with_suffix(prefix, ".weights");
  uint32_t st = m && net_path && weights_path ? oru_cg_load_network(&m->net, net_path, weights_path, conv_method)
                                              : ORU_RET_ERR_MEMORY;
  free(net_path);
  free(weights_path);
  if (!m) return NULL;
  if (st != 0) return fail(m, "cannot load the converted model", prefix);
  m->input = find_input(m->net);
  if (!m->input || m->input->ndims < 3 || m->input->dims[2] != 3) return fail(m, "no 3-channel input node", prefix);
  m->width = m->input->dims[0];
  m->height = m->input->dims[1];
  if ((width > 0 && width != m->width) || (height > 0 && height != m->height)) {
    fprintf(stderr, "face_model: %s: converted for %dx%d, not %dx%d (convert with --input-size)\n", prefix,
            (int)m->width, (int)m->height, (int)width, (int)height);
    face_model_release(&m);
    return NULL;
  }
  if (oru_prepare_inference_computation(oru_cg_network_graph(m->net)) != 0)
    return fail(m, "cannot prepare the graph", prefix);
  m->priors = oru_generate_priors(m->height, m->width, 0);
  m->resized = oru_create_image(m->width, m->height, ORU_IMAGE_BGR24);
  if (!m->priors || !m->resized) return fail(m, "out of memory", prefix);
  m->priors_n = (int32_t)(m->priors->total_elements / 4);
  const oru_tensor *scores = oru_cg_network_output(m->net, "scores");
  const oru_tensor *boxes = oru_cg_network_output(m->net, "boxes");
  if (!scores || !boxes || scores->total_elements != 2 * (int64_t)m->priors_n ||
      boxes->total_elements != 4 * (int64_t)m->priors_n)
    return fail(m, "no \"scores\" (N x 2) and \"boxes\" (N x 4) nodes over the priors of the input size", prefix);
  m->decoded = (float *)malloc(sizeof(float) * 4 * (size_t)m->priors_n);
  m->candidates = (float *)malloc(sizeof(float) * 5 * (size_t)m->priors_n);
  m->kept = (float *)malloc(sizeof(float) * 5 * (size_t)m->priors_n);
  if (!m->decoded || !m->candidates || !m->kept) return fail(m, "out of memory", prefix);
  return m;
}

oru_cg_net *face_model_net(face_model *model) { return model ? model->net : NULL; }
oru_tensor *face_model_input(face_model *model) { return model ? model->input : NULL; }
int32_t face_model_prior_count(const face_model *model) { return model ? model->priors_n : 0; }

uint32_t face_model_run(face_model *model) {
  return model ? oru_computation_graph_inference(oru_cg_network_graph(model->net)) : ORU_RET_ERR_PARA;
}

const float *face_model_scores(face_model *model) {
  const oru_tensor *t = model ? oru_cg_network_output(model->net, "scores") : NULL;
  return t ? (const float *)t->data : NULL;
}

const float *face_model_locations(face_model *model) {
  const oru_tensor *t = model ? oru_cg_network_output(model->net, "boxes") : NULL;
  return t ? (const float *)t->data : NULL;
}

int32_t face_model_detect(face_model *m, const oru_image *bgr, float threshold, float iou, int keep_aspect,
                          float *faces, int32_t max_faces) {
  if (!m || !bgr || !faces || max_faces < 0 || bgr->format != ORU_IMAGE_BGR24) return -1;
  int32_t top = 0, bottom = 0, left = 0, right = 0;
  oru_image *padded = NULL;
  const oru_image *source = bgr;
  if (keep_aspect) {
    padded = oru_create_border_image(&top, &bottom, &left, &right, bgr, (float)m->height / (float)m->width);
    if (!padded) return -1;
    source = padded;
  }
  const float frame_w = (float)source->cols, frame_h = (float)source->rows;
  uint32_t st = oru_image_resizer(m->resized, source, ORU_RESIZE_BILINEAR);
  if (padded) oru_release_matrix(&padded);
  if (st != 0) return -1;
  oru_transform_image_data_for_ssd_detector(m->input, m->resized);
  if (face_model_run(m) != 0) return -1;

  const float *scores = face_model_scores(m);
  oru_convert_locations_to_boxes(m->decoded, face_model_locations(m), (const float *)m->priors->data, m->priors_n,
                                 0.1f, 0.2f);
  oru_center_form_to_corner_form(m->decoded, m->priors_n);
  int32_t n = 0;
  for (int32_t i = 0; i < m->priors_n; ++i) {
    if (!(scores[2 * i + 1] > threshold)) continue;
    memcpy(m->candidates + 5 * n, m->decoded + 4 * i, 4 * sizeof(float));
    m->candidates[5 * n + 4] = scores[2 * i + 1];
    ++n;
  }
  int32_t kept = n > 0 ? oru_ssd_nms(m->kept, m->candidates, n, iou) : 0;
  if (kept > max_faces) kept = max_faces;
  for (int32_t i = 0; i < kept; ++i) {
    const float *r = m->kept + 5 * i;
    faces[5 * i + 0] = r[0] * frame_w - (float)left;
    faces[5 * i + 1] = r[1] * frame_h - (float)top;
    faces[5 * i + 2] = r[2] * frame_w - (float)left;
    faces[5 * i + 3] = r[3] * frame_h - (float)top;
    faces[5 * i + 4] = r[4];
  }
  return kept;
}
