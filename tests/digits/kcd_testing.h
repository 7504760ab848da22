// Compressed digit files made without the product's code, digit by digit.
#pragma once

#include <algorithm>
#include <random>
#include <string>

#include "digits/files_testing.h"
#include "digits/kcd_writer.h"
#include "shell/memory_files.h"

namespace kelvane::test {

inline std::string random_digits(u64 count, int radix, u64 seed) {
  std::mt19937_64 random(seed);
  std::string digits;
  for (u64 i = 0; i < count; ++i) digits += "0123456789abcdef"[random() % static_cast<u64>(radix)];
  return digits;
}

// The body that holds these digits.
inline std::string kcd_body(std::string digits, int radix) {
  const size_t per_word = radix == 10 ? 19 : 16;
  while (digits.size() % per_word != 0) digits += '0';
  std::string body;
  for (size_t i = 0; i < digits.size(); i += per_word) {
    const u64 word = std::stoull(digits.substr(i, per_word), nullptr, radix);
    for (int byte = 0; byte < 8; ++byte) body += static_cast<char>(word >> 8 * byte & 255);
  }
  return body;
}

// The whole of file `id` of the digits `all`. total: -1 for what a writer says.
inline std::string kcd_file(const std::string& first, const std::string& all, int radix, u64 per_file,
                            u64 id) {
  const std::string digits = all.substr(std::min<u64>(all.size(), per_file * id), per_file);
  std::string total = digits.size() < per_file ? std::to_string(all.size()) : "0";
  total.insert(0, 20 - total.size(), '0');
  return "#Compressed Digit File\r\n\r\nFileVersion:\t1.1.0\r\n\r\nBase:\t" + std::to_string(radix) +
         "\r\n\r\nFirstDigits:\t" + first + "\r\n\r\nTotalDigits:\t" + total + "\r\n\r\nBlocksize:\t" +
         std::to_string(per_file) + "\r\n\r\nBlockID:\t" + std::to_string(id) + "\r\n\r\nEndHeader\r\n\r\n" +
         std::string(1, '\0') + kcd_body(digits, radix);
}

// A set of files folder/base0.kcd ..., and digits written into it through the product's writer.
inline void put_set(MemoryFiles& files, const std::wstring& prefix, const std::string& first,
                    const std::string& digits, int radix, u64 per_file) {
  for (u64 id = 0; id * per_file < digits.size(); ++id)
    files.put(prefix + std::to_wstring(id) + L".kcd", kcd_file(first, digits, radix, per_file, id));
}

} // namespace kelvane::test
