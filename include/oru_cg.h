/* Computation graph: handle, edges, sort, bind, prepare, run, and the operators in their graph form. */
#ifndef ORU_CG_H
#define ORU_CG_H

#include "oru_matrix.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Graph core ==== */

/* Node kinds and operator codes: the slot numbers of the operator table. Codes below 3
 * are tensor nodes whose tensor stays the client's. */
#define ORU_CG_OPERATOR_SLOTS 41
#define ORU_CG_OP_INPUT 0
#define ORU_CG_OP_RESERVED_TENSOR 1
#define ORU_CG_OP_WEIGHT 2
#define ORU_CG_OP_STD_CONV2D 3
#define ORU_CG_OP_DEPTHWISE_CONV2D 4
#define ORU_CG_OP_POINTWISE_CONV2D 5
#define ORU_CG_OP_DILATED_CONV2D 7
#define ORU_CG_OP_TRANSPOSED_CONV2D 8
#define ORU_CG_OP_BIAS 9
#define ORU_CG_OP_BN1D 10
#define ORU_CG_OP_BN2D 11
#define ORU_CG_OP_CONV2D_ACT 12
#define ORU_CG_OP_CONV2D_BN2D_ACT 13
#define ORU_CG_OP_SIGMOID 15
#define ORU_CG_OP_RELU 16
#define ORU_CG_OP_RELU6 20
#define ORU_CG_OP_HSWISH 21
#define ORU_CG_OP_MAX_POOL2D 22
#define ORU_CG_OP_AVG_POOL2D 23
#define ORU_CG_OP_SOFTMAX 24
#define ORU_CG_OP_LINEAR 25
#define ORU_CG_OP_ADD 27
#define ORU_CG_OP_MUL 28
#define ORU_CG_OP_SAMPLE 30
#define ORU_CG_OP_AFFINE 31
#define ORU_CG_OP_RESHAPE 32
#define ORU_CG_OP_CONCAT 33
#define ORU_CG_OP_SPLIT 34
#define ORU_CG_OP_SHUFFLE 35

/* Backends and the conv methods a context copies at bind time. */
#define ORU_CG_BACKEND_FLOAT 0u
#define ORU_CG_BACKEND_FIXED 1u
#define ORU_CG_CONV_DIRECT_CHW 0u
#define ORU_CG_CONV_PACKED_HWG 1u
#define ORU_CG_CONV_IM2COL_GEMM 2u

typedef struct oru_cg_handle oru_cg_handle;

/* One node's computation; it is given the node's context, never the handle. */
typedef uint32_t (*oru_cg_forward_fn)(void *context);

/* The five functions of an operator slot; any of them may be null. */
typedef struct oru_cg_operator {
  uint32_t (*init_context)(oru_cg_handle *handle, int32_t node, const void *params);
  uint32_t (*init_inference)(oru_cg_handle *handle, int32_t node);
  uint32_t (*uninit)(void **context);
  oru_tensor *(*get_inference_data)(oru_cg_handle *handle, int32_t node);
  oru_tensor *(*get_dev_data)(oru_cg_handle *handle, int32_t node);
} oru_cg_operator;

struct oru_cg_handle {
  int32_t max_nodes;
  oru_darray *nodes;            /* int32 ids in order of first appearance; size is N */
  void **contexts;              /* N, by id */
  int32_t *topo_order;          /* N */
  uint32_t *bound;              /* N flags, by id */
  oru_darray **out_edges;       /* max_nodes lists of int32 targets */
  oru_darray **in_edges;        /* max_nodes lists of int32 sources */
  oru_cg_forward_fn *forward;   /* N, by id */
  oru_cg_forward_fn *backward;  /* N, by id; never filled */
  oru_cg_operator *operators;   /* ORU_CG_OPERATOR_SLOTS slots */
  uint32_t conv_workers;
  uint32_t conv_method;
  uint32_t dev_type;
  void *dev_context;
  uint32_t backend;
  int32_t *q_list;              /* one Q per node id, owned by the handle */
};

/* Creation record; words 2 and 3 are not read. */
typedef struct oru_cg_params {
  uint32_t max_nodes;
  uint32_t conv_workers;
  uint32_t reserved2;
  uint32_t reserved3;
  uint32_t backend;
} oru_cg_params;

/* What a node is: op_type, and for op types below 3 the client's tensor. */
typedef struct oru_cg_node_desc {
  int32_t op_type;
  oru_tensor *tensor;
} oru_cg_node_desc;

