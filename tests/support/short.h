// How long randomised tests run, by the environment.
//
//   KELVANE_SHORT=1        the short form: for sanitizers, which make everything many times slower
//   KELVANE_TEST_SCALE=n   n times as many random cases, for a long search
//   KELVANE_LONG=1         the sweeps over all lengths and sizes as well, which take minutes each
#pragma once

#include <cstdlib>

namespace kelvane {

inline bool short_run() {
  const char* value = std::getenv("KELVANE_SHORT");
  return value != nullptr && *value != 0 && *value != '0';
}

inline bool long_run() {
  const char* value = std::getenv("KELVANE_LONG");
  return value != nullptr && *value != 0 && *value != '0';
}

// `count` random cases in the usual form; a tenth of them, at least one, in the short form.
inline int scale(int count) {
  const char* value = std::getenv("KELVANE_TEST_SCALE");
  const int factor = value == nullptr ? 1 : std::atoi(value);
  if (factor > 1) count *= factor;
  if (short_run()) count = count / 10 > 0 ? count / 10 : 1;
  return count;
}

} // namespace kelvane
