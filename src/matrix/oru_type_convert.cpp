// Conversion between element types: the flat kernels, their tables and the matrix call.
#include <cmath>
#include <cstring>
#include <type_traits>

#include "core/oru_report.h"
#include "core/oru_types.h"
#include "matrix/oru_l1_kernels.h"
#include "matrix/oru_matrix_internal.h"
#include "matrix/oru_type_convert.h"
#include "oru_matrix.h"

namespace oru {
namespace {

// Low bits of the integer part of v. Values beyond int64 have no defined result;
// they map to the pattern a processor's conversion gives for them.
int64_t truncated(double v) {
  return (v > -9.2e18 && v < 9.2e18) ? int64_t(v) : INT64_MIN;
}

template <typename S, typename D>
D convert_one(S v) {
  if constexpr (std::is_floating_point_v<D>) {
    return D(v);  // nearest, and exact for widening
  } else if constexpr (std::is_same_v<D, uint8_t>) {
    return f_to_u8(double(v));
  } else {
    return D(std::make_unsigned_t<D>(uint64_t(truncated(double(v)))));  // toward zero, no clamp
  }
}

template <typename S, typename D>
int32_t convert_plain(void *dst, const void *src, int64_t n) {
  D *d = static_cast<D *>(dst);
  const S *s = static_cast<const S *>(src);
  for (int64_t i = 0; i < n; ++i) d[i] = convert_one<S, D>(s[i]);
  return 0;
}

}  // namespace

uint8_t f_to_u8(double v) {
  const int32_t r = int32_t(uint32_t(uint64_t(truncated(std::rint(v)))));
  return uint8_t(r < 0 ? 0 : r > 255 ? 255 : r);
}

void cvt_ai8u_to_aif32_plain(float *d, const uint8_t *s, int64_t n) { convert_plain<uint8_t, float>(d, s, n); }
void cvt_aif32_to_ai8u_plain(uint8_t *d, const float *s, int64_t n) { convert_plain<float, uint8_t>(d, s, n); }
void cvt_aif32_to_aif64_plain(double *d, const float *s, int64_t n) { convert_plain<float, double>(d, s, n); }
void cvt_aif64_to_aif32_plain(float *d, const double *s, int64_t n) { convert_plain<double, float>(d, s, n); }

// Kernels with vector twins go through the best form; the others are the plain loop.
#define ORU_VECTOR_CVT(from, to, S, D)                                                  \
  int32_t array_data_##from##_to_##to##_cvt(void *dst, const void *src, int64_t n) {    \
    static const auto kernel = pick(ORU_KERNEL_FORMS(cvt_##from##_to_##to));            \
    kernel(static_cast<D *>(dst), static_cast<const S *>(src), n);                      \
    return 0;                                                                           \
  }
#define ORU_PLAIN_CVT(from, to, S, D)                                                   \
  int32_t array_data_##from##_to_##to##_cvt(void *dst, const void *src, int64_t n) {    \
    return convert_plain<S, D>(dst, src, n);                                            \
  }

ORU_VECTOR_CVT(ai8u, aif32, uint8_t, float)
ORU_PLAIN_CVT(ai8u, aif64, uint8_t, double)
ORU_PLAIN_CVT(ai16s, aif32, int16_t, float)
ORU_PLAIN_CVT(ai16s, aif64, int16_t, double)
ORU_PLAIN_CVT(ai32u, aif32, uint32_t, float)
ORU_PLAIN_CVT(ai32u, aif64, uint32_t, double)
ORU_PLAIN_CVT(ai32s, aif32, int32_t, float)
ORU_PLAIN_CVT(ai32s, aif64, int32_t, double)
ORU_VECTOR_CVT(aif32, ai8u, float, uint8_t)
ORU_PLAIN_CVT(aif32, ai16s, float, int16_t)
ORU_PLAIN_CVT(aif32, ai32s, float, int32_t)
ORU_VECTOR_CVT(aif32, aif64, float, double)
ORU_PLAIN_CVT(aif64, ai8u, double, uint8_t)
ORU_PLAIN_CVT(aif64, ai16s, double, int16_t)
ORU_PLAIN_CVT(aif64, ai32s, double, int32_t)
ORU_VECTOR_CVT(aif64, aif32, double, float)

const uint8_t dim2_tbl[16] = {6, 7, 6, 7, 6, 7, 6, 7, 0, 3, 5, 6, 0, 3, 5, 6};
const uint8_t dst_ele_iv_ssizebl[16] = {4, 8, 4, 8, 4, 8, 4, 8, 1, 2, 4, 8, 1, 2, 4, 4};

#define ORU_TYPES_BY_CHANNELS(base) {base, base + 8u, base + 16u, base + 24u}
const uint32_t cvt_dst_type[16][4] = {
    ORU_TYPES_BY_CHANNELS(aif32), ORU_TYPES_BY_CHANNELS(aif64), ORU_TYPES_BY_CHANNELS(aif32),
    ORU_TYPES_BY_CHANNELS(aif64), ORU_TYPES_BY_CHANNELS(aif32), ORU_TYPES_BY_CHANNELS(aif64),
    ORU_TYPES_BY_CHANNELS(aif32), ORU_TYPES_BY_CHANNELS(aif64), ORU_TYPES_BY_CHANNELS(ai8u),
    ORU_TYPES_BY_CHANNELS(ai16s), ORU_TYPES_BY_CHANNELS(ai32s), ORU_TYPES_BY_CHANNELS(aif64),
    ORU_TYPES_BY_CHANNELS(ai8u),  ORU_TYPES_BY_CHANNELS(ai16s), ORU_TYPES_BY_CHANNELS(ai32s),
    ORU_TYPES_BY_CHANNELS(aif32)};
#undef ORU_TYPES_BY_CHANNELS

const ConvertKernel function_tbl[8][8] = {
    /* ai8u  */ {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, array_data_ai8u_to_aif32_cvt,
                 array_data_ai8u_to_aif64_cvt},
    /* ai8s  */ {},
    /* ai16u */ {},
    /* ai16s */ {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, array_data_ai16s_to_aif32_cvt,
                 array_data_ai16s_to_aif64_cvt},
    /* ai32u */ {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, array_data_ai32u_to_aif32_cvt,
                 array_data_ai32u_to_aif64_cvt},
    /* ai32s */ {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, array_data_ai32s_to_aif32_cvt,
                 array_data_ai32s_to_aif64_cvt},
    /* aif32 */ {array_data_aif32_to_ai8u_cvt, nullptr, nullptr, array_data_aif32_to_ai16s_cvt, nullptr,
                 array_data_aif32_to_ai32s_cvt, array_data_aif32_to_aif64_cvt, nullptr},
    /* aif64 */ {array_data_aif64_to_ai8u_cvt, nullptr, nullptr, array_data_aif64_to_ai16s_cvt, nullptr,
                 array_data_aif64_to_ai32s_cvt, array_data_aif64_to_aif32_cvt, nullptr},
};

namespace {

// The base a cell of function_tbl writes. The mode's own size table is not used for
// this: with a mode from the other source half, the kernel that runs decides.
uint32_t target_base(uint32_t source_base, uint32_t column) {
  if (column == 6) return source_base == aif32 ? uint32_t(aif64) : uint32_t(aif32);
  return column;
}

}  // namespace
}  // namespace oru

