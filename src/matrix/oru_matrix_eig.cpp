// Eigenvalues and eigenvectors of small real symmetric matrices by classical Jacobi
// rotations, pivoting on the largest off-diagonal element.
#include <cmath>
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_matrix.h"

namespace {

template <typename T>
inline T *mat_row(const oru_matrix *m, T *base, int32_t i) {
  return reinterpret_cast<T *>(reinterpret_cast<char *>(base) + m->stride * i);
}

template <typename T>
inline T safe_hypot(T a, T b) {
  a = std::fabs(a);
  b = std::fabs(b);
  if (a < b) std::swap(a, b);
  if (a == T(0)) return T(0);
  T r = b / a;
  return a * std::sqrt(T(1) + r * r);
}

template <typename T>
struct Sym {
  char *base;
  int64_t stride;
  T &operator()(int32_t i, int32_t j) const { return reinterpret_cast<T *>(base + stride * i)[j]; }
};

template <typename T>
void find_row_max(const Sym<T> &A, int32_t *indR, int32_t k, int32_t n) {
  int32_t best = k + 1;
  T mv = std::fabs(A(k, best));
  for (int32_t m = k + 2; m < n; ++m) {
    T val = std::fabs(A(k, m));
    if (val > mv) {
      mv = val;
      best = m;
    }
  }
  indR[k] = best;
}

template <typename T>
void find_col_max(const Sym<T> &A, int32_t *indC, int32_t k) {
  int32_t best = 0;
  T mv = std::fabs(A(0, k));
  for (int32_t m = 1; m < k; ++m) {
    T val = std::fabs(A(m, k));
    if (val > mv) {
      mv = val;
      best = m;
    }
  }
  indC[k] = best;
}

template <typename T>
uint32_t symmetric_eig(oru_matrix *wm, oru_matrix *vm, oru_matrix *am, uint32_t keep_input) {
  constexpr bool single = sizeof(T) == 4;
  const T eps = single ? T(1.1920929e-7) : T(2.220446049250313e-16);
  const int32_t n = am->rows;
  const bool copy = keep_input == 1;

  int64_t bytes = int64_t(2) * n * int64_t(sizeof(int32_t));
  const int64_t copy_offset = (bytes + 31) & ~int64_t(31);
  if (copy) bytes = copy_offset + (int64_t(n) * n + n) * int64_t(sizeof(T));
  oru::Scratch<char> block(bytes);
  if (!block) ORU_FAIL(ORU_RET_ERR_MEMORY);
  int32_t *indR = reinterpret_cast<int32_t *>(block.get());
  int32_t *indC = indR + n;

  Sym<T> A{static_cast<char *>(am->data), am->stride};
  T *W = static_cast<T *>(wm->data);
  if (copy) {
    T *acopy = reinterpret_cast<T *>(block.get() + copy_offset);
    for (int32_t i = 0; i < n; ++i)
      std::memcpy(acopy + int64_t(i) * n, mat_row<T>(am, static_cast<T *>(am->data), i), sizeof(T) * size_t(n));
    A = Sym<T>{reinterpret_cast<char *>(acopy), int64_t(n) * int64_t(sizeof(T))};
    W = acopy + int64_t(n) * n;
  }
  Sym<T> V{vm ? static_cast<char *>(vm->data) : nullptr, vm ? vm->stride : 0};
  if (vm) {
    for (int32_t i = 0; i < n; ++i)
      for (int32_t j = 0; j < n; ++j) V(i, j) = T(i == j);
  }

  for (int32_t k = 0; k < n; ++k) {
    W[k] = A(k, k);
    if (k < n - 1) find_row_max(A, indR, k, n);
    if (k > 0) find_col_max(A, indC, k);
  }

  if (n >= 2) {
    const int64_t max_rotations = int64_t(n) * n * 10;
    for (int64_t iter = 0; iter < max_rotations; ++iter) {
      int32_t k = 0;
      T mv = std::fabs(A(0, indR[0]));
      for (int32_t i = 1; i < n - 1; ++i) {
        T val = std::fabs(A(i, indR[i]));
        if (val > mv) {
          mv = val;
          k = i;
        }
      }
      int32_t l = indR[k];
      for (int32_t i = 1; i < n; ++i) {
        T val = std::fabs(A(indC[i], i));
        if (val > mv) {
          mv = val;
          k = indC[i];
          l = i;
        }
      }

      T p = A(k, l);
      if (std::fabs(p) <= eps) break;
      T y = (W[l] - W[k]) * T(0.5);
      T t = std::fabs(y) + safe_hypot(p, y);
      T s = safe_hypot(p, t);
      T c = t / s;
      s = p / s;
      t = (p / t) * p;
      if (y < T(0)) {
        s = -s;
        t = -t;
      }
      A(k, l) = T(0);
      W[k] -= t;
      W[l] += t;

      // Only the upper triangle is touched: each pair is addressed on its own side.
      auto rot = [c, s](T &x0, T &y0) {
        T a0 = x0, b0 = y0;
        x0 = a0 * c - b0 * s;
        y0 = a0 * s + b0 * c;
      };
      for (int32_t i = 0; i < k; ++i) rot(A(i, k), A(i, l));
      for (int32_t i = k + 1; i < l; ++i) rot(A(k, i), A(i, l));
      for (int32_t i = l + 1; i < n; ++i) rot(A(k, i), A(l, i));
      if (vm)
        for (int32_t i = 0; i < n; ++i) rot(V(k, i), V(l, i));

      for (int32_t idx : {k, l}) {
        if (idx < n - 1) find_row_max(A, indR, idx, n);
        if (idx > 0) find_col_max(A, indC, idx);
      }
    }
  }

  // Single precision lists the largest first, double the smallest first.
  for (int32_t k = 0; k < n - 1; ++k) {
    int32_t m = k;
    for (int32_t i = k + 1; i < n; ++i)
      if (single ? W[m] < W[i] : W[m] > W[i]) m = i;
    if (m == k) continue;
    std::swap(W[m], W[k]);
    if (vm)
      for (int32_t j = 0; j < n; ++j) std::swap(V(m, j), V(k, j));
  }
  if (copy) std::memcpy(wm->data, W, sizeof(T) * size_t(n));
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_small_symmetrical_matrix_eig(oru_matrix *w, oru_matrix *v, oru_matrix *a, uint32_t keep_input) {
  if (!w || !a) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const int32_t n = a->rows;
  if (v && (v->type != a->type || w->type != a->type || a->cols != n || v->rows != n || v->cols != n ||
            (w->rows != n && w->cols != n)))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  switch (oru::base_of_code(a->type)) {
    case aif32: return symmetric_eig<float>(w, v, a, keep_input);
    case aif64: return symmetric_eig<double>(w, v, a, keep_input);
    default: ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  }
}

// The general symmetric form is not provided; small matrices go through the call above.
ORU_API uint32_t oru_symmetrical_matrix_eig(oru_matrix *w, oru_matrix *v, oru_matrix *a, uint32_t keep_input) {
  (void)w;
  (void)v;
  (void)a;
  (void)keep_input;
  return ORU_RET_ERR_NOT_SUPPORT;
}

}  // extern "C"
