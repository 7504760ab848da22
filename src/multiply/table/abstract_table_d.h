// A table of constants that an algorithm's products share: built once before a computation in the caller's
// memory, read-only from then on.
#pragma once

#include "shell/types.h"

namespace kelvane::km_MULv3 {

template <class T> class abstract_table_d {
public:
  const T& table() const { return table_; }
  // The longest product in words that the table serves.
  u64 max_words() const { return max_words_; }

protected:
  abstract_table_d() = default;
  ~abstract_table_d() = default;

  T table_;
  u64 max_words_ = 0;
};

} // namespace kelvane::km_MULv3
