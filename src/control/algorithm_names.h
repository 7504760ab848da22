// A constant's algorithms as the user sees them: short name, name and menu description.
#pragma once

#include <string>

#include "shell/types.h"

namespace kelvane {

struct AlgorithmNames {
  const char* short_name;
  const char* name;
  const char* description;
};

// The entry's text, or "" when the index lies outside the list.
template <size_t N>
std::string algorithm_text(const AlgorithmNames (&list)[N], s32 algorithm,
                           const char* AlgorithmNames::*text) {
  return algorithm >= 0 && static_cast<size_t>(algorithm) < N ? list[algorithm].*text : "";
}

} // namespace kelvane
