// km_VSTv2: products of more than 2^32 words.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/exception.h"
#include "shell/types.h"

namespace kelvane::km_VSTv2 {

inline constexpr u64 MAX_BITS = 633318697598976;

// The row's algorithm. Its transform is not there yet: every request throws km_exception -4.
template <class W> class algorithm final : public km_MULv3::algorithm_p<W> {
 public:
  u64 capacity_bits() const override { return MAX_BITS; }
  const char* short_name() const override { return "VST"; }
  const char* description() const override { return "VST Algorithm"; }
  u64 memory_cost(u64, u64) const override { throw km_exception(ERROR_BEYOND_TABLE, ""); }
  km_MULv3::abstract_btp* make_parameters(u64, const km_MULv3::Context&,
                                          km_MULv3::btp_storage*) const override {
    throw km_exception(ERROR_BEYOND_TABLE, "");
  }
};

} // namespace kelvane::km_VSTv2
