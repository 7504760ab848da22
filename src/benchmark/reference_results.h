// The stored results of the Pi benchmark and the sizes it offers.
#pragma once

#include <iterator>

#include "shell/types.h"

namespace kelvane {

// What Pi to `digits` decimal digits after the point must end with.
struct ReferenceResult {
  u64 digits;
  u64 hash;                // all digits, the 3 included, read as one integer, modulo 2^61 - 1
  const char* last_digits; // the last 50
};

// Null when no result of this size is stored.
const ReferenceResult* reference_result(u64 digits);

// The standard sizes, ended by a zero.
extern const u64 BENCHMARK_SIZES[];
// Sizes that are powers of two begin with 2^20 and end with last_power_size(), the last one of an unbroken
// row of stored results.
inline constexpr u64 FIRST_POWER_SIZE = 20;
u64 last_power_size();

} // namespace kelvane
