// The weight loader against files whose digests come from an independent MD5 (hashlib).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "oru_cg.h"
#include "oru_test_util.h"

namespace {

std::vector<uint8_t> good_file() { return oru_test::read_file(oru_test::data_path("ops/model_100.bin")); }

std::string write_temp(const std::string &name, const std::vector<uint8_t> &bytes) {
  const std::string path = oru_test::temp_path(name);
  FILE *f = std::fopen(path.c_str(), "wb");
  if (f) {
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  return path;
}

// Loads with a buffer one word longer than asked, so a write past the words shows.
uint32_t load(std::vector<uint32_t> &buf, int32_t count, const std::string &path, std::string *printed) {
  buf.assign(size_t(count) + 1, 0xDEADBEEFu);
  testing::internal::CaptureStdout();
  const uint32_t st = oru_cg_load_model(buf.data(), count, path.c_str());
  *printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(buf[size_t(count)], 0xDEADBEEFu) << "wrote past the words";
  return st;
}

std::vector<uint32_t> words_of(const std::vector<uint8_t> &file, size_t n) {
  std::vector<uint32_t> w(n);
  std::memcpy(w.data(), file.data(), std::min(file.size(), n * 4));
  return w;
}

TEST(ModelLoader, CorrectDigestLoadsTheWords) {
  const auto file = good_file();
  ASSERT_EQ(file.size(), 416u);
  std::vector<uint32_t> buf;
  std::string printed;
  EXPECT_EQ(load(buf, 100, oru_test::data_path("ops/model_100.bin"), &printed), 0u);
  EXPECT_TRUE(printed.empty());
  buf.pop_back();
  EXPECT_EQ(buf, words_of(file, 100));
  // Bytes behind the digest are ignored.
  EXPECT_EQ(load(buf, 100, oru_test::data_path("ops/model_100_tail.bin"), &printed), 0u);
}

TEST(ModelLoader, EveryCorruptionIsStatusOneWithTheBufferAsRead) {
  const auto file = good_file();
  std::vector<uint32_t> buf;
  std::string printed;
  // One flipped bit in the weights, then one in the digest before its first zero byte.
  ASSERT_EQ(file[407], 0u) << "the reference digest has a zero at byte 7";
  for (size_t byte : {size_t(0), size_t(217), size_t(399), size_t(400), size_t(406)}) {
    auto bad = file;
    bad[byte] ^= 0x10;
    const std::string path = write_temp("flip" + std::to_string(byte) + ".bin", bad);
    EXPECT_EQ(load(buf, 100, path, &printed), 1u) << byte;
    EXPECT_TRUE(printed.empty());
    buf.pop_back();
    EXPECT_EQ(buf, words_of(bad, 100)) << "the buffer keeps what was read";
  }
  // Fewer words than asked for.
  const std::string cut = write_temp("cut.bin", std::vector<uint8_t>(file.begin(), file.begin() + 300));
  EXPECT_EQ(load(buf, 100, cut, &printed), 1u);
  EXPECT_TRUE(printed.empty());
  // A digest cut short.
  const std::string short_digest = write_temp("short.bin", std::vector<uint8_t>(file.begin(), file.begin() + 404));
  EXPECT_EQ(load(buf, 100, short_digest, &printed), 1u);
  // Fewer words asked than stored: the digest is read from the middle of the weights.
  EXPECT_EQ(load(buf, 60, oru_test::data_path("ops/model_100.bin"), &printed), 1u);
  EXPECT_TRUE(printed.empty());
  buf.pop_back();
  EXPECT_EQ(buf, words_of(file, 60));
}

// The digests compare like bounded strings: a zero byte common to both ends the comparison,
// so what lies behind byte 7 of this digest is never looked at.
TEST(ModelLoader, DigestComparisonStopsAtACommonZeroByte) {
  const auto file = good_file();
  std::vector<uint32_t> buf;
  std::string printed;
  auto bad = file;
  bad[415] ^= 0xFF;
  EXPECT_EQ(load(buf, 100, write_temp("tail_flip.bin", bad), &printed), 0u);
  const std::string cut = write_temp("cut_after_zero.bin", std::vector<uint8_t>(file.begin(), file.begin() + 410));
  EXPECT_EQ(load(buf, 100, cut, &printed), 0u);
}

TEST(ModelLoader, RefusesBadArguments) {
  std::vector<uint32_t> buf(4);
  const std::string path = oru_test::data_path("ops/model_100.bin");
  testing::internal::CaptureStdout();
  EXPECT_EQ(oru_cg_load_model(nullptr, 4, path.c_str()), 1u);
  EXPECT_EQ(oru_cg_load_model(buf.data(), 4, nullptr), 1u);
  EXPECT_EQ(oru_cg_load_model(buf.data(), -1, path.c_str()), 1u);
  EXPECT_EQ(oru_cg_load_model(buf.data(), 4, oru_test::temp_path("no_such_file.bin").c_str()), 1u);
  EXPECT_TRUE(testing::internal::GetCapturedStdout().empty());
}

}  // namespace
