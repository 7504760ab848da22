#include <cstdio>
#include <string>

#include "multiply/table/km_MULv3.h"
#include "shell/console.h"

namespace kelvane::km_MULv3 {

namespace {

constexpr u64 DISPLAY_LIMIT = 18685845533793;
constexpr double LOG10_2 = 0.30102999566398119521;

template <class Row> void print_table(const Row* row, u64 rows, const char* label, double digits_per_word) {
  char text[64];
  std::snprintf(text, sizeof text, "%.15f", digits_per_word);
  Console::print("Convolution Algorithm Table (");
  Console::print(label);
  Console::print(")\n\n");
  Console::print("Decimal Digits/word: ");
  Console::print(text);
  Console::print("\n\n");
  Console::print("   Maximum Convolution Length  (words/digits)  -  Algorithm\n");
  for (; rows > 0; rows--, row++) {
    const u64 length = row->max_length < DISPLAY_LIMIT ? row->max_length : DISPLAY_LIMIT;
    std::string name = row->algorithm->short_name();
    name.resize(name.size() < 7 ? 7 : name.size(), ' ');
    Console::print_aligned(length, 20);
    Console::print("  -  ");
    Console::print_aligned(static_cast<u64>(static_cast<double>(length) * digits_per_word), 20);
    Console::print("  -  ");
    Console::print(name);
    Console::print("(");
    Console::print(row->algorithm->description());
    Console::print(")\n");
  }
  Console::print("\n");
}

} // namespace

void print_tables() {
  u64 rows;
  const Row32* const small = table32(&rows);
  print_table(small, rows, "32-bit Word", 32 * LOG10_2);
  const Row64* const large = table64(&rows);
  print_table(large, rows, "64-bit Word", 64 * LOG10_2);
}

} // namespace kelvane::km_MULv3
