// Pieces of the tracking unit shared between its files and with the tests, not exported.
#ifndef ORU_TRACKING_INTERNAL_H
#define ORU_TRACKING_INTERNAL_H

#include <cstdint>

#include "oru_tracking.h"

// The report record of the tracker; callers get it from the tracker's calls and give it
// back with oru_release_track_info.
oru_track_info *oru_create_track_info(int32_t count, int64_t payload_bytes);

namespace oru {

// Box (x0, y0, x1, y1) to the measured part of a track's state (cx, cy, area, aspect),
// sizes clamped at 1e-7; and the first four state entries back to a box.
void box_to_measurement(const float *box, float *z);
void state_to_box(const float *x, float *box);

// One relaxation step of the shortest augmenting path, over all columns in storage order.
// Columns already on the path carry v = -infinity and shortest = +infinity, so they are
// neither relaxed nor chosen. For each column: r = min_val + crow[j] - u_row - v[j]; a
// smaller r replaces shortest[j] and sets path[j] to row. Stores the least shortest in
// lowest and returns its column, chosen as the scan of the remaining list would: rank[j]
// is the column's place in that list, and among equal distances the free column
// (row4col -1) latest in the list wins, else the earliest column in the list. With every
// distance infinite lowest is +infinity and the column is meaningless.
using LsaRelaxFn = int32_t (*)(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                               double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val,
                               double u_row, double *lowest);

int32_t lsa_relax_plain(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                        double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                        double *lowest);
int32_t lsa_relax_avx2(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                       double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                       double *lowest);
int32_t lsa_relax_avx512(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                         double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                         double *lowest);
int32_t lsa_relax_neon(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                       double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                       double *lowest);

// Tie rule of the choice between columns at the least distance, one candidate at a time.
struct LsaPick {
  int32_t free_col = -1, free_rank = -1;  // latest free candidate in list order
  int32_t any_col = -1, any_rank = 0x7fffffff;  // earliest candidate in list order
  void offer(int32_t j, const int32_t *rank, const int32_t *row4col) {
    const int32_t k = rank[j];
    if (row4col[j] < 0 && k > free_rank) {
      free_rank = k;
      free_col = j;
    }
    if (k < any_rank) {
      any_rank = k;
      any_col = j;
    }
  }
  int32_t column() const { return free_col >= 0 ? free_col : any_col; }
};

// The assignment with a chosen relaxation form, for the differential tests.
oru_linear_sum_assignment *linear_sum_assignment_with(const oru_matrix *cost, int32_t maximize, LsaRelaxFn relax);

}  // namespace oru

#endif