extern "C" ORU_API uint32_t oru_data_type_convert(oru_matrix *dst, oru_matrix *src, uint32_t mode) {
  if (!dst || !src || dst->rows != src->rows || dst->cols != src->cols || dst->depth != src->depth || mode >= 16 ||
      !src->data || !dst->data)
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  const uint32_t source_base = oru::base_of_code(src->type);
  const uint32_t column = oru::dim2_tbl[mode];
  const oru::ConvertKernel kernel = oru::function_tbl[source_base][column];
  if (!kernel) ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "can not support!");
  int64_t source_bytes;
  if (!oru::matrix_storage_bytes(*src, &source_bytes)) ORU_FAIL_MSG(ORU_RET_ERR_PARA, "parameters error!");
  const int64_t n = source_bytes / oru_data_type_bytes[source_base];
  const uint32_t to = oru::target_base(source_base, column);
  const int64_t target_bytes = oru_data_type_bytes[to];

  if (dst->data != src->data) {
    // dst's fields stay as they are, but the values must fit in its storage.
    int64_t room;
    if (!oru::matrix_storage_bytes(*dst, &room) || room / target_bytes < n) ORU_FAIL(ORU_RET_ERR_DATA_LENGTH);
    kernel(dst->data, src->data, n);
    return ORU_RET_OK;
  }
  if (n < 1) return ORU_RET_OK;
  void *block = oru_malloc(n * target_bytes);
  if (!block) return ORU_RET_ERR_MEMORY;
  kernel(block, src->data, n);
  if (dst->owns_data) oru_free(dst->data);
  const int32_t channels = dst->channels >= 1 && dst->channels <= 4 ? dst->channels : 1;
  dst->type = to + 8u * uint32_t(channels - 1);
  dst->channel_bytes = uint32_t(channels * target_bytes);
  dst->stride = int64_t(channels) * target_bytes * dst->cols;
  dst->data = block;
  dst->owns_data = 1;
  return ORU_RET_OK;
}
