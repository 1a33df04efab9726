// Element type conversion kernels: sixteen flat kernels, each (dst, src, n) -> 0.
#ifndef ORU_MATRIX_TYPE_CONVERT_H
#define ORU_MATRIX_TYPE_CONVERT_H

#include <cstdint>

namespace oru {

using ConvertKernel = int32_t (*)(void *dst, const void *src, int64_t n);

int32_t array_data_ai8u_to_aif32_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_ai8u_to_aif64_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_ai16s_to_aif32_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_ai16s_to_aif64_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_ai32u_to_aif32_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_ai32u_to_aif64_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_ai32s_to_aif32_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_ai32s_to_aif64_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif32_to_ai8u_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif32_to_ai16s_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif32_to_ai32s_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif32_to_aif64_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif64_to_ai8u_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif64_to_ai16s_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif64_to_ai32s_cvt(void *dst, const void *src, int64_t n);
int32_t array_data_aif64_to_aif32_cvt(void *dst, const void *src, int64_t n);

// Mode tables: kernel column, bytes of one target value, target type by channel count.
extern const uint8_t dim2_tbl[16];
extern const uint8_t dst_ele_iv_ssizebl[16];
extern const uint32_t cvt_dst_type[16][4];
// Rows by source base, columns by dim2_tbl; null where no conversion exists.
extern const ConvertKernel function_tbl[8][8];

}  // namespace oru

#endif
