// The hot row kernels written once over a vector type V; each vector file instantiates
// them with its own V. Every tap after the first is a fused multiply-add in the plain
// form's order (the plain form uses std::fma), so every form matches its plain twin bit
// for bit.
#ifndef ORU_CONV_ROWS_SIMD_H
#define ORU_CONV_ROWS_SIMD_H

#include "conv/oru_conv_internal.h"
#include "kernels/conv/oru_conv_rows_scalar.h"

namespace oru {
namespace simd {

template <typename V, int Act>
inline typename V::T activate(typename V::T t) {
  const typename V::T zero = V::set1(0.0f);
  if (Act == act_relu) return V::max(t, zero);
  if (Act == act_relu6) return V::min(V::max(t, zero), V::set1(6.0f));
  if (Act == act_leaky) return V::max(t, V::mul(V::set1(0.1f), t));
  if (Act == act_hswish || Act == act_hsigmoid) {
    typename V::T c = V::min(V::max(V::add(t, V::set1(3.0f)), zero), V::set1(6.0f));
    if (Act == act_hswish) return V::mul(V::mul(t, c), V::set1(kSixth));
    return V::mul(c, V::set1(kSixth));
  }
  return t;
}

// The epilogue of a stored sum: bias of output channel o, then the activation, as the
// separate bias pass does it.
template <typename V>
inline typename V::T finish(typename V::T v, const Epilogue &e, int64_t o) {
  if (!e.bias) return v;
  v = V::add(v, V::set1(e.bias[o]));
  switch (e.act) {
    case act_relu: return activate<V, act_relu>(v);
    case act_hswish: return activate<V, act_hswish>(v);
    case act_relu6: return activate<V, act_relu6>(v);
    case act_hsigmoid: return activate<V, act_hsigmoid>(v);
    case act_leaky: return activate<V, act_leaky>(v);
    case act_none: return v;
    default: {  // tanh has no vector form: lane by lane through the scalar one
      float lanes[V::W];
      V::store(lanes, v);
      for (float &l : lanes) l = act_scalar(l, e.act);
      return V::load(lanes);
    }
  }
}

// Ragged tails: a vector type with masked loads and stores (kMasks) finishes a row with
// one masked step, whose lanes round exactly as the full steps do; one without finishes
// it with the scalar bodies, compiled in the same file.

// The nine taps of a 3 x 3 window in the plain form's order; load reads one vector of
// window starts from a row (contiguous for stride 1, every second float for stride 2).
template <typename V, typename L>
inline typename V::T tap9_with(L load, const float *r0, const float *r1, const float *r2, const typename V::T *k) {
  typename V::T s = V::mul(load(r0), k[0]);
  s = V::fma(load(r0 + 1), k[1], s);
  s = V::fma(load(r0 + 2), k[2], s);
  s = V::fma(load(r1), k[3], s);
  s = V::fma(load(r1 + 1), k[4], s);
  s = V::fma(load(r1 + 2), k[5], s);
  s = V::fma(load(r2), k[6], s);
  s = V::fma(load(r2 + 1), k[7], s);
  s = V::fma(load(r2 + 2), k[8], s);
  return s;
}

template <typename V>
struct Full {
  typename V::T operator()(const float *p) const { return V::load(p); }
  void store(float *p, typename V::T v) const { V::store(p, v); }
};

// The first `count` lanes of a vector (count at most V::W); the other lanes read as zero
// and are never stored.
template <typename V>
struct Part {
  typename V::M m;
  explicit Part(int64_t count) : m(V::mask(count)) {}
  typename V::T operator()(const float *p) const { return V::load_mask(p, m); }
  void store(float *p, typename V::T v) const { V::store_mask(p, v, m); }
};

template <typename V, typename L, typename LE>
inline void row_step(float *out, const float *r0, const float *r1, const float *r2, const typename V::T *k,
                     bool accumulate, L io, LE load) {
  typename V::T s = tap9_with<V>(load, r0, r1, r2, k);
  io.store(out, accumulate ? V::add(io(out), s) : s);
}

template <typename V>
void conv3x3_s1_row(float *out, int64_t n, const float *r0, const float *r1, const float *r2, const float *k9,
                    bool accumulate) {
  typename V::T k[9];
  for (int j = 0; j < 9; ++j) k[j] = V::set1(k9[j]);
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) row_step<V>(out + x, r0 + x, r1 + x, r2 + x, k, accumulate, Full<V>(), Full<V>());
  if (x == n) return;
  if constexpr (V::kMasks) {
    Part<V> part(n - x);
    row_step<V>(out + x, r0 + x, r1 + x, r2 + x, k, accumulate, part, part);
  } else {
    conv3x3_s1_row_scalar(out + x, n - x, r0 + x, r1 + x, r2 + x, k9, accumulate);
  }
}

// NR output rows of a depthwise channel, one vector of columns at x: input row j feeds
// output rows j-2 .. j with its kernel row j - r, so each output still takes its taps in
// weight order, and every input vector is loaded once.
template <typename V, int NR, typename L>
inline void dw_rows_step(float *out, int64_t ldo, int64_t x, const float *const *rows, const typename V::T *k,
                         const Epilogue &e, L io) {
  using T = typename V::T;
  T s[NR];
#pragma GCC unroll 6
  for (int j = 0; j < NR + 2; ++j) {
    const T a = io(rows[j] + x), b = io(rows[j] + x + 1), c = io(rows[j] + x + 2);
#pragma GCC unroll 3
    for (int r = j - 2 < 0 ? 0 : j - 2; r <= j && r < NR; ++r) {
      const int ky = j - r;
      s[r] = ky == 0 ? V::mul(a, k[0]) : V::fma(a, k[3 * ky], s[r]);
      s[r] = V::fma(b, k[3 * ky + 1], s[r]);
      s[r] = V::fma(c, k[3 * ky + 2], s[r]);
    }
  }
  for (int r = 0; r < NR; ++r) io.store(out + r * ldo + x, finish<V>(s[r], e, 0));
}

template <typename V, int NR>
void dw_rows(float *out, int64_t ldo, int64_t n, const float *const *rows, const float *k9, Epilogue e) {
  typename V::T k[9];
  for (int j = 0; j < 9; ++j) k[j] = V::set1(k9[j]);
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) dw_rows_step<V, NR>(out, ldo, x, rows, k, e, Full<V>());
  if (x == n) return;
  if constexpr (V::kMasks) {
    dw_rows_step<V, NR>(out, ldo, x, rows, k, e, Part<V>(n - x));
  } else {
    const float *shifted[NR + 2];
    for (int j = 0; j < NR + 2; ++j) shifted[j] = rows[j] + x;
    dw3x3_s1_rows_scalar(out + x, ldo, NR, n - x, shifted, k9, e);
  }
}

