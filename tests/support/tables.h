// Root tables for tests: made once, and anew when a test asks for longer products.
#pragma once

#include <algorithm>
#include <bit>
#include <vector>

#include "multiply/fft/twiddles.h"
#include "multiply/table/km_MULv3.h"

namespace kelvane::test {

// A context whose tables serve products of up to n words. Not for several threads of a test at once.
inline km_MULv3::Context context(u64 n, u64 threads = 1) {
  static std::vector<u64> memory;
  static km_FFTv2::table_d roots;
  static const km_MULv3::TableSet tables{&roots};
  if (roots.max_words() < n) {
    const u64 words = std::bit_ceil(std::max<u64>(n, 4096));
    memory.assign(km_FFTv2::table_d::bytes(words) / sizeof(u64) + 16, 0);
    const auto at = reinterpret_cast<uintptr_t>(memory.data());
    roots.build(reinterpret_cast<void*>((at + 63) / 64 * 64), words, 1);
  }
  km_MULv3::Context c;
  c.tables = &tables;
  c.threads = threads;
  return c;
}

} // namespace kelvane::test
