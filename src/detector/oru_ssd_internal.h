// Prior layout of the SSD detector, usable without a tensor.
#ifndef ORU_SSD_INTERNAL_H
#define ORU_SSD_INTERNAL_H

#include <cstdint>

namespace oru {

// Number of priors for an input of height x width.
int32_t ssd_prior_count(int32_t height, int32_t width);

// Writes ssd_prior_count(height, width) priors of four floats each.
void ssd_fill_priors(float *priors, int32_t height, int32_t width, int32_t swapped);

}  // namespace oru

#endif
