// The set of tracks: association of detections with predicted boxes, births, updates,
// deaths, and the reports a caller reads.
#include <climits>
#include <cmath>
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "tracking/oru_tracking_internal.h"

namespace {

constexpr uint32_t kInitialCapacity = 128;

uint8_t *payload_block(const oru_sort_handle *h, int64_t index) { return h->payloads + index * h->payload_bytes; }

// Doubles the track array and the payload buffer, keeping their contents. The handle is
// unchanged if either can't grow (a grown array is only larger, never lost).
uint32_t grow(oru_sort_handle *h) {
  const uint32_t capacity = h->capacity * 2;
  auto *trackers = static_cast<oru_kalman_box_tracker **>(
      oru_realloc(h->trackers, int64_t(capacity) * int64_t(sizeof(oru_kalman_box_tracker *))));
  if (!trackers) return ORU_RET_ERR_MEMORY;
  h->trackers = trackers;
  if (h->payload_bytes > 0) {
    auto *payloads = static_cast<uint8_t *>(oru_realloc(h->payloads, int64_t(capacity) * h->payload_bytes));
    if (!payloads) return ORU_RET_ERR_MEMORY;
    h->payloads = payloads;
  }
  h->capacity = capacity;
  return ORU_RET_OK;
}

// Removes tracks unseen for more than max_age frames, closing the gaps in order. The walk
// goes on at the next index after a removal, so the track moved into the gap waits for
// the next pass.
void remove_dead(oru_sort_handle *h) {
  for (uint32_t i = 0; i < h->count; ++i) {
    if (h->trackers[i]->time_since_update <= h->max_age) continue;
    oru_release_kalman_box_tracker(&h->trackers[i]);
    const uint32_t behind = h->count - i - 1;
    std::memmove(h->trackers + i, h->trackers + i + 1, behind * sizeof(oru_kalman_box_tracker *));
    if (h->payloads && behind > 0)
      std::memmove(payload_block(h, i), payload_block(h, i + 1), size_t(behind) * size_t(h->payload_bytes));
    h->count -= 1;
  }
}

// Boxes enlarged five times about their centre, so that small boxes that don't touch
// can still be paired; kept as separate coordinate arrays for the overlap loop.
struct EnlargedBoxes {
  oru::Scratch<float> store;
  float *x0, *y0, *x1, *y1, *area;
  bool init(const float *records, int32_t n) {
    if (!store.reset(int64_t(n) * 5)) return false;
    x0 = store.get();
    y0 = x0 + n;
    x1 = y0 + n;
    y1 = x1 + n;
    area = y1 + n;
    for (int32_t k = 0; k < n; ++k) {
      const float *b = records + int64_t(k) * 5;
      x0[k] = (b[0] + b[2]) * 0.5f - (b[2] - b[0]) * 5.0f * 0.5f;
      x1[k] = (b[0] + b[2]) * 0.5f + (b[2] - b[0]) * 5.0f * 0.5f;
      y0[k] = (b[1] + b[3]) * 0.5f - (b[3] - b[1]) * 5.0f * 0.5f;
      y1[k] = (b[1] + b[3]) * 0.5f + (b[3] - b[1]) * 5.0f * 0.5f;
      area[k] = (x1[k] - x0[k]) * (y1[k] - y0[k]);
    }
    return true;
  }
};

inline float min_of(float a, float b) { return a < b ? a : b; }
inline float max_of(float a, float b) { return a > b ? a : b; }

// One row of the overlap matrix: detection d of a against every box of b.
void overlap_row(const EnlargedBoxes &a, int32_t d, const EnlargedBoxes &b, int32_t n, float *row) {
  const float ax0 = a.x0[d], ay0 = a.y0[d], ax1 = a.x1[d], ay1 = a.y1[d], aa = a.area[d];
  for (int32_t t = 0; t < n; ++t) {
    const float iw = max_of(0.0f, min_of(ax1, b.x1[t]) - max_of(ax0, b.x0[t]));
    const float ih = max_of(0.0f, min_of(ay1, b.y1[t]) - max_of(ay0, b.y0[t]));
    const float inter = iw * ih;
    const float o = inter / (aa + b.area[t] - inter + 1e-5f);
    // Boxes with NaN or infinite corners overlap nothing: one bad box must not make the
    // whole pairing infeasible. (o - o is 0 exactly for finite o.)
    row[t] = o - o == 0.0f ? o : 0.0f;
  }
}

}  // namespace