template <typename V>
void dw3x3_s1_rows(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9,
                   Epilogue e) {
  switch (nrows) {
    case 4: return dw_rows<V, 4>(out, ldo, n, rows, k9, e);
    case 3: return dw_rows<V, 3>(out, ldo, n, rows, k9, e);
    case 2: return dw_rows<V, 2>(out, ldo, n, rows, k9, e);
    case 1: return dw_rows<V, 1>(out, ldo, n, rows, k9, e);
    default: return;
  }
}

template <typename V>
void deinterleave(float *even, float *odd, const float *src, int64_t n) {
  int64_t j = 0;
  for (; j + V::W <= n; j += V::W) {
    typename V::T e, o;
    V::deinterleave(src + 2 * j, e, o);
    V::store(even + j, e);
    V::store(odd + j, o);
  }
  deinterleave_scalar(even + j, odd + j, src + 2 * j, n - j);
}

// NR output rows of a depthwise stride-2 channel, one vector of columns at x, from split
// rows: input row j (even q[2j], odd q[2j+1]) feeds output rows r with 2r <= j <= 2r+2,
// with kernel row j - 2r, so each output takes its taps in weight order.
template <typename V, int NR, typename L>
inline void dw_s2_rows_step(float *out, int64_t ldo, int64_t x, const float *const *q, const typename V::T *k,
                            const Epilogue &e, L io) {
  using T = typename V::T;
  T s[NR];
#pragma GCC unroll 9
  for (int j = 0; j < 2 * NR + 1; ++j) {
    const T a = io(q[2 * j] + x), b = io(q[2 * j + 1] + x), c = io(q[2 * j] + x + 1);
    auto taps = [&](int r, int ky) {
      s[r] = ky == 0 ? V::mul(a, k[0]) : V::fma(a, k[3 * ky], s[r]);
      s[r] = V::fma(b, k[3 * ky + 1], s[r]);
      s[r] = V::fma(c, k[3 * ky + 2], s[r]);
    };
    // An even row j >= 2 is kernel row 2 of output row j/2 - 1; every row is kernel row 0
    // or 1 of output row j/2.
    if (j % 2 == 0 && j >= 2) taps(j / 2 - 1, 2);
    if (j / 2 < NR) taps(j / 2, j % 2);
  }
  for (int r = 0; r < NR; ++r) io.store(out + r * ldo + x, finish<V>(s[r], e, 0));
}

