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

  // Bytes of memory that the tables for products of up to n words need, and building in memory that stays the
  // caller's, 64-byte aligned. The FFT's roots go there, for the lengths of its row; the prime fields'
  // tables, of fixed size, have their own memory and are built as well when n asks for them.
  static u64 bytes(u64 n);
  void build(void* memory, u64 n, u64 threads);
  const TableSet& set() const { return set_; }

 private:
  km_FFTv2::table_d fft_;
  TableSet set_;
};

} // namespace kelvane::km_MULv3
