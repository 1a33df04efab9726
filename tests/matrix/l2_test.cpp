// Matrix-vector products, row-vector broadcasts, dot product and transposition,
// against references computed in long double.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

struct M {
  oru_matrix *m;
  M(int32_t r, int32_t c, int32_t d, uint32_t t) : m(oru_create_matrix(r, c, d, t)) {}
  ~M() { oru_release_matrix_no_error(&m); }
  template <typename T> T *at() const { return static_cast<T *>(m->data); }
  template <typename T> void fill(uint32_t seed, double lo = -2, double hi = 2) {
    int64_t n = m->stride * m->rows * m->depth / int64_t(sizeof(T));
    auto v = oru_test::random_values<T>(size_t(n), lo, hi, seed);
    std::memcpy(m->data, v.data(), v.size() * sizeof(T));
  }
};

std::string captured(const std::function<void()> &fn) {
  testing::internal::CaptureStdout();
  fn();
  return testing::internal::GetCapturedStdout();
}

TEST(L2, DotOverTheWholeStorage) {
  for (int32_t n : {1, 3, 4, 5, 17, 100}) {
    M a(n, 3, 1, aif64), b(n, 3, 1, aif64);
    a.fill<double>(uint32_t(n));
    b.fill<double>(uint32_t(n) + 50);
    long double ref = 0, sq = 0;
    for (int i = 0; i < 3 * n; ++i) {
      ref += (long double)a.at<double>()[i] * b.at<double>()[i];
      sq += (long double)a.at<double>()[i] * a.at<double>()[i];
    }
    double got = 0;
    ASSERT_EQ(oru_dot(&got, a.m, b.m), ORU_RET_OK);
    EXPECT_NEAR(got, double(ref), 1e-12 * n);
    ASSERT_EQ(oru_dot(&got, a.m, a.m), ORU_RET_OK);  // the same record: sum of squares
    EXPECT_NEAR(got, double(sq), 1e-12 * n);
  }
  M f(2, 2, 1, aif32), g(2, 2, 1, aif32);
  for (int i = 0; i < 4; ++i) {
    f.at<float>()[i] = float(i + 1);
    g.at<float>()[i] = 0.5f;
  }
  float fd = 0;
  ASSERT_EQ(oru_dot(&fd, f.m, g.m), ORU_RET_OK);
  EXPECT_EQ(fd, 5.0f);
  M h(2, 3, 1, aif32), s(2, 2, 1, ai16s), t(2, 2, 1, ai16s);
  std::string out = captured([&] { EXPECT_EQ(oru_dot(&fd, f.m, h.m), ORU_RET_ERR_PARA); });
  EXPECT_NE(out.find("Your input params are wrong!"), std::string::npos);
  out = captured([&] { EXPECT_EQ(oru_dot(&fd, s.m, t.m), ORU_RET_ERR_NOT_SUPPORT); });
  EXPECT_NE(out.find("Current version can not support!"), std::string::npos);
}

TEST(L2, RowVectorOperationsTouchOnlyTheFirstPlane) {
  M src(3, 5, 2, aif32), dst(3, 5, 2, aif32), vec(1, 5, 1, aif32);
  src.fill<float>(1);
  vec.fill<float>(2, 0.5, 3);
  using Op = uint32_t (*)(oru_matrix *, const oru_matrix *, const oru_matrix *);
  const std::pair<Op, std::function<float(float, float)>> ops[] = {
      {oru_matrix_add_row_vector, [](float x, float y) { return x + y; }},
      {oru_matrix_sub_row_vector, [](float x, float y) { return x - y; }},
      {oru_matrix_mul_row_vector, [](float x, float y) { return x * y; }},
      {oru_matrix_div_row_vector, [](float x, float y) { return x / y; }}};
  for (const auto &[op, ref] : ops) {
    std::memset(dst.m->data, 0, 3 * 5 * 2 * 4);
    ASSERT_EQ(op(dst.m, src.m, vec.m), ORU_RET_OK);
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 5; ++j) ASSERT_EQ(dst.at<float>()[i * 5 + j], ref(src.at<float>()[i * 5 + j], vec.at<float>()[j]));
    for (int k = 15; k < 30; ++k) ASSERT_EQ(dst.at<float>()[k], 0.0f);
  }
  // In place, doubles, and a zero in the vector.
  M d(2, 2, 1, aif64), v(1, 2, 1, aif64);
  for (int i = 0; i < 4; ++i) d.at<double>()[i] = i + 1.0;
  v.at<double>()[0] = 0.0;
  v.at<double>()[1] = 4.0;
  ASSERT_EQ(oru_matrix_div_row_vector(d.m, d.m, v.m), ORU_RET_OK);
  EXPECT_TRUE(std::isinf(d.at<double>()[0]) && std::isinf(d.at<double>()[2]));
  EXPECT_EQ(d.at<double>()[3], 1.0);
  M wrong(1, 4, 1, aif32);
  std::string out = captured([&] { EXPECT_EQ(oru_matrix_add_row_vector(dst.m, src.m, wrong.m), ORU_RET_ERR_PARA); });
  EXPECT_NE(out.find("Your input params are wrong!"), std::string::npos);
  M si(2, 2, 1, ai32s), sv(1, 2, 1, ai32s);
  captured([&] { EXPECT_EQ(oru_matrix_add_row_vector(si.m, si.m, sv.m), ORU_RET_ERR_NOT_SUPPORT); });
}

