// SORT tracker: box state, association, births, updates and deaths through the exported
// calls, scripted scenes with known identities, payloads, and hostile inputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "oru_test_util.h"
#include "oru_tracking.h"

namespace {

using Det = std::array<float, 5>;

std::vector<float> flat(const std::vector<Det> &dets) {
  std::vector<float> v;
  for (const auto &d : dets) v.insert(v.end(), d.begin(), d.end());
  return v;
}

Det box_at(float cx, float cy, float w, float h) { return {cx - w / 2, cy - h / 2, cx + w / 2, cy + h / 2, 0.9f}; }

float state(const oru_kalman_box_tracker *t, int i) { return static_cast<const float *>(t->filter->state_post->data)[i]; }

oru_sort_handle *make_handle(int max_age, int min_hits, float iou, float payload = 0) {
  const oru_sort_params p{max_age, min_hits, iou, payload};
  return oru_create_sort_handle(&p);
}

// One frame through the one-call update; the reported (id, box) pairs.
std::map<int, Det> frame(oru_sort_handle *h, const std::vector<Det> &dets) {
  const std::vector<float> v = flat(dets);
  oru_track_info *info = oru_sort_update(v.empty() ? nullptr : v.data(), int32_t(dets.size()), h);
  std::map<int, Det> out;
  EXPECT_NE(info, nullptr);
  if (!info) return out;
  for (int k = 0; k < info->count; ++k)
    out[info->ids[k]] = {info->boxes[4 * k], info->boxes[4 * k + 1], info->boxes[4 * k + 2], info->boxes[4 * k + 3], 0};
  oru_release_track_info(&info);
  return out;
}

// The reported id whose box centre lies nearest to (cx, cy), or -1.
int id_near(const std::map<int, Det> &tracks, float cx, float cy, float within = 10) {
  int best = -1;
  float bd = within;
  for (const auto &[id, b] : tracks) {
    const float d = std::hypot((b[0] + b[2]) / 2 - cx, (b[1] + b[3]) / 2 - cy);
    if (d < bd) {
      bd = d;
      best = id;
    }
  }
  return best;
}

TEST(SortBoxTracker, StateFromBoxAndBack) {
  const float box[4] = {0, 0, 10, 20};
  oru_kalman_box_tracker *t = oru_create_kalman_box_tracker(box, 42);
  ASSERT_NE(t, nullptr);
  const float want[7] = {5, 10, 200, 0.5f, 0, 0, 0};
  for (int i = 0; i < 7; ++i) EXPECT_FLOAT_EQ(state(t, i), want[i]) << i;
  EXPECT_EQ(t->id, 42);
  EXPECT_EQ(t->hits, 1);
  EXPECT_EQ(t->hit_streak, 1);
  EXPECT_EQ(t->age, 0);
  EXPECT_EQ(t->time_since_update, 0);
  float out[4];
  ASSERT_EQ(oru_kalman_box_tracker_get_state(out, t), ORU_RET_OK);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(out[i], box[i], 1e-5f);
  // A still object: the prediction stays where it was, and the streak breaks on the
  // second prediction without an update.
  ASSERT_EQ(oru_kalman_box_tracker_predict(out, t), ORU_RET_OK);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(out[i], box[i], 1e-4f);
  EXPECT_EQ(t->age, 1);
  EXPECT_EQ(t->time_since_update, 1);
  EXPECT_EQ(t->hit_streak, 1);
  ASSERT_EQ(oru_kalman_box_tracker_predict(out, t), ORU_RET_OK);
  EXPECT_EQ(t->hit_streak, 0);
  EXPECT_EQ(t->time_since_update, 2);
  ASSERT_EQ(oru_kalman_box_tracker_update(box, t), ORU_RET_OK);
  EXPECT_EQ(t->time_since_update, 0);
  EXPECT_EQ(t->hits, 2);
  EXPECT_EQ(t->hit_streak, 1);
  EXPECT_EQ(oru_kalman_box_tracker_predict(nullptr, t), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_kalman_box_tracker_update(nullptr, t), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_kalman_box_tracker_get_state(out, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_release_kalman_box_tracker(&t), ORU_RET_OK);
  EXPECT_EQ(oru_release_kalman_box_tracker(&t), ORU_RET_ERR_PARA);
}

TEST(SortBoxTracker, DegenerateBoxesClampAtTinySizes) {
  const float reversed[4] = {10, 5, 4, 25};  // x1 < x0
  oru_kalman_box_tracker *t = oru_create_kalman_box_tracker(reversed, 0);
  ASSERT_NE(t, nullptr);
  EXPECT_FLOAT_EQ(state(t, 0), 10 + 0.5e-7f);
  EXPECT_FLOAT_EQ(state(t, 2), 1e-7f * 20);
  EXPECT_FLOAT_EQ(state(t, 3), 1e-7f / 20);
  oru_release_kalman_box_tracker(&t);
  const float zero[4] = {0, 0, 0, 0};
  t = oru_create_kalman_box_tracker(zero, 1);
  ASSERT_NE(t, nullptr);
  float out[4];
  for (int k = 0; k < 5; ++k) {
    ASSERT_EQ(oru_kalman_box_tracker_predict(out, t), ORU_RET_OK);
    for (float v : out) EXPECT_TRUE(std::isfinite(v));
    EXPECT_GE(out[2] - out[0], 0.0f);
  }
  oru_release_kalman_box_tracker(&t);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_kalman_box_tracker(nullptr, 0), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Your input params are wrong!"), std::string::npos);
}

TEST(SortBoxTracker, ConstantVelocityIsLearnt) {
  // After a few updates along a straight line the prediction leads the last box.
  oru_kalman_box_tracker *t = nullptr;
  float out[4];
  for (int f = 0; f < 12; ++f) {
    const Det d = box_at(100 + 6 * f, 50 - 2 * f, 20, 40);
    if (!t) {
      t = oru_create_kalman_box_tracker(d.data(), 0);
      continue;
    }
    ASSERT_EQ(oru_kalman_box_tracker_predict(out, t), ORU_RET_OK);
    ASSERT_EQ(oru_kalman_box_tracker_update(d.data(), t), ORU_RET_OK);
  }
  ASSERT_EQ(oru_kalman_box_tracker_predict(out, t), ORU_RET_OK);
  EXPECT_NEAR((out[0] + out[2]) / 2, 100 + 6 * 12, 0.5);
  EXPECT_NEAR((out[1] + out[3]) / 2, 50 - 2 * 12, 0.5);
  EXPECT_NEAR(out[2] - out[0], 20, 0.5);
  EXPECT_NEAR(out[3] - out[1], 40, 0.5);
  oru_release_kalman_box_tracker(&t);
}

TEST(SortAssociation, PairsByEnlargedOverlapAboveTheThreshold) {
  // Detections 0 and 2 lie on tracks 1 and 0; detection 1 is far from both.
  const std::vector<float> dets = flat({box_at(100, 100, 10, 10), box_at(500, 500, 10, 10), box_at(20, 20, 10, 10)});
  const std::vector<float> trks = flat({box_at(22, 21, 10, 10), box_at(101, 99, 10, 10)});
  oru_sort_match_info *m = oru_associate_detections_to_trackers(dets.data(), 3, trks.data(), 2, 0.3f);
  ASSERT_NE(m, nullptr);
  ASSERT_EQ(m->matched_count, 2);
  ASSERT_EQ(m->unmatched_count, 1);
  std::vector<std::pair<int, int>> pairs;
  for (int k = 0; k < m->matched_count; ++k) pairs.emplace_back(m->pairs[2 * k], m->pairs[2 * k + 1]);
  std::sort(pairs.begin(), pairs.end());
  EXPECT_EQ(pairs, (std::vector<std::pair<int, int>>{{0, 1}, {2, 0}}));
  EXPECT_EQ(m->unmatched[0], 1);
  EXPECT_EQ(oru_release_sort_match_info(&m), ORU_RET_OK);
  EXPECT_EQ(m, nullptr);

  // Two 10 x 10 boxes 20 apart don't touch, but enlarged to 50 x 50 they overlap:
  // 30 x 50 of intersection over 2 * 2500 - 1500.
  const std::vector<float> a = flat({box_at(0, 0, 10, 10)}), b = flat({box_at(20, 0, 10, 10)});
  const float overlap = 1500.0f / (5000.0f - 1500.0f + 1e-5f);
  m = oru_associate_detections_to_trackers(a.data(), 1, b.data(), 1, overlap - 1e-4f);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->matched_count, 1);
  oru_release_sort_match_info(&m);
  // The threshold is strict.
  m = oru_associate_detections_to_trackers(a.data(), 1, b.data(), 1, overlap);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->matched_count, 0);
  EXPECT_EQ(m->unmatched_count, 1);
  EXPECT_EQ(m->pairs, nullptr);
  oru_release_sort_match_info(&m);

  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_associate_detections_to_trackers(a.data(), 0, b.data(), 1, 0.3f), nullptr);
  EXPECT_EQ(oru_associate_detections_to_trackers(a.data(), 1, nullptr, 1, 0.3f), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Your input params are wrong!"), std::string::npos);
}

