// The exact integer with residue: little-endian words and the value modulo 2^61 - 1.
//
// An object owns no memory: its buffer of AL words is handed to it. A normalised
// integer has a non-zero top word. Sums and differences carry the residue along,
// computed from the operands' residues and never from the words.
#pragma once

#include "shell/types.h"

namespace kelvane {

struct HashedInteger {
  u64* words = nullptr;
  u64 L = 0;    // words in use
  u64 AL = 0;   // words allocated, L <= AL
  u64 hash = 0; // value modulo 2^61 - 1

  void attach(u64* buffer, u64 allocated) {
    words = buffer;
    AL = allocated;
    L = 0;
    hash = 0;
  }
  // This = x, one word long. Needs AL >= 1.
  void set_word(u64 x);
  // This += B. Needs AL > L and L >= B.L, else an assertion failure.
  void add_in_place(const HashedInteger& B);
  // This -= B. Needs AL > L, L >= B.L and this > B, else an assertion failure (zero is not allowed).
  void sub_in_place(const HashedInteger& B);
  void dump() const;
};

// Prints `n` words, least significant first, between blanks; "{}" when there are none.
void dump_words(const u64* words, u64 n);

} // namespace kelvane
