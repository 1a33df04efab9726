#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "oru_core.h"

namespace {

const oru_darray_type kInt32 = {4, nullptr, nullptr, nullptr};

int64_t storage_bytes(const oru_darray *a) { return *reinterpret_cast<int64_t *>(static_cast<char *>(a->data) - 8); }

int32_t at(const oru_darray *a, int64_t i) { return static_cast<int32_t *>(a->data)[i]; }

TEST(DArray, GrowsByDoublingFromEight) {
  oru_darray *a = oru_create_darray(&kInt32);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->size, 0);
  EXPECT_EQ(a->capacity, 0);
  EXPECT_EQ(a->data, nullptr);
  for (int32_t i = 0; i < 9; ++i) {
    ASSERT_EQ(oru_darray_push_back(a, &i), ORU_RET_OK);
    if (i == 0) {
      EXPECT_EQ(a->capacity, 8);
      EXPECT_EQ(storage_bytes(a), 32);
    }
  }
  EXPECT_EQ(a->capacity, 16);
  EXPECT_EQ(storage_bytes(a), 64);
  for (int32_t i = 0; i < 9; ++i) EXPECT_EQ(at(a, i), i);
  EXPECT_EQ(oru_release_darray(&a), ORU_RET_OK);
  EXPECT_EQ(a, nullptr);
  EXPECT_EQ(oru_release_darray(&a), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_release_darray(nullptr), ORU_RET_ERR_PARA);
}

TEST(DArray, InsertBeyondTheEndFillsTheGapWithZeros) {
  oru_darray *a = oru_create_darray(&kInt32);
  const int32_t v = 42;
  ASSERT_EQ(oru_darray_insert(a, 5, &v), ORU_RET_OK);
  ASSERT_EQ(a->size, 6);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(at(a, i), 0);
  EXPECT_EQ(at(a, 5), 42);
  const int32_t w = 7;
  ASSERT_EQ(oru_darray_insert(a, 0, &w), ORU_RET_OK);
  EXPECT_EQ(at(a, 0), 7);
  EXPECT_EQ(at(a, 6), 42);
  oru_release_darray(&a);
}

TEST(DArray, MatchesAVectorUnderRandomEdits) {
  oru_darray *a = oru_create_darray(&kInt32);
  std::vector<int32_t> model;
  srand(7);
  for (int step = 0; step < 2000; ++step) {
    const int op = rand() % 5;
    const int32_t v = rand();
    if (op == 0 || op == 1) {
      oru_darray_push_back(a, &v);
      model.push_back(v);
    } else if (op == 2 && !model.empty()) {
      oru_darray_pop_back(a);
      model.pop_back();
    } else if (op == 3) {
      const int64_t index = model.empty() ? 0 : rand() % int64_t(model.size());
      oru_darray_insert(a, index, &v);
      model.insert(model.begin() + index, v);
    } else if (op == 4 && model.size() > 3) {
      const int32_t first = rand() % int32_t(model.size() - 2);
      oru_darray_erase(a, first, 2);
      model.erase(model.begin() + first, model.begin() + first + 2);
    }
    ASSERT_EQ(a->size, int64_t(model.size()));
  }
  for (size_t i = 0; i < model.size(); ++i) ASSERT_EQ(at(a, int64_t(i)), model[i]);
  oru_release_darray(&a);
}

TEST(DArray, ClearKeepsStorageAndResizeFollowsTheHooks) {
  oru_darray *a = oru_create_darray(&kInt32);
  ASSERT_EQ(oru_darray_resize(a, 20), ORU_RET_OK);
  EXPECT_EQ(a->capacity, 32);
  void *storage = a->data;
  oru_darray_clear(a);
  EXPECT_EQ(a->size, 0);
  EXPECT_EQ(a->capacity, 32);
  const int32_t v = 1;
  oru_darray_push_back(a, &v);
  EXPECT_EQ(a->data, storage);
  oru_darray_resize(a, 3);
  EXPECT_EQ(oru_darray_reserve(a, 100), ORU_RET_OK);
  EXPECT_GE(a->capacity, 103);
  oru_darray_pop_back(a);
  oru_darray_pop_back(a);
  oru_darray_pop_back(a);
  oru_darray_pop_back(a);  // empty stays empty
  EXPECT_EQ(a->size, 0);
  oru_release_darray(&a);
}

TEST(DArray, StringsAreOwnedAndCopiedDeeply) {
  oru_darray *a = oru_create_darray(&oru_darray_str_type);
  const char *words[] = {"alpha", "beta", nullptr, "gamma"};
  for (const char *w : words) ASSERT_EQ(oru_darray_push_back(a, &w), ORU_RET_OK);
  char **slots = static_cast<char **>(a->data);
  EXPECT_STREQ(slots[0], "alpha");
  EXPECT_NE(slots[0], words[0]);
  EXPECT_EQ(slots[2], nullptr);
  ASSERT_EQ(oru_darray_resize(a, 6), ORU_RET_OK);
  EXPECT_EQ(static_cast<char **>(a->data)[5], nullptr);

  oru_darray *copy = oru_create_darray_from_darray(a);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->size, 6);
  EXPECT_EQ(copy->capacity, 8);
  char **copied = static_cast<char **>(copy->data);
  EXPECT_STREQ(copied[3], "gamma");
  EXPECT_NE(copied[3], static_cast<char **>(a->data)[3]);
  oru_darray_erase(a, 1, 2);
  EXPECT_STREQ(static_cast<char **>(a->data)[1], "gamma");
  EXPECT_EQ(oru_release_darray(&a), ORU_RET_OK);
  EXPECT_STREQ(copied[0], "alpha");  // still alive after the source is gone
  EXPECT_EQ(oru_release_darray(&copy), ORU_RET_OK);
}

TEST(DArray, CopyOfAnEmptyArrayHasNoStorage) {
  oru_darray *a = oru_create_darray(&kInt32);
  oru_darray *b = oru_create_darray_from_darray(a);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->capacity, 0);
  EXPECT_EQ(b->data, nullptr);
  oru_release_darray(&a);
  oru_release_darray(&b);
  EXPECT_EQ(oru_create_darray(nullptr), nullptr);
  EXPECT_EQ(oru_create_darray_from_darray(nullptr), nullptr);
}

}  // namespace
