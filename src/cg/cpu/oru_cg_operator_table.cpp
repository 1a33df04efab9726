// The operator table: slot i holds the functions of op code i, in the order
// init_context, init_inference, uninit, get_inference_data, get_dev_data.
// Slots 0 to 2 are the tensor nodes, which the core handles itself.
#include "cg/cpu/oru_cg_internal.h"

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
    /*  9 bias               */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 10 bn1d               */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 11 bn2d               */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 12 conv2d_act         */ {oru_init_conv2d_act_context, oru_init_conv2d_act_context_inference, oru_uninit_conv2d_act_context, oru_get_conv2d_act_inference_data, nullptr},
    /* 13 conv2d_bn2d_act    */ {oru_init_conv2d_bn2d_act_context, oru_init_conv2d_bn2d_act_context_inference, oru_uninit_conv2d_bn2d_act_context, oru_get_conv2d_bn2d_act_inference_data, nullptr},
    /* 14 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 15 sigmoid            */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 16 relu               */ {oru_init_relu_context, oru_init_unary_context_inference, oru_uninit_unary_context, oru_get_unary_inference_data, nullptr},
    /* 17 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 18 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 19 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 20 relu6              */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 21 hswish             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 22 max_pool2d         */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 23 avg_pool2d         */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 24 softmax            */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 25 linear             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 26 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 27 add                */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 28 mul                */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 29 (none)             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 30 sample             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 31 affine             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 32 reshape            */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 33 concat             */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 34 split              */ {nullptr, nullptr, nullptr, nullptr, nullptr},
    /* 35 shuffle            */ {nullptr, nullptr, nullptr, nullptr, nullptr},
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
