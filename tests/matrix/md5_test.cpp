// MD5 against the RFC 1321 test suite and against digests that md5sum computed for
// pseudo-random files (tests/oracles/md5_digests.py).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "oru_matrix.h"
#include "oru_test_util.h"

namespace {

std::string hex(const uint8_t d[16]) {
  char buf[33];
  for (int i = 0; i < 16; ++i) std::snprintf(buf + 2 * i, 3, "%02x", d[i]);
  return buf;
}

std::string one_shot(const void *data, int64_t size) {
  uint8_t d[16];
  EXPECT_EQ(oru_hash_md5_sum(d, data, size), ORU_RET_OK);
  return hex(d);
}

std::string in_pieces(const std::vector<uint8_t> &data, size_t piece) {
  oru_hash_md5_context *ctx = oru_create_hash_md5_context();
  EXPECT_NE(ctx, nullptr);
  for (size_t at = 0; at < data.size(); at += piece) {
    const size_t n = std::min(piece, data.size() - at);
    EXPECT_EQ(oru_hash_md5_update(ctx, data.data() + at, int32_t(n)), ORU_RET_OK);
  }
  uint8_t d[16];
  EXPECT_EQ(oru_hash_md5_final(ctx, d), ORU_RET_OK);
  EXPECT_EQ(oru_release_hash_md5_context(&ctx), ORU_RET_OK);
  return hex(d);
}

// The bytes the oracle script hashed: std::mt19937 draws, four little-endian bytes each.
std::vector<uint8_t> oracle_bytes(uint32_t seed, size_t size) {
  std::mt19937 gen(seed);
  std::vector<uint8_t> bytes((size + 3) / 4 * 4);
  for (size_t i = 0; i < bytes.size(); i += 4) {
    const uint32_t w = gen();
    for (int k = 0; k < 4; ++k) bytes[i + size_t(k)] = uint8_t(w >> (8 * k));
  }
  bytes.resize(size);
  return bytes;
}

TEST(Md5, Rfc1321TestSuite) {
  const std::pair<const char *, const char *> suite[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"}};
  for (const auto &[text, digest] : suite) {
    EXPECT_EQ(one_shot(text, int64_t(std::strlen(text))), digest) << '"' << text << '"';
    const std::vector<uint8_t> bytes(text, text + std::strlen(text));
    for (size_t piece : {1, 7, 64}) EXPECT_EQ(in_pieces(bytes, piece), digest) << text << " in pieces of " << piece;
  }
}

TEST(Md5, AgreesWithMd5sumOnPseudoRandomFiles) {
  std::ifstream table(oru_test::data_path("matrix/md5_digests.txt"));
  ASSERT_TRUE(table) << "missing md5 digest table";
  std::string line;
  int files = 0;
  while (std::getline(table, line)) {
    std::istringstream in(line);
    uint32_t seed;
    size_t size;
    std::string digest;
    ASSERT_TRUE(in >> seed >> size >> digest) << line;
    const auto bytes = oracle_bytes(seed, size);
    // An empty vector has no data pointer, and a null pointer is refused.
    const void *data = bytes.empty() ? static_cast<const void *>("") : bytes.data();
    EXPECT_EQ(one_shot(data, int64_t(bytes.size())), digest) << size << " bytes";
    for (size_t piece : {size_t(1), size_t(7), size_t(64), size_t(1000)}) {
      if (piece == 1 && size > 100000) continue;
      EXPECT_EQ(in_pieces(bytes, piece), digest) << size << " bytes in pieces of " << piece;
    }
    ++files;
  }
  EXPECT_GE(files, 17);
}

TEST(Md5, PiecesOfRandomLengthsGiveTheSameDigest) {
  const auto bytes = oracle_bytes(99, 5000);
  const std::string whole = one_shot(bytes.data(), int64_t(bytes.size()));
  std::mt19937 gen(3);
  oru_hash_md5_context *ctx = oru_create_hash_md5_context();
  size_t at = 0;
  while (at < bytes.size()) {
    const size_t n = std::min(size_t(gen() % 150), bytes.size() - at);
    ASSERT_EQ(oru_hash_md5_update(ctx, bytes.data() + at, int32_t(n)), ORU_RET_OK);
    at += n;
  }
  uint8_t d[16];
  ASSERT_EQ(oru_hash_md5_final(ctx, d), ORU_RET_OK);
  EXPECT_EQ(hex(d), whole);
  EXPECT_EQ(ctx->length, 5000u);
  oru_release_hash_md5_context(&ctx);
}

TEST(Md5, ArgumentsAndSizes) {
  const char text[] = "abc";
  uint8_t d[16];
  EXPECT_EQ(one_shot(text, 0), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(one_shot(text, -5), "d41d8cd98f00b204e9800998ecf8427e");
  // Only the low 32 bits of the size count.
  EXPECT_EQ(one_shot(text, (int64_t(1) << 32) + 3), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(oru_hash_md5_sum(d, nullptr, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_hash_md5_sum(nullptr, text, 3), ORU_RET_ERR_PARA);

  oru_hash_md5_context *ctx = oru_create_hash_md5_context();
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->length, 0u);
  EXPECT_EQ(ctx->fill, 0u);
  EXPECT_EQ(ctx->state[0], 0x67452301u);
  EXPECT_EQ(oru_hash_md5_update(nullptr, text, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_hash_md5_update(ctx, nullptr, 3), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_hash_md5_update(ctx, text, -1), ORU_RET_OK);
  EXPECT_EQ(oru_hash_md5_update(ctx, text, 3), ORU_RET_OK);
  EXPECT_EQ(ctx->fill, 3u);
  EXPECT_EQ(oru_hash_md5_final(ctx, nullptr), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_hash_md5_final(ctx, d), ORU_RET_OK);
  EXPECT_EQ(hex(d), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(oru_release_hash_md5_context(&ctx), ORU_RET_OK);
  EXPECT_EQ(ctx, nullptr);
  EXPECT_EQ(oru_release_hash_md5_context(&ctx), ORU_RET_ERR_PARA);
  EXPECT_EQ(oru_release_hash_md5_context(nullptr), ORU_RET_ERR_PARA);
}

}  // namespace
