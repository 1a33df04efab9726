#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

const std::string kParamsReport = "Error occurred: Your input params are wrong! \n";

struct TensorPtr {
  oru_tensor *t;
  explicit TensorPtr(oru_tensor *p) : t(p) {}
  ~TensorPtr() {
    if (t) oru_release_tensor(&t);
  }
  oru_tensor *operator->() const { return t; }
};

void write_bytes(const std::string &path, const std::vector<uint8_t> &bytes) {
  FILE *f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  const size_t written = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), f);
  ASSERT_EQ(written, bytes.size());
  std::fclose(f);
}

// A tensor file assembled byte by byte from the format's description, independent of the writer.
std::vector<uint8_t> tensor_file(const std::vector<int32_t> &dims, int32_t type, int32_t layout,
                                 const std::vector<uint8_t> &data) {
  std::vector<uint8_t> out(32, 0);
  const char magic[] = "Morvex Tensor V1.0";
  std::memcpy(out.data(), magic, 18);
  auto word = [&](int32_t w) {
    uint8_t b[4];
    std::memcpy(b, &w, 4);
    out.insert(out.end(), b, b + 4);
  };
  word(int32_t(dims.size()));
  word(type);
  word(layout);
  for (int32_t d : dims) word(d);
  out.insert(out.end(), data.begin(), data.end());
  return out;
}

TEST(TensorHeader, DerivedFieldsOfTheWorkedShapes) {
  const int32_t five[] = {5};
  TensorPtr a(oru_create_tensor_header(1, five, aif32));
  ASSERT_NE(a.t, nullptr);
  EXPECT_EQ(a->kind, 16u);
  EXPECT_EQ(a->data, nullptr);
  EXPECT_EQ(a->owns_data, 1u);
  EXPECT_EQ(a->channel_layout, 0u);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(a->pitches[k], 0u);
  EXPECT_EQ(a->total_elements, 5);
  EXPECT_EQ(a->total_bytes, 20);

  const int32_t whc[] = {4, 3, 2};
  TensorPtr b(oru_create_tensor_header(3, whc, aif32));
  ASSERT_NE(b.t, nullptr);
  EXPECT_EQ(b->pitches[0], 16u);
  EXPECT_EQ(b->pitches[1], 48u);
  EXPECT_EQ(b->pitches[2], 0u);
  EXPECT_EQ(b->pitches[3], 0u);
  EXPECT_EQ(b->dims[3], 0);
  EXPECT_EQ(b->dims[4], 0);
  EXPECT_EQ(b->total_elements, 24);
  EXPECT_EQ(b->total_bytes, 96);

  // Channels live in a dimension, so a two-channel float code still counts 4 bytes.
  TensorPtr c(oru_create_tensor_header(3, whc, 14));
  ASSERT_NE(c.t, nullptr);
  EXPECT_EQ(c->element_bytes, 4u);
  EXPECT_EQ(c->total_bytes, 96);
}

TEST(TensorHeader, PitchesAreNeighbourDistancesOnRandomShapes) {
  std::mt19937 gen(7);
  for (int round = 0; round < 200; ++round) {
    const int32_t ndims = int32_t(gen() % 5) + 1;
    int32_t dims[5];
    for (int k = 0; k < ndims; ++k) dims[k] = int32_t(gen() % 6) + 1;
    const uint32_t type = gen() % 32;
    TensorPtr t(oru_create_tensor_header(ndims, dims, type));
    ASSERT_NE(t.t, nullptr);
    const int64_t eb = oru_data_type_bytes[type & 7];
    // Dense storage: neighbours along k + 1 lie dims[0] * ... * dims[k] elements apart.
    int64_t stride = eb, count = 1;
    for (int k = 0; k < 4; ++k) {
      if (k < ndims) stride *= dims[k];
      const int64_t expect = k + 1 < ndims ? stride : 0;
      EXPECT_EQ(int64_t(t->pitches[k]), expect) << "k=" << k << " ndims=" << ndims;
    }
    for (int k = 0; k < ndims; ++k) count *= dims[k];
    EXPECT_EQ(t->total_elements, count);
    EXPECT_EQ(t->total_bytes, count * eb);
    for (int k = ndims; k < 5; ++k) EXPECT_EQ(t->dims[k], 0);
  }
}

