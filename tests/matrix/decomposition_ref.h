// Reading the decomposition references written by tests/oracles/svd_eig_ref.py, and a
// record laid over test-owned storage.
#ifndef ORU_TESTS_DECOMPOSITION_REF_H
#define ORU_TESTS_DECOMPOSITION_REF_H

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "oru_matrix.h"

namespace oru_test {

inline std::vector<double> read_line_values(std::istream &in) {
  std::string line;
  std::getline(in, line);
  std::istringstream ls(line);
  std::vector<double> v;
  double x;
  while (ls >> x) v.push_back(x);
  return v;
}

// A packed rows x cols view of data; the storage stays the caller's.
template <typename T>
oru_matrix view_of(std::vector<T> &data, int32_t rows, int32_t cols) {
  oru_matrix m{};
  m.kind = rows == 1 && cols == 1 ? 7u : rows == 1 ? 5u : cols == 1 ? 6u : 4u;
  m.type = sizeof(T) == 4 ? aif32 : aif64;
  m.data = data.data();
  m.rows = rows;
  m.cols = cols;
  m.depth = 1;
  m.stride = int64_t(cols) * int64_t(sizeof(T));
  m.reserved_one = 1;
  m.channel_bytes = sizeof(T);
  m.channels = 1;
  m.format = 15;
  return m;
}

}  // namespace oru_test

#endif
