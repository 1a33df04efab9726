#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <array>
#include <unistd.h>
#include <string>
#include <vector>

#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

struct MatrixPtr {
  oru_matrix *m;
  explicit MatrixPtr(oru_matrix *p) : m(p) {}
  ~MatrixPtr() { oru_release_matrix_no_error(&m); }
  oru_matrix *operator->() const { return m; }
};

std::string capture_stdout_of(const std::function<void()> &fn) {
  testing::internal::CaptureStdout();
  fn();
  return testing::internal::GetCapturedStdout();
}

bool reported(const std::string &out, const char *message) {
  return out.find(std::string("Error occurred: ") + message + " \n") != std::string::npos;
}

void write_bytes(const std::string &path, const std::vector<uint8_t> &bytes) {
  FILE *f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  if (!bytes.empty()) {
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), f), bytes.size());
  }
  std::fclose(f);
}

// A matrix file built by hand from the layout: 32 bytes of magic, 12 header words, data.
std::vector<uint8_t> matrix_file(const uint32_t words[12], const std::vector<uint8_t> &data) {
  std::vector<uint8_t> bytes(80 + data.size(), 0);
  std::memcpy(bytes.data(), "Morvex MatrixV1.0", 17);
  std::memcpy(bytes.data() + 32, words, 48);
  if (!data.empty()) std::memcpy(bytes.data() + 80, data.data(), data.size());
  return bytes;
}

TEST(MatrixCore, KindFollowsTheShape) {
  struct Case { int32_t rows, cols, depth; uint32_t kind; } cases[] = {
      {3, 1, 1, 6}, {1, 3, 1, 5}, {1, 1, 1, 7}, {1, 1, 2, 4}, {2, 2, 1, 4}, {1, 3, 2, 4}};
  for (const auto &c : cases) {
    MatrixPtr m(oru_create_matrix(c.rows, c.cols, c.depth, aif32));
    ASSERT_NE(m.m, nullptr);
    EXPECT_EQ(m->kind, c.kind) << c.rows << "x" << c.cols << "x" << c.depth;
    EXPECT_EQ(m->owns_data, 1u);
    EXPECT_EQ(m->format, 15u);
    EXPECT_EQ(m->reserved_one, 1u);
    EXPECT_NE(m->data, nullptr);
  }
}

TEST(MatrixCore, DerivedFieldsOfAMultiChannelType) {
  MatrixPtr m(oru_create_matrix(2, 4, 1, 16));  // three-channel ai8u
  ASSERT_NE(m.m, nullptr);
  EXPECT_EQ(m->stride, 12);
  EXPECT_EQ(m->channel_bytes, 1u);
  EXPECT_EQ(m->channels, 3);
  MatrixPtr d(oru_create_matrix(3, 5, 2, 31));  // four-channel aif64
  ASSERT_NE(d.m, nullptr);
  EXPECT_EQ(d->stride, 5 * 32);
  EXPECT_EQ(d->channel_bytes, 8u);
  EXPECT_EQ(d->channels, 4);
}

