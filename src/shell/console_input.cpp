// Input from standard input. See console.h.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <limits>

#include "shell/console.h"
#include "shell/exception.h"

namespace kelvane::Console {

namespace {

constexpr s64 END = -1;

// The next character's code, or END. A read error counts as the end: asking again would fail again.
s64 read_character() {
  if (std::fwide(stdin, 0) > 0) {
    const std::wint_t c = std::fgetwc(stdin);
    return c == WEOF ? END : static_cast<s64>(c);
  }
  const int c = std::fgetc(stdin);
  return c == EOF ? END : c;
}

[[noreturn]] void input_has_ended() {
  print("\n");
  print_colored("Standard input has ended and an answer is needed.\n", 'R');
  set_color_default();
  std::_Exit(1);
}

bool is_digit(s64 c) {
  return c >= '0' && c <= '9';
}

struct Number {
  u64 value = 0;
  bool ended = false; // the input ended before any character was read
};

// Reads decimal digits up to the first other character, which is consumed; the rest of the line stays.
Number read_number(const wchar_t* prompt) {
  Number number;
  print(prompt);
  set_color_teal(true);
  s64 c = read_character();
  number.ended = c == END;
  for (; is_digit(c); c = read_character()) number.value = number.value * 10 + static_cast<u64>(c - '0');
  set_color_white();
  return number;
}

} // namespace

void read_line(wchar_t* buffer, size_t capacity) {
  if (capacity == 0) return;
  buffer[0] = 0;
  if (capacity == 1) return;
  set_color_teal(true);

  // Narrow input is UTF-8 and is decoded when the line is complete.
  const bool wide = std::fwide(stdin, 0) > 0;
  std::wstring line;
  std::string bytes;
  const size_t limit = wide ? capacity : 4 * capacity;
  bool started = false;
  s64 c = read_character();
  for (; c != END; c = read_character()) {
    if (c <= 31) {
      if (started) break;
      continue; // a newline left over from an earlier prompt
    }
    started = true;
    if (line.size() + bytes.size() >= limit) continue;
    if (wide) {
      line.push_back(static_cast<wchar_t>(c));
    } else {
      bytes.push_back(static_cast<char>(c));
    }
  }
  if (!started) input_has_ended();
  if (!wide) line = path_to_wide(bytes);

  const size_t length = line.size() < capacity - 1 ? line.size() : capacity - 1;
  for (size_t i = 0; i < length; i++) buffer[i] = line[i];
  buffer[length] = 0;
  set_color_white();
}

u64 scan_u64(const wchar_t* prompt) {
  const Number number = read_number(prompt);
  if (number.ended) input_has_ended();
  return number.value;
}

u64 scan_u64_range(const wchar_t* prompt, u64 low, u64 high) {
  // Any answer ends a wait, the end of the input too.
  if (low == 0 && high == std::numeric_limits<u64>::max()) return read_number(prompt).value;
  for (;;) {
    const u64 value = scan_u64(prompt);
    if (value >= low && value <= high) return value;
  }
}

void wait_for_enter() {
  scan_u64_range(L"Press ENTER to continue . . .", 0, std::numeric_limits<u64>::max());
}

u64 scan_bytes() {
  wchar_t line[256];
  read_line(line, 256);
  return parse_bytes(line);
}

u64 parse_bytes(const wchar_t* p) {
  u64 whole = 0;
  for (; is_digit(*p); p++) whole = whole * 10 + static_cast<u64>(*p - L'0');
  double fraction = 0;
  if (*p == L'.' && is_digit(p[1])) {
    p++;
    for (double place = 0.1; is_digit(*p); p++, place *= 0.1) fraction += place * (*p - L'0');
  }
  while (*p == L' ') p++;

  int shift = 0;
  switch (*p) {
  case L'K':
  case L'k':
    shift = 10;
    break;
  case L'M':
  case L'm':
    shift = 20;
    break;
  case L'G':
  case L'g':
    shift = 30;
    break;
  case L'T':
  case L't':
    shift = 40;
    break;
  case L'P':
  case L'p':
    shift = 50;
    break;
  case L'E':
  case L'e':
    shift = 60;
    break;
  default:
    return whole; // without a unit the fraction is dropped
  }
  return (whole << shift) + static_cast<u64>(std::ceil(std::ldexp(fraction, shift)));
}

} // namespace kelvane::Console
