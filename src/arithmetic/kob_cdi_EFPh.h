// kob_cdi_EFPh: the unsigned floating number with residue, in memory.
//
//   value = (integer of the L words at T) * 2^(64 exp),   hash = value mod 2^61 - 1
//
// exp, L and AL count words. The magnitude exp + L is the word position just
// above the top word. It has no sign and holds positive quantities. An object
// owns no memory: its buffer of AL words is handed to it, and every operation
// that sets the value starts again at the buffer's start.
//
// The residue of a result is computed from the operands' residues, never from
// the result's words, so that comparing the two checks the arithmetic.
#pragma once

#include "multiply/table/km_MULv3.h"
#include "shell/types.h"

namespace kelvane {

class kob_cdi_EFPh {
public:
  u64* T = nullptr; // the significant words
  s64 exp = 0;
  u64 L = 0;
  u64 AL = 0; // words of the buffer
  u64* buffer = nullptr;
  u64 hash = 0;

  // A forward-transformed operand: a value that can be used in several products.
  struct Transform {
    const km_MULv3::abstract_btp* parameters = nullptr;
    void* data = nullptr; // parameters->transform_bytes() bytes
    u64 L = 0;
    s64 exp = 0;
    u64 hash = 0;
    double weight = km_MULv3::NO_WEIGHT; // see km_MULv3::abstract_btp::may_add

    void forward(const km_MULv3::abstract_btp& p, void* storage, const kob_cdi_EFPh& x, void* scratch);
    // For a single use: the next product must consume it. Cheaper.
    void forward_once(const km_MULv3::abstract_btp& p, void* storage, const kob_cdi_EFPh& x, void* scratch);

  private:
    void describe(const km_MULv3::abstract_btp& p, void* storage, const kob_cdi_EFPh& x);
  };

  void attach(u64* words, u64 allocated);
  s64 mag() const { return exp + static_cast<s64>(L); }
  // Room left above the significant words.
  u64 room() const { return AL - static_cast<u64>(T - buffer) - L; }

  // This = x (exp = 0). Needs AL >= n. Trims zero words at the top and sets the hash from the words.
  void set_words(const u64* x, u64 n);
  // After the words at T[0, L) were written directly: trims the top and sets the hash from the words.
  void finish_words();
  // Copy of B. Needs AL >= B.L.
  void set_copy(const kob_cdi_EFPh& B);

  // This = A + B; the fatal "Insufficient Allocated Space" unless AL exceeds the result's span.
  void set_add(const kob_cdi_EFPh& A, const kob_cdi_EFPh& B);
  // This += B, this -= B, for B below this in magnitude (this > B when subtracting, else an assertion
  // failure). Words of B below this number's last word are dropped (and leave the hash with them), so the
  // result is off by less than one unit of its last word. Needs one word of room above.
  void add_in_place(const kob_cdi_EFPh& B);
  void sub_in_place(const kob_cdi_EFPh& B);
  // This = B - this, for B > this with the same exponent (else an assertion failure). Needs AL >= B.L.
  void reverse_sub_in_place(const kob_cdi_EFPh& B);
  // This = A + B, both first cut to the `keep` + 1 words below the larger one's top (~0: exact). Needs
  // AL >= keep + 2, or one word more than the exact sum's span.
  void set_add_kept(const kob_cdi_EFPh& A, const kob_cdi_EFPh& B, u64 keep);
  // This = B * 2^bits, kept to keep + 1 words (~0: exact). Zero words are written out below B as far as that
  // reaches, so that numbers of smaller exponents can be added and subtracted in place.
  // Needs AL >= min(keep + 1, B.L + bits / 64) + 1.
  void set_shifted(const kob_cdi_EFPh& B, u64 bits, u64 keep);
  // This *= 2^bits; whole words move the exponent. Needs one word of room above unless 64 divides bits.
  void shift_left_in_place(u64 bits);
  // This *= w, w > 0. Needs one word of room above.
  void mul_word_in_place(u64 w);

  // This = the product of two transformed operands. TA's data are destroyed, TB's kept.
  // Fatal: mismatching parameters, a product longer than the transform holds, too little room.
  void set_inverse_fmul(const Transform& TA, const Transform& TB, void* scratch);
  void set_inverse_fsqr(const Transform& TA, void* scratch);
  // Whether TA TB and TC TD may be added before one inverse.
  static bool may_add(const Transform& TA, const Transform& TB, const Transform& TC, const Transform& TD);
  // This = TA TB + TC TD, or the difference, which must be positive: one inverse of both. Where they may be
  // added only. TA's data are destroyed, the others' kept. Both products have the same exponent.
  void set_inverse_fmul_ext(const Transform& TA, const Transform& TB, const Transform& TC,
                            const Transform& TD, bool subtract, void* scratch);
  // This = A * B through the algorithm table, without kept transforms.
  // work: km_MULv3::memory_cost(A.L + B.L, context.threads, context.reduced_memory) bytes.
  void set_product(const km_MULv3::Context& context, const kob_cdi_EFPh& A, const kob_cdi_EFPh& B,
                   void* work);
  // The same, but this number's buffer may overlap the operands' words, which are destroyed; beyond
  // km_MULv3::LONGEST_BASECASE words.
  void set_product_over(const km_MULv3::Context& context, const kob_cdi_EFPh& A, const kob_cdi_EFPh& B,
                        void* work);

  // Keeps the top n words (when there are more); the error is below one unit of the last word kept.
  // The residue of the words dropped is taken off the hash, so a fault in the words kept stays visible.
  void truncate(u64 n);

  // The residue of the number as its words stand.
  u64 hash_of_words() const;
  void dump() const;

private:
  void drop_low_words(u64 n);
};

} // namespace kelvane
