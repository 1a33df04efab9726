// What the packed HWG convolution, its weight packers and the layout conversions share.
#ifndef ORU_CONV_PACKED_HWG_INTERNAL_H
#define ORU_CONV_PACKED_HWG_INTERNAL_H

#include <cstdint>

namespace oru {

// Width of the channel group that begins with `remaining` channels left: 8 while at least 8
// remain, then one group of 4 if at least 4 remain, then singles.
constexpr int hwg_group_width(int32_t remaining) { return remaining >= 8 ? 8 : remaining >= 4 ? 4 : 1; }

}  // namespace oru

#endif
