// Element type codes on the inside: the C++ type behind each base, and one switch
// that turns a run-time base into a template instantiation.
#ifndef ORU_CORE_TYPES_H
#define ORU_CORE_TYPES_H

#include <cstdint>

#include "oru_core.h"

namespace oru {

template <typename T>
struct type_tag {
  using type = T;
};

template <uint32_t Base>
struct base_type;
template <> struct base_type<ai8u> { using type = uint8_t; };
template <> struct base_type<ai8s> { using type = int8_t; };
template <> struct base_type<ai16u> { using type = uint16_t; };
template <> struct base_type<ai16s> { using type = int16_t; };
template <> struct base_type<ai32u> { using type = uint32_t; };
template <> struct base_type<ai32s> { using type = int32_t; };
template <> struct base_type<aif32> { using type = float; };
template <> struct base_type<aif64> { using type = double; };

template <typename T> constexpr uint32_t base_of();
template <> constexpr uint32_t base_of<uint8_t>() { return ai8u; }
template <> constexpr uint32_t base_of<int8_t>() { return ai8s; }
template <> constexpr uint32_t base_of<uint16_t>() { return ai16u; }
template <> constexpr uint32_t base_of<int16_t>() { return ai16s; }
template <> constexpr uint32_t base_of<uint32_t>() { return ai32u; }
template <> constexpr uint32_t base_of<int32_t>() { return ai32s; }
template <> constexpr uint32_t base_of<float>() { return aif32; }
template <> constexpr uint32_t base_of<double>() { return aif64; }

inline uint32_t base_of_code(uint32_t code) { return code & 7u; }
inline uint32_t element_bytes(uint32_t code) { return oru_data_type_bytes[code & 31u]; }
inline uint32_t channel_bytes(uint32_t code) { return oru_data_type_bytes[code & 7u]; }
inline uint32_t channel_count(uint32_t code) { return oru_data_type_bytes[32u + (code & 31u)]; }

// Calls fn(type_tag<T>{}) with T the element type of base (code & 7) and returns its result.
template <typename Fn>
decltype(auto) visit_base(uint32_t code, Fn &&fn) {
  switch (code & 7u) {
    case ai8u: return fn(type_tag<uint8_t>{});
    case ai8s: return fn(type_tag<int8_t>{});
    case ai16u: return fn(type_tag<uint16_t>{});
    case ai16s: return fn(type_tag<int16_t>{});
    case ai32u: return fn(type_tag<uint32_t>{});
    case ai32s: return fn(type_tag<int32_t>{});
    case aif32: return fn(type_tag<float>{});
    default: return fn(type_tag<double>{});
  }
}

}  // namespace oru

#endif
