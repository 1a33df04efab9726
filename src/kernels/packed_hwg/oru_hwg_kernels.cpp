// Plain forms of the packed HWG kernels: the reference for the vector forms, written as
// directly as the arithmetic reads, and the choice of form for each member.
#include "kernels/packed_hwg/oru_hwg_kernels.h"

#include <cmath>

namespace oru {

namespace {

template <int I>
float lane_sum(const float *p) {
  if (I == 1) return p[0];
  if (I == 4) return (p[0] + p[1]) + (p[2] + p[3]);
  return ((p[0] + p[1]) + (p[2] + p[3])) + ((p[4] + p[5]) + (p[6] + p[7]));
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

#define ORU_HWG_STD_ROW(K, S, O) {&std_plain<K, S, O, 8>, &std_plain<K, S, O, 4>, &std_plain<K, S, O, 1>}
#define ORU_HWG_STD(K, S) {ORU_HWG_STD_ROW(K, S, 8), ORU_HWG_STD_ROW(K, S, 4), ORU_HWG_STD_ROW(K, S, 1)}
#define ORU_HWG_DW(S) \
  {{&dw_plain<S, 8>, nullptr, nullptr}, {nullptr, &dw_plain<S, 4>, nullptr}, {nullptr, nullptr, &dw_plain<S, 1>}}

}  // namespace

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

HwgPairKernel hwg_pair_kernel(int family, int i) {
  if (family < hwg_std_1x1_s1 || family > hwg_std_3x3_s2) return nullptr;
  static const struct Table {
    HwgPairKernel k[3][3];
    Table() {
      for (int f = 0; f < 3; ++f)
        for (int b = 0; b < 3; ++b)
          k[f][b] = pick(KernelForms<HwgPairKernel>{nullptr, nullptr, ORU_AVX512_FORM(hwg_pair_kernels_avx512[f][b]),
                                                    nullptr});
    }
  } table;
  return table.k[family][i];
}

}  // namespace oru
