// CVN: conversions between packed words, digit values and digit characters.
//
// A digit is "raw" (its value 0..15 in one byte) or a character ('0'..'9', 'a'..'f'). A packed word
// holds 19 decimal digits (a value below 10^19) or 16 hexadecimal digits; the first digit of the
// group is the most significant. Radix is 10 or 16 everywhere; any other raises "Unsupported Radix".
//
// A decimal word of 10^19 and more becomes bytes of no meaning.
//
// Cost: 0.1 to 0.2 ns per digit, each of them; no division, a table of three digits only.
// Baseline vectors suffice: a word's 16 lower digits fill one.
#pragma once

#include "shell/types.h"

namespace kelvane::CVN {

inline constexpr u64 DECIMAL_RADIX = 10000000000000000000u; // 10^19, the largest power of ten in a word
inline constexpr u64 DECIMAL_DIGITS = 19;
inline constexpr u64 HEXADECIMAL_DIGITS = 16;

u64 digits_per_word(int radix);

// Values to characters and back; in and out may be the same buffer.
void raw_to_str(char* out, const char* in, u64 count, int radix);
// Returns the position of the first character that is no digit of the radix, or count. Upper-case
// letters are no digits. On failure the contents of out are unspecified.
u64 str_to_raw(char* out, const char* in, u64 count, int radix);

// `words` packed words, in the order of the digits, to words * digits_per_word(radix) digits.
void u64_to_raw(char* out, const u64* in, u64 words, int radix);
void u64_to_str(char* out, const u64* in, u64 words, int radix);
// The reverse, from raw digits.
void raw_to_u64(u64* out, const char* in, u64 words, int radix);

// The words of a big number in radix 10^19 or 2^64, most significant word last, to raw digits from
// the most significant down.
void cdi_to_raw(char* out, const u64* in, u64 words, int radix);

} // namespace kelvane::CVN
