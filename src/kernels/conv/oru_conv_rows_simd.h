// The hot row kernels written once over a vector type V; each vector file instantiates
// them with its own V. Multiplies and adds stay separate and in the plain form's order,
// so every form matches its plain twin bit for bit.
#ifndef ORU_CONV_ROWS_SIMD_H
#define ORU_CONV_ROWS_SIMD_H

#include "conv/oru_conv_internal.h"

namespace oru {
namespace simd {

// The nine taps of a 3 x 3 window in the plain form's order; Load reads one vector of
// window starts from a row (V::load for stride 1, V::load_even for stride 2).
template <typename V, typename V::T (*Load)(const float *)>
inline typename V::T tap9_with(const float *r0, const float *r1, const float *r2, const typename V::T *k) {
  typename V::T s = V::mul(Load(r0), k[0]);
  s = V::add(s, V::mul(Load(r0 + 1), k[1]));
  s = V::add(s, V::mul(Load(r0 + 2), k[2]));
  s = V::add(s, V::mul(Load(r1), k[3]));
  s = V::add(s, V::mul(Load(r1 + 1), k[4]));
  s = V::add(s, V::mul(Load(r1 + 2), k[5]));
  s = V::add(s, V::mul(Load(r2), k[6]));
  s = V::add(s, V::mul(Load(r2 + 1), k[7]));
  s = V::add(s, V::mul(Load(r2 + 2), k[8]));
  return s;
}

template <typename V>
inline typename V::T tap9(const float *r0, const float *r1, const float *r2, const typename V::T *k) {
  return tap9_with<V, V::load>(r0, r1, r2, k);
}

template <typename V>
void conv3x3_s1_row(float *out, int64_t n, const float *r0, const float *r1, const float *r2, const float *k9,
                    bool accumulate) {
  typename V::T k[9];
  for (int j = 0; j < 9; ++j) k[j] = V::set1(k9[j]);
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) {
    typename V::T s = tap9<V>(r0 + x, r1 + x, r2 + x, k);
    V::store(out + x, accumulate ? V::add(V::load(out + x), s) : s);
  }
  if (x < n) conv3x3_s1_row_plain(out + x, n - x, r0 + x, r1 + x, r2 + x, k9, accumulate);
}

template <typename V>
void conv3x3_s1_multi(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows, int64_t ic,
                      const float *k) {
  using T = typename V::T;
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) {
    T acc[4] = {V::set1(0.0f), V::set1(0.0f), V::set1(0.0f), V::set1(0.0f)};
    for (int64_t i = 0; i < ic; ++i) {
      const float *const *ri = rows + i * 6;
      const float *k9 = k + i * 9;
      T kv[9];
      for (int j = 0; j < 9; ++j) kv[j] = V::set1(k9[j]);
      for (int r = 0; r < nrows; ++r) acc[r] = V::add(acc[r], tap9<V>(ri[r] + x, ri[r + 1] + x, ri[r + 2] + x, kv));
    }
    for (int r = 0; r < nrows; ++r) V::store(out + r * ldo + x, acc[r]);
  }
  // Tail columns one at a time, in the plain form's order.
  for (int r = 0; r < nrows; ++r)
    for (int64_t c = x; c < n; ++c) {
      float a = 0.0f;
      for (int64_t i = 0; i < ic; ++i) {
        const float *const *ri = rows + i * 6 + r;
        float t;
        conv3x3_s1_row_plain(&t, 1, ri[0] + c, ri[1] + c, ri[2] + c, k + i * 9, false);
        a += t;
      }
      out[r * ldo + c] = a;
    }
}

