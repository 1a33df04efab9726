/* Numeric containers and linear algebra: tensors, matrices, element-wise kernels,
 * products, solvers, decompositions, random numbers and MD5. */
#ifndef ORU_MATRIX_H
#define ORU_MATRIX_H

#include "oru_core.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Tensor container and file format ==== */

#define ORU_TENSOR_KIND 16u

/* Channel layouts of a tensor. */
#define ORU_LAYOUT_CHW 0u
#define ORU_LAYOUT_NHWC 2u
#define ORU_LAYOUT_HWG 3u
#define ORU_LAYOUT_NDHWC4 4u

typedef struct oru_tensor {
  uint32_t kind;          /* always 16 */
  uint32_t type;          /* element type code */
  void *data;
  int32_t dims[5];        /* dims[0] fastest: W, H, C, N */
  uint32_t pitches[4];    /* bytes between neighbours along dims[k + 1] */
  int32_t ndims;
  uint32_t owns_data;
  uint32_t element_bytes;
  int64_t total_bytes;
  int64_t total_elements;
  uint32_t channel_layout;
} oru_tensor;

/* ==== Matrix container, file format and export ==== */

typedef struct oru_matrix {
  uint32_t kind;          /* 4 general, 5 row, 6 column, 7 single element, 8 image */
  uint32_t type;          /* element type code */
  void *data;
  void *plane1;           /* images only */
  void *plane2;           /* images only */
  int32_t rows;
  int32_t cols;
  int32_t depth;
  int64_t stride;         /* bytes from one row to the next */
  int64_t stride1;        /* images only */
  int64_t stride2;        /* images only */
  uint32_t owns_data;
  uint32_t reserved_one;  /* always 1 */
  uint32_t channel_bytes;
  int32_t channels;
  uint32_t format;        /* 15 for a plain matrix */
} oru_matrix;

/* ==== Tensor functions ==== */

/* Header without storage; null (reported) for ndims outside 1..5, a null dims, a type
 * of 32 or more, a dimension below 1, or more elements than 32 bits count. */
ORU_API oru_tensor *oru_create_tensor_header(int32_t ndims, const int32_t *dims, uint32_t type);
ORU_API uint32_t oru_create_tensor_data(oru_tensor *tensor);
ORU_API oru_tensor *oru_create_tensor(int32_t ndims, const int32_t *dims, uint32_t type);
ORU_API oru_tensor *oru_create_tensor_from_tensor(const oru_tensor *source);
ORU_API oru_tensor *oru_create_copy_tensor(const oru_tensor *source);
/* Fills a caller-owned record of type aif32 or aif64; data null, owns_data 0. */
ORU_API uint32_t oru_set_tensor_header(oru_tensor *tensor, int32_t ndims, const int32_t *dims, uint32_t type);
/* Makes the tensor refer to the caller's data of `length` bytes. */
ORU_API uint32_t oru_set_tensor_data(oru_tensor *tensor, void *data, int64_t length);
/* Stores owns_data: 0 makes the tensor a reference to somebody else's data. */
ORU_API uint32_t oru_set_tensor_reference_value(oru_tensor *tensor, uint32_t value);
ORU_API uint32_t oru_set_tensor_channel_layout(oru_tensor *tensor, uint32_t layout);
ORU_API uint32_t oru_release_tensor(oru_tensor **tensor);
/* Header words: ndims, type, channel_layout, dims[0..ndims-1]; *word_count = 3 + ndims. */
ORU_API uint32_t oru_write_tensor_header_to_buffer(int32_t *destination, int32_t *word_count,
                                                   const oru_tensor *tensor);
ORU_API uint32_t oru_read_tensor_header_from_buffer(oru_tensor *tensor, const int32_t *source);
ORU_API uint32_t oru_write_tensor_to_disk(const char *path, const oru_tensor *tensor);
ORU_API oru_tensor *oru_create_tensor_from_disk(const char *path);

/* ---- end of Tensor functions ---- */

/* ==== Matrix functions ==== */

#define ORU_MATRIX_KIND_GENERAL 4u
#define ORU_MATRIX_KIND_ROW 5u
#define ORU_MATRIX_KIND_COLUMN 6u
#define ORU_MATRIX_KIND_SINGLE 7u
#define ORU_MATRIX_FORMAT_PLAIN 15u
#define ORU_MATRIX_HEADER_WORDS 12