/* Context shared by sigmoid, relu, relu6, hswish and softmax. */
typedef struct oru_cg_unary_context {
  int32_t op_type;
  oru_tensor *input;
  oru_tensor *output;
  int32_t q_in;
  int32_t q_out;
  uint32_t backend;
  uint32_t dev_type;
} oru_cg_unary_context;

ORU_API oru_cg_handle *oru_create_computation_graph_handle(const oru_cg_params *params);
ORU_API uint32_t oru_release_computation_graph_handle(oru_cg_handle **handle);
ORU_API uint32_t oru_cg_set_conv_method(oru_cg_handle *handle, uint32_t method);
ORU_API uint32_t oru_get_cg_conv_method(const oru_cg_handle *handle);
ORU_API uint32_t oru_cg_set_dev_type(oru_cg_handle *handle, uint32_t type);
ORU_API uint32_t oru_cg_get_dev_type(const oru_cg_handle *handle);
ORU_API void *oru_get_dev_context_from_cg_handle(const oru_cg_handle *handle);
/* The handle takes the list (from oru_malloc or oru_calloc) and frees it on release. */
ORU_API uint32_t oru_cg_set_ptr_q_list(oru_cg_handle *handle, int32_t *list);
ORU_API int32_t oru_cg_get_q_from_list(const oru_cg_handle *handle, int32_t index);

ORU_API uint32_t oru_add_one_edge_into_computation_graph(oru_cg_handle *handle, int32_t from, int32_t to);
ORU_API uint32_t oru_computation_graph_topo_sort(oru_cg_handle *handle);
ORU_API uint32_t oru_bind_operator_onto_computation_graph(oru_cg_handle *handle, int32_t node,
                                                         const oru_cg_node_desc *desc, const void *params);

