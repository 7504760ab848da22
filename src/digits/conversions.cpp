// Words to digits, sixteen digits in the bytes of one vector register at a time; digits to words, eight in
// one 64-bit register. See conversions.h.

#include "digits/conversions.h"

#include <emmintrin.h>

#include <array>
#include <cstring>

#include "shell/exception.h"

namespace kelvane::CVN {

namespace {

constexpr u64 TEN_8 = 100000000;
constexpr u64 TEN_16 = TEN_8 * TEN_8;

// The decimal digits of two numbers below 10^8, one in each half: 16 bytes, most significant digit lowest.
//
// Halving three times, all lanes at once, each quotient by one multiplication with a rounded-up
// reciprocal. floor(v * m / 2^s) = floor(v / d) while v * (m - 2^s / d) < 2^s / d:
//   v < 10^8, d = 10^4: m = 3518437209, s = 45: 10^8 * 0.12 < 3518437208.8
//   v < 10^4, d = 100:  m = 5243,       s = 19: 10^4 * 0.12 < 5242.88
//   v < 100,  d = 10:   m = 6554,       s = 16: 100 * 0.4 < 6553.6
// The higher part of a pair goes to the lower lane, since memory holds the first digit lowest.
inline __m128i sixteen_digits(__m128i x) {
  const __m128i thousands = _mm_srli_epi64(_mm_mul_epu32(x, _mm_set1_epi64x(3518437209)), 45);
  const __m128i rest = _mm_sub_epi64(x, _mm_mul_epu32(thousands, _mm_set1_epi64x(10000)));
  __m128i v = _mm_or_si128(thousands, _mm_slli_epi64(rest, 32));
  const __m128i hundreds = _mm_srli_epi16(_mm_mulhi_epu16(v, _mm_set1_epi16(5243)), 3);
  v = _mm_sub_epi16(v, _mm_mullo_epi16(hundreds, _mm_set1_epi16(100)));
  v = _mm_or_si128(hundreds, _mm_slli_epi32(v, 16));
  const __m128i tens = _mm_mulhi_epu16(v, _mm_set1_epi16(6554));
  v = _mm_sub_epi16(v, _mm_mullo_epi16(tens, _mm_set1_epi16(10)));
  return _mm_or_si128(tens, _mm_slli_epi16(v, 8));
}

// The three digits of 0..999 in the lowest bytes of a word. The table reaches as far as any word's quotient
// by 10^16, so that a damaged word gives wrong digits and nothing worse.
constexpr auto THREE_DIGITS = [] {
  std::array<u32, ~u64{0} / TEN_16 + 1> table{};
  for (u32 i = 0; i < table.size(); ++i) table[i] = i / 100 | i / 10 % 10 << 8 | i % 10 << 16;
  return table;
}();

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

// 19 digits of a word below 10^19, each with `zero` added: 0 for values, '0' for characters.
inline void put_decimal(char* out, u64 word, char zero) {
  const u64 top = word / TEN_16; // three digits
  const u64 rest = word - top * TEN_16;
  const u64 middle = rest / TEN_8;
  const __m128i halves = _mm_set_epi64x(static_cast<s64>(rest - middle * TEN_8), static_cast<s64>(middle));
  const u32 three = THREE_DIGITS[top] + static_cast<u32>(zero) * 0x010101;
  std::memcpy(out, &three, sizeof three); // one byte too many, which the next store replaces
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 3),
                   _mm_add_epi8(sixteen_digits(halves), _mm_set1_epi8(zero)));
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

// word(i) is the i-th word in the order of the digits.
template <class Word> void decimal_digits(char* out, u64 words, char zero, const Word& word) {
  for (u64 i = 0; i < words; ++i) put_decimal(out + i * DECIMAL_DIGITS, word(i), zero);
}
template <class Word> void hexadecimal_digits(char* out, u64 words, const Word& word) {
  for (u64 i = 0; i < words; ++i) put_hexadecimal(out + i * HEXADECIMAL_DIGITS, word(i));
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
  const auto word = [in](u64 i) { return in[i]; };
  digits_per_word(radix) == DECIMAL_DIGITS ? decimal_digits(out, words, 0, word)
                                           : hexadecimal_digits(out, words, word);
}

void u64_to_str(char* out, const u64* in, u64 words, int radix) {
  if (digits_per_word(radix) == DECIMAL_DIGITS)
    return decimal_digits(out, words, '0', [in](u64 i) { return in[i]; });
  // Blocks that stay in the nearest cache between the two passes.
  constexpr u64 BLOCK = 256;
  for (u64 start = 0; start < words; start += BLOCK) {
    const u64 n = words - start < BLOCK ? words - start : BLOCK;
    char* const block = out + start * HEXADECIMAL_DIGITS;
    u64_to_raw(block, in + start, n, radix);
    raw_to_str(block, block, n * HEXADECIMAL_DIGITS, radix);
  }
}

void raw_to_u64(u64* out, const char* in, u64 words, int radix) {
  const u64 per_word = digits_per_word(radix);
  for (u64 i = 0; i < words; ++i, in += per_word)
    out[i] = radix == 10 ? take_decimal(in)
                         : eight_nibbles_value(load(in)) << 32 | eight_nibbles_value(load(in + 8));
}

void cdi_to_raw(char* out, const u64* in, u64 words, int radix) {
  const auto word = [in, words](u64 i) { return in[words - 1 - i]; };
  digits_per_word(radix) == DECIMAL_DIGITS ? decimal_digits(out, words, 0, word)
                                           : hexadecimal_digits(out, words, word);
}

} // namespace kelvane::CVN