template <typename T>
void check_mul_vector(int32_t rows, int32_t cols, uint32_t seed, double tol) {
  M m(rows, cols, 1, std::is_same_v<T, float> ? aif32 : aif64);
  m.template fill<T>(seed);
  for (int transposed = 0; transposed < 2; ++transposed) {
    const int32_t in = transposed ? rows : cols, out = transposed ? cols : rows;
    M v(in, 1, 1, m.m->type), d(out, 1, 1, m.m->type);
    v.template fill<T>(seed + 1);
    ASSERT_EQ(oru_matrix_mul_vector(d.m, m.m, transposed, v.m), ORU_RET_OK) << rows << "x" << cols;
    for (int32_t i = 0; i < out; ++i) {
      long double ref = 0;
      for (int32_t k = 0; k < in; ++k)
        ref += (long double)(transposed ? m.template at<T>()[k * cols + i] : m.template at<T>()[i * cols + k]) *
               v.template at<T>()[k];
      ASSERT_NEAR(d.template at<T>()[i], double(ref), tol * (in + 1)) << rows << "x" << cols << " t=" << transposed;
    }
  }
}

TEST(L2, MatrixVectorProductsAgainstALongDoubleReference) {
  uint32_t seed = 1;
  for (int32_t r : {1, 3, 4, 5, 8, 11})
    for (int32_t c : {1, 2, 4, 7, 9, 16}) {
      check_mul_vector<double>(r, c, seed++, 1e-14);
      check_mul_vector<float>(r, c, seed++, 2e-6);
    }
  // The 5 x 3 case by hand.
  M m(5, 3, 1, aif64), v3(3, 1, 1, aif64), v5(5, 1, 1, aif64), d5(5, 1, 1, aif64), d3(3, 1, 1, aif64);
  for (int i = 0; i < 15; ++i) m.at<double>()[i] = i;
  for (int i = 0; i < 3; ++i) v3.at<double>()[i] = 1.0;
  for (int i = 0; i < 5; ++i) v5.at<double>()[i] = 1.0;
  ASSERT_EQ(oru_matrix_mul_vector(d5.m, m.m, 0, v3.m), ORU_RET_OK);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(d5.at<double>()[i], 9.0 * i + 3.0);
  ASSERT_EQ(oru_matrix_mul_vector(d3.m, m.m, 1, v5.m), ORU_RET_OK);
  for (int j = 0; j < 3; ++j) EXPECT_EQ(d3.at<double>()[j], 30.0 + 5.0 * j);
}

TEST(L2, MatrixVectorRefusals) {
  M m(5, 3, 1, aif64), row(1, 3, 1, aif64), d(5, 1, 1, aif64), v5(5, 1, 1, aif64), f3(3, 1, 1, aif32);
  std::string out = captured([&] { EXPECT_EQ(oru_matrix_mul_vector(d.m, m.m, 0, row.m), ORU_RET_ERR_PARA); });
  EXPECT_NE(out.find("Your input params are wrong!"), std::string::npos);
  out = captured([&] { EXPECT_EQ(oru_matrix_mul_vector(d.m, m.m, 0, v5.m), ORU_RET_ERR_PARA); });
  EXPECT_TRUE(out.empty()) << out;  // a fitting kind of the wrong length: silent
  out = captured([&] { EXPECT_EQ(oru_matrix_mul_vector(d.m, m.m, 0, f3.m), ORU_RET_ERR_PARA); });
  EXPECT_FALSE(out.empty());
  M deep(2, 2, 2, aif64), v2(2, 1, 1, aif64), d2(2, 1, 1, aif64);
  captured([&] { EXPECT_EQ(oru_matrix_mul_vector(d2.m, deep.m, 0, v2.m), ORU_RET_ERR_PARA); });
  M im(2, 2, 1, ai32s), iv(2, 1, 1, ai32s), id(2, 1, 1, ai32s);
  out = captured([&] { EXPECT_EQ(oru_matrix_mul_vector(id.m, im.m, 0, iv.m), ORU_RET_ERR_NOT_SUPPORT); });
  EXPECT_NE(out.find("Current version can not support!"), std::string::npos);
}

