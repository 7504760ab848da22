// What the tests of digit files share.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "shell/exception.h"

namespace kelvane::test {

template <class F>
void expect_error(const F& f, s32 code, const std::string& text, const std::wstring& path = L"") {
  try {
    f();
    ADD_FAILURE() << "nothing thrown, expected " << text;
  } catch (const km_exception& e) {
    EXPECT_EQ(e.code, code) << text;
    EXPECT_EQ(e.text, text);
    EXPECT_EQ(e.wtext, path) << text;
    EXPECT_STREQ(e.type_name, "Generic Exception");
  }
}

// Digit characters to values.
inline std::string raw(const std::string& text) {
  std::string out;
  for (const char c : text) out += static_cast<char>(c <= '9' ? c - '0' : c - 'a' + 10);
  return out;
}

} // namespace kelvane::test
