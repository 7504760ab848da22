// km_HNT: products of 17410 to 2^32 words.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane::km_HNT {

inline constexpr u64 MAX_BITS = 8795824586752;

// The row's algorithm. Its number-theoretic transform is not there yet: products of up to 2^34 bits go
// through the larger plans of the floating-point FFT, longer ones throw km_exception -4.
template <class W> class algorithm final : public km_MULv3::algorithm_p<W> {
 public:
  u64 capacity_bits() const override { return MAX_BITS; }
  const char* short_name() const override { return "HNT"; }
  const char* description() const override { return "Hybrid NTT"; }
  u64 memory_cost(u64 n, u64 threads) const override;
  km_MULv3::abstract_btp* make_parameters(u64 n, const km_MULv3::Context& context,
                                          km_MULv3::btp_storage* storage) const override;
};

} // namespace kelvane::km_HNT
