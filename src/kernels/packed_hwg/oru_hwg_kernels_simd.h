// The packed HWG kernels written once over an instruction set's traits A, which give an
// 8-lane vector A::V8, a 4-lane vector A::V4 and the register count A::regs. Each vector
// file includes this header and instantiates the table with its own traits; everything here
// has internal linkage, so no two instruction sets share a function.
//
// Standard members with 8 or 4 output lanes hold one vector of output lanes per input lane:
// p[b] over the output channels, built by fused multiply-adds of a weight vector and the
// broadcast input value, tap by tap. Lanes are combined in pairs as soon as both exist, so
// at most four such vectors per pixel are alive, and several output pixels share each
// weight load. Members with one output lane hold the input lanes in one vector and sum it
// in pairs at the end. Taps outside the input are skipped, as in the plain form.
//
// The all-input-groups kernel does the same for a whole output 8-group (or two, in 16-lane
// vectors) over every input group, keeping the output in registers from the first input
// group to the last.
#ifndef ORU_KERNELS_HWG_KERNELS_SIMD_H
#define ORU_KERNELS_HWG_KERNELS_SIMD_H

#include <cmath>
#include <cstdint>
#include <type_traits>

#include "kernels/packed_hwg/oru_hwg_kernels.h"

// The tile bodies must inline into the plane walk: called out of line they pass their
// accumulators through memory.
#define ORU_HWG_INLINE __attribute__((always_inline)) inline

namespace {

// Pixels of one output row that a tile call covers, with the window's valid taps.
struct TapRange {
  int ky_lo, ky_hi, kx_lo, kx_hi;
};

// The whole window, known at compile time, for the tiles of rows and columns that have it.
template <int K>
struct FullRange {
  static constexpr int ky_lo = 0, ky_hi = K, kx_lo = 0, kx_hi = K;
};

constexpr int clamp_nx(int n) { return n < 1 ? 1 : n > 12 ? 12 : n; }

// Standard member with O in {8, 4}: vectors of the group's O output lanes.
template <class A, class V, int K, int S, int OW, int I>
struct StdVecOut {
  static constexpr int O = OW, L = V::lanes;
  using T = typename V::T;
  static constexpr int live = I == 8 ? 4 : I == 4 ? 3 : 1;
  static constexpr int NX = clamp_nx((A::regs - 3) / (live * V::regs));
  static constexpr int taps = K * K;
  alignas(64) float wt[taps * I * L];  // [tap][input lane][output lane]

  explicit StdVecOut(const float *w) {
    for (int a = 0; a < L; ++a)
      for (int t = 0; t < taps; ++t)
        for (int b = 0; b < I; ++b) wt[(t * I + b) * L + a] = w[(a * taps + t) * I + b];
  }

  template <int N, class R>
  ORU_HWG_INLINE void lane(T *acc, int b, const float *const *rows, const R &r, int64_t ix0) const {
    for (int n = 0; n < N; ++n) acc[n] = V::zero();
    for (int ky = r.ky_lo; ky < r.ky_hi; ++ky)
      for (int kx = r.kx_lo; kx < r.kx_hi; ++kx) {
        const T wv = V::load(wt + ((ky * K + kx) * I + b) * L);
        const float *px = rows[ky] + (ix0 + kx) * I + b;
        for (int n = 0; n < N; ++n) acc[n] = V::fma(wv, V::bcast(px + n * S * I), acc[n]);
      }
  }

  // Lanes b and b + 1 of a one-tap window, the second product fused into the first.
  template <int N>
  ORU_HWG_INLINE void pair1x1(T *acc, int b, const float *const *rows, int64_t ix0) const {
    const T wp = V::load(wt + b * L), wq = V::load(wt + (b + 1) * L);
    const float *px = rows[0] + ix0 * I + b;
    for (int n = 0; n < N; ++n)
      acc[n] = V::fma(wq, V::bcast(px + n * S * I + 1), V::mul(wp, V::bcast(px + n * S * I)));
  }

