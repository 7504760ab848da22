// Products of one merge that share transforms.
//
// SharedProducts: x * y for several x and a kept y: two transforms at a time. With reduced memory, where the
// work does not hold them, none is kept: each product is formed on its own, one operand's transform prime by
// prime.
//
// MergeProducts: all of a merge's operands transformed once, Rl Qr +- Pl Rr added before one inverse, where
// transforms can be added: four transforms at a time. At the top of a recursion they are what would take the
// most memory of a run; from the level below on, the work that the top needs holds them.
#pragma once

#include "arithmetic/kob_cdi_EFPh.h"
#include "multiply/table/km_MULv3.h"
#include "shell/heap.h"

namespace kelvane {

// Needs km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory) bytes of 64-byte
// aligned work; the context must outlive the object. Both operands of every product together have at most
// product_words words.
// Words that a product of up to product_words words and a carry needs beside operands over which
// multiply_over may write it: those of the products that may not be.
inline u64 words_beside(u64 product_words) {
  return km_MULv3::may_multiply_over(product_words) ? km_MULv3::LONGEST_BASECASE + 1 : product_words + 1;
}

// Whether the product of x and y is cheaper through shorter transforms of its own, three, than through two of
// the length of products of up to product_words words, that of the other operand being there already.
inline bool cheaper_alone(const kob_cdi_EFPh& x, const kob_cdi_EFPh& y, u64 product_words) {
  return 10 * (x.L + y.L) < 6 * product_words;
}

class SharedProducts {
public:
  SharedProducts(const km_MULv3::Context& context, u64 product_words, void* work)
      : SharedProducts(context, product_words, work,
                       km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory)) {}
  // With `bytes` of work, at least as many.
  SharedProducts(const km_MULv3::Context& context, u64 product_words, void* work, u64 bytes)
      : context_(context), work_(work) {
    full_.reduced_memory = false;
    if (context.reduced_memory && product_words > km_MULv3::LONGEST_FFT &&
        km_MULv3::product_cost(product_words, context.threads) > bytes)
      return;
    parameters_ = km_MULv3::select(product_words, full_, &storage_);
    Layout layout(work, bytes);
    kept_data_ = layout.take_bytes(parameters_->transform_bytes());
    passing_data_ = layout.take_bytes(parameters_->transform_bytes());
    scratch_ = layout.take_bytes(parameters_->scratch_bytes());
  }
  // Transforms x and keeps it for the products that follow.
  void keep(const kob_cdi_EFPh& x) {
    kept_number_ = &x;
    if (parameters_ != nullptr) kept_.forward(*parameters_, kept_data_, x, scratch_);
  }
  // out = x * kept.
  void multiply(kob_cdi_EFPh& out, const kob_cdi_EFPh& x) {
    if (parameters_ == nullptr) return out.set_product(context_, x, *kept_number_, work_);
    kob_cdi_EFPh::Transform passing;
    passing.forward_once(*parameters_, passing_data_, x, scratch_);
    out.set_inverse_fmul(passing, kept_, scratch_);
  }

  // The same where out's buffer may overlap both, which are destroyed; beyond the basecase's lengths.
  void multiply_over(kob_cdi_EFPh& out, const kob_cdi_EFPh& x) {
    if (parameters_ == nullptr) return out.set_product_over(context_, x, *kept_number_, work_);
    multiply(out, x);
  }

private:
  const km_MULv3::Context& context_;
  km_MULv3::Context full_ = context_;
  void* work_;
  const kob_cdi_EFPh* kept_number_ = nullptr;
  km_MULv3::btp_storage storage_;
  km_MULv3::abstract_btp* parameters_ = nullptr; // null: nothing is kept
  void *kept_data_ = nullptr, *passing_data_ = nullptr, *scratch_ = nullptr;
  kob_cdi_EFPh::Transform kept_;
};

// The products of a merge of (Pl, Ql, Rl) and (Pr, Qr, Rr), every one of at most product_words words, the sum
// included. `context` must outlive the object.
class MergeProducts {
public:
  MergeProducts(const km_MULv3::Context& context, u64 product_words, void* work, u64 bytes)
      : full_(context), words_(product_words) {
    full_.reduced_memory = false;
    if (product_words <= km_MULv3::LONGEST_BASECASE) return;
    const km_MULv3::abstract_btp* const record = km_MULv3::select(product_words, full_, &storage_);
    if (!record->may_add(0)) return;
    Layout measure;
    place(measure, *record);
    if (measure.used() > bytes) return;
    Layout layout(work, bytes);
    place(layout, *record);
    parameters_ = record;
  }
  // Whether the work holds what is needed.
  bool possible() const { return parameters_ != nullptr; }

  // Q = Ql Qr, R = Rl Qr + Pl Rr or the difference, P = Pl Pr where P is not null. False when the products of
  // R may not be added: P and R are as before then.
  bool merge(const kob_cdi_EFPh* left, const kob_cdi_EFPh* right, bool subtract, kob_cdi_EFPh* P,
             kob_cdi_EFPh& Q, kob_cdi_EFPh& R) {
    kob_cdi_EFPh::Transform qr, pl, passing, other;
    qr.forward(*parameters_, data_[0], right[1], scratch_);
    passing.forward_once(*parameters_, data_[1], left[1], scratch_);
    Q.set_inverse_fmul(passing, qr, scratch_);
    passing.forward_once(*parameters_, data_[1], left[2], scratch_);
    other.forward_once(*parameters_, data_[3], right[2], scratch_);
    const bool alone = P != nullptr && cheaper_alone(left[0], right[0], words_);
    if (P != nullptr && !alone)
      pl.forward(*parameters_, data_[2], left[0], scratch_);
    else
      pl.forward_once(*parameters_, data_[2], left[0], scratch_);
    if (!kob_cdi_EFPh::may_add(passing, qr, pl, other)) return false;
    R.set_inverse_fmul_ext(passing, qr, pl, other, subtract, scratch_);
    if (P == nullptr) return true;
    if (alone) {
      P->set_product(full_, left[0], right[0], data_[0]); // all transforms are spent
    } else {
      passing.forward_once(*parameters_, data_[1], right[0], scratch_);
      P->set_inverse_fmul(passing, pl, scratch_);
    }
    return true;
  }

private:
  void place(Layout& layout, const km_MULv3::abstract_btp& record) {
    for (void*& data : data_) data = layout.take_bytes(record.transform_bytes());
    scratch_ = layout.take_bytes(record.scratch_bytes());
  }

  km_MULv3::Context full_;
  u64 words_ = 0;
  km_MULv3::btp_storage storage_;
  const km_MULv3::abstract_btp* parameters_ = nullptr;
  void *data_[4], *scratch_ = nullptr;
};

} // namespace kelvane
