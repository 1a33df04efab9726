// Rectangular linear sum assignment by shortest augmenting paths with dual variables.
// The working copy and the duals are doubles: the float costs then subtract and sum
// without rounding in all but extreme ranges, so ties stay ties and the optimum found is
// the optimum of the caller's numbers.
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <limits>

#include "core/oru_dispatch.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "tracking/oru_tracking_internal.h"

namespace oru {

int32_t lsa_relax_plain(const double *crow, const double *v, const int32_t *rank, const int32_t *row4col,
                        double *shortest, int32_t *path, int32_t nc, int32_t row, double min_val, double u_row,
                        double *lowest) {
  double low = std::numeric_limits<double>::infinity();
  for (int32_t j = 0; j < nc; ++j) {
    const double r = min_val + crow[j] - u_row - v[j];
    if (r < shortest[j]) {
      path[j] = row;
      shortest[j] = r;
    }
    if (shortest[j] < low) low = shortest[j];
  }
  *lowest = low;
  LsaPick pick;
  for (int32_t j = 0; j < nc; ++j)
    if (shortest[j] == low) pick.offer(j, rank, row4col);
  return pick.column();
}

namespace {

// Everything the search needs, taken in three blocks.
struct LsaWork {
  Scratch<double> reals;
  Scratch<int32_t> ints;
  double *c, *u, *v, *shortest, *final_short, *v_saved;
  int32_t *col4row, *row4col, *path, *rem, *rank, *sr, *sc;