  template <int N, class R>
  ORU_HWG_INLINE void tile(float *dst, const float *const *rows, int64_t, const R &r, int64_t ix0) const {
    T a[N], b[N], c[N], d[N];
    if (K == 1 && I >= 4) {
      pair1x1<N>(a, 0, rows, ix0);
      pair1x1<N>(b, 2, rows, ix0);
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], b[n]);
      if (I == 8) {
        pair1x1<N>(b, 4, rows, ix0);
        pair1x1<N>(c, 6, rows, ix0);
        for (int n = 0; n < N; ++n) a[n] = V::add(a[n], V::add(b[n], c[n]));
      }
      for (int n = 0; n < N; ++n) V::store(dst + n * O, V::add(V::load(dst + n * O), a[n]));
      return;
    }
    lane<N, R>(a, 0, rows, r, ix0);
    if (I >= 4) {
      lane<N, R>(b, 1, rows, r, ix0);
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], b[n]);
      lane<N, R>(b, 2, rows, r, ix0);
      lane<N, R>(c, 3, rows, r, ix0);
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], V::add(b[n], c[n]));
    }
    if (I == 8) {
      lane<N, R>(b, 4, rows, r, ix0);
      lane<N, R>(c, 5, rows, r, ix0);
      for (int n = 0; n < N; ++n) b[n] = V::add(b[n], c[n]);
      lane<N, R>(c, 6, rows, r, ix0);
      lane<N, R>(d, 7, rows, r, ix0);
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], V::add(b[n], V::add(c[n], d[n])));
    }
    for (int n = 0; n < N; ++n) V::store(dst + n * O, V::add(V::load(dst + n * O), a[n]));
  }
};

// Standard member with one output lane and I in {8, 4}: the input lanes in one vector.
template <class A, int K, int S, int I>
struct StdVecIn {
  using V = typename std::conditional<I == 8, typename A::V8, typename A::V4>::type;
  using T = typename V::T;
  static constexpr int NX = 4;
  static constexpr int O = 1;
  const float *w;
  explicit StdVecIn(const float *weights) : w(weights) {}

  template <int N, class R>
  ORU_HWG_INLINE void tile(float *dst, const float *const *rows, int64_t, const R &r, int64_t ix0) const {
    if (K == 1) {
      const T wv = V::load(w);
      for (int n = 0; n < N; ++n) dst[n] += V::pair_dot(wv, V::load(rows[0] + (ix0 + n * S) * I));
      return;
    }
    T p[N];
    for (int n = 0; n < N; ++n) p[n] = V::zero();
    for (int ky = r.ky_lo; ky < r.ky_hi; ++ky)
      for (int kx = r.kx_lo; kx < r.kx_hi; ++kx) {
        const T wv = V::load(w + (ky * K + kx) * I);
        const float *px = rows[ky] + (ix0 + kx) * I;
        for (int n = 0; n < N; ++n) p[n] = V::fma(wv, V::load(px + n * S * I), p[n]);
      }
    for (int n = 0; n < N; ++n) dst[n] += V::hsum(p[n]);
  }
};

// One output and one input lane: a scalar chain per pixel.
template <int K, int S>
struct StdScalar {
  static constexpr int NX = 4;
  static constexpr int O = 1;
  const float *w;
  explicit StdScalar(const float *weights) : w(weights) {}

  template <int N, class R>
  ORU_HWG_INLINE void tile(float *dst, const float *const *rows, int64_t, const R &r, int64_t ix0) const {
    float p[N] = {};
    for (int ky = r.ky_lo; ky < r.ky_hi; ++ky)
      for (int kx = r.kx_lo; kx < r.kx_hi; ++kx) {
        const float wv = w[ky * K + kx];
        const float *px = rows[ky] + ix0 + kx;
        for (int n = 0; n < N; ++n) p[n] = std::fma(wv, px[n * S], p[n]);
      }
    for (int n = 0; n < N; ++n) dst[n] += p[n];
  }
};

// Depthwise member of G in {8, 4}: lanes stay apart, the nine weight vectors in registers.
template <class A, int S, int G>
struct DwVec {
  using V = typename std::conditional<G == 8, typename A::V8, typename A::V4>::type;
  using T = typename V::T;
  static constexpr int NX = 4;
  static constexpr int O = G;
  T wv[9];
  explicit DwVec(const float *w) {
    for (int t = 0; t < 9; ++t) wv[t] = V::load(w + t * G);
  }

