#include "arithmetic/hashed_integer.h"

#include "arithmetic/words/add.h"
#include "arithmetic/words/residue.h"
#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane {

void HashedInteger::set_word(u64 x) {
  words[0] = x;
  L = 1;
  hash = residue::reduce(x);
}

void HashedInteger::add_in_place(const HashedInteger& B) {
  if (AL <= L || L < B.L)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"HashedInteger::add_in_place()",
                L"Operand lengths do not fit.");
  words[L] = 0; // guard: the carry always dies here
  words::add_propagate(words, B.words, B.L);
  L += words[L] != 0;
  hash = residue::add(hash, B.hash);
}

void HashedInteger::sub_in_place(const HashedInteger& B) {
  if (AL <= L || L < B.L)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"HashedInteger::sub_in_place()",
                L"Operand lengths do not fit.");
  words[L] = 1; // guard: a borrow that reaches it means a negative difference
  words::sub_propagate(words, B.words, B.L);
  if (words[L] != 1)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"HashedInteger::sub_in_place()",
                L"The difference is negative.");
  L = words::normalized_length(words, L);
  if (L == 0)
    assert_fail(INVALID_FUNCTION_PARAMETERS, L"HashedInteger::sub_in_place()", L"The difference is zero.");
  hash = residue::sub(hash, B.hash);
}

void dump_words(const u64* words, u64 n) {
  if (n == 0) Console::print("{}");
  for (u64 i = 0; i < n; i++) {
    Console::print(" ");
    Console::print_u64(words[i]);
  }
  Console::print("\n");
}

void HashedInteger::dump() const {
  Console::print("L =    ");
  Console::print_u64(L);
  Console::print("\nAL =   ");
  Console::print_u64(AL);
  Console::print("\nhash = ");
  Console::print_u64(hash);
  Console::print("\n");
  dump_words(words, L);
}

} // namespace kelvane
