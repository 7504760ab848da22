// km_MULv3: which algorithm forms a product, and what that costs.
//
// A product of convolution length n (the sum of the operands' lengths, in words)
// goes to the first row of an ordered table whose maximum is at least n:
//
//   in memory, 64-bit words:  54 BKT, 17409 FFT, 2^32 HNT, 9895604649984 VST
//   in memory, 32-bit words:  each limit doubled
//
// An algorithm fills a parameter record for a product. Through the record the
// two operands are transformed forward, multiplied, and transformed back. A
// forward transform is a value: it can be kept and used in several products
// of the same record.
#pragma once

#include <limits>
#include <string>

#include "shell/types.h"

namespace kelvane::Console {
class Progress;
}
namespace kelvane::km_FFTv2 {
class table_d;
}

namespace kelvane::km_MULv3 {

// The tables of roots that products need, built once before a computation.
struct TableSet {
  const km_FFTv2::table_d* fft = nullptr;
};

// What every product is told by its caller.
struct Context {
  const TableSet* tables = nullptr;
  u64 threads = 1;
  Console::Progress* progress = nullptr; // ticked inside long products when the driver runs them; may be null
  bool reduced_memory =
      false; // long products of multiply and square keep one operand's transform prime by prime
};

class abstract_ntp;

// The weight of an operand that was not weighed: its products can not be added.
inline constexpr double NO_WEIGHT = std::numeric_limits<double>::infinity();

// One product of a sum: TA * TB, added or subtracted. They may be the same transform.
struct Term {
  void* TA;
  const void* TB;
  bool subtract = false;
  double weight = NO_WEIGHT; // the product of the operands' weights, where they are known
};

// Parameters of one in-memory product.
//
// Work buffers are the caller's, 64-byte aligned:
//   transform   transform_bytes() each, one per operand
//   scratch     scratch_bytes(), shared by all operations of the record
class abstract_btp {
public:
  virtual ~abstract_btp() = default;

  u64 threads() const { return threads_; }
  u64 capacity_bits() const { return capacity_bits_; } // the largest product that the record can form
  virtual u64 transform_bytes() const = 0;
  virtual u64 scratch_bytes() const = 0;
  // True when transforms made through `other` may be combined with those made through this record.
  virtual bool accepts(const abstract_btp& other) const = 0;

  // T <- transform of the L words at A. 64 L must not exceed the capacity. Returns the operand's weight: see
  // may_add.
  virtual double forward(void* T, const u64* A, u64 L, void* scratch) const = 0;
  // out[0, n) <- the product of the two transformed operands; n is the sum of their lengths.
  // TA is destroyed, TB is kept (they may be the same transform: a square). out may not overlap TA, TB,
  // scratch.
  virtual void inverse_fmul(u64* out, u64 n, void* TA, const void* TB, void* scratch) const = 0;
  // out[0, n) <- the square; T is destroyed.
  virtual void inverse_fsqr(u64* out, u64 n, void* T, void* scratch) const = 0;

  // The same transform for a single use: the next inverse must consume it, as TA or TB. Cheaper where the
  // algorithm can leave a part of the work to the inverse.
  virtual double forward_once(void* T, const u64* A, u64 L, void* scratch) const {
    return forward(T, A, L, scratch);
  }
  // out[0, LA + LB) <- A B; A^2 with B null. TA: transform_bytes(); TB: second_bytes(), none for a square.
  // Faster than forward, forward, inverse; a record made with reduced_memory may have a smaller
  // second_bytes().
  virtual u64 second_bytes() const { return transform_bytes(); }
  virtual void product(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
                       void* scratch) const {
    forward(TA, A, LA, scratch);
    if (B == nullptr) return inverse_fsqr(out, 2 * LA, TA, scratch);
    forward(TB, B, LB, scratch);
    inverse_fmul(out, LA + LB, TA, TB, scratch);
  }

  // Whether two products may be added before one inverse. Where transforms are rounded, that depends on the
  // operands: `weight` is the product of the weights of the first two plus that of the others. 0 asks whether
  // the record adds products at all.
  virtual bool may_add(double) const { return false; }
  // out[0, n) <- the sum of the terms' products, which must be non-negative and fit. One term; two where
  // may_add says so. terms[0].TA is destroyed and must not occur in another term; all other transforms are
  // kept.
  virtual void inverse_sum(u64* out, u64 n, const Term* terms, u64, void* scratch) const {
    inverse_fmul(out, n, terms[0].TA, terms[0].TB, scratch);
  }