  template <int N, class R>
  ORU_HWG_INLINE void tile(float *dst, const float *const *rows, int64_t, const R &r, int64_t ix0) const {
    T acc[N];
    for (int n = 0; n < N; ++n) acc[n] = V::zero();
    for (int ky = r.ky_lo; ky < r.ky_hi; ++ky)
      for (int kx = r.kx_lo; kx < r.kx_hi; ++kx) {
        const float *px = rows[ky] + (ix0 + kx) * G;
        for (int n = 0; n < N; ++n) acc[n] = V::fma(wv[ky * 3 + kx], V::load(px + n * S * G), acc[n]);
      }
    for (int n = 0; n < N; ++n) V::store(dst + n * G, acc[n]);
  }
};

// Depthwise single channel: a scalar chain per pixel that stores.
template <int S>
struct DwScalar {
  static constexpr int NX = 4;
  static constexpr int O = 1;
  const float *w;
  explicit DwScalar(const float *weights) : w(weights) {}

  template <int N, class R>
  ORU_HWG_INLINE void tile(float *dst, const float *const *rows, int64_t, const R &r, int64_t ix0) const {
    float p[N] = {};
    for (int ky = r.ky_lo; ky < r.ky_hi; ++ky)
      for (int kx = r.kx_lo; kx < r.kx_hi; ++kx) {
        const float *px = rows[ky] + ix0 + kx;
        for (int n = 0; n < N; ++n) p[n] = std::fma(w[ky * 3 + kx], px[n * S], p[n]);
      }
    for (int n = 0; n < N; ++n) dst[n] = p[n];
  }
};

// One output 8-group, or a pair of them in 16-lane vectors, over every input group at once:
// the output stays in registers across the input groups, whose sums it takes in ascending
// order, so each output gets what the member calls one group after another give it.
template <class A, class V, int K, int S, int NXT, int MAXI>
struct StdAllIn {
  static constexpr int O = 8, L = V::lanes, taps = K * K;
  using T = typename V::T;
  static constexpr int NX = NXT;
  const float *wt;  // per input group, [tap][input lane][output lane]
  const float *in;
  int64_t in_plane, in_w, gap;
  int32_t in_c;

  static int width(int32_t left) { return left >= 8 ? 8 : left >= 4 ? 4 : 1; }

  // Fills wt from the packed blocks of the group (w0) and of the pair's second group (w1).
  static void transpose(float *wt, const float *w0, const float *w1, int32_t in_c) {
    for (int32_t i0 = 0; i0 < in_c; i0 += width(in_c - i0)) {
      const int gi = width(in_c - i0);
      for (int a = 0; a < L; ++a) {
        const float *src = (a < O ? w0 : w1) + int64_t(O) * i0 * taps;
        const int r = a < O ? a : a - O;
        for (int t = 0; t < taps; ++t)
          for (int b = 0; b < gi; ++b) wt[(t * gi + b) * L + a] = src[(r * taps + t) * gi + b];
      }
      wt += taps * gi * L;
    }
  }

  // Input lanes b and b + 1 (when I > 1) side by side, so twice as many independent chains
  // are in flight.
  template <int N, int I, class R>
  ORU_HWG_INLINE void lanes(T *p, T *q, int b, const float *base, const float *w, const R &r, int64_t iy0,
                            int64_t ix0) const {
    for (int n = 0; n < N; ++n) p[n] = V::zero();
    if (I > 1)
      for (int n = 0; n < N; ++n) q[n] = V::zero();
    for (int ky = r.ky_lo; ky < r.ky_hi; ++ky) {
      const float *row = base + ((iy0 + ky) * in_w + ix0) * I + b;
      for (int kx = r.kx_lo; kx < r.kx_hi; ++kx) {
        const float *wk = w + ((ky * K + kx) * I + b) * L;
        const T wp = V::load(wk);
        if (I > 1) {
          const T wq = V::load(wk + L);
          for (int n = 0; n < N; ++n) {
            p[n] = V::fma(wp, V::bcast(row + (kx + n * S) * I), p[n]);
            q[n] = V::fma(wq, V::bcast(row + (kx + n * S) * I + 1), q[n]);
          }
        } else {
          for (int n = 0; n < N; ++n) p[n] = V::fma(wp, V::bcast(row + (kx + n * S) * I), p[n]);
        }
      }
    }
  }

