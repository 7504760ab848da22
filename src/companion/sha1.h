// SHA-1 (FIPS 180-4): the sum by which digit files are compared with published ones. Not for secrets.
#pragma once

#include <string>

#include "shell/types.h"

namespace kelvane::companion {

class Sha1 {
public:
  Sha1();
  void add(const void* data, u64 bytes);
  // 40 hexadecimal characters. The object is used up.
  std::string finish();

  // Adds whole blocks of 64 bytes to a state: the portable form, and one with the processor's SHA
  // instructions (about twice as fast), which may run only when has_instructions() says so.
  static void blocks_portable(u32* state, const u8* data, u64 blocks);
  static void blocks_sha(u32* state, const u8* data, u64 blocks);
  static bool has_instructions();

private:
  void (*blocks_)(u32*, const u8*, u64);
  u32 state_[5];
  u8 partial_[64];
  u64 bytes_ = 0;
};

} // namespace kelvane::companion
