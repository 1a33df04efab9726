// Scratch memory and record guards for the inside of one call: whatever is taken
// from oru_malloc goes back on every path out of the call.
#ifndef ORU_CORE_SCRATCH_H
#define ORU_CORE_SCRATCH_H

#include <cstdint>
#include <cstring>
#include <utility>

#include "oru_core.h"

namespace oru {

// A buffer of n elements of T from oru_malloc, freed at scope exit. Check it with operator bool.
template <typename T>
class Scratch {
 public:
  Scratch() = default;
  explicit Scratch(int64_t n, bool zeroed = false) { reset(n, zeroed); }
  ~Scratch() { oru_free(ptr_); }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  Scratch(Scratch &&other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)), size_(other.size_) {}

  // Replaces the buffer; returns false when the allocation failed.
  bool reset(int64_t n, bool zeroed = false) {
    oru_free(ptr_);
    size_ = n;
    ptr_ = n > 0 ? static_cast<T *>(zeroed ? oru_calloc(n, sizeof(T)) : oru_malloc(n * int64_t(sizeof(T))))
                 : nullptr;
    return ptr_ != nullptr;
  }
  T *get() const { return ptr_; }
  T *release() { return std::exchange(ptr_, nullptr); }
  int64_t size() const { return size_; }
  T &operator[](int64_t i) const { return ptr_[i]; }
  explicit operator bool() const { return ptr_ != nullptr; }

 private:
  T *ptr_ = nullptr;
  int64_t size_ = 0;
};

// Releases a record through its oru_release_x(T**) at scope exit unless dismissed;
// the usual way to undo a half-built result on an error path.
template <typename T, uint32_t (*Release)(T **)>
class Guard {
 public:
  explicit Guard(T *p = nullptr) : ptr_(p) {}
  ~Guard() {
    if (ptr_) Release(&ptr_);
  }
  Guard(const Guard &) = delete;
  Guard &operator=(const Guard &) = delete;
  T *get() const { return ptr_; }
  T *operator->() const { return ptr_; }
  T *dismiss() { return std::exchange(ptr_, nullptr); }
  void reset(T *p) {
    if (ptr_) Release(&ptr_);
    ptr_ = p;
  }

 private:
  T *ptr_;
};

// Allocates one zeroed record of T from oru_malloc (null on failure).
template <typename T>
T *alloc_zeroed() {
  return static_cast<T *>(oru_calloc(1, sizeof(T)));
}

}  // namespace oru

#endif