template <typename V, int NR>
void dw_s2_rows(float *out, int64_t ldo, int64_t n, const float *const *q, const float *k9, Epilogue e) {
  typename V::T k[9];
  for (int j = 0; j < 9; ++j) k[j] = V::set1(k9[j]);
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) dw_s2_rows_step<V, NR>(out, ldo, x, q, k, e, Full<V>());
  if (x == n) return;
  if constexpr (V::kMasks) {
    dw_s2_rows_step<V, NR>(out, ldo, x, q, k, e, Part<V>(n - x));
  } else {
    const float *shifted[4 * NR + 2];
    for (int j = 0; j < 4 * NR + 2; ++j) shifted[j] = q[j] + x;
    dw3x3_s2_rows_scalar(out + x, ldo, NR, n - x, shifted, k9, e);
  }
}

template <typename V>
void dw3x3_s2_rows(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, const float *k9,
                   Epilogue e) {
  switch (nrows) {
    case 4: return dw_s2_rows<V, 4>(out, ldo, n, rows, k9, e);
    case 3: return dw_s2_rows<V, 3>(out, ldo, n, rows, k9, e);
    case 2: return dw_s2_rows<V, 2>(out, ldo, n, rows, k9, e);
    case 1: return dw_s2_rows<V, 1>(out, ldo, n, rows, k9, e);
    default: return;
  }
}

// Up to four output rows of one output channel over every input channel, `io` columns at x.
template <typename V, typename L>
inline void s1_multi_step(float *out, int64_t ldo, int nrows, int64_t x, const float *const *rows, int64_t ic,
                          const float *k, L io) {
  using T = typename V::T;
  T acc[4] = {V::set1(0.0f), V::set1(0.0f), V::set1(0.0f), V::set1(0.0f)};
  for (int64_t i = 0; i < ic; ++i) {
    const float *const *ri = rows + i * 6;
    const float *k9 = k + i * 9;
    T kv[9];
    for (int j = 0; j < 9; ++j) kv[j] = V::set1(k9[j]);
    for (int r = 0; r < nrows; ++r) acc[r] = V::add(acc[r], tap9_with<V>(io, ri[r] + x, ri[r + 1] + x, ri[r + 2] + x, kv));
  }
  for (int r = 0; r < nrows; ++r) io.store(out + r * ldo + x, acc[r]);
}

template <typename V>
void conv3x3_s1_multi(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                      const float *k) {
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) s1_multi_step<V>(out, ldo, nrows, x, rows, ic, k, Full<V>());
  if (x == n) return;
  if constexpr (V::kMasks) {
    s1_multi_step<V>(out, ldo, nrows, x, rows, ic, k, Part<V>(n - x));
  } else {
    // Tail columns one at a time, in the plain form's order.
    for (int r = 0; r < nrows; ++r)
      for (int64_t c = x; c < n; ++c) {
        float a = 0.0f;
        for (int64_t i = 0; i < ic; ++i) {
          const float *const *ri = rows + i * 6 + r;
          float t;
          conv3x3_s1_row_scalar(&t, 1, ri[0] + c, ri[1] + c, ri[2] + c, k + i * 9, false);
          a += t;
        }
        out[r * ldo + c] = a;
      }
  }
}