TEST(SortAssociation, MatchesTheBestPairingOnRandomScenes) {
  // Against a brute-force maximum of the summed overlap, computed here from the boxes.
  std::mt19937 gen(21);
  std::uniform_real_distribution<float> pos(0, 200), size(5, 30);
  auto overlap = [](const float *a, const float *b) {
    auto grow = [](const float *x, float *e) {
      for (int k = 0; k < 2; ++k) {
        const float c = (x[k] + x[k + 2]) / 2, half = (x[k + 2] - x[k]) * 2.5f;
        e[k] = c - half;
        e[k + 2] = c + half;
      }
    };
    float ea[4], eb[4];
    grow(a, ea);
    grow(b, eb);
    const double iw = std::max(0.0f, std::min(ea[2], eb[2]) - std::max(ea[0], eb[0]));
    const double ih = std::max(0.0f, std::min(ea[3], eb[3]) - std::max(ea[1], eb[1]));
    const double inter = iw * ih;
    return inter / ((ea[2] - ea[0]) * (ea[3] - ea[1]) + (eb[2] - eb[0]) * (eb[3] - eb[1]) - inter + 1e-5);
  };
  for (int trial = 0; trial < 200; ++trial) {
    const int nd = 1 + int(gen() % 5), nt = 1 + int(gen() % 5);
    std::vector<Det> d, t;
    for (int k = 0; k < nd; ++k) d.push_back(box_at(pos(gen), pos(gen), size(gen), size(gen)));
    for (int k = 0; k < nt; ++k) t.push_back(box_at(pos(gen), pos(gen), size(gen), size(gen)));
    const std::vector<float> dv = flat(d), tv = flat(t);
    oru_sort_match_info *m = oru_associate_detections_to_trackers(dv.data(), nd, tv.data(), nt, 0.1f);
    ASSERT_NE(m, nullptr);
    // Best total over all injections of the shorter side, by enumeration.
    double best = 0;
    const int n = std::min(nd, nt);
    std::vector<int> perm(std::max(nd, nt));
    std::iota(perm.begin(), perm.end(), 0);
    do {
      double s = 0;
      for (int k = 0; k < n; ++k)
        s += nd <= nt ? overlap(&dv[5 * k], &tv[5 * perm[k]]) : overlap(&dv[5 * perm[k]], &tv[5 * k]);
      best = std::max(best, s);
    } while (std::next_permutation(perm.begin(), perm.end()));
    // The matched pairs are those of an optimal pairing that pass the threshold; the rest
    // of the optimum is made of pairs at or below it.
    double matched_sum = 0;
    std::vector<int> seen(nd, 0);
    for (int k = 0; k < m->matched_count; ++k) {
      const double o = overlap(&dv[5 * m->pairs[2 * k]], &tv[5 * m->pairs[2 * k + 1]]);
      EXPECT_GT(o, 0.1 - 1e-6);
      matched_sum += o;
      ++seen[m->pairs[2 * k]];
    }
    for (int k = 0; k < m->unmatched_count; ++k) ++seen[m->unmatched[k]];
    for (int k = 0; k < nd; ++k) EXPECT_EQ(seen[k], 1) << "detection " << k << " listed once";
    EXPECT_LE(matched_sum, best + 1e-5);
    EXPECT_GE(matched_sum + 0.1 * (n - m->matched_count) + 1e-5, best) << "trial " << trial;
    oru_release_sort_match_info(&m);
  }
}

