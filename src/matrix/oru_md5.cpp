// MD5 digests (RFC 1321), incremental and one-shot.
#include "matrix/oru_md5.h"

#include <cstring>

#include "core/oru_scratch.h"
#include "oru_matrix.h"

namespace oru {
namespace {

// Shift amounts S, message-word order K of rounds two to four, sine table T.
constexpr int S[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
constexpr uint8_t K[48] = {1, 6, 11, 0, 5, 10, 15, 4, 9, 14, 3, 8, 13, 2, 7, 12,
                           5, 8, 11, 14, 1, 4, 7, 10, 13, 0, 3, 6, 9, 12, 15, 2,
                           0, 7, 14, 5, 12, 3, 10, 1, 8, 15, 6, 13, 4, 11, 2, 9};
constexpr uint32_t T[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr uint32_t rotl(uint32_t x, int s) { return (x << s) | (x >> (32 - s)); }

inline uint32_t load_le(const uint8_t *p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

struct F { static uint32_t f(uint32_t x, uint32_t y, uint32_t z) { return z ^ (x & (y ^ z)); } };
// (x & z) | (y & ~z): the two parts share no bit, so an addition joins them, and the
// part without x can start before x is known.
struct G { static uint32_t f(uint32_t x, uint32_t y, uint32_t z) { return (y & ~z) + (x & z); } };
struct H { static uint32_t f(uint32_t x, uint32_t y, uint32_t z) { return x ^ y ^ z; } };
struct I { static uint32_t f(uint32_t x, uint32_t y, uint32_t z) { return y ^ (x | ~z); } };

// Step i of round R: a = b + rotl(a + f(b, c, d) + x[word] + T[i], s). The whole
// round unrolls at compile time, so the tables above become immediates.
template <typename Fn, int Round, int Step>
inline void step(uint32_t &a, uint32_t b, uint32_t c, uint32_t d, const uint32_t *x) {
  constexpr int i = Round * 16 + Step;
  constexpr int word = Round == 0 ? Step : K[i - 16];
  // The message word and constant join a first, off the chain through b.
  a = b + rotl(a + (x[word] + T[i]) + Fn::f(b, c, d), S[Round][Step & 3]);
}

template <typename Fn, int Round, int Step = 0>
inline void round_steps(uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d, const uint32_t *x) {
  if constexpr (Step < 16) {
    step<Fn, Round, Step>(a, b, c, d, x);
    step<Fn, Round, Step + 1>(d, a, b, c, x);
    step<Fn, Round, Step + 2>(c, d, a, b, x);
    step<Fn, Round, Step + 3>(b, c, d, a, x);
    round_steps<Fn, Round, Step + 4>(a, b, c, d, x);
  }
}

void absorb(oru_hash_md5_context *ctx, const uint8_t *p, uint32_t n) {
  ctx->length += n;
  if (ctx->fill) {
    const uint32_t take = n < 64 - ctx->fill ? n : 64 - ctx->fill;
    std::memcpy(ctx->block + ctx->fill, p, take);
    ctx->fill += take;
    p += take;
    n -= take;
    if (ctx->fill < 64) return;
    permute(ctx->state, ctx->block);
    ctx->fill = 0;
  }
  // Whole blocks straight from the caller's bytes.
  for (; n >= 64; n -= 64, p += 64) permute(ctx->state, p);
  std::memcpy(ctx->block, p, n);
  ctx->fill = n;
}

void init(oru_hash_md5_context *ctx) {
  ctx->length = 0;
  ctx->fill = 0;
  ctx->state[0] = 0x67452301u;
  ctx->state[1] = 0xefcdab89u;
  ctx->state[2] = 0x98badcfeu;
  ctx->state[3] = 0x10325476u;
}

}  // namespace

void permute(uint32_t state[4], const uint8_t block[64]) {
  uint32_t x[16];
  for (int i = 0; i < 16; ++i) x[i] = load_le(block + 4 * i);
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  round_steps<F, 0>(a, b, c, d, x);
  round_steps<G, 1>(a, b, c, d, x);
  round_steps<H, 2>(a, b, c, d, x);
  round_steps<I, 3>(a, b, c, d, x);
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

}  // namespace oru

extern "C" {

ORU_API oru_hash_md5_context *oru_create_hash_md5_context(void) {
  auto *ctx = static_cast<oru_hash_md5_context *>(oru_malloc(sizeof(oru_hash_md5_context)));
  if (ctx) oru::init(ctx);
  return ctx;
}

ORU_API uint32_t oru_hash_md5_update(oru_hash_md5_context *context, const void *data, int32_t size) {
  if (!context || !data) return ORU_RET_ERR_PARA;
  if (size > 0) oru::absorb(context, static_cast<const uint8_t *>(data), uint32_t(size));
  return ORU_RET_OK;
}

ORU_API uint32_t oru_hash_md5_final(oru_hash_md5_context *context, uint8_t *digest) {
  if (!context || !digest) return ORU_RET_ERR_PARA;
  const uint64_t bits = uint64_t(context->length) * 8u;
  uint8_t *block = context->block;
  uint32_t fill = context->fill;
  block[fill++] = 0x80;
  if (fill > 56) {
    std::memset(block + fill, 0, 64 - fill);
    oru::permute(context->state, block);
    fill = 0;
  }
  std::memset(block + fill, 0, 56 - fill);
  for (int i = 0; i < 8; ++i) block[56 + i] = uint8_t(bits >> (8 * i));
  oru::permute(context->state, block);
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 4; ++k) digest[4 * i + k] = uint8_t(context->state[i] >> (8 * k));
  return ORU_RET_OK;
}

ORU_API uint32_t oru_release_hash_md5_context(oru_hash_md5_context **context) {
  if (!context || !*context) return ORU_RET_ERR_PARA;
  oru_free(*context);
  *context = nullptr;
  return ORU_RET_OK;
}

ORU_API uint32_t oru_hash_md5_sum(uint8_t *digest, const void *data, int64_t size) {
  if (!digest || !data) return ORU_RET_ERR_PARA;
  oru::Guard<oru_hash_md5_context, oru_release_hash_md5_context> ctx(oru_create_hash_md5_context());
  if (!ctx.get()) return ORU_RET_ERR_MEMORY;
  oru_hash_md5_update(ctx.get(), data, int32_t(uint32_t(uint64_t(size))));
  return oru_hash_md5_final(ctx.get(), digest);
}

}  // extern "C"
