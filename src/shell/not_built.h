// The answer of a menu entry whose action does not exist yet.
#pragma once

#include <string>

#include "shell/console.h"

namespace kelvane {

inline void print_not_built(const char* what) {
  Console::print_colored(std::string(what) + " is not built yet.\n", 'Y');
}

} // namespace kelvane
