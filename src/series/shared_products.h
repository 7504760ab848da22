// Products of one merge that share a transform: x * y for several x and a kept y.
//
// Two kept transforms are what takes the most memory of a run. With reduced memory long products keep none:
// each is formed on its own, one operand's transform prime by prime.
#pragma once

#include "arithmetic/kob_cdi_EFPh.h"
#include "multiply/table/km_MULv3.h"
#include "shell/heap.h"

namespace kelvane {

// Needs km_MULv3::memory_cost(product_words, context.threads, context.reduced_memory) bytes of 64-byte
// aligned work; the context must outlive the object. Both operands of every product together have at most
// product_words words.
class SharedProducts {
public:
  SharedProducts(const km_MULv3::Context& context, u64 product_words, void* work)
      : context_(context), work_(work) {
    if (context.reduced_memory && product_words > km_MULv3::LONGEST_FFT) return;
    parameters_ = km_MULv3::select(product_words, context, &storage_);
    Layout layout(work, km_MULv3::memory_cost(product_words, context.threads));
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
    passing.forward(*parameters_, passing_data_, x, scratch_);
    out.set_inverse_fmul(passing, kept_, scratch_);
  }

private:
  const km_MULv3::Context& context_;
  void* work_;
  const kob_cdi_EFPh* kept_number_ = nullptr;
  km_MULv3::btp_storage storage_;
  km_MULv3::abstract_btp* parameters_ = nullptr; // null: nothing is kept, see below
  void *kept_data_ = nullptr, *passing_data_ = nullptr, *scratch_ = nullptr;
  kob_cdi_EFPh::Transform kept_;
};

} // namespace kelvane