TEST(L2, OuterProduct) {
  M a(3, 1, 1, aif32), b(1, 4, 1, aif32), d(3, 4, 1, aif32);
  for (int i = 0; i < 3; ++i) a.at<float>()[i] = float(i + 1);
  for (int j = 0; j < 4; ++j) b.at<float>()[j] = 0.5f * float(j) - 1.0f;
  ASSERT_EQ(oru_two_vector_outproduct(d.m, a.m, b.m), ORU_RET_OK);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 4; ++j) EXPECT_EQ(d.at<float>()[i * 4 + j], float(i + 1) * (0.5f * float(j) - 1.0f));
  M wrong(4, 3, 1, aif32);
  captured([&] { EXPECT_EQ(oru_two_vector_outproduct(wrong.m, a.m, b.m), ORU_RET_ERR_PARA); });
  M ia(3, 1, 1, ai32s), ib(1, 4, 1, ai32s), id(3, 4, 1, ai32s);
  std::string out = captured([&] { EXPECT_EQ(oru_two_vector_outproduct(id.m, ia.m, ib.m), ORU_RET_ERR_NOT_SUPPORT); });
  EXPECT_NE(out.find("Can not support data type!"), std::string::npos);
}

TEST(L2, TranspositionOfEveryTileShape) {
  const int32_t sizes[] = {1, 7, 8, 9, 16, 17};
  for (int32_t r : sizes)
    for (int32_t c : sizes) {
      M s(r, c, 1, aif64), d(c, r, 1, aif64);
      for (int i = 0; i < r * c; ++i) s.at<double>()[i] = i;
      ASSERT_EQ(oru_matrix_transposition(d.m, s.m), ORU_RET_OK);
      for (int i = 0; i < r; ++i)
        for (int j = 0; j < c; ++j) ASSERT_EQ(d.at<double>()[j * r + i], double(i * c + j)) << r << "x" << c;
      M su(r, c, 1, ai32u), du(c, r, 1, ai32u);
      for (int i = 0; i < r * c; ++i) su.at<uint32_t>()[i] = 4000000000u + uint32_t(i);
      ASSERT_EQ(oru_matrix_transposition(du.m, su.m), ORU_RET_OK);
      for (int i = 0; i < r; ++i)
        for (int j = 0; j < c; ++j) ASSERT_EQ(du.at<uint32_t>()[j * r + i], 4000000000u + uint32_t(i * c + j));
    }
  // The kernel with strides wider than the rows.
  std::vector<float> src(5 * 12), dst(9 * 10, -1.0f);
  for (size_t i = 0; i < src.size(); ++i) src[i] = float(i);
  array2d_transposition_real32(src.data(), 5, 9, 12, 10, dst.data());
  for (int i = 0; i < 5; ++i)
    for (int j = 0; j < 9; ++j) ASSERT_EQ(dst[size_t(j * 10 + i)], float(i * 12 + j));
  EXPECT_EQ(dst[5], -1.0f);  // padding of dst untouched
}

TEST(L2, TranspositionInPlaceAndRefusals) {
  for (int32_t n : {1, 3, 4, 5, 9, 13}) {
    M f(n, n, 1, aif32);
    for (int i = 0; i < n * n; ++i) f.at<float>()[i] = float(i);
    ASSERT_EQ(oru_matrix_transposition(f.m, f.m), ORU_RET_OK);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) ASSERT_EQ(f.at<float>()[i * n + j], float(j * n + i)) << n;
  }
  M r(3, 2, 1, aif32);
  std::string out = captured([&] { EXPECT_EQ(oru_matrix_transposition(r.m, r.m), ORU_RET_ERR_PARA); });
  EXPECT_NE(out.find("Your input params are wrong!"), std::string::npos);
  M s(3, 3, 1, ai16s), t(3, 3, 1, ai16s);
  out = captured([&] { EXPECT_EQ(oru_matrix_transposition(t.m, s.m), ORU_RET_ERR_NOT_SUPPORT); });
  EXPECT_NE(out.find("Current version can not support!"), std::string::npos);
  M a(2, 3, 1, aif32), b(2, 3, 1, aif32);
  captured([&] { EXPECT_EQ(oru_matrix_transposition(b.m, a.m), ORU_RET_ERR_PARA); });
  M rgb(2, 2, 1, 22), rgb2(2, 2, 1, 22);
  captured([&] { EXPECT_EQ(oru_matrix_transposition(rgb2.m, rgb.m), ORU_RET_ERR_PARA); });
}

}  // namespace
