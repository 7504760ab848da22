// The radix conversion and its verification, and what they need.
//
//   conversion [DIGITS [ROUNDS [THREADS ...]]]      (default 10,000,000, 5 rounds, 1 and 2 threads)
//
// Prints the medians in milliseconds and the scratch of both in bytes a digit.
#include <cstdio>
#include <cstdlib>

#include "digits/radix.h"
#include "measure.h"
#include "multiply/table/tables.h"

using namespace kelvane;

int main(int argc, char** argv) {
  const u64 D = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10'000'000;
  const u64 rounds = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 5;
  std::vector<u64> threads;
  for (int i = 3; i < argc; i++) threads.push_back(std::strtoull(argv[i], nullptr, 10));
  if (threads.empty()) threads = {1, 2};
  const u64 W = CBRv2::output_words(D), n = D * 10 / 192 + 2; // 64 log10(2) = 19.27 digits a word
  const std::vector<u64> fraction = bench::random_words(n, 3);
  bench::Memory roots(km_MULv3::Tables::bytes(2 * W + 64));
  km_MULv3::Tables tables;
  tables.build(roots.data, 2 * W + 64, 2);
  for (const u64 t : threads) {
    const u64 convert_bytes = CBRv2::convert_scratch_bytes(W, n, t),
              verify_bytes = CBRv2::verify_scratch_bytes(W, n, t);
    const bench::Memory out(8 * W), scratch(std::max(convert_bytes, verify_bytes));
    const km_MULv3::Context context{&tables.set(), t, nullptr};
    std::vector<double> convert, verify;
    for (u64 round = 0; round <= rounds; round++) {
      u64 hash = 0;
      const double c = bench::timed([&] {
        if (CBRv2::convert(context, out.words(), W, fraction.data(), n, scratch.data) != 0) std::exit(1);
      });
      const double v = bench::timed([&] {
        if (CBRv2::verify(context, W, fraction.data(), n, &hash, scratch.data) != 0) std::exit(1);
      });
      if (round == 0) continue; // touches the memory
      convert.push_back(c);
      verify.push_back(v);
    }
    const double digits = static_cast<double>(D);
    std::printf("%llu digits, %llu threads: conversion %8.2f ms, verification %8.2f ms; scratch %.2f and %.2f"
                " bytes a digit\n",
                static_cast<unsigned long long>(D), static_cast<unsigned long long>(t),
                1e3 * bench::median(convert), 1e3 * bench::median(verify),
                static_cast<double>(convert_bytes) / digits, static_cast<double>(verify_bytes) / digits);
    std::fflush(stdout);
  }
}
