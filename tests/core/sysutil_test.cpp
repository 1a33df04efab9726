#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "oru_core.h"
#include "oru_test_util.h"

namespace {

TEST(Timer, StopWithoutStartWarnsAndChangesNothing) {
  oru_timer *t = oru_create_timer("t", 100);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->min, DBL_MAX);
  EXPECT_EQ(t->start, DBL_MAX);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_timer_stop(t), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ORU_WARNNING:call oru_timer_start() before calling oru_timer_stop()\n");
  EXPECT_EQ(t->count, 0);
  EXPECT_EQ(oru_release_timer(&t), ORU_RET_OK);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(oru_release_timer(&t), ORU_RET_ERR_PARA);
}

TEST(Timer, CollectsStatisticsAndRestartsAfterThePeriod) {
  oru_timer *t = oru_create_timer("work", 2);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(oru_timer_start(t), ORU_RET_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(2 + 3 * i));
    ASSERT_EQ(oru_timer_stop(t), ORU_RET_OK);
  }
  EXPECT_EQ(t->count, 2);
  EXPECT_LT(t->min, t->max);
  EXPECT_NE(t->min, DBL_MAX);
  EXPECT_NEAR(t->total, t->min + t->max, 1e-9);
  EXPECT_EQ(oru_timer_stop(t), ORU_RET_ERR_PARA);  // a second stop warns
  oru_timer_start(t);
  oru_timer_stop(t);
  EXPECT_EQ(t->count, 1);  // period reached: a new series
  EXPECT_EQ(t->min, t->current);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_timer_log(t), ORU_RET_OK);
  const std::string line = testing::internal::GetCapturedStdout();
  EXPECT_EQ(line.rfind("ORU_INFO: [Timer work] num iter: 1, current: ", 0), 0u) << line;
  oru_release_timer(&t);
}

TEST(Timer, NameLengthLimit) {
  const std::string ok(255, 'a'), too_long(256, 'a');
  oru_timer *t = oru_create_timer(ok.c_str(), 0);
  EXPECT_NE(t, nullptr);
  oru_release_timer(&t);
  EXPECT_EQ(oru_create_timer(too_long.c_str(), 0), nullptr);
  EXPECT_EQ(oru_create_timer(nullptr, 0), nullptr);
  EXPECT_EQ(oru_timer_start(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_timer_log(nullptr), ORU_RET_ERR_PARA);
}

std::vector<std::string> list(const std::string &dir, const char *pattern, uint32_t *status) {
  oru_darray *a = oru_create_darray(&oru_darray_str_type);
  *status = oru_get_specfic_files_for_given_dir(a, dir.c_str(), pattern);
  std::vector<std::string> names;
  for (int64_t i = 0; i < a->size; ++i) names.push_back(static_cast<char **>(a->data)[i] + dir.size());
  oru_release_darray(&a);
  std::sort(names.begin(), names.end());
  return names;
}

TEST(ListFiles, MatchesSuffixesCaseSensitively) {
  const std::string dir = oru_test::temp_path("listing") + "/";
  mkdir(dir.c_str(), 0755);
  for (const char *name : {"a.png", ".png", "a.PNG", "bpng", "c.bmp"}) {
    FILE *f = std::fopen((dir + name).c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
  }
  mkdir((dir + "sub.png").c_str(), 0755);  // not a regular file
  uint32_t status = 0;
  // A name shorter than the pattern never matches, so ".png" is left out.
  EXPECT_EQ(list(dir, "*.png", &status), (std::vector<std::string>{"a.png"}));
  EXPECT_EQ(status, ORU_RET_OK);
  EXPECT_EQ(list(dir, "x.png", &status), (std::vector<std::string>{"a.png"}));
  EXPECT_EQ(list(dir, "*png", &status), (std::vector<std::string>{".png", "a.png", "bpng"}));
  list(dir, "abc", &status);
  EXPECT_EQ(status, ORU_RET_ERR_PARA);
  list(dir, "*p", &status);
  EXPECT_EQ(status, ORU_RET_ERR_PARA);
  testing::internal::CaptureStdout();
  list(dir + "missing/", "*.png", &status);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "opendir " + dir + "missing/ error\n");
  EXPECT_EQ(status, ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_get_specfic_files_for_given_dir(nullptr, dir.c_str(), "*.png"), ORU_RET_ERR_PARA);
}

TEST(SplitPath, SplitsAtTheLastSlashThenBackslash) {
  char name[64], dir[64];
  EXPECT_EQ(oru_split_path(name, dir, "a/b/c.txt"), name);
  EXPECT_STREQ(name, "c.txt");
  EXPECT_STREQ(dir, "a/b");
  oru_split_path(name, dir, "a\\b\\c.txt");
  EXPECT_STREQ(name, "c.txt");
  EXPECT_STREQ(dir, "a\\b");
  oru_split_path(name, dir, "a/b\\c.txt");
  EXPECT_STREQ(name, "b\\c.txt");
  EXPECT_STREQ(dir, "a");
  EXPECT_EQ(oru_split_path(name, dir, "file.txt"), nullptr);
  EXPECT_EQ(oru_split_path(nullptr, dir, "x/y"), nullptr);
  EXPECT_STREQ(dir, "x");
}

TEST(CpuFeatures, NamesAndQueries) {
  EXPECT_STREQ(oru_get_cpu_hardware_feature_name(100), "NEON");
  EXPECT_STREQ(oru_get_cpu_hardware_feature_name(262), "AVX512-G6");
  EXPECT_EQ(oru_get_cpu_hardware_feature_name(0), nullptr);
  EXPECT_EQ(oru_get_cpu_hardware_feature_name(28), nullptr);
  EXPECT_EQ(oru_get_cpu_hardware_feature_name(512), nullptr);
  EXPECT_EQ(oru_get_cpu_hardware_feature_name(-1), nullptr);
  EXPECT_EQ(oru_check_cpu_hardware_support(512), 0);
#if defined(__x86_64__)
  EXPECT_EQ(oru_check_cpu_hardware_support(ORU_CPU_SSE2), 1);  // part of x86-64
  // Groups only with their members.
  if (oru_check_cpu_hardware_support(ORU_CPU_AVX512_COMMON)) {
    EXPECT_TRUE(oru_check_cpu_hardware_support(ORU_CPU_AVX512F));
    EXPECT_TRUE(oru_check_cpu_hardware_support(ORU_CPU_AVX512CD));
  }
  if (oru_check_cpu_hardware_support(ORU_CPU_AVX512_G1)) {
    EXPECT_TRUE(oru_check_cpu_hardware_support(ORU_CPU_AVX512VL));
    EXPECT_TRUE(oru_check_cpu_hardware_support(ORU_CPU_AVX512DQ));
    EXPECT_TRUE(oru_check_cpu_hardware_support(ORU_CPU_AVX512BW));
  }
  EXPECT_EQ(oru_check_cpu_hardware_support(ORU_CPU_NEON), 0);
  EXPECT_EQ(oru_check_cpu_hardware_support(ORU_CPU_AVX2), __builtin_cpu_supports("avx2") ? 1 : 0);
  EXPECT_EQ(oru_check_cpu_hardware_support(ORU_CPU_AVX512F), __builtin_cpu_supports("avx512f") ? 1 : 0);
#else
  EXPECT_EQ(oru_check_cpu_hardware_support(ORU_CPU_NEON), 0);  // the table describes x86 only
#endif
  testing::internal::CaptureStdout();
  oru_print_cpu_hardware_support();
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("supported cpu features:\n", 0), 0u);
  EXPECT_EQ(out.back(), '\n');
}

}  // namespace
