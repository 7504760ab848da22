// See operand_generator.h.

#include "diagnostics/operand_generator.h"

namespace kelvane {

void generate_words(u64* words, u64 n, u64 offset) {
  for (u64 i = 0; i < n; i++) words[i] = generated_word(offset, i);
}

bool words_are_generated(const u64* words, u64 n, u64 offset) {
  u64 difference = 0;
  for (u64 i = 0; i < n; i++) difference |= words[i] ^ generated_word(offset, i);
  return difference == 0;
}

} // namespace kelvane
