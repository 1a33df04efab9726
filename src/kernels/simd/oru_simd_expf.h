// The vector single-precision exponential, written once over the traits of the vector
// recipe. Within 2 ulp of the system's expf over its range; infinite where expf overflows,
// zero far below, and the input itself for a NaN.
#ifndef ORU_KERNELS_SIMD_EXPF_H
#define ORU_KERNELS_SIMD_EXPF_H

namespace oru {
namespace simd {
namespace {

// Largest float whose exponential is finite; anything above overflows.
constexpr float kExpfLastFinite = 88.72283172607421875f;

// x = n ln2 + r, a degree-6 polynomial in r, and 2^n applied as two halves so that results
// near the float limits (overflow, subnormals) come out right. The activation kernels
// evaluate it with fused multiply-adds; the array sigmoid (kFused false) with separate
// multiplies and adds, as it always has, so each keeps its own bits.
template <typename S, bool kFused>
typename S::V exp_f32(typename S::V x) {
  using V = typename S::V;
  auto madd = [](V a, V b, V c) { return kFused ? S::fma(a, b, c) : S::add(S::mul(a, b), c); };
  auto msub = [](V a, V b, V c) { return kFused ? S::fnma(a, b, c) : S::sub(c, S::mul(a, b)); };
  // Below -104 the result is zero either way; the clamp keeps 2^n representable in two halves.
  const V t = S::min(S::max(x, S::set1(-104.0f)), S::set1(kExpfLastFinite));
  const V n = S::round(S::mul(t, S::set1(1.44269504088896341f)));
  // t - n ln 2 in two parts, so that r keeps its low bits.
  V r = msub(n, S::set1(0.693359375f), t);
  r = msub(n, S::set1(-2.12194440e-4f), r);
  V p = S::set1(1.9875691500e-4f);
  p = madd(p, r, S::set1(1.3981999507e-3f));
  p = madd(p, r, S::set1(8.3334519073e-3f));
  p = madd(p, r, S::set1(4.1665795894e-2f));
  p = madd(p, r, S::set1(1.6666665459e-1f));
  p = madd(p, r, S::set1(5.0000001201e-1f));
  V y;
  if (kFused)
    y = S::fma(p, S::mul(r, r), S::add(r, S::set1(1.0f)));
  else
    y = S::add(S::add(S::mul(S::mul(p, r), r), r), S::set1(1.0f));
  // 2^n as two factors: n reaches -150 near underflow, beyond one normal float.
  const typename S::I ni = S::to_int(n);
  const typename S::I n1 = S::half(ni);
  y = S::mul(S::mul(y, S::pow2(n1)), S::pow2(S::isub(ni, n1)));
  y = S::select_gt(x, S::set1(kExpfLastFinite), S::set1(__builtin_huge_valf()), y);
  return S::keep_nan(y, x);
}

}  // namespace
}  // namespace simd
}  // namespace oru

#endif
