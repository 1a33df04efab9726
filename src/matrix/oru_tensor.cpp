// Dense tensors of up to five dimensions: header, storage, and the tensor file.
#include <cstdio>
#include <cstring>

#include "core/oru_types.h"
#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "oru_matrix.h"

namespace {

constexpr char kMagic[] = "Morvex Tensor V1.0";  // 18 characters and the NUL: 19 bytes compared
constexpr size_t kMagicField = 32;
// A data section shorter than its header claims still loads, partly filled; but a header
// that claims this much more than the file holds is hostile, and nothing is allocated for it.
constexpr int64_t kMaxDataShortfall = int64_t(16) << 20;

bool valid_shape(int32_t ndims, const int32_t *dims) {
  if (ndims < 1 || ndims > 5 || !dims) return false;
  for (int32_t k = 0; k < ndims; ++k)
    if (dims[k] < 1) return false;
  return true;
}

// Fills dims, pitches and the totals. The element count is a 32-bit quantity and the
// pitches are 32-bit fields, so shapes that overflow either are refused (false).
bool fill_derived(oru_tensor *t, int32_t ndims, const int32_t *dims, uint32_t element_bytes) {
  int64_t p = 1;
  int64_t pitches[4] = {0, 0, 0, 0};
  for (int32_t k = 0; k + 1 < ndims; ++k) {
    p *= dims[k];
    pitches[k] = p * element_bytes;
    if (p > INT32_MAX || pitches[k] > int64_t(UINT32_MAX)) return false;
  }
  p *= dims[ndims - 1];
  if (p > INT32_MAX) return false;
  t->ndims = ndims;
  for (int32_t k = 0; k < 5; ++k) t->dims[k] = k < ndims ? dims[k] : 0;
  for (int32_t k = 0; k < 4; ++k) t->pitches[k] = uint32_t(pitches[k]);
  t->element_bytes = element_bytes;
  t->total_elements = p;
  t->total_bytes = p * int64_t(element_bytes);
  return true;
}

// Header in a fresh record, without a report; null on refusal or memory failure.
// *memory_failed tells the two apart for the callers that report.
oru_tensor *make_header(int32_t ndims, const int32_t *dims, uint32_t type, bool *memory_failed) {
  *memory_failed = false;
  if (!valid_shape(ndims, dims) || type >= 32) return nullptr;
  oru_tensor probe{};
  if (!fill_derived(&probe, ndims, dims, oru::channel_bytes(type))) return nullptr;
  oru_tensor *t = oru::alloc_zeroed<oru_tensor>();
  if (!t) {
    *memory_failed = true;
    return nullptr;
  }
  *t = probe;
  t->kind = ORU_TENSOR_KIND;
  t->type = type;
  t->owns_data = 1;
  t->channel_layout = ORU_LAYOUT_CHW;
  return t;
}

oru_tensor *make_tensor(int32_t ndims, const int32_t *dims, uint32_t type) {
  bool memory_failed = false;
  oru_tensor *t = make_header(ndims, dims, type, &memory_failed);
  if (!t) {
    if (memory_failed) ORU_REPORT_STATUS(ORU_RET_ERR_MEMORY);
    else ORU_REPORT_STATUS(ORU_RET_ERR_PARA);
    return nullptr;
  }
  t->data = oru_malloc(t->total_bytes);
  if (!t->data) {
    oru_free(t);
    ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  }
  return t;
}

struct FileCloser {
  FILE *f;
  ~FileCloser() {
    if (f) std::fclose(f);
  }
};

}  // namespace

