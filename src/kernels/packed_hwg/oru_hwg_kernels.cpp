// Plain forms of the packed HWG kernels: the reference for the vector forms, written as
// directly as the arithmetic reads, and the choice of form for each member.
#include "kernels/packed_hwg/oru_hwg_kernels.h"

#include <algorithm>
#include <cmath>

#include "conv/oru_conv_internal.h"

namespace oru {

namespace {

template <int I>
float lane_sum(const float *p) {
  if (I == 1) return p[0];
  if (I == 4) return (p[0] + p[1]) + (p[2] + p[3]);
  return ((p[0] + p[1]) + (p[2] + p[3])) + ((p[4] + p[5]) + (p[6] + p[7]));
}

// The lanes of a one-tap window: q_k = fma(w[2k+1], x[2k+1], w[2k] * x[2k]), then
// the pairs as lanes are summed, ((q0 + q1) + (q2 + q3)) for 8 lanes.
template <int I>
float pair_sum(const float *x, const float *w) {
  if (I == 1) return std::fma(w[0], x[0], 0.0f);
  float q[4];
  for (int k = 0; k < I / 2; ++k) q[k] = std::fma(w[2 * k + 1], x[2 * k + 1], w[2 * k] * x[2 * k]);
  if (I == 4) return q[0] + q[1];
  return (q[0] + q[1]) + (q[2] + q[3]);
}

template <int K, int S, int O, int I>
void std_plain(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h, int32_t in_row,
               const float *w) {
  constexpr int taps = K * K, pad = K / 2;
  const int32_t out_w = out_row / O, in_w = in_row / I;
  for (int32_t oy = 0; oy < out_h; ++oy)
    for (int32_t ox = 0; ox < out_w; ++ox) {
      float *dst = out + (int64_t(oy) * out_w + ox) * O;
      for (int a = 0; a < O; ++a) {
        if (K == 1) {
          // One tap: each pair of lanes is one product fused into the other, then the pairs.
          const float *px = in + (int64_t(oy) * in_w + ox) * I;
          const float *wt = w + a * I;
          dst[a] += pair_sum<I>(px, wt);
          continue;
        }
        float p[I] = {};
        for (int ky = 0; ky < K; ++ky) {
          const int32_t iy = S * oy + ky - pad;
          if (iy < 0 || iy >= in_h) continue;
          for (int kx = 0; kx < K; ++kx) {
            const int32_t ix = S * ox + kx - pad;
            if (ix < 0 || ix >= in_w) continue;
            const float *px = in + (int64_t(iy) * in_w + ix) * I;
            const float *wt = w + (a * taps + ky * K + kx) * I;
            for (int b = 0; b < I; ++b) p[b] = std::fma(wt[b], px[b], p[b]);
          }
        }
        dst[a] += lane_sum<I>(p);
      }
    }
}

template <int S, int G>
void dw_plain(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h, int32_t in_row,
              const float *w) {
  const int32_t out_w = out_row / G, in_w = in_row / G;
  for (int32_t oy = 0; oy < out_h; ++oy)
    for (int32_t ox = 0; ox < out_w; ++ox)
      for (int j = 0; j < G; ++j) {
        float s = 0.0f;
        for (int ky = 0; ky < 3; ++ky) {
          const int32_t iy = S * oy + ky - 1;
          if (iy < 0 || iy >= in_h) continue;
          for (int kx = 0; kx < 3; ++kx) {
            const int32_t ix = S * ox + kx - 1;
            if (ix < 0 || ix >= in_w) continue;
            s = std::fma(w[(ky * 3 + kx) * G + j], in[(int64_t(iy) * in_w + ix) * G + j], s);
          }
        }
        out[(int64_t(oy) * out_w + ox) * G + j] = s;
      }
}

// The group kernels' reference: one member call per input group, and per output group of a pair.
template <int K, int S>
void group_plain(float *out, int64_t gap, int32_t out_h, int32_t out_w, const float *in, int32_t in_h,
                 int32_t in_w, int32_t in_c, const float *w0, const float *w1, float *) {
  const int64_t in_plane = int64_t(in_w) * in_h;
  for (int half = 0; half < (w1 ? 2 : 1); ++half) {
    const float *w = half ? w1 : w0;
    std::fill(out + half * gap, out + half * gap + int64_t(out_w) * out_h * 8, 0.0f);
    for (int32_t i0 = 0; i0 < in_c;) {
      const int gi = in_c - i0 >= 8 ? 8 : in_c - i0 >= 4 ? 4 : 1;
      const HwgKernel k = gi == 8 ? &std_plain<K, S, 8, 8> : gi == 4 ? &std_plain<K, S, 8, 4> : &std_plain<K, S, 8, 1>;
      k(out + half * gap, out_h, out_w * 8, in + i0 * in_plane, in_h, in_w * gi, w);
      w += 8 * gi * K * K;
      i0 += gi;
    }
  }
}

#define ORU_HWG_STD_ROW(K, S, O) {&std_plain<K, S, O, 8>, &std_plain<K, S, O, 4>, &std_plain<K, S, O, 1>}
#define ORU_HWG_STD(K, S) {ORU_HWG_STD_ROW(K, S, 8), ORU_HWG_STD_ROW(K, S, 4), ORU_HWG_STD_ROW(K, S, 1)}
#define ORU_HWG_DW(S) \
  {{&dw_plain<S, 8>, nullptr, nullptr}, {nullptr, &dw_plain<S, 4>, nullptr}, {nullptr, nullptr, &dw_plain<S, 1>}}

}  // namespace

const HwgGroupTable hwg_group_kernels_plain = {{&group_plain<1, 1>, &group_plain<3, 1>, &group_plain<3, 2>},
                                               {&group_plain<1, 1>, &group_plain<3, 1>, &group_plain<3, 2>}};

const HwgTable hwg_kernels_plain = {ORU_HWG_STD(1, 1), ORU_HWG_STD(3, 1), ORU_HWG_STD(3, 2), ORU_HWG_DW(1),
                                    ORU_HWG_DW(2)};

KernelForms<HwgKernel> hwg_kernel_forms(int family, int o, int i) {
  return KernelForms<HwgKernel>{hwg_kernels_plain[family][o][i], ORU_AVX2_FORM(hwg_kernels_avx2[family][o][i]),
                                ORU_AVX512_FORM(hwg_kernels_avx512[family][o][i]),
                                ORU_NEON_FORM(hwg_kernels_neon[family][o][i])};
}

HwgKernel hwg_kernel(int family, int o, int i) {
  static const struct Table {
    HwgKernel k[hwg_family_count][3][3];
    Table() {
      for (int f = 0; f < hwg_family_count; ++f)
        for (int a = 0; a < 3; ++a)
          for (int b = 0; b < 3; ++b) k[f][a][b] = hwg_kernels_plain[f][a][b] ? pick(hwg_kernel_forms(f, a, b)) : nullptr;
    }
  } table;
  return table.k[family][o][i];
}

void hwg_bias_act_plain(float *y, const float *x, const float *b, int g, int64_t pixels, int act) {
  for (int64_t p = 0; p < pixels; ++p)
    for (int j = 0; j < g; ++j) y[p * g + j] = act_scalar(x[p * g + j] + b[j], act);
}

void hwg_interleave_plain(float *dst, const float *src, int g, int64_t plane) {
  for (int64_t q = 0; q < plane; ++q)
    for (int j = 0; j < g; ++j) dst[q * g + j] = src[j * plane + q];
}

void hwg_deinterleave_plain(float *dst, const float *src, int g, int64_t plane) {
  for (int64_t q = 0; q < plane; ++q)
    for (int j = 0; j < g; ++j) dst[j * plane + q] = src[q * g + j];
}

KernelForms<HwgGroupKernel> hwg_group_kernel_forms(int pair, int family) {
  return KernelForms<HwgGroupKernel>{hwg_group_kernels_plain[pair][family],
                                     ORU_AVX2_FORM(hwg_group_kernels_avx2[pair][family]),
                                     ORU_AVX512_FORM(hwg_group_kernels_avx512[pair][family]),
                                     ORU_NEON_FORM(hwg_group_kernels_neon[pair][family])};
}

HwgGroupKernel hwg_group_kernel(int pair, int family) {
  static const struct Table {
    HwgGroupKernel k[2][3];
    Table() {
      for (int p = 0; p < 2; ++p)
        for (int f = 0; f < 3; ++f) {
          KernelForms<HwgGroupKernel> forms = hwg_group_kernel_forms(p, f);
          forms.plain = nullptr;
          k[p][f] = pick(forms);
        }
    }
  } table;
  return table.k[pair][family];
}

}  // namespace oru
