#include "oru_test_util.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {
int64_t g_malloc_calls = 0;
}

// Test executables link with -Wl,--wrap=malloc, so the library's calls land here.
extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) {
  ++g_malloc_calls;
  return __real_malloc(size);
}

namespace oru_test {

std::string data_path(const std::string &relative) { return std::string(ORU_TEST_DATA_DIR) + "/" + relative; }

std::string temp_path(const std::string &name) {
  const char *dir = std::getenv("TMPDIR");
  const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string prefix = info ? std::string(info->test_suite_name()) + "." + info->name() + "." : "";
  for (char &c : prefix)
    if (c == '/') c = '_';
  return std::string(dir ? dir : "/tmp") + "/oru_" + prefix + name;
}

int64_t malloc_calls() { return g_malloc_calls; }

std::vector<uint8_t> read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace oru_test
