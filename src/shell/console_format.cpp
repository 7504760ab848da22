// Output of numbers, byte sizes and times. See console.h.

#include <cmath>
#include <cstdio>
#include <cwchar>

#include "shell/console.h"

namespace kelvane::Console {

namespace {

// Decimal digits of a 64-bit value with their separators, filled from the right: no allocation.
class DecimalField {
public:
  DecimalField(u64 value, bool negative, bool commas) {
    int digits = 0;
    do {
      if (commas && digits != 0 && digits % 3 == 0) put(',');
      put(static_cast<char>('0' + value % 10));
      value /= 10;
      digits++;
    } while (value != 0);
    if (negative) put('-');
  }
  const char* text() const { return buffer_ + position_; }
  u64 length() const { return SIZE - position_; }

private:
  static constexpr u64 SIZE = 32; // 20 digits, 6 separators, the sign
  void put(char c) { buffer_[--position_] = c; }
  char buffer_[SIZE + 1] = {};
  u64 position_ = SIZE;
};

constexpr u64 FIELD = 50; // widest field that is built in one piece

u64 print_right(const DecimalField& field, u64 width) {
  const u64 total = width > field.length() ? width : field.length();
  char line[FIELD + 1];
  for (u64 blanks = total - field.length(); blanks != 0;) {
    const u64 piece = blanks < FIELD ? blanks : FIELD;
    for (u64 i = 0; i < piece; i++) line[i] = ' ';
    line[piece] = 0;
    print(line);
    blanks -= piece;
  }
  print(field.text());
  return total;
}

u64 magnitude(s64 value) {
  return value < 0 ? u64{0} - static_cast<u64>(value) : static_cast<u64>(value);
}

const char* const UNITS[7] = {" bytes", " KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};
constexpr int ROUND_UP = 1;
constexpr int ROUND_SNAP = -1;

// v rounded up where a run of more than five one-bits, seen from the top, ends: 2^31 - 1 becomes 2^31.
u64 snap_to_round_value(u64 v) {
  int run = 0;
  for (int k = 63; k >= 0; k--) {
    if ((v >> k & 1) != 0) {
      run++;
    } else if (run > 5) {
      const u64 unit = u64{1} << k;
      return (v + unit - 1) / unit * unit;
    } else {
      run = 0;
    }
  }
  return run > 5 ? v + 1 : v;
}

std::string hundredths_text(u64 hundredths) {
  char text[32];
  std::snprintf(text, sizeof text, "%u.%02u", static_cast<unsigned>(hundredths / 100),
                static_cast<unsigned>(hundredths % 100));
  return text;
}

template <class... Arguments> void print_format(const char* format, Arguments... arguments) {
  char text[400]; // "%0.3f" of the largest double has 313 characters
  std::snprintf(text, sizeof text, format, arguments...);
  print(text);
}

} // namespace

u64 print_u64(u64 value) {
  return print_right(DecimalField(value, false, false), 0);
}
u64 print_s64(s64 value) {
  return print_right(DecimalField(magnitude(value), value < 0, false), 0);
}
u64 print_commas(u64 value, u64 width) {
  return print_right(DecimalField(value, false, true), width);
}
u64 print_aligned(u64 value, u64 width) {
  return print_right(DecimalField(value, false, false), width);
}
u64 print_aligned(s64 value, u64 width) {
  return print_right(DecimalField(magnitude(value), value < 0, false), width);
}

void print_fixed3(double x) {
  print_format("%0.3f", x);
}
void print_fixed10(double x) {
  print_format("%0.10f", x);
}
void print_general(double x) {
  print_format("%g", x);
}
void print_pointer(const void* p) {
  print_format("%p", p);
}

void print_hex_bytes(const u8* bytes) {
  static const char DIGITS[] = "0123456789abcdef";
  char text[65];
  for (int i = 0; i < 32; i++) {
    text[2 * i] = DIGITS[bytes[i] & 15];
    text[2 * i + 1] = DIGITS[bytes[i] >> 4];
  }
  text[64] = 0;
  print(text);
}

void print_bytes(u64 bytes, int rounding) {
  print(format_bytes(bytes, rounding));
}
void print_seconds(double seconds) {
  print(format_seconds(seconds));
}

std::string format_commas(u64 value, u64 width) {
  const DecimalField field(value, false, true);
  std::string text = field.text();
  if (text.size() < width) text.insert(0, width - text.size(), ' ');
  return text;
}

std::string format_seconds(double seconds) {
  char text[800];
  std::snprintf(text, sizeof text, "%0.3f seconds  ( %0.3f hours )", seconds, seconds / 3600.0);
  return text;
}

// Three significant figures in the smallest unit that keeps the integer part below 1000. All steps are exact
// integer arithmetic in thousandths, then hundredths, tenths and whole units, each rounded from the one
// before.
std::string format_bytes(u64 v, int rounding) {
  const bool up = rounding == ROUND_UP;
  if (v <= 999) return std::to_string(v) + UNITS[0];
  // Rounding up may reach the full unit ("1.00"), which two decimals behind "0." could not show.
  if (v <= 1023) return hundredths_text((v * 100 + (up ? 1023 : 0)) / 1024) + UNITS[1];

  u64 unit = 0;
  if (v >= 18446744073709552u) { // v * 1000 would overflow
    v = v / 1024 + (up && v % 1024 != 0 ? 1 : 0);
    unit = 1;
  }
  if (rounding == ROUND_SNAP) v = snap_to_round_value(v);

  u64 scale = 1024;
  unit++;
  while (v / 1000 >= scale) {
    scale *= 1024;
    unit++;
  }
  const auto next = [up](u64 x) { return (x + (up ? 9 : 0)) / 10; };
  const u64 whole = v * 1000 / scale + (up && v * 1000 % scale != 0 ? 1 : 0);
  const u64 hundredths = next(whole);
  if (hundredths <= 999) return hundredths_text(hundredths) + UNITS[unit];
  const u64 tenths = next(hundredths);
  if (tenths <= 999) return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + UNITS[unit];
  const u64 units = next(tenths);
  if (units <= 999) return std::string(" ") + std::to_string(units) + UNITS[unit];
  return std::string("0.98") + UNITS[unit + 1]; // 1000 units are 1000/1024 of the next
}

} // namespace kelvane::Console
