// Products of one merge that share a transform: x * y for several x and a kept y.
#pragma once

#include "arithmetic/kob_cdi_EFPh.h"
#include "multiply/table/km_MULv3.h"
#include "shell/heap.h"

namespace kelvane {

// Needs km_MULv3::memory_cost(product_words, context.threads) bytes of 64-byte aligned work.
// Both operands of every product together have at most product_words words.
class SharedProducts {
public:
  SharedProducts(const km_MULv3::Context& context, u64 product_words, void* work) {
    parameters_ = km_MULv3::select(product_words, context, &storage_);
    Layout layout(work, km_MULv3::memory_cost(product_words, context.threads));
    kept_data_ = layout.take_bytes(parameters_->transform_bytes());
    passing_data_ = layout.take_bytes(parameters_->transform_bytes());
    scratch_ = layout.take_bytes(parameters_->scratch_bytes());
  }
  // Transforms x and keeps it for the products that follow.
  void keep(const kob_cdi_EFPh& x) { kept_.forward(*parameters_, kept_data_, x, scratch_); }
  // out = x * kept.
  void multiply(kob_cdi_EFPh& out, const kob_cdi_EFPh& x) {
    kob_cdi_EFPh::Transform passing;
    passing.forward(*parameters_, passing_data_, x, scratch_);
    out.set_inverse_fmul(passing, kept_, scratch_);
  }

private:
  km_MULv3::btp_storage storage_;
  km_MULv3::abstract_btp* parameters_ = nullptr;
  void *kept_data_ = nullptr, *passing_data_ = nullptr, *scratch_ = nullptr;
  kob_cdi_EFPh::Transform kept_;
};

} // namespace kelvane
