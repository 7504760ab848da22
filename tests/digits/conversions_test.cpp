// Words to digits and back, against the C library's formatting.

#include "digits/conversions.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "shell/exception.h"

namespace kelvane {
namespace {

std::string formatted(u64 word, int radix) {
  char text[32];
  std::snprintf(text, sizeof text, radix == 10 ? "%019" PRIu64 : "%016" PRIx64, word);
  return text;
}

std::vector<u64> sample_words(int radix, u64 count, u64 seed) {
  std::mt19937_64 random(seed);
  std::vector<u64> words = {0,
                            1,
                            9,
                            10,
                            99,
                            100,
                            9999,
                            10000,
                            99999999,
                            100000000,
                            9999999999999999,
                            10000000000000000,
                            999999999999999999,
                            CVN::DECIMAL_RADIX - 1};
  for (u64 power = 1; power <= CVN::DECIMAL_RADIX / 10; power *= 10) {
    words.push_back(power * 9);
    words.push_back(CVN::DECIMAL_RADIX - power);
  }
  if (radix == 16) words.insert(words.end(), {~u64{0}, 0x0123456789abcdef, 0xfedcba9876543210});
  while (words.size() < count) words.push_back(radix == 16 ? random() : random() % CVN::DECIMAL_RADIX);
  return words;
}

TEST(Conversions, WordsAndDigitsOfBothRadices) {
  for (const int radix : {10, 16})
    for (const u64 count : {0u, 1u, 2u, 3u, 513u, 1000u}) {
      std::vector<u64> words = sample_words(radix, 1000, 11 + count);
      words.erase(words.begin(),
                  words.end() - static_cast<s64>(count)); // odd and even counts, the random end
      if (count == 1000) words = sample_words(radix, count, 3);
      const u64 per_word = CVN::digits_per_word(radix);
      std::string expected, reversed;
      for (const u64 word : words) {
        expected += formatted(word, radix);
        reversed = formatted(word, radix) + reversed;
      }
      SCOPED_TRACE("radix " + std::to_string(radix) + " words " + std::to_string(count));
      std::string text(expected.size(), '?'), raw(expected.size(), '?');
      CVN::u64_to_str(text.data(), words.data(), count, radix);
      ASSERT_EQ(text, expected);
      ASSERT_EQ(CVN::str_to_raw(raw.data(), text.data(), text.size(), radix), text.size());
      std::string from_words(expected.size(), '?');
      CVN::u64_to_raw(from_words.data(), words.data(), count, radix);
      ASSERT_EQ(from_words, raw);
      std::vector<u64> back(count);
      CVN::raw_to_u64(back.data(), raw.data(), count, radix);
      ASSERT_EQ(back, words);
      CVN::cdi_to_raw(raw.data(), words.data(), count, radix);
      CVN::raw_to_str(raw.data(), raw.data(), count * per_word, radix);
      ASSERT_EQ(raw, reversed);
    }
}

TEST(Conversions, EveryByteIsADigitOrNone) {
  for (const int radix : {10, 16})
    for (int c = 0; c < 256; ++c) {
      const std::string digits = radix == 10 ? "0123456789" : "0123456789abcdef";
      const size_t value = digits.find(static_cast<char>(c));
      std::string text(9000, '7');
      text[8191] = static_cast<char>(c); // the last of a block
      const u64 valid = CVN::str_to_raw(text.data(), text.data(), text.size(), radix);
      ASSERT_EQ(valid, value == std::string::npos ? 8191 : 9000) << "character " << c << " radix " << radix;
      if (value != std::string::npos) {
        ASSERT_EQ(text[8191], static_cast<char>(value));
      }
    }
}

TEST(Conversions, UnsupportedRadix) {
  try {
    CVN::digits_per_word(8);
    FAIL();
  } catch (const km_exception& e) {
    EXPECT_EQ(e.code, -2147479549);
    EXPECT_EQ(e.text, "Unsupported Radix");
  }
}

} // namespace
} // namespace kelvane
