// Makes the rows of reference_results.inc from a file of Pi's digits:
//
//   reference_results "Pi - Dec - Chudnovsky.txt" ["Pi - Dec - Ramanujan.txt"]
//
// A row is made only from digits that something other than one run of this program vouches for: they lie in a
// beginning of the file whose SHA-1 is a published one, or in the beginning that a second file, computed by
// another formula, shares with the first. One pass over the file at the speed of SHA-1.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "benchmark/reference_results.h"
#include "companion/analysis.h"
#include "companion/sha1.h"

namespace {

using namespace kelvane;

// SHA-1 of "3." and so many digits.
const std::map<u64, std::string> PUBLISHED = {
    {1'000'000, "ec497f9b8b0aad5fe967d0916bff266972081f50"},
    {10'000'000, "056fe739ad2e3b427691e4e62eef8936ce2a88e4"},
    {100'000'000, "23456396be72fb9a390e5f707c7bff7a1c3697f8"},
    {1'000'000'000, "8ef30374165e5e4a11552a0d896e9e961ea13c33"},
};

constexpr u64 HEAD = 2; // characters of "3."
constexpr u64 BLOCK = u64{1} << 22;
constexpr u64 TAIL = 50;

class Digits {
public:
  explicit Digits(const char* path) : file_(std::fopen(path, "rb")) {
    char head[HEAD] = {};
    if (file_ == nullptr || std::fread(head, 1, HEAD, file_) != HEAD || std::memcmp(head, "3.", HEAD) != 0) {
      std::fprintf(stderr, "%s: no file of Pi's digits\n", path);
      std::exit(1);
    }
  }
  // Up to `count` of the digits that follow.
  const std::string& next(u64 count) {
    block_.resize(count);
    block_.resize(std::fread(block_.data(), 1, count, file_));
    return block_;
  }

private:
  std::FILE* file_;
  std::string block_;
};

// How many digits both files have in common from the beginning.
u64 common_digits(const char* one, const char* other) {
  Digits a(one), b(other);
  u64 common = 0;
  for (;;) {
    const std::string &x = a.next(BLOCK), &y = b.next(BLOCK);
    const u64 n = std::min(x.size(), y.size());
    const u64 same = static_cast<u64>(
        std::mismatch(x.begin(), x.begin() + static_cast<s64>(n), y.begin()).first - x.begin());
    common += same;
    if (same < BLOCK) return common;
  }
}

} // namespace

int main(int count, char** arguments) {
  if (count < 2 || count > 3) {
    std::fprintf(stderr, "usage: reference_results DIGITS [DIGITS-OF-ANOTHER-FORMULA]\n");
    return 1;
  }
  std::vector<u64> stops; // where a row or a published sum may end
  for (const u64* size = BENCHMARK_SIZES; *size != 0; ++size) stops.push_back(*size);
  for (u64 k = FIRST_POWER_SIZE; k < 40; ++k) stops.push_back(u64{1} << k);
  for (const auto& [digits, sum] : PUBLISHED) stops.push_back(digits);
  std::sort(stops.begin(), stops.end());
  stops.erase(std::unique(stops.begin(), stops.end()), stops.end());

  u64 vouched = count == 3 ? common_digits(arguments[1], arguments[2]) : 0;
  if (vouched != 0) std::fprintf(stderr, "%" PRIu64 " digits of both formulas agree\n", vouched);

  Digits digits(arguments[1]);
  companion::Sha1 sum;
  companion::DigitResidue residue(10);
  sum.add("3.", HEAD);
  residue.add("3", 1);
  std::string tail;
  std::map<u64, std::string> rows;
  u64 position = 0;
  for (const u64 stop : stops) {
    while (position < stop) {
      const std::string& block = digits.next(std::min(BLOCK, stop - position));
      if (block.empty()) break;
      sum.add(block.data(), block.size());
      residue.add(block.data(), block.size());
      tail = (tail + block).substr(tail.size() + block.size() - std::min(TAIL, tail.size() + block.size()));
      position += block.size();
    }
    if (position < stop) break;
    char row[160];
    std::snprintf(row, sizeof row, "    {%" PRIu64 ", %" PRIu64 ", \"%s\"},", stop, residue.value(),
                  tail.c_str());
    rows[stop] = row;
    const auto published = PUBLISHED.find(stop);
    if (published == PUBLISHED.end()) continue;
    companion::Sha1 copy = sum;
    const bool same = copy.finish() == published->second;
    std::fprintf(stderr, "%" PRIu64 " digits: SHA-1 %s\n", stop, same ? "as published" : "NOT as published");
    if (!same) return 1;
    vouched = std::max(vouched, stop);
  }
  for (const auto& [size, row] : rows) {
    const bool offered = std::find(BENCHMARK_SIZES, BENCHMARK_SIZES + 9, size) != BENCHMARK_SIZES + 9 ||
                         (size & (size - 1)) == 0;
    if (offered && size <= vouched) std::printf("%s\n", row.c_str());
  }
  return 0;
}