TEST(SortTracker, IdsStayStableThroughACrossing) {
  oru_sort_handle *h = make_handle(3, 3, 0.3f);
  ASSERT_NE(h, nullptr);
  int id_a = -1, id_b = -1;
  for (int f = 0; f < 60; ++f) {
    // A goes right, B goes left, 30 pixels apart vertically; they pass at frame 30.
    const float ax = 50 + 5 * f, bx = 350 - 5 * f;
    const auto tracks = frame(h, {box_at(ax, 100, 30, 30), box_at(bx, 130, 30, 30)});
    ASSERT_EQ(tracks.size(), 2u) << "frame " << f;
    const int a = id_near(tracks, ax, 100), b = id_near(tracks, bx, 130);
    ASSERT_GE(a, 0) << "frame " << f;
    ASSERT_GE(b, 0) << "frame " << f;
    if (f == 0) {
      id_a = a;
      id_b = b;
      EXPECT_NE(a, b);
    }
    EXPECT_EQ(a, id_a) << "frame " << f;
    EXPECT_EQ(b, id_b) << "frame " << f;
  }
  EXPECT_EQ(oru_sort_get_frame_count(h), 60);
  oru_release_sort_handle(&h);
}

TEST(SortTracker, OcclusionShorterThanMaxAgeKeepsTheId) {
  oru_sort_handle *h = make_handle(4, 1, 0.3f);
  int id = -1;
  for (int f = 0; f < 30; ++f) {
    const float x = 100 + 4 * f;
    const bool hidden = f >= 12 && f < 15;  // three frames behind something
    const auto tracks = frame(h, hidden ? std::vector<Det>{} : std::vector<Det>{box_at(x, 80, 24, 48)});
    if (hidden) {
      EXPECT_TRUE(tracks.empty()) << "a track is reported only in frames it was updated";
      EXPECT_EQ(h->count, 1u);
      continue;
    }
    ASSERT_EQ(tracks.size(), 1u) << "frame " << f;
    if (id < 0) id = tracks.begin()->first;
    EXPECT_EQ(tracks.begin()->first, id) << "frame " << f;
  }
  oru_release_sort_handle(&h);
}

