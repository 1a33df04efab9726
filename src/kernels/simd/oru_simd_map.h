// The tail rule of the vector recipe (core/oru_dispatch.h) for element-wise kernels: the
// vector step takes whole vectors; the rest goes to a masked step where the ISA has masks
// and to the plain form elsewhere.
#ifndef ORU_KERNELS_SIMD_MAP_H
#define ORU_KERNELS_SIMD_MAP_H

#include <cstdint>

namespace oru {
namespace simd {
namespace {

// y[i] = op(x[i]); plain(y, x, count) finishes where the ISA has no masks.
template <typename S, typename T, typename Op, typename Plain>
void map1(T *y, const T *x, int64_t n, Op op, Plain plain) {
  int64_t i = 0;
  for (; i + S::kLanes <= n; i += S::kLanes) S::store(y + i, op(S::load(x + i)));
  if (i == n) return;
  if constexpr (S::kMasked)
    S::store_tail(y + i, op(S::load_tail(x + i, n - i)), n - i);
  else
    plain(y + i, x + i, n - i);
}

// y[i] = op(a[i], b[i]); plain(y, a, b, count) finishes where the ISA has no masks.
template <typename S, typename T, typename Op, typename Plain>
void map2(T *y, const T *a, const T *b, int64_t n, Op op, Plain plain) {
  int64_t i = 0;
  for (; i + S::kLanes <= n; i += S::kLanes) S::store(y + i, op(S::load(a + i), S::load(b + i)));
  if (i == n) return;
  if constexpr (S::kMasked)
    S::store_tail(y + i, op(S::load_tail(a + i, n - i), S::load_tail(b + i, n - i)), n - i);
  else
    plain(y + i, a + i, b + i, n - i);
}

}  // namespace
}  // namespace simd
}  // namespace oru

#endif
