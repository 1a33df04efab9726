#include "frame_tracker.h"

#include <stdlib.h>
#include <string.h>

typedef struct id_score {
  int32_t id;
  float score;
} id_score;

struct frame_tracker {
  oru_sort_handle *sort;
  int32_t min_hits;
  float iou;
  int64_t frame;
  int32_t capacity; /* of the arrays below, in tracks or detections */
  int32_t *detection_ids;
  id_score *detection_scores; /* by track id */
  float *predicted; /* five-float records */
  float *boxes;
  int32_t *ids;
  float *scores;
};

void frame_tracker_release(frame_tracker **tracker) {
  if (!tracker || !*tracker) return;
  frame_tracker *t = *tracker;
  *tracker = NULL;
  if (t->sort) oru_release_sort_handle(&t->sort);
  free(t->detection_ids);
  free(t->detection_scores);
  free(t->predicted);
  free(t->boxes);
  free(t->ids);
  free(t->scores);
  free(t);
}

frame_tracker *frame_tracker_create(int32_t max_age, int32_t min_hits, float iou) {
  if (max_age < 0 || min_hits < 1 || !(iou >= 0.0f && iou < 1.0f)) return NULL;
  frame_tracker *t = (frame_tracker *)calloc(1, sizeof *t);
  if (!t) return NULL;
  const oru_sort_params params = {max_age, min_hits, iou, 0.0f};
  t->sort = oru_create_sort_handle(&params);
  t->min_hits = min_hits;
  t->iou = iou;
  if (!t->sort) frame_tracker_release(&t);
  return t;
}

/* Room for n tracks or detections in every array. */
static int reserve(frame_tracker *t, int32_t n) {
  if (n <= t->capacity) return 1;
  int32_t c = t->capacity ? t->capacity : 64;
  while (c < n) c *= 2;
  int32_t *detection_ids = (int32_t *)realloc(t->detection_ids, sizeof(int32_t) * (size_t)c);
  if (detection_ids) t->detection_ids = detection_ids;
  id_score *detection_scores = (id_score *)realloc(t->detection_scores, sizeof(id_score) * (size_t)c);
  if (detection_scores) t->detection_scores = detection_scores;
  float *predicted = (float *)realloc(t->predicted, sizeof(float) * 5 * (size_t)c);
  if (predicted) t->predicted = predicted;
  float *boxes = (float *)realloc(t->boxes, sizeof(float) * 4 * (size_t)c);
  if (boxes) t->boxes = boxes;
  int32_t *ids = (int32_t *)realloc(t->ids, sizeof(int32_t) * (size_t)c);
  if (ids) t->ids = ids;
  float *scores = (float *)realloc(t->scores, sizeof(float) * (size_t)c);
  if (scores) t->scores = scores;
  if (!detection_ids || !detection_scores || !predicted || !boxes || !ids || !scores) return 0;
  t->capacity = c;
  return 1;
}

/* Pairs of the tracker's predictions with the detections; with nothing on one side
 * every detection is unmatched and starts a track. */
static int by_id(const void *a, const void *b) {
  const int32_t x = ((const id_score *)a)->id, y = ((const id_score *)b)->id;
  return (x > y) - (x < y);
}

static oru_sort_match_info *associate(frame_tracker *t, const float *detections, int32_t n,
                                      const oru_track_info *predicted) {
  if (n > 0 && predicted->count > 0) {
    for (int32_t i = 0; i < predicted->count; ++i) {
      memcpy(t->predicted + 5 * i, predicted->boxes + 4 * i, 4 * sizeof(float));
      t->predicted[5 * i + 4] = 0.0f;
    }
    return oru_associate_detections_to_trackers(detections, n, t->predicted, predicted->count, t->iou);
  }
  oru_sort_match_info *match = oru_create_sort_match_info(0, n);
  for (int32_t d = 0; match && d < n; ++d) match->unmatched[d] = d;
  return match;
}

int32_t frame_tracker_step(frame_tracker *t, const float *detections, int32_t n) {
  if (!t || n < 0 || (n > 0 && !detections)) return -1;
  const int32_t before = (int32_t)t->sort->count;
  if (!reserve(t, before + n)) return -1; /* births can add n tracks */
  oru_track_info *predicted = oru_create_sort_predict(t->sort);
  if (!predicted) return -1;
  t->frame += 1;
  oru_sort_match_info *match = associate(t, detections, n, predicted);
  oru_release_track_info(&predicted);
  if (!match) return -1;
  /* the tracker wants a record to point at even on a frame without faces */
  static const float no_detection[5] = {0, 0, 0, 0, 0};
  uint32_t st = oru_sort_update_detection(n > 0 ? detections : no_detection, t->detection_ids, NULL, n, match, t->sort);
  oru_release_sort_match_info(&match);
  if (st != 0) return -1;
  oru_track_info *live = oru_sort_get_track_info(t->sort);
  if (!live) return -1;

  /* The report keeps the order of the tracker's own list, which is the order of birth
   * and so of rising ids: one walk over it, the tracker's list and the detections sorted
   * by the id they went to finds each track's hit count and the score of the detection
   * that updated it. */
  int32_t paired = 0;
  for (int32_t d = 0; d < n; ++d)
    if (t->detection_ids[d] >= 0) {
      t->detection_scores[paired].id = t->detection_ids[d];
      t->detection_scores[paired++].score = detections[5 * d + 4];
    }
  if (paired > 1) qsort(t->detection_scores, (size_t)paired, sizeof(id_score), by_id);
  int32_t shown = 0, j = 0;
  uint32_t k = 0;
  for (int32_t i = 0; i < live->count; ++i) {
    while (k < t->sort->count && t->sort->trackers[k]->id != live->ids[i]) ++k;
    if (k == t->sort->count) break;
    while (j < paired && t->detection_scores[j].id < live->ids[i]) ++j;
    const float score = j < paired && t->detection_scores[j].id == live->ids[i] ? t->detection_scores[j].score : 0.0f;
    if (t->sort->trackers[k]->hits < t->min_hits && t->frame > t->min_hits) continue;
    memcpy(t->boxes + 4 * shown, live->boxes + 4 * i, 4 * sizeof(float));
    t->ids[shown] = live->ids[i];
    t->scores[shown] = score;
    ++shown;
  }
  oru_release_track_info(&live);
  return shown;
}

const float *frame_tracker_boxes(const frame_tracker *t) { return t ? t->boxes : NULL; }
const int32_t *frame_tracker_ids(const frame_tracker *t) { return t ? t->ids : NULL; }
const float *frame_tracker_scores(const frame_tracker *t) { return t ? t->scores : NULL; }