  bool init(int64_t nr, int64_t nc) {
    if (!reals.reset(nr * nc + nr + 4 * nc) || !ints.reset(2 * nr + 5 * nc)) return false;
    c = reals.get();
    u = c + nr * nc;
    v = u + nr;
    shortest = v + nc;
    final_short = shortest + nc;
    v_saved = final_short + nc;
    col4row = ints.get();
    sr = col4row + nr;
    row4col = sr + nr;
    path = row4col + nc;
    rem = path + nc;
    rank = rem + nc;
    sc = rank + nc;
    return true;
  }
};

// Copies (or transposes) the caller's costs so that rows <= cols, negated for a maximum,
// and shifts them so that the least is 0; the duals can then start at zero.
void load_costs(const oru_matrix *cost, bool transpose, bool maximize, double *c, int32_t nr, int32_t nc) {
  const auto *base = static_cast<const uint8_t *>(cost->data);
  const double sign = maximize ? -1.0 : 1.0;
  for (int32_t r = 0; r < cost->rows; ++r) {
    const float *src = reinterpret_cast<const float *>(base + cost->stride * r);
    if (transpose) {
      for (int32_t k = 0; k < cost->cols; ++k) c[int64_t(k) * nc + r] = sign * double(src[k]);
    } else {
      double *dst = c + int64_t(r) * nc;
      for (int32_t k = 0; k < cost->cols; ++k) dst[k] = sign * double(src[k]);
    }
  }
  const int64_t total = int64_t(nr) * nc;
  // Four running minima so the search isn't one long chain of dependent comparisons;
  // NaN never wins a comparison, in any of them.
  double m4[4] = {FLT_MAX, FLT_MAX, FLT_MAX, FLT_MAX};
  int64_t k = 0;
  for (; k + 4 <= total; k += 4)
    for (int l = 0; l < 4; ++l) m4[l] = c[k + l] < m4[l] ? c[k + l] : m4[l];
  for (; k < total; ++k) m4[0] = c[k] < m4[0] ? c[k] : m4[0];
  double m = m4[0];
  for (int l = 1; l < 4; ++l) m = m4[l] < m ? m4[l] : m;
  for (k = 0; k < total; ++k) c[k] -= m;
}

// Finds the augmenting path from row cur and applies it. False when some row reached
// can go nowhere: the matrix is infeasible.
//
// The remaining columns form a list in falling order from which a chosen column is
// removed by moving the last one into its place; the list order only decides ties, so
// it is kept as ranks while the relaxation walks the columns in storage order. A column
// taken off the list gets v = -infinity and shortest = +infinity until the duals are
// updated, which keeps it out of every later relaxation and choice.
bool augment_row(LsaWork &w, int32_t cur, int32_t nc, LsaRelaxFn relax) {
  const double inf = std::numeric_limits<double>::infinity();
  for (int32_t j = 0; j < nc; ++j) {
    w.shortest[j] = inf;
    w.rem[nc - 1 - j] = j;
    w.rank[j] = nc - 1 - j;
  }
  int32_t n = nc, nsr = 0, nsc = 0, sink = -1, i = cur;
  double min_val = 0.0;
  bool feasible = true;
  while (sink == -1) {
    w.sr[nsr++] = i;
    double lowest;
    const int32_t j = relax(w.c + int64_t(i) * nc, w.v, w.rank, w.row4col, w.shortest, w.path, nc, i, min_val,
                            w.u[i], &lowest);
    min_val = lowest;
    if (min_val == inf) {
      feasible = false;
      break;
    }
    if (w.row4col[j] == -1)
      sink = j;
    else
      i = w.row4col[j];
    w.sc[nsc++] = j;
    const int32_t index = w.rank[j], last = w.rem[--n];
    w.rem[index] = last;
    w.rank[last] = index;
    w.final_short[j] = w.shortest[j];
    w.v_saved[j] = w.v[j];
    w.shortest[j] = inf;
    w.v[j] = -inf;
  }
  for (int32_t k = 0; k < nsc; ++k) w.v[w.sc[k]] = w.v_saved[w.sc[k]];
  if (!feasible) return false;

  w.u[cur] += min_val;
  for (int32_t k = 1; k < nsr; ++k) {
    const int32_t r = w.sr[k];
    w.u[r] += min_val - w.final_short[w.col4row[r]];
  }
  for (int32_t k = 0; k < nsc; ++k) {
    const int32_t j = w.sc[k];
    w.v[j] -= min_val - w.final_short[j];
  }
  int32_t j = sink;
  for (;;) {
    const int32_t r = w.path[j];
    w.row4col[j] = r;
    const int32_t previous = w.col4row[r];
    w.col4row[r] = j;
    j = previous;
    if (r == cur) break;
  }
  return true;
}

}  // namespace

oru_linear_sum_assignment *linear_sum_assignment_with(const oru_matrix *cost, int32_t maximize, LsaRelaxFn relax) {
  if (!cost) return nullptr;
  if (cost->type != aif32 || !cost->data || cost->rows < 1 || cost->cols < 1 ||
      cost->stride < int64_t(cost->cols) * int64_t(sizeof(float)))
    ORU_FAIL_MSG(nullptr, oru_error_string[1]);
  const bool transpose = cost->rows > cost->cols;
  const int32_t nr = transpose ? cost->cols : cost->rows;
  const int32_t nc = transpose ? cost->rows : cost->cols;

  LsaWork w;
  if (!w.init(nr, nc)) return nullptr;
  load_costs(cost, transpose, maximize != 0, w.c, nr, nc);
  for (int32_t r = 0; r < nr; ++r) {
    w.u[r] = 0.0;
    w.col4row[r] = -1;
  }
  for (int32_t j = 0; j < nc; ++j) {
    w.v[j] = 0.0;
    w.row4col[j] = -1;
    w.path[j] = -1;
  }
  for (int32_t cur = 0; cur < nr; ++cur) {
    if (!augment_row(w, cur, nc, relax)) {
      std::printf("infeasible cost matrix\n");
      return nullptr;
    }
  }

  auto *result = alloc_zeroed<oru_linear_sum_assignment>();
  Scratch<int32_t> pairs(int64_t(nr) * 2);
  if (!result || !pairs) {
    oru_free(result);
    ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  }
  for (int32_t k = 0; k < nr; ++k) {
    pairs[2 * k] = transpose ? w.col4row[k] : k;
    pairs[2 * k + 1] = transpose ? k : w.col4row[k];
  }
  result->count = nr;
  result->pairs = pairs.release();
  return result;
}

}  // namespace oru

extern "C" {

ORU_API oru_linear_sum_assignment *oru_create_linear_sum_assignment(const oru_matrix *cost, int32_t maximize) {
  static const oru::LsaRelaxFn relax = oru::pick(ORU_KERNEL_FORMS(oru::lsa_relax));
  return oru::linear_sum_assignment_with(cost, maximize, relax);
}

ORU_API uint32_t oru_release_linear_sum_assignment(oru_linear_sum_assignment **assignment) {
  if (!assignment || !*assignment) return ORU_RET_ERR_PARA;
  oru_free((*assignment)->pairs);
  oru_free(*assignment);
  *assignment = nullptr;
  return ORU_RET_OK;
}

}  // extern "C"
