// Output: characters, colours and labelled lines. See console.h.

#include "shell/console.h"

#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <langinfo.h>

namespace kelvane::Console {

namespace {

// One character on a wide-oriented stream. A character that the terminal's encoding lacks must not reach the
// stream: it would stay in the stream's buffer and make every later flush fail.
void put_wide(wchar_t c) {
  if (c > 127) {
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    if (std::wcrtomb(bytes, c, &state) == static_cast<size_t>(-1)) c = L'?';
  }
  std::fputwc(c, stdout);
}

template <class Char> void put_string(const Char* s) {
  if (std::fwide(stdout, 0) > 0) {
    for (; *s != 0; s++) {
      if constexpr (sizeof(Char) == 1) {
        put_wide(static_cast<wchar_t>(static_cast<unsigned char>(*s)));
      } else {
        put_wide(*s);
      }
    }
  } else {
    for (; *s != 0; s++) std::fputc(static_cast<unsigned char>(*s), stdout);
  }
  std::fflush(stdout);
}

void select_color(int color, bool bright) {
  char sequence[16];
  std::snprintf(sequence, sizeof sequence, "\033[%s;%dm", bright ? "01" : "22", color);
  print(sequence);
}

} // namespace

void set_locale() {
  // The encoding of the terminal and of file names is taken to be UTF-8; an environment that says nothing
  // (the plain "C" locale) would otherwise turn every letter outside ASCII into a question mark.
  const char* name = std::setlocale(LC_CTYPE, "");
  if (name == nullptr || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
  }
}

void print(const char* s) {
  put_string(s);
}
void print(const wchar_t* s) {
  put_string(s);
}

void set_color_red(bool bright) {
  select_color(31, bright);
}
void set_color_green(bool bright) {
  select_color(32, bright);
}
void set_color_yellow(bool bright) {
  select_color(33, bright);
}
void set_color_blue(bool bright) {
  select_color(34, bright);
}
void set_color_purple(bool bright) {
  select_color(35, bright);
}
void set_color_teal(bool bright) {
  select_color(36, bright);
}
void set_color_white() {
  select_color(37, true);
}
void set_color_default() {
  print(RESET_SEQUENCE);
}

void set_color(char code) {
  switch (code) {
  case 'B':
    return set_color_blue(true);
  case 'b':
    return set_color_blue(false);
  case 'G':
    return set_color_green(true);
  case 'g':
    return set_color_green(false);
  case 'P':
    return set_color_purple(true);
  case 'p':
    return set_color_purple(false);
  case 'R':
    return set_color_red(true);
  case 'r':
    return set_color_red(false);
  case 'T':
    return set_color_teal(true);
  case 't':
    return set_color_teal(false);
  case 'Y':
    return set_color_yellow(true);
  case 'y':
    return set_color_yellow(false);
  default:
    return set_color_white();
  }
}

void print_colored(const char* s, char code) {
  set_color(code);
  print(s);
  set_color_white();
}

void print_colored(const std::string& s, char code) {
  print_colored(s.c_str(), code);
}

void println_labeled(const char* label, const char* value, char color) {
  set_color_white();
  print(label);
  print_colored(value, color);
  print("\n");
}

void println_labeled(const char* label, u64 width, const char* value, char color) {
  std::string padded = label;
  if (padded.size() < width) padded.resize(width, ' ');
  println_labeled(padded.c_str(), value, color);
}

void println_labeled(const char* label, u64 value, char color) {
  println_labeled(label, std::to_string(value).c_str(), color);
}

void println_labeled(const char* label, double value, const char* unit, char color) {
  char number[64];
  std::snprintf(number, sizeof number, "%g ", value);
  println_labeled(label, (std::string(number) + unit).c_str(), color);
}

void println_labeled(const char* label, s64 value, const char* unit, char color) {
  println_labeled(label, (std::to_string(value) + " " + unit).c_str(), color);
}

void print_yes_no(bool yes) {
  print_colored(yes ? "Yes" : "No", yes ? 'G' : 'R');
  print("\n");
}

void print_pass_fail(bool pass) {
  print_colored(pass ? "Pass\n" : "Fail\n", pass ? 'G' : 'R');
}

void print_title(const char* title) {
  set_color_teal(true);
  print(std::string(64, '=') + "\n");
  set_color_yellow(true);
  print(title);
  set_color_white();
}

} // namespace kelvane::Console
