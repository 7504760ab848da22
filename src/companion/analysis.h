// What is looked for in streams of digits, a block at a time: residue, counts, patterns.
#pragma once

#include <string>
#include <vector>

#include "shell/types.h"

namespace kelvane::companion {

// The digits, integer part included, read as one integer modulo 2^61 - 1: the residue that a computation
// reports of its decimal digits.
class DigitResidue {
public:
  explicit DigitResidue(int radix);
  void add(const char* digits, u64 count); // characters
  u64 value() const { return value_; }

private:
  int radix_;
  u64 per_word_, factor_; // radix^per_word modulo 2^61 - 1
  u64 value_ = 0;
};

// counts[v] += how often the value v occurs among raw digits below `radix`. Cost: 0.1 to 0.2 ns per digit.
void count_digits(u64* counts, const char* digits, u64 count, int radix);

struct ChiSquare {
  double value = 0;    // sum of (count - expected)^2 / expected
  int freedom = 0;     // degrees: radix - 1
  double p = 1;        // probability of a value at least as large when all digits are equally likely
  double expected = 0; // count of each digit
};
ChiSquare chi_square(const u64* counts, int radix);

// A picture of the counts: each digit's deviation from the expected count in standard deviations.
std::string counts_svg(const std::string& title, const u64* counts, int radix);

// Finds a pattern in a stream that comes in blocks; matches may overlap each other and the blocks' ends.
//
// Four characters of the pattern are compared at 16 positions at a time; digits look random, so that almost
// nothing else is. When too much passes this test, the block is searched in linear time instead.
class PatternSearch {
public:
  explicit PatternSearch(std::string pattern); // not empty
  // Positions in the stream of the matches that end in this block, up to `most` of them, ascending.
  void add(const char* digits, u64 count, u64 most, std::vector<u64>& positions);

private:
  void search(const char* text, u64 size, u64 start, u64 most, std::vector<u64>& positions) const;

  std::string pattern_;
  u64 offsets_[4];   // the compared characters
  std::string tail_; // the last digits of the blocks before, one less than the pattern has
  u64 position_ = 0; // of the next block
};

} // namespace kelvane::companion
