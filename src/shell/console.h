// All printing and reading of the program, on wide-oriented standard output
// and standard input. Every call flushes. Resting colour: bright white.
//
// Colour codes: B G P R T Y bright, b g p r t y normal, anything else white.
#pragma once

#include <string>

#include "shell/types.h"

namespace kelvane::Console {

// Restores the terminal's own colours.
inline constexpr char RESET_SEQUENCE[] = "\033[39;49m";

// Takes the encoding of the environment, UTF-8 where it names none. To be called before the first output.
void set_locale();

void print(const char* s);
void print(const wchar_t* s);
inline void print(const std::string& s) {
  print(s.c_str());
}
inline void print(const std::wstring& s) {
  print(s.c_str());
}

void set_color(char code);
void set_color_blue(bool bright);
void set_color_green(bool bright);
void set_color_purple(bool bright);
void set_color_red(bool bright);
void set_color_teal(bool bright);
void set_color_yellow(bool bright);
void set_color_white();
void set_color_default();

// Prints s in the colour `code`, then restores white.
void print_colored(const char* s, char code);
void print_colored(const std::string& s, char code);

// "label value\n": white label, value in colour, white, newline.
void println_labeled(const char* label, const char* value, char color);
void println_labeled(const char* label, u64 width, const char* value, char color); // label padded to width
void println_labeled(const char* label, u64 value, char color);
void println_labeled(const char* label, double value, const char* unit, char color);
void println_labeled(const char* label, s64 value, const char* unit, char color);

void print_yes_no(bool yes);
void print_pass_fail(bool pass);
u64 print_u64(u64 value); // all integer printers return the number of characters printed
u64 print_s64(s64 value);
u64 print_commas(u64 value, u64 width = 0);
u64 print_aligned(u64 value, u64 width);
u64 print_aligned(s64 value, u64 width);
void print_fixed3(double x);
void print_fixed10(double x);
void print_general(double x);
void print_pointer(const void* p);
void print_hex_bytes(const u8* bytes);         // 32 bytes, low nibble first
void print_bytes(u64 bytes, int rounding = 0); // rounding: 0 truncate, 1 up, -1 snap to a round binary value
void print_seconds(double seconds);
void print_title(const char* title); // rule, then the title in yellow

// The texts that the printers above produce, for tests and for text put together elsewhere.
std::string format_commas(u64 value, u64 width = 0);
std::string format_bytes(u64 bytes, int rounding = 0);
std::string format_seconds(double seconds);

// Input. Standard input that ends at a prompt which needs an answer prints a message and ends the
// program with status 1; at a wait for ENTER the end of input counts as ENTER.
// read_line: leading control characters are skipped, the next one ends the line; what exceeds the buffer is
// dropped.
void read_line(wchar_t* buffer, size_t capacity);
u64 scan_u64_range(const wchar_t* prompt, u64 low, u64 high);
u64 scan_u64(const wchar_t* prompt); // any number; unlike at a wait, the end of the input ends the program
void wait_for_enter();               // "Press ENTER to continue . . ."
u64 scan_bytes();
u64 parse_bytes(const wchar_t* line); // the grammar of scan_bytes

// Ctrl+C and termination requests restore the colours and the cursor's line and end with 128 + signal.
void install_signal_handlers();

} // namespace kelvane::Console
