// The kernels of one backend: what is done to one tile of columns or one row. Every kernel is re-entrant;
// `area` is the calling thread's, Shape::area_words() words, 64-byte aligned.
#pragma once

#include <atomic>

#include "multiply/ntt/shape.h"
#include "multiply/simd/isa.h"
#include "shell/types.h"

namespace kelvane::ntt {

// One product x y of a sum, both rows of one prime. A raw row has been through its columns only, is used in
// one product and may be overwritten.
struct RowPair {
  u64* x;
  const u64* y;
  bool x_raw, y_raw;
  bool y_free;   // y may be overwritten
  bool subtract; // - x y
};

// Where the inverse of the columns writes.
struct Output {
  u64* words;
  u64 n;                        // words past n are dropped
  u64* overhang;                // [tile rows + row][overhang_words]
  const Factor* bias = nullptr; // D modulo each prime, or null for 0
  std::atomic<u64>* top =
      nullptr; // raised to the largest coefficient's top digit (see Engine); null: not wanted
};

struct Kernels {
  Backend backend;
  const char* name;

  // Columns of tile `tile` of the digits of A[0, L), primes [first, last) -> data, where prime `first`
  // begins.
  void (*forward_tile)(const Shape& shape, u32 first, u32 last, const u64* A, u64 L, u64 tile, u64* data,
                       u64* area);
  // Row `row` of a prime, in place.
  void (*forward_row)(const Shape& shape, u32 prime, u64 row, u64* x, u64* area);
  // pairs[0].x <- inverse row of the sum of the pairs' products, over N.
  void (*product_row)(const Shape& shape, u32 prime, u64 row, const RowPair* pairs, u32 count, u64* area);
  // Columns back, residues to coefficients, coefficients to words: the runs of one tile.
  void (*inverse_tile)(const Shape& shape, const u64* data, u64 tile, const Output& output, u64* area);
};

const Kernels& kernels_of(Backend backend);
Backend backend_of(simd::Isa isa);

namespace sse3 {
extern const Kernels KERNELS;
}
namespace avx2 {
extern const Kernels KERNELS;
}
namespace avx512 {
extern const Kernels KERNELS;
}
namespace avx512ifma {
extern const Kernels KERNELS;
}

} // namespace kelvane::ntt
