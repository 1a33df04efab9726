/* Tracking: Kalman filter, linear sum assignment, SORT tracker and smoothing filters. */
#ifndef ORU_TRACKING_H
#define ORU_TRACKING_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Kalman filter ==== */

typedef struct oru_kalman_params {
  int32_t state_dim;
  int32_t measure_dim;
  int32_t control_dim;
  int32_t type; /* 6 (aif32) or 7 (aif64) */
} oru_kalman_params;

/* A linear filter; every matrix belongs to the handle. The caller fills in the model
 * (transition, control, measurement, noises) and state_post after creation. */
typedef struct oru_kalman_filter {
  int32_t state_dim;
  int32_t measure_dim;
  int32_t control_dim;
  int32_t type;
  oru_matrix *state_pre;         /* S x 1 */
  oru_matrix *state_post;        /* S x 1 */
  oru_matrix *transition;        /* S x S, identity at creation */
  oru_matrix *control;           /* S x C, null when C is 0 */
  oru_matrix *measurement;       /* M x S */
  oru_matrix *process_noise;     /* S x S, identity at creation */
  oru_matrix *measurement_noise; /* M x M, identity at creation */
  oru_matrix *error_cov_pre;     /* S x S */
  oru_matrix *gain;              /* S x M */
  oru_matrix *error_cov_post;    /* S x S */
  oru_matrix *temp1;             /* S x S */
  oru_matrix *temp2;             /* M x S */
  oru_matrix *temp3;             /* M x M */
  oru_matrix *temp4;             /* M x S */
  oru_matrix *temp5;             /* M x 1 */
} oru_kalman_filter;

ORU_API oru_kalman_filter *oru_create_kalman_filter_handle(const oru_kalman_params *params);
ORU_API uint32_t oru_release_kalman_filter_handle(oru_kalman_filter **handle);
/* Returns the handle's state_pre, or null on failure. control may be null. */
ORU_API oru_matrix *oru_kalman_filter_predict(const oru_matrix *control, oru_kalman_filter *handle);
/* Returns the handle's state_post, or null on failure. measurement is M x 1. */
ORU_API oru_matrix *oru_kalman_filter_update(const oru_matrix *measurement, oru_kalman_filter *handle);

/* ---- end of Kalman filter ---- */

/* ==== Linear sum assignment ==== */

typedef struct oru_linear_sum_assignment {
  int32_t count;  /* min(rows, cols) */
  int32_t *pairs; /* count pairs (row, column) */
} oru_linear_sum_assignment;

/* Optimal pairing on an aif32 cost matrix, least total or, with maximize non-zero,
 * greatest. Null for a null or non-aif32 cost and for an infeasible matrix. */
ORU_API oru_linear_sum_assignment *oru_create_linear_sum_assignment(const oru_matrix *cost, int32_t maximize);
ORU_API uint32_t oru_release_linear_sum_assignment(oru_linear_sum_assignment **assignment);

/* ---- end of Linear sum assignment ---- */

/* ==== SORT tracker ==== */

/* A box is four floats x0, y0, x1, y1; a detection record adds a fifth the tracker ignores. */

typedef struct oru_kalman_box_tracker {
  oru_kalman_filter *filter; /* 7 states, 4 measurements, no control, aif32 */
  oru_matrix *measurement;   /* 4 x 1 aif32 */
  int32_t time_since_update;
  int32_t id;
  int32_t hits;
  int32_t hit_streak;
  int32_t age;
} oru_kalman_box_tracker;

typedef struct oru_sort_params {
  int32_t max_age;     /* >= 0 */
  int32_t min_hits;    /* >= 1 */
  float iou_threshold; /* in [0, 1) */
  float payload_bytes; /* bytes of the caller's block per track, truncated; 0 for none */
} oru_sort_params;

