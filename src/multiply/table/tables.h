// The tables of roots of a computation, in one place.
#pragma once

#include "multiply/fft/twiddles.h"
#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane::km_MULv3 {

class Tables {
public:
  Tables() = default;
  Tables(const Tables&) = delete;
  Tables& operator=(const Tables&) = delete;

  // Bytes of the caller's memory, 64-byte aligned, that tables for products of up to n words are built in.
  // The prime fields' tables are the program's own, made once; table_bytes(n) counts both.
  static u64 bytes(u64 n);
  void build(void* memory, u64 n, u64 threads);
  const TableSet& set() const { return set_; }

private:
  km_FFTv2::table_d fft_;
  TableSet set_;
};

} // namespace kelvane::km_MULv3
