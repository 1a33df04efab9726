// Growable array of fixed-size elements with optional init, copy and free hooks.
#include <cstdlib>
#include <cstring>

#include "core/oru_scratch.h"
#include "oru_core.h"

namespace {

char *slot(const oru_darray *a, int64_t i) {
  return static_cast<char *>(a->data) + i * int64_t(a->type.element_size);
}

// Capacity doubles from 8 until it covers what is needed.
int64_t grown_capacity(int64_t capacity, int64_t needed) {
  while (capacity < needed) capacity = capacity == 0 ? 8 : capacity * 2;
  return capacity;
}

uint32_t ensure_capacity(oru_darray *a, int64_t needed) {
  if (needed <= a->capacity) return ORU_RET_OK;
  const int64_t capacity = grown_capacity(a->capacity, needed);
  void *data = oru_realloc(a->data, capacity * int64_t(a->type.element_size));
  if (!data) return ORU_RET_ERR_MEMORY;
  a->data = data;
  a->capacity = capacity;
  return ORU_RET_OK;
}

void store(oru_darray *a, int64_t i, const void *element) {
  if (a->type.copy)
    a->type.copy(slot(a, i), element, a->type.element_size);
  else
    std::memcpy(slot(a, i), element, a->type.element_size);
}

void free_range(oru_darray *a, int64_t first, int64_t last) {
  if (!a->type.free) return;
  for (int64_t i = first; i < last; ++i) a->type.free(slot(a, i));
}

}  // namespace

extern "C" {

// The string hooks return nothing, so a missing slot is ignored, as the system's free ignores null.
ORU_API void oru_darray_element_str_cpy(void *destination, const void *source, uint32_t) {
  if (!destination || !source) return;
  const char *s = *static_cast<char *const *>(source);
  *static_cast<char **>(destination) = s ? strdup(s) : nullptr;
}

ORU_API void oru_darray_element_str_free(void *slot_address) {
  char **s = static_cast<char **>(slot_address);
  if (!s) return;
  std::free(*s);  // strdup's memory comes from the system heap
  *s = nullptr;
}

ORU_API extern const oru_darray_type oru_darray_str_type = {sizeof(char *), nullptr, oru_darray_element_str_cpy,
                                                     oru_darray_element_str_free};

ORU_API oru_darray *oru_create_darray(const oru_darray_type *type) {
  if (!type) return nullptr;
  oru_darray *a = oru::alloc_zeroed<oru_darray>();
  if (a) a->type = *type;
  return a;
}

ORU_API oru_darray *oru_create_darray_from_darray(const oru_darray *source) {
  if (!source) return nullptr;
  oru_darray *a = oru_create_darray(&source->type);
  if (!a) return nullptr;
  if (source->capacity > 0) {
    if (ensure_capacity(a, source->capacity) != ORU_RET_OK) {
      oru_release_darray(&a);
      return nullptr;
    }
    for (int64_t i = 0; i < source->size; ++i) {
      store(a, i, slot(source, i));
      a->size = i + 1;
    }
  }
  return a;
}

ORU_API uint32_t oru_darray_reserve(oru_darray *array, int64_t extra) {
  if (!array || extra < 0) return ORU_RET_ERR_PARA;
  return ensure_capacity(array, array->size + extra);
}

ORU_API uint32_t oru_release_darray(oru_darray **array) {
  if (!array || !*array) return ORU_RET_ERR_PARA;
  oru_darray *a = *array;
  if (a->data) {
    free_range(a, 0, a->size);
    oru_free(a->data);
  }
  oru_free(a);
  *array = nullptr;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_darray_push_back(oru_darray *array, const void *element) {
  if (!array || !element) return ORU_RET_ERR_PARA;
  if (ensure_capacity(array, array->size + 1) != ORU_RET_OK) return ORU_RET_ERR_MEMORY;
  store(array, array->size, element);
  ++array->size;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_darray_pop_back(oru_darray *array) {
  if (!array) return ORU_RET_ERR_PARA;
  if (array->size > 0) {
    free_range(array, array->size - 1, array->size);
    --array->size;
  }
  return ORU_RET_OK;
}

ORU_API uint32_t oru_darray_resize(oru_darray *array, int64_t new_size) {
  if (!array || new_size < 0) return ORU_RET_ERR_PARA;
  if (new_size < array->size) {
    free_range(array, new_size, array->size);
  } else if (new_size > array->size) {
    if (ensure_capacity(array, new_size) != ORU_RET_OK) return ORU_RET_ERR_MEMORY;
    if (array->type.init) {
      for (int64_t i = array->size; i < new_size; ++i) array->type.init(slot(array, i));
    } else {
      std::memset(slot(array, array->size), 0,
                  size_t(new_size - array->size) * array->type.element_size);
    }
  }
  array->size = new_size;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_darray_insert(oru_darray *array, int64_t index, const void *element) {
  if (!array || !element || index < 0) return ORU_RET_ERR_PARA;
  // Take the whole room first so that a failure leaves the array as it was.
  if (ensure_capacity(array, (index > array->size ? index : array->size) + 1) != ORU_RET_OK)
    return ORU_RET_ERR_MEMORY;
  if (index > array->size) oru_darray_resize(array, index);
  std::memmove(slot(array, index + 1), slot(array, index),
               size_t(array->size - index) * array->type.element_size);
  store(array, index, element);
  ++array->size;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_darray_clear(oru_darray *array) {
  if (!array) return ORU_RET_ERR_PARA;
  free_range(array, 0, array->size);
  array->size = 0;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_darray_erase(oru_darray *array, int32_t first, int64_t count) {
  if (!array) return ORU_RET_ERR_PARA;
  if (count <= 0) return ORU_RET_OK;
  free_range(array, first, first + count);
  std::memmove(slot(array, first), slot(array, first + count),
               size_t(array->size - first - count) * array->type.element_size);
  array->size -= count;
  return ORU_RET_OK;
}

}  // extern "C"