// An OT x NV tile of the stride-2 multi-channel row: OT output channels times NV vectors of
// outputs. Each tap's input vectors are loaded once for all OT channels; per channel the
// nine-tap sum is formed first and then added, channels ascending.
template <typename V, int OT, int NV, typename L>
inline void s2_tile(float *out, int64_t ldo, int64_t x, const float *const *rows, int64_t ic, const float *k,
                    const Epilogue &e, L io) {
  using T = typename V::T;
  // Tap j of a window reads row kRow[j] of the six at offset kShift[j], in weight order.
  static constexpr int kRow[9] = {0, 1, 0, 2, 3, 2, 4, 5, 4};
  static constexpr int kShift[9] = {0, 0, 1, 0, 0, 1, 0, 0, 1};
  T acc[OT][NV];
  for (int o = 0; o < OT; ++o)
    for (int v = 0; v < NV; ++v) acc[o][v] = V::set1(0.0f);
  for (int64_t i = 0; i < ic; ++i) {
    const float *const *r = rows + i * 6;
    T s[OT][NV];
    for (int j = 0; j < 9; ++j) {
      T in[NV];
      for (int v = 0; v < NV; ++v) in[v] = io(r[kRow[j]] + x + kShift[j] + v * V::W);
      for (int o = 0; o < OT; ++o) {
        const T wv = V::set1(k[(o * ic + i) * 9 + j]);
        for (int v = 0; v < NV; ++v) s[o][v] = j == 0 ? V::mul(in[v], wv) : V::fma(in[v], wv, s[o][v]);
      }
    }
    for (int o = 0; o < OT; ++o)
      for (int v = 0; v < NV; ++v) acc[o][v] = V::add(acc[o][v], s[o][v]);
  }
  for (int o = 0; o < OT; ++o)
    for (int v = 0; v < NV; ++v) io.store(out + o * ldo + x + v * V::W, finish<V>(acc[o][v], e, o));
}

template <typename V, int K, int NV, typename L>
inline void s2_tile_rest(int rest, float *out, int64_t ldo, int64_t x, const float *const *rows, int64_t ic,
                         const float *k, const Epilogue &e, L io) {
  if constexpr (K > 0) {
    if (rest == K) return s2_tile<V, K, NV>(out, ldo, x, rows, ic, k, e, io);
    s2_tile_rest<V, K - 1, NV>(rest, out, ldo, x, rows, ic, k, e, io);
  }
}

template <typename V, int NV, typename L>
inline void s2_column(float *out, int64_t ldo, int oc, int64_t x, const float *const *rows, int64_t ic,
                      const float *k, const Epilogue &e, L io) {
  constexpr int OT = V::kStride2Out;
  auto shifted = [&](int o) { return Epilogue{e.bias ? e.bias + o : nullptr, e.act}; };
  int o = 0;
  for (; o + OT <= oc; o += OT) s2_tile<V, OT, NV>(out + o * ldo, ldo, x, rows, ic, k + o * ic * 9, shifted(o), io);
  if (o < oc)
    s2_tile_rest<V, OT - 1, NV>(oc - o, out + o * ldo, ldo, x, rows, ic, k + o * ic * 9, shifted(o), io);
}

