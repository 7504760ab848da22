// km_VSTv2: products of more than 2^32 words.
//
// A plan is three bytes (w, r, s): r 2^(s-1) points of width w, each of which carries w - 1 pieces of 48
// bits, so the capacity is 48 r (w - 1) 2^(s-1) bits; it is looked up in two tables. The plan selects, bounds
// and documents a product. What computes it is the prime-field transform of multiply/ntt, whose own figures
// (primes, bits of a digit, points) are chosen by its cost model and stand beside the plan in the record.
//
// Beyond the longest transform (about 2^33 words with 48-bit primes) the operands are cut into blocks that
// are transformed one by one; see blocks.h.
#pragma once

#include "multiply/ntt/record.h"
#include "multiply/table/km_MULv3.h"
#include "multiply/vst/blocks.h"
#include "shell/types.h"

namespace kelvane::km_VSTv2 {

inline constexpr u64 MAX_BITS = 633318697598976;
inline constexpr s32 ERROR_TRANSFORM = 1; // code of a failed redundancy check

struct Plan {
  u8 w = 0, r = 0, s = 0;
  constexpr u64 capacity_bits() const { return u64{r} * 48 * (w - 1u) << (s - 1); }
};
constexpr bool operator==(const Plan& a, const Plan& b) {
  return a.w == b.w && a.r == b.r && a.s == b.s;
}

// The two tables, ascending in capacity.
struct PlanTable {
  const Plan* rows;
  u64 count;
};
PlanTable plan_table(u32 which); // 0 or 1
// The first plan of the first table that carries `bits`, else of the second; else km_exception with code -4.
const Plan& make_plan(u64 bits);

// The parameter record.
//
// Besides what every record does, each inverse transform is checked: a product's coefficients are smaller
// than the product of the primes by two bits or more, while those of a transform that was corrupted are
// spread over the whole range. When the largest one is not below what the operands can give, "VST Redundancy
// Check Failed:  " is printed with it and its bound, and km_exception with code 1 thrown. forward throws
// km_exception "VST: Out of Range" for an operand that exceeds the plan.
class mtp_t final : public ntt::Record {
public:
  mtp_t(const Plan& plan, const Division& division, const km_MULv3::Context& context);

  const Plan& plan() const { return plan_; }
  u64 blocks() const { return division_.blocks; } // of an operand; 1: the whole in one transform

  u64 transform_bytes() const override;
  u64 scratch_bytes() const override;
  bool accepts(const km_MULv3::abstract_btp& other) const override;
  u64 wrap_words() const override { return division_.words(); }
  u64 second_bytes() const override;
  void product(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
               void* scratch) const override;

private:
  void check_range(u64 words) const;
  void check(u64 top, u64 bits) const;
  void transform(void* T, const u64* A, u64 L, bool raw, void* scratch) const override;
  // Sums of products as one transform or block by block.
  void inverse(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, bool wrapped,
               void* scratch) const override;
  void inverse_transform(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, bool wrapped,
                         void* scratch) const;
  void inverse_blocks(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, bool wrapped,
                      void* scratch) const;

  Plan plan_;
  Division division_;
};

// The record for a product of n 64-bit words; null storage gives null.
mtp_t* make_parameters(u64 n, const km_MULv3::Context& context, km_MULv3::btp_storage* storage);
// The same with transforms no longer than `largest`, so that blocks are used from any length on.
mtp_t* make_parameters(u64 n, const km_MULv3::Context& context, km_MULv3::btp_storage* storage,
                       const ntt::Shape& largest);
// The words m >= n of the modulus 2^(64 m) - 1 that a record for n words has. A record made for m words takes
// wrapped operands of that length.
u64 wrap_words(u64 n);
// Work bytes of one product of n words: both transforms and the scratch.
u64 product_cost(u64 n, u64 threads, bool reduced_memory);
// Work bytes that suffice for every product of up to n words.
u64 memory_cost(u64 n, u64 threads, bool reduced_memory);

// The row's algorithm. Lengths count words of W.
template <class W> class algorithm final : public km_MULv3::algorithm_p<W> {
public:
  u64 capacity_bits() const override { return MAX_BITS; }
  const char* short_name() const override { return "VST"; }
  const char* description() const override { return "VST Algorithm"; }
  u64 memory_cost(u64 n, u64 threads) const override;
  km_MULv3::abstract_btp* make_parameters(u64 n, const km_MULv3::Context& context,
                                          km_MULv3::btp_storage* storage) const override;
};

} // namespace kelvane::km_VSTv2