TEST(MatrixCore, CreationRefusesBadSizesAndTypes) {
  for (auto args : std::vector<std::array<int64_t, 4>>{{0, 1, 1, 6}, {1, 0, 1, 6}, {1, 1, 0, 6}, {-3, 2, 1, 6}, {1, 1, 1, 32}}) {
    const std::string out = capture_stdout_of([&] {
      EXPECT_EQ(oru_create_matrix_header(int32_t(args[0]), int32_t(args[1]), int32_t(args[2]), uint32_t(args[3])), nullptr);
    });
    EXPECT_TRUE(reported(out, "parameters error!")) << out;
  }
  // The storage of this one can't be counted in 64 bits: the data is refused, not attempted.
  const int64_t before = oru_test::malloc_calls();
  std::string out = capture_stdout_of([] { EXPECT_EQ(oru_create_matrix(INT32_MAX, INT32_MAX, INT32_MAX, 31), nullptr); });
  EXPECT_TRUE(reported(out, "Allocating memory failure! ")) << out;
  EXPECT_LE(oru_test::malloc_calls() - before, 1);  // the header, which is freed again
  oru_matrix *bare = oru_create_matrix_header(2, 2, 1, aif32);
  ASSERT_NE(bare, nullptr);
  EXPECT_EQ(oru_creat_matrix_data(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_creat_matrix_data(bare), ORU_RET_OK);
  EXPECT_EQ(oru_creat_matrix_data(bare), ORU_RET_ERR_PARA);  // has data already
  EXPECT_EQ(oru_release_matrix(&bare), ORU_RET_OK);
  EXPECT_EQ(bare, nullptr);
}

TEST(MatrixCore, ViewsOnForeignData) {
  oru_matrix view;
  std::memset(&view, 0xCD, sizeof view);
  ASSERT_EQ(oru_set_matrix_header(&view, 3, 4, 2, aif32), ORU_RET_OK);
  EXPECT_EQ(view.data, nullptr);
  EXPECT_EQ(view.owns_data, 0u);
  EXPECT_EQ(view.stride, 16);
  EXPECT_EQ(view.kind, 4u);
  std::vector<float> buffer(3 * 4 * 2);
  std::string out = capture_stdout_of([&] {
    EXPECT_EQ(oru_set_matrix_data(&view, buffer.data(), int64_t(buffer.size() * 4) - 1), ORU_RET_ERR_DATA_LENGTH);
  });
  EXPECT_TRUE(reported(out, "Data length is not enough!")) << out;
  EXPECT_EQ(view.data, nullptr);
  EXPECT_EQ(oru_set_matrix_data(&view, buffer.data(), int64_t(buffer.size() * 4)), ORU_RET_OK);
  EXPECT_EQ(view.data, buffer.data());
  out = capture_stdout_of([&] { EXPECT_EQ(oru_set_matrix_data(&view, nullptr, 100), ORU_RET_ERR_PARA); });
  EXPECT_TRUE(reported(out, "Your input params are wrong!")) << out;
  out = capture_stdout_of([&] { EXPECT_EQ(oru_set_matrix_header(&view, 0, 4, 1, aif32), ORU_RET_ERR_PARA); });
  EXPECT_TRUE(reported(out, "parameters error!")) << out;

  // Taking foreign data frees what the matrix owned (the sanitizer build sees a leak otherwise).
  MatrixPtr owner(oru_create_matrix(3, 4, 2, aif32));
  ASSERT_EQ(oru_set_matrix_data(owner.m, buffer.data(), int64_t(buffer.size() * 4)), ORU_RET_OK);
  EXPECT_EQ(owner->owns_data, 0u);
  EXPECT_EQ(oru_set_matrix_reference_value(nullptr, 1), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_matrix_reference_value(owner.m, 0), ORU_RET_OK);
}

TEST(MatrixCore, ColumnViews) {
  MatrixPtr m(oru_create_matrix(3, 5, 1, aif64));
  oru_matrix v;
  std::string out = capture_stdout_of([&] { EXPECT_EQ(oru_get_matrix_cols(&v, m.m, 2, 2), ORU_RET_ERR_PARA); });
  EXPECT_TRUE(reported(out, "parameters error!")) << out;
  EXPECT_EQ(capture_stdout_of([&] { EXPECT_EQ(oru_get_matrix_cols(&v, m.m, 0, 6), ORU_RET_ERR_PARA); }).empty(), false);
  ASSERT_EQ(oru_get_matrix_cols(&v, m.m, 2, 5), ORU_RET_OK);
  EXPECT_EQ(v.rows, 3);
  EXPECT_EQ(v.cols, 3);
  EXPECT_EQ(v.stride, m->stride);
  EXPECT_EQ(v.owns_data, 0u);
  EXPECT_EQ(static_cast<char *>(v.data), static_cast<char *>(m->data) + 16);
  MatrixPtr bare(oru_create_matrix_header(3, 5, 1, aif64));
  ASSERT_EQ(oru_get_matrix_cols(&v, bare.m, 1, 3), ORU_RET_OK);
  EXPECT_EQ(v.data, nullptr);
  MatrixPtr deep(oru_create_matrix(3, 5, 2, aif64));
  capture_stdout_of([&] { EXPECT_EQ(oru_get_matrix_cols(&v, deep.m, 0, 1), ORU_RET_ERR_PARA); });
}

TEST(MatrixCore, EyeOnRectangularAndUnsupportedTypes) {
  MatrixPtr f(oru_create_matrix(2, 3, 1, aif32));
  std::memset(f->data, 0x7F, 24);
  ASSERT_EQ(oru_set_eye_matrix(f.m), ORU_RET_OK);
  const float *x = static_cast<const float *>(f->data);
  const float expect_f[6] = {1, 0, 0, 0, 1, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(x[i], expect_f[i]) << i;

  MatrixPtr u(oru_create_matrix(3, 2, 2, ai8u));
  std::memset(u->data, 9, 12);
  ASSERT_EQ(oru_set_eye_matrix(u.m), ORU_RET_OK);
  const uint8_t expect_u[12] = {1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0};  // the second plane stays zero
  EXPECT_EQ(std::memcmp(u->data, expect_u, 12), 0);

  MatrixPtr d(oru_create_matrix(2, 2, 1, aif64));
  ASSERT_EQ(oru_set_eye_matrix(d.m), ORU_RET_OK);
  EXPECT_EQ(static_cast<double *>(d->data)[3], 1.0);
  MatrixPtr i32(oru_create_matrix(2, 2, 1, ai32u));
  ASSERT_EQ(oru_set_eye_matrix(i32.m), ORU_RET_OK);
  EXPECT_EQ(static_cast<uint32_t *>(i32->data)[3], 1u);

  MatrixPtr s(oru_create_matrix(2, 2, 1, ai16s));
  std::memset(s->data, 0x55, 8);
  std::string out = capture_stdout_of([&] { EXPECT_EQ(oru_set_eye_matrix(s.m), ORU_RET_ERR_NOT_SUPPORT); });
  EXPECT_TRUE(reported(out, "can not support!")) << out;
  for (int i = 0; i < 4; ++i) EXPECT_EQ(static_cast<int16_t *>(s->data)[i], 0);
  out = capture_stdout_of([] { EXPECT_EQ(oru_set_eye_matrix(nullptr), ORU_RET_ERR_PARA); });
  EXPECT_TRUE(reported(out, "Your input params are wrong!")) << out;
}

TEST(MatrixCore, ReleaseReportsOnlyInItsLoudForm) {
  oru_matrix *none = nullptr;
  EXPECT_TRUE(capture_stdout_of([&] { EXPECT_EQ(oru_release_matrix_no_error(&none), ORU_RET_OK); }).empty());
  EXPECT_TRUE(capture_stdout_of([] { EXPECT_EQ(oru_release_matrix_no_error(nullptr), ORU_RET_OK); }).empty());
  std::string out = capture_stdout_of([&] { EXPECT_EQ(oru_release_matrix(&none), ORU_RET_ERR_PARA); });
  EXPECT_TRUE(reported(out, "parameters error!")) << out;
  // A reference is released without touching the foreign data.
  float foreign[4] = {1, 2, 3, 4};
  oru_matrix *ref = oru_create_matrix_header(2, 2, 1, aif32);
  ASSERT_EQ(oru_set_matrix_data(ref, foreign, sizeof foreign), ORU_RET_OK);
  EXPECT_EQ(oru_release_matrix(&ref), ORU_RET_OK);
  EXPECT_EQ(ref, nullptr);
  EXPECT_EQ(foreign[3], 4.0f);
}

TEST(MatrixCore, HeaderWords) {
  MatrixPtr m(oru_create_matrix(3, 7, 2, 22));  // three-channel aif32
  uint32_t words[12];
  int32_t count = -1;
  EXPECT_EQ(oru_write_matrix_header_to_buffer(nullptr, &count, m.m), ORU_RET_ERR_PARA);
  EXPECT_EQ(count, 0);
  ASSERT_EQ(oru_write_matrix_header_to_buffer(words, &count, m.m), ORU_RET_OK);
  EXPECT_EQ(count, 12);
  const uint32_t expect[10] = {4, 22, 3, 7, 2, 1, 1, 4, 3, 15};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(words[i], expect[i]) << i;
  int64_t stride;
  std::memcpy(&stride, words + 10, 8);
  EXPECT_EQ(stride, 7 * 12);

  words[10] = 9999;  // a stored stride is ignored
  oru_matrix back{};
  EXPECT_EQ(oru_read_matrix_header_from_buffer(nullptr, words), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_read_matrix_header_from_buffer(&back, nullptr), ORU_RET_ERR_PARA);
  ASSERT_EQ(oru_read_matrix_header_from_buffer(&back, words), ORU_RET_OK);
  EXPECT_EQ(back.stride, 84);
  EXPECT_EQ(back.rows, 3);
  EXPECT_EQ(back.cols, 7);
  EXPECT_EQ(back.depth, 2);
  EXPECT_EQ(back.type, 22u);
  EXPECT_EQ(back.channels, 3);
  EXPECT_EQ(back.format, 15u);
}

TEST(MatrixCore, PackedTensorIntoRowVector) {
  float storage[24];
  oru_tensor t{};
  t.kind = 16;
  t.type = aif32;
  t.data = storage;
  t.dims[0] = 4; t.dims[1] = 3; t.dims[2] = 2;
  t.ndims = 3;
  t.element_bytes = 4;
  t.total_elements = 24;
  t.total_bytes = 96;
  oru_matrix row;
  EXPECT_EQ(oru_packed_tensor_into_row_vector(nullptr, &t), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_packed_tensor_into_row_vector(&row, nullptr), ORU_RET_ERR_PARA);
  ASSERT_EQ(oru_packed_tensor_into_row_vector(&row, &t), ORU_RET_OK);
  EXPECT_EQ(row.rows, 1);
  EXPECT_EQ(row.cols, 24);
  EXPECT_EQ(row.kind, 5u);
  EXPECT_EQ(row.data, storage);
  EXPECT_EQ(row.owns_data, 0u);
  t.total_bytes = 95;  // the view must fit into the tensor's bytes
  capture_stdout_of([&] { EXPECT_EQ(oru_packed_tensor_into_row_vector(&row, &t), ORU_RET_ERR_DATA_LENGTH); });
}

TEST(MatrixFile, RoundTripOfAViewGivesAnOwner) {
  std::vector<double> foreign = oru_test::random_values<double>(5 * 3 * 2, -1e6, 1e6, 7);
  oru_matrix view;
  ASSERT_EQ(oru_set_matrix_header(&view, 5, 3, 2, aif64), ORU_RET_OK);
  ASSERT_EQ(oru_set_matrix_data(&view, foreign.data(), int64_t(foreign.size() * 8)), ORU_RET_OK);
  const std::string path = oru_test::temp_path("m.bin");
  ASSERT_EQ(oru_write_matrix_to_disk(path.c_str(), &view), ORU_RET_OK);
  EXPECT_EQ(oru_test::read_file(path).size(), 80u + foreign.size() * 8);
  MatrixPtr back(oru_create_matrix_from_disk(path.c_str()));
  ASSERT_NE(back.m, nullptr);
  EXPECT_EQ(back->kind, view.kind);
  EXPECT_EQ(back->type, view.type);
  EXPECT_EQ(back->rows, 5);
  EXPECT_EQ(back->cols, 3);
  EXPECT_EQ(back->depth, 2);
  EXPECT_EQ(back->format, 15u);
  EXPECT_EQ(back->owns_data, 1u);
  EXPECT_EQ(std::memcmp(back->data, foreign.data(), foreign.size() * 8), 0);
  EXPECT_EQ(oru_write_matrix_to_disk(nullptr, &view), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_write_matrix_to_disk(path.c_str(), nullptr), ORU_RET_ERR_PARA);
  std::string out = capture_stdout_of([&] { EXPECT_EQ(oru_write_matrix_to_disk("/nonexistent-dir/m.bin", &view), ORU_RET_ERR_OPEN_FILE); });
  EXPECT_TRUE(reported(out, "Opening file errors!")) << out;
  std::remove(path.c_str());
}

TEST(MatrixFile, KindAndFormatComeFromTheFile) {
  const uint32_t words[12] = {8, 0, 2, 3, 1, 1, 1, 1, 1, 3, 3, 0};  // an image record of format 3
  const std::string path = oru_test::temp_path("k.bin");
  write_bytes(path, matrix_file(words, {1, 2, 3, 4, 5, 6}));
  MatrixPtr m(oru_create_matrix_from_disk(path.c_str()));
  ASSERT_NE(m.m, nullptr);
  EXPECT_EQ(m->kind, 8u);
  EXPECT_EQ(m->format, 3u);
  EXPECT_EQ(static_cast<uint8_t *>(m->data)[5], 6);
  std::remove(path.c_str());
}

TEST(MatrixFile, MagicIsCheckedUpToItsTerminator) {
  const uint32_t words[12] = {7, 6, 1, 1, 1, 1, 1, 4, 1, 15, 4, 0};
  const std::string path = oru_test::temp_path("magic.bin");
  std::vector<uint8_t> good = matrix_file(words, {0, 0, 0x80, 0x3F});
  auto bad = good;
  bad[17] = 1;
  write_bytes(path, bad);
  EXPECT_TRUE(capture_stdout_of([&] { EXPECT_EQ(oru_create_matrix_from_disk(path.c_str()), nullptr); }).empty());
  bad = good;
  bad[3] = 'w';  // "Morwex"
  write_bytes(path, bad);
  EXPECT_EQ(oru_create_matrix_from_disk(path.c_str()), nullptr);
  auto odd = good;
  odd[18] = 'x';
  odd[31] = 0xFF;
  write_bytes(path, odd);
  MatrixPtr m(oru_create_matrix_from_disk(path.c_str()));
  ASSERT_NE(m.m, nullptr);
  EXPECT_EQ(*static_cast<float *>(m->data), 1.0f);
  std::remove(path.c_str());
  std::string out = capture_stdout_of([&] { EXPECT_EQ(oru_create_matrix_from_disk(path.c_str()), nullptr); });
  EXPECT_TRUE(reported(out, "Opening file errors!")) << out;
  EXPECT_EQ(oru_create_matrix_from_disk(nullptr), nullptr);
}

TEST(MatrixFile, HostileHeadersAreRefusedWithoutTheClaimedAllocation) {
  const std::string path = oru_test::temp_path("hostile.bin");
  struct Case { int32_t rows, cols, depth; uint32_t type; } cases[] = {
      {INT32_MAX, INT32_MAX, INT32_MAX, 31},  // overflows 64 bits
      {65536, 65536, 16, 31},                 // 2^41 bytes, fits in 64 bits, far beyond the file
      {-1, 4, 1, 6},
      {4, 0, 1, 6},
      {4, 4, 1, 40},
      {1 << 20, 1 << 10, 1, 7}};  // 8 GiB claimed by a file of 88 bytes
  for (const auto &c : cases) {
    const uint32_t words[12] = {4, c.type, uint32_t(c.rows), uint32_t(c.cols), uint32_t(c.depth), 1, 1, 4, 1, 15, 0, 0};
    write_bytes(path, matrix_file(words, std::vector<uint8_t>(8, 0xAA)));
    const int64_t before = oru_test::malloc_calls();
    std::string out = capture_stdout_of([&] { EXPECT_EQ(oru_create_matrix_from_disk(path.c_str()), nullptr); });
    EXPECT_TRUE(reported(out, "memory error!")) << out;
    EXPECT_LE(oru_test::malloc_calls() - before, 2);  // the stream and at most a header, no data
  }
  // A header cut short is no matrix.
  const uint32_t words[12] = {4, 6, 2, 2, 1, 1, 1, 4, 1, 15, 8, 0};
  auto cut = matrix_file(words, {});
  cut.resize(60);
  write_bytes(path, cut);
  EXPECT_EQ(oru_create_matrix_from_disk(path.c_str()), nullptr);
  std::remove(path.c_str());
}

TEST(MatrixFile, ShortDataStillGivesTheMatrix) {
  const uint32_t words[12] = {4, ai8u, 4, 4, 1, 1, 1, 1, 1, 15, 4, 0};
  const std::string path = oru_test::temp_path("short.bin");
  write_bytes(path, matrix_file(words, {10, 20, 30, 40, 50}));
  oru_matrix *m = nullptr;
  std::string out = capture_stdout_of([&] { m = oru_create_matrix_from_disk(path.c_str()); });
  ASSERT_NE(m, nullptr);
  EXPECT_TRUE(reported(out, "error!")) << out;
  EXPECT_EQ(static_cast<uint8_t *>(m->data)[4], 50);
  oru_release_matrix(&m);
  std::remove(path.c_str());
}

template <typename T>
void fill_sequence(oru_matrix *m, const std::vector<T> &values) {
  std::memcpy(m->data, values.data(), values.size() * sizeof(T));
}

TEST(MatrixExport, TextOfFloatsGroupsByFour) {
  MatrixPtr m(oru_create_matrix(2, 6, 1, aif32));
  const std::vector<float> v = {1.5f, -2.25f, 3.0f, 0.125f, 1e-3f, -7.0f, 10.0f, 11.5f, -12.0f, 13.0f, 14.75f, 100.0f};
  fill_sequence(m.m, v);
  const std::string path = oru_test::temp_path("f.txt");
  ASSERT_EQ(oru_export_data_to_file(path.c_str(), m.m, 1), ORU_RET_OK);
  std::string expect;
  char buf[256];
  for (int r = 0; r < 2; ++r) {
    const float *x = v.data() + 6 * r;
    std::snprintf(buf, sizeof buf, "%12.8f, %12.8f, %12.8f, %12.8f, %12.8f, %12.8f, \n", x[0], x[1], x[2], x[3], x[4], x[5]);
    expect += buf;
  }
  expect += "\n";
  const auto got = oru_test::read_file(path);
  EXPECT_EQ(std::string(got.begin(), got.end()), expect);
  std::remove(path.c_str());
}

TEST(MatrixExport, TextOfDoublesAndIntegersWalksEveryPlane) {
  MatrixPtr d(oru_create_matrix(1, 5, 2, aif64));
  const std::vector<double> dv = {3.141592653589793, -1.0 / 3.0, 2.0, 1e5, -0.5, 6, 7, 8, 9, 10};
  fill_sequence(d.m, dv);
  const std::string path = oru_test::temp_path("d.txt");
  ASSERT_EQ(oru_export_data_to_file(path.c_str(), d.m, 2), ORU_RET_OK);
  std::string expect;
  char buf[512];
  for (int plane = 0; plane < 2; ++plane) {
    const double *x = dv.data() + 5 * plane;
    std::snprintf(buf, sizeof buf, "%20.16f, %20.16f, %20.16f, %20.16f, %20.16f, \n\n", x[0], x[1], x[2], x[3], x[4]);
    expect += buf;
  }
  auto got = oru_test::read_file(path);
  EXPECT_EQ(std::string(got.begin(), got.end()), expect);

  // Unsigned 32-bit values are printed as signed ints; 16-bit ones widen.
  MatrixPtr u(oru_create_matrix(2, 3, 1, ai32u));
  fill_sequence<uint32_t>(u.m, {0u, 4294967295u, 123456789u, 7u, 2147483648u, 42u});
  ASSERT_EQ(oru_export_data_to_file(path.c_str(), u.m, 1), ORU_RET_OK);
  got = oru_test::read_file(path);
  EXPECT_EQ(std::string(got.begin(), got.end()),
            "       0,       -1, 123456789, \n       7, -2147483648,       42, \n\n");
  MatrixPtr s(oru_create_matrix(1, 4, 1, ai16s));
  fill_sequence<int16_t>(s.m, {-32768, 5, 0, 32767});
  ASSERT_EQ(oru_export_data_to_file(path.c_str(), s.m, 1), ORU_RET_OK);
  got = oru_test::read_file(path);
  EXPECT_EQ(std::string(got.begin(), got.end()), "  -32768,        5,        0,    32767, \n\n");
  std::remove(path.c_str());
}

TEST(MatrixExport, TextRefusesChannelsAndTheRawFormWritesTheStorage) {
  MatrixPtr rgb(oru_create_matrix(2, 2, 1, 16));
  for (int i = 0; i < 12; ++i) static_cast<uint8_t *>(rgb->data)[i] = uint8_t(3 * i + 1);
  const std::string path = oru_test::temp_path("raw.bin");
  std::string out = capture_stdout_of([&] { EXPECT_EQ(oru_export_data_to_file(path.c_str(), rgb.m, 1), ORU_RET_ERR_NOT_SUPPORT); });
  EXPECT_TRUE(reported(out, "can not support!")) << out;
  out = capture_stdout_of([&] { EXPECT_EQ(oru_export_data_to_file("/nonexistent-dir/x.txt", nullptr, 1), ORU_RET_ERR_PARA); });
  EXPECT_TRUE(reported(out, "parameters error!")) << out;
  MatrixPtr single(oru_create_matrix(1, 1, 1, aif32));
  out = capture_stdout_of([&] { EXPECT_EQ(oru_export_data_to_file("/nonexistent-dir/x.txt", single.m, 1), ORU_RET_ERR_OPEN_FILE); });
  EXPECT_TRUE(out.empty()) << out;
  out = capture_stdout_of([&] { EXPECT_EQ(oru_export_data_to_file("/nonexistent-dir/x.bin", single.m, 0), ORU_RET_ERR_OPEN_FILE); });
  EXPECT_TRUE(reported(out, "Opening file errors!")) << out;

  ASSERT_EQ(oru_export_data_to_file(path.c_str(), rgb.m, 0), ORU_RET_OK);
  auto got = oru_test::read_file(path);
  ASSERT_EQ(got.size(), 12u);
  EXPECT_EQ(std::memcmp(got.data(), rgb->data, 12), 0);
  // A planar 4:2:0 frame writes rows * cols * 1.5 bytes of its one block.
  MatrixPtr yuv(oru_create_matrix(6, 5, 1, ai8u));
  yuv->format = 5;
  ASSERT_EQ(oru_export_data_to_file(path.c_str(), yuv.m, 0), ORU_RET_OK);
  EXPECT_EQ(oru_test::read_file(path).size(), 45u);
  std::remove(path.c_str());
}

TEST(MatrixExport, DefaultPathIsDataDat) {
  const std::string dir = oru_test::temp_path("cwd");
  ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
  char old[4096];
  ASSERT_NE(getcwd(old, sizeof old), nullptr);
  ASSERT_EQ(chdir(dir.c_str()), 0);
  MatrixPtr m(oru_create_matrix(1, 2, 1, ai8u));
  static_cast<uint8_t *>(m->data)[0] = 'o';
  static_cast<uint8_t *>(m->data)[1] = 'k';
  EXPECT_EQ(oru_export_data_to_file(nullptr, m.m, 0), ORU_RET_OK);
  const auto got = oru_test::read_file("data.dat");
  EXPECT_EQ(std::string(got.begin(), got.end()), "ok");
  std::remove("data.dat");
  ASSERT_EQ(chdir(old), 0);
}

}  // namespace
