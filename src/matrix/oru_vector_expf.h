// A vector single-precision exponential written once over a small set of operations,
// for the vector forms of the sigmoid. Within 2 ulp of the system's expf over its range;
// infinite where expf overflows and NaN for NaN.
#ifndef ORU_MATRIX_VECTOR_EXPF_H
#define ORU_MATRIX_VECTOR_EXPF_H

namespace oru {

// Largest float whose exponential is finite; anything above overflows.
constexpr float kExpfLastFinite = 88.72283172607421875f;

template <typename V>
typename V::F vector_expf(typename V::F x) {
  using F = typename V::F;
  // Below -104 the result is zero either way; the clamp keeps 2^n representable in two halves.
  // max/min take the NaN from their second operand, so NaN survives.
  const F t = V::min(V::set(kExpfLastFinite), V::max(V::set(-104.0f), x));
  const F fn = V::round(V::mul(t, V::set(1.44269504088896341f)));
  // x - n ln 2 in two parts, so that r keeps its low bits.
  F r = V::sub(t, V::mul(fn, V::set(0.693359375f)));
  r = V::sub(r, V::mul(fn, V::set(-2.12194440e-4f)));
  F p = V::set(1.9875691500e-4f);
  p = V::add(V::mul(p, r), V::set(1.3981999507e-3f));
  p = V::add(V::mul(p, r), V::set(8.3334519073e-3f));
  p = V::add(V::mul(p, r), V::set(4.1665795894e-2f));
  p = V::add(V::mul(p, r), V::set(1.6666665459e-1f));
  p = V::add(V::mul(p, r), V::set(5.0000001201e-1f));
  p = V::add(V::add(V::mul(V::mul(p, r), r), r), V::set(1.0f));
  // 2^n as two factors: n reaches -150 near underflow, beyond one normal float.
  const typename V::I n = V::to_int(fn);
  const typename V::I n1 = V::half(n);
  const F e = V::mul(V::mul(p, V::pow2(n1)), V::pow2(V::isub(n, n1)));
  return V::select_gt(x, V::set(kExpfLastFinite), V::set(__builtin_huge_valf()), e);
}

}  // namespace oru

#endif
