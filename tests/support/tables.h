// Root tables for tests: made once per size and kept.
#pragma once

#include "multiply/table/km_MULv3.h"

namespace kelvane::test {

// A context whose tables serve products of up to n words.
inline km_MULv3::Context context(u64 n, u64 threads = 1) {
  static const km_MULv3::TableSet tables;
  (void)n;
  km_MULv3::Context c;
  c.tables = &tables;
  c.threads = threads;
  return c;
}

} // namespace kelvane::test
