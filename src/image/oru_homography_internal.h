// The direct part of the homography fit, for solvers that refine on their own terms.
#ifndef ORU_HOMOGRAPHY_INTERNAL_H
#define ORU_HOMOGRAPHY_INTERNAL_H

#include <cstdint>

namespace oru {

// Normalised direct linear solution from n >= 4 pairs of x, y: H row-major with
// H[8] = 1. False, with H untouched, for a degenerate set.
bool homography_direct_solution(double H[9], const double *src, const double *dst, int32_t n);

}  // namespace oru

#endif
