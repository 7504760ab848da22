// Words to digits, eight digits in the bytes of one 64-bit register at a time. See conversions.h.

#include "digits/conversions.h"

#include <cstring>

#include "shell/exception.h"

namespace kelvane::CVN {

namespace {

constexpr u64 TEN_8 = 100000000;
constexpr u64 TEN_16 = TEN_8 * TEN_8;

// The eight decimal digits of x < 10^8, most significant in the lowest byte.
//
// Halving three times, all lanes at once, each quotient by one multiplication with a rounded-up
// reciprocal. floor(v * m / 2^s) = floor(v / d) while v * (m - 2^s / d) < 2^s / d:
//   v < 10^4, d = 100:  m = 10486, s = 20: 10^4 * 0.24 < 10485.76, and 10^4 m < 2^32 (the lane)
//   v < 100,  d = 10:   m = 103,   s = 10: 100 * 0.6 < 102.4,      and 100 m < 2^16
// The mask removes the bits that the shift brings in from the lane above.
inline u64 eight_digits(u64 x) {
  const u64 high = x / 10000;
  u64 v = high | (x - high * 10000) << 32;
  const u64 hundreds = ((v * 10486) >> 20) & 0x0000007f0000007f;
  v = hundreds | (v - hundreds * 100) << 16;
  const u64 tens = ((v * 103) >> 10) & 0x000f000f000f000f;
  return tens | (v - tens * 10) << 8;
}

// The reverse: eight digit bytes to their value. Pairs, then quadruples, then all, each step one
// multiplication that adds 10^k times the more significant half to the other in the upper lane.
inline u64 eight_digits_value(u64 v) {
  v = v * 10 + (v >> 8); // even bytes: two digits
  return ((v & 0x000000ff000000ff) * (100 + (u64{1000000} << 32)) +
          ((v >> 16) & 0x000000ff000000ff) * (1 + (u64{10000} << 32))) >>
         32;
}

inline void store(char* out, u64 digits) {
  std::memcpy(out, &digits, sizeof digits);
}
inline u64 load(const char* in) {
  u64 digits;
  std::memcpy(&digits, in, sizeof digits);
  return digits;
}

inline void put_decimal(char* out, u64 word) {
  const u64 top = word / TEN_16; // three digits
  const u64 rest = word - top * TEN_16;
  const u64 middle = rest / TEN_8;
  out[0] = static_cast<char>(top / 100);
  out[1] = static_cast<char>(top / 10 % 10);
  out[2] = static_cast<char>(top % 10);
  store(out + 3, eight_digits(middle));
  store(out + 11, eight_digits(rest - middle * TEN_8));
}

// The eight nibbles of x < 2^32, one per byte, most significant in the lowest byte.
inline u64 eight_nibbles(u64 x) {
  x = (x | x << 16) & 0x0000ffff0000ffff;
  x = (x | x << 8) & 0x00ff00ff00ff00ff;
  x = (x | x << 4) & 0x0f0f0f0f0f0f0f0f;
  return __builtin_bswap64(x);
}

inline u64 eight_nibbles_value(u64 v) {
  v = __builtin_bswap64(v);
  v = (v | v >> 4) & 0x00ff00ff00ff00ff;
  v = (v | v >> 8) & 0x0000ffff0000ffff;
  return (v | v >> 16) & 0x00000000ffffffff;
}

inline void put_hexadecimal(char* out, u64 word) {
  store(out, eight_nibbles(word >> 32));
  store(out + 8, eight_nibbles(word & 0xffffffff));
}

inline u64 take_decimal(const char* in) {
  const u64 top = static_cast<u64>(in[0]) * 100 + static_cast<u64>(in[1]) * 10 + static_cast<u64>(in[2]);
  return (top * TEN_8 + eight_digits_value(load(in + 3))) * TEN_8 + eight_digits_value(load(in + 11));
}

// word(i) is the i-th word in the order of the digits. Two words per step keep two independent
// chains of multiplications in flight.
template <class Word> void words_to_raw(char* out, u64 words, int radix, const Word& word) {
  const u64 per_word = digits_per_word(radix);
  if (radix == 16) {
    for (u64 i = 0; i < words; ++i) put_hexadecimal(out + i * per_word, word(i));
    return;
  }
  u64 i = 0;
  for (; i + 2 <= words; i += 2, out += 2 * per_word) {
    put_decimal(out, word(i));
    put_decimal(out + per_word, word(i + 1));
  }
  if (i < words) put_decimal(out, word(i));
}

} // namespace

u64 digits_per_word(int radix) {
  if (radix == 10) return DECIMAL_DIGITS;
  if (radix == 16) return HEXADECIMAL_DIGITS;
  throw km_exception(ERROR_UNSUPPORTED_RADIX, "Unsupported Radix");
}

void raw_to_str(char* out, const char* in, u64 count, int radix) {
  if (digits_per_word(radix) == DECIMAL_DIGITS) {
    for (u64 i = 0; i < count; ++i) out[i] = static_cast<char>(in[i] + '0');
  } else {
    constexpr int LETTERS = 'a' - 10 - '0';
    for (u64 i = 0; i < count; ++i) out[i] = static_cast<char>(in[i] + '0' + (in[i] > 9 ? LETTERS : 0));
  }
}

u64 str_to_raw(char* out, const char* in, u64 count, int radix) {
  const bool letters = digits_per_word(radix) == HEXADECIMAL_DIGITS;
  // In blocks: the loop inside has no exit, so the compiler can run it in vectors.
  constexpr u64 BLOCK = 4096;
  for (u64 start = 0; start < count; start += BLOCK) {
    const u64 end = count - start < BLOCK ? count : start + BLOCK;
    char original[BLOCK]; // kept for the search below: out may be in
    std::memcpy(original, in + start, end - start);
    const auto value = [letters](char c) -> u8 {
      const u8 digit = static_cast<u8>(c - '0');
      const u8 letter = static_cast<u8>(c - 'a');
      const u8 letter_value = letters && letter < 6 ? static_cast<u8>(letter + 10) : u8{0xff};
      return digit < 10 ? digit : letter_value;
    };
    u8 bad = 0;
    for (u64 i = start; i < end; ++i) {
      const u8 v = value(original[i - start]);
      bad = static_cast<u8>(bad | (v & 0x80));
      out[i] = static_cast<char>(v);
    }
    if (bad == 0) continue;
    for (u64 i = start; i < end; ++i)
      if (value(original[i - start]) == 0xff) return i;
  }
  return count;
}

void u64_to_raw(char* out, const u64* in, u64 words, int radix) {
  words_to_raw(out, words, radix, [in](u64 i) { return in[i]; });
}

void u64_to_str(char* out, const u64* in, u64 words, int radix) {
  // Blocks that stay in the nearest cache between the two passes.
  constexpr u64 BLOCK = 256;
  const u64 per_word = digits_per_word(radix);
  for (u64 start = 0; start < words; start += BLOCK) {
    const u64 n = words - start < BLOCK ? words - start : BLOCK;
    char* const block = out + start * per_word;
    u64_to_raw(block, in + start, n, radix);
    raw_to_str(block, block, n * per_word, radix);
  }
}

void raw_to_u64(u64* out, const char* in, u64 words, int radix) {
  const u64 per_word = digits_per_word(radix);
  for (u64 i = 0; i < words; ++i, in += per_word)
    out[i] = radix == 10 ? take_decimal(in)
                         : eight_nibbles_value(load(in)) << 32 | eight_nibbles_value(load(in + 8));
}

void cdi_to_raw(char* out, const u64* in, u64 words, int radix) {
  words_to_raw(out, words, radix, [in, words](u64 i) { return in[words - 1 - i]; });
}

} // namespace kelvane::CVN
