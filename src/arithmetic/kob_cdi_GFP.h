// kob_cdi_GFP: the signed floating number in memory, for quotients and roots.
//
//   value = +/- (integer of the L words at T) * 2^(64 exp)
//
// exp, L and AL count words; sign is 1 for positive numbers and zero, 0 for
// negative ones; zero has L = 0 and exp = 0. Its residue is computed on demand.
// An object owns no memory; every operation starts at the buffer's start.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane {

class kob_cdi_GFP {
public:
  u64* buffer = nullptr;
  u64* T = nullptr;
  s64 exp = 0;
  u64 L = 0;
  u64 AL = 0;
  s32 sign = 1;

  void attach(u64* words, u64 allocated);
  s64 mag() const { return exp + static_cast<s64>(L); }
  bool is_zero() const { return L == 0; }

  void set_zero();
  // Takes over `length` words already written at the buffer's start; strips zero words at the top.
  void set_value(u64 length, s64 exponent, s32 sign_);
  // This = B kept to p words and two guard words. Assertion failure when AL is too small.
  void set_truncated(const kob_cdi_GFP& B, u64 p);
  // Drops words below the top p + 2, in place.
  void trim(u64 p);
  // This = B * w. Needs AL > B.L unless the product is zero. This may be B itself.
  void set_mul_word(const kob_cdi_GFP& B, u64 w);
  // This = x * 2^(64 e), exactly; one or two words.
  void set_double(double x, s64 e);
  // The top words as a double in [1, 2^64) times 2^(64 e): returns it and stores e = mag - 1. Non-zero
  // numbers only.
  double get_double(s64* e) const;
  // This = |A| + |B| or |A| - |B| (|A| >= |B|) with A's sign, kept to p + 2 words below A's top.
  // Words of both below that are dropped: error below two units of the last word. Needs AL >= p + 3.
  // This may share A's words when A starts no lower than the result (A.L <= p + 2).
  void set_add_magnitude(const kob_cdi_GFP& A, const kob_cdi_GFP& B, u64 p);
  void set_sub_magnitude(const kob_cdi_GFP& A, const kob_cdi_GFP& B, u64 p);

  // out[0, n) = the words at positions [s, s + n); positions outside [exp, mag) read as zero.
  void read_slice(u64* out, s64 s, u64 n) const;
  // The residue modulo 2^61 - 1 of the magnitude.
  u64 hash() const;
  void dump() const;
};

// Bytes of work for set_product: the full product of pa + 2 by pb + 2 words and what it needs.
u64 product_work_bytes(u64 pa, u64 pb, const km_MULv3::Context& context);

// R = A * B where A is first kept to pa and B to pb words (each with two guard words), kept to p words.
// The product is checked by residues (kc_BSRModularCheckFailed). R's buffer may be that of neither operand's
// words while they are read, but may be reused: the product is formed in `work` and copied last.
// work: product_work_bytes(pa, pb, context) bytes, 64-byte aligned. R.AL >= min(p + 2, length of product).
void set_product(const km_MULv3::Context& context, kob_cdi_GFP& R, const kob_cdi_GFP& A, u64 pa,
                 const kob_cdi_GFP& B, u64 pb, u64 p, void* work);
// R = A * A likewise; work: product_work_bytes(pa, pa, context).
void set_square(const km_MULv3::Context& context, kob_cdi_GFP& R, const kob_cdi_GFP& A, u64 pa, u64 p,
                void* work);

} // namespace kelvane