TEST(SortTracker, TrackDiesAfterMaxAgeMissedFramesAndNewObjectsGetNewIds) {
  const int max_age = 3;
  oru_sort_handle *h = make_handle(max_age, 1, 0.3f);
  for (int f = 0; f < 10; ++f) frame(h, {box_at(50, 50, 20, 20)});
  ASSERT_EQ(h->count, 1u);
  const int first_id = h->trackers[0]->id;
  // Missed frames: time_since_update counts 1, 2, 3 and lives; at 4 > max_age it dies.
  for (int miss = 1; miss <= max_age; ++miss) {
    frame(h, {});
    ASSERT_EQ(h->count, 1u) << "miss " << miss;
    EXPECT_EQ(h->trackers[0]->time_since_update, miss);
  }
  frame(h, {});
  EXPECT_EQ(h->count, 0u);
  // The same place again: a new track with a new id.
  const auto tracks = frame(h, {box_at(50, 50, 20, 20)});
  ASSERT_EQ(tracks.size(), 1u);
  EXPECT_NE(tracks.begin()->first, first_id);
  EXPECT_EQ(tracks.begin()->first, first_id + 1);
  oru_release_sort_handle(&h);

  // max_age 0: one missed frame is already too many.
  h = make_handle(0, 1, 0.3f);
  frame(h, {box_at(50, 50, 20, 20)});
  ASSERT_EQ(h->count, 1u);
  frame(h, {});
  EXPECT_EQ(h->count, 0u);
  oru_release_sort_handle(&h);
}

TEST(SortTracker, UnclaimedDetectionsAreBornWithConsecutiveIds) {
  oru_sort_handle *h = make_handle(2, 1, 0.3f);
  frame(h, {box_at(50, 50, 10, 10)});
  ASSERT_EQ(h->count, 1u);
  // Two new objects far from the track: two births, ids 1 and 2, in detection order.
  const auto tracks = frame(h, {box_at(400, 50, 10, 10), box_at(50, 50, 10, 10), box_at(50, 400, 10, 10)});
  ASSERT_EQ(h->count, 3u);
  EXPECT_EQ(h->trackers[1]->id, 1);
  EXPECT_EQ(h->trackers[2]->id, 2);
  EXPECT_EQ(id_near(tracks, 400, 50), 1);
  EXPECT_EQ(id_near(tracks, 50, 400), 2);
  EXPECT_EQ(id_near(tracks, 50, 50), 0);
  oru_release_sort_handle(&h);
}

