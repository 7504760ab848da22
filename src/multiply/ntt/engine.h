// Products by number-theoretic transforms, on any number of threads, in memory that the caller provides.
//
// Steps, each a list of independent tasks, neighbouring ones on one thread:
//   1. tiles of columns: words -> digits -> residues -> columns            (per operand)
//   2. rows: forward, pointwise products, inverse, one row after another in cache
//   3. tiles of columns: columns back -> coefficients -> words
//   4. the overhangs of step 3's runs are added to the words
// A transform that is kept goes through its rows at once; one that is used up by a single product is left
// "raw", and its rows are transformed on the fly in step 2, which saves a passage through memory.
#pragma once

#include "multiply/ntt/kernels.h"
#include "multiply/ntt/shape.h"
#include "multiply/table/km_MULv3.h"
#include "multiply/table/parallel.h"
#include "shell/types.h"

namespace kelvane::ntt {

class Engine {
public:
  Engine(const Shape& shape, u64 threads, Console::Progress* progress);

  const Shape& shape() const { return shape_; }
  u64 workers() const { return workers_; }
  // Bytes of one transform: a header and w N residues with padding; of one prime's share; of the scratch.
  u64 transform_bytes() const { return HEADER + shape_.w * shape_.prime_stride() * sizeof(u64); }
  u64 prime_bytes() const { return HEADER + shape_.prime_stride() * sizeof(u64); }
  u64 scratch_bytes() const;

  // T <- transform of A[0, L). A raw one serves one product and is not to be kept.
  void forward(void* T, const u64* A, u64 L, bool raw, void* scratch) const;
  // out[0, n) <- sum of the terms' products; terms[0].TA is destroyed. Wrapped: n = capacity_words(), the
  // result is congruent to the sum modulo 2^(64 n) - 1 and in [0, 2^(64 n) - 1].
  // With `top`, here and below: *top <- floor(c / (p_0 .. p_(w-2))) for the largest coefficient c, in [0, P),
  // that was turned into words: what a check of (1)'s headroom asks for.
  void inverse(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, bool wrapped, void* scratch,
               u64* top = nullptr) const;

  // out[0, n) <- A B, or A^2 with B null. TA and TB: transform_bytes() each (no TB for a square).
  void product(u64* out, u64 n, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB, void* scratch,
               u64* top = nullptr) const;
  // The same prime by prime, with TB of prime_bytes().
  void reduced_product(u64* out, u64 n, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                       void* scratch, u64* top = nullptr) const;

private:
  static constexpr u64 HEADER = 64;
  static constexpr u64 MAX_CHUNKS = 1024;
  struct Scratch;
  struct Header {
    bool raw;
  };
  static Header& header(void* T) { return *static_cast<Header*>(T); }
  static const Header& header(const void* T) { return *static_cast<const Header*>(T); }
  static u64* data(void* T) { return reinterpret_cast<u64*>(static_cast<u8*>(T) + HEADER); }
  static const u64* data(const void* T) {
    return reinterpret_cast<const u64*>(static_cast<const u8*>(T) + HEADER);
  }

  void tick(km_MULv3::Worker worker) const;
  u64 row_group() const; // neighbouring rows of one task
  u64 row_tasks(u64 primes) const;
  // f(prime, row) for the rows of task `task`.
  template <class F> void for_rows(u64 task, const F& f) const;
  // The columns of one operand, or of two when B.to is not null, for primes [first, last). Prime `first`
  // begins at `to`, here and in the rows.
  struct Operand {
    const u64* words = nullptr;
    u64 count = 0;
    u64* to = nullptr;
  };
  auto columns_phase(const Scratch& s, u32 first, u32 last, Operand A, Operand B) const;
  // f(prime, row, at, area): the row's points lie `at` words from the beginning.
  template <class F> auto rows_phase(const Scratch& s, u32 first, u32 last, const F& f) const;
  // x <- the rows of the product of what stands in x and y, both raw; y may be x.
  auto product_rows_phase(const Scratch& s, u32 first, u32 last, u64* x, u64* y) const;
  // The phases `before`, which leave in T a transform whose rows have been transformed back; then the words.
  template <class... F>
  void run_and_finish(u64* out, u64 n, const u64* T, bool biased, bool wrapped, const Scratch& s, u64* top,
                      const km_MULv3::Phase<F>&... before) const;
  void add_overhangs(u64* out, u64 n, u64 chunk, u64 chunks, const Scratch& s) const;

  Shape shape_;
  const Kernels* kernels_;
  u64 workers_;
  Console::Progress* progress_;
};

} // namespace kelvane::ntt
