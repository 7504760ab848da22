// Screens whose texts are fixed, against the files in tests/golden. Colours are written there as {G}, {r},
// {W}; the reset as {-}.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "support/capture.h"

namespace kelvane {

inline std::string with_color_names(const std::string& text) {
  static constexpr char LETTERS[] = "RGYBPTW"; // 31 to 37
  std::string named;
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] != '\033') {
      named += text[i];
      continue;
    }
    const std::string sequence = text.substr(i + 1, text.find('m', i) - i);
    i += sequence.size();
    if (sequence == "[39;49m") {
      named += "{-}";
      continue;
    }
    // "[01;3xm" or "[22;3xm"
    const char letter = LETTERS[sequence.at(5) - '1'];
    named +=
        std::string("{") + (sequence.at(1) == '0' ? letter : static_cast<char>(letter + 'a' - 'A')) + "}";
  }
  return named;
}

inline std::string golden_file(const std::string& name) {
  std::string folder = __FILE__;
  folder.erase(folder.rfind("support/"));
  std::ifstream file(folder + "golden/" + name, std::ios::binary);
  EXPECT_TRUE(file.good()) << "no golden file " << name;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// What body prints, colours named, is the file's text, and it returns.
inline void expect_screen(const std::string& name, const std::function<void()>& body,
                          const std::string& input = {}) {
  const Captured screen = capture(body, input, Orientation::wide, true);
  EXPECT_EQ(screen.status, 0) << name;
  EXPECT_EQ(with_color_names(screen.output), golden_file(name)) << name;
}

} // namespace kelvane
