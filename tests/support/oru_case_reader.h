// Sequential reader of the binary reference files under tests/data that the oracle scripts
// write: an 8-byte magic, then fixed fields and arrays of int32 ndims, int32 dims[ndims]
// and the elements. Every take fails once the bytes run out.
#ifndef ORU_TESTS_CASE_READER_H
#define ORU_TESTS_CASE_READER_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "oru_test_util.h"

namespace oru_test {

// An n-dimensional array of a reference file, dims as written (at most five).
template <typename T>
struct CaseArray {
  std::vector<int32_t> dims;
  std::vector<T> values;
};

class CaseReader {
 public:
  CaseReader(const char *file, const char magic[8]) : bytes_(read_file(data_path(file))) {
    char m[8];
    ok_ = take(m, 8) && std::memcmp(m, magic, 8) == 0;
  }
  bool ok() const { return ok_; }
  bool take(void *dst, size_t n) {
    if (at_ + n > bytes_.size()) return false;
    std::memcpy(dst, bytes_.data() + at_, n);
    at_ += n;
    return true;
  }
  template <typename T>
  bool take_array(CaseArray<T> &a) {
    int32_t nd = 0;
    if (!take(&nd, 4) || nd < 1 || nd > 5) return false;
    a.dims.resize(size_t(nd));
    if (!take(a.dims.data(), 4 * size_t(nd))) return false;
    size_t n = 1;
    for (int32_t d : a.dims) n *= size_t(d);
    a.values.resize(n);
    return take(a.values.data(), sizeof(T) * n);
  }

 private:
  std::vector<uint8_t> bytes_;
  size_t at_ = 0;
  bool ok_ = false;
};

}  // namespace oru_test

#endif