typedef struct oru_sort_handle {
  int32_t max_age;
  int32_t min_hits;
  float iou_threshold;
  oru_kalman_box_tracker **trackers; /* in order of birth */
  uint32_t count;
  uint32_t capacity;
  int64_t frame_count;
  int64_t next_id;
  uint8_t *payloads; /* capacity blocks of payload_bytes, null when payload_bytes is 0 */
  int64_t payload_bytes;
} oru_sort_handle;

typedef struct oru_sort_match_info {
  int32_t matched_count;
  int32_t unmatched_count;
  int32_t *pairs;     /* matched_count pairs (detection, track index) */
  int32_t *unmatched; /* unmatched_count detection indices */
} oru_sort_match_info;

typedef struct oru_track_info {
  float *boxes;  /* count boxes */
  int32_t *ids;
  int32_t *times; /* time_since_update */
  int32_t count;
  uint8_t *payloads; /* count blocks of payload_bytes */
} oru_track_info;

ORU_API oru_kalman_box_tracker *oru_create_kalman_box_tracker(const float *box, int32_t id);
ORU_API uint32_t oru_release_kalman_box_tracker(oru_kalman_box_tracker **tracker);
ORU_API uint32_t oru_kalman_box_tracker_predict(float *out_box, oru_kalman_box_tracker *tracker);
ORU_API uint32_t oru_kalman_box_tracker_update(const float *box, oru_kalman_box_tracker *tracker);
ORU_API uint32_t oru_kalman_box_tracker_get_state(float *out_box, const oru_kalman_box_tracker *tracker);

ORU_API oru_sort_handle *oru_create_sort_handle(const oru_sort_params *params);
ORU_API uint32_t oru_release_sort_handle(oru_sort_handle **handle);
ORU_API oru_sort_match_info *oru_create_sort_match_info(int32_t matched_count, int32_t unmatched_count);
ORU_API uint32_t oru_release_sort_match_info(oru_sort_match_info **info);
/* Both lists are of five-float records; the caller releases the result. */
ORU_API oru_sort_match_info *oru_associate_detections_to_trackers(const float *detections, int32_t detection_count,
                                                                  const float *trackers, int32_t tracker_count,
                                                                  float threshold);
ORU_API uint32_t oru_release_track_info(oru_track_info **info);
ORU_API oru_track_info *oru_create_sort_predict(oru_sort_handle *handle);
ORU_API uint32_t oru_sort_update_detection(const float *detections, int32_t *out_ids, const uint8_t *mask,
                                           int32_t detection_count, const oru_sort_match_info *match,
                                           oru_sort_handle *handle);
ORU_API uint32_t oru_sort_update_detection_v2(const float *detections, const int32_t *ids, const uint8_t *mask,
                                              int32_t detection_count, const uint8_t *payloads,
                                              oru_sort_handle *handle);
ORU_API oru_track_info *oru_sort_get_track_info(const oru_sort_handle *handle);
/* The whole step for one frame. With no tracks yet, or no detections, every detection
 * counts as unmatched, so this call also starts the first tracks. */
ORU_API oru_track_info *oru_sort_update(const float *detections, int32_t detection_count, oru_sort_handle *handle);
ORU_API int64_t oru_sort_get_frame_count(const oru_sort_handle *handle);

/* ---- end of SORT tracker ---- */

/* ==== Smoothing filters ==== */

typedef struct oru_one_euro_params {
  float te; /* time between samples */
  float d_cutoff;
  float min_cutoff;
  float beta;
} oru_one_euro_params;

ORU_API float oru_get_smooth_factor(float te, float cutoff);
ORU_API float oru_get_exponential_smoothing(float a, float x, float previous);
/* One step; the new derivative goes to out_derivative when it isn't null. A null
 * params returns x and leaves out_derivative untouched. */
ORU_API float oru_one_euro_filter_v2(const oru_one_euro_params *params, float *out_derivative, float x,
                                     float previous_x, float previous_derivative);

/* ---- end of Smoothing filters ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_TRACKING_H */