TEST(TensorHeader, RefusesBadArgumentsWithAReportAndNoAllocation) {
  const int32_t ok[] = {2, 2, 2, 2, 2, 2};
  const int32_t zero[] = {4, 0, 2};
  const int32_t negative[] = {4, -3, 2};
  const int32_t huge[] = {1 << 20, 1 << 20};  // 2^40 elements
  const int32_t wraps[] = {65536, 65536, 2};  // wraps to 0 in 32 bits
  struct Case {
    int32_t ndims;
    const int32_t *dims;
    uint32_t type;
  } cases[] = {{0, ok, aif32}, {6, ok, aif32}, {2, nullptr, aif32}, {3, zero, aif32}, {3, negative, aif32},
               {2, ok, 32},    {2, huge, aif32}, {3, wraps, ai8u}};
  for (const Case &c : cases) {
    const int64_t before = oru_test::malloc_calls();
    testing::internal::CaptureStdout();
    EXPECT_EQ(oru_create_tensor_header(c.ndims, c.dims, c.type), nullptr);
    EXPECT_EQ(oru_create_tensor(c.ndims, c.dims, c.type), nullptr);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(oru_test::malloc_calls(), before) << c.ndims;
    EXPECT_EQ(out.rfind(kParamsReport, 0), 0u) << out;
  }
}

TEST(TensorHeader, SetHeaderFillsACallerRecordOfFloatTypesOnly) {
  oru_tensor t;
  std::memset(&t, 0xCD, sizeof t);
  const int32_t dims[] = {3, 2};
  EXPECT_EQ(oru_set_tensor_header(&t, 2, dims, aif64), ORU_RET_OK);
  EXPECT_EQ(t.kind, 16u);
  EXPECT_EQ(t.data, nullptr);
  EXPECT_EQ(t.owns_data, 0u);
  EXPECT_EQ(t.channel_layout, 0u);
  EXPECT_EQ(t.element_bytes, 8u);
  EXPECT_EQ(t.pitches[0], 24u);
  EXPECT_EQ(t.pitches[1], 0u);
  EXPECT_EQ(t.total_bytes, 48);

  // Types the creator accepts are refused here.
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_set_tensor_header(&t, 2, dims, ai16s), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_tensor_header(&t, 2, dims, ai8u), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_tensor_header(nullptr, 2, dims, aif32), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_tensor_header(&t, 2, nullptr, aif32), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_tensor_header(&t, 6, dims, aif32), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout().rfind(kParamsReport, 0), 0u);
  EXPECT_EQ(t.total_bytes, 48);  // untouched by the refusals
}

TEST(TensorData, SetDataChecksTheLengthAndDropsOwnedStorage) {
  const int32_t dims[] = {4, 3};
  TensorPtr t(oru_create_tensor(2, dims, aif32));
  ASSERT_NE(t.t, nullptr);
  ASSERT_NE(t->data, nullptr);
  void *owned = t->data;
  float client[12] = {};
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_set_tensor_data(t.t, client, 47), ORU_RET_ERR_DATA_LENGTH);
  EXPECT_EQ(oru_set_tensor_data(nullptr, client, 48), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_tensor_data(t.t, nullptr, 48), ORU_RET_ERR_PARA);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("Data length is not enough!"), std::string::npos);
  EXPECT_EQ(t->data, owned);
  EXPECT_EQ(t->owns_data, 1u);
  EXPECT_EQ(oru_set_tensor_data(t.t, client, 48), ORU_RET_OK);  // the owned block is freed here
  EXPECT_EQ(t->data, client);
  EXPECT_EQ(t->owns_data, 0u);
  // Release must leave the client's array alone (ASan would catch a stray free).
}