  // Lanes b and b + 1 of a one-tap window, the second product fused into the first.
  template <int N, int I>
  ORU_HWG_INLINE void pair1x1(T *acc, int b, const float *base, const float *w, int64_t iy0, int64_t ix0) const {
    const T wp = V::load(w + b * L), wq = V::load(w + (b + 1) * L);
    const float *px = base + (iy0 * in_w + ix0) * I + b;
    for (int n = 0; n < N; ++n)
      acc[n] = V::fma(wq, V::bcast(px + n * S * I + 1), V::mul(wp, V::bcast(px + n * S * I)));
  }

  template <int N, int I, class R>
  ORU_HWG_INLINE void group(T *out, const float *base, const float *w, const R &r, int64_t iy0,
                            int64_t ix0) const {
    T a[N], b[N], c[N], d[N];
    if (K == 1 && I >= 4) {
      pair1x1<N, I>(a, 0, base, w, iy0, ix0);
      pair1x1<N, I>(b, 2, base, w, iy0, ix0);
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], b[n]);
      if (I == 8) {
        pair1x1<N, I>(b, 4, base, w, iy0, ix0);
        pair1x1<N, I>(c, 6, base, w, iy0, ix0);
        for (int n = 0; n < N; ++n) a[n] = V::add(a[n], V::add(b[n], c[n]));
      }
      for (int n = 0; n < N; ++n) out[n] = V::add(out[n], a[n]);
      return;
    }
    lanes<N, I, R>(a, b, 0, base, w, r, iy0, ix0);
    if (I >= 4) {
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], b[n]);
      lanes<N, I, R>(b, c, 2, base, w, r, iy0, ix0);
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], V::add(b[n], c[n]));
    }
    if (I == 8) {
      lanes<N, I, R>(b, c, 4, base, w, r, iy0, ix0);
      for (int n = 0; n < N; ++n) b[n] = V::add(b[n], c[n]);
      lanes<N, I, R>(c, d, 6, base, w, r, iy0, ix0);
      for (int n = 0; n < N; ++n) a[n] = V::add(a[n], V::add(b[n], V::add(c[n], d[n])));
    }
    for (int n = 0; n < N; ++n) out[n] = V::add(out[n], a[n]);
  }

  template <int N, class R>
  ORU_HWG_INLINE void tile(float *dst, const float *const *, int64_t iy0, const R &r, int64_t ix0) const {
    T out[N];
    // The sums start from +0, as in an output cleared before the member calls.
    for (int n = 0; n < N; ++n) out[n] = V::zero();
    const float *w = wt;
    for (int32_t i0 = 0; i0 < in_c;) {
      const int gi = width(in_c - i0);
      const float *base = in + i0 * in_plane;
      // Only the widths this input has are compiled in, so their register needs don't mix.
      if (MAXI >= 8 && gi == 8)
        group<N, 8, R>(out, base, w, r, iy0, ix0);
      else if (MAXI >= 4 && gi == 4)
        group<N, 4, R>(out, base, w, r, iy0, ix0);
      else
        group<N, 1, R>(out, base, w, r, iy0, ix0);
      w += taps * gi * L;
      i0 += gi;
    }
    for (int n = 0; n < N; ++n) V::store_out(dst + n * O, gap, out[n]);
  }
};

