#include <cstdio>
#include <string>

#include "multiply/table/km_MULv3.h"
#include "shell/console.h"

namespace kelvane::km_MULv3 {

namespace {

constexpr u64 DISPLAY_LIMIT = 18685845533793; // words
constexpr double LOG10_2 = 0.30102999566398119521;
constexpr u64 NUMBER_WIDTH = 20, NAME_WIDTH = 7;

std::string right(u64 value, u64 width) {
  const std::string digits = std::to_string(value);
  return std::string(digits.size() < width ? width - digits.size() : 0, ' ') + digits;
}

template <class Row>
std::string table_text(const Row* row, u64 rows, const char* label, double digits_per_word) {
  char number[64];
  std::snprintf(number, sizeof number, "%.15f", digits_per_word);
  std::string text = "Convolution Algorithm Table (";
  text += label;
  text += ")\n\nDecimal Digits/word: ";
  text += number;
  text += "\n\n   Maximum Convolution Length  (words/digits)  -  Algorithm\n";
  for (; rows > 0; rows--, row++) {
    const u64 length = row->max_length < DISPLAY_LIMIT ? row->max_length : DISPLAY_LIMIT;
    std::string name = row->algorithm->short_name();
    if (name.size() < NAME_WIDTH) name.resize(NAME_WIDTH, ' ');
    text += right(length, NUMBER_WIDTH);
    text += "  -  ";
    text += right(static_cast<u64>(static_cast<double>(length) * digits_per_word), NUMBER_WIDTH);
    text += "  -  ";
    text += name;
    text += '(';
    text += row->algorithm->description();
    text += ")\n";
  }
  text += '\n';
  return text;
}

} // namespace

std::string tables_text() {
  u64 rows;
  const Row32* const small = table32(&rows);
  std::string text = table_text(small, rows, "32-bit Word", 32 * LOG10_2);
  const Row64* const large = table64(&rows);
  text += table_text(large, rows, "64-bit Word", 64 * LOG10_2);
  return text;
}

void print_tables() {
  Console::print(tables_text());
}

} // namespace kelvane::km_MULv3
