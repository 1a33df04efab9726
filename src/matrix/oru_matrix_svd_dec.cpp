// One-sided Jacobi singular value decomposition of small dense matrices.
#include <cmath>
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_scratch.h"
#include "oru_matrix.h"

namespace {

template <typename T>
inline T *row_at(T *base, int32_t step_bytes, int32_t i) {
  return reinterpret_cast<T *>(reinterpret_cast<char *>(base) + int64_t(step_bytes) * i);
}

// hypot without overflow, in the form the rotation angles are defined by.
inline double safe_hypot(double a, double b) {
  a = std::fabs(a);
  b = std::fabs(b);
  if (a < b) std::swap(a, b);
  if (a == 0.0) return 0.0;
  double r = b / a;
  return a * std::sqrt(1.0 + r * r);
}

template <typename T>
inline void rotate_rows(T *ri, T *rj, int32_t len, T c, T s) {
  for (int32_t k = 0; k < len; ++k) {
    T t0 = c * ri[k] + s * rj[k];
    T t1 = c * rj[k] - s * ri[k];
    ri[k] = t0;
    rj[k] = t1;
  }
}

template <typename T>
void jacobi_svd(T *at, int32_t astep, T *w, T *vt, int32_t vstep, int32_t m, int32_t n, int32_t n1, double minval,
                T eps) {
  constexpr bool single = sizeof(T) == 4;
  oru::Scratch<double> W(n > 0 ? n : 1);
  if (!W) return;

  for (int32_t i = 0; i < n; ++i) {
    const T *a = row_at(at, astep, i);
    double sum = 0.0;
    for (int32_t k = 0; k < m; ++k) sum += double(a[k]) * double(a[k]);
    W[i] = sum;
    if (vt) {
      T *v = row_at(vt, vstep, i);
      for (int32_t k = 0; k < n; ++k) v[k] = T(0);
      v[i] = T(1);
    }
  }

  const int32_t max_sweeps = n < 2 ? 0 : (m > 30 ? m : 30);
  for (int32_t sweep = 0; sweep < max_sweeps; ++sweep) {
    bool changed = false;
    for (int32_t i = 0; i < n - 1; ++i) {
      for (int32_t j = i + 1; j < n; ++j) {
        T *ai = row_at(at, astep, i);
        T *aj = row_at(at, astep, j);
        double a = W[i], b = W[j], p = 0.0;
        for (int32_t k = 0; k < m; ++k) p += double(ai[k]) * double(aj[k]);
        if (std::fabs(p) <= double(eps) * std::sqrt(a * b)) continue;

        p *= 2.0;
        double beta = a - b;
        double gamma = safe_hypot(p, beta);
        double cd, sd;
        if (beta < 0.0) {
          sd = std::sqrt((gamma - beta) * 0.5 / gamma);
          cd = p / (gamma * sd * 2.0);
        } else {
          cd = std::sqrt((gamma + beta) / (gamma * 2.0));
          sd = p / (gamma * cd * 2.0);
        }
        const T c = T(cd), s = T(sd);
        double wi = 0.0, wj = 0.0;
        for (int32_t k = 0; k < m; ++k) {
          T t0 = c * ai[k] + s * aj[k];
          T t1 = c * aj[k] - s * ai[k];
          ai[k] = t0;
          aj[k] = t1;
          wi += double(t0) * double(t0);
          wj += double(t1) * double(t1);
        }
        W[i] = wi;
        W[j] = wj;
        if (vt) rotate_rows(row_at(vt, vstep, i), row_at(vt, vstep, j), n, c, s);
        changed = true;
      }
    }
    if (!changed) break;
  }

  for (int32_t i = 0; i < n; ++i) {
    const T *a = row_at(at, astep, i);
    double sum = 0.0;
    for (int32_t k = 0; k < m; ++k) sum += double(a[k]) * double(a[k]);
    W[i] = std::sqrt(sum);
  }

  // Selection sort keeps the first of equal values in front.
  for (int32_t i = 0; i < n - 1; ++i) {
    int32_t j = i;
    for (int32_t k = i + 1; k < n; ++k)
      if (W[j] < W[k]) j = k;
    if (j == i) continue;
    std::swap(W[i], W[j]);
    if (vt) {
      T *ai = row_at(at, astep, i), *aj = row_at(at, astep, j);
      for (int32_t k = 0; k < m; ++k) std::swap(ai[k], aj[k]);
      T *vi = row_at(vt, vstep, i), *vj = row_at(vt, vstep, j);
      for (int32_t k = 0; k < n; ++k) std::swap(vi[k], vj[k]);
    }
  }

  for (int32_t i = 0; i < n; ++i) w[i] = T(W[i]);
  if (!vt) return;

  // A fixed seed makes the completed left vectors the same on every call.
  oru_rand_init(0x12345678u);
  // The unbounded retry of the double kernel gets the same bound as the float one:
  // a row that stays dependent after 100 random starts will not become independent.
  constexpr int kMaxTries = 100;
  const double asum_floor = single ? 100.0 * double(eps) : 0.0;
  const T inv_m = T(1) / T(m);
  for (int32_t i = 0; i < n1; ++i) {
    T *ai = row_at(at, astep, i);
    double sd = i < n ? W[i] : 0.0;
    for (int tries = 0; sd <= minval && tries < kMaxTries; ++tries) {
      for (int32_t k = 0; k < m; ++k) ai[k] = (oru_randi() & 0x100u) ? inv_m : -inv_m;
      for (int pass = 0; pass < 2; ++pass) {
        for (int32_t j = 0; j < i; ++j) {
          const T *aj = row_at(at, astep, j);
          double d = 0.0;
          for (int32_t k = 0; k < m; ++k) d += double(ai[k]) * double(aj[k]);
          double asum = 0.0;
          for (int32_t k = 0; k < m; ++k) {
            ai[k] = T(ai[k] - d * aj[k]);
            asum += std::fabs(double(ai[k]));
          }
          const T scale = asum > asum_floor ? T(1.0 / asum) : T(0);
          for (int32_t k = 0; k < m; ++k) ai[k] *= scale;
        }
      }
      double sum = 0.0;
      for (int32_t k = 0; k < m; ++k) sum += double(ai[k]) * double(ai[k]);
      sd = std::sqrt(sum);
    }
    const T scale = (!single || sd > minval) && sd != 0.0 ? T(1.0 / sd) : T(0);
    for (int32_t k = 0; k < m; ++k) ai[k] *= scale;
  }
}

template <typename T>
uint32_t small_svd(oru_matrix *u, oru_matrix *v, oru_matrix *w, const oru_matrix *a, uint32_t flags) {
  const int32_t rows = a->rows, cols = a->cols;
  const bool tall = rows >= cols;
  const int32_t big = tall ? rows : cols, small = tall ? cols : rows;
  const bool vectors = u || v;
  const int32_t count = (flags & 1u) && u ? big : small;

  // One block: working rows, values, then the right-hand table on a 32-byte boundary.
  const int64_t values = int64_t(count) * big + small + int64_t(small) * small;
  oru::Scratch<char> block(values * int64_t(sizeof(T)) + 32);
  if (!block) return ORU_RET_ERR_MEMORY;
  T *work = reinterpret_cast<T *>(block.get());
  T *wv = work + int64_t(count) * big;
  uintptr_t table_addr = (reinterpret_cast<uintptr_t>(wv + small) + 31u) & ~uintptr_t(31);
  T *table = vectors ? reinterpret_cast<T *>(table_addr) : nullptr;

  if (count > small) std::memset(work, 0, sizeof(T) * size_t(count) * size_t(big));
  const char *src = static_cast<const char *>(a->data);
  for (int32_t r = 0; r < rows; ++r) {
    const T *ar = reinterpret_cast<const T *>(src + a->stride * r);
    if (tall) {
      for (int32_t c = 0; c < cols; ++c) work[int64_t(c) * big + r] = ar[c];
    } else {
      std::memcpy(work + int64_t(r) * big, ar, sizeof(T) * size_t(cols));
    }
  }

  constexpr bool single = sizeof(T) == 4;
  const double minval = single ? 1.1754943508222875e-38 : 2.2250738585072014e-308;
  const T eps_t = single ? T(2.384185791015625e-07) : T(2.220446049250313e-15);
  jacobi_svd<T>(work, big * int32_t(sizeof(T)), wv, table, small * int32_t(sizeof(T)), big, small,
                vectors ? count : 0, minval, eps_t);

  std::memcpy(w->data, wv, sizeof(T) * size_t(small));
  oru_matrix *left_rows = tall ? u : v;    // receives the working rows
  oru_matrix *right_table = tall ? v : u;  // receives the table
  if (left_rows) std::memcpy(left_rows->data, work, sizeof(T) * size_t(count) * size_t(big));
  if (right_table) std::memcpy(right_table->data, table, sizeof(T) * size_t(small) * size_t(small));
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API void jacobi_svd_dec_real64(double *at, int32_t astep, double *w, double *vt, int32_t vstep, int32_t m,
                                   int32_t n, int32_t n1, double minval, double eps) {
  jacobi_svd<double>(at, astep, w, vt, vstep, m, n, n1, minval, eps);
}

ORU_API void jacobi_svd_dec_real32(float *at, int32_t astep, float *w, float *vt, int32_t vstep, int32_t m,
                                   int32_t n, int32_t n1, double minval, float eps) {
  jacobi_svd<float>(at, astep, w, vt, vstep, m, n, n1, minval, eps);
}

ORU_API uint32_t oru_small_matrix_svd(oru_matrix *u, oru_matrix *v, oru_matrix *w, const oru_matrix *a,
                                      uint32_t flags) {
  // Both are required; refuse quietly rather than dereference nothing.
  if (!a || !a->data || !w || !w->data) return ORU_RET_ERR_PARA;
  if (oru::base_of_code(a->type) == aif32) return small_svd<float>(u, v, w, a, flags);
  return small_svd<double>(u, v, w, a, flags);
}

}  // extern "C"
