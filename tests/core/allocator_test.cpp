#include <gtest/gtest.h>

#include <cstring>

#include "oru_core.h"

namespace {

int64_t recorded_size(void *p) { return *reinterpret_cast<int64_t *>(static_cast<char *>(p) - 8); }

TEST(Allocator, RefusesSizesBelowOne) {
  EXPECT_EQ(oru_malloc(0), nullptr);
  EXPECT_EQ(oru_malloc(-5), nullptr);
  EXPECT_EQ(oru_calloc(0, 8), nullptr);
  EXPECT_EQ(oru_calloc(8, 0), nullptr);
  EXPECT_EQ(oru_calloc(INT64_MAX / 2, 4), nullptr);  // product overflows
  oru_free(nullptr);
}

TEST(Allocator, AlignsAndRecordsTheSize) {
  for (int64_t size : {1, 3, 31, 32, 33, 4096, 1 << 20}) {
    void *p = oru_malloc(size);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 32, 0u);
    EXPECT_EQ(recorded_size(p), size);
    // The raw pointer lies at least 16 bytes below.
    char *raw = *reinterpret_cast<char **>(static_cast<char *>(p) - 16);
    EXPECT_GE(static_cast<char *>(p) - raw, 16);
    EXPECT_LE(static_cast<char *>(p) - raw, 47);
    std::memset(p, 0xAB, size_t(size));
    oru_free(p);
  }
}

TEST(Allocator, CallocClearsTheWholeBlock) {
  auto *p = static_cast<unsigned char *>(oru_calloc(7, 13));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(recorded_size(p), 91);
  for (int i = 0; i < 91; ++i) ASSERT_EQ(p[i], 0);
  oru_free(p);
}

TEST(Allocator, ReallocNeverShrinksAndKeepsContents) {
  auto *p = static_cast<unsigned char *>(oru_malloc(100));
  for (int i = 0; i < 100; ++i) p[i] = static_cast<unsigned char>(i);
  EXPECT_EQ(oru_realloc(p, 10), p);
  EXPECT_EQ(recorded_size(p), 100);
  EXPECT_EQ(oru_realloc(p, 0), p);
  auto *q = static_cast<unsigned char *>(oru_realloc(p, 1000));
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(recorded_size(q), 1000);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(q[i], i);
  oru_free(q);
  void *r = oru_realloc(nullptr, 16);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(recorded_size(r), 16);
  oru_free(r);
}

TEST(Allocator, IgnoresAHeaderWithoutRawPointer) {
  alignas(32) unsigned char fake[64] = {};
  oru_free(fake + 32);  // raw pointer word is zero: nothing happens
}

}  // namespace