template <typename V>
void conv3x3_s2_multi(float *out, int64_t n, const float *const *rows, int64_t ic, const float *k) {
  using T = typename V::T;
  int64_t x = 0;
  for (; x + V::W <= n; x += V::W) {
    T acc = V::set1(0.0f);
    for (int64_t i = 0; i < ic; ++i) {
      const float *const *r = rows + i * 6;
      const float *k9 = k + i * 9;
      T s = V::mul(V::load(r[0] + x), V::set1(k9[0]));
      s = V::add(s, V::mul(V::load(r[1] + x), V::set1(k9[1])));
      s = V::add(s, V::mul(V::load(r[0] + x + 1), V::set1(k9[2])));
      s = V::add(s, V::mul(V::load(r[2] + x), V::set1(k9[3])));
      s = V::add(s, V::mul(V::load(r[3] + x), V::set1(k9[4])));
      s = V::add(s, V::mul(V::load(r[2] + x + 1), V::set1(k9[5])));
      s = V::add(s, V::mul(V::load(r[4] + x), V::set1(k9[6])));
      s = V::add(s, V::mul(V::load(r[5] + x), V::set1(k9[7])));
      s = V::add(s, V::mul(V::load(r[4] + x + 1), V::set1(k9[8])));
      acc = V::add(acc, s);
    }
    V::store(out + x, acc);
  }
  if (x < n) {
    // The tail through the plain form, one column at a time on shifted pointers.
    for (; x < n; ++x) {
      float a = 0.0f;
      for (int64_t i = 0; i < ic; ++i) {
        const float *sh[6];
        for (int j = 0; j < 6; ++j) sh[j] = rows[i * 6 + j] + x;
        float t;
        conv3x3_s2_multi_plain(&t, 1, sh, 1, k + i * 9);
        a += t;
      }
      out[x] = a;
    }
  }
}

template <typename V>
inline typename V::T tap9_s2(const float *r0, const float *r1, const float *r2, const typename V::T *k) {
  return tap9_with<V, V::load_even>(r0, r1, r2, k);
}

template <typename V>
void conv3x3_s2_row(float *out, int64_t n, const float *r0, const float *r1, const float *r2, const float *k9,
                    bool accumulate) {
  typename V::T k[9];
  for (int j = 0; j < 9; ++j) k[j] = V::set1(k9[j]);
  int64_t x = 0;
  // The gathers read one float past the last tap; stop a vector early so that stays in the row.
  for (; x + V::W < n; x += V::W) {
    typename V::T s = tap9_s2<V>(r0 + 2 * x, r1 + 2 * x, r2 + 2 * x, k);
    V::store(out + x, accumulate ? V::add(V::load(out + x), s) : s);
  }
  if (x < n) conv3x3_s2_row_plain(out + x, n - x, r0 + 2 * x, r1 + 2 * x, r2 + 2 * x, k9, accumulate);
}

template <typename V>
void pointwise_block(float *out, int64_t out_plane, const float *in, int64_t in_plane, const float *w, int64_t ldw,
                     int oc, int ic, int64_t n) {
  typename V::T wv[4][4];
  for (int o = 0; o < oc; ++o)
    for (int i = 0; i < ic; ++i) wv[o][i] = V::set1(w[o * ldw + i]);
  int64_t p = 0;
  for (; p + V::W <= n; p += V::W) {
    typename V::T x[4];
    for (int i = 0; i < ic; ++i) x[i] = V::load(in + i * in_plane + p);
    for (int o = 0; o < oc; ++o) {
      float *dst = out + o * out_plane + p;
      typename V::T acc = V::load(dst);
      for (int i = 0; i < ic; ++i) acc = V::add(acc, V::mul(wv[o][i], x[i]));
      V::store(dst, acc);
    }
  }
  if (p < n) pointwise_block_plain(out + p, out_plane, in + p, in_plane, w, ldw, oc, ic, n - p);
}

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
  void conv3x3_s1_multi_##suffix(float *out, int64_t ldo, int nrows, int64_t n, const float *const *rows,      \
                                 int64_t ic, const float *k) {                                                 \
    simd::conv3x3_s1_multi<V>(out, ldo, nrows, n, rows, ic, k);                                                \
  }                                                                                                            \
  void conv3x3_s2_multi_##suffix(float *out, int64_t n, const float *const *rows, int64_t ic,                   \
                                 const float *k) {                                                             \
    simd::conv3x3_s2_multi<V>(out, n, rows, ic, k);                                                            \
  }                                                                                                            \
  void conv3x3_s2_row_##suffix(float *out, int64_t n, const float *r0, const float *r1, const float *r2,      \
                               const float *k9, bool accumulate) {                                             \
    simd::conv3x3_s2_row<V>(out, n, r0, r1, r2, k9, accumulate);                                               \
  }                                                                                                            \
  void pointwise_block_##suffix(float *out, int64_t out_plane, const float *in, int64_t in_plane,             \
                                const float *w, int64_t ldw, int oc, int ic, int64_t n) {                      \
    simd::pointwise_block<V>(out, out_plane, in, in_plane, w, ldw, oc, ic, n);                                 \
  }                                                                                                            \
  void bias_act_line_##suffix(float *y, const float *x, float b, int64_t n, int act) {                        \
    simd::bias_act_line<V>(y, x, b, n, act);                                                                   \
  }                                                                                                            \
  }

#endif