template <typename V>
void conv3x3_s2_multi(float *out, int64_t ldo, int oc, int64_t n, const float *const *rows, int64_t ic,
                      const float *k, Epilogue e) {
  constexpr int NV = V::kStride2Vecs;
  int64_t x = 0;
  for (; x + NV * V::W <= n; x += NV * V::W) s2_column<V, NV>(out, ldo, oc, x, rows, ic, k, e, Full<V>());
  for (; x + V::W <= n; x += V::W) s2_column<V, 1>(out, ldo, oc, x, rows, ic, k, e, Full<V>());
  if (x == n) return;
  if constexpr (V::kMasks) {
    s2_column<V, 1>(out, ldo, oc, x, rows, ic, k, e, Part<V>(n - x));
  } else {
    // The tail through the scalar body, one column at a time on shifted pointers.
    for (int o = 0; o < oc; ++o)
      for (int64_t c = x; c < n; ++c) {
        float a = 0.0f;
        for (int64_t i = 0; i < ic; ++i) {
          const float *sh[6];
          for (int j = 0; j < 6; ++j) sh[j] = rows[i * 6 + j] + c;
          float t;
          conv3x3_s2_multi_scalar(&t, 1, sh, 1, k + (o * ic + i) * 9);
          a += t;
        }
        out[o * ldo + c] = finish_scalar(a, e, o);
      }
  }
}

// An OT x NV tile of the pointwise convolution: OT output channels times NV vectors of
// pixels, summed over every input channel in registers. V::kPointwiseOut and
// V::kPointwiseVecs size the tile to the ISA's register file.
template <typename V, int OT, int NV, typename L>
inline void pointwise_tile(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w,
                           int64_t ldw, int ic, const Epilogue &e, L io) {
  using T = typename V::T;
  T acc[OT][NV];
  for (int o = 0; o < OT; ++o)
    for (int v = 0; v < NV; ++v) acc[o][v] = V::set1(0.0f);
  for (int i = 0; i < ic; ++i) {
    T x[NV];
    for (int v = 0; v < NV; ++v) x[v] = io(in + i * in_plane + v * V::W);
    for (int o = 0; o < OT; ++o) {
      const T wv = V::set1(w[o * ldw + i]);
      for (int v = 0; v < NV; ++v) acc[o][v] = V::fma(wv, x[v], acc[o][v]);
    }
  }
  for (int o = 0; o < OT; ++o)
    for (int v = 0; v < NV; ++v) io.store(out + o * out_plane + v * V::W, finish<V>(acc[o][v], e, o));
}

// The tile for the last `rest` (< OT) output channels, with the tile height fixed at
// compile time so that the accumulators stay in registers.
template <typename V, int K, int NV, typename L>
inline void pointwise_tile_rest(int rest, float *out, int64_t out_plane, const float *in, int64_t in_plane,
                                const float *w, int64_t ldw, int ic, const Epilogue &e, L io) {
  if constexpr (K > 0) {
    if (rest == K) return pointwise_tile<V, K, NV>(out, out_plane, in, in_plane, w, ldw, ic, e, io);
    pointwise_tile_rest<V, K - 1, NV>(rest, out, out_plane, in, in_plane, w, ldw, ic, e, io);
  }
}

// Every output channel for one column of NV vectors at pixel p; the input column stays in
// the first-level cache while the channel tiles walk over it.
template <typename V, int NV, typename L>
inline void pointwise_column(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w,
                             int64_t ldw, int oc, int ic, int64_t p, const Epilogue &e, L io) {
  constexpr int OT = V::kPointwiseOut;
  auto shifted = [&](int o) { return Epilogue{e.bias ? e.bias + o : nullptr, e.act}; };
  int o = 0;
  for (; o + OT <= oc; o += OT)
    pointwise_tile<V, OT, NV>(out + o * out_plane + p, out_plane, in + p, in_plane, w + o * ldw, ldw, ic, shifted(o),
                              io);
  if (o < oc)
    pointwise_tile_rest<V, OT - 1, NV>(oc - o, out + o * out_plane + p, out_plane, in + p, in_plane, w + o * ldw,
                                       ldw, ic, shifted(o), io);
}