oru_track_info *oru_create_track_info(int32_t count, int64_t payload_bytes) {
  auto *info = oru::alloc_zeroed<oru_track_info>();
  if (!info) return nullptr;
  info->count = count;
  if (count < 1) {
    info->count = 0;
    return info;
  }
  info->boxes = static_cast<float *>(oru_calloc(int64_t(count) * 4, sizeof(float)));
  info->ids = static_cast<int32_t *>(oru_calloc(count, sizeof(int32_t)));
  info->times = static_cast<int32_t *>(oru_calloc(count, sizeof(int32_t)));
  if (payload_bytes > 0) info->payloads = static_cast<uint8_t *>(oru_calloc(count, payload_bytes));
  if (!info->boxes || !info->ids || !info->times || (payload_bytes > 0 && !info->payloads))
    oru_release_track_info(&info);
  return info;
}

extern "C" {

ORU_API uint32_t oru_release_track_info(oru_track_info **info) {
  if (!info || !*info) return ORU_RET_ERR_PARA;
  oru_free((*info)->boxes);
  oru_free((*info)->ids);
  oru_free((*info)->times);
  oru_free((*info)->payloads);
  oru_free(*info);
  *info = nullptr;
  return ORU_RET_OK;
}

ORU_API oru_sort_handle *oru_create_sort_handle(const oru_sort_params *params) {
  // Written so that NaN thresholds and sizes fail the tests too.
  if (!params || params->max_age < 0 || params->min_hits < 1 || !(params->iou_threshold >= 0.0f) ||
      !(params->iou_threshold < 1.0f) || !(params->payload_bytes >= 0.0f) || !(params->payload_bytes < 9.0e18f))
    ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  auto *h = oru::alloc_zeroed<oru_sort_handle>();
  if (!h) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  h->max_age = params->max_age;
  h->min_hits = params->min_hits;
  h->iou_threshold = params->iou_threshold;
  h->capacity = kInitialCapacity;
  h->payload_bytes = int64_t(params->payload_bytes);
  h->trackers = static_cast<oru_kalman_box_tracker **>(oru_calloc(kInitialCapacity, sizeof(oru_kalman_box_tracker *)));
  if (h->payload_bytes > 0) h->payloads = static_cast<uint8_t *>(oru_calloc(kInitialCapacity, h->payload_bytes));
  if (!h->trackers || (h->payload_bytes > 0 && !h->payloads)) {
    oru_release_sort_handle(&h);
    ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  }
  return h;
}

ORU_API uint32_t oru_release_sort_handle(oru_sort_handle **handle) {
  if (!handle || !*handle) return ORU_RET_ERR_PARA;
  oru_sort_handle *h = *handle;
  if (h->trackers)
    for (uint32_t i = 0; i < h->count; ++i) oru_release_kalman_box_tracker(&h->trackers[i]);
  oru_free(h->trackers);
  oru_free(h->payloads);
  oru_free(h);
  *handle = nullptr;
  return ORU_RET_OK;
}

ORU_API oru_sort_match_info *oru_create_sort_match_info(int32_t matched_count, int32_t unmatched_count) {
  auto *info = oru::alloc_zeroed<oru_sort_match_info>();
  if (!info) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  info->matched_count = matched_count;
  info->unmatched_count = unmatched_count;
  if (matched_count >= 1) info->pairs = static_cast<int32_t *>(oru_malloc(int64_t(matched_count) * 2 * 4));
  if (unmatched_count >= 1) info->unmatched = static_cast<int32_t *>(oru_malloc(int64_t(unmatched_count) * 4));
  if ((matched_count >= 1 && !info->pairs) || (unmatched_count >= 1 && !info->unmatched)) {
    oru_release_sort_match_info(&info);
    ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  }
  return info;
}

ORU_API uint32_t oru_release_sort_match_info(oru_sort_match_info **info) {
  if (!info || !*info) return ORU_RET_ERR_PARA;
  oru_free((*info)->pairs);
  oru_free((*info)->unmatched);
  oru_free(*info);
  *info = nullptr;
  return ORU_RET_OK;
}

ORU_API oru_sort_match_info *oru_associate_detections_to_trackers(const float *detections, int32_t detection_count,
                                                                  const float *trackers, int32_t tracker_count,
                                                                  float threshold) {
  if (!detections || !trackers || detection_count < 1 || tracker_count < 1)
    ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  EnlargedBoxes dets, trks;
  oru_matrix *overlap = oru_create_matrix(detection_count, tracker_count, 1, aif32);
  if (!overlap || !dets.init(detections, detection_count) || !trks.init(trackers, tracker_count)) {
    oru_release_matrix_no_error(&overlap);
    ORU_FAIL_MSG(nullptr, oru_error_string[6]);
  }
  for (int32_t d = 0; d < detection_count; ++d)
    overlap_row(dets, d, trks, tracker_count,
                reinterpret_cast<float *>(static_cast<uint8_t *>(overlap->data) + overlap->stride * d));
  oru_linear_sum_assignment *pairing = oru_create_linear_sum_assignment(overlap, 1);
  if (!pairing) {
    oru_release_matrix(&overlap);
    ORU_FAIL_MSG(nullptr, oru_error_string[6]);
  }
  // Pairs below the threshold fall apart: their detection is unmatched, their track
  // simply isn't updated.
  oru::Scratch<uint8_t> matched(detection_count, true);
  int32_t matched_count = 0;
  const float *cost = static_cast<const float *>(overlap->data);
  for (int32_t k = 0; k < pairing->count; ++k) {
    const int32_t d = pairing->pairs[2 * k], t = pairing->pairs[2 * k + 1];
    if (cost[int64_t(d) * tracker_count + t] > threshold) {
      matched[d] = 1;
      ++matched_count;
    }
  }
  oru_sort_match_info *info = matched ? oru_create_sort_match_info(matched_count, detection_count - matched_count)
                                      : nullptr;
  if (info) {
    int32_t m = 0, u = 0;
    for (int32_t k = 0; k < pairing->count; ++k) {
      const int32_t d = pairing->pairs[2 * k], t = pairing->pairs[2 * k + 1];
      if (cost[int64_t(d) * tracker_count + t] > threshold) {
        info->pairs[2 * m] = d;
        info->pairs[2 * m + 1] = t;
        ++m;
      }
    }
    for (int32_t d = 0; d < detection_count; ++d)
      if (!matched[d]) info->unmatched[u++] = d;
  } else if (!matched) {
    ORU_REPORT(oru_error_string[2]);
  }
  oru_release_linear_sum_assignment(&pairing);
  oru_release_matrix(&overlap);
  return info;
}

ORU_API uint32_t oru_sort_update_detection(const float *detections, int32_t *out_ids, const uint8_t *mask,
                                           int32_t detection_count, const oru_sort_match_info *match,
                                           oru_sort_handle *handle) {
  if (!detections || !match || !handle) return ORU_RET_ERR_PARA;
  oru_sort_handle *h = handle;
  if (out_ids)
    for (int32_t d = 0; d < detection_count; ++d) out_ids[d] = -1;
  for (int32_t k = 0; k < match->unmatched_count; ++k) {
    const int32_t d = match->unmatched[k];
    if (d < 0 || d >= detection_count) return ORU_RET_ERR_PARA;
    if (mask && !mask[d]) continue;
    if (h->count == h->capacity && grow(h) != ORU_RET_OK) return ORU_RET_ERR_MEMORY;
    oru_kalman_box_tracker *t = oru_create_kalman_box_tracker(detections + int64_t(d) * 5, int32_t(h->next_id));
    if (!t) return ORU_RET_ERR_MEMORY;
    h->trackers[h->count++] = t;
    h->next_id += 1;
    if (out_ids) out_ids[d] = t->id;
  }
  for (int32_t k = 0; k < match->matched_count; ++k) {
    const int32_t d = match->pairs[2 * k], t = match->pairs[2 * k + 1];
    if (d < 0 || d >= detection_count || t < 0 || uint32_t(t) >= h->count) return ORU_RET_ERR_PARA;
    if (!mask || mask[d] == 1) {
      if (oru_kalman_box_tracker_update(detections + int64_t(d) * 5, h->trackers[t]) != ORU_RET_OK)
        return ORU_RET_ERR_UNKNOWN;
    }
    if (out_ids) out_ids[d] = h->trackers[t]->id;
  }
  remove_dead(h);
  return ORU_RET_OK;
}

ORU_API uint32_t oru_sort_update_detection_v2(const float *detections, const int32_t *ids, const uint8_t *mask,
                                              int32_t detection_count, const uint8_t *payloads,
                                              oru_sort_handle *handle) {
  if (!detections || !ids || !handle) return ORU_RET_ERR_PARA;
  oru_sort_handle *h = handle;
  const int64_t pb = h->payload_bytes;
  for (int32_t d = 0; d < detection_count; ++d) {
    const float *box = detections + int64_t(d) * 5;
    const bool served = !mask || mask[d] == 1;
    if (ids[d] < 0) {
      if (h->count == h->capacity && grow(h) != ORU_RET_OK) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, oru_error_string[2]);
      if (!served) continue;
      oru_kalman_box_tracker *t = oru_create_kalman_box_tracker(box, int32_t(h->next_id));
      if (!t) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, oru_error_string[2]);
      if (payloads && h->payloads) std::memcpy(payload_block(h, h->count), payloads + d * pb, size_t(pb));
      h->trackers[h->count++] = t;
      // Ids stay positive 32-bit numbers: after the largest one they start again at 0.
      h->next_id = h->next_id == 0x7FFFFFFF ? 0 : h->next_id + 1;
      continue;
    }
    if (h->count == 0) return ORU_RET_ERR_UNKNOWN;
    bool found = false;
    for (uint32_t i = 0; i < h->count; ++i) {
      if (h->trackers[i]->id != ids[d]) continue;
      found = true;
      if (!served) continue;
      if (oru_kalman_box_tracker_update(box, h->trackers[i]) != ORU_RET_OK)
        ORU_FAIL_MSG(ORU_RET_ERR_UNKNOWN, oru_error_string[6]);
      if (payloads && h->payloads) std::memcpy(payload_block(h, i), payloads + d * pb, size_t(pb));
    }
    if (!found) return ORU_RET_ERR_UNKNOWN;
  }
  remove_dead(h);
  return ORU_RET_OK;
}

