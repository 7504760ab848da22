// The program: start-up checks, one pass through the main menu, exit.
#pragma once

#include <string>

#include "shell/version.h"

namespace kelvane {

// The outermost handler. A km_exception or std::exception that reaches it is printed and the program goes on
// to its normal end. On every way out the terminal's own colours are restored.
void run_program();

inline std::string program_version() {
  return VERSION;
}
inline std::string build_tag() {
  return BUILD_TAG;
}

} // namespace kelvane