extern "C" {

ORU_API oru_tensor *oru_create_tensor_header(int32_t ndims, const int32_t *dims, uint32_t type) {
  bool memory_failed = false;
  oru_tensor *t = make_header(ndims, dims, type, &memory_failed);
  if (!t) ORU_FAIL_MSG(nullptr, oru_error_string[memory_failed ? 2 : 1]);
  return t;
}

ORU_API uint32_t oru_create_tensor_data(oru_tensor *tensor) {
  if (!tensor) ORU_FAIL(ORU_RET_ERR_PARA);
  void *data = oru_malloc(tensor->total_bytes);
  if (!data) ORU_FAIL(ORU_RET_ERR_MEMORY);
  if (tensor->owns_data) oru_free(tensor->data);  // never leak storage we held
  tensor->data = data;
  tensor->owns_data = 1;
  return ORU_RET_OK;
}

ORU_API oru_tensor *oru_create_tensor(int32_t ndims, const int32_t *dims, uint32_t type) {
  return make_tensor(ndims, dims, type);
}

ORU_API oru_tensor *oru_create_tensor_from_tensor(const oru_tensor *source) {
  if (!source || source->kind != ORU_TENSOR_KIND || source->ndims < 1) return nullptr;
  oru_tensor *t = make_tensor(source->ndims, source->dims, source->type);
  if (t) t->channel_layout = source->channel_layout;
  return t;
}

ORU_API oru_tensor *oru_create_copy_tensor(const oru_tensor *source) {
  oru_tensor *t = oru_create_tensor_from_tensor(source);
  if (t && source->data) {
    const int64_t n = source->total_bytes < t->total_bytes ? source->total_bytes : t->total_bytes;
    if (n > 0) std::memcpy(t->data, source->data, size_t(n));
  }
  return t;
}

ORU_API uint32_t oru_set_tensor_header(oru_tensor *tensor, int32_t ndims, const int32_t *dims, uint32_t type) {
  if (!tensor || !valid_shape(ndims, dims) || (type != aif32 && type != aif64))
    ORU_FAIL(ORU_RET_ERR_PARA);
  oru_tensor filled{};
  if (!fill_derived(&filled, ndims, dims, oru_data_type_bytes[type])) ORU_FAIL(ORU_RET_ERR_PARA);
  filled.kind = ORU_TENSOR_KIND;
  filled.type = type;
  *tensor = filled;  // data null, owns_data 0, layout CHW
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_tensor_data(oru_tensor *tensor, void *data, int64_t length) {
  if (!tensor || !data) ORU_FAIL(ORU_RET_ERR_PARA);
  if (tensor->total_bytes > length) ORU_FAIL(ORU_RET_ERR_DATA_LENGTH);
  if (tensor->owns_data && tensor->data != data) oru_free(tensor->data);
  tensor->data = data;
  tensor->owns_data = 0;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_tensor_reference_value(oru_tensor *tensor, uint32_t value) {
  if (!tensor) return ORU_RET_ERR_PARA;
  tensor->owns_data = value;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_set_tensor_channel_layout(oru_tensor *tensor, uint32_t layout) {
  if (!tensor) return ORU_RET_ERR_PARA;
  tensor->channel_layout = layout;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_release_tensor(oru_tensor **tensor) {
  if (!tensor || !*tensor) ORU_FAIL(ORU_RET_ERR_PARA);
  oru_tensor *t = *tensor;
  if (t->owns_data && t->data) oru_free(t->data);
  oru_free(t);
  *tensor = nullptr;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_write_tensor_header_to_buffer(int32_t *destination, int32_t *word_count,
                                                   const oru_tensor *tensor) {
  if (!destination || !tensor) return ORU_RET_ERR_PARA;
  // A record with a broken ndims would make us write past the caller's words.
  if (tensor->ndims < 1 || tensor->ndims > 5) return ORU_RET_ERR_PARA;
  destination[0] = tensor->ndims;
  destination[1] = int32_t(tensor->type);
  destination[2] = int32_t(tensor->channel_layout);
  for (int32_t k = 0; k < tensor->ndims; ++k) destination[3 + k] = tensor->dims[k];
  if (word_count) *word_count = 3 + tensor->ndims;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_read_tensor_header_from_buffer(oru_tensor *tensor, const int32_t *source) {
  if (!tensor || !source) return ORU_RET_ERR_PARA;
  if (source[0] < 1 || source[0] > 5) return ORU_RET_ERR_PARA;  // dims has five entries
  tensor->ndims = source[0];
  tensor->type = uint32_t(source[1]);
  tensor->channel_layout = uint32_t(source[2]);
  for (int32_t k = 0; k < tensor->ndims; ++k) tensor->dims[k] = source[3 + k];
  return ORU_RET_OK;
}

ORU_API uint32_t oru_write_tensor_to_disk(const char *path, const oru_tensor *tensor) {
  if (!path || !tensor) return ORU_RET_ERR_PARA;
  if (tensor->ndims < 1 || tensor->ndims > 5 || (!tensor->data && tensor->total_bytes > 0))
    return ORU_RET_ERR_PARA;
  FileCloser file{std::fopen(path, "wb")};
  if (!file.f) ORU_FAIL(ORU_RET_ERR_OPEN_FILE);
  char magic[kMagicField] = {};
  std::memcpy(magic, kMagic, sizeof kMagic - 1);
  int32_t words[8];
  int32_t count = 0;
  oru_write_tensor_header_to_buffer(words, &count, tensor);
  bool ok = std::fwrite(magic, 1, kMagicField, file.f) == kMagicField &&
            std::fwrite(words, sizeof(int32_t), size_t(count), file.f) == size_t(count);
  if (ok && tensor->total_bytes > 0)
    ok = std::fwrite(tensor->data, 1, size_t(tensor->total_bytes), file.f) == size_t(tensor->total_bytes);
  if (!ok) ORU_FAIL(ORU_RET_ERR_UNKNOWN);
  return ORU_RET_OK;
}

ORU_API oru_tensor *oru_create_tensor_from_disk(const char *path) {
  if (!path) return nullptr;
  FileCloser file{std::fopen(path, "rb")};
  if (!file.f) ORU_FAIL_MSG(nullptr, oru_error_string[4]);

  char magic[kMagicField];
  if (std::fread(magic, 1, kMagicField, file.f) != kMagicField) return nullptr;
  if (std::memcmp(magic, kMagic, sizeof kMagic) != 0) return nullptr;

  int32_t words[3 + 5];
  if (std::fread(words, sizeof(int32_t), 3, file.f) != 3) return nullptr;
  const int32_t ndims = words[0];
  if (ndims < 1 || ndims > 5) return nullptr;
  if (std::fread(words + 3, sizeof(int32_t), size_t(ndims), file.f) != size_t(ndims)) return nullptr;

  oru::Guard<oru_tensor, oru_release_tensor> t(oru_create_tensor_header(ndims, words + 3, uint32_t(words[1])));
  if (!t.get()) return nullptr;

  // Measure what the file still holds before trusting the header with an allocation.
  const long here = std::ftell(file.f);
  int64_t available = -1;
  if (here >= 0 && std::fseek(file.f, 0, SEEK_END) == 0) {
    const long end = std::ftell(file.f);
    if (end >= here) available = int64_t(end - here);
    if (std::fseek(file.f, here, SEEK_SET) != 0) available = -1;
  }
  if (available < 0 || t->total_bytes - available > kMaxDataShortfall)
    ORU_FAIL_MSG(nullptr, oru_error_string[9]);

  t->data = oru_malloc(t->total_bytes);
  if (!t->data) ORU_FAIL_MSG(nullptr, oru_error_string[2]);
  const size_t got = std::fread(t->data, 1, size_t(t->total_bytes), file.f);
  if (int64_t(got) < t->total_bytes) ORU_REPORT(oru_error_string[9]);
  t->channel_layout = uint32_t(words[2]);
  return t.dismiss();
}

}  // extern "C"