ORU_API oru_matrix *oru_create_matrix_header(int32_t rows, int32_t cols, int32_t depth, uint32_t type);
ORU_API uint32_t oru_creat_matrix_data(oru_matrix *matrix);
ORU_API oru_matrix *oru_create_matrix(int32_t rows, int32_t cols, int32_t depth, uint32_t type);
ORU_API uint32_t oru_set_matrix_header(oru_matrix *matrix, int32_t rows, int32_t cols, int32_t depth,
                                       uint32_t type);
ORU_API uint32_t oru_set_matrix_data(oru_matrix *matrix, void *data, int64_t length);
ORU_API uint32_t oru_set_matrix_reference_value(oru_matrix *matrix, uint32_t value);
ORU_API uint32_t oru_set_eye_matrix(oru_matrix *matrix);
/* dst becomes a view of columns first to last - 1 of src. */
ORU_API uint32_t oru_get_matrix_cols(oru_matrix *dst, const oru_matrix *src, int32_t first, int32_t last);
ORU_API uint32_t oru_release_matrix(oru_matrix **matrix);
ORU_API uint32_t oru_release_matrix_no_error(oru_matrix **matrix);
ORU_API uint32_t oru_write_matrix_header_to_buffer(uint32_t *words, int32_t *count, const oru_matrix *matrix);
ORU_API uint32_t oru_read_matrix_header_from_buffer(oru_matrix *matrix, const uint32_t *words);
/* The caller's record becomes a one-row view of all the tensor's data. */
ORU_API uint32_t oru_packed_tensor_into_row_vector(oru_matrix *matrix, const oru_tensor *tensor);
ORU_API uint32_t oru_write_matrix_to_disk(const char *path, const oru_matrix *matrix);
ORU_API oru_matrix *oru_create_matrix_from_disk(const char *path);
/* Raw bytes (text 0) or text; path null means "data.dat". */
ORU_API uint32_t oru_export_data_to_file(const char *path, const oru_matrix *matrix, int32_t text);

/* ---- end of Matrix functions ---- */

/* ==== Element-wise kernels and type conversion ==== */

/* Matrix operations over the whole storage (stride * rows * depth bytes). The scalar of
 * the *_scalar operations is read through its address with the matrix's float width. */
ORU_API uint32_t oru_add(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b);
ORU_API uint32_t oru_sub(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b);
ORU_API uint32_t oru_mul(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b);
ORU_API uint32_t oru_div(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b);
ORU_API uint32_t oru_matrix_mul_scalar(oru_matrix *dst, const oru_matrix *src, const void *scalar);
ORU_API uint32_t oru_matrix_div_scalar(oru_matrix *dst, const oru_matrix *src, const void *scalar);
ORU_API uint32_t oru_matrix_add_scalar(oru_matrix *dst, const oru_matrix *src, const void *scalar);
ORU_API uint32_t oru_matrix_add_matrix_mul_scalar(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b,
                                                  const void *scalar);
/* axis 1: per column, 0: per row, -1: whole storage. */
ORU_API uint32_t oru_sum_with_axes(void *out, const oru_matrix *m, int32_t axis);
ORU_API uint32_t oru_mean_with_axes(void *out, const oru_matrix *m, int32_t axis);
ORU_API uint32_t oru_sigmoid(oru_matrix *dst, const oru_matrix *src);
ORU_API uint32_t oru_set_matrix_fixed_value(oru_matrix *m, const void *value);
ORU_API uint32_t oru_set_matrix_identity(oru_matrix *m);
/* mode 0 to 15: see the conversion table of the documentation. */
ORU_API uint32_t oru_data_type_convert(oru_matrix *dst, oru_matrix *src, uint32_t mode);

/* Flat kernels: no checks, no reports. dst may equal a or b. */
ORU_API void array1d_add_real32(float *dst, int64_t n, const float *a, const float *b);
ORU_API void array1d_add_real64(double *dst, int64_t n, const double *a, const double *b);
ORU_API void array1d_sub_real32(float *dst, int64_t n, const float *a, const float *b);
ORU_API void array1d_sub_real64(double *dst, int64_t n, const double *a, const double *b);
ORU_API void array1d_mul_real32(float *dst, int64_t n, const float *a, const float *b);
ORU_API void array1d_mul_real64(double *dst, int64_t n, const double *a, const double *b);
ORU_API void array1d_div_real32(float *dst, int64_t n, const float *a, const float *b);
ORU_API void array1d_div_real64(double *dst, int64_t n, const double *a, const double *b);
ORU_API void array1d_mul_scalar_real32(float *x, int64_t n, float s);
ORU_API void array1d_mul_scalar_real64(double *x, int64_t n, double s);
ORU_API void array1d_div_scalar_real32(float *x, int64_t n, float s);
ORU_API void array1d_div_scalar_real64(double *x, int64_t n, double s);
ORU_API void array1d_add_scalar_real32(float *x, int64_t n, float s);
ORU_API void array1d_add_scalar_real64(double *x, int64_t n, double s);
/* dst[i] = a[i] * s + b[i] */
ORU_API void array1d_mul_scalar_add_array1d_real32(float *dst, int64_t n, const float *a, const float *b, float s);
ORU_API void array1d_mul_scalar_add_array1d_real64(double *dst, int64_t n, const double *a, const double *b,
                                                   double s);
