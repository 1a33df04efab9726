// The packed HWG kernel family: convolutions over channel groups of 8, 4 and 1 whose pixels
// hold their group's channels side by side. Every member takes (output of the group, output
// height, output row length in floats, input of the group, input height, input row length
// in floats, the group pair's weight block in the packed order) and has a plain form, the
// reference, and vector forms that agree with it bit for bit.
//
// Arithmetic of a standard member with output width O and input width I, per output pixel
// and output lane a: p[b] = fused multiply-add chain over the taps in order (ky, kx) of
// w(a, b, tap) * in(tap, b), taps outside the input skipped; then the lanes in pairs,
// ((p0 + p1) + (p2 + p3)) + ((p4 + p5) + (p6 + p7)); then added to the output lane.
// With a single tap (1x1) a lane's chain is one product, and the pair adds fuse with it:
// q_k = fma(w[2k+1], x[2k+1], w[2k] * x[2k]), then ((q0 + q1) + (q2 + q3)).
// A depthwise member stores, per lane, the fused chain over the taps.
#ifndef ORU_KERNELS_HWG_KERNELS_H
#define ORU_KERNELS_HWG_KERNELS_H

#include <cstdint>

#include "core/oru_dispatch.h"

namespace oru {

using HwgKernel = void (*)(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                           int32_t in_row, const float *w);

// The five families; the pointwise family sees a whole plane as one line of pixels.
enum HwgFamily : int { hwg_std_1x1_s1 = 0, hwg_std_3x3_s1, hwg_std_3x3_s2, hwg_dw_3x3_s1, hwg_dw_3x3_s2,
                       hwg_family_count };

// Group width to table index and back: 8 -> 0, 4 -> 1, 1 -> 2.
constexpr int hwg_width_index(int g) { return g == 8 ? 0 : g == 4 ? 1 : 2; }
constexpr int hwg_width_of(int index) { return index == 0 ? 8 : index == 1 ? 4 : 1; }

// Forms by [family][output width index][input width index]; depthwise families fill only
// the diagonal. A table an architecture doesn't build is never referenced there.
using HwgTable = HwgKernel[hwg_family_count][3][3];
extern const HwgTable hwg_kernels_plain;
extern const HwgTable hwg_kernels_avx2;
extern const HwgTable hwg_kernels_avx512;
extern const HwgTable hwg_kernels_neon;

// Every form of one member, and the best one that runs here (picked once per member).
KernelForms<HwgKernel> hwg_kernel_forms(int family, int o, int i);
HwgKernel hwg_kernel(int family, int o, int i);

// One output 8-group over every input group in one pass, the output held in registers: out
// is the group's plane (out_w pixels of 8 floats per row), in the whole HWG input of in_c
// channels, w0 the group's packed blocks (all input groups in order). The pair form computes
// two neighbouring 8-groups in 16-lane vectors: the second plane lies `gap` floats after the
// first and w1 holds its blocks. scratch takes taps * in_c * 16 floats. The kernels store:
// each output gets the sum that the member calls, one input group after another, leave in an
// output cleared to +0 before them.
using HwgGroupKernel = void (*)(float *out, int64_t gap, int32_t out_h, int32_t out_w, const float *in,
                                int32_t in_h, int32_t in_w, int32_t in_c, const float *w0, const float *w1,
                                float *scratch);
// [0: single group, 1: pair][standard family]; the plain forms call the members.
using HwgGroupTable = HwgGroupKernel[2][3];
extern const HwgGroupTable hwg_group_kernels_plain;
extern const HwgGroupTable hwg_group_kernels_avx2;
extern const HwgGroupTable hwg_group_kernels_avx512;
extern const HwgGroupTable hwg_group_kernels_neon;

KernelForms<HwgGroupKernel> hwg_group_kernel_forms(int pair, int family);
// The best vector form that runs here, or null when there is none (then the driver calls
// the members).
HwgGroupKernel hwg_group_kernel(int pair, int family);

// y = act(x + b) over `pixels` pixels of one channel group of width g (8 or 4), b the group's g
// biases, act a code of the bias pass (tanh goes through the plain form in every form).
void hwg_bias_act_plain(float *y, const float *x, const float *b, int g, int64_t pixels, int act);
void hwg_bias_act_avx2(float *y, const float *x, const float *b, int g, int64_t pixels, int act);
void hwg_bias_act_avx512(float *y, const float *x, const float *b, int g, int64_t pixels, int act);
void hwg_bias_act_neon(float *y, const float *x, const float *b, int g, int64_t pixels, int act);

// One channel group of width g (8 or 4) between planes and pixels: interleave writes
// dst[q * g + j] = src[j * plane + q], deinterleave the reverse. Pure moves, so every form
// gives the same bits.
void hwg_interleave_plain(float *dst, const float *src, int g, int64_t plane);
void hwg_interleave_avx2(float *dst, const float *src, int g, int64_t plane);
void hwg_interleave_avx512(float *dst, const float *src, int g, int64_t plane);
void hwg_interleave_neon(float *dst, const float *src, int g, int64_t plane);
void hwg_deinterleave_plain(float *dst, const float *src, int g, int64_t plane);
void hwg_deinterleave_avx2(float *dst, const float *src, int g, int64_t plane);
void hwg_deinterleave_avx512(float *dst, const float *src, int g, int64_t plane);
void hwg_deinterleave_neon(float *dst, const float *src, int g, int64_t plane);

}  // namespace oru

#endif