ORU_API oru_track_info *oru_create_sort_predict(oru_sort_handle *handle) {
  if (!handle) ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  oru_sort_handle *h = handle;
  oru::Guard<oru_track_info, oru_release_track_info> info(oru_create_track_info(int32_t(h->count), h->payload_bytes));
  if (!info.get()) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  for (uint32_t i = 0; i < h->count; ++i) {
    oru_kalman_box_tracker *t = h->trackers[i];
    if (oru_kalman_box_tracker_predict(info->boxes + 4 * i, t) != ORU_RET_OK)
      ORU_FAIL_MSG(nullptr, oru_error_string[6]);
    info->ids[i] = t->id;
    info->times[i] = t->time_since_update;
    if (h->payloads) std::memcpy(info->payloads + i * h->payload_bytes, payload_block(h, i), size_t(h->payload_bytes));
  }
  h->frame_count += 1;
  return info.dismiss();
}

ORU_API oru_track_info *oru_sort_get_track_info(const oru_sort_handle *handle) {
  if (!handle) ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  const oru_sort_handle *h = handle;
  oru_track_info *info = oru_create_track_info(int32_t(h->count), h->payload_bytes);
  if (!info) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  int32_t n = 0;
  for (uint32_t i = 0; i < h->count; ++i) {
    const oru_kalman_box_tracker *t = h->trackers[i];
    if (t->time_since_update >= 1) continue;
    if (!(t->hit_streak >= h->min_hits || h->frame_count >= t->hit_streak)) continue;
    oru_kalman_box_tracker_get_state(info->boxes + 4 * n, t);
    info->ids[n] = t->id;
    if (h->payloads) std::memcpy(info->payloads + n * h->payload_bytes, payload_block(h, i), size_t(h->payload_bytes));
    ++n;
  }
  info->count = n;
  if (n == 0) {
    // An empty report has no arrays at all.
    oru_free(info->boxes);
    oru_free(info->ids);
    oru_free(info->times);
    oru_free(info->payloads);
    info->boxes = nullptr;
    info->ids = info->times = nullptr;
    info->payloads = nullptr;
  }
  return info;
}

