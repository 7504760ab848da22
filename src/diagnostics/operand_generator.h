// The stress tester's operands: a fixed sequence, so that every word can be told again from its position.
//
//   32-bit word i = (x^3 * 0xC82B9175 - 933796325) mod 2^32,   x = 2760733047673 + offset + i
//
// Two of them make a 64-bit word, the one of even i below. The sequence of words has a period of 2^31.
#pragma once

#include "shell/types.h"

namespace kelvane {

// Word i of the sequence with this offset.
constexpr u32 generated_half(u64 offset, u64 i) {
  const u32 x = static_cast<u32>(2760733047673 + offset + i);
  return x * x * x * u32{0xC82B9175} - u32{933796325};
}
constexpr u64 generated_word(u64 offset, u64 i) {
  return u64{generated_half(offset, 2 * i + 1)} << 32 | generated_half(offset, 2 * i);
}

void generate_words(u64* words, u64 n, u64 offset);
// Whether the words are still those that generate_words wrote.
bool words_are_generated(const u64* words, u64 n, u64 offset);

} // namespace kelvane
