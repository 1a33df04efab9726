// The vector bodies of the activation family, written once over the traits of the vector
// recipe (core/oru_dispatch.h); each vector file instantiates them with its own traits.
#ifndef ORU_KERNELS_ACT_KERNELS_SIMD_H
#define ORU_KERNELS_ACT_KERNELS_SIMD_H

#include <cmath>
#include <cstdint>

#include "kernels/activation/oru_act_kernels.h"
#include "kernels/simd/oru_simd_expf.h"
#include "kernels/simd/oru_simd_map.h"

namespace oru {
namespace act_simd {
namespace {

template <typename S>
void relu(float *y, const float *x, int64_t n) {
  const typename S::V zero = S::zero();
  simd::map1<S>(y, x, n, [&](typename S::V v) { return S::pick_gt(v, zero); }, relu_f32_plain);
}

template <typename S>
void sigmoid(float *y, const float *x, int64_t n) {
  const typename S::V one = S::set1(1.0f);
  simd::map1<S>(y, x, n, [&](typename S::V v) {
    const typename S::V e = simd::exp_f32<S, true>(v);
    return S::div(e, S::add(e, one));
  }, sigmoid_f32_plain);
}

template <typename S>
void hswish(float *y, const float *x, int64_t n) {
  using V = typename S::V;
  const V three = S::set1(3.0f), six = S::set1(6.0f), zero = S::zero(), c = S::set1(kHswishScale);
  simd::map1<S>(y, x, n, [&](V v) {
    // Operand order matches the plain comparisons, so a NaN passes through the same way.
    const V t = S::min(six, S::max(zero, S::add(v, three)));
    return S::mul(S::mul(v, t), c);
  }, hswish_f32_plain);
}

template <typename S>
void add(float *out, const float *a, const float *b, int64_t n) {
  simd::map2<S>(out, a, b, n, [](typename S::V u, typename S::V v) { return S::add(u, v); }, add_f32_plain);
}

template <typename S>
void add_scalar(float *out, const float *a, float s, int64_t n) {
  const typename S::V sv = S::set1(s);
  simd::map1<S>(out, a, n, [&](typename S::V v) { return S::add(v, sv); },
                [s](float *o, const float *x, int64_t m) { add_scalar_f32_plain(o, x, s, m); });
}

// Two-class rows, kLanes at a time: with m the larger value and e = exp(smaller - m), the
// results are 1 / (1 + e) and e / (1 + e), one exponential per row. Returns the rows done.
template <typename S>
int64_t softmax_pairs(float *y, const float *x, int64_t rows) {
  using V = typename S::V;
  const V one = S::set1(1.0f);
  int64_t r = 0;
  for (; r + S::kLanes <= rows; r += S::kLanes) {
    V a, b;
    S::load_pairs(x + 2 * r, a, b);
    const V e = simd::exp_f32<S, true>(S::sub(S::min(a, b), S::max(a, b)));
    const V s = S::add(one, e);
    S::store_pairs(y + 2 * r, S::div(S::select_ge(a, b, one, e), s), S::div(S::select_gt(b, a, one, e), s));
  }
  return r;
}

// The plain form's steps with whole vectors; each row's sums finish in the plain order.
template <typename S>
void softmax_rows(float *y, const float *x, int64_t rows, int64_t len) {
  using V = typename S::V;
  constexpr int64_t w = S::kLanes;
  int64_t r = 0;
  if (len == 2) r = softmax_pairs<S>(y, x, rows);
  for (; r < rows; ++r) {
    const float *xr = x + r * len;
    float *yr = y + r * len;
    V vm = S::set1(-3.4028235e38f);
    int64_t i = 0;
    for (; i + w <= len; i += w) vm = S::max(S::load(xr + i), vm);
    float m = S::hmax(vm);
    for (; i < len; ++i) m = xr[i] > m ? xr[i] : m;
    const V mv = S::set1(m);
    V vs = S::zero();
    for (i = 0; i + w <= len; i += w) vs = S::add(vs, simd::exp_f32<S, true>(S::sub(S::load(xr + i), mv)));
    float s = S::hsum(vs);
    for (; i < len; ++i) s += std::exp(xr[i] - m);
    const float t = m + (s == 0.0f ? -100.0f : std::log(s));
    const V tv = S::set1(t);
    for (i = 0; i + w <= len; i += w) S::store(yr + i, simd::exp_f32<S, true>(S::sub(S::load(xr + i), tv)));
    for (; i < len; ++i) yr[i] = std::exp(xr[i] - t);
  }
}

}  // namespace
}  // namespace act_simd
}  // namespace oru

// The activation forms of one instruction set, S its float traits.
#define ORU_ACT_FORMS(isa, S)                                                                   \
  namespace oru {                                                                               \
  void relu_f32_##isa(float *y, const float *x, int64_t n) { act_simd::relu<S>(y, x, n); }       \
  void sigmoid_f32_##isa(float *y, const float *x, int64_t n) { act_simd::sigmoid<S>(y, x, n); } \
  void hswish_f32_##isa(float *y, const float *x, int64_t n) { act_simd::hswish<S>(y, x, n); }   \
  void add_f32_##isa(float *out, const float *a, const float *b, int64_t n) {                   \
    act_simd::add<S>(out, a, b, n);                                                             \
  }                                                                                             \
  void add_scalar_f32_##isa(float *out, const float *a, float s, int64_t n) {                   \
    act_simd::add_scalar<S>(out, a, s, n);                                                      \
  }                                                                                             \
  void softmax_rows_f32_##isa(float *y, const float *x, int64_t rows, int64_t len) {            \
    act_simd::softmax_rows<S>(y, x, rows, len);                                                 \
  }                                                                                             \
  }

#endif