ORU_API void array1d_set_value_real32(float *dst, int64_t n, float v);
ORU_API void array1d_set_value_real64(double *dst, int64_t n, double v);
ORU_API void array1d_sum_real32(float *out, const float *x, int64_t n);
ORU_API void array1d_sum_real64(double *out, const double *x, int64_t n);
ORU_API void array1d_sum_ai32s(int32_t *out, const int32_t *x, int64_t n);
ORU_API void array1d_sum_ai32u(uint32_t *out, const uint32_t *x, int64_t n);
ORU_API void array1d_sum_ai16s(int32_t *out, const int16_t *x, int64_t n);
ORU_API void array1d_sum_ai8u(uint32_t *out, const uint8_t *x, int64_t n);
ORU_API void array1d_power_sum_real32(float *out, const float *x, int64_t n);
ORU_API void array1d_power_sum_real64(double *out, const double *x, int64_t n);
ORU_API void array1d_sum_power_real32(float *sum, float *sum_sq, const float *x, int64_t n);
ORU_API void array1d_sum_power_real64(double *sum, double *sum_sq, const double *x, int64_t n);
ORU_API float two_arrays_dot_real32(const float *a, const float *b, int64_t n);
ORU_API double two_arrays_dot_real64(const double *a, const double *b, int64_t n);
/* The square of the distance: no root is taken. */
ORU_API float two_arrays_l2_distance_real32(const float *a, const float *b, int32_t n);
ORU_API double two_arrays_l2_distance_real64(const double *a, const double *b, int32_t n);
ORU_API float two_arrays_l1_distance_real32(const float *a, const float *b, int32_t n);
ORU_API double two_arrays_l1_distance_real64(const double *a, const double *b, int32_t n);
ORU_API uint32_t oru_hamming_dist_u8(const uint8_t *a, const uint8_t *b, int32_t n);
/* stride in elements */
ORU_API void sum_by_coln_real32(float *out, const float *data, int32_t rows, int32_t cols, int32_t stride);
ORU_API void sum_by_coln_real64(double *out, const double *data, int32_t rows, int32_t cols, int32_t stride);
ORU_API void sum_by_row_real32(float *out, const float *data, int32_t rows, int32_t cols, int32_t stride);
ORU_API void sum_by_row_real64(double *out, const double *data, int32_t rows, int32_t cols, int32_t stride);
ORU_API void oru_array1d_sqrt_real32(float *x, int64_t n);
ORU_API void oru_array1d_sqrt_real64(double *x, int64_t n);
/* x[i] = e^x[i] in place, table-driven. */
ORU_API void oru_fast_expl(double *x, int32_t n);

/* ---- end of Element-wise kernels and type conversion ---- */

/* ==== Matrix-vector, row-vector, transposition ==== */

/* out: one value of the matrices' float type; the whole storage takes part. */
ORU_API uint32_t oru_dot(void *out, const oru_matrix *a, const oru_matrix *b);
/* dst[i][j] = src[i][j] op vec[j]; dst may be src. */
ORU_API uint32_t oru_matrix_add_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec);
ORU_API uint32_t oru_matrix_sub_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec);
ORU_API uint32_t oru_matrix_mul_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec);
ORU_API uint32_t oru_matrix_div_row_vector(oru_matrix *dst, const oru_matrix *src, const oru_matrix *vec);
/* dst = m * vec, or transpose(m) * vec when transposed isn't 0. */
ORU_API uint32_t oru_matrix_mul_vector(oru_matrix *dst, const oru_matrix *m, int32_t transposed, const oru_matrix *vec);
/* dst[i][j] = a[i] * b[j] for a column a and a row b. */
ORU_API uint32_t oru_two_vector_outproduct(oru_matrix *dst, const oru_matrix *a, const oru_matrix *b);
ORU_API uint32_t oru_matrix_transposition(oru_matrix *dst, const oru_matrix *src);
/* Strides in elements. */
ORU_API void array2d_transposition_real32(const float *src, int32_t rows, int32_t cols, int32_t src_stride,
                                          int32_t dst_stride, float *dst);
