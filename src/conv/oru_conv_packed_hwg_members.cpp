// The exported members of the packed HWG kernel family: each runs the best form of its
// kernel that this processor has.
#include "kernels/packed_hwg/oru_hwg_kernels.h"
#include "oru_conv.h"

#define ORU_HWG_MEMBER(name, family, o, i)                                                              \
  ORU_API void name(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h, int32_t in_row, \
                    const float *w) {                                                                     \
    oru::hwg_kernel(oru::family, oru::hwg_width_index(o), oru::hwg_width_index(i))(out, out_h, out_row, in, in_h, \
                                                                                 in_row, w);             \
  }

extern "C" {

ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o8i8_real32, hwg_std_1x1_s1, 8, 8)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o8i4_real32, hwg_std_1x1_s1, 8, 4)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o8i1_real32, hwg_std_1x1_s1, 8, 1)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o4i8_real32, hwg_std_1x1_s1, 4, 8)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o4i4_real32, hwg_std_1x1_s1, 4, 4)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o4i1_real32, hwg_std_1x1_s1, 4, 1)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o1i8_real32, hwg_std_1x1_s1, 1, 8)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o1i4_real32, hwg_std_1x1_s1, 1, 4)
ORU_HWG_MEMBER(oru_std_conv2d_1x1_s1_o1i1_real32, hwg_std_1x1_s1, 1, 1)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o8i8_real32, hwg_std_3x3_s1, 8, 8)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o8i4_real32, hwg_std_3x3_s1, 8, 4)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o8i1_real32, hwg_std_3x3_s1, 8, 1)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o4i8_real32, hwg_std_3x3_s1, 4, 8)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o4i4_real32, hwg_std_3x3_s1, 4, 4)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o4i1_real32, hwg_std_3x3_s1, 4, 1)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o1i8_real32, hwg_std_3x3_s1, 1, 8)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o1i4_real32, hwg_std_3x3_s1, 1, 4)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s1_o1i1_real32, hwg_std_3x3_s1, 1, 1)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o8i8_real32, hwg_std_3x3_s2, 8, 8)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o8i4_real32, hwg_std_3x3_s2, 8, 4)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o8i1_real32, hwg_std_3x3_s2, 8, 1)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o4i8_real32, hwg_std_3x3_s2, 4, 8)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o4i4_real32, hwg_std_3x3_s2, 4, 4)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o4i1_real32, hwg_std_3x3_s2, 4, 1)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o1i8_real32, hwg_std_3x3_s2, 1, 8)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o1i4_real32, hwg_std_3x3_s2, 1, 4)
ORU_HWG_MEMBER(oru_std_conv2d_3x3_s2_o1i1_real32, hwg_std_3x3_s2, 1, 1)
ORU_HWG_MEMBER(oru_depthwise_conv2d_3x3_s1_o8i8_real32, hwg_dw_3x3_s1, 8, 8)
ORU_HWG_MEMBER(oru_depthwise_conv2d_3x3_s1_o4i4_real32, hwg_dw_3x3_s1, 4, 4)
ORU_HWG_MEMBER(oru_depthwise_conv2d_3x3_s1_o1i1_real32, hwg_dw_3x3_s1, 1, 1)
ORU_HWG_MEMBER(oru_depthwise_conv2d_3x3_s2_o8i8_real32, hwg_dw_3x3_s2, 8, 8)
ORU_HWG_MEMBER(oru_depthwise_conv2d_3x3_s2_o4i4_real32, hwg_dw_3x3_s2, 4, 4)
ORU_HWG_MEMBER(oru_depthwise_conv2d_3x3_s2_o1i1_real32, hwg_dw_3x3_s2, 1, 1)

}  // extern "C"
