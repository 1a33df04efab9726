// Shared helpers of the test suite: data paths, seeded random data, allocation counting.
#ifndef ORU_TEST_UTIL_H
#define ORU_TEST_UTIL_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace oru_test {

// Path of a file under tests/data.
std::string data_path(const std::string &relative);

// A fresh file path in the test's temporary folder.
std::string temp_path(const std::string &name);

template <typename T>
std::vector<T> random_values(size_t n, double lo, double hi, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(lo, hi);
  std::vector<T> v(n);
  for (auto &x : v) x = static_cast<T>(dist(gen));
  return v;
}

// Number of system allocations made by library code (and by the tests themselves)
// since the process started. Every library allocation goes through oru_malloc,
// which calls malloc, so a difference of zero proves a call allocated nothing.
int64_t malloc_calls();

// Whole file as bytes; empty when it can't be read.
std::vector<uint8_t> read_file(const std::string &path);

}  // namespace oru_test

#endif
