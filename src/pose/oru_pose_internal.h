// Pieces of the pinhole model shared by the pose solvers and the optimiser's callers;
// they stay inside the library.
#ifndef ORU_IMAGE_POSE_INTERNAL_H
#define ORU_IMAGE_POSE_INTERNAL_H

#include <cstdint>

#include "oru_matrix.h"

// Rotation matrix (3 x 3, packed) from a rotation vector src (1 x 3 or 3 x 1, aif32 or
// aif64); jacobian (may be null) receives d(matrix element k)/d(r_i) as 3 rows of 9.
uint32_t oru_rodrigues2_jacobian(oru_matrix *dst, oru_matrix *jacobian, const oru_matrix *src);

// Pinhole projection of N x 3 object points with the pose (r, t) into N x 2 image points;
// dpdr and dpdt (2N x 3, may be null, may be views with a wider stride) receive derivatives.
// All records are aif64; camera holds fx, -, cx, -, fy, cy as nine values.
void oru_project_points2(const oru_matrix *object_points, const oru_matrix *r, const oru_matrix *t,
                         const oru_matrix *camera, oru_matrix *image_points, oru_matrix *dpdr, oru_matrix *dpdt);

#endif
