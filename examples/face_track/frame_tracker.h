/* One frame of face tracking on the library's SORT tracker: predict every track, pair
 * the frame's detections with the predictions, update, and read the live tracks with
 * the score of the detection that confirmed each. */
#ifndef FRAME_TRACKER_H
#define FRAME_TRACKER_H

#include <stdint.h>

#include "orucore.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct frame_tracker frame_tracker;

/* iou: the overlap above which a detection may continue a track. A track is shown once
 * min_hits detections have confirmed it (from the first frame on while the video is
 * younger than min_hits frames), and only in frames that confirm it; it ends after
 * more than max_age frames without a detection. Null on bad arguments or no memory. */
frame_tracker *frame_tracker_create(int32_t max_age, int32_t min_hits, float iou);
void frame_tracker_release(frame_tracker **tracker);

/* Takes n records x0 y0 x1 y1 score and gives the number of tracks shown, or -1 on
 * failure. The results stay valid until the next step. */
int32_t frame_tracker_step(frame_tracker *tracker, const float *detections, int32_t n);
const float *frame_tracker_boxes(const frame_tracker *tracker);  /* x0 y0 x1 y1 each */
const int32_t *frame_tracker_ids(const frame_tracker *tracker);
const float *frame_tracker_scores(const frame_tracker *tracker);

#ifdef __cplusplus
}
#endif

#endif