TEST(SortTracker, TenThousandFramesOfComingAndGoing) {
  oru_sort_handle *h = make_handle(5, 2, 0.3f);
  std::mt19937 gen(99);
  // Objects on slow straight paths, each living a random span of frames.
  struct Obj {
    float x, y, vx, vy;
    int end;
  };
  std::vector<Obj> objs;
  int64_t max_id = -1;
  for (int f = 0; f < 10000; ++f) {
    objs.erase(std::remove_if(objs.begin(), objs.end(), [&](const Obj &o) { return o.end <= f; }), objs.end());
    if (objs.size() < 6 && gen() % 8 == 0)
      objs.push_back({float(gen() % 600), float(gen() % 600), float(int(gen() % 5) - 2), float(int(gen() % 5) - 2),
                      f + 20 + int(gen() % 200)});
    std::vector<Det> dets;
    for (auto &o : objs) {
      o.x += o.vx;
      o.y += o.vy;
      dets.push_back(box_at(o.x, o.y, 20, 30));
    }
    const auto tracks = frame(h, dets);
    for (const auto &[id, b] : tracks) max_id = std::max<int64_t>(max_id, id);
    // Live tracks are bounded by the objects plus those waiting out max_age.
    ASSERT_LE(h->count, 40u) << "frame " << f;
  }
  EXPECT_EQ(h->capacity, 128u);
  EXPECT_EQ(oru_sort_get_frame_count(h), 10000);
  EXPECT_EQ(max_id, h->next_id - 1);
  EXPECT_EQ(oru_release_sort_handle(&h), ORU_RET_OK);
  EXPECT_EQ(h, nullptr);
}

TEST(SortTracker, SecondWayWithPayloads) {
  oru_sort_handle *h = make_handle(1, 1, 0.3f, 8.0f);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->payload_bytes, 8);
  const std::vector<float> d3 = flat({box_at(10, 10, 5, 5), box_at(100, 10, 5, 5), box_at(200, 10, 5, 5)});
  const int32_t births[3] = {-1, -1, -1};
  uint64_t blocks[3] = {0x1111, 0x2222, 0x3333};
  ASSERT_EQ(oru_sort_update_detection_v2(d3.data(), births, nullptr, 3, reinterpret_cast<uint8_t *>(blocks), h),
            ORU_RET_OK);
  ASSERT_EQ(h->count, 3u);
  EXPECT_EQ(h->next_id, 3);

  // The prediction record carries ids, times and blocks.
  oru_track_info *pred = oru_create_sort_predict(h);
  ASSERT_NE(pred, nullptr);
  ASSERT_EQ(pred->count, 3);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(pred->ids[k], k);
    EXPECT_EQ(pred->times[k], 1);
    uint64_t b;
    std::memcpy(&b, pred->payloads + 8 * k, 8);
    EXPECT_EQ(b, blocks[k]);
  }
  oru_release_track_info(&pred);
  EXPECT_EQ(oru_sort_get_frame_count(h), 1);

  // Tracks 0 and 2 are seen again with new blocks; track 1 is not.
  const std::vector<float> d2 = flat({box_at(10, 10, 5, 5), box_at(200, 10, 5, 5)});
  const int32_t seen[2] = {0, 2};
  uint64_t fresh[2] = {0xAAAA, 0xCCCC};
  ASSERT_EQ(oru_sort_update_detection_v2(d2.data(), seen, nullptr, 2, reinterpret_cast<uint8_t *>(fresh), h),
            ORU_RET_OK);
  oru_track_info *info = oru_sort_get_track_info(h);
  ASSERT_NE(info, nullptr);
  ASSERT_EQ(info->count, 2);
  EXPECT_EQ(info->ids[0], 0);
  EXPECT_EQ(info->ids[1], 2);
  uint64_t b0, b1;
  std::memcpy(&b0, info->payloads, 8);
  std::memcpy(&b1, info->payloads + 8, 8);
  EXPECT_EQ(b0, 0xAAAAu);
  EXPECT_EQ(b1, 0xCCCCu);
  EXPECT_EQ(info->times[0], 0);  // not filled by this report: left as created
  oru_release_track_info(&info);

  // A second frame without track 1: it dies (2 > max_age 1), and the block of track 2
  // moves down into place 1.
  pred = oru_create_sort_predict(h);
  oru_release_track_info(&pred);
  ASSERT_EQ(oru_sort_update_detection_v2(d2.data(), seen, nullptr, 2, nullptr, h), ORU_RET_OK);
  ASSERT_EQ(h->count, 2u);
  EXPECT_EQ(h->trackers[1]->id, 2);
  std::memcpy(&b1, h->payloads + 8, 8);
  EXPECT_EQ(b1, 0xCCCCu);

  // An id nobody has: 32, and the walk stops there: the detection before it is applied,
  // no death pass runs.
  pred = oru_create_sort_predict(h);
  oru_release_track_info(&pred);
  pred = oru_create_sort_predict(h);
  oru_release_track_info(&pred);
  const int32_t unknown[2] = {0, 77};
  ASSERT_EQ(oru_sort_update_detection_v2(d2.data(), unknown, nullptr, 2, nullptr, h), ORU_RET_ERR_UNKNOWN);
  EXPECT_EQ(h->trackers[0]->time_since_update, 0);
  ASSERT_EQ(h->count, 2u);  // track 2 is 2 frames unseen, yet still there
  EXPECT_EQ(h->trackers[1]->time_since_update, 2);
  oru_release_sort_handle(&h);
}