// The walk over the output plane shared by every kernel: per output row the valid kernel
// rows; the columns whose window lies inside the input go by tiles of Tile::NX pixels, the
// edge columns one at a time with their valid kernel columns. Tiles get the input rows of
// the window (null outside) and the first input row iy0, for tiles that read several planes.
template <int K, int S, class Tile>
void walk_plane_xy(const Tile &tile, float *out, int64_t out_h, int64_t out_w, const float *in, int64_t in_h,
                   int64_t in_w, int64_t in_row) {
  constexpr int pad = K / 2, O = Tile::O, NX = Tile::NX;
  int64_t x_begin = (pad + S - 1) / S;
  const int64_t span = in_w - K + pad;
  int64_t x_end = span < 0 ? 0 : span / S + 1;
  if (x_begin > out_w) x_begin = out_w;
  if (x_end > out_w) x_end = out_w;
  if (x_end < x_begin) x_end = x_begin;
  const float *rows[K];
  for (int64_t oy = 0; oy < out_h; ++oy) {
    const int64_t iy0 = S * oy - pad;
    TapRange r{iy0 < 0 ? int(-iy0) : 0, iy0 + K > in_h ? int(in_h - iy0) : K, 0, K};
    for (int ky = 0; ky < K; ++ky) rows[ky] = ky >= r.ky_lo && ky < r.ky_hi ? in + (iy0 + ky) * in_row : nullptr;
    float *orow = out + oy * out_w * O;
    auto edge = [&](int64_t ox) {
      const int64_t ix0 = S * ox - pad;
      TapRange e = r;
      e.kx_lo = ix0 < 0 ? int(-ix0) : 0;
      e.kx_hi = ix0 + K > in_w ? int(in_w - ix0) : K;
      tile.template tile<1>(orow + ox * O, rows, iy0, e, ix0);
    };
    for (int64_t ox = 0; ox < x_begin; ++ox) edge(ox);
    int64_t ox = x_begin;
    if (r.ky_lo == 0 && r.ky_hi == K) {
      const FullRange<K> full;
      for (; ox + NX <= x_end; ox += NX) tile.template tile<NX>(orow + ox * O, rows, iy0, full, S * ox - pad);
    }
    for (; ox + NX <= x_end; ox += NX) tile.template tile<NX>(orow + ox * O, rows, iy0, r, S * ox - pad);
    for (; ox < x_end; ++ox) tile.template tile<1>(orow + ox * O, rows, iy0, r, S * ox - pad);
    for (ox = x_end; ox < out_w; ++ox) edge(ox);
  }
}

// A member's walk: its group's plane with rows of in_row floats.
template <int K, int S, int I, class Tile>
void walk_plane(const Tile &tile, float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h,
                int32_t in_row) {
  const int64_t out_w = out_row / Tile::O, in_w = in_row / I;
  walk_plane_xy<K, S>(tile, out, out_h, out_w, in, in_h, in_w, int64_t(in_row));
}// The all-groups kernel of one output 8-group (w1 null) or of a pair (V of 16 lanes).
template <class A, class V, int K, int S, int NX, int MAXI>
void all_in_walk(float *out, int64_t gap, int32_t out_h, int32_t out_w, const float *in, int32_t in_h, int32_t in_w,
                 int32_t in_c, const float *scratch) {
  const StdAllIn<A, V, K, S, NX, MAXI> tile{scratch, in, int64_t(in_w) * in_h, in_w, gap, in_c};
  // Row pointers are unused: the tile finds each group's rows from iy0.
  walk_plane_xy<K, S>(tile, out, out_h, out_w, in, in_h, in_w, 0);
}

template <class A, class V, int K, int S>
void all_in_kernel(float *out, int64_t gap, int32_t out_h, int32_t out_w, const float *in, int32_t in_h,
                   int32_t in_w, int32_t in_c, const float *w0, const float *w1, float *scratch) {
  StdAllIn<A, V, K, S, 1, 8>::transpose(scratch, w0, w1, in_c);
  // Pixels per tile by the widest input group: per pixel the output and up to 4, 3 or 2
  // partial sums are alive.
  constexpr int spare = A::regs - 2;
  if (in_c >= 8)
    all_in_walk<A, V, K, S, clamp_nx(spare / (5 * V::regs)), 8>(out, gap, out_h, out_w, in, in_h, in_w, in_c, scratch);
  else if (in_c >= 4)
    all_in_walk<A, V, K, S, clamp_nx(spare / (4 * V::regs)), 4>(out, gap, out_h, out_w, in, in_h, in_w, in_c, scratch);
  else
    all_in_walk<A, V, K, S, clamp_nx(spare / (2 * V::regs)), 1>(out, gap, out_h, out_w, in, in_h, in_w, in_c, scratch);
}

