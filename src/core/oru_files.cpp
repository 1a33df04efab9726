// Directory listing by suffix and path splitting.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "oru_core.h"

namespace {

bool is_regular_file(const char *directory, const struct dirent *entry) {
#ifdef _DIRENT_HAVE_D_TYPE
  if (entry->d_type == DT_REG) return true;
  if (entry->d_type != DT_UNKNOWN && entry->d_type != DT_LNK) return false;
#endif
  char path[4096];
  std::snprintf(path, sizeof path, "%s%s", directory, entry->d_name);
  struct stat st;
  return stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

// The pattern's first character is a wildcard; the rest must end the name.
bool matches(const char *name, const char *pattern, size_t pattern_length) {
  const size_t n = std::strlen(name);
  if (n < pattern_length) return false;
  return std::memcmp(name + n - (pattern_length - 1), pattern + 1, pattern_length - 1) == 0;
}

}  // namespace

extern "C" {

ORU_API uint32_t oru_get_specfic_files_for_given_dir(oru_darray *array, const char *directory,
                                                     const char *pattern) {
  if (!array || !directory || !pattern) return ORU_RET_ERR_PARA;
  const size_t pattern_length = std::strlen(pattern);
  if (pattern_length < 3 || (pattern[0] != '*' && pattern[1] != '.')) return ORU_RET_ERR_PARA;
  DIR *dir = opendir(directory);
  if (!dir) {
    std::printf("opendir %s error\n", directory);
    return ORU_RET_ERR_PARA;
  }
  uint32_t status = ORU_RET_OK;
  while (const struct dirent *entry = readdir(dir)) {
    if (!std::strcmp(entry->d_name, ".") || !std::strcmp(entry->d_name, "..")) continue;
    if (!is_regular_file(directory, entry) || !matches(entry->d_name, pattern, pattern_length)) continue;
    char full[1024];
    std::snprintf(full, sizeof full, "%s%s", directory, entry->d_name);
    const char *text = full;
    if (oru_darray_push_back(array, &text) != ORU_RET_OK) {
      status = ORU_RET_ERR_MEMORY;
      break;
    }
  }
  closedir(dir);
  return status;
}

ORU_API char *oru_split_path(char *name_out, char *directory_out, const char *path) {
  if (!path) return nullptr;
  const char *separator = std::strrchr(path, '/');
  if (!separator) separator = std::strrchr(path, '\\');
  if (!separator) return nullptr;
  if (name_out) std::strcpy(name_out, separator + 1);
  if (directory_out) {
    const size_t n = size_t(separator - path);
    std::memcpy(directory_out, path, n);
    directory_out[n] = '\0';
  }
  return name_out;
}

}  // extern "C"