TEST(SortTracker, MasksAndGrowthInTheSecondWay) {
  oru_sort_handle *h = make_handle(5, 1, 0.3f);
  std::vector<Det> dets;
  for (int k = 0; k < 128; ++k) dets.push_back(box_at(float(20 * k), 0, 5, 5));
  const std::vector<float> v = flat(dets);
  std::vector<int32_t> ids(128, -1);
  ASSERT_EQ(oru_sort_update_detection_v2(v.data(), ids.data(), nullptr, 128, nullptr, h), ORU_RET_OK);
  ASSERT_EQ(h->count, 128u);
  EXPECT_EQ(h->capacity, 128u);
  // A birth that the mask refuses makes no track and uses no id, but the full array
  // doubles all the same.
  const int32_t one_new = -1;
  const uint8_t no = 0, yes = 1;
  ASSERT_EQ(oru_sort_update_detection_v2(v.data(), &one_new, &no, 1, nullptr, h), ORU_RET_OK);
  EXPECT_EQ(h->count, 128u);
  EXPECT_EQ(h->capacity, 256u);
  EXPECT_EQ(h->next_id, 128);
  ASSERT_EQ(oru_sort_update_detection_v2(v.data(), &one_new, &yes, 1, nullptr, h), ORU_RET_OK);
  EXPECT_EQ(h->count, 129u);
  EXPECT_EQ(h->trackers[128]->id, 128);
  // A masked update finds its track but leaves it alone.
  const int32_t track5 = 5;
  oru_track_info *pred = oru_create_sort_predict(h);
  oru_release_track_info(&pred);
  ASSERT_EQ(oru_sort_update_detection_v2(v.data(), &track5, &no, 1, nullptr, h), ORU_RET_OK);
  EXPECT_EQ(h->trackers[5]->time_since_update, 1);
  ASSERT_EQ(oru_sort_update_detection_v2(v.data() + 25, &track5, &yes, 1, nullptr, h), ORU_RET_OK);
  EXPECT_EQ(h->trackers[5]->time_since_update, 0);
  oru_release_sort_handle(&h);

  // An empty handle: an update by id has nothing to find; the report is empty.
  h = make_handle(1, 1, 0.3f);
  EXPECT_EQ(oru_sort_update_detection_v2(v.data(), &track5, nullptr, 1, nullptr, h), ORU_RET_ERR_UNKNOWN);
  oru_track_info *info = oru_sort_get_track_info(h);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->count, 0);
  EXPECT_EQ(info->boxes, nullptr);
  EXPECT_EQ(info->ids, nullptr);
  oru_release_track_info(&info);
  oru_release_sort_handle(&h);
}