template <class A, int K, int S, int O, int I>
void std_member(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h, int32_t in_row,
                const float *w) {
  if (O != 1) {
    using V = typename std::conditional<O == 8, typename A::V8, typename A::V4>::type;
    const StdVecOut<A, V, K, S, (O == 1 ? 8 : O), I> tile(w);
    walk_plane<K, S, I>(tile, out, out_h, out_row, in, in_h, in_row);
  } else if (I != 1) {
    const StdVecIn<A, K, S, (I == 1 ? 8 : I)> tile(w);
    walk_plane<K, S, I>(tile, out, out_h, out_row, in, in_h, in_row);
  } else {
    const StdScalar<K, S> tile(w);
    walk_plane<K, S, I>(tile, out, out_h, out_row, in, in_h, in_row);
  }
}

template <class A, int S, int G>
void dw_member(float *out, int32_t out_h, int32_t out_row, const float *in, int32_t in_h, int32_t in_row,
               const float *w) {
  if (G != 1) {
    const DwVec<A, S, (G == 1 ? 8 : G)> tile(w);
    walk_plane<3, S, G>(tile, out, out_h, out_row, in, in_h, in_row);
  } else {
    const DwScalar<S> tile(w);
    walk_plane<3, S, 1>(tile, out, out_h, out_row, in, in_h, in_row);
  }
}

}  // namespace

#define ORU_HWG_SIMD_STD_ROW(A, K, S, O) \
  {&std_member<A, K, S, O, 8>, &std_member<A, K, S, O, 4>, &std_member<A, K, S, O, 1>}
#define ORU_HWG_SIMD_STD(A, K, S) \
  {ORU_HWG_SIMD_STD_ROW(A, K, S, 8), ORU_HWG_SIMD_STD_ROW(A, K, S, 4), ORU_HWG_SIMD_STD_ROW(A, K, S, 1)}
#define ORU_HWG_SIMD_DW(A, S)                                                                 \
  {{&dw_member<A, S, 8>, nullptr, nullptr}, {nullptr, &dw_member<A, S, 4>, nullptr}, \
   {nullptr, nullptr, &dw_member<A, S, 1>}}

// The bias pass over a group's pixels with vectors of V: the group's biases repeated to a
// pattern of max(W, g) floats; the activations as the plain form writes them.
template <class V, int Act>
ORU_HWG_INLINE typename V::T hwg_activate(typename V::T t) {
  const typename V::T zero = V::zero();
  if (Act == 1) return V::max(t, zero);
  if (Act == 3) return V::min(V::max(t, zero), V::set1(6.0f));
  if (Act == 5) return V::max(t, V::mul(V::set1(0.1f), t));
  if (Act == 2 || Act == 4) {
    const typename V::T c = V::min(V::max(V::add(t, V::set1(3.0f)), zero), V::set1(6.0f));
    if (Act == 2) return V::mul(V::mul(t, c), V::set1(0.16666667f));
    return V::mul(c, V::set1(0.16666667f));
  }
  return t;
}

template <class V, int Act>
void hwg_bias_act_t(float *y, const float *x, const float *b, int g, int64_t pixels) {
  constexpr int W = V::lanes;
  const int pattern = W > g ? W : g, per = pattern / W;
  alignas(64) float rep[16];
  for (int k = 0; k < pattern; ++k) rep[k] = b[k % g];
  typename V::T bv[2] = {V::load(rep), per > 1 ? V::load(rep + W) : V::zero()};
  const int64_t n = pixels * g;
  int64_t i = 0;
  for (; i + pattern <= n; i += pattern)
    for (int k = 0; k < per; ++k)
      V::store(y + i + k * W, hwg_activate<V, Act>(V::add(V::load(x + i + k * W), bv[k])));
  if (i < n) oru::hwg_bias_act_plain(y + i, x + i, b, g, (n - i) / g, Act);
}