TEST(TensorData, CreateDataAndSmallSetters) {
  const int32_t dims[] = {2, 2};
  TensorPtr t(oru_create_tensor_header(2, dims, ai16s));
  ASSERT_NE(t.t, nullptr);
  EXPECT_EQ(oru_create_tensor_data(t.t), ORU_RET_OK);
  ASSERT_NE(t->data, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(t->data) % 32, 0u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_create_tensor_data(nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout().rfind(kParamsReport, 0), 0u);

  EXPECT_EQ(oru_set_tensor_channel_layout(t.t, ORU_LAYOUT_NHWC), ORU_RET_OK);
  EXPECT_EQ(t->channel_layout, 2u);
  EXPECT_EQ(oru_set_tensor_reference_value(t.t, 1), ORU_RET_OK);
  EXPECT_EQ(t->owns_data, 1u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_set_tensor_channel_layout(nullptr, 2), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_set_tensor_reference_value(nullptr, 0), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");  // these refuse silently
}

TEST(TensorData, CopiesKeepShapeLayoutAndContents) {
  const int32_t dims[] = {5, 3, 2};
  TensorPtr src(oru_create_tensor(3, dims, aif32));
  ASSERT_NE(src.t, nullptr);
  src->channel_layout = ORU_LAYOUT_HWG;
  const auto values = oru_test::random_values<float>(30, -5, 5, 3);
  std::memcpy(src->data, values.data(), 120);

  TensorPtr empty(oru_create_tensor_from_tensor(src.t));
  ASSERT_NE(empty.t, nullptr);
  EXPECT_NE(empty->data, src->data);
  EXPECT_EQ(empty->channel_layout, 3u);
  EXPECT_EQ(empty->total_bytes, 120);
  EXPECT_EQ(empty->owns_data, 1u);

  TensorPtr copy(oru_create_copy_tensor(src.t));
  ASSERT_NE(copy.t, nullptr);
  EXPECT_EQ(std::memcmp(copy->data, values.data(), 120), 0);
  for (int k = 0; k < 5; ++k) EXPECT_EQ(copy->dims[k], src->dims[k]);

  EXPECT_EQ(oru_create_tensor_from_tensor(nullptr), nullptr);
  oru_tensor not_a_tensor = *src.t;
  not_a_tensor.kind = 4;
  EXPECT_EQ(oru_create_copy_tensor(&not_a_tensor), nullptr);
  not_a_tensor.kind = 16;
  not_a_tensor.ndims = 0;
  EXPECT_EQ(oru_create_tensor_from_tensor(&not_a_tensor), nullptr);
}

TEST(TensorData, ReleaseRefusesNullsAndClearsThePointer) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_release_tensor(nullptr), ORU_RET_ERR_PARA);
  oru_tensor *none = nullptr;
  EXPECT_EQ(oru_release_tensor(&none), ORU_RET_ERR_PARA);
  EXPECT_EQ(testing::internal::GetCapturedStdout().rfind(kParamsReport, 0), 0u);
  const int32_t dims[] = {3};
  oru_tensor *header = oru_create_tensor_header(1, dims, aif32);
  ASSERT_NE(header, nullptr);
  EXPECT_EQ(oru_release_tensor(&header), ORU_RET_OK);
  EXPECT_EQ(header, nullptr);
}