TEST(SortTracker, FirstWayWithMatchInfoMaskAndIds) {
  oru_sort_handle *h = make_handle(2, 1, 0.3f);
  const std::vector<float> d = flat({box_at(10, 10, 8, 8), box_at(300, 10, 8, 8), box_at(600, 10, 8, 8)});
  oru_sort_match_info *m = oru_create_sort_match_info(0, 3);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(m->pairs, nullptr);
  for (int k = 0; k < 3; ++k) m->unmatched[k] = k;
  // Mask: any non-zero byte passes a birth.
  const uint8_t mask[3] = {1, 0, 2};
  int32_t ids[3];
  ASSERT_EQ(oru_sort_update_detection(d.data(), ids, mask, 3, m, h), ORU_RET_OK);
  EXPECT_EQ(ids[0], 0);
  EXPECT_EQ(ids[1], -1);
  EXPECT_EQ(ids[2], 1);
  ASSERT_EQ(h->count, 2u);
  oru_release_sort_match_info(&m);

  // Updates pass only on mask 1, yet the id is reported whatever the mask says.
  oru_track_info *pred = oru_create_sort_predict(h);
  ASSERT_NE(pred, nullptr);
  ASSERT_EQ(pred->count, 2);
  std::vector<float> p5;
  for (int k = 0; k < 2; ++k) {
    p5.insert(p5.end(), pred->boxes + 4 * k, pred->boxes + 4 * k + 4);
    p5.push_back(0);
  }
  oru_release_track_info(&pred);
  m = oru_associate_detections_to_trackers(d.data(), 3, p5.data(), 2, 0.3f);
  ASSERT_NE(m, nullptr);
  ASSERT_EQ(m->matched_count, 2);
  const uint8_t mask2[3] = {1, 1, 2};
  ASSERT_EQ(oru_sort_update_detection(d.data(), ids, mask2, 3, m, h), ORU_RET_OK);
  EXPECT_EQ(ids[0], 0);
  EXPECT_EQ(ids[2], 1);
  EXPECT_EQ(ids[1], 2);  // detection 1 was unmatched and is born now
  EXPECT_EQ(h->trackers[0]->time_since_update, 0);
  EXPECT_EQ(h->trackers[1]->time_since_update, 1);  // mask 2 doesn't update
  oru_release_sort_match_info(&m);

  // A pair naming a track that isn't there.
  m = oru_create_sort_match_info(1, 0);
  m->pairs[0] = 0;
  m->pairs[1] = 9;
  EXPECT_EQ(oru_sort_update_detection(d.data(), nullptr, nullptr, 3, m, h), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_sort_update_detection(nullptr, nullptr, nullptr, 3, m, h), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_sort_update_detection(d.data(), nullptr, nullptr, 3, nullptr, h), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_sort_update_detection(d.data(), nullptr, nullptr, 3, m, nullptr), ORU_RET_ERR_PARA);
  oru_release_sort_match_info(&m);
  oru_release_sort_handle(&h);
}

TEST(SortTracker, DeathPassSkipsTheTrackThatMovesIntoTheGap) {
  oru_sort_handle *h = make_handle(1, 1, 0.3f);
  const std::vector<float> d = flat({box_at(10, 10, 5, 5), box_at(100, 10, 5, 5), box_at(200, 10, 5, 5)});
  const int32_t births[3] = {-1, -1, -1};
  ASSERT_EQ(oru_sort_update_detection_v2(d.data(), births, nullptr, 3, nullptr, h), ORU_RET_OK);
  for (int k = 0; k < 2; ++k) {
    oru_track_info *pred = oru_create_sort_predict(h);
    oru_release_track_info(&pred);
  }
  // Tracks 0 and 1 are both past max_age; only track 2 is seen. Track 0 goes, track 1
  // slides into its place behind the walk and lives until the next pass.
  const int32_t two = 2;
  ASSERT_EQ(oru_sort_update_detection_v2(d.data() + 10, &two, nullptr, 1, nullptr, h), ORU_RET_OK);
  ASSERT_EQ(h->count, 2u);
  EXPECT_EQ(h->trackers[0]->id, 1);
  EXPECT_EQ(h->trackers[1]->id, 2);
  ASSERT_EQ(oru_sort_update_detection_v2(d.data() + 10, &two, nullptr, 1, nullptr, h), ORU_RET_OK);
  ASSERT_EQ(h->count, 1u);
  EXPECT_EQ(h->trackers[0]->id, 2);
  oru_release_sort_handle(&h);
}