ORU_API void array2d_transposition_real64(const double *src, int32_t rows, int32_t cols, int32_t src_stride,
                                          int32_t dst_stride, double *dst);
ORU_API void array2d_inplace_trans_real32(float *x, int32_t n, int32_t stride);
ORU_API void array2d_inplace_trans_real64(double *x, int32_t n, int32_t stride);

/* ---- end of Matrix-vector, row-vector, transposition ---- */

/* ==== General matrix multiply ==== */

/* C = alpha * op(A) * op(B) + beta * C for aif32 or aif64 records; alpha and beta point
 * to values of the matrices' element type. A non-zero flag transposes its operand. */
ORU_API uint32_t oru_matrix_mul_add(oru_matrix *c, const oru_matrix *a, int32_t transpose_a,
                                    const oru_matrix *b, int32_t transpose_b, const void *alpha,
                                    const void *beta);
/* C = op(A) * op(B). */
ORU_API uint32_t oru_matrix_mul(oru_matrix *c, const oru_matrix *a, int32_t transpose_a,
                                const oru_matrix *b, int32_t transpose_b);

/* Blocked multiply on row-major arrays, no checks: C (m by n) = alpha * op(A) op(B) + beta * C,
 * with k the inner dimension; leading dimensions count elements. */
ORU_API void oru_matrix_mul_real32(int32_t transpose_a, int32_t transpose_b, int32_t m, int32_t n,
                                   int32_t k, const float *a, int32_t lda, const float *b,
                                   int32_t ldb, float *c, int32_t ldc, float alpha, float beta);
ORU_API void oru_matrix_mul_real64(int32_t transpose_a, int32_t transpose_b, int32_t m, int32_t n,
                                   int32_t k, const double *a, int32_t lda, const double *b,
                                   int32_t ldb, double *c, int32_t ldc, double alpha, double beta);

/* A tile kernel: multiplies a packed panel of A (k by mr) with a packed panel of B (k by nr)
 * into the mr by nr tile at c, whose rows lie ldc elements apart. */
typedef void (*oru_mat_mul_tile_kernel_real32)(int32_t k, const float *a, const float *b, float *c,
                                               int32_t ldc, float alpha, float beta);

/* Blocked multiply with any tile shape mr by nr and the tile kernel that goes with it. */
ORU_API void blocked_mat_mul_row_major_real32(int32_t m, int32_t n, int32_t k, const float *a,
                                              int32_t lda, const float *b, int32_t ldb, float *c,
                                              int32_t ldc, int32_t mr, int32_t nr,
                                              oru_mat_mul_tile_kernel_real32 kernel, float alpha,
                                              float beta);
/* Runs the tile kernel over every tile of an m by n block of C from packed panels
 * (copy_a_blocked, copy_b_blocked); edge tiles go through a local tile. */
ORU_API void mat_mul_kernel_row_major(int32_t m, int32_t n, int32_t k, float *c, int32_t ldc,
                                      const float *packed_a, const float *packed_b, int32_t mr,
                                      int32_t nr, oru_mat_mul_tile_kernel_real32 kernel,
                                      float alpha, float beta);
/* Packs m rows of A (k columns) into panels of mr rows: panel[l * mr + i], zero-filled. */
ORU_API void copy_a_blocked(int32_t m, int32_t k, int32_t mr, const float *a, int32_t lda,
                            float *destination);
/* Packs n columns of B (k rows) into panels of nr columns: panel[l * nr + j], zero-filled. */
ORU_API void copy_b_blocked(int32_t k, int32_t n, int32_t nr, const float *b, int32_t ldb,
                            float *destination);
/* 8 by 8 tile: C = AB (beta 0) or C += AB (beta 1); alpha is not applied. */
ORU_API void mat_mul_8xkx8_kernel(int32_t k, const float *a, const float *b, float *c, int32_t ldc,
                                  float alpha, float beta);
/* 1 by 16 tile: c[j] += a[l] * b[l * 16 + j] in rising l, after clearing c when beta is 0. */
ORU_API void mat_mul_1xkx16_kernel(int32_t k, const float *a, const float *b, float *c,
                                   int32_t ldc, float alpha, float beta);