ORU_API uint32_t oru_prepare_inference_computation(oru_cg_handle *handle);
ORU_API uint32_t oru_computation_graph_inference(oru_cg_handle *handle);
ORU_API oru_tensor *oru_get_computation_node_inference_data(oru_cg_handle *handle, int32_t node);
ORU_API oru_tensor *oru_get_computation_node_inference_dev_data(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_prepare_backward_computation(oru_cg_handle *handle);
ORU_API uint32_t oru_computation_graph_backward(oru_cg_handle *handle);

/* ReLU and the functions every unary operator shares. */
ORU_API uint32_t oru_init_relu_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_unary_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API oru_tensor *oru_get_unary_inference_data(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_unary_context(void **context);

/* ---- end of Graph core ---- */

/* ==== Model weight file and block builders ==== */

/* Reads word_count 32-bit words into buffer and checks the 16-byte MD5 digest behind them:
 * 0 when it matches, 1 otherwise (the buffer keeps what was read). Prints nothing. */
ORU_API uint32_t oru_cg_load_model(void *buffer, int32_t word_count, const char *path);

/* Builders bind one standard block onto nodes node, node + 1, ... of a sorted graph. */
ORU_API uint32_t oru_bind_invert_residual(int32_t in_channels, int32_t out_channels, int32_t stride,
                                          int32_t residual, int32_t expansion, int32_t node, oru_cg_handle *handle);
ORU_API uint32_t oru_bind_invert_residual_relu6(int32_t in_channels, int32_t out_channels, int32_t stride,
                                                int32_t residual, int32_t expansion, int32_t node,
                                                oru_cg_handle *handle);
ORU_API uint32_t oru_bind_base_net_conv_bn(int32_t in_channels, int32_t out_channels, int32_t stride, int32_t node,
                                           oru_cg_handle *handle);
ORU_API uint32_t oru_bind_base_net_conv_dw(int32_t in_channels, int32_t out_channels, int32_t stride, int32_t node,
                                           oru_cg_handle *handle);
ORU_API uint32_t oru_bind_extra_net(int32_t channels, int32_t stride, int32_t node, oru_cg_handle *handle);
ORU_API uint32_t oru_bind_seperable_conv2d(int32_t in_channels, int32_t out_channels, int32_t stride, int32_t node,
                                           oru_cg_handle *handle);
ORU_API uint32_t oru_bind_std_conv2d(int32_t in_channels, int32_t out_channels, int32_t unused, int32_t node,
                                     oru_cg_handle *handle);
ORU_API uint32_t oru_bind_full_connect(int32_t has_bias, int32_t node, oru_cg_handle *handle);

/* ---- end of Model weight file and block builders ---- */

/* ==== Unary operators ==== */

/* ReLU6 (20), hard swish (21), sigmoid (15) and softmax (24) share the unary context,
 * preparation, release and getter of the graph core; the parameters are ignored. */
ORU_API uint32_t oru_init_relu6_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_hswish_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_sigmoid_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_softmax_context(oru_cg_handle *handle, int32_t node, const void *params);

/* ---- end of Unary operators ---- */

/* ==== Binary operators and bias ==== */

/* One context for bias (9), add (27) and mul (28). */
typedef struct oru_cg_binary_context {
  int32_t op_type;
  oru_tensor *input_a;  /* first operand; for bias, the data */
  oru_tensor *input_b;  /* second operand; for bias, the bias vector */
  oru_tensor *output;
  int32_t q_a;
  int32_t q_b;
  int32_t q_out;
  uint32_t backend;
  uint32_t dev_type;
} oru_cg_binary_context;

ORU_API uint32_t oru_init_bias_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_add_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_mul_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_bias_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_init_binary_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_bias_context(void **context);
ORU_API uint32_t oru_uninit_binary_context(void **context);
ORU_API oru_tensor *oru_get_binary_inference_data(oru_cg_handle *handle, int32_t node);
ORU_API oru_tensor *oru_get_binary_inference_dev_data(oru_cg_handle *handle, int32_t node);

/* ---- end of Binary operators and bias ---- */

/* ==== Linear, affine and batch-norm operators ==== */

typedef struct oru_cg_linear_params {
  int32_t in_features;
  int32_t out_features;
  int32_t has_bias;
} oru_cg_linear_params;

typedef struct oru_cg_linear_context {
  int32_t op_type; /* 25 */
  oru_tensor *input;
  oru_tensor *weights;
  oru_tensor *output;
  int32_t q_in;
  int32_t q_w;
  int32_t q_out;
  uint32_t backend;
  oru_cg_linear_params params;
  uint32_t dev_type;
} oru_cg_linear_context;

typedef struct oru_cg_bn_params {
  int32_t unused;
  float eps;
} oru_cg_bn_params;

typedef struct oru_cg_bn_context {
  int32_t op_type; /* 10 bn1d, 11 bn2d */
  oru_tensor *input;
  oru_tensor *output;
  oru_tensor *weights; /* gamma, beta, mean, var: four equal quarters */
  int32_t q_in;
  int32_t q_out;
  int32_t q_gamma;
  int32_t q_beta;
  int32_t q_mean;
  int32_t q_var;
  uint32_t backend;
  oru_cg_bn_params params;
  uint32_t dev_type;
} oru_cg_bn_context;

typedef struct oru_cg_affine_params {
  int32_t word0;
  int32_t word1;
  float scale_w;
  float scale_h;
  int32_t word4;
  int32_t align_corners;
} oru_cg_affine_params;

typedef struct oru_cg_affine_context {
  int32_t op_type; /* 31 */
  oru_tensor *input;
  oru_tensor *matrix; /* the 2 x 3 sampling matrix, 6 elements */
  oru_tensor *output;
  int32_t q_in;
  int32_t q_matrix;
  int32_t q_out;
  uint32_t backend;
  oru_cg_affine_params params;
  uint32_t dev_type;
} oru_cg_affine_context;

ORU_API uint32_t oru_init_linear_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_linear_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_linear_context(void **context);
ORU_API oru_tensor *oru_get_linear_inference_data(oru_cg_handle *handle, int32_t node);
ORU_API oru_tensor *oru_get_linear_inference_dev_data(oru_cg_handle *handle, int32_t node);

ORU_API uint32_t oru_init_bn1d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_bn2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_bn_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_bn_context(void **context);
ORU_API oru_tensor *oru_get_bn_inference_data(oru_cg_handle *handle, int32_t node);

ORU_API uint32_t oru_init_affine_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_affine_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_affine_context(void **context);
ORU_API oru_tensor *oru_get_affine_inference_data(oru_cg_handle *handle, int32_t node);

/* ---- end of Linear, affine and batch-norm operators ---- */

/* ==== Pooling operators ==== */

typedef struct oru_cg_pool_params {
  int32_t kernel_w;
  int32_t kernel_h;
  int32_t stride_w;
  int32_t stride_h;
  int32_t unused[2];
} oru_cg_pool_params;

typedef struct oru_cg_pool_context {
  int32_t op_type; /* 22 max, 23 average */
  oru_tensor *input;
  oru_tensor *output;
  int32_t q_in;
  int32_t q_out;
  uint32_t backend;
  oru_cg_pool_params params;
  uint32_t dev_type;
} oru_cg_pool_context;

ORU_API uint32_t oru_init_max_pool2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_avg_pool2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_max_pool2d_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_init_avg_pool2d_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_max_pool2d_context(void **context);
ORU_API uint32_t oru_uninit_avg_pool2d_context(void **context);
ORU_API oru_tensor *oru_get_pool2d_inference_data(oru_cg_handle *handle, int32_t node);

/* ---- end of Pooling operators ---- */

/* ==== Sampling operator ==== */

/* Operator 30: every channel of a float tensor scaled by a factor on each axis. */
typedef struct oru_cg_sample_params {
  int32_t mode;          /* 0 nearest, 1 bilinear */
  float scale_w;         /* factor on dims[0] */
  float scale_h;         /* factor on dims[1] */
  int32_t unused;
  int32_t align_corners; /* 1: corner-aligned bilinear; else half-pixel */
} oru_cg_sample_params;

typedef struct oru_cg_sample_context {
  int32_t op_type; /* 30 */
  oru_tensor *input;
  oru_tensor *output;
  oru_cg_sample_params params;
  uint32_t dev_type;
} oru_cg_sample_context;

ORU_API uint32_t oru_init_sample_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_sample_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_sample_context(void **context);
ORU_API oru_tensor *oru_get_sample_inference_data(oru_cg_handle *handle, int32_t node);

/* ---- end of Sampling operator ---- */

/* ==== Shape operators ==== */

typedef struct oru_cg_reshape_params {
  int32_t ndims;
  int32_t dims[5]; /* -1 for the one dimension to infer */
} oru_cg_reshape_params;

typedef struct oru_cg_reshape_context {
  int32_t op_type; /* 32 */
  oru_tensor *input;
  oru_tensor *output;
  int32_t q_in;
  int32_t q_out;
  oru_cg_reshape_params params;
  uint32_t backend;
  uint32_t dev_type;
} oru_cg_reshape_context;

typedef struct oru_cg_split_params {
  int32_t word0;
  int32_t groups;
  int32_t start;
  int32_t step;
  int32_t word4;
} oru_cg_split_params;

typedef struct oru_cg_split_context {
  int32_t op_type; /* 34 */
  oru_tensor *input;
  oru_tensor *output;
  oru_cg_split_params params;
  uint32_t dev_type;
} oru_cg_split_context;

typedef struct oru_cg_concat_params {
  uint32_t axis;
  int32_t count;
  const int32_t *nodes; /* count node ids; their order is the order of the pieces */
} oru_cg_concat_params;

typedef struct oru_cg_concat_context {
  int32_t op_type; /* 33 */
  oru_tensor **inputs;
  oru_tensor *output;
  int32_t *q_inputs;
  int32_t q_out;
  int32_t count;
  int32_t *nodes;
  uint32_t axis;
  uint32_t backend;
  uint32_t dev_type;
} oru_cg_concat_context;

typedef struct oru_cg_shuffle_params {
  int32_t word0;
  int32_t count;
  const int32_t *order; /* for each output channel, the input channel it copies */
} oru_cg_shuffle_params;

typedef struct oru_cg_shuffle_context {
  int32_t op_type; /* 35 */
  oru_tensor *input;
  oru_tensor *output;
  int32_t *order;
  uint32_t dev_type;
} oru_cg_shuffle_context;

ORU_API uint32_t oru_init_reshape_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_reshape_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_reshape_context(void **context);
ORU_API oru_tensor *oru_get_reshape_inference_data(oru_cg_handle *handle, int32_t node);

ORU_API uint32_t oru_init_concat_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_concat_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_concat_context(void **context);
ORU_API oru_tensor *oru_get_concat_inference_data(oru_cg_handle *handle, int32_t node);

ORU_API uint32_t oru_init_split_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_split_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_split_context(void **context);
ORU_API oru_tensor *oru_get_split_inference_data(oru_cg_handle *handle, int32_t node);

ORU_API uint32_t oru_init_shuffle_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_shuffle_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_shuffle_context(void **context);
ORU_API oru_tensor *oru_get_shuffle_inference_data(oru_cg_handle *handle, int32_t node);

/* ---- end of Shape operators ---- */

/* ==== Convolution operators ==== */

/* Fourteen 32-bit words; dim 0 of a tensor is the width, dim 1 the height, dim 2 the channels. */
typedef struct oru_conv2d_params {
  int32_t in_channels;
  int32_t out_channels;
  int32_t kernel_w;
  int32_t kernel_h;
  int32_t stride_w;
  int32_t stride_h;
  int32_t pad_w;
  int32_t pad_h;
  int32_t reserved;
  int32_t out_pad_h;   /* transposed output height only */
  int32_t dilation_w;
  int32_t dilation_h;
  int32_t groups;      /* 1, or in_channels == out_channels for depthwise */
  int32_t has_bias;    /* 1: out_channels bias values follow the kernels */
} oru_conv2d_params;

/* Context of the standard (3), depthwise (4), pointwise (5), dilated (7) and transposed (8)
   operators; tensors are borrowed except the output (and calc_info). */
typedef struct oru_conv2d_context {
  int32_t op_type;
  oru_tensor *input;
  oru_tensor *output;
  oru_tensor *weight;
  int32_t q_in;
  int32_t q_out;
  int32_t q_weight;
  uint32_t conv_method;
  uint32_t kernel_flipped;  /* transposed only: 1 once the kernels are turned over */
  oru_conv2d_params params;
  uint32_t conv_workers;
  uint32_t backend;
  uint32_t dev_type;
  void *calc_info;          /* im2col record of conv method 2, or null */
} oru_conv2d_context;

ORU_API uint32_t oru_init_std_conv2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_depthwise_conv2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_pointwise_conv2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_dilated_conv2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_transposed_conv2d_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_std_conv2d_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_init_depthwise_conv2d_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_init_pointwise_conv2d_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_init_dilated_conv2d_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_init_transposed_conv2d_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_std_conv2d_context(void **context);
ORU_API uint32_t oru_uninit_depthwise_conv2d_context(void **context);
ORU_API uint32_t oru_uninit_pointwise_conv2d_context(void **context);
ORU_API uint32_t oru_uninit_dilated_conv2d_context(void **context);
ORU_API uint32_t oru_uninit_transposed_conv2d_context(void **context);
ORU_API oru_tensor *oru_get_conv2d_inference_data(oru_cg_handle *handle, int32_t node);

/* ---- end of Convolution operators ---- */

/* ==== Fused convolution operators ==== */

/* Activation codes of the fused operators. */
#define ORU_ACT_NONE 0
#define ORU_ACT_RELU 1
#define ORU_ACT_HSWISH 2
#define ORU_ACT_RELU6 3
#define ORU_ACT_HSIGMOID 4
#define ORU_ACT_LEAKY_RELU 5
#define ORU_ACT_TANH 6

typedef struct oru_conv2d_act_params {
  oru_conv2d_params conv;
  int32_t act;
} oru_conv2d_act_params;

typedef struct oru_conv2d_bn2d_act_params {
  oru_conv2d_params conv;
  float bn_eps;        /* 0 means 1e-5 */
  int32_t act;
} oru_conv2d_bn2d_act_params;

/* Convolution plus activation (code 12). */
typedef struct oru_conv2d_act_context {
  int32_t op_type;
  oru_tensor *input;
  oru_tensor *output;
  oru_tensor *weight;
  int32_t q_in;
  int32_t q_out;
  int32_t q_weight;
  uint32_t conv_workers;
  uint32_t backend;
  uint32_t conv_method;
  oru_conv2d_act_params params;
  uint32_t dev_type;
  void *calc_info;
} oru_conv2d_act_context;

/* Convolution plus batch norm plus activation (code 13); the batch norm is folded into
   fused_weight once at prepare. */
typedef struct oru_conv2d_bn2d_act_context {
  int32_t op_type;
  oru_tensor *input;
  oru_tensor *output;
  oru_tensor *weight;        /* raw weights: kernels, bias, gamma, beta, mean, var; borrowed */
  int32_t q_in;
  int32_t q_out;
  int32_t q_weight;
  oru_tensor *fused_weight;  /* owned */
  uint32_t conv_workers;
  uint32_t backend;
  uint32_t conv_method;
  oru_conv2d_bn2d_act_params params;
  uint32_t dev_type;
  void *calc_info;
} oru_conv2d_bn2d_act_context;

ORU_API uint32_t oru_init_conv2d_act_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_conv2d_bn2d_act_context(oru_cg_handle *handle, int32_t node, const void *params);
ORU_API uint32_t oru_init_conv2d_act_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_init_conv2d_bn2d_act_context_inference(oru_cg_handle *handle, int32_t node);
ORU_API uint32_t oru_uninit_conv2d_act_context(void **context);
ORU_API uint32_t oru_uninit_conv2d_bn2d_act_context(void **context);
ORU_API oru_tensor *oru_get_conv2d_act_inference_data(oru_cg_handle *handle, int32_t node);
ORU_API oru_tensor *oru_get_conv2d_bn2d_act_inference_data(oru_cg_handle *handle, int32_t node);

/* ---- end of Fused convolution operators ---- */

#ifdef __cplusplus
}
#endif

#endif /* ORU_CG_H */