ORU_API oru_track_info *oru_sort_update(const float *detections, int32_t detection_count, oru_sort_handle *handle) {
  if (detection_count < 0 || !handle || (detection_count > 0 && !detections))
    ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  oru_sort_handle *h = handle;
  h->frame_count = h->frame_count == INT64_MAX ? 1 : h->frame_count + 1;

  oru::Scratch<float> predicted(int64_t(h->count) * 5);
  if (h->count > 0 && !predicted) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  for (uint32_t i = 0; i < h->count; ++i) {
    float *rec = predicted.get() + int64_t(i) * 5;
    if (oru_kalman_box_tracker_predict(rec, h->trackers[i]) != ORU_RET_OK) ORU_FAIL_MSG(nullptr, oru_error_string[6]);
    rec[4] = 0.0f;
  }

  // With no tracks or no detections there is nothing to pair: every detection is
  // unmatched, so the first frame can start tracks as well as any other.
  oru::Guard<oru_sort_match_info, oru_release_sort_match_info> match(nullptr);
  if (h->count > 0 && detection_count > 0) {
    match.reset(oru_associate_detections_to_trackers(detections, detection_count, predicted.get(), int32_t(h->count),
                                                     h->iou_threshold));
    if (!match.get()) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  } else {
    match.reset(oru_create_sort_match_info(0, detection_count));
    if (!match.get()) return nullptr;
    for (int32_t d = 0; d < detection_count; ++d) match->unmatched[d] = d;
  }
  static const float kNoDetection[5] = {0, 0, 0, 0, 0};
  const uint32_t status =
      oru_sort_update_detection(detection_count > 0 ? detections : kNoDetection, nullptr, nullptr, detection_count,
                                match.get(), h);
  if (status != ORU_RET_OK) {
    ORU_REPORT_STATUS(status);
    return nullptr;
  }
  return oru_sort_get_track_info(h);
}

ORU_API int64_t oru_sort_get_frame_count(const oru_sort_handle *handle) { return handle ? handle->frame_count : -1; }

}  // extern "C"
