#include "benchmark/reference_results.h"

namespace kelvane {

namespace {

// Made by reference_results_main.cpp; docs/VERIFICATION.md tells from what.
constexpr ReferenceResult REFERENCES[] = {
#include "benchmark/reference_results.inc"
};

} // namespace

const u64 BENCHMARK_SIZES[] = {25'000'000,    50'000'000,    100'000'000,   250'000'000,    500'000'000,
                               1'000'000'000, 2'500'000'000, 5'000'000'000, 10'000'000'000, 0};

const ReferenceResult* reference_result(u64 digits) {
  for (const ReferenceResult& reference : REFERENCES)
    if (reference.digits == digits) return &reference;
  return nullptr;
}

u64 last_power_size() {
  u64 k = FIRST_POWER_SIZE;
  while (reference_result(u64{1} << (k + 1)) != nullptr) ++k;
  return k;
}

} // namespace kelvane