  // The record's further abilities, null when it has none.
  virtual const abstract_ntp* ntp() const { return nullptr; }

protected:
  u64 threads_ = 1;
  u64 capacity_bits_ = 0;
};

// Parameters of a transform over prime fields: exact, so that products can be added before one inverse
// whatever their operands, which weigh nothing, and cyclic, so that a product can be had modulo a number of
// known form.
class abstract_ntp : public abstract_btp {
public:
  const abstract_ntp* ntp() const final { return this; }
  bool may_add(double) const final { return true; }

  // How many products inverse_sum may add; with subtraction, half as many of each sign. A wrapped sum: half
  // of both.
  virtual u64 max_sum() const = 0;
  void inverse_sum(u64* out, u64 n, const Term* terms, u64 count, void* scratch) const override = 0;

  // The product's own modulus is M = 2^(64 wrap_words()) - 1.
  virtual u64 wrap_words() const = 0;
  // out[0, wrap_words()) <- a number in [0, M] congruent to the sum modulo M. Here only each operand must fit
  // wrap_words(); their product may be longer, and the sum may be negative.
  virtual void inverse_wrapped(u64* out, const Term* terms, u64 count, void* scratch) const = 0;
};

// Caller's storage for a parameter record; records own nothing and need no destruction.
struct btp_storage {
  alignas(64) unsigned char bytes[512];
};

// One algorithm for products of words of type W (u32 or u64).
template <class W> class algorithm_p {
public:
  virtual ~algorithm_p() = default;
  virtual u64 capacity_bits() const = 0;
  virtual const char* short_name() const = 0;
  virtual const char* description() const = 0;
  // Bytes of work memory of one product of n words: both transforms and the scratch.
  virtual u64 memory_cost(u64 n, u64 threads) const = 0;
  // Builds the parameter record for a product of n words in the caller's storage; null storage gives null.
  virtual abstract_btp* make_parameters(u64 n, const Context& context, btp_storage* storage) const = 0;
};

struct Row64 {
  u64 max_length;
  const algorithm_p<u64>* algorithm;
};
struct Row32 {
  u64 max_length;
  const algorithm_p<u32>* algorithm;
};

// The rows in force, ascending, and their number.
const Row64* table64(u64* rows);
const Row32* table32(u64* rows);

// The largest product in bits that the hybrid NTT's row takes: its row's maximum is that over the word's
// bits.
inline constexpr u64 HNT_LIMIT_BITS = u64{1} << 38;
// Builds the tables anew with another such limit. For tests only, which so bring VST's row within their
// reach: no product may be under way, and records and costs from before no longer agree with the tables.
void rebuild_tables(u64 hnt_limit_bits);

// Words of the longest product that the FFT's row takes; longer ones offer reduced memory.
inline constexpr u64 LONGEST_FFT = 17409;

// Selection. Beyond the last row: km_exception with code -4.
const algorithm_p<u64>& select(u64 n);
abstract_btp* select(u64 n, const Context& context, btp_storage* storage);

// A record whose modulus 2^(64 m) - 1 has m >= n words: for products of which only that residue is wanted.
// Null where none is offered (n below the hybrid NTT's lengths).
const abstract_ntp* select_wrapped(u64 n, const Context& context, btp_storage* storage);

// Work bytes that suffice for every product of up to n words.
u64 memory_cost(u64 n, u64 threads);
// The same for contexts with reduced_memory, through multiply and square only.
u64 memory_cost(u64 n, u64 threads, bool reduced_memory);
// Bytes of work memory of exactly one product of length n through the selected algorithm (<= memory_cost(n)).
u64 product_cost(u64 n, u64 threads);
u64 product_cost(u64 n, u64 threads, bool reduced_memory);

// Placement of one product's work memory, shared by cost query and run.
// out[0, nA+nB) = A * B. out may overlap neither the operands nor the work area.
// work: product_cost(nA + nB, threads, reduced_memory) bytes, 64-byte aligned. Lengths at least 1.
void multiply(const Context& context, u64* out, const u64* A, u64 nA, const u64* B, u64 nB, void* work);
void square(const Context& context, u64* out, const u64* A, u64 nA, void* work);
// The same as multiply, but out may overlap the operands, which are destroyed. For lengths nA + nB of the
// FFT's and the hybrid NTT's rows.
inline constexpr u64 LONGEST_BASECASE = 54, LONGEST_HNT = HNT_LIMIT_BITS / 64;
inline bool may_multiply_over(u64 n) {
  return n > LONGEST_BASECASE && n <= LONGEST_HNT;
}
void multiply_over(const Context& context, u64* out, const u64* A, u64 nA, const u64* B, u64 nB, void* work);

// Bytes of all root tables that products of up to n words need: Tables::bytes(n), which the caller provides,
// and those of the prime fields.
u64 table_bytes(u64 n);

// The option listing of both tables.
std::string tables_text();
void print_tables();

} // namespace kelvane::km_MULv3