template <typename V>
void pointwise_planes(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w, int64_t ldw,
                      int oc, int ic, int64_t n, Epilogue e) {
  constexpr int NV = V::kPointwiseVecs;
  int64_t p = 0;
  for (; p + NV * V::W <= n; p += NV * V::W)
    pointwise_column<V, NV>(out, out_plane, in, in_plane, w, ldw, oc, ic, p, e, Full<V>());
  for (; p + V::W <= n; p += V::W)
    pointwise_column<V, 1>(out, out_plane, in, in_plane, w, ldw, oc, ic, p, e, Full<V>());
  if (p == n) return;
  if constexpr (V::kMasks)
    pointwise_column<V, 1>(out, out_plane, in, in_plane, w, ldw, oc, ic, p, e, Part<V>(n - p));
  else
    pointwise_planes_scalar(out + p, out_plane, in + p, in_plane, w, ldw, oc, ic, n - p, e);
}

template <typename V, int Act>
void bias_act_line_t(float *y, const float *x, float b, int64_t n) {
  const typename V::T bv = V::set1(b);
  int64_t i = 0;
  for (; i + V::W <= n; i += V::W) V::store(y + i, activate<V, Act>(V::add(V::load(x + i), bv)));
  if (i < n) bias_act_line_plain(y + i, x + i, b, n - i, Act);
}

template <typename V>
void bias_act_line(float *y, const float *x, float b, int64_t n, int act) {
  switch (act) {
    case act_none: return bias_act_line_t<V, act_none>(y, x, b, n);
    case act_relu: return bias_act_line_t<V, act_relu>(y, x, b, n);
    case act_hswish: return bias_act_line_t<V, act_hswish>(y, x, b, n);
    case act_relu6: return bias_act_line_t<V, act_relu6>(y, x, b, n);
    case act_hsigmoid: return bias_act_line_t<V, act_hsigmoid>(y, x, b, n);
    case act_leaky: return bias_act_line_t<V, act_leaky>(y, x, b, n);
    default: return bias_act_line_plain(y, x, b, n, act);  // tanh goes through the library expf
  }
}

}  // namespace simd
}  // namespace oru

#define ORU_CONV_ROW_FORMS(suffix, V)                                                                          \
  namespace oru {                                                                                              \
  void conv3x3_s1_row_##suffix(float *out, int64_t n, const float *r0, const float *r1, const float *r2,      \
                               const float *k9, bool accumulate) {                                             \
    simd::conv3x3_s1_row<V>(out, n, r0, r1, r2, k9, accumulate);                                               \
  }                                                                                                            \
  void dw3x3_s1_rows_##suffix(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows,         \
                              const float *k9, Epilogue e) {                                                   \
    simd::dw3x3_s1_rows<V>(out, ldo, nrows, n, rows, k9, e);                                                   \
  }                                                                                                            \
  void deinterleave_##suffix(float *even, float *odd, const float *src, int64_t n) {                          \
    simd::deinterleave<V>(even, odd, src, n);                                                                  \
  }                                                                                                            \
  void dw3x3_s2_rows_##suffix(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows,         \
                              const float *k9, Epilogue e) {                                                   \
    simd::dw3x3_s2_rows<V>(out, ldo, nrows, n, rows, k9, e);                                                   \
  }                                                                                                            \
  void conv3x3_s1_multi_##suffix(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows,      \
                                 int64_t ic, const float *k) {                                                 \
    simd::conv3x3_s1_multi<V>(out, ldo, nrows, n, rows, ic, k);                                                \
  }                                                                                                            \
  void conv3x3_s2_multi_##suffix(float *out, int64_t ldo, int oc, int64_t n, const float *const *rows,        \
                                 int64_t ic, const float *k, Epilogue e) {                                     \
    simd::conv3x3_s2_multi<V>(out, ldo, oc, n, rows, ic, k, e);                                                \
  }                                                                                                            \
  void pointwise_planes_##suffix(float *out, int64_t out_plane, const float *in, int64_t in_plane,            \
                                 const float *w, int64_t ldw, int oc, int ic, int64_t n, Epilogue e) {         \
    simd::pointwise_planes<V>(out, out_plane, in, in_plane, w, ldw, oc, ic, n, e);                             \
  }                                                                                                            \
  void bias_act_line_##suffix(float *y, const float *x, float b, int64_t n, int act) {                        \
    simd::bias_act_line<V>(y, x, b, n, act);                                                                   \
  }                                                                                                            \
  }

#endif