TEST(SortTracker, ReportingFollowsStreakAndFrameCount) {
  // No predictions at all: frame_count stays 0, below a streak of 1, so min_hits decides.
  const std::vector<float> d = flat({box_at(10, 10, 8, 8)});
  const int32_t birth = -1;
  for (int min_hits : {1, 3}) {
    oru_sort_handle *h = make_handle(2, min_hits, 0.3f);
    ASSERT_EQ(oru_sort_update_detection_v2(d.data(), &birth, nullptr, 1, nullptr, h), ORU_RET_OK);
    oru_track_info *info = oru_sort_get_track_info(h);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->count, min_hits == 1 ? 1 : 0);
    oru_release_track_info(&info);
    oru_release_sort_handle(&h);
  }
}

TEST(SortTracker, HostileInputs) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_sort_handle(nullptr), nullptr);
  for (const oru_sort_params bad : {oru_sort_params{-1, 1, 0.3f, 0}, oru_sort_params{1, 0, 0.3f, 0},
                                    oru_sort_params{1, 1, 1.0f, 0}, oru_sort_params{1, 1, -0.1f, 0},
                                    oru_sort_params{1, 1, std::numeric_limits<float>::quiet_NaN(), 0},
                                    oru_sort_params{1, 1, 0.3f, -4}})
    EXPECT_EQ(oru_create_sort_handle(&bad), nullptr);
  EXPECT_EQ(oru_sort_get_track_info(nullptr), nullptr);
  EXPECT_EQ(oru_create_sort_predict(nullptr), nullptr);
  EXPECT_EQ(oru_sort_update(nullptr, 0, nullptr), nullptr);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Your input params are wrong!"), std::string::npos);
  EXPECT_EQ(oru_sort_get_frame_count(nullptr), -1);
  EXPECT_EQ(oru_release_sort_handle(nullptr), ORU_RET_ERR_PARA);
  oru_sort_handle *none = nullptr;
  EXPECT_EQ(oru_release_sort_handle(&none), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_release_track_info(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_sort_update_detection_v2(nullptr, nullptr, nullptr, 0, nullptr, nullptr), ORU_RET_ERR_PARA);

  oru_sort_handle *h = make_handle(2, 1, 0.3f);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_sort_update(nullptr, 3, h), nullptr);
  EXPECT_EQ(oru_sort_update(nullptr, -1, h), nullptr);
  testing::internal::GetCapturedStdout();
  // Zero boxes, reversed boxes and NaN coordinates go through without harm.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (int f = 0; f < 5; ++f) {
    const std::vector<Det> odd = {Det{0, 0, 0, 0, 0}, Det{50, 50, 10, 10, 0}, Det{nan, 5, 9, nan, 0},
                                  Det{nan, nan, nan, nan, nan}, box_at(300, 300, 10, 10)};
    const std::vector<float> v = flat(odd);
    oru_track_info *info = oru_sort_update(v.data(), int32_t(odd.size()), h);
    ASSERT_NE(info, nullptr) << "frame " << f;
    EXPECT_LE(info->count, int32_t(h->count));
    oru_release_track_info(&info);
  }
  // The well-formed object keeps one track through the noise.
  oru_track_info *info = oru_sort_update(flat({box_at(300, 300, 10, 10)}).data(), 1, h);
  ASSERT_NE(info, nullptr);
  bool found = false;
  for (int k = 0; k < info->count; ++k)
    found |= std::fabs((info->boxes[4 * k] + info->boxes[4 * k + 2]) / 2 - 300) < 1;
  EXPECT_TRUE(found);
  oru_release_track_info(&info);
  oru_release_sort_handle(&h);

  // 10 000 detections in one frame against a few tracks, then the next frame.
  h = make_handle(1, 1, 0.3f);
  frame(h, {box_at(0, 0, 4, 4), box_at(504, 0, 4, 4)});
  std::vector<Det> many;
  for (int k = 0; k < 10000; ++k) many.push_back(box_at(float(k % 100) * 12, float(k / 100) * 12, 4, 4));
  const auto tracks = frame(h, many);
  EXPECT_EQ(h->count, 10000u);
  EXPECT_EQ(h->capacity, 16384u);
  EXPECT_EQ(tracks.size(), 10000u);
  frame(h, {box_at(0, 0, 4, 4)});
  EXPECT_LE(h->count, 10000u);
  oru_release_sort_handle(&h);
}

}  // namespace
