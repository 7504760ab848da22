// km_HNT: products of 17410 to 2^32 words by number-theoretic transforms.
//
// A plan is a pair (s, m), the length L = m 2^s, with the capacity (L/256 - 1) 32 2^s bits; it is looked up
// in two tables. The plan selects, bounds and documents a product. What computes it is the prime-field
// transform of multiply/ntt, whose own figures (primes, bits of a digit, points) stand beside the plan in the
// record.
#pragma once

#include "multiply/ntt/record.h"
#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane::km_HNT {

inline constexpr u64 MAX_BITS = 8795824586752;

struct Plan {
  u32 s = 0;
  u32 m = 0;
  u64 L_128 = 0;        // L / 128
  u64 L_128_next = 0;   // L / 128 + 1
  u64 L_256_before = 0; // L / 256 - 1
  u64 capacity_bits = 0;
};

constexpr Plan plan_of(u32 s, u32 m) {
  const u64 L = u64{m} << s;
  return {s, m, L / 128, L / 128 + 1, L / 256 - 1, (L / 256 - 1) * 32 << s};
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
class kmb_HNT_tp final : public ntt::Record {
public:
  kmb_HNT_tp(u64 bits, const Plan& plan, const ntt::Shape& shape, const km_MULv3::Context& context);

  const Plan& plan() const { return plan_; }
  u64 requested_bits() const { return requested_bits_; }

  u64 transform_bytes() const override { return engine_.transform_bytes(); }
  u64 scratch_bytes() const override { return engine_.scratch_bytes(); }
  bool accepts(const km_MULv3::abstract_btp& other) const override;
  u64 wrap_words() const override { return shape().capacity_words(); }
  u64 second_bytes() const override { return reduced_ ? engine_.prime_bytes() : engine_.transform_bytes(); }
  void product(u64* out, const u64* A, u64 LA, const u64* B, u64 LB, void* TA, void* TB,
               void* scratch) const override;

private:
  void transform(void* T, const u64* A, u64 L, bool raw, void* scratch) const override;
  void inverse(u64* out, u64 n, const km_MULv3::Term* terms, u64 count, bool wrapped,
               void* scratch) const override;

  Plan plan_;
  u64 requested_bits_;
};
// The record serves one thread and many alike.
using kmp_HNT_tp = kmb_HNT_tp;

// The record for a product of n 64-bit words; null storage gives null.
kmb_HNT_tp* make_parameters(u64 n, const km_MULv3::Context& context, km_MULv3::btp_storage* storage);
// Work bytes of one product of n words: both transforms and the scratch.
u64 product_cost(u64 n, u64 threads, bool reduced_memory);
// Work bytes that suffice for every product of up to n words.
u64 memory_cost(u64 n, u64 threads, bool reduced_memory);

// The row's algorithm. Lengths count words of W.
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
