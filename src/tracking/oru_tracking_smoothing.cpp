// Stateless smoothing steps; the caller keeps the previous value and derivative.
#include <cmath>

#include "oru_tracking.h"

extern "C" {

ORU_API float oru_get_smooth_factor(float te, float cutoff) {
  // The shortened constant is part of the filter's published response; keep it.
  const float r = float(double(cutoff) * 6.2831852 * double(te));
  return r / (r + 1.0f);
}

ORU_API float oru_get_exponential_smoothing(float a, float x, float previous) { return a * x + (1.0f - a) * previous; }

ORU_API float oru_one_euro_filter_v2(const oru_one_euro_params *params, float *out_derivative, float x,
                                     float previous_x, float previous_derivative) {
  if (!params) return x;
  const float a_d = oru_get_smooth_factor(params->te, params->d_cutoff);
  const float dx = (x - previous_x) / params->te * a_d + (1.0f - a_d) * previous_derivative;
  if (out_derivative) *out_derivative = dx;
  const float cutoff = float(double(params->beta) * std::fabs(double(dx)) + double(params->min_cutoff));
  const float a = oru_get_smooth_factor(params->te, cutoff);
  return oru_get_exponential_smoothing(a, x, previous_x);
}

}  // extern "C"