template <class V>
void hwg_bias_act_any(float *y, const float *x, const float *b, int g, int64_t pixels, int act) {
  switch (act) {
    case 0: return hwg_bias_act_t<V, 0>(y, x, b, g, pixels);
    case 1: return hwg_bias_act_t<V, 1>(y, x, b, g, pixels);
    case 2: return hwg_bias_act_t<V, 2>(y, x, b, g, pixels);
    case 3: return hwg_bias_act_t<V, 3>(y, x, b, g, pixels);
    case 4: return hwg_bias_act_t<V, 4>(y, x, b, g, pixels);
    case 5: return hwg_bias_act_t<V, 5>(y, x, b, g, pixels);
    default: return oru::hwg_bias_act_plain(y, x, b, g, pixels, act);  // tanh through the library expf
  }
}

// Channel groups between planes and pixels in 4 x 4 blocks: four pixels of four channels
// per block, a group of 8 as two blocks side by side. Q gives load4, store4, transpose4.
template <class Q>
void hwg_interleave_t(float *dst, const float *src, int g, int64_t plane) {
  int64_t q = 0;
  for (; q + 4 <= plane; q += 4)
    for (int h = 0; h < g; h += 4) {
      typename Q::T v[4];
      for (int j = 0; j < 4; ++j) v[j] = Q::load4(src + (h + j) * plane + q);
      Q::transpose4(v);
      for (int p = 0; p < 4; ++p) Q::store4(dst + (q + p) * g + h, v[p]);
    }
  if (q < plane)
    for (; q < plane; ++q)
      for (int j = 0; j < g; ++j) dst[q * g + j] = src[j * plane + q];
}

template <class Q>
void hwg_deinterleave_t(float *dst, const float *src, int g, int64_t plane) {
  int64_t q = 0;
  for (; q + 4 <= plane; q += 4)
    for (int h = 0; h < g; h += 4) {
      typename Q::T v[4];
      for (int p = 0; p < 4; ++p) v[p] = Q::load4(src + (q + p) * g + h);
      Q::transpose4(v);
      for (int j = 0; j < 4; ++j) Q::store4(dst + (h + j) * plane + q, v[j]);
    }
  for (; q < plane; ++q)
    for (int j = 0; j < g; ++j) dst[j * plane + q] = src[q * g + j];
}

#define ORU_HWG_NO_PAIR {nullptr, nullptr, nullptr}
#define ORU_HWG_ALL_IN(A, V) \
  {&all_in_kernel<A, V, 1, 1>, &all_in_kernel<A, V, 3, 1>, &all_in_kernel<A, V, 3, 2>}

// The table of one instruction set's forms.
#define ORU_HWG_FORMS(suffix, A, PAIR)                                                                             \
  namespace oru {                                                                                            \
  const HwgTable hwg_kernels_##suffix = {ORU_HWG_SIMD_STD(A, 1, 1), ORU_HWG_SIMD_STD(A, 3, 1),              \
                                         ORU_HWG_SIMD_STD(A, 3, 2), ORU_HWG_SIMD_DW(A, 1),                   \
                                         ORU_HWG_SIMD_DW(A, 2)};                                            \
  const HwgGroupTable hwg_group_kernels_##suffix = {ORU_HWG_ALL_IN(A, typename A::V8), PAIR};                 \
  void hwg_bias_act_##suffix(float *y, const float *x, const float *b, int g, int64_t pixels, int act) {      \
    hwg_bias_act_any<typename A::VBias>(y, x, b, g, pixels, act);                                           \
  }                                                                                                          \
  void hwg_interleave_##suffix(float *dst, const float *src, int g, int64_t plane) {                         \
    hwg_interleave_t<typename A::Quad>(dst, src, g, plane);                                                  \
  }                                                                                                          \
  void hwg_deinterleave_##suffix(float *dst, const float *src, int g, int64_t plane) {                       \
    hwg_deinterleave_t<typename A::Quad>(dst, src, g, plane);                                                \
  }                                                                                                          \
  }

#endif
