// Conversions between narrow and wide text. See exception.h.
//
// Paths are UTF-8. A byte b that is no part of valid UTF-8 becomes the code point 0xDC00 + b, which valid
// UTF-8 cannot contain, so that any file name of the system comes back unchanged.

#include <string>

#include "shell/exception.h"

namespace kelvane {

std::wstring widen(const std::string& s) {
  std::wstring result;
  result.reserve(s.size());
  for (const char c : s) {
    if (static_cast<unsigned char>(c) > 127) {
      fatal("kmb_STR_a_to_w_direct(): Direct Conversion of > 127 char to wchar_t.");
    }
    result.push_back(static_cast<wchar_t>(c));
  }
  return result;
}

std::string narrow(const std::wstring& s) {
  std::string result;
  result.reserve(s.size());
  for (const wchar_t c : s) {
    if (static_cast<u32>(c) > 127) {
      fatal("kmb_STR_w_to_a_direct(): Direct Conversion of > 127 wchar_t to char.");
    }
    result.push_back(static_cast<char>(c));
  }
  return result;
}

namespace {

constexpr u32 ESCAPE = 0xDC00; // + byte

// Length of the valid UTF-8 sequence at s[i], its code point in `code`; 0 when there is none.
size_t decode(const std::string& s, size_t i, u32& code) {
  const auto byte = [&](size_t k) { return static_cast<u32>(static_cast<unsigned char>(s[k])); };
  const u32 lead = byte(i);
  if (lead < 0x80) {
    code = lead;
    return 1;
  }
  size_t length = 0;
  u32 least = 0; // smaller code points have a shorter form
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, least = 0x80, code = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, least = 0x800, code = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, least = 0x10000, code = lead & 0x07;
  } else {
    return 0;
  }
  if (i + length > s.size()) return 0;
  for (size_t k = 1; k < length; k++) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i + k) & 0x3F);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < least || code > 0x10FFFF || surrogate ? 0 : length;
}

} // namespace

std::wstring path_to_wide(const std::string& s) {
  std::wstring result;
  for (size_t i = 0; i < s.size();) {
    u32 code = 0;
    size_t length = decode(s, i, code);
    if (length == 0) {
      code = ESCAPE + static_cast<unsigned char>(s[i]);
      length = 1;
    }
    result.push_back(static_cast<wchar_t>(code));
    i += length;
  }
  return result;
}

std::string path_to_narrow(const std::wstring& s) {
  std::string result;
  const auto put = [&result](u32 byte) { result.push_back(static_cast<char>(byte)); };
  for (const wchar_t c : s) {
    const u32 code = static_cast<u32>(c);
    if (code < 0x80) {
      put(code);
    } else if (code >= ESCAPE + 0x80 && code <= ESCAPE + 0xFF) {
      put(code - ESCAPE);
    } else if (code < 0x800) {
      put(0xC0 | code >> 6);
      put(0x80 | (code & 0x3F));
    } else if ((code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) {
      put('?'); // no character
    } else if (code < 0x10000) {
      put(0xE0 | code >> 12);
      put(0x80 | (code >> 6 & 0x3F));
      put(0x80 | (code & 0x3F));
    } else {
      put(0xF0 | code >> 18);
      put(0x80 | (code >> 12 & 0x3F));
      put(0x80 | (code >> 6 & 0x3F));
      put(0x80 | (code & 0x3F));
    }
  }
  return result;
}

} // namespace kelvane
