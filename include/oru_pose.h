/* Pose and optimisation: PnP solvers, the Levenberg-Marquardt engine, Rodrigues and projection. */
#ifndef ORU_POSE_H
#define ORU_POSE_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== PnP pose solvers ==== */

/* Pose (R, t) with camera point = R X + t from N x 3 object points and N x 2 image
 * points (aif32 or aif64, N <= 128, not all in one plane): a linear estimate refined by
 * Levenberg-Marquardt on the reprojection error. camera holds fx at 0, cx at 2, fy at 4,
 * cy at 5 of nine values. rotation receives nine packed values, translation three. */
ORU_API uint32_t oru_solve_3d_pnp(oru_matrix *rotation, oru_matrix *translation, const oru_matrix *object_points,
                                  const oru_matrix *image_points, const oru_matrix *camera);
/* The linear estimate alone, from aif64 points: params receives the rotation vector and
 * the translation. Prints two trace lines on success. */
ORU_API uint32_t oru_solve_pnp_dlt(double *params, const oru_matrix *object_points, const oru_matrix *image_points,
                                   const void *reserved, const double *camera);
/* All poses (up to four) from three points; rotations has room for 4 x 9 doubles,
 * translations for 4 x 3. The choice among them is the caller's. */
ORU_API uint32_t oru_solve_ap3p(double *rotations, double *translations, const float *object_points,
                                const float *image_points, const float *camera, const void *reserved,
                                uint32_t *count);
/* The three-point core: features holds unit bearing vectors and world the points, one per
 * column of a row-major 3 x 3 array. Returns the number of solutions. */
ORU_API int32_t compute_poses(const double *features, const double *world, double *rotations,
                              double *translations);

/* Pose (R, t) with camera point = R X + t from N >= 4 object points that lie on one
 * plane in any position (a marker, a board, a document), N x 3, and their N x 2 image
 * points (aif32 or aif64, no upper limit on N). camera holds fx at 0, cx at 2, fy at 4,
 * cy at 5 of nine values; rotation receives nine packed values, translation three.
 * The homography from the plane to the image gives the first pose, which
 * Levenberg-Marquardt refines on the reprojection error. Statuses, each with one report:
 *   ORU_RET_ERR_PARA         null or inconsistent arguments ("parameters errors!");
 *   ORU_RET_ERR_DATA_LENGTH  fewer than four points ("at least four points are needed!");
 *   ORU_RET_ERR_NOT_SUPPORT  the points are not on one plane (their spread across the
 *                            best plane is above 1 % of that along it: "points are not on
 *                            one plane!"), or lie on one line or repeat so that they fix
 *                            no pose ("points are degenerate!");
 *   ORU_RET_ERR_MEMORY       no memory for the work arrays. */
ORU_API uint32_t oru_solve_planar_pnp(oru_matrix *rotation, oru_matrix *translation, const oru_matrix *object_points,
                                      const oru_matrix *image_points, const oru_matrix *camera);

/* ---- end of PnP pose solvers ---- */

/* ==== Levenberg-Marquardt optimiser, Rodrigues, projection ==== */

/* Bit 0 of type: use max_iter and epsilon as given (clamped), else 30 and DBL_EPSILON. */
typedef struct oru_lm_criteria {
  uint32_t type;
  int32_t max_iter;
  double epsilon;
} oru_lm_criteria;

typedef struct oru_lm_optimizer {
  double prev_err_norm;        /* error norm of the last accepted point */
  double err_norm;             /* error norm of the current point */
  int32_t lambda_lg10;         /* log10 of the damping factor, -16 to 16 */
  oru_lm_criteria criteria;
  uint32_t state;              /* 0 done, 1 started, 2 calc J, 3 check err */
  int32_t iters;               /* accepted iterations */
  uint32_t complete_symm_flag; /* non-zero: JtJ's lower triangle is the source */
  oru_matrix *mask;            /* nparams x 1 ai8u, 1 = free */
  oru_matrix *prev_param;      /* nparams x 1 aif64 */
  oru_matrix *param;           /* nparams x 1 aif64; the caller sets the start here */
  oru_matrix *J;               /* nerrs x nparams aif64, absent when nerrs < 1 */
  oru_matrix *err;             /* nerrs x 1 aif64, absent when nerrs < 1 */
  oru_matrix *JtJ;
  oru_matrix *JtJN;
  oru_matrix *JtErr;
  oru_matrix *JtJV;
  oru_matrix *JtJW;
} oru_lm_optimizer;

ORU_API oru_lm_optimizer *oru_create_lm_optimizer(int32_t nparams, int32_t nerrs, const oru_lm_criteria *criteria,
                                                  uint32_t complete_symm_flag);
/* Loop until the result is 0 or *err comes back null: fill *err (and *J when non-null)
 * at *param. */
ORU_API uint32_t oru_lm_optimizer_update(oru_matrix **param, oru_matrix **J, oru_matrix **err,
                                         oru_lm_optimizer *optimizer);
/* The same loop for callers that accumulate JtJ (one triangle), JtErr and the error norm. */
ORU_API uint32_t oru_lm_optimizer_update_alt(oru_matrix **param, oru_matrix **JtJ, oru_matrix **JtErr,
                                             double **err_norm, oru_lm_optimizer *optimizer);
ORU_API uint32_t oru_lm_optimizer_step(oru_lm_optimizer *optimizer);
ORU_API uint32_t oru_release_lm_optimizer(oru_lm_optimizer **optimizer);
/* dst (n x n) = src^T src for an r x n aif64 src. */
ORU_API uint32_t oru_small_mat_transpose_mul_mat(oru_matrix *dst, const oru_matrix *src);
/* Euler angles in degrees, R = Rz(z) Ry(y) Rx(x); angles receives x, y, z. */
ORU_API uint32_t oru_rotation_to_angles(oru_matrix *angles, const oru_matrix *rotation);

/* ---- end of Levenberg-Marquardt optimiser, Rodrigues, projection ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_POSE_H */
