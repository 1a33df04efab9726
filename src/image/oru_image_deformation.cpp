// Gaussian radial-basis deformation of a coordinate map: control points p move to
// targets q, and every map element moves by the interpolated displacement. All float,
// with a fast exponential of its own that fixes the results.
#include <cmath>
#include <cstring>

#include "image/oru_geometry_kernels.h"
#include "oru_image.h"

namespace {

// Weights w solving (K + lambda I) w = d by Cholesky with stored reciprocal pivots; an
// ill-conditioned kernel keeps w = d.
void solve_weights(float *K, float *rdiag, float *w, const float *d, float *z, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    float *Li = K + int64_t(i) * n;
    for (int32_t j = 0; j < i; ++j) {
      const float *Lj = K + int64_t(j) * n;
      float s = Li[j];
      for (int32_t m = 0; m < j; ++m) s -= Li[m] * Lj[m];
      Li[j] = s * rdiag[j];
    }
    float s = Li[i];
    for (int32_t m = 0; m < i; ++m) s -= Li[m] * Li[m];
    if (s < 1.1920929e-7f) {
      std::memcpy(w, d, size_t(2 * n) * sizeof(float));
      return;
    }
    rdiag[i] = 1.0f / std::sqrt(s);
  }
  for (int32_t i = 0; i < n; ++i) {
    const float *Li = K + int64_t(i) * n;
    for (int c = 0; c < 2; ++c) {
      float s = d[2 * i + c];
      for (int32_t m = 0; m < i; ++m) s -= Li[m] * z[2 * m + c];
      z[2 * i + c] = s * rdiag[i];
    }
  }
  for (int32_t i = n - 1; i >= 0; --i)
    for (int c = 0; c < 2; ++c) {
      float s = z[2 * i + c];
      for (int32_t m = i + 1; m < n; ++m) s -= K[int64_t(m) * n + i] * w[2 * m + c];
      w[2 * i + c] = s * rdiag[i];
    }
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_deformation_rbfmap(oru_matrix *out, const oru_matrix *in, const float *q, const float *p,
                                        int32_t n, float lambda, float sigma) {
  if (!out || !in || !out->data || !in->data || !q || !p) return ORU_RET_ERR_PARA;
  // No points is an empty working block, which the allocator refuses.
  if (n < 1) return ORU_RET_ERR_MEMORY;
  // One block: the kernel matrix (factored in place) and the per-point vectors.
  const int64_t bytes = 36 * int64_t(n) + 8 * int64_t(n) * n;
  float *block = static_cast<float *>(oru_malloc(bytes));
  if (!block) return ORU_RET_ERR_MEMORY;
  float *K = block, *d = K + int64_t(n) * n, *w = d + 2 * n, *z = w + 2 * n, *rdiag = z + 2 * n;
  const float a = 1.0f / (sigma * sigma);
  for (int32_t i = 0; i < n; ++i) {
    d[2 * i] = q[2 * i] - p[2 * i];
    d[2 * i + 1] = q[2 * i + 1] - p[2 * i + 1];
    for (int32_t j = 0; j < n; ++j) {
      const float dx = p[2 * j] - p[2 * i], dy = p[2 * j + 1] - p[2 * i + 1];
      K[int64_t(i) * n + j] = oru::rbf_fast_exp(-a * (dx * dx + dy * dy));
    }
    K[int64_t(i) * n + i] += lambda;
  }
  solve_weights(K, rdiag, w, d, z, n);
  static const auto map_row = oru::pick(ORU_KERNEL_FORMS(oru::rbf_map_row));
  const int32_t rows = in->rows, cols = in->cols;
  for (int32_t r = 0; cols > 0 && r < rows; ++r) {
    const float *src = reinterpret_cast<const float *>(static_cast<const char *>(in->data) + in->stride * r);
    float *dst = reinterpret_cast<float *>(static_cast<char *>(out->data) + out->stride * r);
    // The border is pinned: edge points slide along it but never leave it. Edge values
    // are read before they are written over, since in and out may be one map.
    const float first_x = src[0], last_x = src[2 * (cols - 1)];
    if (r == 0 || r == rows - 1) {
      for (int32_t c = 0; c < cols; ++c) {
        const float y = src[2 * c + 1];
        map_row(dst + 2 * c, src + 2 * c, 1, p, w, n, a);
        dst[2 * c + 1] = y;
      }
    } else {
      map_row(dst, src, cols, p, w, n, a);
    }
    dst[0] = first_x;
    dst[2 * (cols - 1)] = last_x;
  }
  oru_free(block);
  return ORU_RET_OK;
}

}  // extern "C"
