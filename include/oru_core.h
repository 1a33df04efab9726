/* Foundation: status codes, element types, the aligned allocator, the dynamic
 * array, timers, directory listing, path splitting and CPU features. */
#ifndef ORU_CORE_H
#define ORU_CORE_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define ORU_API __declspec(dllexport)
#else
#define ORU_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Status codes: powers of two up to 128, counting upward from 256. ---- */
#define ORU_RET_OK 0u
#define ORU_RET_ERR_PARA 1u
#define ORU_RET_ERR_MEMORY 2u
#define ORU_RET_ERR_NOT_SUPPORT 4u
#define ORU_RET_ERR_OPEN_FILE 8u
#define ORU_RET_ERR_UNINITIALIZED 16u
#define ORU_RET_ERR_UNKNOWN 32u
#define ORU_RET_ERR_END_OF_FILE 64u
#define ORU_RET_ERR_WAITING 128u
#define ORU_RET_ERR_DATA_LENGTH 256u
#define ORU_RET_ERR_EXISTS 257u
#define ORU_RET_ERR_NOT_FOUND 258u

/* Messages, indexed by message index (not by status code). */
ORU_API extern const char *const oru_error_string[13];

/* ---- Element type code: base + 8 * (channels - 1). ---- */
typedef enum oru_element_base {
  ai8u = 0,
  ai8s = 1,
  ai16u = 2,
  ai16s = 3,
  ai32u = 4,
  ai32s = 5,
  aif32 = 6,
  aif64 = 7
} oru_element_base;

/* Entry c: bytes of a whole element of code c; entry 32 + c: its channel count;
 * entry c & 7: bytes of one channel. */
ORU_API extern const uint8_t oru_data_type_bytes[64];

/* ---- Allocator: 32-byte aligned blocks with a two-word header. ---- */
ORU_API void *oru_malloc(int64_t size);
ORU_API void *oru_calloc(int64_t count, int64_t size);
ORU_API void *oru_realloc(void *pointer, int64_t size);
ORU_API void oru_free(void *pointer);

/* ---- Dynamic array. ---- */
typedef struct oru_darray_type {
  uint32_t element_size;
  void (*init)(void *slot);
  void (*copy)(void *destination, const void *source, uint32_t element_size);
  void (*free)(void *slot);
} oru_darray_type;

typedef struct oru_darray {
  int64_t size;
  int64_t capacity;
  oru_darray_type type;
  void *data;
} oru_darray;

ORU_API extern const oru_darray_type oru_darray_str_type;

ORU_API oru_darray *oru_create_darray(const oru_darray_type *type);
ORU_API oru_darray *oru_create_darray_from_darray(const oru_darray *source);
ORU_API uint32_t oru_darray_reserve(oru_darray *array, int64_t extra);
ORU_API uint32_t oru_release_darray(oru_darray **array);
ORU_API uint32_t oru_darray_push_back(oru_darray *array, const void *element);
ORU_API uint32_t oru_darray_pop_back(oru_darray *array);
ORU_API uint32_t oru_darray_resize(oru_darray *array, int64_t new_size);
ORU_API uint32_t oru_darray_insert(oru_darray *array, int64_t index, const void *element);
ORU_API uint32_t oru_darray_clear(oru_darray *array);
ORU_API uint32_t oru_darray_erase(oru_darray *array, int32_t first, int64_t count);
/* The copy and free of oru_darray_str_type; the string lives in the system heap. */
ORU_API void oru_darray_element_str_cpy(void *destination, const void *source, uint32_t element_size);
ORU_API void oru_darray_element_str_free(void *slot);

/* ---- Timers. ---- */
typedef struct oru_timer {
  double max;
  double min;
  double start;
  double total;
  double current;
  int64_t count;
  char name[256];
  int64_t period;
} oru_timer;

ORU_API double oru_get_current_system_time(void);
ORU_API oru_timer *oru_create_timer(const char *name, int64_t period);
ORU_API uint32_t oru_timer_start(oru_timer *timer);
ORU_API uint32_t oru_timer_stop(oru_timer *timer);
ORU_API uint32_t oru_timer_log(const oru_timer *timer);
ORU_API uint32_t oru_release_timer(oru_timer **timer);

/* ---- Files and paths. ---- */
ORU_API uint32_t oru_get_specfic_files_for_given_dir(oru_darray *array, const char *directory,
                                                     const char *pattern);
ORU_API char *oru_split_path(char *name_out, char *directory_out, const char *path);

/* ---- CPU features. ---- */
#define ORU_CPU_FEATURE_COUNT 512
#define ORU_CPU_MMX 1
#define ORU_CPU_SSE 2
#define ORU_CPU_SSE2 3
#define ORU_CPU_SSE3 4
#define ORU_CPU_SSSE3 5
#define ORU_CPU_SSE41 6
#define ORU_CPU_SSE42 7
#define ORU_CPU_POPCNT 8
#define ORU_CPU_FP16 9
#define ORU_CPU_AVX 10
#define ORU_CPU_AVX2 11
#define ORU_CPU_FMA3 12
#define ORU_CPU_AVX512F 13
#define ORU_CPU_AVX512BW 14
#define ORU_CPU_AVX512CD 15
#define ORU_CPU_AVX512DQ 16
#define ORU_CPU_AVX512ER 17
#define ORU_CPU_AVX512IFMA 18
#define ORU_CPU_AVX512PF 19
#define ORU_CPU_AVX512VBMI 20
#define ORU_CPU_AVX512VL 21
#define ORU_CPU_AVX512VBMI2 22
#define ORU_CPU_AVX512VNNI 23
#define ORU_CPU_AVX512BITALG 24
#define ORU_CPU_AVX512VPOPCNTDQ 25
#define ORU_CPU_AVX5124VNNIW 26
#define ORU_CPU_AVX5124FMAPS 27
#define ORU_CPU_NEON 100
#define ORU_CPU_MSA 150
#define ORU_CPU_VSX 200
#define ORU_CPU_VSX3 201
#define ORU_CPU_RVV 210
#define ORU_CPU_AVX512_G1 256
#define ORU_CPU_AVX512_COMMON 257
#define ORU_CPU_AVX512_G2 258
#define ORU_CPU_AVX512_G3 259
#define ORU_CPU_AVX512_G4 260
#define ORU_CPU_AVX512_G5 261
#define ORU_CPU_AVX512_G6 262

ORU_API int32_t oru_check_cpu_hardware_support(int32_t feature);
ORU_API void oru_print_cpu_hardware_support(void);
ORU_API const char *oru_get_cpu_hardware_feature_name(int32_t feature);

#ifdef __cplusplus
}
#endif

#endif /* ORU_CORE_H */
