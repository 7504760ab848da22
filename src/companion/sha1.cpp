// See sha1.h.

#include "companion/sha1.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include "shell/cpu_features.h"

namespace kelvane::companion {

namespace {

constexpr u64 BLOCK = 64;
constexpr u64 LENGTH_BYTES = 8; // of the message length at its end
constexpr u32 START[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};

u32 big_endian(const u8* p) {
  u32 x;
  std::memcpy(&x, p, sizeof x);
  return __builtin_bswap32(x);
}

// One block. The message schedule is kept as a ring of 16 words: w_t = rotl(w_{t-3} ^ w_{t-8} ^ w_{t-14} ^
// w_{t-16}).
void block(u32* state, const u8* data) {
  u32 w[16];
  for (u32 t = 0; t < 16; ++t) w[t] = big_endian(data + 4 * t);
  u32 a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
  const auto round = [&](u32 t, u32 f, u32 k) {
    if (t >= 16) w[t & 15] = std::rotl(w[(t + 13) & 15] ^ w[(t + 8) & 15] ^ w[(t + 2) & 15] ^ w[t & 15], 1);
    const u32 next = std::rotl(a, 5) + f + e + k + w[t & 15];
    e = d;
    d = c;
    c = std::rotl(b, 30);
    b = a;
    a = next;
  };
  // Unrolled, the ring and the five variables are registers under changing names.
#pragma GCC unroll 20
  for (u32 t = 0; t < 20; ++t) round(t, d ^ (b & (c ^ d)), 0x5a827999);
#pragma GCC unroll 20
  for (u32 t = 20; t < 40; ++t) round(t, b ^ c ^ d, 0x6ed9eba1);
#pragma GCC unroll 20
  for (u32 t = 40; t < 60; ++t) round(t, (b & c) | (d & (b | c)), 0x8f1bbcdc);
#pragma GCC unroll 20
  for (u32 t = 60; t < 80; ++t) round(t, b ^ c ^ d, 0xca62c1d6);
  const u32 sums[5] = {a, b, c, d, e};
  for (int i = 0; i < 5; ++i) state[i] += sums[i];
}

} // namespace

void Sha1::blocks_portable(u32* state, const u8* data, u64 blocks) {
  for (; blocks > 0; --blocks, data += BLOCK) block(state, data);
}

bool Sha1::has_instructions() {
  CpuFeatures features;
  detect_cpu_features(features);
  return features.SHA && features.SSSE3 && features.SSE41;
}

Sha1::Sha1() : blocks_(has_instructions() ? blocks_sha : blocks_portable) {
  std::copy(START, START + 5, state_);
}

void Sha1::add(const void* data, u64 bytes) {
  const u8* p = static_cast<const u8*>(data);
  const u64 pending = bytes_ % BLOCK;
  bytes_ += bytes;
  if (pending != 0) {
    const u64 n = std::min(BLOCK - pending, bytes);
    std::memcpy(partial_ + pending, p, n);
    p += n;
    bytes -= n;
    if (pending + n < BLOCK) return;
    blocks_(state_, partial_, 1);
  }
  blocks_(state_, p, bytes / BLOCK);
  if (bytes % BLOCK != 0) std::memcpy(partial_, p + bytes / BLOCK * BLOCK, bytes % BLOCK);
}

std::string Sha1::finish() {
  const u64 bits = __builtin_bswap64(8 * bytes_);
  const u64 pending = bytes_ % BLOCK;
  u8 end[2 * BLOCK] = {0x80};
  const u64 zeros = (2 * BLOCK - 1 - LENGTH_BYTES - pending) % BLOCK;
  std::memcpy(end + 1 + zeros, &bits, LENGTH_BYTES);
  add(end, 1 + zeros + LENGTH_BYTES);
  char text[41];
  std::snprintf(text, sizeof text, "%08x%08x%08x%08x%08x", state_[0], state_[1], state_[2], state_[3],
                state_[4]);
  return text;
}

} // namespace kelvane::companion