TEST(TensorHeaderWords, WriteAndReadBack) {
  const int32_t dims[] = {7, 6, 5, 4};
  TensorPtr t(oru_create_tensor_header(4, dims, ai16s));
  ASSERT_NE(t.t, nullptr);
  t->channel_layout = ORU_LAYOUT_NDHWC4;
  int32_t words[8];
  int32_t count = -1;
  ASSERT_EQ(oru_write_tensor_header_to_buffer(words, &count, t.t), ORU_RET_OK);
  EXPECT_EQ(count, 7);
  const int32_t expect[] = {4, 3, 4, 7, 6, 5, 4};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(words[i], expect[i]) << i;

  int32_t untouched = 99;
  EXPECT_EQ(oru_write_tensor_header_to_buffer(nullptr, &untouched, t.t), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_write_tensor_header_to_buffer(words, &untouched, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(untouched, 99);

  // Reading sets only the header fields; the derived ones keep their old values.
  oru_tensor r{};
  r.total_bytes = 1234;
  r.pitches[0] = 77;
  const int32_t in[] = {2, 6, 2, 9, 8};
  ASSERT_EQ(oru_read_tensor_header_from_buffer(&r, in), ORU_RET_OK);
  EXPECT_EQ(r.ndims, 2);
  EXPECT_EQ(r.type, 6u);
  EXPECT_EQ(r.channel_layout, 2u);
  EXPECT_EQ(r.dims[0], 9);
  EXPECT_EQ(r.dims[1], 8);
  EXPECT_EQ(r.total_bytes, 1234);
  EXPECT_EQ(r.pitches[0], 77u);
  EXPECT_EQ(oru_read_tensor_header_from_buffer(nullptr, in), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_read_tensor_header_from_buffer(&r, nullptr), ORU_RET_ERR_PARA);
  const int32_t bad[] = {9, 6, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1};
  EXPECT_EQ(oru_read_tensor_header_from_buffer(&r, bad), ORU_RET_ERR_PARA);
}

TEST(TensorFile, WriterProducesTheDocumentedBytesAndReaderRoundTrips) {
  const int32_t dims[] = {3, 2, 2};
  TensorPtr t(oru_create_tensor(3, dims, aif32));
  ASSERT_NE(t.t, nullptr);
  t->channel_layout = ORU_LAYOUT_NHWC;
  const auto values = oru_test::random_values<float>(12, -100, 100, 11);
  std::memcpy(t->data, values.data(), 48);
  const std::string path = oru_test::temp_path("t.tensor");
  ASSERT_EQ(oru_write_tensor_to_disk(path.c_str(), t.t), ORU_RET_OK);

  std::vector<uint8_t> data(48);
  std::memcpy(data.data(), values.data(), 48);
  EXPECT_EQ(oru_test::read_file(path), tensor_file({3, 2, 2}, 6, 2, data));

  TensorPtr back(oru_create_tensor_from_disk(path.c_str()));
  ASSERT_NE(back.t, nullptr);
  EXPECT_EQ(back->ndims, 3);
  EXPECT_EQ(back->type, 6u);
  EXPECT_EQ(back->channel_layout, 2u);
  EXPECT_EQ(back->total_bytes, 48);
  EXPECT_EQ(back->owns_data, 1u);
  for (int k = 0; k < 5; ++k) EXPECT_EQ(back->dims[k], t->dims[k]);
  EXPECT_EQ(std::memcmp(back->data, values.data(), 48), 0);
  std::remove(path.c_str());
}

TEST(TensorFile, MagicIsComparedOnItsFirstNineteenBytesOnly) {
  std::vector<uint8_t> data = {1, 2, 3, 4, 5, 6, 7, 8};
  const std::string path = oru_test::temp_path("m.tensor");
  auto bytes = tensor_file({2}, 6, 0, data);
  bytes[19] = 'x';
  bytes[31] = 0xFF;
  write_bytes(path, bytes);
  TensorPtr ok(oru_create_tensor_from_disk(path.c_str()));
  ASSERT_NE(ok.t, nullptr);
  EXPECT_EQ(std::memcmp(ok->data, data.data(), 8), 0);

  for (int pos : {0, 7, 17, 18}) {
    auto broken = tensor_file({2}, 6, 0, data);
    broken[pos] ^= 0x20;
    write_bytes(path, broken);
    testing::internal::CaptureStdout();
    EXPECT_EQ(oru_create_tensor_from_disk(path.c_str()), nullptr) << pos;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << pos;  // a mismatch is silent
  }
  std::remove(path.c_str());
}

TEST(TensorFile, ShortDataLoadsWhatIsThereWithAReport) {
  std::vector<uint8_t> data(40);
  for (size_t i = 0; i < data.size(); ++i) data[i] = uint8_t(i + 1);
  auto bytes = tensor_file({4, 4}, 6, 0, data);  // claims 64 bytes of data, holds 40
  const std::string path = oru_test::temp_path("short.tensor");
  write_bytes(path, bytes);
  testing::internal::CaptureStdout();
  TensorPtr t(oru_create_tensor_from_disk(path.c_str()));
  const std::string out = testing::internal::GetCapturedStdout();
  ASSERT_NE(t.t, nullptr);
  EXPECT_EQ(t->total_bytes, 64);
  EXPECT_EQ(std::memcmp(t->data, data.data(), 40), 0);
  EXPECT_EQ(out.rfind("Error occurred: Data length is not enough! \n", 0), 0u) << out;
  std::remove(path.c_str());
}

TEST(TensorFile, HostileHeadersAreRefusedWithoutAllocatingTheClaim) {
  const std::string path = oru_test::temp_path("hostile.tensor");
  const std::vector<uint8_t> some(16, 0xAA);
  struct Case {
    std::vector<uint8_t> bytes;
    int64_t max_allocations;  // the header record at most; never the claimed data
  };
  auto full = tensor_file({2, 2}, 6, 0, some);
  std::vector<Case> cases = {
      {tensor_file({4, -1}, 6, 0, some), 0},
      {tensor_file({1 << 20, 1 << 20}, 6, 0, some), 0},   // 2^40 elements
      {tensor_file({65536, 65536, 4}, 0, 0, some), 0},    // wraps in 32 bits
      {tensor_file({1 << 28}, 6, 0, some), 1},            // a gigabyte the file doesn't hold
      {tensor_file({1 << 27, 2}, 7, 0, some), 1},         // two gigabytes of doubles
      {tensor_file({4}, 32, 0, some), 0},                 // type out of range
      {tensor_file({1, 1, 1, 1, 1, 1}, 6, 0, some), 0},   // six dimensions
      {tensor_file({}, 6, 0, some), 0},                   // no dimensions
      {std::vector<uint8_t>(full.begin(), full.begin() + 40), 0},  // cut inside the words
      {std::vector<uint8_t>(full.begin(), full.begin() + 20), 0},  // cut inside the magic field
      {{}, 0},                                                      // empty file
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    write_bytes(path, cases[i].bytes);
    const int64_t before = oru_test::malloc_calls();
    testing::internal::CaptureStdout();
    oru_tensor *t = oru_create_tensor_from_disk(path.c_str());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(t, nullptr) << i;
    EXPECT_LE(oru_test::malloc_calls() - before, cases[i].max_allocations) << i;
    if (t) oru_release_tensor(&t);
  }
  std::remove(path.c_str());
}

TEST(TensorFile, WriteAndReadRefusals) {
  const int32_t dims[] = {2};
  TensorPtr t(oru_create_tensor(1, dims, aif32));
  ASSERT_NE(t.t, nullptr);
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_write_tensor_to_disk(nullptr, t.t), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_write_tensor_to_disk("x", nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_create_tensor_from_disk(nullptr), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_write_tensor_to_disk("/nonexistent-dir/x.tensor", t.t), ORU_RET_ERR_OPEN_FILE);
  EXPECT_EQ(oru_create_tensor_from_disk("/nonexistent-dir/x.tensor"), nullptr);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("Error occurred: Opening file errors! \n", 0), 0u) << out;
  EXPECT_NE(out.find("Opening file errors!", 10), std::string::npos);
}

}  // namespace
