// Least-squares solution through a singular value decomposition: x = V diag(1/w) U^T b,
// dropping the values too small to invert.
#include <cmath>
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_matrix.h"

namespace {

template <typename T>
inline T &at(const oru_matrix *m, int32_t i, int32_t j) {
  return reinterpret_cast<T *>(static_cast<char *>(m->data) + m->stride * i)[j];
}

template <typename T>
void back_substitute(oru_matrix *x, const oru_matrix *b, const oru_matrix *u, const oru_matrix *w,
                     const oru_matrix *v, int32_t m, int32_t n, int32_t nb, double *t) {
  const int32_t nm = m < n ? m : n;
  const bool has_b = b && b->data;
  for (int32_t j = 0; j < n; ++j)
    for (int32_t c = 0; c < nb; ++c) at<T>(x, j, c) = T(0);

  const int64_t wstep = w->stride ? w->stride : int64_t(sizeof(T));
  auto wv = [&](int32_t i) { return double(*reinterpret_cast<const T *>(static_cast<const char *>(w->data) + wstep * i)); };
  double sum = 0.0;
  for (int32_t i = 0; i < nm; ++i) sum += wv(i);
  // Two machine epsilons of the sum: a smaller value makes the minimum-norm solution.
  const double threshold = sum * 4.440892098500626e-16;

  for (int32_t i = 0; i < nm; ++i) {
    const double wi = wv(i);
    if (std::fabs(wi) <= threshold) continue;
    const double r = 1.0 / wi;
    if (nb == 1) {
      double s;
      if (has_b) {
        s = 0.0;
        for (int32_t j = 0; j < m; ++j) s += double(at<T>(u, j, i)) * double(at<T>(b, j, 0));
        s *= r;
      } else {
        s = double(at<T>(u, 0, i)) * r;
      }
      for (int32_t j = 0; j < n; ++j) at<T>(x, j, 0) = T(at<T>(x, j, 0) + s * double(at<T>(v, i, j)));
    } else {
      for (int32_t c = 0; c < nb; ++c) {
        if (has_b) {
          double s = 0.0;
          for (int32_t j = 0; j < m; ++j) s += double(at<T>(u, j, i)) * double(at<T>(b, j, c));
          t[c] = s * r;
        } else {
          t[c] = double(at<T>(u, c, i)) * r;
        }
      }
      for (int32_t j = 0; j < n; ++j) {
        const double vij = double(at<T>(v, i, j));
        for (int32_t c = 0; c < nb; ++c) at<T>(x, j, c) = T(at<T>(x, j, c) + vij * t[c]);
      }
    }
  }
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_solve_linear_equation_by_svd(oru_matrix *x, const oru_matrix *b, const oru_matrix *u,
                                                  const oru_matrix *w, const oru_matrix *v, uint32_t flags) {
  if (!x || !w || (!u && !v)) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  // Both sets of vectors are needed; a caller that passes one means the other is the same.
  if (!u) u = v;
  if (!v) v = u;

  // The loop wants left vectors in columns and right vectors in rows.
  uint32_t status = ORU_RET_OK;
  oru::Guard<oru_matrix, oru_release_matrix> ucopy, vcopy;
  if (flags & 2u) {
    ucopy.reset(oru_create_matrix(u->rows, u->cols, u->depth, u->type));
    if (!ucopy.get()) return ORU_RET_ERR_MEMORY;
    status = oru_matrix_transposition(ucopy.get(), u);
    if (status != ORU_RET_OK) return status;
    u = ucopy.get();
  }
  if (!(flags & 4u)) {
    vcopy.reset(oru_create_matrix(v->rows, v->cols, v->depth, v->type));
    if (!vcopy.get()) return ORU_RET_ERR_MEMORY;
    status = oru_matrix_transposition(vcopy.get(), v);
    if (status != ORU_RET_OK) return status;
    v = vcopy.get();
  }

  const int32_t m = u->rows, n = v->cols;
  const int32_t nb = b && b->data ? b->cols : m;
  oru::Scratch<double> t(nb);
  if (!t) return ORU_RET_ERR_MEMORY;
  switch (oru::base_of_code(x->type)) {
    case aif32: back_substitute<float>(x, b, u, w, v, m, n, nb, t.get()); break;
    case aif64: back_substitute<double>(x, b, u, w, v, m, n, nb, t.get()); break;
    default: break;
  }
  return status;
}

}  // extern "C"