/* ---- end of General matrix multiply ---- */

/* ==== Small matrix multiply ==== */

/* C = alpha * op(A) * op(B) + beta * C on row-major arrays without packing. Arguments:
 * A, A's rows, A's cols, lda, B, free dimension of B (its cols, or its rows when
 * transposed), ldb, C, ldc, alpha, beta. Nothing is checked. */
ORU_API void oru_small_matrix_mul_matrix_real32(const float *a, int32_t a_rows, int32_t a_cols,
                                                int32_t lda, const float *b, int32_t b_free,
                                                int32_t ldb, float *c, int32_t ldc, float alpha,
                                                float beta);
ORU_API void oru_small_matrix_mul_matrix_t_real32(const float *a, int32_t a_rows, int32_t a_cols,
                                                  int32_t lda, const float *b, int32_t b_free,
                                                  int32_t ldb, float *c, int32_t ldc, float alpha,
                                                  float beta);
ORU_API void oru_small_matrix_t_mul_matrix_real32(const float *a, int32_t a_rows, int32_t a_cols,
                                                  int32_t lda, const float *b, int32_t b_free,
                                                  int32_t ldb, float *c, int32_t ldc, float alpha,
                                                  float beta);
ORU_API void oru_small_matrix_t_mul_matrix_t_real32(const float *a, int32_t a_rows, int32_t a_cols,
                                                    int32_t lda, const float *b, int32_t b_free,
                                                    int32_t ldb, float *c, int32_t ldc,
                                                    float alpha, float beta);
ORU_API void oru_small_matrix_mul_matrix_real64(const double *a, int32_t a_rows, int32_t a_cols,
                                                int32_t lda, const double *b, int32_t b_free,
                                                int32_t ldb, double *c, int32_t ldc, double alpha,
                                                double beta);
ORU_API void oru_small_matrix_mul_matrix_t_real64(const double *a, int32_t a_rows, int32_t a_cols,
                                                  int32_t lda, const double *b, int32_t b_free,
                                                  int32_t ldb, double *c, int32_t ldc,
                                                  double alpha, double beta);
ORU_API void oru_small_matrix_t_mul_matrix_real64(const double *a, int32_t a_rows, int32_t a_cols,
                                                  int32_t lda, const double *b, int32_t b_free,
                                                  int32_t ldb, double *c, int32_t ldc,
                                                  double alpha, double beta);
ORU_API void oru_small_matrix_t_mul_matrix_t_real64(const double *a, int32_t a_rows,
                                                    int32_t a_cols, int32_t lda, const double *b,
                                                    int32_t b_free, int32_t ldb, double *c,
                                                    int32_t ldc, double alpha, double beta);

/* ---- end of Small matrix multiply ---- */

/* ==== Linear equation solving ==== */

/* Solves a x = b by Gaussian elimination with row pivoting, in place: a is overwritten,
 * x may share b's data. 1 on bad arguments, 4 for integer types, 32 when a is singular. */
ORU_API uint32_t oru_solve_linear_equation(oru_matrix *x, oru_matrix *a, const oru_matrix *b);

/* ---- end of Linear equation solving ---- */

/* ==== Jacobi SVD ==== */

/* ---- end of Jacobi SVD ---- */

/* ==== Symmetric eigen decomposition ==== */

/* ---- end of Symmetric eigen decomposition ---- */

/* ==== Random numbers ==== */

/* ---- end of Random numbers ---- */

/* ==== Polynomial roots ==== */

/* ---- end of Polynomial roots ---- */

/* ==== MD5 ==== */

typedef struct oru_hash_md5_context {
  uint32_t length;    /* message bytes so far; messages stay below 2^32 bytes */
  uint32_t state[4];
  uint32_t fill;      /* bytes waiting in block */
  uint8_t block[64];
} oru_hash_md5_context;

ORU_API oru_hash_md5_context *oru_create_hash_md5_context(void);
ORU_API uint32_t oru_hash_md5_update(oru_hash_md5_context *context, const void *data, int32_t size);
/* Writes 16 bytes; the context is spent afterwards. */
ORU_API uint32_t oru_hash_md5_final(oru_hash_md5_context *context, uint8_t *digest);
ORU_API uint32_t oru_release_hash_md5_context(oru_hash_md5_context **context);
/* One-shot digest; the low 32 bits of size count. */
ORU_API uint32_t oru_hash_md5_sum(uint8_t *digest, const void *data, int64_t size);

/* ---- end of MD5 ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_MATRIX_H */
