// The one number by which the integers of all blocks of a segment are divided (see common_factors.h).
#pragma once

#include <optional>

#include "arithmetic/exact_division.h"
#include "arithmetic/kob_cdi_EFPh.h"
#include "series/common_factors.h"

namespace kelvane {

struct BlockSizes {
  u64 terms;          // of the shortest block
  u64 raw_words;      // of the longest block's integers
  u64 quotient_words; // of their quotients and a word more
  u64 first_words;    // the same of the first integer
  // Whether the first integer's quotients are worth transforms of their own.
  bool has_shorter() const { return first_words < quotient_words / 8 * 7; }
};

// Read by several threads at once. All memory is 64-byte aligned.
class BlockDivisor {
public:
  // Bytes of the object's memory, of the work of making it, and of the work of a quotient.
  static u64 memory_bytes(const BlockSizes& sizes);
  static u64 build_bytes(const CommonFactors& factors, const BlockSizes& sizes,
                         const km_MULv3::Context& context);
  static u64 work_bytes(const BlockSizes& sizes);

  // G is the product of all prime powers of the least exponents; its inverse, for ExactDivision.
  BlockDivisor(const CommonFactors& factors, const BlockSizes& sizes, const km_MULv3::Context& context,
               void* memory, void* work, u64 bytes);

  // out <- x / G. The quotient's residue is made from that of x, so that a check of it finds a fault of the
  // division, or an x that G does not divide. Fatal "Insufficient Allocated Space" when it does not fit.
  void divide(const kob_cdi_EFPh& x, kob_cdi_EFPh& out, void* work) const;

private:
  u64 words_, residue_inverse_; // of G
  std::optional<ExactDivision> long_, short_;
};

} // namespace kelvane
