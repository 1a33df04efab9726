// Homography from point pairs: the normalised direct linear solution from the smallest
// eigenvector of the 9 x 9 normal matrix, then Levenberg-Marquardt on the transfer error.
#include <cmath>
#include <cstring>

#include "core/oru_scratch.h"
#include "image/oru_homography_internal.h"
#include "oru_image.h"
#include "oru_pose.h"

namespace {

constexpr double kEps = 2.220446049250313e-16;

oru_matrix view(double *data, int32_t rows, int32_t cols) {
  oru_matrix m{};
  oru_set_matrix_header(&m, rows, cols, 1, aif64);
  m.data = data;
  return m;
}

double &at(oru_matrix *m, int32_t r, int32_t c) {
  return reinterpret_cast<double *>(static_cast<char *>(m->data) + m->stride * r)[c];
}

}  // namespace

bool oru::homography_direct_solution(double H[9], const double *src, const double *dst, int32_t n) {
  double C[2] = {0, 0}, c[2] = {0, 0};
  for (int32_t i = 0; i < n; ++i)
    for (int k = 0; k < 2; ++k) {
      C[k] += src[2 * i + k];
      c[k] += dst[2 * i + k];
    }
  for (int k = 0; k < 2; ++k) {
    C[k] /= n;
    c[k] /= n;
  }
  double S[2] = {0, 0}, s[2] = {0, 0};
  for (int32_t i = 0; i < n; ++i)
    for (int k = 0; k < 2; ++k) {
      S[k] += std::fabs(src[2 * i + k] - C[k]);
      s[k] += std::fabs(dst[2 * i + k] - c[k]);
    }
  if (S[0] < kEps || S[1] < kEps || s[0] < kEps || s[1] < kEps) return false;
  for (int k = 0; k < 2; ++k) {
    S[k] = n / S[k];
    s[k] = n / s[k];
  }
  double LtL[81] = {0};
  for (int32_t i = 0; i < n; ++i) {
    const double X = (src[2 * i] - C[0]) * S[0], Y = (src[2 * i + 1] - C[1]) * S[1];
    const double x = (dst[2 * i] - c[0]) * s[0], y = (dst[2 * i + 1] - c[1]) * s[1];
    const double rx[9] = {X, Y, 1, 0, 0, 0, -x * X, -x * Y, -x};
    const double ry[9] = {0, 0, 0, X, Y, 1, -y * X, -y * Y, -y};
    for (int j = 0; j < 9; ++j)
      for (int k = j; k < 9; ++k) LtL[9 * j + k] += rx[j] * rx[k] + ry[j] * ry[k];
  }
  double w[9], v[81];
  oru_matrix wm = view(w, 9, 1), vm = view(v, 9, 9), am = view(LtL, 9, 9);
  if (oru_small_symmetrical_matrix_eig(&wm, &vm, &am, 0) != ORU_RET_OK) return false;
  // H = N1 H0 N2: N1 undoes the destination's normalisation, N2 applies the source's.
  const double N1[9] = {1 / s[0], 0, c[0], 0, 1 / s[1], c[1], 0, 0, 1};
  const double N2[9] = {S[0], 0, -C[0] * S[0], 0, S[1], -C[1] * S[1], 0, 0, 1};
  double T[9], G[9];
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k)
      T[3 * r + k] = N1[3 * r] * v[k] + N1[3 * r + 1] * v[3 + k] + N1[3 * r + 2] * v[6 + k];
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k)
      G[3 * r + k] = T[3 * r] * N2[k] + T[3 * r + 1] * N2[3 + k] + T[3 * r + 2] * N2[6 + k];
  // A vanishing last entry (all points on one line through the origin's image, say) has
  // no normal form either.
  if (!(std::fabs(G[8]) > 0.0) || !std::isfinite(G[8])) return false;
  for (int k = 0; k < 9; ++k) H[k] = G[k] / G[8];
  H[8] = 1.0;
  return true;
}

namespace {

// Levenberg-Marquardt on the eight free entries, with the engine's accumulated form.
uint32_t refine(double H[9], const double *src, const double *dst, int32_t n) {
  const oru_lm_criteria criteria = {3u, 10, kEps};
  oru::Guard<oru_lm_optimizer, oru_release_lm_optimizer> lm(oru_create_lm_optimizer(8, 0, &criteria, 0));
  if (!lm.get()) return ORU_RET_ERR_MEMORY;
  std::memcpy(lm->param->data, H, 8 * sizeof(double));
  for (;;) {
    oru_matrix *param = nullptr, *JtJ = nullptr, *JtErr = nullptr;
    double *err_norm = nullptr;
    const uint32_t go = oru_lm_optimizer_update_alt(&param, &JtJ, &JtErr, &err_norm, lm.get());
    std::memcpy(H, param->data, 8 * sizeof(double));
    if (!go) break;
    // Sums over the points in registers; the engine handed the matrices out zeroed.
    const double *h = H;
    double jtj[8][8] = {}, jte[8] = {}, norm = 0.0;
    for (int32_t i = 0; i < n; ++i) {
      const double Mx = src[2 * i], My = src[2 * i + 1];
      double w = h[6] * Mx + h[7] * My + 1.0;
      w = std::fabs(w) > kEps ? 1.0 / w : 0.0;
      const double xi = (h[0] * Mx + h[1] * My + h[2]) * w, yi = (h[3] * Mx + h[4] * My + h[5]) * w;
      const double ex = xi - dst[2 * i], ey = yi - dst[2 * i + 1];
      if (JtJ) {
        const double jx[8] = {Mx * w, My * w, w, 0, 0, 0, -Mx * w * xi, -My * w * xi};
        const double jy[8] = {0, 0, 0, Mx * w, My * w, w, -Mx * w * yi, -My * w * yi};
        for (int j = 0; j < 8; ++j) {
          for (int k = j; k < 8; ++k) jtj[j][k] += jx[j] * jx[k] + jy[j] * jy[k];
          jte[j] += jx[j] * ex + jy[j] * ey;
        }
      }
      norm += ex * ex + ey * ey;
    }
    if (JtJ) {
      double *e = static_cast<double *>(JtErr->data);
      for (int j = 0; j < 8; ++j) {
        for (int k = j; k < 8; ++k) at(JtJ, j, k) += jtj[j][k];
        e[j] += jte[j];
      }
    }
    if (err_norm) *err_norm += norm;
  }
  H[8] = 1.0;
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_find_homography_transform(oru_matrix *result, const double *src_points,
                                               const double *dst_points, int32_t count) {
  if (!result || !result->data || result->rows != 3 || result->cols != 3 || result->type != aif64 || !src_points ||
      !dst_points || count < 4)
    return ORU_RET_ERR_PARA;
  double H[9];
  // Degenerate point sets leave the result as it was.
  if (!oru::homography_direct_solution(H, src_points, dst_points, count)) return ORU_RET_OK;
  if (count > 4) {
    const uint32_t status = refine(H, src_points, dst_points, count);
    if (status != ORU_RET_OK) return status;
  }
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k) at(result, r, k) = H[3 * r + k];
  return ORU_RET_OK;
}

}  // extern "C"
