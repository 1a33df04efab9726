// The operator table: slot i holds the functions of op code i, in the order
// init_context, init_inference, uninit, get_inference_data, get_dev_data.
// Slots 0 to 2 are the tensor nodes, which the core handles itself.
#include "cg/oru_cg_internal.h"

namespace {

const oru_cg_operator kOperators[ORU_CG_OPERATOR_SLOTS] = {
    /*  0 input              */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /*  1 reserved tensor    */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /*  2 weight             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /*  3 std_conv2d         */ {oru_init_std_conv2d_context, oru_init_std_conv2d_context_inference, oru_uninit_std_conv2d_context, oru_get_conv2d_inference_data, nullptr},
    /*  4 depthwise_conv2d   */ {oru_init_depthwise_conv2d_context, oru_init_depthwise_conv2d_context_inference, oru_uninit_depthwise_conv2d_context, oru_get_conv2d_inference_data, nullptr},
    /*  5 pointwise_conv2d   */ {oru_init_pointwise_conv2d_context, oru_init_pointwise_conv2d_context_inference, oru_uninit_pointwise_conv2d_context, oru_get_conv2d_inference_data, nullptr},
    /*  6 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /*  7 dilated_conv2d     */ {oru_init_dilated_conv2d_context, oru_init_dilated_conv2d_context_inference, oru_uninit_dilated_conv2d_context, oru_get_conv2d_inference_data, nullptr},
    /*  8 transposed_conv2d  */ {oru_init_transposed_conv2d_context, oru_init_transposed_conv2d_context_inference, oru_uninit_transposed_conv2d_context, oru_get_conv2d_inference_data, nullptr},
    /*  9 bias               */ {oru_init_bias_context, oru_init_bias_context_inference, oru_uninit_bias_context, oru_get_binary_inference_data, oru_get_binary_inference_dev_data},
    /* 10 bn1d               */ {oru_init_bn1d_context, oru_init_bn_context_inference, oru_uninit_bn_context, oru_get_bn_inference_data, nullptr},
    /* 11 bn2d               */ {oru_init_bn2d_context, oru_init_bn_context_inference, oru_uninit_bn_context, oru_get_bn_inference_data, nullptr},
    /* 12 conv2d_act         */ {oru_init_conv2d_act_context, oru_init_conv2d_act_context_inference, oru_uninit_conv2d_act_context, oru_get_conv2d_act_inference_data, nullptr},
    /* 13 conv2d_bn2d_act    */ {oru_init_conv2d_bn2d_act_context, oru_init_conv2d_bn2d_act_context_inference, oru_uninit_conv2d_bn2d_act_context, oru_get_conv2d_bn2d_act_inference_data, nullptr},
    /* 14 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 15 sigmoid            */ {oru_init_sigmoid_context, oru_init_unary_context_inference, oru_uninit_unary_context, oru_get_unary_inference_data, nullptr},
    /* 16 relu               */ {oru_init_relu_context, oru_init_unary_context_inference, oru_uninit_unary_context, oru_get_unary_inference_data, nullptr},
    /* 17 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 18 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 19 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 20 relu6              */ {oru_init_relu6_context, oru_init_unary_context_inference, oru_uninit_unary_context, oru_get_unary_inference_data, nullptr},
    /* 21 hswish             */ {oru_init_hswish_context, oru_init_unary_context_inference, oru_uninit_unary_context, oru_get_unary_inference_data, nullptr},
    /* 22 max_pool2d         */ {oru_init_max_pool2d_context, oru_init_max_pool2d_context_inference, oru_uninit_max_pool2d_context, oru_get_pool2d_inference_data, nullptr},
    /* 23 avg_pool2d         */ {oru_init_avg_pool2d_context, oru_init_avg_pool2d_context_inference, oru_uninit_avg_pool2d_context, oru_get_pool2d_inference_data, nullptr},
    /* 24 softmax            */ {oru_init_softmax_context, oru_init_unary_context_inference, oru_uninit_unary_context, oru_get_unary_inference_data, nullptr},
    /* 25 linear             */ {oru_init_linear_context, oru_init_linear_context_inference, oru_uninit_linear_context, oru_get_linear_inference_data, oru_get_linear_inference_dev_data},
    /* 26 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 27 add                */ {oru_init_add_context, oru_init_binary_context_inference, oru_uninit_binary_context, oru_get_binary_inference_data, oru_get_binary_inference_dev_data},
    /* 28 mul                */ {oru_init_mul_context, oru_init_binary_context_inference, oru_uninit_binary_context, oru_get_binary_inference_data, oru_get_binary_inference_dev_data},
    /* 29 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 30 sample             */ {oru_init_sample_context, oru_init_sample_context_inference, oru_uninit_sample_context, oru_get_sample_inference_data, nullptr},
    /* 31 affine             */ {oru_init_affine_context, oru_init_affine_context_inference, oru_uninit_affine_context, oru_get_affine_inference_data, nullptr},
    /* 32 reshape            */ {oru_init_reshape_context, oru_init_reshape_context_inference, oru_uninit_reshape_context, oru_get_reshape_inference_data, nullptr},
    /* 33 concat             */ {oru_init_concat_context, oru_init_concat_context_inference, oru_uninit_concat_context, oru_get_concat_inference_data, nullptr},
    /* 34 split              */ {oru_init_split_context, oru_init_split_context_inference, oru_uninit_split_context, oru_get_split_inference_data, nullptr},
    /* 35 shuffle            */ {oru_init_shuffle_context, oru_init_shuffle_context_inference, oru_uninit_shuffle_context, oru_get_shuffle_inference_data, nullptr},
    /* 36 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 37 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 38 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 39 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 40 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

namespace oru {

void cg_fill_operator_table(oru_cg_operator *slots) {
  for (int i = 0; i < ORU_CG_OPERATOR_SLOTS; ++i) slots[i] = kOperators[i];
}

}  // namespace oru
